// The data grid over a big table: the first window, Ctrl+End, a jump to
// the middle by the scroll bar, Ctrl+Home, each timed until the grid has
// painted, and resident memory after the end was shown. The grid must not
// keep anything per row it does not show.
//
//   build/bin/bench_grid_browse [DB] [ROWS]   (default /tmp/brindle_grid_10m.db, 10000000)
// A missing file is filled first (about ten seconds per ten million rows).
#include "data/DLTable.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"
#include "widgets/BrindleDBGrid.h"
#include "widgets/DataSetModel.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QKeyEvent>
#include <QScrollBar>
#include <QTableView>
#include <cstdio>

using namespace brindle;

namespace {

double residentMiB() {
    QFile f(QStringLiteral("/proc/self/statm"));
    if (!f.open(QIODevice::ReadOnly)) return 0;
    const QList<QByteArray> parts = f.readAll().split(' ');
    return parts.size() > 1 ? parts[1].toDouble() * 4096 / (1024.0 * 1024.0) : 0;
}

// Runs Step, then lets the grid paint; milliseconds.
template <typename F>
double timed(TBrindleDBGrid& Grid, F&& Step) {
    QElapsedTimer t;
    t.start();
    Step();
    QApplication::processEvents();
    Grid.grab();
    return t.nsecsElapsed() / 1e6;
}

void key(TBrindleDBGrid& Grid, int Key) {
    QKeyEvent press(QEvent::KeyPress, Key, Qt::ControlModifier);
    QApplication::sendEvent(Grid.View(), &press);
}

}  // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
    if (!SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)) return 1;
    InstallSQLParserServices();
    const QString file = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("/tmp/brindle_grid_10m.db");
    const qint64 rows = argc > 2 ? QByteArray(argv[2]).toLongLong() : 10000000;
    const double baseMiB = residentMiB();

    TDLSQLiteDatabase db;
    db.FShowWaitCursor = false;
    db.SetFileName(file);
    if (!QFile::exists(file)) {
        std::printf("filling %s with %lld rows...\n", qPrintable(file), static_cast<long long>(rows));
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db.Execute(QStringLiteral("begin"));
        db.Execute(QStringLiteral("create table big(id integer primary key, name text, amount real, qty integer, "
                                  "code text, note text);"
                                  "with recursive c(x) as (select 1 union all select x + 1 from c where x < %1) "
                                  "insert into big select x, 'name ' || x, x * 0.25, x % 1000, printf('C%08d', x), "
                                  "case when x % 3 then 'note ' || x end from c")
                       .arg(rows));
        db.Execute(QStringLiteral("commit"));
    } else {
        db.SetConnected(true);
    }

    TBrindleDBGrid grid;
    grid.resize(1000, 700);
    grid.show();
    TDataSetModel model;
    grid.SetModel(&model);
    TDLTable table;
    table.SetDatabase(&db);
    table.SetTableName(QStringLiteral("big"));
    table.FBackgroundCount = true;
    QApplication::processEvents();

    const double open = timed(grid, [&] {
        table.Open();
        model.SetDataSet(&table);
    });
    const QString first = grid.CellText(0, 0);
    // The count may still be on its way from the background: give it the
    // time a person takes to reach for the keys.
    QElapsedTimer settle;
    settle.start();
    while (!model.CountIsExact() && settle.elapsed() < 10000) QApplication::processEvents();
    const double counted = settle.nsecsElapsed() / 1e6;
    while (settle.elapsed() < 1500) QApplication::processEvents();
    const double end = timed(grid, [&] { key(grid, Qt::Key_End); });
    const int count = grid.RowCount();
    const QString last = grid.CellText(grid.CurrentRow(), 0);
    const double endMiB = residentMiB();
    const double middle = timed(grid, [&] { grid.VerticalBar()->setValue(count / 2); });
    const QString mid = grid.CellText(grid.TopRow(), 0);
    const double start = timed(grid, [&] { key(grid, Qt::Key_Home); });
    const QString back = grid.CellText(grid.CurrentRow(), 0);

    std::printf("grid over %d rows (%s)\n", count, qPrintable(file));
    std::printf("  open and first window painted: %8.1f ms  (first id %s)\n", open, qPrintable(first));
    std::printf("  count known in the background: %8.1f ms after the first window\n", counted);
    std::printf("  Ctrl+End painted:              %8.1f ms  (last id %s)\n", end, qPrintable(last));
    std::printf("  middle by the scroll bar:      %8.1f ms  (top id %s)\n", middle, qPrintable(mid));
    std::printf("  Ctrl+Home painted:             %8.1f ms  (id %s)\n", start, qPrintable(back));
    std::printf("  resident: %.1f MiB at start, %.1f MiB after the end was shown, %.1f MiB now (goal: below 150)\n",
                baseMiB, endMiB, residentMiB());
    const double worst = std::max({end, middle, start});
    std::printf("slowest jump after the first window: %.1f ms (goal: at most 100)\n", worst);
    return 0;
}
