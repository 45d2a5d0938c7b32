// Table designs applied to real database files: after every rebuild the
// catalogue is what the design says, every row of the table and of its
// children is still there with its storage class, and a failure leaves the
// file exactly as it was.
#include "CatalogueReport.h"
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DMBrindle.h"

#include <gtest/gtest.h>

using namespace brindle;
using namespace brindle::test;

namespace {

const char* kSchema = R"(
pragma foreign_keys = on;
create table parent("key" integer primary key autoincrement, total real not null default 0,
  "match" text collate nocase, note text check(length(note) < 100), unique("match", total));
create index parent_total on parent(total desc) where total > 0;
create table child(id integer primary key, parent_key integer references parent("key") on delete cascade,
  "row" text);
create view parent_view as select "key", total from parent where total > 1;
create trigger parent_upd after update of total on parent begin
  update child set "row" = 'changed' where parent_key = new."key"; end;
create table log(msg text);
create trigger child_ins after insert on child begin insert into log select 'p' || count(*) from parent; end;
insert into parent(total, "match", note) values (1.5, 'a', 'x'), (2.25, 'b', null), (0.1, 'c', x'00ff'),
  (9007199254740993, 'd', '007'), (0.30000000000000004, 'e', 12);
insert into child(parent_key, "row") values (1, 'r1'), (2, 'r2'), (2, 'r3'), (5, 'r5');
)";

class Design : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)); }

    void SetUp() override {
        db = Open(dir.file(QStringLiteral("d.db")), true);
        db->Execute(QString::fromUtf8(kSchema));
        dm.Initialize();
    }

    std::unique_ptr<TDLSQLiteDatabase> Open(const QString& file, bool create) {
        auto d = std::make_unique<TDLSQLiteDatabase>();
        d->FShowWaitCursor = false;
        d->SetFileName(file);
        d->SetAliasName(QStringLiteral("d"));
        if (create)
            d->CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        else
            d->SetConnected(true);
        return d;
    }

    // Every row as storage class and literal of each column, sorted.
    QStringList Rows(const QString& table) {
        QStringList columns;
        db->GetValues(QStringLiteral("select name from pragma_table_xinfo(%1)").arg(QuotedStr(table)), columns);
        QStringList cells;
        for (const QString& c : columns)
            cells << QStringLiteral("typeof(%1) || ':' || quote(%1)").arg(QuoteSQLName(c));
        QStringList rows;
        db->GetValues(QStringLiteral("select %1 from %2").arg(cells.join(QStringLiteral(" || '|' || ")), QuoteSQLName(table)),
                      rows);
        rows.sort();
        return rows;
    }

    struct TState {
        QStringList Catalogue, Parent, Child, Log, FKCheck;
    };
    TState State() {
        TState s{CatalogueReport(*db), Rows(QStringLiteral("parent")), Rows(QStringLiteral("child")),
                 Rows(QStringLiteral("log")), {}};
        db->GetValues(QStringLiteral("select * from pragma_foreign_key_check"), s.FKCheck);
        return s;
    }
    void ExpectSame(const TState& a, const TState& b) {
        EXPECT_EQ(ReportDifferences(a.Catalogue, b.Catalogue).join(u'\n').toStdString(), "");
        EXPECT_EQ(a.Parent, b.Parent);
        EXPECT_EQ(a.Child, b.Child);
        EXPECT_EQ(a.Log, b.Log);
        EXPECT_EQ(a.FKCheck, b.FKCheck);
        EXPECT_EQ(db->GetStringValue(QStringLiteral("pragma integrity_check")), QStringLiteral("ok"));
    }

    TApplyResult Apply(const QString& table = QStringLiteral("parent")) {
        QString name = table;
        TApplyHooks hooks;
        hooks.OnStatus = [&](const QString& s) { statuses << s; };
        hooks.OnConfirm = [&](const QString& q) {
            questions << q;
            return answer;
        };
        return dm.ApplyTableDesign(*db, name, hooks);
    }

    TDesignField FieldNamed(const QString& name) {
        for (const TDesignField& f : dm.Fields())
            if (f.Name == name) return f;
        ADD_FAILURE() << "no field " << name.toStdString();
        return {};
    }

    TempDir dir;
    std::unique_ptr<TDLSQLiteDatabase> db;
    TdmBrindle dm;
    QStringList statuses, questions;
    bool answer = false;
};

TEST_F(Design, FullRebuildKeepsTableChildrenViewsAndOtherTriggers) {
    const TState before = State();
    dm.LoadTableDesign(*db, QStringLiteral("parent"));
    ASSERT_EQ(dm.GetFields(), QStringList({"key", "total", "match", "note"}));
    dm.FTableDesignModified = dm.FFieldsModified = true;
    const TApplyResult r = Apply();
    EXPECT_TRUE(r.Rebuilt);
    EXPECT_EQ(r.RecordsBefore, 5);
    EXPECT_EQ(r.RecordsAfter, 5);
    EXPECT_EQ(r.TableName, QStringLiteral("main.parent"));
    EXPECT_TRUE(questions.isEmpty());
    EXPECT_EQ(statuses, QStringList({"Begin transaction", "Recreating table", "Recreating indexes",
                                     "Recreating triggers", "Commit transaction", "Refresh database", "Ready!"}));
    ExpectSame(before, State());
    EXPECT_FALSE(dm.FTableDesignModified);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("pragma foreign_keys")), QStringLiteral("1"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("pragma legacy_alter_table")), QStringLiteral("0"));

    // The references still hold: a cascade reaches the children, the view
    // and the other table's trigger read the new table, autoincrement goes on.
    db->Execute(QStringLiteral("delete from parent where \"key\" = 2"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from child")), QStringLiteral("2"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from parent_view")), QStringLiteral("2"));
    db->Execute(QStringLiteral("insert into parent(total) values (7)"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select max(\"key\") from parent")), QStringLiteral("6"));
    db->Execute(QStringLiteral("insert into child(parent_key) values (6)"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select msg from log")), QStringLiteral("p5"));
    db->Execute(QStringLiteral("update parent set total = 8 where \"key\" = 6"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select \"row\" from child where parent_key = 6")),
              QStringLiteral("changed"));
}

TEST_F(Design, ColumnsRenamedMovedAddedDroppedKeepTheirData) {
    dm.LoadTableDesign(*db, QStringLiteral("parent"));
    TDesignField total = FieldNamed(QStringLiteral("total"));
    total.Name = QStringLiteral("amount");
    dm.ModifyField(total.RowID, total);
    dm.MoveField(total.RowID, 3);
    dm.DeleteFields({FieldNamed(QStringLiteral("note")).RowID});
    dm.DeleteCheckConstraints({dm.CheckConstraints()[0].RowID});  // it names the dropped column
    TDesignField added;
    added.Name = QStringLiteral("plan");
    added.Type = QStringLiteral("VARCHAR");
    added.Size = QStringLiteral("10");
    added.DefaultValue = QStringLiteral("'none'");
    dm.AddField(added);
    EXPECT_EQ(dm.GetFields(), QStringList({"key", "match", "amount", "plan"}));
    EXPECT_TRUE(dm.FFieldsModified);
    // The rename followed into the unique constraint, the index and the
    // trigger's head; the trigger's body is left as it was.
    EXPECT_TRUE(dm.UniqueConstraints()[0].Fields.contains(QStringLiteral("amount")));
    const std::vector<TDesignTrigger> triggers = dm.TableTriggers();
    ASSERT_EQ(triggers.size(), 1u);
    EXPECT_TRUE(triggers[0].SQL.contains(QStringLiteral("update of [amount]"))) << triggers[0].SQL.toStdString();

    // The partial index's condition is verbatim text and still names the
    // old column: the engine refuses it, the file stays as it was, and the
    // design can be mended and applied again.
    const QStringList child = Rows(QStringLiteral("child"));
    QStringList expected;
    db->GetValues(QStringLiteral("select typeof(total) || ':' || quote(total) || '|' || \"match\" || '|none' "
                                 "from parent order by \"key\""),
                  expected);
    const TState before = State();
    EXPECT_THROW(Apply(), ECustomException);
    ExpectSame(before, State());
    for (TDesignIndex ix : dm.Indexes())
        if (ix.Name == u"parent_total") {
            ix.WhereClause = QStringLiteral("amount > 0");
            dm.ModifyIndex(ix.RowID, ix);
        }
    Apply();
    QStringList rows;
    db->GetValues(QStringLiteral("select typeof(amount) || ':' || quote(amount) || '|' || \"match\" || '|' || plan "
                                 "from parent order by \"key\""),
                  rows);
    EXPECT_EQ(rows, expected);
    QStringList columns;
    db->GetValues(QStringLiteral("select name || ' ' || type from pragma_table_xinfo('parent')"), columns);
    EXPECT_EQ(columns, QStringList({"key INTEGER", "match TEXT", "amount REAL", "plan VARCHAR(10)"}));
    EXPECT_EQ(Rows(QStringLiteral("child")), child);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select sql from sqlite_master where name = 'parent_total'")),
              QStringLiteral("CREATE INDEX [parent_total] ON [parent] ([amount] desc) WHERE amount > 0"));
}

TEST_F(Design, BadDesignsChangeNothing) {
    struct TCase {
        const char* Name;
        std::function<void(TdmBrindle&)> Edit;
        const char* Message;  // a part of it
    } cases[] = {
        {"check violated by rows",
         [](TdmBrindle& d) { d.AddCheckConstraint({0, QStringLiteral("small"), QStringLiteral("total < 2")}); },
         "CHECK constraint failed"},
        {"not null without default",
         [](TdmBrindle& d) {
             TDesignField f;
             f.Name = QStringLiteral("required");
             f.Type = QStringLiteral("TEXT");
             f.NotNull = true;
             d.AddField(f);
         },
         "NOT NULL constraint failed"},
        {"duplicate column",
         [](TdmBrindle& d) {
             TDesignField f;
             f.Name = QStringLiteral("TOTAL");
             d.AddField(f);
         },
         "duplicate column name"},
        {"unbalanced type",
         [](TdmBrindle& d) {
             TDesignField f;
             f.Name = QStringLiteral("t");
             f.Type = QStringLiteral("VARCHAR(10");
             d.AddField(f);
         },
         "The type VARCHAR(10 has unbalanced parentheses."},
        {"missing columns, all collected",
         [](TdmBrindle& d) {
             d.DeleteFields({});
             TDesignIndex ix;
             ix.Name = QStringLiteral("by_gone");
             ix.Fields.push_back({QStringLiteral("gone"), {}, {}, false});
             d.AddIndex(ix);
             d.AddUniqueConstraint({0, QStringLiteral("u"), QStringLiteral("[match],[lost]"), {}});
         },
         "Field [gone] referenced by index [by_gone] does not exist\r\n"
         "Field [lost] referenced by constraint [u] does not exist"},
        {"unique violated by rows",
         [](TdmBrindle& d) { d.AddUniqueConstraint({0, {}, QStringLiteral("[note]"), {}}); },
         ""},
    };
    db->Execute(QStringLiteral("insert into parent(total, \"match\", note) values (3, 'z', 'x')"));
    const TState before = State();
    for (const TCase& c : cases) {
        SCOPED_TRACE(c.Name);
        dm.LoadTableDesign(*db, QStringLiteral("parent"));
        bool edited = false;
        try {
            c.Edit(dm);  // the field dialog's own checks refuse some at once
            edited = true;
            Apply();
            ADD_FAILURE() << "applied";
        } catch (const ECustomException& e) {
            EXPECT_TRUE(e.message().contains(QString::fromUtf8(c.Message))) << e.message().toStdString();
        }
        EXPECT_EQ(dm.FTableDesignModified, edited);
        EXPECT_FALSE(db->GetInTransaction());
        EXPECT_EQ(db->GetStringValue(QStringLiteral("pragma foreign_keys")), QStringLiteral("1"));
        ExpectSame(before, State());
    }
}

TEST_F(Design, CountMismatchAsksAndNoRollsBack) {
    const TState before = State();
    dm.LoadTableDesign(*db, QStringLiteral("child"));
    QList<qint64> all;
    for (const TDesignField& f : dm.Fields()) all << f.RowID;
    dm.DeleteFields(all);
    dm.DeleteForeignKeys({dm.ForeignKeys()[0].RowID});
    dm.DeleteIndexes({dm.Indexes()[0].RowID});  // the key on id
    TDesignField f;
    f.Name = QStringLiteral("fresh");
    dm.AddField(f);
    try {
        Apply(QStringLiteral("child"));
        ADD_FAILURE();
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("The changes will be rolled back."));
    }
    ASSERT_EQ(questions.size(), 1);
    EXPECT_EQ(questions[0], QStringLiteral("Could not copy all the data to the new table: \r\n\r\n"
                                           "Number of records before: 4\r\nNumber of records after: 0\r\n\r\n"
                                           "Accept the changes?"));
    ExpectSame(before, State());
    answer = true;
    EXPECT_EQ(Apply(QStringLiteral("child")).RecordsAfter, 0);
}

TEST_F(Design, TransactionsOfTheUser) {
    // Inside the user's transaction a failure goes back to the savepoint
    // only, and the transaction stays open with its own work.
    db->Execute(QStringLiteral("begin; insert into log values ('mine')"));
    dm.LoadTableDesign(*db, QStringLiteral("log"));
    dm.AddCheckConstraint({0, {}, QStringLiteral("msg <> 'mine'")});
    EXPECT_THROW(Apply(QStringLiteral("log")), ECustomException);
    EXPECT_TRUE(db->GetInTransaction());
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from log where msg = 'mine'")), QStringLiteral("1"));

    // A referenced table with rows cannot be rebuilt while the keys are on.
    dm.LoadTableDesign(*db, QStringLiteral("parent"));
    dm.FTableDesignModified = dm.FFieldsModified = true;
    try {
        Apply();
        ADD_FAILURE();
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("The current table has foreign key references and cannot be "
                                              "restructured while a transaction is in progress."));
    }
    // With its children empty it can, and their keys still name it.
    db->Execute(QStringLiteral("delete from child"));
    const QStringList catalogue = CatalogueReport(*db);
    Apply();
    EXPECT_EQ(ReportDifferences(catalogue, CatalogueReport(*db)).join(u'\n').toStdString(), "");
    db->Execute(QStringLiteral("commit"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("pragma integrity_check")), QStringLiteral("ok"));
}

TEST_F(Design, IndexOnlyAndEmptyTablePaths) {
    // An index change leaves the table alone.
    dm.LoadTableDesign(*db, QStringLiteral("parent"));
    TDesignIndex ix;
    ix.Name = QStringLiteral("sqlite_mine");
    EXPECT_THROW(dm.AddIndex(ix), ECustomException);
    ix.Name = QStringLiteral("by_match");
    ix.Type = QStringLiteral("Unique");
    ix.Fields.push_back({QStringLiteral("match"), QStringLiteral("BINARY"), QStringLiteral("DESC"), false});
    dm.AddIndex(ix);
    EXPECT_FALSE(dm.FFieldsModified);
    dm.FRecordOnly = true;
    Apply();
    EXPECT_FALSE(dm.FRecorded.join(u'\n').contains(QStringLiteral("alter table"))) << dm.FRecorded.join(u'\n').toStdString();
    dm.FRecordOnly = false;
    dm.FRecorded.clear();
    dm.FTableDesignModified = dm.FIndexesModified = true;
    const TApplyResult r = Apply();
    EXPECT_FALSE(r.Rebuilt);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select \"unique\" from pragma_index_list('parent') where name = 'by_match'")),
              QStringLiteral("1"));

    // An empty table is dropped and made again: no passing name.
    dm.LoadTableDesign(*db, QStringLiteral("log"));
    TDesignField f;
    f.Name = QStringLiteral("at");
    dm.AddField(f);
    db->Execute(QStringLiteral("delete from log"));
    dm.FRecordOnly = true;
    const TApplyResult dry = Apply(QStringLiteral("log"));
    EXPECT_FALSE(dm.FRecorded.join(u'\n').contains(QStringLiteral("temp_table_"))) << dm.FRecorded.join(u'\n').toStdString();
    EXPECT_EQ(dry.RecordsBefore, 0);
}

TEST_F(Design, WithoutRowidKeysOfEveryType) {
    db->Execute(QStringLiteral(
        "create table w(k text, n integer, r real, b blob, v, primary key (k, n, r, b)) without rowid;"
        "insert into w values ('a', 1, 1.5, x'01', 'x'), ('a', 2, 2.5, x'02', 1), ('b', 9223372036854775807, "
        "0.1, x'', null)"));
    const QStringList rows = Rows(QStringLiteral("w"));
    const QStringList catalogue = CatalogueReport(*db);
    dm.LoadTableDesign(*db, QStringLiteral("w"));
    EXPECT_TRUE(dm.IsWithoutRowID());
    EXPECT_TRUE(dm.HasPrimaryKey());
    dm.FTableDesignModified = dm.FFieldsModified = true;
    Apply(QStringLiteral("w"));
    EXPECT_EQ(Rows(QStringLiteral("w")), rows);
    EXPECT_EQ(ReportDifferences(catalogue, CatalogueReport(*db)).join(u'\n').toStdString(), "");
}

TEST_F(Design, RenameTable) {
    RenameTable(*db, QStringLiteral("parent"), QStringLiteral("Parent"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select name from sqlite_master where type = 'table' and name like 'parent'")),
              QStringLiteral("Parent"));
    // The modern rename follows into children, views and triggers.
    RenameTable(*db, QStringLiteral("main.Parent"), QStringLiteral("owner"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select \"table\" from pragma_foreign_key_list('child')")),
              QStringLiteral("owner"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from parent_view")), QStringLiteral("3"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from sqlite_master where name like 'brindle_temp%'")),
              QStringLiteral("0"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("pragma integrity_check")), QStringLiteral("ok"));
}

TEST_F(Design, PastedNamesStayFree) {
    dm.LoadTableDesign(*db, QStringLiteral("log"));
    TDesignField a;
    a.Name = QStringLiteral("a");
    dm.PasteFields({a, a, a});
    EXPECT_EQ(dm.GetFields(), QStringList({"msg", "a", "a_1", "a_2"}));
    EXPECT_EQ(dm.Fields().back().Position, 4);
}

TEST_F(Design, ViewAndVirtualTableApplies) {
    dm.LoadViewDesign(*db, QStringLiteral("parent_view"));
    dm.AddViewTrigger({0, QStringLiteral("v_ins"),
                       QStringLiteral("create trigger v_ins instead of insert on parent_view begin "
                                      "insert into parent(total) values (new.total); end"),
                       false});
    // A failing text brings the old view back.
    EXPECT_THROW(dm.ApplyViewDesign(*db, QStringLiteral("main.renamed"), QStringLiteral("select nothing from nowhere"),
                                    {}, false, false),
                 ECustomException);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from parent_view")), QStringLiteral("3"));
    dm.ApplyViewDesign(*db, QStringLiteral("main.renamed"), QStringLiteral("select \"key\", total from parent"), {},
                       false, false);
    db->Execute(QStringLiteral("insert into renamed(total) values (4)"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from renamed")), QStringLiteral("6"));
    EXPECT_FALSE(db->ViewExists(QStringLiteral("parent_view")));

    db->Execute(QStringLiteral("create virtual table docs using fts4(body, title);"
                               "insert into docs(docid, body, title) values (7, 'hello world', 'one')"));
    QStringList shown;
    auto mapping = [&](const QStringList& s, const QStringList& d, QStringList& ms, QStringList& md) {
        shown = s;
        ms = QStringList({"docid", "body"});
        md = QStringList({"docid", "content"});
        (void)d;
        return true;
    };
    dm.ApplyVirtualTableDesign(*db, QStringLiteral("docs"), QStringLiteral("docs"), QStringLiteral("fts4"),
                               QStringLiteral("content"), false, mapping);
    EXPECT_EQ(shown, QStringList({"docid", "body", "title"}));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select docid || content from docs where docs match 'hello'")),
              QStringLiteral("7hello world"));
    // A cancelled mapping leaves the table as it was.
    EXPECT_THROW(dm.ApplyVirtualTableDesign(*db, QStringLiteral("docs"), QStringLiteral("docs"),
                                            QStringLiteral("fts4"), QStringLiteral("other"), false,
                                            [](auto&, auto&, auto&, auto&) { return false; }),
                 ECustomException);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select content from docs")), QStringLiteral("hello world"));
}

TEST_F(Design, ClausesTheDesignCannotCarryAreRefused) {
    db->Execute(QStringLiteral("create table e(a, b); create index e_expr on e(a + b); insert into e values (1, 2)"));
    const QStringList catalogue = CatalogueReport(*db);
    dm.LoadTableDesign(*db, QStringLiteral("e"));
    dm.FTableDesignModified = dm.FFieldsModified = true;
    try {
        Apply(QStringLiteral("e"));
        ADD_FAILURE();
    } catch (const ECustomException& e) {
        EXPECT_TRUE(e.message().contains(QStringLiteral("an expression as a column (index e_expr)")))
            << e.message().toStdString();
    }
    EXPECT_EQ(ReportDifferences(catalogue, CatalogueReport(*db)).join(u'\n').toStdString(), "");
    // Without the index the design applies.
    for (const TDesignIndex& ix : dm.Indexes()) dm.DeleteIndexes({ix.RowID});
    Apply(QStringLiteral("e"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select a + b from e")), QStringLiteral("3"));
}

}  // namespace

namespace {

TEST_F(Design, GeneratedColumnsStrictTablesAndViewColumnListsAreCarried) {
    db->Execute(QStringLiteral(
        "create table g(a integer not null, b integer generated always as (a * 2) stored, "
        "\"match\" text as (upper(d)), d text) strict;"
        "insert into g(a, d) values (1, 'x'), (9223372036854775807 / 2, null);"
        "create view gv(first, \"key\") as select a, \"match\" from g"));
    const QStringList rows = Rows(QStringLiteral("g"));
    const QStringList catalogue = CatalogueReport(*db);
    dm.LoadTableDesign(*db, QStringLiteral("g"));
    EXPECT_TRUE(dm.IsStrict());
    EXPECT_TRUE(dm.UnsupportedClauses().isEmpty()) << dm.UnsupportedClauses().join(u',').toStdString();
    EXPECT_EQ(FieldNamed(QStringLiteral("b")).GeneratedExpression, QStringLiteral("a * 2"));
    dm.FTableDesignModified = dm.FFieldsModified = true;
    Apply(QStringLiteral("g"));
    EXPECT_EQ(Rows(QStringLiteral("g")), rows);
    EXPECT_EQ(ReportDifferences(catalogue, CatalogueReport(*db)).join(u'\n').toStdString(), "");
    EXPECT_THROW(db->Execute(QStringLiteral("insert into g(a) values ('text')")), ECustomException);

    // A generated column made a stored one keeps the values it had.
    dm.LoadTableDesign(*db, QStringLiteral("g"));
    TDesignField b = FieldNamed(QStringLiteral("b"));
    b.GeneratedExpression.clear();
    dm.ModifyField(b.RowID, b);
    Apply(QStringLiteral("g"));
    EXPECT_EQ(Rows(QStringLiteral("g")), rows);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select hidden from pragma_table_xinfo('g') where name = 'b'")),
              QStringLiteral("0"));

    dm.LoadViewDesign(*db, QStringLiteral("gv"));
    dm.ApplyViewDesign(*db, QStringLiteral("main.gv"), QStringLiteral("select a, d from g"), {"one", "two"}, false,
                       false);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select group_concat(name) from pragma_table_info('gv')")),
              QStringLiteral("one,two"));
}

}  // namespace
