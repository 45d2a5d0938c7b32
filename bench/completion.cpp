// Completion in the SQL editor at many caret places, on a schema of 2,000
// tables of 20 columns each (and a few views): every caret place of a few
// statements of a small script, where the word before the caret counts as
// begun, and an empty editor. Prints the worst and the median time of one
// request, per statement and over all; the reference is the bare catalogue
// question for the table names, prepared and stepped without the program's
// layers, against which the median after FROM is set.
//
//   build/bin/bench_completion [TABLES]     (default 2000; goal: worst at most 50 ms)
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"
#include "workbench/CodeComplete.h"
#include "workbench/EditorText.h"

#include <sqlite3.h>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <vector>

using namespace brindle;

namespace {

void MakeSchema(TDLSQLiteDatabase& db, int tables) {
    db.Execute(QStringLiteral("begin"));
    for (int i = 0; i < tables; ++i) {
        QString sql = QStringLiteral("create table t%1 (id integer primary key").arg(i);
        for (int c = 1; c < 20; ++c) sql += QStringLiteral(", c%1 text").arg(c);
        db.Execute(sql + u')');
    }
    for (int i = 0; i < 20; ++i)
        db.Execute(QStringLiteral("create view v%1 as select id, c1, c2 from t%1").arg(i));
    db.Execute(QStringLiteral("commit"));
}

struct TTimes {
    std::vector<double> Ms;
    double Worst = 0;
    QString WorstAt;

    void Add(double ms, const QString& at) {
        Ms.push_back(ms);
        if (ms > Worst) {
            Worst = ms;
            WorstAt = at;
        }
    }
    double Median() {
        if (Ms.empty()) return 0;
        std::nth_element(Ms.begin(), Ms.begin() + static_cast<qsizetype>(Ms.size() / 2), Ms.end());
        return Ms[Ms.size() / 2];
    }
};

// One request at a caret inside Lines, as the editor makes it.
double Request(TDLSQLiteDatabase& db, const QStringList& lines, int line, int column, size_t& items) {
    QElapsedTimer t;
    t.start();
    QString before, after;
    GetEditorText(lines, line, column, before, after);
    items = CompletionProposal(&db, before, after, GetCurrentInput(before)).size();
    return t.nsecsElapsed() / 1e6;
}

double BareTableNames(TDLSQLiteDatabase& db) {
    TSQLite3Driver& d = *SQLite3Driver;
    QElapsedTimer t;
    t.start();
    sqlite3_stmt* stmt = nullptr;
    d.sqlite3_prepare16_v2(db.Handle(), u"select name from sqlite_master where type = 'table'", -1, &stmt,
                           nullptr);
    while (d.sqlite3_step(stmt) == SQLITE_ROW) d.sqlite3_column_text16(stmt, 0);
    d.sqlite3_finalize(stmt);
    return t.nsecsElapsed() / 1e6;
}

}  // namespace

int main(int argc, char* argv[]) {
    if (!SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)) return 1;
    InstallSQLParserServices();
    const int tables = argc > 1 ? std::max(1, std::atoi(argv[1])) : 2000;

    QTemporaryDir dir;
    TDLSQLiteDatabase db;
    db.FShowWaitCursor = false;
    db.SetFileName(dir.filePath(QStringLiteral("bench.db")));
    db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
    MakeSchema(db, tables);
    std::printf("schema: %d tables of 20 columns, 20 views\n", tables);

    // A small script: the statement at the caret is the one in the middle.
    const QStringList head{QStringLiteral("select count(*) from t1;"), QStringLiteral("")};
    const QStringList tail{QStringLiteral(""), QStringLiteral("update t2 set c1 = 'x' where id = 1;")};
    const QStringList statements{
        QStringLiteral("select a.c1, b.c2 from t1234 a join t42 b on a.id = b.id where a.c3 > 0;"),
        QStringLiteral("select * from t7 x, main.t8 y where x.c5 = y.c5 order by x.c1;"),
        QStringLiteral("insert into t99 (c1, c2, c3) values (1, 2, 3);"),
        QStringLiteral("create table n (a integer references t1500 (id, c2), b text);"),
        QStringLiteral("update t3 set c4 = 1 where c5 in (select c5 from v3 w where w.c1 = 0);"),
    };

    // Warm the engine's schema cache and the parser, as a session would be.
    size_t items = 0;
    Request(db, {QString()}, 0, 0, items);

    TTimes all;
    std::printf("%-74s %6s %8s %8s\n", "statement", "carets", "median", "worst");
    for (const QString& statement : statements) {
        TTimes times;
        QStringList lines = head;
        lines << statement;
        lines += tail;
        const int line = static_cast<int>(head.size());
        for (int column = 0; column <= statement.size(); ++column) {
            const double ms = Request(db, lines, line, column, items);
            const QString at = statement.left(column) + u'|';
            times.Add(ms, at);
            all.Add(ms, at);
        }
        std::printf("%-74s %6zu %6.2f ms %6.2f ms\n", qPrintable(statement), times.Ms.size(), times.Median(),
                    times.Worst);
    }
    TTimes empty;
    for (int k = 0; k < 20; ++k) empty.Add(Request(db, {QString()}, 0, 0, items), QStringLiteral("|"));
    std::printf("%-74s %6zu %6.2f ms %6.2f ms  (%zu items)\n", "(empty editor)", empty.Ms.size(),
                empty.Median(), empty.Worst, items);
    all.Add(empty.Worst, QStringLiteral("(empty editor)"));

    TTimes from, bare;
    const QStringList fromLines{QStringLiteral("select * from ")};
    for (int k = 0; k < 20; ++k) {
        from.Add(Request(db, fromLines, 0, 14, items), QString());
        bare.Add(BareTableNames(db), QString());
    }
    const double fromMedian = from.Median();
    const double bareMedian = bare.Median();
    std::printf(
        "after FROM: median %.2f ms (%zu items); the bare table-name query: median %.2f ms; ratio %.1f\n",
        fromMedian, items, bareMedian, fromMedian / bareMedian);
    const double worst = all.Worst;
    std::printf("all %zu requests: median %.2f ms, worst %.2f ms at \"%s\" (goal: worst at most 50 ms)\n",
                all.Ms.size(), all.Median(), worst, qPrintable(all.WorstAt));
    return 0;
}
