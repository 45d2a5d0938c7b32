// The data grid over real files: its window stays the size of the view
// whatever the table's size, keys and the scroll bar reach the rows meant,
// header clicks and the filter row reach the dataset, and the free rules
// (order clause, hint text, filter conditions, row ranges) hold.
#include "TempDir.h"

#include "data/DLTable.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "widgets/BrindleDBGrid.h"
#include "widgets/DataSetModel.h"

#include <QApplication>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLineEdit>
#include <QScrollBar>
#include <QTableView>
#include <gtest/gtest.h>

using namespace brindle;

namespace {

TEST(GridRules, OrderClauseHintsFilterConditionsAndRanges) {
    EXPECT_EQ(GetOrderClause({}), QString());
    EXPECT_EQ(GetOrderClause({{QStringLiteral("a"), false}, {QStringLiteral("key"), true}}),
              QStringLiteral("order by [a], [key] DESC"));
    EXPECT_EQ(GetOrderClause({{QStringLiteral("odd]name"), false}}), QStringLiteral("order by [odd]]name]"));

    const QString words = QString(85, u'x') + QStringLiteral(" a b\nshort line ") + QString(90, u'y') + u' ' + u'z';
    const QStringList lines = FixHintText(words).split(u'\n');
    EXPECT_EQ(lines, QStringList({QString(85, u'x'), QStringLiteral("a b"), QStringLiteral("short line ") + QString(90, u'y'),
                                  QStringLiteral("z")}));

    struct TCase {
        const char* Text;
        bool Numeric;
        const char* Condition;
    };
    const TCase cases[] = {
        {"", false, ""},
        {"abc", false, "[f] LIKE 'abc%'"},
        {"a%c", false, "[f] LIKE 'a%c'"},
        {"it's", false, "[f] LIKE 'it''s%'"},
        {"5", true, "[f] = 5"},
        {">=2.5", true, "[f] >= 2.5"},
        {"<>x", false, "[f] <> 'x'"},
        {"= 'q'", false, "[f] = 'q'"},
        {"NULL", false, "[f] IS NULL"},
        {"not null", true, "[f] IS NOT NULL"},
    };
    for (const TCase& c : cases)
        EXPECT_EQ(FilterRowCondition(QStringLiteral("f"), QString::fromUtf8(c.Text), c.Numeric),
                  QString::fromUtf8(c.Condition))
            << c.Text;

    TRowRanges r;
    r.Add(5, 9);
    r.Add(1, 2);
    r.Add(3, 4);  // joins both neighbours
    EXPECT_EQ(r.Ranges(), (std::vector<TRowRanges::TRange>{{1, 9}}));
    r.Remove(4, 6);
    r.Toggle(12);
    EXPECT_EQ(r.Ranges(), (std::vector<TRowRanges::TRange>{{1, 3}, {7, 9}, {12, 12}}));
    EXPECT_EQ(r.Count(), 7);
    EXPECT_TRUE(r.Contains(8));
    EXPECT_FALSE(r.Contains(5));
}

class GridTest : public ::testing::Test {
protected:
    void SetUp() override {
        db.FShowWaitCursor = false;
        db.SetFileName(dir.file(QStringLiteral("grid.db")));
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db.Execute(QStringLiteral(
            "create table t(\"key\" integer primary key, total text, \"match\" real);"
            "with recursive c(x) as (select 1 union all select x + 1 from c where x < 100000) "
            "insert into t select x, case when x % 10 = 0 then null else 'n' || (x % 7) end, x * 0.5 from c"));
        grid.resize(600, 400);
        grid.show();
        grid.SetModel(&model);
        table.SetDatabase(&db);
        table.SetTableName(QStringLiteral("t"));
        table.Open();
        model.SetDataSet(&table);
        QApplication::processEvents();
    }
    void TearDown() override {
        model.SetDataSet(nullptr);
        table.Close();
        db.SetConnected(false);
    }
    void Key(int Key, Qt::KeyboardModifiers Modifiers = Qt::NoModifier) {
        QKeyEvent press(QEvent::KeyPress, Key, Modifiers);
        QApplication::sendEvent(grid.View(), &press);
        QApplication::processEvents();
    }
    QString Current() { return grid.CellText(grid.CurrentRow(), 0); }

    test::TempDir dir;
    TDLSQLiteDatabase db;
    TBrindleDBGrid grid;
    TDataSetModel model;
    TDLTable table;
};

TEST_F(GridTest, KeysAndTheScrollBarReachTheRowsMeantWithAWindowOfTheViewsSize) {
    const int page = grid.VisibleRowCount();
    ASSERT_GT(page, 3);
    EXPECT_EQ(Current(), QStringLiteral("1"));
    Key(Qt::Key_Down);
    Key(Qt::Key_PageDown);
    EXPECT_EQ(grid.CurrentRow(), 1 + page - 1);
    Key(Qt::Key_End, Qt::ControlModifier);
    EXPECT_EQ(Current(), QStringLiteral("100000"));
    EXPECT_TRUE(model.CountIsExact());
    EXPECT_EQ(grid.RowCount(), 100000);
    // Nothing in the view grows with the table: the window and its row
    // header hold a page.
    EXPECT_LE(grid.View()->model()->rowCount(), page + 1);
    EXPECT_LE(grid.View()->verticalHeader()->count(), page + 1);
    EXPECT_EQ(grid.View()->model()->headerData(0, Qt::Vertical).toInt(), grid.TopRow() + 1);

    grid.VerticalBar()->setValue(50000);
    QApplication::processEvents();
    EXPECT_EQ(grid.TopRow(), 50000);
    EXPECT_EQ(grid.View()->model()->index(0, 0).data().toString(), QStringLiteral("50001"));
    Key(Qt::Key_Home, Qt::ControlModifier);
    EXPECT_EQ(Current(), QStringLiteral("1"));
    EXPECT_EQ(grid.TopRow(), 0);

    // Shift extends from the anchor; the fields are all of a row's.
    Key(Qt::Key_Down, Qt::ShiftModifier);
    Key(Qt::Key_Down, Qt::ShiftModifier);
    EXPECT_EQ(grid.GetSelectedCount(), 3);
    EXPECT_EQ(grid.GetSelectedFieldNames(), QStringList({"key", "total", "match"}));
    grid.SetCellSelect(true);
    grid.SelectCells(10, 12, 1, 2);
    EXPECT_EQ(grid.GetSelectedFieldNames(), QStringList({"total", "match"}));
    EXPECT_FALSE(grid.AreAllRecordsSelected());
    grid.SelectAll();
    EXPECT_TRUE(grid.AreAllRecordsSelected());
}

TEST_F(GridTest, HeaderClicksAndTheFilterRowReachTheDataset) {
    struct TClick {
        int Column;
        bool Shift;
        const char* Clause;
        const char* First;
    };
    const TClick clicks[] = {
        {0, false, "order by [key]", "1"},
        {0, false, "order by [key] DESC", "100000"},
        {1, false, "order by [total]", "10"},  // nulls first
        {2, true, "order by [total], [match]", "10"},
        {2, true, "order by [total], [match] DESC", "100000"},
    };
    for (const TClick& c : clicks) {
        grid.ClickHeader(c.Column, c.Shift);
        QApplication::processEvents();
        EXPECT_EQ(table.OrderClause(), QString::fromUtf8(c.Clause));
        EXPECT_EQ(grid.CellText(0, 0), QString::fromUtf8(c.First)) << c.Clause;
    }
    grid.ClearSorting();
    EXPECT_EQ(table.OrderClause(), QString());

    grid.SetFilterRowVisible(true);
    ASSERT_TRUE(grid.FilterEditor(1));
    grid.FilterEditor(1)->setText(QStringLiteral("n3"));
    grid.FilterEditor(2)->setText(QStringLiteral("<=100"));
    grid.ApplyFilterRow();
    QApplication::processEvents();
    EXPECT_EQ(table.Filter(), QStringLiteral("([total] LIKE 'n3%') AND ([match] <= 100)"));
    grid.GoToLast();
    EXPECT_EQ(grid.RowCount(), 26);  // x % 7 = 3, x % 10 <> 0, x <= 200
    EXPECT_EQ(grid.CellText(0, 0), QStringLiteral("3"));

    // A filter the engine cannot read: its message, and the rows unfiltered.
    QStringList errors;
    QObject::connect(&grid, &TBrindleDBGrid::Error, [&](const QString& M) { errors << M; });
    grid.FilterEditor(1)->setText(QStringLiteral("= 'a' 'b'"));
    grid.ApplyFilterRow();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(table.Active());
    EXPECT_EQ(grid.CellText(0, 0), QStringLiteral("1"));
}

TEST_F(GridTest, WidthsFollowTheFirstRowsAndWhatIsDrawnAndOnlyGrow) {
    db.Execute(QStringLiteral("create table w(a text, b blob);"
                              "with recursive c(x) as (select 1 union all select x + 1 from c where x < 80) "
                              "insert into w select case when x = 70 then printf('%.300c', 'w') else 'a' end, "
                              "x'00' from c"));
    TDLTable w;
    w.SetDatabase(&db);
    w.SetTableName(QStringLiteral("w"));
    w.Open();
    model.SetDataSet(&w);
    QApplication::processEvents();
    const int narrow = grid.ColumnWidth(0);
    EXPECT_GE(narrow, 50);
    EXPECT_LT(narrow, 100);  // row 70 lies beyond the 50 measured
    EXPECT_EQ(grid.CellText(0, 1), QStringLiteral("(BLOB)"));
    grid.SetCurrentCell(69, 0);
    grid.View()->viewport()->repaint();
    QApplication::processEvents();
    EXPECT_EQ(grid.ColumnWidth(0), 400);  // drawn, and capped
    grid.SetCurrentCell(0, 0);
    grid.View()->viewport()->repaint();
    QApplication::processEvents();
    EXPECT_EQ(grid.ColumnWidth(0), 400);
    model.SetDataSet(nullptr);
}

}  // namespace
