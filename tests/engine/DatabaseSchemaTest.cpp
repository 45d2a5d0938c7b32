// The database object's statements, error road, name lists and object tests
// on a rich schema.
#include "EngineTestSupport.h"
#include "TempDir.h"

#include "engine/DLObjectNames.h"
#include "engine/DLSQLite3API.h"
#include "engine/Exceptions.h"

#include <QFile>
#include <gtest/gtest.h>

using namespace brindle;
using namespace brindle::test;

namespace {

const char* const kSchema = R"sql(
create table customers (id integer primary key, name text not null, city text default 'Lyon');
create table orders (id integer primary key autoincrement, customer_id integer references customers(id),
                     total real);
create table links (a integer, b integer, note text, primary key (a, b));
create table codes (code text primary key, label text) without rowid;
create table odd (rowid text, value integer);
create index ix_orders_total on orders(total);
create unique index ux_customers_name on customers(name);
create view v_orders as select o.id, c.name from orders o join customers c on c.id = o.customer_id;
create trigger tr_orders after insert on orders begin update customers set city = city where id = new.customer_id; end;
create virtual table docs using fts4(body);
create virtual table boxes using rtree(id, minx, maxx);
create temp table scratch (x);
create temp trigger tt_main after delete on main.customers begin select 1; end;
create temp trigger tt_temp after insert on scratch begin select 1; end;
)sql";

class DatabaseSchemaTest : public ::testing::Test {
protected:
    void SetUp() override { db = createDatabase(dir.file(QStringLiteral("schema.db")), QString::fromUtf8(kSchema)); }
    TempDir dir;
    std::unique_ptr<TDLSQLiteDatabase> db;
};

TEST_F(DatabaseSchemaTest, ObjectTests) {
    EXPECT_TRUE(db->TableExists(QStringLiteral("customers")));
    EXPECT_TRUE(db->TableExists(QStringLiteral("main.CUSTOMERS")));
    EXPECT_TRUE(db->TableExists(QStringLiteral("sqlite_master")));
    EXPECT_TRUE(db->TableExists(QStringLiteral("scratch")));  // found in temp
    EXPECT_FALSE(db->TableExists(QStringLiteral("main.scratch")));
    EXPECT_FALSE(db->TableExists(QStringLiteral("nowhere.customers")));
    EXPECT_TRUE(db->ViewExists(QStringLiteral("v_orders")));
    EXPECT_FALSE(db->ViewExists(QStringLiteral("customers")));
    EXPECT_TRUE(db->ViewExists(QStringLiteral("scratch")));  // the fallback asks temp for a table

    EXPECT_TRUE(db->IsVirtualTable(QStringLiteral("docs")));
    QString module;
    EXPECT_TRUE(db->IsVirtualTable(QStringLiteral("boxes"), &module));
    EXPECT_EQ(module, QStringLiteral("rtree"));
    EXPECT_FALSE(db->IsVirtualTable(QStringLiteral("customers")));
    EXPECT_TRUE(db->IsFtsVirtualTable(QStringLiteral("docs")));
    EXPECT_TRUE(db->IsFtsShadowTable(QStringLiteral("docs_content")));
    EXPECT_TRUE(db->IsFtsShadowTable(QStringLiteral("main.docs_docsize")));
    EXPECT_TRUE(db->IsRtreeShadowTable(QStringLiteral("boxes_node")));
    EXPECT_FALSE(db->IsRtreeShadowTable(QStringLiteral("docs_node")));
    EXPECT_FALSE(db->CanModifyTable(QStringLiteral("boxes_parent")));
    EXPECT_TRUE(db->CanModifyTable(QStringLiteral("docs")));
    EXPECT_TRUE(db->IsWithoutRowID(QStringLiteral("codes")));
    EXPECT_FALSE(db->IsWithoutRowID(QStringLiteral("links")));
    EXPECT_TRUE(TDLSQLiteDatabase::IsTempTable(QStringLiteral("temp.scratch")));
    EXPECT_TRUE(TDLSQLiteDatabase::IsSystemTable(QStringLiteral("SQLite_sequence")));
    EXPECT_TRUE(TDLSQLiteDatabase::IsRowIDField(QStringLiteral("OID")));
    EXPECT_TRUE(db->DatabaseExists(QStringLiteral("TEMP")));
    EXPECT_TRUE(db->GetObjectDDL(QString(), QStringLiteral("codes")).contains(QLatin1String("without rowid")));
    EXPECT_TRUE(db->GetTriggerDDL(QString(), QStringLiteral("tt_temp"), true).startsWith(QLatin1String("CREATE")));
    // Names are matched without case, but "_" and "%" in them are no wildcards.
    db->Execute(QStringLiteral("create table axb(x); create table [a_b](y); create table [a%](z)"));
    EXPECT_TRUE(db->GetObjectDDL(QString(), QStringLiteral("A_B")).contains(QLatin1String("(y)")));
    EXPECT_TRUE(db->GetObjectDDL(QString(), QStringLiteral("axb")).contains(QLatin1String("(x)")));
    EXPECT_TRUE(db->GetObjectDDL(QString(), QStringLiteral("ax%")).isEmpty());
    EXPECT_TRUE(db->TableExists(QStringLiteral("a%")));
    EXPECT_FALSE(db->TableExists(QStringLiteral("a_")));
}

TEST_F(DatabaseSchemaTest, NameLists) {
    std::vector<TDLSQLiteDatabase::TNameEntry> tables;
    db->GetTableNames(QStringLiteral("main"), tables, false, false, true);
    QStringList names;
    for (const auto& e : tables) names << (e.Flag ? QStringLiteral("*") : QString()) + e.Name;
    // Plain tables first, virtual ones flagged behind them; no shadow tables.
    EXPECT_EQ(names, (QStringList{"main.codes", "main.customers", "main.links", "main.odd", "main.orders",
                                  "*main.boxes", "*main.docs"}));

    tables.clear();
    db->GetTableNames(QStringLiteral("main"), tables, true, true, false);
    EXPECT_EQ(tables[0].Name, QStringLiteral("sqlite_master"));
    EXPECT_EQ(tables[1].Name, QStringLiteral("sqlite_temp_master"));
    bool sawShadow = false, sawSequence = false;
    for (const auto& e : tables) {
        sawShadow = sawShadow || (e.Name == QLatin1String("docs_segdir") && e.Flag);
        sawSequence = sawSequence || e.Name == QLatin1String("sqlite_sequence");
    }
    EXPECT_TRUE(sawShadow);
    EXPECT_TRUE(sawSequence);

    QStringList all;
    db->GetTableNames(all, false);
    EXPECT_TRUE(all.contains(QStringLiteral("temp.scratch")));
    QStringList views;
    db->GetViewNames(views);
    EXPECT_EQ(views, QStringList{"main.v_orders"});

    QStringList indexes;
    db->GetIndexNames(QStringLiteral("customers"), indexes);
    EXPECT_EQ(indexes, QStringList{"ux_customers_name"});
    QStringList triggers;
    db->GetTriggerNames(QStringLiteral("orders"), triggers);
    EXPECT_EQ(triggers, QStringList{"tr_orders"});
    QStringList tempTriggers;
    db->GetTemporaryTriggerNames(QStringLiteral("customers"), tempTriggers);
    EXPECT_EQ(tempTriggers, QStringList{"tt_main"});
    tempTriggers.clear();
    db->GetTemporaryTriggerNames(QStringLiteral("temp.scratch"), tempTriggers);
    EXPECT_EQ(tempTriggers, QStringList{"tt_temp"});

    QStringList collations;
    db->GetCollations(QString(), collations);
    EXPECT_TRUE(collations.contains(QStringLiteral("NOCASE")));

    const TObjectNames objects = GetObjectNames(*db);
    EXPECT_EQ(objects.Views, QStringList{"v_orders"});
    EXPECT_EQ(objects.VirtualTables, (QStringList{"boxes", "docs"}));
    EXPECT_TRUE(objects.ShadowTables.contains(QStringLiteral("boxes_rowid")));
    EXPECT_TRUE(objects.Indexes.contains(QStringLiteral("ix_orders_total")));
    EXPECT_EQ(objects.Triggers, QStringList{"tr_orders"});
}

TEST_F(DatabaseSchemaTest, FieldsIndexesAndRowIds) {
    TFieldRecords fields;
    db->GetFields(QStringLiteral("customers"), fields);
    ASSERT_EQ(fields.size(), 3u);
    EXPECT_EQ(fields[1].FieldName, QStringLiteral("name"));
    EXPECT_TRUE(fields[1].Required);
    EXPECT_EQ(fields[2].DefaultValue, QStringLiteral("'Lyon'"));

    TIndexRecords ix;
    db->GetIndexes(QStringLiteral("customers"), ix);
    ASSERT_EQ(ix.size(), 2u);
    EXPECT_EQ(ix[0].IndexName, QString());  // INTEGER PRIMARY KEY has no index of its own
    EXPECT_EQ(ix[0].Options, ixPrimary | ixUnique);
    EXPECT_EQ(ix[1].IndexName, QStringLiteral("ux_customers_name"));
    EXPECT_EQ(ix[1].Options, ixUnique);

    ix.clear();
    db->GetIndexes(QStringLiteral("links"), ix);
    ASSERT_EQ(ix.size(), 1u);
    EXPECT_EQ(ix[0].IndexName, QStringLiteral("sqlite_autoindex_links_1"));
    QStringList keyFields;
    db->GetIndexFields(QStringLiteral("links"), QString(), keyFields);
    EXPECT_EQ(keyFields, (QStringList{"a", "b"}));
    keyFields.clear();
    db->GetIndexFields(QStringLiteral("orders"), QStringLiteral("ix_orders_total"), keyFields);
    EXPECT_EQ(keyFields, QStringList{"total"});

    // DESC makes an INTEGER key an ordinary column with an index of its own.
    db->Execute(QStringLiteral("create table d(id integer primary key desc, v); create table \"a]b\"(k integer primary key)"));
    EXPECT_EQ(db->GetRowIDAliasField(QStringLiteral("customers")), QStringLiteral("id"));
    EXPECT_EQ(db->GetRowIDAliasField(QStringLiteral("d")), QString());
    EXPECT_EQ(db->GetRowIDAliasField(QStringLiteral("links")), QString());
    ix.clear();
    db->GetIndexes(QStringLiteral("d"), ix);
    ASSERT_EQ(ix.size(), 1u);
    EXPECT_EQ(ix[0].IndexName, QStringLiteral("sqlite_autoindex_d_1"));
    // A pragma takes any name, a "]" in it too.
    fields.clear();
    db->GetFields(QStringLiteral("\"a]b\""), fields);
    ASSERT_EQ(fields.size(), 1u);
    EXPECT_EQ(db->GetRowIDAliasField(QStringLiteral("\"a]b\"")), QStringLiteral("k"));

    QStringList rowids;
    db->GetRowIDFields(QStringLiteral("odd"), rowids);
    EXPECT_EQ(rowids, (QStringList{"_rowid_", "oid"}));
    rowids.clear();
    db->GetRowIDFields(QStringLiteral("codes"), rowids);
    EXPECT_TRUE(rowids.isEmpty());
    EXPECT_EQ(db->GetSelectSQL(QStringLiteral("customers"), nullptr),
              QStringLiteral("select rowid as rowid, * from [customers]"));
    const QStringList cols{"name", "city"};
    EXPECT_EQ(db->GetSelectSQL(QStringLiteral("codes"), &cols), QStringLiteral("select [name], [city] from [codes]"));
}

TEST_F(DatabaseSchemaTest, RecordCounts) {
    db->Execute(QStringLiteral("insert into customers(name) values ('a'), ('b'), ('c')"));
    EXPECT_EQ(db->GetRecordCount(QStringLiteral("select * from customers")), 3);
    EXPECT_EQ(db->GetRecordCount(QStringLiteral("pragma table_info(customers)")), 3);
    // An UPDATE is neither counted nor run.
    EXPECT_EQ(db->GetRecordCount(QStringLiteral("update customers set city = 'x'")), 0);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from customers where city = 'x'")),
              QStringLiteral("0"));
    IRecordSetPtr rs = db->GetRecordSet(QStringLiteral("select name, null as n from customers order by name; select 1"));
    ASSERT_EQ(rs->GetRecordCount(), 3);
    EXPECT_EQ(rs->GetNames(), (QStringList{"name", "n"}));
    EXPECT_EQ(rs->GetValueByName(2, QStringLiteral("name")), QStringLiteral("c"));
    EXPECT_EQ(rs->GetValue(0, 1), QString());
}

TEST_F(DatabaseSchemaTest, ErrorsCarryAliasFileStatementAndParameters) {
    db->SetAliasName(QStringLiteral("shop"));
    QString sql;
    for (int i = 1; i <= 20; ++i) sql += QStringLiteral("select %1 as c%1 from nowhere_%1\n").arg(i);
    try {
        db->Execute(sql.replace(QStringLiteral("\nselect"), QStringLiteral("\nunion select")));
        FAIL() << "no error";
    } catch (const ESQLiteException& e) {
        const QStringList parts = e.message().split(QStringLiteral("\r\n\r\nSQL Statement:\r\n\r\n"));
        ASSERT_EQ(parts.size(), 2);
        EXPECT_TRUE(parts[0].startsWith(QStringLiteral("no such table: nowhere_")));
        const QStringList shown = parts[1].split(QStringLiteral("\r\n"));
        EXPECT_EQ(shown.size(), 6);
        EXPECT_EQ(shown.last(), QStringLiteral("..."));
        EXPECT_EQ(e.GetParam(QStringLiteral("Database Alias")), QStringLiteral("shop"));
        EXPECT_EQ(e.GetParam(QStringLiteral("File")), db->FileName());
        EXPECT_EQ(e.GetParam(QStringLiteral("ErrorCode")), QStringLiteral("1"));
    }

    TParams params;
    params.Add(QStringLiteral(":name"), ftWideString, QStringLiteral("a"));
    params.Add(QStringLiteral(":n"), ftInteger, 7);
    params.Add(QStringLiteral(":x"), ftFloat);
    ECustomException e(QStringLiteral("boom"));
    db->CheckException(e, QStringLiteral("select 1"), &params);
    EXPECT_TRUE(e.Names().isEmpty());  // only engine exceptions are decorated
    ESQLiteException se(QStringLiteral("boom"));
    db->CheckException(se, QStringLiteral("select 1"), &params);
    EXPECT_EQ(se.GetParam(QStringLiteral("SQL param 1(text)")), QStringLiteral("a"));
    EXPECT_EQ(se.GetParam(QStringLiteral("SQL param 2(integer)")), QStringLiteral("7"));
    EXPECT_EQ(se.GetParam(QStringLiteral("SQL param 3")), QStringLiteral("null"));
}

TEST_F(DatabaseSchemaTest, ScriptsStopAtTheFirstBadStatementAndBindEveryStatement) {
    try {
        db->Execute(QStringLiteral("insert into customers(name) values ('a'); -- first\n"
                                   "insert into customers(name) values ('b');\n"
                                   "insert into nowhere values (1);\n"
                                   "insert into customers(name) values ('d');\n"
                                   "/* only a comment */"));
        FAIL() << "no error";
    } catch (const ESQLiteException& e) {
        EXPECT_TRUE(e.message().endsWith(QStringLiteral("insert into nowhere values (1)")));
    }
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select group_concat(name) from customers")), QStringLiteral("a,b"));

    TParams params;
    params.Add(QStringLiteral(":name"), ftWideString, QStringLiteral("Zoë"));
    params.Add(QStringLiteral(":unused"), ftInteger, 1);
    params.Add(QStringLiteral("?3"), ftDate, 41866.0);
    db->Execute(QStringLiteral("insert into customers(name, city) values (:name, ?3);"
                               "insert into orders(customer_id, total) values (last_insert_rowid(), 1.5)"),
                &params);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select city from customers where name = 'Zoë'")),
              QStringLiteral("2014-08-15"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select typeof(city) from customers where name = 'Zoë'")),
              QStringLiteral("text"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from orders")), QStringLiteral("1"));
    EXPECT_TRUE(db->IsValidSQL(QStringLiteral("select * from orders")));
    EXPECT_FALSE(db->IsValidSQL(QStringLiteral("select * from nowhere")));
    EXPECT_THROW(db->CheckValidSQL(QStringLiteral("selec 1")), ESQLiteException);
}

TEST_F(DatabaseSchemaTest, SavepointsAttachmentsAndExtensionsTypedInScripts) {
    db->Execute(QStringLiteral("savepoint a; savepoint b; savepoint c"));
    EXPECT_EQ(db->SavepointCount(), 3);
    db->Execute(QStringLiteral("rollback to b"));
    EXPECT_EQ(db->SavepointCount(), 2);
    db->Execute(QStringLiteral("release a"));
    EXPECT_EQ(db->SavepointCount(), 0);
    db->Execute(QStringLiteral("begin; savepoint x; commit"));
    EXPECT_EQ(db->SavepointCount(), 0);

    const QString other = dir.file(QStringLiteral("other.db"));
    createDatabase(other, QStringLiteral("create table t(a)"));
    db->Attach(other, QStringLiteral("aux one"));
    EXPECT_EQ(db->GetAttachedFileName(QStringLiteral("AUX ONE")), other);
    EXPECT_EQ(db->AttachedDatabaseCount(), 1);
    EXPECT_EQ(db->AttachedDatabases(0), QStringLiteral("aux one"));
    EXPECT_TRUE(db->TableExists(QStringLiteral("[aux one].t")));
    db->Execute(QStringLiteral("detach [aux one]"));
    EXPECT_EQ(db->GetAttachedFileName(QStringLiteral("aux one")), QString());
    EXPECT_EQ(db->AttachedDatabaseCount(), 0);

    // Loaded by a script first: a second load from inside a running SELECT
    // could not replace the functions it registers.
    db->Execute(QStringLiteral("select load_extension('%1', 'brindle_test_init')").arg(QStringLiteral(TEST_EXTENSION)));
    ASSERT_EQ(db->ExtensionCount(), 1);
    EXPECT_EQ(db->Extensions(0).EntryPoint, QStringLiteral("brindle_test_init"));
    db->LoadExtension(QStringLiteral(TEST_EXTENSION), QString());
    ASSERT_EQ(db->ExtensionCount(), 2);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select twice(4)")), QStringLiteral("8"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral(
                  "select group_concat(name) from (select 'a' as name union all select 'b' union all "
                  "select 'C' order by 1 collate reverse_nocase)")),
              QStringLiteral("C,b,a"));
    try {
        db->LoadExtension(dir.file(QStringLiteral("missing.so")), QString());
        FAIL() << "loaded";
    } catch (const ECustomException& e) {
        EXPECT_TRUE(e.message().contains(QStringLiteral("missing.so")));
    }
}

TEST_F(DatabaseSchemaTest, BackupCopiesPageByPageAndCanStop) {
    db->Execute(QStringLiteral("with recursive n(i) as (select 1 union all select i + 1 from n where i < 2000) "
                               "insert into orders(total) select i * 1.5 from n"));
    const QString copy = dir.file(QStringLiteral("copy.db"));
    int calls = 0;
    EXPECT_EQ(db->Backup(copy, [&](int, int pages, bool&) {
        ++calls;
        EXPECT_GT(pages, 0);
    }),
              0);
    EXPECT_GT(calls, 1);
    auto restored = openDatabase(copy);
    EXPECT_EQ(restored->GetStringValue(QStringLiteral("select count(*) from orders")), QStringLiteral("2000"));
    restored.reset();

    const QString stopped = dir.file(QStringLiteral("stopped.db"));
    calls = 0;
    db->Backup(stopped, [&](int, int, bool& stop) {
        ++calls;
        stop = true;
    });
    EXPECT_EQ(calls, 1);
}

TEST_F(DatabaseSchemaTest, ProgressHandlerCanInterruptAStatement) {
    int calls = 0;
    db->FOnProgress = [&](bool& cont) { cont = ++calls < 1000; };
    try {
        db->Execute(QStringLiteral("with recursive n(i) as (select 1 union all select i + 1 from n) "
                                   "select count(*) from n"));
        FAIL() << "not interrupted";
    } catch (const ESQLiteException& e) {
        EXPECT_EQ(e.GetParam(QStringLiteral("ErrorCode")), QStringLiteral("9"));
    }
    db->FOnProgress = nullptr;
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select 1")), QStringLiteral("1"));
}

}  // namespace
