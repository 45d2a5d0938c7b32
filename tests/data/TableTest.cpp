// Tables read through TDLTable: the statement built from its settings, the
// hidden rowid, filters that move into the statement, a detail following
// its master, and windows read from noted rowids far from the first row.
#include "QtPrinters.h"
#include "TempDir.h"

#include "data/DLTable.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/DLQuoteTools.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteParser.h"

#include <gtest/gtest.h>

using namespace brindle;
using namespace brindle::test;

namespace {

class TableTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();
    }

    void SetUp() override {
        db.FShowWaitCursor = false;
        db.SetFileName(dir.file(QStringLiteral("t.db")));
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db.Execute(QStringLiteral(
            "create table dept(id integer primary key, name text);"
            "insert into dept values (1, 'sales'), (2, 'research'), (3, 'empty');"
            "create table emp(name text, dept integer, pay real);"
            "create index emp_pay on emp(pay);"
            "insert into emp values ('ann', 1, 300), ('bob', 2, 100), ('cid', 1, 200), ('dee', 2, null)"));
    }

    std::unique_ptr<TDLTable> Table(const QString& name) {
        auto t = std::make_unique<TDLTable>();
        t->SetDatabase(&db);
        t->SetTableName(name);
        return t;
    }

    static QStringList Column(TDLTable& t, const char* field) {
        QStringList values;
        for (t.First(); !t.Eof(); t.Next()) values << t.FieldByName(QLatin1String(field)).AsString();
        return values;
    }

    TempDir dir;
    TDLSQLiteDatabase db;
};

}  // namespace

TEST_F(TableTest, OrderRangeAndHiddenRowid) {
    auto t = Table(QStringLiteral("emp"));
    t->Open();
    ASSERT_GE(t->Fields().Count(), 4);
    EXPECT_EQ(t->Fields()[0].FieldName(), QStringLiteral("rowid"));
    EXPECT_FALSE(t->Fields()[0].FVisible);
    EXPECT_TRUE(t->Fields()[0].FReadOnly);
    EXPECT_EQ(Column(*t, "name"), QStringList({"ann", "bob", "cid", "dee"}));

    t->SetIndexName(QStringLiteral("emp_pay"));  // null first, as SQLite orders
    EXPECT_EQ(Column(*t, "name"), QStringList({"dee", "bob", "cid", "ann"}));
    t->SetIndexFieldNames(QStringLiteral("dept;name"));
    t->SetDescFields(QStringLiteral("name"));
    EXPECT_EQ(Column(*t, "name"), QStringList({"cid", "ann", "dee", "bob"}));
    t->SetOffset(1);
    t->SetLimit(2);
    EXPECT_EQ(Column(*t, "name"), QStringList({"ann", "dee"}));
    EXPECT_TRUE(t->GetIndexNames().contains(QStringLiteral("emp_pay")));
}

TEST_F(TableTest, FilterGoesIntoTheStatement) {
    auto t = Table(QStringLiteral("emp"));
    t->SetFilterText(QStringLiteral("dept = 2 and pay = null"));
    t->SetFiltered(true);
    t->Open();
    // Evaluated by SQLite with its own precedence; "= null" became "is null".
    EXPECT_EQ(Column(*t, "name"), QStringList({"dee"}));
    EXPECT_EQ(t->GetFilteredCount(), 1);
    t->SetFilterText(QStringLiteral("name like 'C%'"));
    EXPECT_EQ(Column(*t, "name"), QStringList({"cid"}));
    t->SetFiltered(false);
    EXPECT_EQ(t->GetRecordCount(), 4);
}

TEST_F(TableTest, DetailFollowsItsMaster) {
    auto master = Table(QStringLiteral("dept"));
    master->Open();
    auto detail = Table(QStringLiteral("emp"));
    detail->SetIndexFieldNames(QStringLiteral("dept;name"));
    detail->SetMasterSource(master.get(), QStringLiteral("id"));
    detail->Open();
    EXPECT_EQ(Column(*detail, "name"), QStringList({"ann", "cid"}));
    master->Next();
    EXPECT_EQ(Column(*detail, "name"), QStringList({"bob", "dee"}));
    master->Last();
    EXPECT_TRUE(detail->IsEmpty());
    // A new detail row belongs to the master's row.
    detail->Insert();
    EXPECT_EQ(detail->FieldByName(QStringLiteral("dept")).Value().toLongLong(), 3);
    detail->Cancel();
    EXPECT_THROW(detail->SetMasterSource(detail.get(), QStringLiteral("id")), ECustomException);
}

TEST_F(TableTest, FarWindowsComeFromNotedRowids) {
    // Rowids with gaps and out of insertion order, so that a row's place
    // and its rowid differ.
    db.Execute(QStringLiteral(
        "create table big(n integer, s text);"
        "with recursive c(x) as (select 1 union all select x + 1 from c where x < 12000) "
        "insert into big(rowid, n, s) select (x * 7919) % 100003 + 1, 0, 'r' from c;"
        "delete from big where rowid % 5 = 0;"
        "update big set n = w.r from (select rowid as id, row_number() over (order by rowid) as r from big) w "
        "where w.id = big.rowid"));
    const int rows = db.GetStringValue(QStringLiteral("select count(*) from big")).toInt();
    auto t = Table(QStringLiteral("big"));
    t->Open();
    const TField& n = t->FieldByName(QStringLiteral("n"));
    t->Last();
    EXPECT_EQ(t->GetRecordCount(), rows);
    EXPECT_EQ(n.Value().toInt(), rows);
    for (int recNo : {rows - 1, 9000, 2049, 2048, 2047, 1, 7000, rows}) {
        t->SetRecNo(recNo);
        EXPECT_EQ(n.Value().toInt(), recNo);
    }
    int expected = rows;
    for (t->Last(); !t->Bof(); t->Prior()) ASSERT_EQ(n.Value().toInt(), expected--);
    EXPECT_EQ(expected, 0);

    // A sort of the user's: no marks of the rowid order are used.
    t->SetOrderClause(QStringLiteral("order by n desc"));
    t->SetRecNo(rows - 2);
    EXPECT_EQ(n.Value().toInt(), 3);
    t->SetRecNo(10);
    EXPECT_EQ(n.Value().toInt(), rows - 9);
    t->SetRecNo(rows - 1);
    EXPECT_EQ(n.Value().toInt(), 2);
    t->SetOrderClause(QString());
    t->SetRecNo(rows - 2);
    EXPECT_EQ(n.Value().toInt(), rows - 2);

    // A view has no rowid to seek by; it reads from its first row.
    db.Execute(QStringLiteral("create view bigv as select n from big"));
    TDLTable v;
    v.SetDatabase(&db);
    v.SetTableName(QStringLiteral("bigv"));
    v.Open();
    EXPECT_EQ(v.Fields().Count(), 1);
    v.Last();
    expected = rows;
    for (; !v.Bof(); v.Prior()) ASSERT_EQ(v.FieldByName(QStringLiteral("n")).Value().toInt(), expected--);
    EXPECT_EQ(expected, 0);
    // Another statement for another order: no marks of the old one used.
    t->SetIndexFieldNames(QStringLiteral("n"));
    t->SetDescFields(QStringLiteral("n"));
    t->SetRecNo(rows - 2);
    EXPECT_EQ(t->FieldByName(QStringLiteral("n")).Value().toInt(), 3);
}

TEST_F(TableTest, QualifiedNamesEditInsertAndDelete) {
    // The shell opens tables as "main.t"; an attached database's too.
    db.Execute(QStringLiteral("attach %1 as aux; create table aux.staff(name text, pay real default 1.5);"
                              "create table staff(name text, pay real default 1.5)")
                   .arg(QuotedStr(dir.file(QStringLiteral("aux.db")))));
    for (const QString& name : {QStringLiteral("main.staff"), QStringLiteral("aux.staff")}) {
        SCOPED_TRACE(name.toStdString());
        auto t = Table(name);
        t->Open();
        const int before = t->GetRecordCount();
        t->Append();
        t->FieldByName(QStringLiteral("name")).SetValue(QStringLiteral("eve"));
        t->Post();
        EXPECT_EQ(t->GetRecordCount(), before + 1);
        // Read back from the table: the rowid and the default it gave.
        EXPECT_GT(t->Fields()[0].Value().toLongLong(), 0);
        EXPECT_DOUBLE_EQ(t->FieldByName(QStringLiteral("pay")).Value().toDouble(), 1.5);
        t->Edit();
        t->FieldByName(QStringLiteral("pay")).SetValue(9.5);
        t->Post();
        const QString sql = QStringLiteral("select pay from %1 where name = 'eve'").arg(name);
        EXPECT_EQ(db.GetStringValue(sql), QStringLiteral("9.5"));
        t->Delete();
        EXPECT_EQ(db.GetStringValue(sql), QString());
        EXPECT_EQ(t->GetRecordCount(), before);
    }
}

TEST_F(TableTest, NotedRowidsFollowDeletesInsertsAndRenumberedRows) {
    db.Execute(QStringLiteral("create table big(id integer primary key, n integer);"
                              "with recursive c(x) as (select 1 union all select x + 1 from c where x < 10000) "
                              "insert into big select x, x from c"));
    auto t = Table(QStringLiteral("big"));
    t->Open();
    const TField& n = t->FieldByName(QStringLiteral("n"));
    auto walk = [&] {
        QList<int> values;
        for (t->First(); !t->Eof(); t->Next()) values << n.Value().toInt();
        return values;
    };
    ASSERT_EQ(walk().size(), 10000);  // every mark noted

    t->First();
    t->Delete();  // row 1: every later row moves up one place
    t->SetRecNo(5000);
    EXPECT_EQ(n.Value().toInt(), 5001);
    t->Last();
    EXPECT_EQ(n.Value().toInt(), 10000);
    EXPECT_EQ(t->GetRecordCount(), 9999);
    QList<int> values = walk();
    EXPECT_EQ(values.size(), 9999);

    // The rowid itself changes: the row moves to the end of the order.
    t->SetRecNo(3000);
    ASSERT_EQ(n.Value().toInt(), 3001);
    t->Edit();
    t->FieldByName(QStringLiteral("id")).SetValue(20000);
    t->Post();
    t->SetRecNo(6000);
    EXPECT_EQ(n.Value().toInt(), 6002);
    t->Last();
    EXPECT_EQ(n.Value().toInt(), 3001);
    values = walk();
    ASSERT_EQ(values.size(), 9999);
    EXPECT_EQ(values.at(2999), 3002);

    // A row inserted in front of every mark.
    t->Append();
    t->FieldByName(QStringLiteral("id")).SetValue(-1);
    t->FieldByName(QStringLiteral("n")).SetValue(-1);
    t->Post();
    t->SetRecNo(8000);
    EXPECT_EQ(n.Value().toInt(), db.GetStringValue(QStringLiteral("select n from big order by id limit 1 offset 7999")).toInt());
    EXPECT_EQ(walk().size(), 10000);
}
