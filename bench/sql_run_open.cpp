// A SELECT of a million rows run as the SQL tab runs it: the run ends when
// the first window of rows is read, not the whole result. Prints the run's
// time for the whole table against the same run cut to the rows that the
// open reads ("limit N"), and their ratio (the goal: close to 1).
//
//   build/bin/bench_sql_run_open [ROWS]     (default 1000000)
#include "data/DLQuery.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"
#include "workbench/SQLExecution.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

using namespace brindle;

namespace {

double medianRun(TDLSQLiteDatabase& db, const QString& sql, int& rows) {
    std::vector<double> times;
    for (int i = 0; i < 7; ++i) {
        TDLQuery query;
        TSQLRunner runner(query);
        QElapsedTimer t;
        t.start();
        const TSQLRunOutcome out = runner.ExecuteSQL(&db, sql);
        times.push_back(t.nsecsElapsed() / 1e6);
        if (!out.ErrorMessage.isEmpty()) std::fprintf(stderr, "%s\n", qPrintable(out.ErrorMessage));
        rows = query.Active() ? query.GetRecordCount() : -1;
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    const qint64 count = argc > 1 ? QByteArray(argv[1]).toLongLong() : 1000000;
    if (!SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)) return 1;
    InstallSQLParserServices();
    QTemporaryDir dir;
    TDLSQLiteDatabase db;
    db.FShowWaitCursor = false;
    db.SetFileName(dir.filePath(QStringLiteral("run.db")));
    db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
    db.Execute(QStringLiteral("create table t(id integer primary key, name text, amount real, code text)"));
    db.Execute(QStringLiteral("with recursive c(x) as (select 1 union all select x + 1 from c where x < %1) "
                              "insert into t select x, 'name ' || x, x * 0.25, printf('C%08d', x) from c")
                   .arg(count));
    int allRows = 0, windowRows = 0;
    const double all = medianRun(db, QStringLiteral("select * from t"), allRows);
    // The reference reads exactly the rows the open read.
    const double window = medianRun(db, QStringLiteral("select * from t limit %1").arg(allRows), windowRows);
    std::printf("rows in table: %lld\n", count);
    std::printf("run of select * from t: %.2f ms (rows known at open: %d)\n", all, allRows);
    std::printf("run of the first window only (limit %d): %.2f ms\n", allRows, window);
    std::printf("ratio whole table / first window: %.2f\n", all / window);
    return 0;
}
