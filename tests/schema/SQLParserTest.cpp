// The labeller: token roles, the questions answered from them, verbatim cuts,
// the parser cache, and the database object running on the parser.
#include "SQLCases.h"
#include "TempDir.h"

#include "engine/Assert.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"

#include <gtest/gtest.h>
#include <thread>

using namespace brindle;
using namespace brindle::test;

namespace {

QString Labels(TSQLParser& p) {
    QStringList lines{QStringLiteral("@command ") + SQLTokenTypeName(p.SQLCommand()).mid(2)};
    for (int i = 0; i < p.GetTokenCount(); ++i)
        lines << SQLTokenTypeName(p.SQLTokens(i)->FSQLToken).mid(2) + u' ' + p.GetTokens(i)->FValue;
    return lines.join(u'\n');
}

QString S(const char* text) {
    return QString::fromUtf8(text);
}

}  // namespace

TEST(SQLParser, LabelsFollowTheFixtures) {
    const std::vector<TSQLCase> cases = ReadSQLCases(QStringLiteral("labels.txt"));
    ASSERT_GT(cases.size(), 20u);
    for (const TSQLCase& c : cases) {
        TSQLParser p;
        p.SetText(c.Input);
        QStringList expected;
        for (const QString& line : c.Expected)
            if (!line.trimmed().isEmpty()) expected << line.trimmed();
        EXPECT_EQ(Labels(p).toStdString(), expected.join(u'\n').toStdString())
            << "labels.txt:" << c.Line << " " << c.Name.toStdString();
    }
}

TEST(SQLParser, MergedPhrasesSpanTheirWords) {
    TSQLParser p;
    p.SetText(S("create table t(a not /* c */\n null)"));
    const int i = p.IndexOf(stNotNull);
    ASSERT_GE(i, 0);
    EXPECT_EQ(p.GetTokens(i)->FValue, S("not null"));
    EXPECT_EQ(p.SourceText(i, i), S("not /* c */\n null"));
    EXPECT_EQ(p.GetTokenCount(), 6);
}

TEST(SQLParser, QueriesAnsweredFromTheLabels) {
    const QString join = S("select t.a, b from main.t join u on u.x = t.x");
    EXPECT_EQ(GetTableNameFromSQL(join), S("t"));
    QStringList all;
    GetAllTableNamesFromSQL(join, all);
    EXPECT_EQ(all, QStringList({S("t"), S("t"), S("u"), S("t")}));
    QString db, table;
    GetFullTableNameFromSQL(join, db, table);
    EXPECT_EQ(db + u'|' + table, S("main|t"));
    EXPECT_EQ(GetTableCountFromSQL(S("select * from a, [b c], d")), 3);

    // Only plain names in the select list and FROM clause are editable.
    EXPECT_TRUE(IsSimpleSelect(S("select a, t.b as x, * from main.t t where c = 1 + 2 order by d")));
    for (const char* notSimple :
         {"select distinct a from t", "select a + 1 from t", "select 'x' from t", "select count(*) from t",
          "select a from t union select b from u", "select a from t join u on 1", "select a from (select 1)",
          "select a from t left join u", "insert into t values (1)", "(select a from t)"})
        EXPECT_FALSE(IsSimpleSelect(S(notSimple))) << notSimple;

    EXPECT_EQ(StripOrderBy(S("select * from t order by a, t.b desc limit 5 offset 2")),
              S("select * from t limit 5 offset 2"));
    EXPECT_EQ(StripOrderBy(S("select * from t\norder by a ")), S("select * from t"));
    for (const char* kept : {"select * from t order by 1+1", "select * from t order by a collate nocase",
                             "select * from (select * from t order by a) order by b", "update t set a = 1"})
        EXPECT_EQ(StripOrderBy(S(kept)), S(kept));

    EXPECT_TRUE(HasOrderBy(S("select * from t order by a")));
    EXPECT_FALSE(HasOrderBy(S("select 'order by' from t")));
    EXPECT_TRUE(HasSubquery(S("select * from t where a in (select b from u)")));
    EXPECT_FALSE(HasSubquery(S("select * from t")));
    EXPECT_EQ(GetSelectClause(S("/* q */ select a, b from t")), S("/* q */ select a, b"));
    EXPECT_TRUE(SQLContains(S("select * from t except select * from u"), {stExcept, stIntersect}));
    EXPECT_FALSE(SQLContains(S("select * from t"), {stExcept, stIntersect}));

    QStringList params;
    GetParamsFromSQL(S("select * from t where a = :a and b = ? and c = @c and d = '$x'"), params);
    EXPECT_EQ(params, QStringList({S(":a"), S("?"), S("@c")}));

    EXPECT_EQ(PostProcessSQL(S("select a.* from main.t a")), S("select a.* from main.t a"));
    EXPECT_EQ(PostProcessSQL(S("select main.t.*, aux.u.* from main.t, aux.u")),
              S("select t.*, u.* from main.t, aux.u"));

    const QStringList excluded{S("secret")};
    EXPECT_EQ(FixFilterExpression(S("a = NULL and b <> null or c = TRUE and d = false"), excluded),
              S("a IS NULL and b IS NOT null or c = (not 0) and d = 0"));
    EXPECT_EQ(FixFilterExpression(S("a = 1 or [Secret] = 2"), excluded), QString());
    EXPECT_EQ(FixFilterExpression(S("a = 'secret'"), excluded), S("a = 'secret'"));
}

TEST(SQLParser, StatementQuestions) {
    const QString index =
        S("CREATE INDEX ix ON t(a COLLATE nocase DESC, [b c] ASC, d) WHERE a > 0 AND d IS NOT NULL ");
    EXPECT_EQ(GetIndexCollateOption(index, S("A")), S("nocase"));
    EXPECT_EQ(GetIndexFieldSortOrder(index, S("a")), S("DESC"));
    EXPECT_EQ(GetIndexFieldSortOrder(index, S("\"b c\"")), S("ASC"));
    EXPECT_EQ(GetIndexFieldSortOrder(index, S("d")), QString());
    EXPECT_EQ(GetIndexWhereClause(index), S("a > 0 AND d IS NOT NULL"));
    EXPECT_EQ(GetIndexWhereClause(S("select * from t where a")), QString());

    const QString trigger = S("CREATE TRIGGER \"tr\" AFTER INSERT ON [t] BEGIN SELECT 1 FROM t; END");
    EXPECT_EQ(ReplaceTableNameInTrigger(trigger, S("[u v]")),
              S("CREATE TRIGGER \"tr\" AFTER INSERT ON [u v] BEGIN SELECT 1 FROM t; END"));
    EXPECT_EQ(ReplaceTriggerName(trigger, S("x")),
              S("CREATE TRIGGER x AFTER INSERT ON [t] BEGIN SELECT 1 FROM t; END"));

    // The seam the engine asks through, here answered by the parser.
    InstallSQLParserServices();
    EXPECT_EQ(GetSQLCommand(S("  -- c\n WITH x AS (SELECT 1) SELECT * FROM x")), stSelect);
    EXPECT_EQ(GetSQLCommand(S("CREATE TEMPORARY VIEW v AS SELECT 1")), stCreateView);
    EXPECT_EQ(GetSQLCommand(S("vacuum")), stVacuum);
    EXPECT_EQ(GetSQLCommand(S("with x as (values (1)) select 1")), stSelect);
    EXPECT_EQ(GetSQLCommand(S("")), stUnknown);
    EXPECT_EQ(GetSavepointName(S("savepoint \"a b\"")), S("[a b]"));
    EXPECT_EQ(GetSavepointName(S("release savepoint sp")), S("sp"));
    EXPECT_EQ(GetSavepointName(S("rollback")), QString());
    EXPECT_EQ(GetDatabaseNameFromSQL(S("attach 'x.db' as aux")), S("aux"));
    EXPECT_EQ(GetDatabaseNameFromSQL(S("detach database aux")), S("aux"));
    EXPECT_EQ(GetDatabaseNameFromSQL(S("select aux")), QString());
    EXPECT_EQ(GetFileNameFromSQL(S("ATTACH DATABASE 'it''s.db' AS a")), S("it's.db"));
    QString file, entry;
    EXPECT_TRUE(GetLoadExtensionParams(S("select load_extension('a.so')"), file, entry));
    EXPECT_EQ(file + u'|' + entry, S("a.so|"));
    EXPECT_FALSE(GetLoadExtensionParams(S("select 1"), file, entry));
    EXPECT_EQ(GetVirtualTableModule(S("create virtual table v using \"rtree\"(id, a, b)")), S("rtree"));
    EXPECT_EQ(GetVirtualTableModule(S("create table v(a)")), QString());
    EXPECT_TRUE(IsWithoutRowid(S("create table t(a primary key) strict, without rowid")));
    EXPECT_FALSE(IsWithoutRowid(S("create table t(a, \"without rowid\")")));
    EXPECT_EQ(GetTriggerDatabaseName(S("create temp trigger t after delete on [main].x begin select 1; end")),
              S("main"));
    EXPECT_EQ(
        GetTriggerDatabaseName(S("create trigger main.t after delete on x begin delete from aux.y; end")),
        QString());

    // Splitting is the scanner's and needs nothing installed; any other
    // question asked before the parser answers is a programming error.
    SetSQLTextServices({});
    QStringList pieces;
    ParseSQL(S("select 1; select 2"), pieces, true);
    EXPECT_EQ(pieces.size(), 2);
    EXPECT_THROW(GetSQLCommand(S("select 1")), EAssertionFailure);
    InstallSQLParserServices();
}

TEST(SQLParser, RolesLeadToVerbatimText) {
    TSQLParser p;
    p.SetText(S("CREATE TABLE t(a INT, CONSTRAINT c CHECK (a > 0 /* positive */ AND (a < 10)), b)"));
    const int check = p.IndexOf(stCheck);
    const int open = p.IndexOf(stOpenParen, check);
    const int close = p.ClosingParen(open);
    ASSERT_GT(close, open);
    EXPECT_EQ(p.TextBetween(open, close), S("a > 0 /* positive */ AND (a < 10)"));
    EXPECT_EQ(p.GetTokens(p.IndexOf(stConstraintName))->FValue, S("c"));
    EXPECT_EQ(p.IndexOfInSection(stFieldName, stCreateTable, close), close + 2);
    EXPECT_EQ(p.ClosingParen(check), -1);
    EXPECT_EQ(p.TextBetween(close, p.GetTokenCount()), S(", b)"));

    p.SetText(S("CREATE TRIGGER tr AFTER INSERT ON t WHEN new.a > 0 -- c\nBEGIN\n  SELECT 1; -- body\nEND"));
    const int when = p.IndexOf(stWhen);
    const int begin = p.IndexOf(stBegin);
    EXPECT_EQ(p.TextBetween(when, begin).trimmed(), S("new.a > 0 -- c"));
    EXPECT_EQ(p.TextFrom(begin), S("BEGIN\n  SELECT 1; -- body\nEND"));
    EXPECT_EQ(p.TextBefore(when).trimmed(), S("CREATE TRIGGER tr AFTER INSERT ON t"));
    EXPECT_EQ(p.TextBehind(p.IndexOf(stSemicolon)), S(" -- body\nEND"));
}

TEST(SQLParser, CacheKeepsParsersPerThread) {
    const TSQLParser* mine = &GetParser(S("select * from t64"));
    // A thread of its own starts with an empty cache.
    std::thread([&] {
        TSQLParser* parser = nullptr;
        const QString first = S("select * from t0");
        parser = &GetParser(first);
        EXPECT_EQ(&GetParser(first), parser);
        EXPECT_EQ(parser->GetTableName(), S("t0"));
        for (int i = 1; i < 64; ++i) GetParser(QStringLiteral("select * from t%1").arg(i));
        EXPECT_EQ(&GetParser(first), parser) << "63 further texts must not push the first out";
        EXPECT_EQ(parser->GetTableName(), S("t0"));
        GetParser(S("select * from t64"));
        EXPECT_EQ(parser->Text(), S("select * from t64")) << "the 64th further text takes the oldest slot";
        EXPECT_EQ(parser->GetTableName(), S("t64"));
        EXPECT_NE(parser, mine);

        // Huge texts do not keep their tokens piling up in the cache.
        const QString filler = QStringLiteral(" and a = 1").repeated(60000);
        TSQLParser& big1 = GetParser(S("select * from big1 where 1") + filler);
        ASSERT_GT(big1.GetTokenCount(), 0);
        TSQLParser& big2 = GetParser(S("select * from big2 where 1") + filler);
        ASSERT_GT(big2.GetTokenCount(), 0);
        GetParser(S("select 1"));
        EXPECT_FALSE(big1.Scanned());
        EXPECT_TRUE(big2.Scanned());
        EXPECT_EQ(big1.GetTableName(), S("big1")) << "a released parser scans again";
    }).join();
}

// ---------------------------------------------------------------------------
// The database object with the parser installed.

namespace {

class ParserDatabaseTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();
    }
    void SetUp() override {
        db = std::make_unique<TDLSQLiteDatabase>();
        db->FShowWaitCursor = false;
        db->SetFileName(dir.file(S("parser.db")));
        db->SetAliasName(S("parser"));
        db->CreateDatabase(0, 4096, S("UTF-8"), QString());
    }
    QString Value(const char* sql) { return db->GetStringValue(S(sql)); }

    TempDir dir;
    std::unique_ptr<TDLSQLiteDatabase> db;
};

}  // namespace

// The keyword table says for each word whether the engine takes it for a
// name; the engine, asked with every keyword it knows and those only the
// labeller knows, must agree: as a column at all, read back as that column
// in an expression, and as an alias without AS.
TEST_F(ParserDatabaseTest, KeywordsStandAsNamesWhereTheEngineTakesThem) {
    const QStringList words =
        S("ABORT ACTION ADD AFTER ALL ALTER ALWAYS ANALYZE AND AS ASC ATTACH AUTOINCREMENT BEFORE BEGIN "
          "BETWEEN BY "
          "CASCADE CASE CAST CHECK COLLATE COLUMN COMMIT CONFLICT CONSTRAINT CREATE CROSS CURRENT "
          "CURRENT_DATE "
          "CURRENT_TIME CURRENT_TIMESTAMP DATABASE DEFAULT DEFERRABLE DEFERRED DELETE DESC DETACH DISTINCT "
          "DO DROP "
          "EACH ELSE END ESCAPE EXCEPT EXCLUDE EXCLUSIVE EXISTS EXPLAIN FAIL FILTER FIRST FOLLOWING FOR "
          "FOREIGN FROM "
          "FULL GENERATED GLOB GROUP GROUPS HAVING IF IGNORE IMMEDIATE IN INDEX INDEXED INITIALLY INNER "
          "INSERT "
          "INSTEAD INTERSECT INTO IS ISNULL JOIN KEY LAST LEFT LIKE LIMIT MATCH MATERIALIZED NATURAL NO NOT "
          "NOTHING "
          "NOTNULL NULL NULLS OF OFFSET ON OR ORDER OTHERS OUTER OVER PARTITION PLAN PRAGMA PRECEDING "
          "PRIMARY QUERY "
          "RAISE RANGE RECURSIVE REFERENCES REGEXP REINDEX RELEASE RENAME REPLACE RESTRICT RETURNING RIGHT "
          "ROLLBACK "
          "ROW ROWS SAVEPOINT SELECT SET TABLE TEMP TEMPORARY THEN TIES TO TRANSACTION TRIGGER UNBOUNDED "
          "UNION "
          "UNIQUE UPDATE USING VACUUM VALUES VIEW VIRTUAL WHEN WHERE WINDOW WITH WITHOUT "
          "AVG COUNT MAX MIN SUM TOTAL LOAD_EXTENSION ASCENDING DESCENDING")
            .split(u' ');
    auto runs = [this](const QString& sql) {
        try {
            db->Execute(sql);
            return true;
        } catch (const ECustomException&) {
            return false;
        }
    };
    db->Execute(S("begin"));  // a failed statement leaves the transaction open
    int checked = 0;
    for (const QString& word : words) {
        const TSQLKeyword* row = nullptr;
        for (const TSQLKeyword* k : KeywordCandidates(word))
            if (k->WordCount == 1) row = k;
        if (!row) continue;  // an unknown word to the labeller: a name anyway
        ++checked;
        const QString table = QStringLiteral("k%1").arg(checked);
        const bool column =
            runs(QStringLiteral("create table %1(%2 int); insert into %1 values (1)").arg(table, word));
        const bool expression =
            column && runs(QStringLiteral("select typeof(%2) from %1").arg(table, word)) &&
            db->GetStringValue(QStringLiteral("select typeof(%2) from %1").arg(table, word)) == u"integer";
        const bool alias = runs(QStringLiteral("select 1 %1").arg(word));
        const TKeywordAsName engine = !column       ? kaReserved
                                      : !expression ? kaNotInExpression
                                      : !alias      ? kaNotAlias
                                                    : kaName;
        EXPECT_EQ(row->AsName, engine) << word.toStdString();
    }
    db->Execute(S("rollback"));
    EXPECT_GT(checked, 120);
}

TEST_F(ParserDatabaseTest, ScriptsWithTriggerBodiesRunWhole) {
    db->Execute(S(R"sql(
create table items(id integer primary key, qty int, size text);
create table log(id integer primary key, note text);
create trigger items_log after insert on items begin
  insert into log(note) values (case when new.qty > 10 then 'big' else 'small' end);
  update items set size = case new.qty when 0 then 'none' end where id = new.id;
end;
insert into items(qty) values (20);
insert into items(qty) values (0);
create table opts(a int primary key, b int generated always as (a * 2) stored) strict, without rowid;
insert into opts(a) values (3) on conflict(a) do nothing;
)sql"));
    EXPECT_EQ(Value("select group_concat(note, ',') from log"), S("big,small"));
    EXPECT_EQ(Value("select count(*) from items where size = 'none'"), S("1"));
    EXPECT_EQ(Value("select b from opts"), S("6"));
    EXPECT_TRUE(db->IsWithoutRowID(S("opts")));
    EXPECT_FALSE(db->IsWithoutRowID(S("items")));
}

TEST_F(ParserDatabaseTest, SavepointsAttachmentsAndExtensionsTypedInScriptsAreMirrored) {
    db->Execute(S("savepoint a; savepoint \"b c\"; savepoint d"));
    ASSERT_EQ(db->SavepointCount(), 3);
    EXPECT_EQ(db->Savepoints(1), S("[b c]"));
    db->Execute(S("rollback transaction to savepoint \"b c\""));
    EXPECT_EQ(db->SavepointCount(), 2);
    db->Execute(S("release a"));
    EXPECT_EQ(db->SavepointCount(), 0);

    const QString other = dir.file(S("other.db"));
    db->Execute(QStringLiteral("attach database '%1' as [aux one]; create table [aux one].t(a)").arg(other));
    EXPECT_EQ(db->GetAttachedFileName(S("aux one")), other);
    db->Execute(S("create virtual table [aux one].boxes using rtree(id, x0, x1)"));
    QString module;
    EXPECT_TRUE(db->IsVirtualTable(S("[aux one].boxes"), &module));
    EXPECT_EQ(module, S("rtree"));
    db->Execute(S("detach database \"aux one\""));
    EXPECT_EQ(db->AttachedDatabaseCount(), 0);

    db->Execute(S("create table t(a); create temp trigger tt after delete on main.t begin select 1; end"));
    QStringList triggers;
    db->GetTemporaryTriggerNames(S("t"), triggers);
    EXPECT_EQ(triggers, QStringList{S("tt")});

    db->Execute(
        QStringLiteral("select 1; select load_extension('%1', 'brindle_test_init')").arg(S(TEST_EXTENSION)));
    ASSERT_EQ(db->ExtensionCount(), 1);
    EXPECT_EQ(db->Extensions(0).EntryPoint, S("brindle_test_init"));
}

TEST_F(ParserDatabaseTest, DatabaseAnswersQuestionsAboutText) {
    // A WITH query counts by the SELECT in it.
    for (const char* sql : {"select 1", "  /* c */ PRAGMA page_size", "explain select 1",
                            "with x as (select 1) select * from x"})
        EXPECT_TRUE(db->HasSQLCursor(S(sql))) << sql;
    for (const char* sql : {"insert into t values (1)", "create table t(a)", ""})
        EXPECT_FALSE(db->HasSQLCursor(S(sql))) << sql;
    EXPECT_TRUE(db->IsSelectSQL(S("SELECT a FROM t")));
    EXPECT_FALSE(db->IsSelectSQL(S("pragma table_info(t)")));
    EXPECT_EQ(db->GetRecordCount(S("insert into t values (1)")), 0);
    EXPECT_TRUE(db->IsSimpleSelect(S("select a, b from t")));
    EXPECT_FALSE(db->IsSimpleSelect(S("select a + 1 from t")));
    EXPECT_TRUE(db->HasOrderBy(S("select a from t order by a")));
    EXPECT_EQ(db->GetTableNameFromSQL(S("select * from main.t x")), S("t"));
    EXPECT_EQ(db->GetTableCountFromSQL(S("select * from a, b")), 2);
    EXPECT_EQ(db->FixFilterExpression(S("a = NULL and b = TRUE"), {}), S("a IS NULL and b = (not 0)"));
}
