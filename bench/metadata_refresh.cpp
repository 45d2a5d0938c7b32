// A full refresh of the metadata tree against the catalogue questions it
// asks, run bare: on a schema of 2,000 tables (ten columns, two indexes,
// one trigger and one foreign key each), the refresh reads every table
// into items; the reference prepares and steps the very statements the
// refresh prepared (recorded as it ran), reading each column of each row
// and keeping nothing. The difference is what the items, the parser and
// the bookkeeping cost.
//
//   build/bin/bench_metadata_refresh [TABLES]     (default 2000)
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteMetadata.h"
#include "schema/DLSQLiteParser.h"

#include <sqlite3.h>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>

using namespace brindle;

namespace {

void MakeSchema(TDLSQLiteDatabase& db, int tables) {
    db.Execute(QStringLiteral("begin"));
    for (int i = 0; i < tables; ++i) {
        const int parent = i == 0 ? 0 : i - 1;
        db.Execute(QStringLiteral("create table t%1 (\n"
                                  "  id integer primary key autoincrement,\n"
                                  "  parent_id integer references t%2 (id) on delete cascade,\n"
                                  "  code varchar(20) not null unique,\n"
                                  "  name text not null collate nocase,\n"
                                  "  amount numeric(12, 2) default 0,\n"
                                  "  qty integer not null default 1 check (qty >= 0),\n"
                                  "  created text default current_timestamp,\n"
                                  "  note text,\n"
                                  "  flags integer,\n"
                                  "  data blob\n"
                                  ")")
                       .arg(i)
                       .arg(parent));
        db.Execute(QStringLiteral("create index t%1_name on t%1 (name, created desc)").arg(i));
        db.Execute(QStringLiteral("create index t%1_open on t%1 (parent_id) where qty > 0").arg(i));
        db.Execute(QStringLiteral("create trigger t%1_touch after update of name on t%1 begin\n"
                                  "  update t%1 set created = current_timestamp where id = new.id;\n"
                                  "end")
                       .arg(i));
    }
    db.Execute(QStringLiteral("commit"));
}

// Prepares and steps each statement, touching every column of every row.
double RunBare(TDLSQLiteDatabase& db, const QStringList& statements) {
    TSQLite3Driver& d = *SQLite3Driver;
    QElapsedTimer t;
    t.start();
    for (const QString& sql : statements) {
        sqlite3_stmt* stmt = nullptr;
        d.sqlite3_prepare16_v2(db.Handle(), sql.utf16(), -1, &stmt, nullptr);
        const int columns = d.sqlite3_column_count(stmt);
        while (d.sqlite3_step(stmt) == SQLITE_ROW)
            for (int c = 0; c < columns; ++c) d.sqlite3_column_text16(stmt, c);
        d.sqlite3_finalize(stmt);
    }
    return t.nsecsElapsed() / 1e9;
}

}  // namespace

int main(int argc, char* argv[]) {
    if (!SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)) return 1;
    InstallSQLParserServices();
    const int tables = argc > 1 ? std::max(1, std::atoi(argv[1])) : 2000;
    const int runs = 7;

    QTemporaryDir dir;
    TDLSQLiteDatabase db;
    db.FShowWaitCursor = false;
    db.SetFileName(dir.filePath(QStringLiteral("bench.db")));
    db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
    QElapsedTimer made;
    made.start();
    MakeSchema(db, tables);
    std::printf("schema: %d tables, %d indexes, %d triggers, %d foreign keys (made in %.2f s)\n", tables,
                2 * tables, tables, tables, made.nsecsElapsed() / 1e9);

    TDLSQLiteMetadata md(&db);
    // The first refresh makes every item; later ones keep them and read
    // everything again, which is what a refresh after a change does.
    QElapsedTimer t;
    t.start();
    md.Refresh();
    const double first = t.nsecsElapsed() / 1e9;

    QStringList statements;
    db.FBeforePrepare = [&statements](const QString& sql) { statements << sql; };
    md.Refresh();
    db.FBeforePrepare = nullptr;

    // Each run: a refresh of a new metadata object (every item made, every
    // text parsed), a refresh of the kept one, and the bare statements.
    double cold = 1e300, refresh = 1e300, bare = 1e300;
    for (int k = 0; k < runs; ++k) {
        {
            TDLSQLiteMetadata fresh(&db);
            t.start();
            fresh.Refresh();
            cold = std::min(cold, t.nsecsElapsed() / 1e9);
        }
        t.start();
        md.Refresh();
        refresh = std::min(refresh, t.nsecsElapsed() / 1e9);
        bare = std::min(bare, RunBare(db, statements));
    }
    int indexes = 0, triggers = 0, keys = 0;
    for (int i = 0; i < md.TableCount(); ++i) {
        indexes += md.Tables(i).IndexCount();
        triggers += md.Tables(i).TriggerCount();
        keys += md.Tables(i).ForeignKeyCount();
    }
    std::printf(
        "items: %d tables, %d indexes (keys and constraints included), %d triggers, %d foreign keys\n",
        md.TableCount(), indexes, triggers, keys);
    std::printf("catalogue statements per refresh: %lld\n", static_cast<long long>(statements.size()));
    std::printf("  first refresh of the process:           %.3f s\n", first);
    std::printf("  full refresh, new metadata (best of %d): %.3f s  %.1f us per table\n", runs, cold,
                cold * 1e6 / tables);
    std::printf("  refresh, items kept (best of %d):        %.3f s  %.1f us per table\n", runs, refresh,
                refresh * 1e6 / tables);
    std::printf("  the same statements bare (best of %d):   %.3f s\n", runs, bare);
    std::printf("  ratio full refresh/bare: %.2f (goal: at most 2)\n", cold / bare);
    std::printf("  ratio kept refresh/bare: %.2f\n", refresh / bare);
    return md.TableCount() == tables ? 0 : 2;
}
