// Stored CREATE text read into definitions and written back must give a
// database of which the engine reports the same schema.
#include "CatalogueReport.h"
#include "SQLCases.h"
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"
#include "schema/DLSchemaReader.h"

#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace brindle;
using namespace brindle::test;

namespace {

class RoundTrip : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();
    }

    std::unique_ptr<TDLSQLiteDatabase> NewDatabase(const QString& name) {
        auto db = std::make_unique<TDLSQLiteDatabase>();
        db->FShowWaitCursor = false;
        db->SetFileName(dir.file(name));
        db->SetAliasName(name);
        db->CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db->Execute(QStringLiteral("pragma synchronous = off"));  // scratch files: no waiting for the disk
        return db;
    }

    TempDir dir;
};

// The rows a query gives, one line each, for comparing two databases.
QString Rows(TDLSQLiteDatabase& db, const QString& sql) {
    IRecordSetPtr rs = db.GetRecordSet(sql);
    QStringList rows;
    for (int r = 0; r < rs->GetRecordCount(); ++r) {
        QStringList cells;
        for (int c = 0; c < rs->GetNames().size(); ++c) cells << rs->GetValue(r, c);
        rows << cells.join(u'|');
    }
    return rows.join(u'\n');
}

}  // namespace

TEST_F(RoundTrip, CorpusRecreatesWhatTheEngineReports) {
    const std::vector<TSQLCase> cases = ReadSQLCases(QStringLiteral("roundtrip.txt"));
    ASSERT_GT(cases.size(), 15u);
    int n = 0;
    for (const TSQLCase& c : cases) {
        SCOPED_TRACE("roundtrip.txt:" + std::to_string(c.Line) + " " + c.Name.toStdString());
        auto original = NewDatabase(QStringLiteral("a%1.db").arg(n));
        auto copy = NewDatabase(QStringLiteral("b%1.db").arg(n++));
        // Fixture comments are no SQL comments. Probes run on both databases
        // once the copy is made: "> " ones must work and a query must give
        // the same rows in both, "! " ones must fail in both.
        QStringList input, probes;
        for (const QString& line : c.Input.split(u'\n')) {
            if (line.startsWith(u'>') || line.startsWith(u'!'))
                probes << line;
            else if (!line.startsWith(u'#'))
                input << line;
        }
        ASSERT_NO_THROW(original->Execute(input.join(u'\n')));

        const QString script = GetSchemaScript(*original);
        ASSERT_NO_THROW(copy->Execute(script)) << script.toStdString();
        QStringList expected = c.Expected;
        while (!expected.isEmpty() && expected.last().isEmpty()) expected.removeLast();
        EXPECT_EQ(ReportDifferences(CatalogueReport(*original), CatalogueReport(*copy)).join(u'\n').toStdString(),
                  expected.join(u'\n').toStdString())
            << script.toStdString();
        EXPECT_EQ(script.contains(QLatin1String("the definitions cannot carry")), c.Tags.contains(QStringLiteral("kept")))
            << script.toStdString();
        // Written text read back is written the same way again, but for
        // the numbers the engine gives its own indexes: a key written as a
        // named constraint carries its index's name.
        const QRegularExpression autoNumber(QStringLiteral("(sqlite_autoindex_.*_)\\d+"));
        EXPECT_EQ(QString(GetSchemaScript(*copy)).replace(autoNumber, QStringLiteral("\\1N")).toStdString(),
                  QString(script).replace(autoNumber, QStringLiteral("\\1N")).toStdString());

        for (const QString& probe : probes) {
            SCOPED_TRACE(probe.toStdString());
            const QString sql = probe.mid(1).trimmed();
            if (probe.startsWith(u'!')) {
                EXPECT_THROW(original->Execute(sql), ECustomException);
                EXPECT_THROW(copy->Execute(sql), ECustomException);
            } else if (sql.startsWith(QLatin1String("select"), Qt::CaseInsensitive)) {
                EXPECT_EQ(Rows(*copy, sql).toStdString(), Rows(*original, sql).toStdString());
            } else {
                EXPECT_NO_THROW(original->Execute(sql));
                EXPECT_NO_THROW(copy->Execute(sql));
            }
        }
    }
}

// A table's text with its indexes and several triggers runs as one script,
// and runs whole or not at all.
TEST_F(RoundTrip, TableWithIndexesAndTriggersIsCreatedWholeOrNotAtAll) {
    auto original = NewDatabase(QStringLiteral("whole-a.db"));
    original->Execute(QStringLiteral(
        "CREATE TABLE log (m TEXT);"
        "CREATE TABLE plan (id INTEGER PRIMARY KEY, key TEXT, total INT);"
        "CREATE INDEX plan_key ON plan (key COLLATE NOCASE DESC);"
        "CREATE TRIGGER t1 AFTER INSERT ON plan BEGIN INSERT INTO log VALUES ('i'); END;"
        "CREATE TRIGGER t2 AFTER UPDATE OF total ON plan BEGIN INSERT INTO log VALUES ('u'); END;"
        "CREATE TRIGGER t3 AFTER DELETE ON plan BEGIN INSERT INTO log VALUES ('d'); END;"));
    TDLTableDef def;
    ReadTableDef(*original, QStringLiteral("plan"), def);
    ASSERT_EQ(def.TriggerCount(), 3);

    auto copy = NewDatabase(QStringLiteral("whole-b.db"));
    copy->Execute(QStringLiteral("CREATE TABLE log (m TEXT)"));
    ASSERT_NO_THROW(CreateTable(*copy, def, true, true, true));
    EXPECT_EQ(ReportDifferences(CatalogueReport(*original), CatalogueReport(*copy)).join(u'\n').toStdString(),
              "");

    // The last statement fails: nothing of the text stays.
    def.AddTrigger(QStringLiteral("bad"),
                   QStringLiteral("CREATE TRIGGER bad AFTER INSERT ON nosuch BEGIN SELECT 1; END"));
    auto failed = NewDatabase(QStringLiteral("whole-c.db"));
    EXPECT_THROW(CreateTable(*failed, def, true, true, true), ECustomException);
    EXPECT_EQ(failed->GetStringValue(QStringLiteral("select count(*) from sqlite_master")),
              QStringLiteral("0"));
    EXPECT_FALSE(failed->GetInTransaction());
}
