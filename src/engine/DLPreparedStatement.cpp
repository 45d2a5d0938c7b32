#include "DLPreparedStatement.h"

#include "DLSQLite3API.h"
#include "DLSQLiteDatabase.h"

namespace brindle {

TPreparedStatement::TPreparedStatement(TDLSQLiteDatabase& Database, const QString& SQL)
    : FDatabase(Database), FSQL(SQL), FHandle(Database.CreateSQLHandle(SQL)) {
    if (!FHandle->Complete()) FDatabase.Prepare(*FHandle);
}

TPreparedStatement::~TPreparedStatement() = default;

sqlite3_stmt* TPreparedStatement::Handle() const {
    return FHandle->FSQLHandle;
}

bool TPreparedStatement::Step() {
    sqlite3_stmt* stmt = FHandle->FSQLHandle;
    if (!stmt) return false;
    const int rc = SQLite3Driver->sqlite3_step(stmt);
    if (rc == SQLITE_ROW) return true;
    if (rc == SQLITE_DONE) return false;
    // The statement's own error, not the one a reset would report.
    SQLite3Driver->sqlite3_reset(stmt);
    FDatabase.SQLiteCheck(rc, FSQL);
    return false;
}

void TPreparedStatement::Reset() {
    if (FHandle->FSQLHandle) SQLite3Driver->sqlite3_reset(FHandle->FSQLHandle);
}

}  // namespace brindle
