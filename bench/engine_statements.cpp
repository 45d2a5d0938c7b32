// What the database object adds to the engine's own cost: many small
// statements through Execute against prepare/step/finalize of the same text,
// and one long query with the progress handler installed against a bare
// connection.
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <cstdio>

using namespace brindle;

namespace {

double runBare(sqlite3* db, const QStringList& statements) {
    QElapsedTimer t;
    t.start();
    TSQLite3Driver& d = *SQLite3Driver;
    d.sqlite3_exec(db, "begin", nullptr, nullptr, nullptr);
    for (const QString& s : statements) {
        sqlite3_stmt* stmt = nullptr;
        d.sqlite3_prepare16_v2(db, s.utf16(), -1, &stmt, nullptr);
        d.sqlite3_step(stmt);
        d.sqlite3_finalize(stmt);
    }
    d.sqlite3_exec(db, "commit", nullptr, nullptr, nullptr);
    return t.nsecsElapsed() / 1e9;
}

double runOurs(TDLSQLiteDatabase& db, const QStringList& statements) {
    QElapsedTimer t;
    t.start();
    db.Execute(QStringLiteral("begin"));
    for (const QString& s : statements) db.Execute(s);
    db.Execute(QStringLiteral("commit"));
    return t.nsecsElapsed() / 1e9;
}

}  // namespace

int main() {
    if (!SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)) return 1;
    // The database object asks the parser what each statement is, as in the program.
    InstallSQLParserServices();
    QTemporaryDir dir;
    const int rows = 200000;
    QStringList statements;
    statements.reserve(rows);
    for (int i = 0; i < rows; ++i)
        statements << QStringLiteral("insert into t values (%1, 'name %1', %2)").arg(i).arg(i * 0.25);

    TSQLite3Driver& d = *SQLite3Driver;
    sqlite3* bare = nullptr;
    d.sqlite3_open(dir.filePath(QStringLiteral("bare.db")).toUtf8().constData(), &bare);
    d.sqlite3_exec(bare, "create table t(a integer, b text, c real)", nullptr, nullptr, nullptr);

    TDLSQLiteDatabase db;
    db.FShowWaitCursor = false;
    db.SetFileName(dir.filePath(QStringLiteral("ours.db")));
    db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
    db.Execute(QStringLiteral("create table t(a integer, b text, c real)"));
    bool cont = true;
    db.FOnProgress = [&cont](bool& c) { c = cont; };

    const double bareInsert = runBare(bare, statements);
    const double oursInsert = runOurs(db, statements);
    std::printf("single statements: %d inserts\n", rows);
    std::printf("  bare prepare/step/finalize: %.3f s (%.0f statements/s)\n", bareInsert, rows / bareInsert);
    std::printf("  Execute:                    %.3f s (%.0f statements/s)\n", oursInsert, rows / oursInsert);
    std::printf("  ratio Execute/bare: %.2f\n", oursInsert / bareInsert);

    const char* query = "select sum(length(b) * c + a) from t t1 where a % 7 <> 3";
    QElapsedTimer t;
    t.start();
    for (int k = 0; k < 10; ++k) d.sqlite3_exec(bare, query, nullptr, nullptr, nullptr);
    const double bareQuery = t.nsecsElapsed() / 1e9;
    t.restart();
    for (int k = 0; k < 10; ++k) db.GetStringValue(QString::fromLatin1(query));
    const double oursQuery = t.nsecsElapsed() / 1e9;
    std::printf("long query, 10 runs over %d rows\n", rows);
    std::printf("  bare connection:              %.3f s\n", bareQuery);
    std::printf("  with progress handler:        %.3f s\n", oursQuery);
    std::printf("  ratio: %.2f\n", oursQuery / bareQuery);
    d.sqlite3_close(bare);
    return 0;
}
