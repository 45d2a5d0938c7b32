// Commands over selected rows against real files: every row they reach is
// the one meant, and a refused row leaves all of them as they were, inside
// and outside a transaction of the user's.
#include "QtPrinters.h"
#include "TempDir.h"

#include "data/DLTable.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteParser.h"
#include "workbench/DataTools.h"

#include <gtest/gtest.h>

using namespace brindle;

namespace {

class DataToolsTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();
        db.FShowWaitCursor = false;
        db.SetFileName(dir.file(QStringLiteral("cells.db")));
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
    }
    void TearDown() override {
        table.Close();
        db.SetConnected(false);
    }
    void Open(const QString& Name) {
        table.SetDatabase(&db);
        table.SetTableName(Name);
        table.Open();
    }
    QString Rows(const QString& SQL) { return db.GetStringValue(SQL); }

    test::TempDir dir;
    TDLSQLiteDatabase db;
    TDLTable table;
};

const QString kDump = QStringLiteral("select group_concat(quote(\"key\") || ':' || quote(total), ' ') from t");

TEST_F(DataToolsTest, SetCellsReachesTheSelectedRowsOrNoneOfThem) {
    db.Execute(QStringLiteral("create table t(\"key\" text primary key, total integer check (total < 100), "
                              "note text) without rowid;"
                              "insert into t values ('a', 1, 'x'), ('b', 2, 'x'), ('c', 3, 'x'), ('d', 99, 'x')"));
    Open(QStringLiteral("t"));
    // Rows b..c and the first: exactly these take the value, as an integer.
    SetSelectedCellsToValue(table, {{0, 0}, {1, 2}}, {QStringLiteral("total")}, QVariant(qint64(50)));
    EXPECT_EQ(Rows(kDump), QStringLiteral("'a':50 'b':50 'c':50 'd':99"));
    EXPECT_FALSE(db.GetInTransaction());

    // One row refused by the CHECK: every row as it was, the message raised.
    const QString before = Rows(kDump);
    for (const bool userTransaction : {false, true}) {
        SCOPED_TRACE(userTransaction ? "inside a transaction" : "alone");
        if (userTransaction) db.Execute(QStringLiteral("begin; update t set note = 'kept' where \"key\" = 'a'"));
        try {
            SetSelectedCellsToValue(table, {{0, 3}}, {QStringLiteral("total")}, QVariant(qint64(100)));
            ADD_FAILURE() << "the CHECK did not refuse";
        } catch (const ECustomException& e) {
            EXPECT_TRUE(e.message().contains(QLatin1String("CHECK constraint failed"))) << e.message().toStdString();
        }
        EXPECT_EQ(Rows(kDump), before);
        // The user's own transaction and its work stay.
        EXPECT_EQ(db.GetInTransaction(), userTransaction);
        if (userTransaction) {
            EXPECT_EQ(Rows(QStringLiteral("select note from t where \"key\" = 'a'")), QStringLiteral("kept"));
            db.Execute(QStringLiteral("rollback"));
        }
        // The grid's rows show the file again.
        EXPECT_EQ(table.State(), dsBrowse);
        table.First();
        EXPECT_EQ(table.FieldByName(QStringLiteral("total")).Value().toLongLong(), 50);
    }

    // NULL over several fields.
    SetSelectedCellsToValue(table, {{3, 3}}, {QStringLiteral("total"), QStringLiteral("note")}, QVariant());
    EXPECT_EQ(Rows(QStringLiteral("select quote(total) || quote(note) from t where \"key\" = 'd'")),
              QStringLiteral("NULLNULL"));
}

TEST_F(DataToolsTest, DeleteSelectionTakesExactlyTheSelectedRowsTwinsIncluded) {
    db.Execute(QStringLiteral("create table t(\"key\" text, total integer);"
                              "insert into t values ('twin', 1), ('twin', 1), ('x', 2), ('twin', 1), ('y', 3);"
                              "create trigger no_y before delete on t when old.\"key\" = 'y' "
                              "begin select raise(abort, 'y stays'); end"));
    Open(QStringLiteral("t"));
    // The second twin and 'x': one twin of three goes, not all of them.
    DeleteSelection(table, {{1, 2}});
    EXPECT_EQ(Rows(QStringLiteral("select group_concat(rowid || \"key\", ' ') from t")),
              QStringLiteral("1twin 4twin 5y"));
    EXPECT_EQ(table.GetRecordCount(), 3);
    // A refused row keeps every row of the selection.
    EXPECT_THROW(DeleteSelection(table, {{0, 2}}), ECustomException);
    EXPECT_EQ(Rows(QStringLiteral("select count(*) from t")), QStringLiteral("3"));
    EXPECT_FALSE(db.GetInTransaction());
}

TEST_F(DataToolsTest, ResultsAsTextPadsColumnsAndStopsAtTheLimit) {
    db.Execute(QStringLiteral("create table t(\"key\" integer, total text, r real);"
                              "insert into t values (1, null, 0.1), (22, 'wide text', 2.5), (333, '', 1e300)"));
    Open(QStringLiteral("t"));
    QStringList statuses;
    const QString text = DataSetToStrings(table, 1 << 20, [&](const QString& S) { statuses << S; });
    EXPECT_EQ(text, QStringLiteral("key total     r\n"
                                   "1   (null)    0.1\n"
                                   "22  wide text 2.5\n"
                                   "333           1e+300\n"));
    EXPECT_EQ(statuses.value(0), QStringLiteral("Scanning 0 records..."));
    EXPECT_EQ(statuses.last(), QStringLiteral("Generated 3 records..."));
    const QString cut = DataSetToStrings(table, 10);
    EXPECT_TRUE(cut.endsWith(QStringLiteral("Could not load all records: memory limit of 10 bytes reached.\n")))
        << cut.toStdString();
    EXPECT_LT(cut.count(u'\n'), 5);
}

}  // namespace
