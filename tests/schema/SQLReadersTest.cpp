// Stored CREATE text read into records, and a trigger rebuilt from its record.
#include "schema/DLSQLiteParser.h"

#include <gtest/gtest.h>

using namespace brindle;

namespace {

QString S(const char* text) {
    return QString::fromUtf8(text);
}

std::string Str(const QStringList& list) {
    return list.join(u'|').toStdString();
}

}  // namespace

TEST(SQLReaders, TableKeysAndConstraints) {
    const QString columnKey = S(
        "CREATE TABLE t(a TEXT UNIQUE, \"id\" INTEGER PRIMARY KEY DESC ON CONFLICT IGNORE AUTOINCREMENT COLLATE nocase, "
        "b INT CONSTRAINT nn NOT NULL ON CONFLICT FAIL COLLATE rtrim CHECK (b IN (1, 2)) DEFAULT (x + 1))");
    TPrimaryKeyRec key = GetPrimaryKeyOptions(columnKey);
    // A UNIQUE column before the key is no part of it.
    ASSERT_EQ(key.Fields.size(), 1u);
    EXPECT_EQ(key.Fields[0].FieldName, S("id"));
    EXPECT_EQ(key.Fields[0].SortOrder, S("DESC"));
    EXPECT_TRUE(key.Fields[0].Autoincrement);
    EXPECT_EQ(key.Fields[0].Collate, S("nocase"));
    EXPECT_EQ(key.ConflictClause, S("IGNORE"));

    const TSQLFieldRec b = GetSQLFieldInfo(columnKey, S("B"));
    EXPECT_TRUE(b.NotNull);
    EXPECT_EQ(b.NotNullConflictClause, S("FAIL"));
    EXPECT_EQ(b.Collate, S("rtrim"));
    EXPECT_TRUE(b.Default.isEmpty() && b.Check.isEmpty());
    EXPECT_FALSE(GetSQLFieldInfo(columnKey, S("a")).NotNull);

    key = GetPrimaryKeyOptions(S("CREATE TABLE t(a, b, CONSTRAINT pk PRIMARY KEY (a COLLATE x ASC, \"b\") ON CONFLICT ROLLBACK)"));
    ASSERT_EQ(key.Fields.size(), 2u);
    EXPECT_EQ(key.Fields[0].Collate, S("x"));
    EXPECT_EQ(key.Fields[0].SortOrder, S("ASC"));
    EXPECT_EQ(key.Fields[1].FieldName, S("b"));
    EXPECT_FALSE(key.Fields[1].Autoincrement);
    EXPECT_EQ(key.ConflictClause, S("ROLLBACK"));
    EXPECT_TRUE(GetPrimaryKeyOptions(S("CREATE TABLE t(a UNIQUE)")).Fields.empty());
    EXPECT_TRUE(GetPrimaryKeyOptions(S("CREATE INDEX i ON t(a)")).Fields.empty());

    // A column UNIQUE and a table UNIQUE give the same record.
    const auto unique = GetUniqueConstraints(
        S("CREATE TABLE t(a CONSTRAINT ua UNIQUE ON CONFLICT REPLACE, b, c, CONSTRAINT ubc UNIQUE (b, [c]) ON CONFLICT ABORT)"));
    ASSERT_EQ(unique.size(), 2u);
    EXPECT_EQ(unique[0].ConstraintName, S("ua"));
    EXPECT_EQ(Str(unique[0].Fields), "a");
    EXPECT_EQ(unique[0].ConflictClause, S("REPLACE"));
    EXPECT_EQ(unique[1].ConstraintName, S("ubc"));
    EXPECT_EQ(Str(unique[1].Fields), "b|c");
    EXPECT_EQ(unique[1].ConflictClause, S("ABORT"));

    // No field named CHECK comes out, and a column check becomes a table check.
    const auto checks = GetCheckConstraints(S("CREATE TABLE t(a INT CHECK (a > 0 /* pos */), CONSTRAINT lim CHECK(a<10))"));
    ASSERT_EQ(checks.size(), 2u);
    EXPECT_EQ(checks[0].Expression, S("a > 0 /* pos */"));
    EXPECT_TRUE(checks[0].ConstraintName.isEmpty());
    EXPECT_EQ(checks[1].ConstraintName, S("lim"));
    EXPECT_EQ(checks[1].Expression, S("a<10"));
}

TEST(SQLReaders, ForeignKeys) {
    auto keys = GetForeignKeys(S("CREATE TABLE t(a INT REFERENCES p(x) ON DELETE SET NULL)"));
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_EQ(Str(keys[0].ChildKey), "a");
    EXPECT_EQ(Str(keys[0].ParentKey), "x");
    EXPECT_EQ(keys[0].ParentTableName, S("p"));
    EXPECT_EQ(keys[0].OnDeleteAction, S("SET NULL"));

    keys = GetForeignKeys(S("CREATE TABLE t(a, b, c REFERENCES \"p q\" MATCH SIMPLE NOT DEFERRABLE INITIALLY IMMEDIATE, "
                            "CONSTRAINT fk FOREIGN KEY (a, [b]) REFERENCES p(x, y) ON UPDATE NO ACTION "
                            "ON DELETE CASCADE DEFERRABLE INITIALLY DEFERRED)"));
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys[0].ParentTableName, S("p q"));
    EXPECT_TRUE(keys[0].ParentKey.isEmpty());
    EXPECT_EQ(keys[0].MatchName, S("SIMPLE"));
    EXPECT_EQ(keys[0].Deferrable, S("NOT DEFERRABLE"));
    EXPECT_EQ(keys[0].Initially, S("INITIALLY IMMEDIATE"));
    EXPECT_EQ(keys[1].ConstraintName, S("fk"));
    EXPECT_EQ(Str(keys[1].ChildKey), "a|b");
    EXPECT_EQ(Str(keys[1].ParentKey), "x|y");
    EXPECT_EQ(keys[1].OnUpdateAction, S("NO ACTION"));
    EXPECT_EQ(keys[1].OnDeleteAction, S("CASCADE"));
    EXPECT_EQ(keys[1].Deferrable, S("DEFERRABLE"));
    EXPECT_EQ(keys[1].Initially, S("INITIALLY DEFERRED"));
}

TEST(SQLReaders, ClausesTheDefinitionsCannotHold) {
    auto clauses = [](const char* sql) {
        QStringList list;
        for (const TUnsupportedClause& c : GetUnsupportedClauses(S(sql))) list << c.FieldName + u':' + c.Clause;
        return Str(list);
    };
    EXPECT_EQ(clauses("CREATE TABLE t(a INT PRIMARY KEY, b AS (a*2), c INT GENERATED ALWAYS AS (a) STORED) "
                      "strict, WITHOUT ROWID"),
              "");
    EXPECT_EQ(clauses("CREATE TABLE t(a, b, UNIQUE (a COLLATE nocase, b))"), ":COLLATE or sort order in UNIQUE");
    EXPECT_EQ(clauses("CREATE TABLE t(a) STRICT, some option, WITHOUT ROWID;"), ":SOME OPTION");
    EXPECT_EQ(clauses("CREATE VIEW v(x) AS SELECT 1"), "");
}

TEST(SQLReaders, GeneratedColumnsAndTableOptions) {
    const QString sql = S(
        "CREATE TABLE t(a INT PRIMARY KEY, b AS (a*2), \"key\" INT NOT NULL GENERATED ALWAYS AS ( (a) /* c */ ) "
        "STORED COLLATE nocase, c DEFAULT 'AS (1)', e VARCHAR(10) CONSTRAINT g as (upper(c)) Virtual, total stored)");
    QStringList seen;
    for (const auto& [name, f] : GetParser(sql).GetSQLFieldInfos())
        seen << name + u':' + f.GeneratedExpression + (f.GeneratedStored ? QStringLiteral(":stored") : QString());
    EXPECT_EQ(Str(seen), "a:|b:a*2|key:(a) /* c */:stored|c:|e:upper(c)|total:");
    // The rest of a generated column is read as for any other.
    const TSQLFieldRec key = GetSQLFieldInfo(sql, S("KEY"));
    EXPECT_TRUE(key.NotNull);
    EXPECT_EQ(key.Collate, S("nocase"));

    EXPECT_TRUE(IsStrictTable(S("CREATE TABLE t(a INT) STRICT")));
    EXPECT_TRUE(IsStrictTable(S("create table t(a int primary key) without rowid, strict;")));
    EXPECT_FALSE(IsStrictTable(S("CREATE TABLE t(a INT) WITHOUT ROWID")));
    EXPECT_FALSE(IsStrictTable(S("CREATE TABLE t(strict INT, b CHECK (strict))")));
    EXPECT_FALSE(IsStrictTable(S("CREATE VIEW strict AS SELECT 1")));
}

TEST(SQLReaders, ViewsAndVirtualTables) {
    const TViewDataRec view = GetViewRec(S("CREATE TEMP VIEW v AS SELECT 1"));
    EXPECT_EQ(view.AsClause, S("SELECT 1"));
    EXPECT_TRUE(view.ViewName.isEmpty());
    EXPECT_FALSE(view.IsTemporary);
    EXPECT_TRUE(view.ColumnNames.isEmpty());
    EXPECT_TRUE(GetViewRec(S("CREATE VIEW v AS SELECT f(1) AS x")).ColumnNames.isEmpty());
    const TViewDataRec listed = GetViewRec(S("CREATE VIEW IF NOT EXISTS main.v(x, \"y z\", [key]) AS SELECT 1, 2, (3)"));
    EXPECT_EQ(Str(listed.ColumnNames), "x|y z|key");
    EXPECT_EQ(listed.AsClause, S("SELECT 1, 2, (3)"));

    const TVirtualTableRec vt =
        GetVirtualTableRec(S("CREATE VIRTUAL TABLE IF NOT EXISTS main.\"f t\" USING fts4( a, tokenize=\"x (y)\" )"));
    EXPECT_EQ(vt.DatabaseName, S("main"));
    EXPECT_EQ(vt.TableName, S("f t"));
    EXPECT_EQ(vt.ModuleName, S("fts4"));
    EXPECT_EQ(vt.ModuleArguments, S(" a, tokenize=\"x (y)\" "));
    EXPECT_TRUE(GetVirtualTableRec(S("CREATE VIRTUAL TABLE r USING m")).ModuleArguments.isEmpty());
}

TEST(SQLReaders, TriggerRecordAndRebuild) {
    const QString sql = S(
        "/* head */ CREATE TRIGGER \"Tr\" before update of a, \"b c\" ON main.\"T\" for each row "
        "WHEN new.a > 0 -- why\nBEGIN\n  UPDATE x SET y = 1; -- body\nEND");
    const TTriggerRec rec = GetTriggerRec(sql);
    EXPECT_EQ(rec.TriggerName, S("Tr"));
    EXPECT_EQ(rec.WhenClause, S("before"));
    EXPECT_EQ(rec.DatabaseEvent, S("update of"));
    EXPECT_EQ(Str(rec.Fields), "a|b c");
    EXPECT_EQ(rec.DatabaseName, S("main"));
    EXPECT_EQ(rec.TableName, S("\"T\""));
    EXPECT_EQ(rec.ActionFor, S("for each row"));
    EXPECT_EQ(rec.ActionWhen, S("WHEN"));
    EXPECT_EQ(rec.WhenExpression, S("new.a > 0 -- why"));
    EXPECT_EQ(rec.TriggerAction, S("BEGIN\n  UPDATE x SET y = 1; -- body\nEND"));

    // The head comment is lost, the keywords keep the user's case.
    EXPECT_EQ(BuildTriggerSQL(rec, false).toStdString(),
              ("CREATE TRIGGER [main].[Tr]\r\nbefore update of [a], [b c]\r\nON [T]\r\nfor each row\r\n"
                "WHEN new.a > 0 -- why\r\nBEGIN\n  UPDATE x SET y = 1; -- body\nEND"));
    EXPECT_EQ(BuildTriggerSQL(GetTriggerRec(S("CREATE TEMP TRIGGER t2 AFTER DELETE ON main.t BEGIN SELECT 1; END")), true)
                  .toStdString(),
              ("CREATE TEMPORARY TRIGGER [t2]\r\nAFTER DELETE\r\nON [main].[t]\r\nBEGIN SELECT 1; END"));
    EXPECT_TRUE(GetTriggerRec(S("CREATE VIEW v AS SELECT 1")).TriggerName.isEmpty());
}

TEST(SQLReaders, TablesAndFieldsOfAQuery) {
    const QString sql = S("select a.x, y as z, u.* from main.t a join u on a.id = u.id where x > 1");
    std::vector<TTableInfoRec> tables;
    GetTableInfoFromSQL(sql, tables);
    ASSERT_EQ(tables.size(), 2u);
    EXPECT_EQ(tables[0].DatabaseName, S("main"));
    EXPECT_EQ(tables[0].TableName, S("t"));
    EXPECT_EQ(tables[0].TableAlias, S("a"));
    EXPECT_EQ(tables[1].TableName, S("u"));
    EXPECT_TRUE(tables[1].TableAlias.isEmpty());

    std::vector<TFieldInfoRec> fields;
    GetFieldInfoFromSQL(sql, fields, tables);
    ASSERT_EQ(fields.size(), 3u);
    EXPECT_EQ(fields[0].FieldName, S("x"));
    EXPECT_EQ(fields[0].TableIndex, 0);
    EXPECT_EQ(fields[1].FieldAlias, S("z"));
    EXPECT_EQ(fields[1].FinalName, S("z"));
    EXPECT_EQ(fields[2].FieldName, S("*"));
    EXPECT_EQ(fields[2].TableIndex, 1);
}

// Names that are keywords to the labeller but names to the engine: every
// column and table of the query is found, qualified ones with their table.
TEST(SQLReaders, KeywordNamedTablesAndFieldsOfAQuery) {
    const QString sql =
        S("select id, total, t.key, main.plan.row, key as desc, count(*) from main.plan t, query where row > "
          "0");
    std::vector<TTableInfoRec> tables;
    GetTableInfoFromSQL(sql, tables);
    ASSERT_EQ(tables.size(), 2u);
    EXPECT_EQ(tables[0].DatabaseName + u'.' + tables[0].TableName + u' ' + tables[0].TableAlias,
              S("main.plan t"));
    EXPECT_EQ(tables[1].TableName, S("query"));

    std::vector<TFieldInfoRec> fields;
    GetFieldInfoFromSQL(sql, fields, tables);
    QStringList seen;
    for (const TFieldInfoRec& f : fields)
        seen << QStringLiteral("%1:%2:%3").arg(f.FinalName).arg(f.FieldName).arg(f.TableIndex);
    EXPECT_EQ(seen.join(u' '), S("id:id:-1 total:total:-1 key:key:0 row:row:0 desc:key:-1"));
}
