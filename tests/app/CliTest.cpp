// brindle-cli run as a real process, as scripts use it.
#include "CatalogueReport.h"
#include "ChildSignal.h"
#include "CliRun.h"
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QThread>
#include <csignal>
#include <gtest/gtest.h>

namespace {

// The test's own databases ask the parser what their statements are, as the
// program does from its start.
class ParserServices : public ::testing::Environment {
public:
    void SetUp() override { brindle::InstallSQLParserServices(); }
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new ParserServices);

using Result = brindle::test::TCliRun;

Result run(const QStringList& args) {
    return brindle::test::RunCli(args, 60000);
}

TEST(Cli, InfoDescribesLibraryAndDatabase) {
    const Result r = run({QStringLiteral("info"), QStringLiteral(DEMO_DB)});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    for (const char* line : {"SQLite library: [internal]\n", "FTS4: yes\n", "R*Tree: yes\n", "Encryption: no\n",
                             "Page size: 4096\n", "Encoding: UTF-8\n", "Journal mode: delete\n", "Virtual tables: 2\n"})
        EXPECT_TRUE(r.out.contains(QString::fromLatin1(line))) << line;
    EXPECT_TRUE(r.err.isEmpty());
}

TEST(Cli, ObjectsListsOnePerLine) {
    const Result r = run({QStringLiteral("objects"), QStringLiteral(DEMO_DB)});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const QStringList lines = r.out.split(u'\n', Qt::SkipEmptyParts);
    EXPECT_TRUE(lines.contains(QStringLiteral("table\torders")));
    EXPECT_TRUE(lines.contains(QStringLiteral("virtual table\tproduct_search")));
    EXPECT_TRUE(lines.contains(QStringLiteral("shadow table\tproduct_search_content")));
    EXPECT_TRUE(lines.contains(QStringLiteral("view\torder_details")));
    EXPECT_TRUE(lines.filter(QStringLiteral("trigger\t")).size() > 5);
}

TEST(Cli, FailuresGoToStderrWithTheProgramsMessage) {
    brindle::test::TempDir dir;
    const QString missing = dir.file(QStringLiteral("missing.db"));
    Result r = run({QStringLiteral("info"), missing});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.trimmed(), QStringLiteral("File %1 does not exist").arg(missing));
    EXPECT_TRUE(r.out.isEmpty());

    const QString text = dir.write(QStringLiteral("notes.txt"), QByteArray(2048, 'n'));
    r = run({QStringLiteral("objects"), text});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.startsWith(QStringLiteral("file is not a database\n"))) << r.err.toStdString();

    r = run({QStringLiteral("--library"), QStringLiteral("/nonexistent/libsqlite3.so"), QStringLiteral("info"),
             QStringLiteral(DEMO_DB)});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.startsWith(QStringLiteral("Could not load SQLite library: /nonexistent/libsqlite3.so")));

    EXPECT_EQ(run({QStringLiteral("frobnicate")}).code, 2);
    EXPECT_EQ(run({QStringLiteral("info")}).code, 2);
}

TEST(Cli, OutsideLibraryWithKeyReadsAnEncryptedFile) {
    brindle::test::TempDir dir;
    const QString path = dir.file(QStringLiteral("secret.db"));
    ASSERT_TRUE(brindle::SQLite3Driver->sqlite3drv_load_library(QStringLiteral("libsqlcipher.so.0")));
    {
        brindle::TDLSQLiteDatabase db;
        db.SetFileName(path);
        db.CreateDatabase(0, 1024, QString(), QStringLiteral("k"));
        db.Execute(QStringLiteral("create table t(a)"));
    }
    brindle::SQLite3Driver->sqlite3drv_unload_library();

    const QStringList cipher{QStringLiteral("--library"), QStringLiteral("libsqlcipher.so.0")};
    Result r = run(cipher + QStringList{QStringLiteral("--key"), QStringLiteral("k"), QStringLiteral("objects"), path});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QStringLiteral("table\tt\n"));
    r = run(cipher + QStringList{QStringLiteral("--key"), QStringLiteral("bad"), QStringLiteral("info"), path});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.trimmed(),
              QStringLiteral("File is encrypted or not a SQLite3 database or encryption key does not match"));
    r = run({QStringLiteral("--key"), QStringLiteral("k"), QStringLiteral("info"), path});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.trimmed(), QStringLiteral("SQLite library does not support encryption."));
}

// The script runs as it stands in the engine's own shell, and what it made
// has the catalogue of the database it was written from.
void ExpectSchemaRunsBackThroughTheShell(const QString& sourcePath, const QString& script) {
    brindle::test::TempDir dir;
    const QString copyPath = dir.file(QStringLiteral("copy.db"));
    QProcess shell;
    shell.start(QStringLiteral("sqlite3"), {QStringLiteral("-bail"), copyPath});
    ASSERT_TRUE(shell.waitForStarted());
    shell.write(script.toUtf8());
    shell.closeWriteChannel();
    ASSERT_TRUE(shell.waitForFinished(60000));
    ASSERT_EQ(shell.exitCode(), 0) << shell.readAllStandardError().toStdString() << script.toStdString();

    ASSERT_TRUE(brindle::SQLite3Driver->sqlite3drv_load_library(brindle::SQLITE_INTERNAL_LIB));
    QStringList reports[2];
    int k = 0;
    for (const QString& path : {sourcePath, copyPath}) {
        brindle::TDLSQLiteDatabase db;
        db.FShowWaitCursor = false;
        db.SetFileName(path);
        db.SetReadOnly(true);
        db.SetConnected(true);
        reports[k++] = brindle::test::CatalogueReport(db);
    }
    brindle::SQLite3Driver->sqlite3drv_unload_library();
    EXPECT_EQ(brindle::test::ReportDifferences(reports[0], reports[1]).join(u'\n').toStdString(), "")
        << script.toStdString();
}

// The script runs as it stands in the engine's own shell and recreates the
// demo database's schema.
TEST(Cli, SchemaRecreatesTheDemoDatabase) {
    const Result r = run({QStringLiteral("schema"), QStringLiteral(DEMO_DB)});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_FALSE(r.out.contains(u'\r'));
    // Each kind in its turn, objects the engine makes left out.
    const qsizetype table = r.out.indexOf(QLatin1String("CREATE TABLE [orders]"));
    const qsizetype index = r.out.indexOf(QLatin1String("CREATE INDEX [orders_open_idx]"));
    const qsizetype view = r.out.indexOf(QLatin1String("CREATE VIEW [order_details]"));
    const qsizetype trigger = r.out.indexOf(QLatin1String("CREATE TRIGGER [customers_touch]"));
    EXPECT_TRUE(table >= 0 && table < index && index < view && view < trigger) << r.out.toStdString();
    EXPECT_TRUE(r.out.contains(QLatin1String("CREATE VIRTUAL TABLE [product_search] USING fts4")));
    EXPECT_FALSE(r.out.contains(QLatin1String("product_search_content")));
    EXPECT_FALSE(r.out.contains(QLatin1String("TABLE [sqlite_")));
    EXPECT_TRUE(r.out.contains(QLatin1String("-- customers_name_idx: the definitions cannot carry an expression")));

    ExpectSchemaRunsBackThroughTheShell(QStringLiteral(DEMO_DB), r.out);
}

// Names the engine takes although they are keywords, in every place a
// schema has names: tables, columns, indexes, triggers, views, the columns
// of UPDATE OF, collations and orders of index columns.
TEST(Cli, SchemaOfKeywordNamesRecreatesTheDatabase) {
    brindle::test::TempDir dir;
    const QString path = dir.file(QStringLiteral("keywords.db"));
    ASSERT_TRUE(brindle::SQLite3Driver->sqlite3drv_load_library(brindle::SQLITE_INTERNAL_LIB));
    {
        brindle::TDLSQLiteDatabase db;
        db.FShowWaitCursor = false;
        db.SetFileName(path);
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db.Execute(QStringLiteral(R"sql(
CREATE TABLE plan (key INTEGER PRIMARY KEY DESC, total REAL, row INT, action TEXT COLLATE NOCASE, "end" TEXT,
                   query TEXT DEFAULT ('a' || 'b'), temp INT, match TEXT, replace TEXT, desc TEXT);
CREATE TABLE "window" (filter INT, count INT, key TEXT REFERENCES plan (key), PRIMARY KEY (filter, count)) WITHOUT ROWID;
CREATE UNIQUE INDEX key ON plan (action COLLATE BINARY DESC, total);
CREATE INDEX row ON plan (row DESC, match COLLATE NOCASE, replace);
CREATE INDEX "window.filter" ON "window" (key) WHERE key IS NOT NULL;
CREATE TABLE log (m TEXT);
CREATE TRIGGER action AFTER UPDATE OF total, row ON plan BEGIN INSERT INTO log VALUES ('a'); END;
CREATE TRIGGER "plan" BEFORE UPDATE OF temp ON main.plan WHEN new.end IS NOT NULL BEGIN SELECT 1; END;
CREATE TRIGGER query AFTER DELETE ON "window" FOR EACH ROW BEGIN DELETE FROM plan WHERE key = old.key; END;
CREATE VIEW total AS SELECT key, total, row FROM plan -- keyword columns
;
CREATE TRIGGER match INSTEAD OF INSERT ON total BEGIN INSERT INTO plan (total) VALUES (new.total); END;
)sql"));
    }
    brindle::SQLite3Driver->sqlite3drv_unload_library();
    const Result r = run({QStringLiteral("schema"), path});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    ExpectSchemaRunsBackThroughTheShell(path, r.out);
}

TEST(Cli, SchemaOfOneObject) {
    Result r = run({QStringLiteral("schema"), QStringLiteral(DEMO_DB), QStringLiteral("TAGS")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.startsWith(QLatin1String("CREATE TABLE [tags] (\n  [tag_id] INTEGER PRIMARY KEY, \n")))
        << r.out.toStdString();
    EXPECT_EQ(r.out.count(QLatin1String("CREATE ")), 1);
    r = run({QStringLiteral("schema"), QStringLiteral(DEMO_DB), QStringLiteral("no_such_thing")});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.trimmed(), QStringLiteral("Object not found: no_such_thing"));
}

// The whole demo tree: every table once in its group with the engine's own
// count, every view, index and trigger under its owner, the same text at
// every run.
TEST(Cli, TreePrintsTheWholeDemoDatabaseWithRecordCounts) {
    const Result r = run({QStringLiteral("tree"), QStringLiteral(DEMO_DB)});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.isEmpty());
    EXPECT_FALSE(r.out.contains(u'\r'));
    EXPECT_TRUE(r.out.startsWith(QLatin1String("main\n  tables\n")));
    EXPECT_EQ(run({QStringLiteral("tree"), QStringLiteral(DEMO_DB)}).out, r.out);
    const qsizetype tables = r.out.indexOf(QLatin1String("\n  tables\n"));
    const qsizetype virtualTables = r.out.indexOf(QLatin1String("\n  virtual tables\n"));
    const qsizetype shadowTables = r.out.indexOf(QLatin1String("\n  shadow tables\n"));
    const qsizetype views = r.out.indexOf(QLatin1String("\n  views\n"));
    EXPECT_TRUE(tables < virtualTables && virtualTables < shadowTables && shadowTables < views);

    ASSERT_TRUE(brindle::SQLite3Driver->sqlite3drv_load_library(brindle::SQLITE_INTERNAL_LIB));
    {
        brindle::TDLSQLiteDatabase db;
        db.FShowWaitCursor = false;
        db.SetFileName(QStringLiteral(DEMO_DB));
        db.SetReadOnly(true);
        db.SetConnected(true);
        brindle::IRecordSetPtr objects = db.GetRecordSet(QStringLiteral(
            "select type, name, sql from sqlite_master where name not like 'sqlite\\_%' escape '\\' "
            "and type <> 'index' or type = 'index' and sql is not null"));
        ASSERT_GT(objects->GetRecordCount(), 60);
        for (int i = 0; i < objects->GetRecordCount(); ++i) {
            const QString type = objects->GetValue(i, 0), name = objects->GetValue(i, 1);
            SCOPED_TRACE(name.toStdString());
            if (type == u"table") {
                const QString count = db.GetStringValue(QStringLiteral("select count(*) from \"%1\"").arg(name));
                const QString head = QStringLiteral("\n    %1 (%2)").arg(name, count);
                EXPECT_EQ(r.out.count(head + u'\n') + r.out.count(head + u' '), 1);
                const bool isVirtual = objects->GetValue(i, 2).startsWith(QLatin1String("CREATE VIRTUAL"));
                const qsizetype at = r.out.indexOf(head);
                EXPECT_TRUE(isVirtual ? at > virtualTables && at < shadowTables : at < virtualTables || at > shadowTables);
            } else if (type == u"view") {
                EXPECT_EQ(r.out.count(QStringLiteral("\n    %1\n").arg(name)), 1);
                EXPECT_GT(r.out.indexOf(QStringLiteral("\n    %1\n").arg(name)), views);
            } else {
                EXPECT_EQ(r.out.count(QStringLiteral("\n        %1 ").arg(name)), 1);
            }
        }
        const QString tags = db.GetStringValue(QStringLiteral("select count(*) from product_tags"));
        EXPECT_TRUE(r.out.contains(QStringLiteral(
            "\n    product_tags (%1) WITHOUT ROWID\n"
            "      columns\n"
            "        product_id INTEGER PRIMARY KEY (1 of 2) NOT NULL\n"
            "        tag_id INTEGER PRIMARY KEY (2 of 2) NOT NULL\n"
            "      indexes\n"
            "        sqlite_autoindex_product_tags_1 PRIMARY KEY (product_id, tag_id)\n"
            "        product_tags_tag_idx (tag_id)\n"
            "      foreign keys\n"
            "        (product_id) REFERENCES products (product_id) ON DELETE CASCADE ON UPDATE CASCADE\n"
            "        (tag_id) REFERENCES tags (tag_id) ON DELETE CASCADE\n"
            "    products (").arg(tags)))
            << r.out.toStdString();
    }
    brindle::SQLite3Driver->sqlite3drv_unload_library();
    for (const char* line : {"\n        order_id INTEGER PRIMARY KEY AUTOINCREMENT\n",
                             "\n        orders_open_idx (order_date) WHERE status IN ('new', 'paid')\n",
                             "\n        customers_name_idx (lower(last_name), lower(first_name))\n",
                             "\n        orders_status_audit AFTER UPDATE OF status\n",
                             "\n        product_catalog_insert INSTEAD OF INSERT\n",
                             "\n      referenced by\n        products (category_id)\n",
                             "\n      depends on\n        order_totals\n"})
        EXPECT_TRUE(r.out.contains(QLatin1String(line))) << line;
}

TEST(Cli, QueryWritesTheLastSelectAsCsv) {
    Result r = run({QStringLiteral("query"), QStringLiteral(DEMO_DB),
                    QStringLiteral("select null as a, '' as b, 'x,y' as c, 'say \"hi\"' as d, 1.5 as e, "
                                   "x'00ff' as f, -7 as g")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QStringLiteral("a,b,c,d,e,f,g\n,\"\",\"x,y\",\"say \"\"hi\"\"\",1.5,00ff,-7\n"));

    r = run({QStringLiteral("query"), QStringLiteral(DEMO_DB),
             QStringLiteral("select count(*) as n from orders; select code from countries order by code limit 2")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out.count(u'\n'), 3);
    EXPECT_TRUE(r.out.startsWith(QLatin1String("code\n")));

    r = run({QStringLiteral("query"), QStringLiteral(DEMO_DB), QStringLiteral("select * frm orders")});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains(QLatin1String("syntax error"))) << r.err.toStdString();

    // The columns the statement selects, and nothing for a text without one.
    r = run({QStringLiteral("query"), QStringLiteral(DEMO_DB), QStringLiteral("select * from countries limit 1")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_FALSE(r.out.contains(QLatin1String("rowid"))) << r.out.toStdString();
    r = run({QStringLiteral("query"), QStringLiteral(DEMO_DB), QStringLiteral("-- c")});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.isEmpty());

    // Values as stored: a REAL to its last bit, text that looks like a
    // number, an integer beyond 32 bits, UTF-8 beyond ASCII.
    r = run({QStringLiteral("query"), QStringLiteral(DEMO_DB),
             QStringLiteral("select 0.1 + 0.2 as r, '007' as t, 9007199254740993 as i, 'Grüße 世界' as u")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QStringLiteral("r,t,i,u\n0.30000000000000004,007,9007199254740993,Grüße 世界\n"));
}

TEST(Cli, QueryStopsOnInterruptAndLeavesNoTransaction) {
    brindle::test::TempDir dir;
    const QString path = dir.file(QStringLiteral("long.db"));
    QProcess setup;
    setup.start(QStringLiteral("sqlite3"), {path, QStringLiteral("create table t(a)")});
    ASSERT_TRUE(setup.waitForFinished(30000));
    QProcess p;
    p.start(QStringLiteral(BRINDLE_CLI),
            {QStringLiteral("query"), path,
             QStringLiteral("begin; insert into t values (1); "
                            "with recursive c(x) as (select 1 union all select x + 1 from c) select count(*) from c")});
    ASSERT_TRUE(p.waitForStarted());
    QThread::msleep(1500);
    ASSERT_TRUE(brindle::test::SignalChild(p, SIGINT));
    ASSERT_TRUE(p.waitForFinished(20000));
    EXPECT_EQ(p.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.exitCode(), 1);
    EXPECT_EQ(QString::fromUtf8(p.readAllStandardError()).trimmed(), QStringLiteral("interrupted"));
    QProcess check;
    check.start(QStringLiteral("sqlite3"), {path, QStringLiteral("select count(*) from t")});
    ASSERT_TRUE(check.waitForFinished(30000));
    EXPECT_EQ(QString::fromUtf8(check.readAllStandardOutput()).trimmed(), QStringLiteral("0"));
}

// A script as the SQL tab runs it: dot lines, parameters from the command
// line, the last SELECT's rows on stdout, the counts and time on stderr, and
// a failure that keeps what ran before it.
TEST(Cli, ExecRunsAScriptAsTheSQLTabDoes) {
    brindle::test::TempDir dir;
    const QString db = dir.file(QStringLiteral("new.db"));
    const QString script = dir.write(QStringLiteral("s.sql"),
                                     "create table t(\"key\" integer primary key, total);\r\n"
                                     "insert into t(total) values (1.5), ('007');\r\n"
                                     ".SET PARAM :k = 2\r\n"
                                     "select \"key\", total, typeof(total) from t where \"key\" <= :k and :who is not null;\r\n");
    Result r = run({QStringLiteral("exec"), db, script, QStringLiteral("--param"), QStringLiteral("who=me")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QStringLiteral("key,total,typeof(total)\n1,1.5,real\n2,007,text\n"));
    EXPECT_TRUE(r.err.startsWith(QLatin1String("2 rows affected, 2 total\nQuery executed in "))) << r.err.toStdString();

    r = run({QStringLiteral("exec"), db, dir.write(QStringLiteral("p.sql"), "select :who")});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains(QLatin1String("Missing parameter value: :who"))) << r.err.toStdString();

    const QString failing = dir.write(QStringLiteral("f.sql"),
                                      "insert into t(total) values ('kept');\n"
                                      "insert into missing values (1);\n"
                                      "insert into t(total) values ('never');\n");
    r = run({QStringLiteral("exec"), db, failing});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains(QLatin1String("no such table: missing\n\nSQL Statement:\n\ninsert into missing values (1)")))
        << r.err.toStdString();
    r = run({QStringLiteral("query"), db, QStringLiteral("select group_concat(total, '/') from t")});
    EXPECT_EQ(r.out.section(u'\n', 1, 1), QStringLiteral("1.5/007/kept"));

    r = run({QStringLiteral("exec"), db, dir.write(QStringLiteral("d.sql"), ".tables\n")});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains(QLatin1String("Extended syntax error")));
    // UTF-16 by its mark, with half a surrogate pair: nothing can read it.
    r = run({QStringLiteral("exec"), db, dir.write(QStringLiteral("bad.sql"), QByteArray("\xff\xfes\x00\x00\xd8 \x00", 8))});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains(QLatin1String("bad.sql"))) << r.err.toStdString();
}

TEST(Cli, ExecStopsOnInterruptBeforeTheNextStatement) {
    brindle::test::TempDir dir;
    const QString path = dir.file(QStringLiteral("long.db"));
    QProcess p;
    p.start(QStringLiteral(BRINDLE_CLI), {QStringLiteral("exec"), path, QStringLiteral("-")});
    ASSERT_TRUE(p.waitForStarted());
    p.write("create table t(a); insert into t values (1);\n"
            "update t set a = (with recursive c(x) as (select 1 union all select x + 1 from c) select count(*) from c);\n"
            "insert into t values (2);\n");
    ASSERT_TRUE(p.waitForBytesWritten(10000));
    p.closeWriteChannel();
    QThread::msleep(1500);
    ASSERT_TRUE(brindle::test::SignalChild(p, SIGINT));
    ASSERT_TRUE(p.waitForFinished(20000));
    EXPECT_EQ(p.exitCode(), 1);
    const QString err = QString::fromUtf8(p.readAllStandardError());
    EXPECT_TRUE(err.contains(QLatin1String("Query aborted after "))) << err.toStdString();
    const Result r = run({QStringLiteral("query"), path, QStringLiteral("select group_concat(a) from t")});
    EXPECT_EQ(r.out.section(u'\n', 1, 1), QStringLiteral("1"));
}

// The test's own engine, for the time of one test.
struct TEngine {
    TEngine() { EXPECT_TRUE(brindle::SQLite3Driver->sqlite3drv_load_library(brindle::SQLITE_INTERNAL_LIB)); }
    ~TEngine() { brindle::SQLite3Driver->sqlite3drv_unload_library(); }
};

// Sorted lines of a query over a file, through the engine, not the tool.
QStringList values(const QString& file, const QString& sql) {
    brindle::TDLSQLiteDatabase db;
    db.FShowWaitCursor = false;
    db.SetFileName(file);
    db.SetConnected(true);
    QStringList list;
    db.GetValues(sql, list);
    return list;
}

TEST(Cli, AlterChangesTheTableAsTheDesignPageDoes) {
    TEngine engine;
    brindle::test::TempDir dir;
    const QString file = dir.file(QStringLiteral("a.db"));
    {
        brindle::TDLSQLiteDatabase db;
        db.FShowWaitCursor = false;
        db.SetFileName(file);
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db.Execute(QStringLiteral(
            "create table \"order\"(id integer primary key, \"key\" text, total real, plan text);"
            "create table line(id integer primary key, order_id references \"order\"(id) on delete cascade);"
            "create index order_plan on \"order\"(plan);"
            "insert into \"order\" values (1, 'a', 0.1, 'p'), (2, 'b', 1e300, null);"
            "insert into line values (1, 1), (2, 2)"));
    }
    const QStringList rows = values(file, QStringLiteral("select quote(id) || quote(total) from \"order\""));
    Result r = run({QStringLiteral("alter"), file, QStringLiteral("order"), QStringLiteral("--rename-column"),
                    QStringLiteral("total=amount"), QStringLiteral("--drop-column"), QStringLiteral("key"),
                    QStringLiteral("--add-column"), QStringLiteral("\"match\" text not null default 'm'"),
                    QStringLiteral("--move-column"), QStringLiteral("match=1")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QStringLiteral("Records before: 2\nRecords after: 2\n"));
    EXPECT_EQ(values(file, QStringLiteral("select group_concat(name) from pragma_table_info('order')")),
              QStringList({"match,id,amount,plan"}));
    EXPECT_EQ(values(file, QStringLiteral("select quote(id) || quote(amount) from \"order\"")), rows);
    EXPECT_EQ(values(file, QStringLiteral("select \"table\" from pragma_foreign_key_list('line')")),
              QStringList({"order"}));

    // --sql prints what it would run and changes nothing.
    const QStringList catalogue = values(file, QStringLiteral("select sql from sqlite_master order by name"));
    r = run({QStringLiteral("alter"), file, QStringLiteral("order"), QStringLiteral("--sql")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains(QLatin1String("insert into [main].[order]([match],[id],[amount],[plan]) select "
                                             "[match],[id],[amount],[plan] from [main].[temp_table_")))
        << r.out.toStdString();
    EXPECT_EQ(values(file, QStringLiteral("select sql from sqlite_master order by name")), catalogue);

    // Refusals: exit 1 with the message, and the file as it was.
    const struct {
        QStringList Args;
        const char* Message;
    } refusals[] = {
        {{"--rename-column", "id=ident"}, "Current field cannot be renamed due to external references."},
        {{"--drop-column", "plan"}, "Field [plan] referenced by index [order_plan] does not exist"},
        {{"--add-column", "extra text not null"}, "NOT NULL constraint failed"},
        {{"--add-column", "amount"}, "duplicate column name"},
        {{"--drop-column", "nothing"}, "No column named nothing"},
        {{"--rename-table", "line"}, "there is already another table or index with this name: line"},
    };
    for (const auto& refusal : refusals) {
        r = run(QStringList({QStringLiteral("alter"), file, QStringLiteral("order")}) + refusal.Args);
        EXPECT_EQ(r.code, 1) << refusal.Message;
        EXPECT_TRUE(r.err.contains(QString::fromUtf8(refusal.Message))) << r.err.toStdString();
        EXPECT_EQ(values(file, QStringLiteral("select sql from sqlite_master order by name")), catalogue);
    }
    r = run({QStringLiteral("alter"), file, QStringLiteral("order"), QStringLiteral("--rename-table"),
             QStringLiteral("Orders"), QStringLiteral("--drop-column"), QStringLiteral("match")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(values(file, QStringLiteral("select \"table\" from pragma_foreign_key_list('line')")),
              QStringList({"Orders"}));
}

// A rebuild killed at any moment leaves the file whole: the table in its
// old form or its new, every row there.
TEST(Cli, AlterKilledAtRandomMomentsLeavesTheTableWhole) {
    TEngine engine;
    brindle::test::TempDir dir;
    const QString master = dir.file(QStringLiteral("big.db"));
    {
        brindle::TDLSQLiteDatabase db;
        db.FShowWaitCursor = false;
        db.SetFileName(master);
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        QFile fixture(QStringLiteral(BRINDLE_TEST_DATA "/alter/big.sql"));
        ASSERT_TRUE(fixture.open(QIODevice::ReadOnly));
        db.Execute(QString::fromUtf8(fixture.readAll()));
    }
    const QStringList args = {QStringLiteral("alter"), QString(), QStringLiteral("big"),
                              QStringLiteral("--rename-column"), QStringLiteral("amount=price")};
    auto check = [&](const QString& file) {
        EXPECT_EQ(values(file, QStringLiteral("pragma integrity_check")), QStringList({"ok"}));
        EXPECT_EQ(values(file, QStringLiteral("select count(*) || '/' || sum(id) || '/' || count(note) from big")),
                  QStringList({"1000000/500000500000/857143"}));
        const QStringList columns = values(file, QStringLiteral("select group_concat(name) from pragma_table_info('big')"));
        EXPECT_TRUE(columns == QStringList({"id,code,amount,qty,note"}) ||
                    columns == QStringList({"id,code,price,qty,note"}))
            << columns.join(u' ').toStdString();
        EXPECT_EQ(values(file, QStringLiteral("select count(*) from sqlite_master where type = 'index' or "
                                              "type = 'trigger' or name like 'temp_table%'")),
                  QStringList({"4"}));
        EXPECT_EQ(values(file, QStringLiteral("select count(*) from big_view")), QStringList({"10000"}));
        return columns.value(0).contains(QLatin1String("price"));
    };
    // A whole run first, for its length.
    const QString whole = dir.file(QStringLiteral("whole.db"));
    ASSERT_TRUE(QFile::copy(master, whole));
    QElapsedTimer timer;
    timer.start();
    QStringList a = args;
    a[1] = whole;
    const Result done = run(a);
    const qint64 length = timer.elapsed();
    ASSERT_EQ(done.code, 0) << done.err.toStdString();
    EXPECT_TRUE(check(whole));

    int newForms = 0;
    for (int k = 0; k < 10; ++k) {
        const QString file = dir.file(QStringLiteral("k%1.db").arg(k));
        QFile::remove(file);
        ASSERT_TRUE(QFile::copy(master, file));
        a[1] = file;
        QProcess p;
        p.start(QStringLiteral(BRINDLE_CLI), a);
        ASSERT_TRUE(p.waitForStarted());
        const int at = QRandomGenerator::global()->bounded(static_cast<int>(length) + 1);
        p.waitForFinished(at);
        brindle::test::SignalChild(p, SIGKILL);
        p.waitForFinished(10000);
        SCOPED_TRACE("killed after " + std::to_string(at) + " ms of " + std::to_string(length));
        newForms += check(file) ? 1 : 0;
        QFile::remove(file);
    }
    RecordProperty("new_forms", newForms);
}

// Text in and out by the same classes the dialogs use: a new table with
// detected types, an export that reads back as the same values, and
// refusals that leave the database as it was.
TEST(Cli, ImportThenExportGivesTheSameText) {
    TEngine engine;
    brindle::test::TempDir dir;
    const QString db = dir.file(QStringLiteral("text.db"));
    const QByteArray csv =
        "id,code,price,note,data\r\n"
        "1,007,2.5,\"a, \"\"b\"\"\",x'00FF'\r\n"
        "2,010,3.0,,\r\n"
        "3,12,-1000.0,\"\",x''\r\n"
        "4,9,0.30000000000000004,\"two\r\nlines\",\r\n";
    const QString source = dir.write(QStringLiteral("items.csv"), csv);
    Result r = run({QStringLiteral("import"), db, QStringLiteral("items"), source});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QStringLiteral("4 rows imported into items (a new table)\n"));
    EXPECT_EQ(
        values(db, QStringLiteral(
                       "select typeof(id) || typeof(code) || typeof(price) || coalesce(typeof(note), '') "
                       "|| typeof(data) from items where id = 1")),
        QStringList({"integertextrealtextblob"}));

    const QString back = dir.file(QStringLiteral("back.csv"));
    r = run({QStringLiteral("export"), db, QStringLiteral("items"), back});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QStringLiteral("4 rows exported to %1\n").arg(back));
    EXPECT_EQ(brindle::test::readFile(back), csv);

    // UTF-16 with its mark, read back without being told.
    const QString wide = dir.file(QStringLiteral("wide.csv"));
    r = run({QStringLiteral("export"), db, QStringLiteral("--sql"),
             QStringLiteral("select code, note from items"), wide, QStringLiteral("--encoding"),
             QStringLiteral("UTF-16BE")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(brindle::test::readFile(wide).startsWith("\xFE\xFF\0c"));
    r = run({QStringLiteral("import"), db, QStringLiteral("again"), wide});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(values(db, QStringLiteral("select count(*) from items join again using (code) where "
                                        "items.note is again.note")),
              QStringList({"4"}));
}

TEST(Cli, ImportRefusalsLeaveTheFileAsItWas) {
    TEngine engine;
    brindle::test::TempDir dir;
    const QString db = dir.file(QStringLiteral("keep.db"));
    {
        brindle::TDLSQLiteDatabase d;
        d.FShowWaitCursor = false;
        d.SetFileName(db);
        d.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        d.Execute(QStringLiteral("create table t(a text, b integer); insert into t values ('kept', 1)"));
    }
    const QByteArray before = brindle::test::readFile(db);
    const struct {
        QByteArray Text;
        QStringList Options;
        const char* Message;
    } cases[] = {
        {"a,c\n1,2\n",
         {},
         "The table t has no column named \"c\" for the file's column 2; its columns are: a, b."},
        {"a,b\nx,1\ny,2,3\n", {}, "Line 3: The row has 3 values, but there are 2 columns."},
        {"", {}, "The file holds no rows to import."},
        {"a;b\nx;\xE9\n",
         {QStringLiteral("--encoding"), QStringLiteral("utf-8")},
         "The text is not valid UTF-8: invalid bytes at byte offset 6 (line 2)."},
        {"a|b\nx|\"y\n",
         {QStringLiteral("--replace")},
         "Line 2: CSV parser error: the quoted value that begins on line 2 is never closed."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Message);
        const QString source = dir.write(QStringLiteral("bad.csv"), c.Text);
        const Result r =
            run(QStringList{QStringLiteral("import"), db, QStringLiteral("t"), source} + c.Options);
        EXPECT_EQ(r.code, 1);
        EXPECT_EQ(r.err.trimmed(), QString::fromUtf8(c.Message));
        EXPECT_EQ(brindle::test::readFile(db), before);
    }
    // A database made for an import that fails is not left behind.
    const QString fresh = dir.file(QStringLiteral("fresh.db"));
    EXPECT_EQ(
        run({QStringLiteral("import"), fresh, QStringLiteral("t"), dir.write(QStringLiteral("e.csv"), "")})
            .code,
        1);
    EXPECT_FALSE(QFile::exists(fresh));
    EXPECT_EQ(
        run({QStringLiteral("export"), db, QStringLiteral("missing"), dir.file(QStringLiteral("o.csv"))}).err,
        QStringLiteral("No table named missing\n"));
    EXPECT_EQ(run({QStringLiteral("export"), db, QStringLiteral("t")}).code, 2);
    EXPECT_EQ(run({QStringLiteral("export"), db, QStringLiteral("--sql"), QStringLiteral("delete from t"),
                   dir.file(QStringLiteral("o.csv"))})
                  .err,
              QStringLiteral("Only a SELECT (or a PRAGMA or EXPLAIN) can be exported.\n"));
    EXPECT_EQ(brindle::test::readFile(db), before);
}

// Ctrl+C in the middle of a long import: the rows so far are rolled back
// and the file is byte for byte what it was.
TEST(Cli, ImportStopsOnInterruptAndRollsBack) {
    TEngine engine;
    brindle::test::TempDir dir;
    const QString db = dir.file(QStringLiteral("big.db"));
    {
        brindle::TDLSQLiteDatabase d;
        d.FShowWaitCursor = false;
        d.SetFileName(db);
        d.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        d.Execute(
            QStringLiteral("create table t(id integer, name text, amount real); "
                           "insert into t values (0, 'before', 0.5)"));
    }
    const QByteArray before = brindle::test::readFile(db);
    QByteArray csv = "id,name,amount\n";
    csv.reserve(120'000'000);
    for (int i = 1; i <= 4'000'000; ++i)
        csv += QByteArray::number(i) + ",name " + QByteArray::number(i % 977) + ",1.25\n";
    const QString source = dir.write(QStringLiteral("big.csv"), csv);
    csv.clear();
    QProcess p;
    p.start(QStringLiteral(BRINDLE_CLI), {QStringLiteral("import"), db, QStringLiteral("t"), source});
    ASSERT_TRUE(p.waitForStarted());
    QThread::msleep(1500);
    ASSERT_TRUE(brindle::test::SignalChild(p, SIGINT)) << "the import ended before the signal";
    ASSERT_TRUE(p.waitForFinished(60000));
    EXPECT_EQ(p.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(p.exitCode(), 1);
    EXPECT_EQ(QString::fromUtf8(p.readAllStandardError()).trimmed(), QStringLiteral("interrupted"));
    EXPECT_EQ(brindle::test::readFile(db), before);
    EXPECT_FALSE(QFile::exists(db + QStringLiteral("-journal")));
}

}  // namespace
