#include "DLRowidScan.h"

#include "DLRowidMarks.h"
#include "engine/DLSQLite3API.h"

#include <memory>

namespace brindle {

void TRowidScanTask::Execute() {
    sqlite3* db = DB();
    if (!db || !SQLite3Driver) return;
    TSQLite3Driver& drv = *SQLite3Driver;
    sqlite3_stmt* raw = nullptr;
    if (drv.sqlite3_prepare16_v2(db, FSQL.utf16(), -1, &raw, nullptr) != SQLITE_OK || !raw) {
        if (raw) drv.sqlite3_finalize(raw);
        return;
    }
    const auto finalize = [&drv](sqlite3_stmt* S) { drv.sqlite3_finalize(S); };
    const std::unique_ptr<sqlite3_stmt, decltype(finalize)> stmt(raw, finalize);
    std::vector<qint64> marks;
    qint64 count = 0;
    int rc;
    while ((rc = drv.sqlite3_step(stmt.get())) == SQLITE_ROW) {
        if (count % TRowidMarks::Step == 0) marks.push_back(drv.sqlite3_column_int64(stmt.get(), 0));
        ++count;
    }
    if (rc != SQLITE_DONE) return;
    FMarks = std::move(marks);
    FCount = count;
}

}  // namespace brindle
