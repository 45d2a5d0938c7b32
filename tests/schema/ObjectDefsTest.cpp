// Generated CREATE text, byte for byte, and proof that the engine takes it.
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLObjectDefs.h"

#include "engine/Assert.h"

#include <gtest/gtest.h>

namespace brindle {
namespace {

class SQLiteEnvironment : public ::testing::Environment {
public:
    void SetUp() override { ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)); }
};
[[maybe_unused]] ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new SQLiteEnvironment);

QString Lines(std::initializer_list<const char*> lines) {
    QStringList list;
    for (const char* l : lines) list.append(QString::fromUtf8(l));
    return list.join(QStringLiteral("\r\n"));
}

std::unique_ptr<TDLForeignKeyDef> ForeignKey(const QString& name, const QStringList& child,
                                             const QString& parent, const QStringList& parentKey) {
    auto fk = std::make_unique<TDLForeignKeyDef>();
    fk->FConstraintName = name;
    fk->FChildKey = child;
    fk->FParentTableName = parent;
    fk->FParentKey = parentKey;
    return fk;
}

class ObjectDefsTest : public ::testing::Test {
protected:
    void SetUp() override {
        db.SetFileName(QStringLiteral(":memory:"));
        db.SetConnected(true);
    }
    // The text as expected, and run by the engine.
    void ExpectSQL(const QString& actual, const QString& expected) {
        EXPECT_EQ(actual.toStdString(), expected.toStdString());
        EXPECT_NO_THROW(db.Execute(actual)) << actual.toStdString();
    }
    TDLSQLiteDatabase db;
};

TEST(DefaultToSQLTest, WrapsOnlyComplexNonLiterals) {
    const std::pair<const char*, const char*> cases[] = {
        {"0", "0"},
        {"CURRENT_TIMESTAMP", "CURRENT_TIMESTAMP"},
        {"-1", "(-1)"},
        {"1.5", "(1.5)"},
        {"'a'", "'a'"},
        {"a b", "a b"},
        {"a+b", "(a+b)"},
        {"'x'||'y'", "('x'||'y')"},
        {"'it''s'", "'it''s'"},
        {"'a' 'b'", "('a' 'b')"},
        {"\"q\"", "\"q\""},
        {"`q`", "`q`"},
        {"'", "(')"},
        {"'a\"", "('a\")"},
        {"abs(-2)", "(abs(-2))"},
    };
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(DefaultToSQL(value), QString::fromUtf8(expected)) << value;
}

TEST_F(ObjectDefsTest, ColumnConstraintsStandInFixedOrder) {
    db.Execute(QStringLiteral("create table parent (id integer primary key)"));
    TDLTableDef t(QStringLiteral("child"));
    t.AddField(QStringLiteral("id"), QStringLiteral("INTEGER"), QStringLiteral("-1"),
               QStringLiteral("BINARY"), true, QStringLiteral("FAIL"));
    t.AddField(QStringLiteral("name"), QStringLiteral("TEXT"), QStringLiteral("'x'"),
               QStringLiteral("NOCASE"), true);
    t.AddField(QStringLiteral("v"), QStringLiteral("NVARCHAR (10)"), QStringLiteral("0"));
    t.AddField(QStringLiteral("w"), QStringLiteral("long text"));
    // Added as table constraints first, so their place is the column line.
    auto fk = ForeignKey(QStringLiteral("fk"), {QStringLiteral("ID")}, QStringLiteral("parent"),
                         {QStringLiteral("id")});
    fk->FOnDeleteAction = QStringLiteral("SET NULL");
    fk->FInitially = QStringLiteral("INITIALLY DEFERRED");  // dropped without DEFERRABLE
    t.AddForeignKey(std::move(fk));
    t.AddUniqueConstraint(
        std::make_unique<TDLUniqueConstraintDef>(QStringLiteral("u"), QStringList{"id"}, "IGNORE"));
    t.AddUniqueConstraint(std::make_unique<TDLUniqueConstraintDef>(QString(), QStringList{"name"}));
    t.AddUniqueConstraint(
        std::make_unique<TDLUniqueConstraintDef>(QStringLiteral("gone"), QStringList{"nope"}));
    TDLIndexFieldDefs key;
    key.AddField(QStringLiteral("id"), QString(), QStringLiteral("DESC"), true);
    t.AddIndex(QStringLiteral("pk"), std::move(key), ixPrimary | ixUnique, QStringLiteral("REPLACE"));
    ExpectSQL(t.GetCreateSQL(true, true, false),
              Lines({"CREATE TABLE [child] (",
                     "  [id] INTEGER NOT NULL ON CONFLICT FAIL PRIMARY KEY ON CONFLICT REPLACE AUTOINCREMENT "
                     "CONSTRAINT [u] UNIQUE ON CONFLICT IGNORE CONSTRAINT [fk] REFERENCES [parent]([id]) "
                     "ON DELETE SET NULL COLLATE BINARY DEFAULT (-1), ",
                     "  [name] TEXT NOT NULL UNIQUE COLLATE NOCASE DEFAULT 'x', ",
                     "  [v] NVARCHAR (10) DEFAULT 0, ", "  [w] [long text]);"}));
}

TEST_F(ObjectDefsTest, PrimaryKeyForms) {
    struct Case {
        const char *Type, *FieldCollate, *KeyName, *KeyCollate, *SortOrder;
        bool Autoincrement;
        const char* Expected;
    } cases[] = {
        {"integer", "", "id", "", "ASC", false,
         "CREATE TABLE [t] (\r\n  [id] integer PRIMARY KEY, \r\n  [x] TEXT);"},
        // Descending, the column is no rowid, and only this form says so.
        {"integer", "", "id", "", "DESC", false,
         "CREATE TABLE [t] (\r\n  [id] integer PRIMARY KEY DESC, \r\n  [x] TEXT);"},
        {"INTEGER", "NOCASE", "id", "NOCASE", "DESC", false,
         "CREATE TABLE [t] (\r\n  [id] INTEGER PRIMARY KEY DESC COLLATE NOCASE, \r\n  [x] TEXT);"},
        {"INTEGER", "", "id", "NOCASE", "", false,
         "CREATE TABLE [t] (\r\n  [id] INTEGER, \r\n  [x] TEXT, \r\n  CONSTRAINT [pk] PRIMARY KEY ([id] "
         "COLLATE NOCASE));"},
        {"INTEGER", "NOCASE", "id", "", "ASC", false,
         "CREATE TABLE [t] (\r\n  [id] INTEGER COLLATE NOCASE, \r\n  [x] TEXT, \r\n  CONSTRAINT [pk] PRIMARY "
         "KEY ([id] ASC));"},
        {"INTEGER", "NOCASE", "id", "", "", true,
         "CREATE TABLE [t] (\r\n  [id] INTEGER PRIMARY KEY AUTOINCREMENT COLLATE NOCASE, \r\n  [x] TEXT);"},
        {"INTEGER", "", "ID", "", "", false,
         "CREATE TABLE [t] (\r\n  [id] INTEGER, \r\n  [x] TEXT, \r\n  CONSTRAINT [pk] PRIMARY KEY ([ID]));"},
        {"BIGINT", "", "id", "", "", false,
         "CREATE TABLE [t] (\r\n  [id] BIGINT, \r\n  [x] TEXT, \r\n  CONSTRAINT [pk] PRIMARY KEY ([id]));"},
    };
    for (const Case& c : cases) {
        TDLTableDef t(QStringLiteral("t"));
        t.AddField(QStringLiteral("id"), c.Type, QString(), c.FieldCollate);
        t.AddField(QStringLiteral("x"), QStringLiteral("TEXT"));
        TDLIndexFieldDefs key;
        key.AddField(c.KeyName, c.KeyCollate, c.SortOrder, c.Autoincrement);
        t.AddIndex(QStringLiteral("pk"), std::move(key), ixPrimary);
        ExpectSQL(t.GetCreateSQL(true, true, false), QString::fromUtf8(c.Expected));
        db.Execute(QStringLiteral("drop table t"));
        // Without indexes the key is not written at all.
        const QString collate = *c.FieldCollate ? QStringLiteral(" COLLATE NOCASE") : QString();
        EXPECT_EQ(t.GetCreateSQL(true, false, false),
                  QStringLiteral("CREATE TABLE [t] (\r\n  [id] %1%2, \r\n  [x] TEXT);")
                      .arg(QString::fromUtf8(c.Type), collate));
    }
}

TEST_F(ObjectDefsTest, TableConstraintsAndCompositeKeyStandLast) {
    db.Execute(QStringLiteral("create table p (a, b, primary key (a, b))"));
    TDLTableDef t(QStringLiteral("main.c"));
    t.FIsWithoutRowID = true;
    t.AddField(QStringLiteral("a"), QStringLiteral("INT"));
    t.AddField(QStringLiteral("b"), QStringLiteral("INT"));
    t.AddField(QStringLiteral("c"), QStringLiteral("INT"));
    t.AddIndex(
        std::make_unique<TDLIndexDef>(QStringLiteral("pk c"), QStringList{"a", "b"}, ixPrimary, "ABORT"));
    t.AddUniqueConstraint(
        std::make_unique<TDLUniqueConstraintDef>(QStringLiteral("uq"), QStringList{"a", "c"}, "FAIL"));
    t.AddUniqueConstraint(
        std::make_unique<TDLUniqueConstraintDef>(QStringLiteral(" "), QStringList{"b", "a"}));
    t.AddUniqueConstraint(std::make_unique<TDLUniqueConstraintDef>(QStringLiteral("none"), QStringList{}));
    t.AddCheckConstraint(
        std::make_unique<TDLCheckConstraintDef>(QStringLiteral("ck"), QStringLiteral("a <> b")));
    t.AddCheckConstraint(std::make_unique<TDLCheckConstraintDef>(QString(), QStringLiteral(" a > 0 ")));
    auto fk = ForeignKey(QString(), {"a", "b"}, QStringLiteral("p"), {"a", "b"});
    fk->FOnDeleteAction = QStringLiteral("CASCADE");
    fk->FOnUpdateAction = QStringLiteral("NO ACTION");
    fk->FMatchName = QStringLiteral("SIMPLE");
    fk->FDeferrable = QStringLiteral("DEFERRABLE");
    fk->FInitially = QStringLiteral("INITIALLY DEFERRED");
    t.AddForeignKey(std::move(fk));
    t.AddForeignKey(ForeignKey(QStringLiteral("fk2"), {"b", "a"}, QStringLiteral("p"), {}));
    ExpectSQL(t.GetCreateSQL(true, true, false),
              Lines({"CREATE TABLE [main].[c] (", "  [a] INT, ", "  [b] INT, ", "  [c] INT, ",
                     "  CONSTRAINT [uq] UNIQUE([a], [c]) ON CONFLICT FAIL, ", "  UNIQUE([b], [a]), ",
                     "  CONSTRAINT [ck] CHECK(a <> b), ", "  CHECK( a > 0 ), ",
                     "  FOREIGN KEY([a], [b]) REFERENCES [p]([a], [b]) ON DELETE CASCADE ON UPDATE NO ACTION "
                     "MATCH SIMPLE DEFERRABLE INITIALLY DEFERRED, ",
                     "  CONSTRAINT [fk2] FOREIGN KEY([b], [a]) REFERENCES [p], ",
                     "  CONSTRAINT [pk c] PRIMARY KEY ([a], [b]) ON CONFLICT ABORT) WITHOUT ROWID;"}));
}

TEST_F(ObjectDefsTest, IndexesAndTriggersFollowTheTable) {
    TDLTableDef t(QStringLiteral("main.t"));
    t.AddField(QStringLiteral("id"), QStringLiteral("INTEGER"));
    t.AddField(QStringLiteral("name"), QStringLiteral("TEXT"));
    t.AddIndex(std::make_unique<TDLIndexDef>(QStringLiteral("pk"), QStringList{"id"}, ixPrimary));
    TDLIndexFieldDefs cols;
    cols.AddField(QStringLiteral("name"), QStringLiteral("NOCASE"), QStringLiteral("DESC"));
    cols.AddField(QStringLiteral("id"));
    t.AddIndex(QStringLiteral("ux"), std::move(cols), ixUnique, QString(),
               QStringLiteral(" name is not null "));
    t.AddIndex(std::make_unique<TDLIndexDef>(QStringLiteral("ix"), QStringList{"name"}, 0, QString(), "  "));
    t.AddTrigger(QStringLiteral("tr"),
                 QStringLiteral("CREATE TRIGGER tr AFTER INSERT ON t BEGIN SELECT 1; END;"));
    const QString indexes =
        Lines({"",
               "CREATE UNIQUE INDEX [main].[ux] ON [t] ([name] COLLATE NOCASE DESC, [id]) "
               "WHERE name is not null;",
               "CREATE INDEX [main].[ix] ON [t] ([name]);"});
    EXPECT_EQ(t.GetCreateSQL(false, true, false), indexes);
    ExpectSQL(t.GetCreateSQL(true, true, true),
              Lines({"CREATE TABLE [main].[t] (", "  [id] INTEGER PRIMARY KEY, ", "  [name] TEXT);"}) +
                  indexes + Lines({"", "CREATE TRIGGER tr AFTER INSERT ON t BEGIN SELECT 1; END;"}));
    EXPECT_EQ(t.FindIndex(QStringLiteral("ux")), &t.Indexes(1));
    EXPECT_EQ(t.FindIndex(QStringLiteral("UX")), nullptr);
    EXPECT_EQ(t.Indexes(1).FFields, (QStringList{"name", "id"}));

    TDLIndexDef descending(QStringLiteral("d"), QStringList{"id"}, ixUnique | ixDescending);
    EXPECT_EQ(t.GetIndexSQL(descending),
              QStringLiteral("CREATE UNIQUE DESCENDING INDEX [main].[d] ON [t] ([id]);"));
    descending.FOptions = ixDescending;
    EXPECT_EQ(t.GetIndexSQL(descending), QStringLiteral("CREATE DESCENDING INDEX [main].[d] ON [t] ([id]);"));
    EXPECT_THROW(t.GetIndexSQL(t.Indexes(0)), EAssertionFailure);
}

// The generated clause stands last on its line, the table options behind
// the body in the engine's order.
TEST_F(ObjectDefsTest, GeneratedColumnsAndTableOptions) {
    TDLTableDef t(QStringLiteral("g"));
    t.FIsStrict = true;
    t.AddField(QStringLiteral("a"), QStringLiteral("INTEGER"));
    TDLFieldDef& key = t.AddField(QStringLiteral("key"), QStringLiteral("TEXT"), QString(),
                                  QStringLiteral("NOCASE"), true);
    key.FGeneratedExpression = QStringLiteral("'k' || a");
    TDLFieldDef& total = t.AddField(QStringLiteral("total"), QStringLiteral("INT"));
    total.FGeneratedExpression = QStringLiteral("a * 2 -- doubled");
    total.FGeneratedStored = true;
    t.AddIndex(std::make_unique<TDLIndexDef>(QStringLiteral("pk"), QStringList{"a"}, ixPrimary));
    const QString body = Lines({"CREATE TABLE [g] (", "  [a] INTEGER PRIMARY KEY, ",
                                "  [key] TEXT NOT NULL COLLATE NOCASE GENERATED ALWAYS AS ('k' || a) VIRTUAL, ",
                                "  [total] INT GENERATED ALWAYS AS (a * 2 -- doubled", ") STORED)"});
    ExpectSQL(t.GetCreateSQL(true, true, false), body + QStringLiteral(" STRICT;"));
    db.Execute(QStringLiteral("drop table g"));
    t.FIsWithoutRowID = true;
    ExpectSQL(t.GetCreateSQL(true, true, false), body + QStringLiteral(" WITHOUT ROWID, STRICT;"));
}

TEST_F(ObjectDefsTest, TemporaryAndEmptyTables) {
    TDLTableDef t(QStringLiteral("scratch"));
    EXPECT_EQ(t.GetCreateSQL(true, true, true), QStringLiteral("CREATE TABLE [scratch] ();"));
    t.FIsTemporary = true;
    t.AddField(QStringLiteral("a"), QString());
    ExpectSQL(t.GetCreateSQL(true, true, true),
              QStringLiteral("CREATE TEMPORARY TABLE [scratch] (\r\n  [a] );"));
    EXPECT_FALSE(t.HasUnsupportedClauses());
    t.Fields(0).FUnsupportedClauses.append(QStringLiteral("COLLATE or sort order in UNIQUE"));
    EXPECT_TRUE(t.HasUnsupportedClauses());
}

TEST_F(ObjectDefsTest, ViewsAndVirtualTables) {
    db.Execute(QStringLiteral("create table t (a)"));
    TDLViewDef v(QStringLiteral("main.v"), QStringLiteral("select a\r\nfrom t"));
    v.AddTrigger(QStringLiteral("vt"),
                 QStringLiteral("CREATE TRIGGER vt INSTEAD OF DELETE ON v BEGIN DELETE FROM t; END"));
    // No ";" behind the view alone; with triggers every statement ends.
    ExpectSQL(v.GetCreateSQL(true, false), Lines({"CREATE VIEW [main].[v] AS ", "select a", "from t"}));
    db.Execute(QStringLiteral("drop view v"));
    ExpectSQL(v.GetCreateSQL(true, true),
              Lines({"CREATE VIEW [main].[v] AS ", "select a", "from t;",
                     "CREATE TRIGGER vt INSTEAD OF DELETE ON v BEGIN DELETE FROM t; END;"}));
    db.Execute(QStringLiteral("drop trigger vt"));
    ExpectSQL(v.GetCreateSQL(false, true),
              Lines({"", "CREATE TRIGGER vt INSTEAD OF DELETE ON v BEGIN DELETE FROM t; END;"}));
    v.FIsTemporary = true;
    v.FViewName = QStringLiteral("tv");
    ExpectSQL(v.GetCreateSQL(true, false), Lines({"CREATE TEMPORARY VIEW [tv] AS ", "select a", "from t"}));
    v.FViewName = QStringLiteral("main.cv");
    v.FIsTemporary = false;
    v.FColumnNames = QStringList{QStringLiteral("key"), QStringLiteral("b]")};
    v.FAsClause = QStringLiteral("select a, a from t");
    ExpectSQL(v.GetCreateSQL(true, false), Lines({"CREATE VIEW [main].[cv]([key], \"b]\") AS ", "select a, a from t"}));
    v.Clear();
    EXPECT_TRUE(v.FColumnNames.isEmpty());

    TDLVirtualTableDef fts(QStringLiteral("main.docs"), QStringLiteral("fts4"),
                           QStringLiteral("title, body"));
    ExpectSQL(fts.GetCreateSQL(),
              Lines({"CREATE VIRTUAL TABLE [main].[docs] USING fts4 (", "title, body);"}));
    TDLVirtualTableDef bare(QStringLiteral("bare"), QStringLiteral("fts4"), QStringLiteral(" \r\n "));
    ExpectSQL(bare.GetCreateSQL(), QStringLiteral("CREATE VIRTUAL TABLE [bare] USING fts4;"));
}

// Text of several statements runs whole as a script, whatever the texts
// kept verbatim end with: two triggers, a select ending in a comment.
TEST_F(ObjectDefsTest, SeveralStatementsRunAsOneScript) {
    TDLTableDef t(QStringLiteral("t"));
    t.AddField(QStringLiteral("a"), QStringLiteral("INT"));
    TDLIndexFieldDefs column;
    column.AddField(QStringLiteral("a"));
    t.AddIndex(QStringLiteral("ta"), std::move(column), 0);
    t.AddTrigger(QStringLiteral("t1"),
                 QStringLiteral("CREATE TRIGGER t1 AFTER INSERT ON t BEGIN SELECT 1; END"));
    t.AddTrigger(QStringLiteral("t2"),
                 QStringLiteral("CREATE TRIGGER t2 AFTER DELETE ON t BEGIN SELECT 2; END -- c"));
    TDLViewDef v(QStringLiteral("v"), QStringLiteral("select a from t -- every row"));
    v.AddTrigger(QStringLiteral("v1"),
                 QStringLiteral("CREATE TRIGGER v1 INSTEAD OF DELETE ON v BEGIN SELECT 3; END"));
    v.AddTrigger(QStringLiteral("v2"),
                 QStringLiteral("CREATE TRIGGER v2 INSTEAD OF INSERT ON v BEGIN SELECT 4; END;"));
    ASSERT_NO_THROW(db.Execute(t.GetCreateSQL(true, true, true) + v.GetCreateSQL(true, true)));
    QStringList names;
    db.GetValues(QStringLiteral("select name from sqlite_master order by name"), names);
    EXPECT_EQ(names.join(u' '), QStringLiteral("t t1 t2 ta v v1 v2"));
}

}  // namespace
}  // namespace brindle
