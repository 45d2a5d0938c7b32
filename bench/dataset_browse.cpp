// Browsing a big table through a query: the first window, Last against a
// bare prepare-and-step loop over the same statement, random jumps, and
// resident memory after walking the whole table forward and back, at one
// million and at ten million rows (memory must not grow with the table).
//
//   build/bin/bench_dataset_browse [ROWS]     (default 10000000)
#include "data/DLQuery.h"
#include "data/DLTable.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <cstdio>
#include <sqlite3.h>

using namespace brindle;

namespace {

// Resident memory now, in MiB.
double residentMiB() {
    QFile f(QStringLiteral("/proc/self/statm"));
    if (!f.open(QIODevice::ReadOnly)) return 0;
    const QList<QByteArray> parts = f.readAll().split(' ');
    return parts.size() > 1 ? parts[1].toDouble() * 4096 / (1024.0 * 1024.0) : 0;
}

void fill(TDLSQLiteDatabase& db, const QString& table, qint64 rows) {
    db.Execute(QStringLiteral("create table %1(id integer primary key, name text, amount real, qty integer, "
                              "code text, note text)")
                   .arg(table));
    db.Execute(QStringLiteral("begin"));
    db.Execute(QStringLiteral("with recursive c(x) as (select 1 union all select x + 1 from c where x < %2) "
                              "insert into %1 select x, 'name ' || x, x * 0.25, x % 1000, "
                              "printf('C%08d', x), case when x % 3 then 'note ' || x end from c")
                   .arg(table)
                   .arg(rows));
    db.Execute(QStringLiteral("commit"));
}

double bareStep(TDLSQLiteDatabase& db, const QString& sql) {
    QElapsedTimer t;
    t.start();
    TSQLite3Driver& d = *SQLite3Driver;
    sqlite3_stmt* stmt = nullptr;
    d.sqlite3_prepare16_v2(db.Handle(), sql.utf16(), -1, &stmt, nullptr);
    qint64 n = 0;
    while (d.sqlite3_step(stmt) == SQLITE_ROW) ++n;
    d.sqlite3_finalize(stmt);
    return t.nsecsElapsed() / 1e9;
}

// Opens, goes to the end, jumps, walks both ways; returns resident memory
// after. The table is read as the grid reads it.
double browse(TDLSQLiteDatabase& db, const QString& table, qint64 rows, bool report) {
    const QString sql = QStringLiteral("select * from ") + table;
    TDLTable q;
    q.SetDatabase(&db);
    q.SetTableName(table);
    QElapsedTimer t;
    t.start();
    q.Open();
    const double open = t.nsecsElapsed() / 1e9;

    const double bare = bareStep(db, sql);
    t.restart();
    q.Last();
    const double last = t.nsecsElapsed() / 1e9;
    if (q.GetRecordCount() != rows) std::printf("  WRONG COUNT %d\n", q.GetRecordCount());

    if (report) {
        std::printf("  open and first window:          %8.4f s\n", open);
        std::printf("  Last:                           %8.3f s\n", last);
        std::printf("  bare prepare-and-step loop:     %8.3f s\n", bare);
        std::printf("  ratio Last/bare: %.2f (goal: at most 1.3)\n", last / bare);
        for (qint64 target : {rows * 9 / 10, qint64(10), rows / 2}) {
            t.restart();
            q.SetRecNo(static_cast<int>(target));
            const double jump = t.nsecsElapsed() / 1e9;
            if (q.FieldByName(QStringLiteral("id")).Value().toLongLong() != target) std::printf("  WRONG ROW\n");
            std::printf("  jump to record %-10lld       %8.4f s\n", static_cast<long long>(target), jump);
        }
    }
    t.restart();
    qint64 seen = 0;
    for (q.First(); !q.Eof(); q.Next()) ++seen;
    for (q.Last(); !q.Bof(); q.Prior()) ++seen;
    if (seen != 2 * rows) std::printf("  WRONG WALK %lld\n", static_cast<long long>(seen));
    if (report) std::printf("  walk forward and back:          %8.3f s\n", t.nsecsElapsed() / 1e9);
    return residentMiB();
}

// Last over a query the program knows nothing about: the result has no
// marks to seek to, so the row before the end needs a second pass.
void genericLast(TDLSQLiteDatabase& db, const QString& table) {
    const QString sql = QStringLiteral("select * from ") + table + QStringLiteral(" where qty >= 0");
    TDLQuery q;
    q.SetDatabase(&db);
    q.SetSQL(sql);
    q.Open();
    const double bare = bareStep(db, sql);
    QElapsedTimer t;
    t.start();
    q.Last();
    const double last = t.nsecsElapsed() / 1e9;
    std::printf("  any query, Last %.3f s against bare %.3f s: ratio %.2f\n", last, bare, last / bare);
}

}  // namespace

int main(int argc, char** argv) {
    if (!SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)) return 1;
    InstallSQLParserServices();
    const qint64 rows = argc > 1 ? QByteArray(argv[1]).toLongLong() : 10000000;
    const qint64 small = std::min<qint64>(1000000, rows / 10 > 0 ? rows / 10 : rows);
    QTemporaryDir dir;
    TDLSQLiteDatabase db;
    db.FShowWaitCursor = false;
    db.SetFileName(dir.filePath(QStringLiteral("browse.db")));
    db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
    std::printf("filling tables of %lld and %lld rows (six columns)...\n", static_cast<long long>(small),
                static_cast<long long>(rows));
    fill(db, QStringLiteral("small"), small);
    fill(db, QStringLiteral("big"), rows);
    db.Execute(QStringLiteral("pragma cache_size = -2000"));  // the engine's page cache stays small

    std::printf("%lld rows:\n", static_cast<long long>(small));
    const double smallMiB = browse(db, QStringLiteral("small"), small, false);
    std::printf("  resident after walking forward and back: %.1f MiB\n", smallMiB);
    std::printf("%lld rows:\n", static_cast<long long>(rows));
    const double bigMiB = browse(db, QStringLiteral("big"), rows, true);
    genericLast(db, QStringLiteral("big"));
    std::printf("  resident after walking forward and back: %.1f MiB\n", bigMiB);
    std::printf("memory growth from %lld to %lld rows: %.1f MiB (goal: a few MiB)\n", static_cast<long long>(small),
                static_cast<long long>(rows), bigMiB - smallMiB);
    return 0;
}
