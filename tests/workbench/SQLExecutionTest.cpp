// Runs of a SQL tab's text through TSQLRunner: the cases of
// tests/fixtures/run/scripts.txt, the stop of a long statement from a timer,
// and the typed-value ladder.
#include "QtPrinters.h"
#include "TempDir.h"

#include "data/DLQuery.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteParser.h"
#include "workbench/Caches.h"
#include "workbench/SQLExecution.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTimer>
#include <gtest/gtest.h>

using namespace brindle;
using namespace brindle::test;

namespace {

struct TRunCase {
    QString Name;
    QString Setup;
    QString Script;
    QStringList Answers;
    QList<std::pair<QString, QString>> Expect;
};

std::vector<TRunCase> ReadCases(const QString& FileName) {
    QFile f(FileName);
    if (!f.open(QIODevice::ReadOnly)) return {};
    std::vector<TRunCase> cases;
    QString section;
    for (const QString& line : QString::fromUtf8(f.readAll()).split(u'\n')) {
        if (line.startsWith(QLatin1String("==="))) {
            cases.push_back({line.mid(3).trimmed(), {}, {}, {}, {}});
            section.clear();
            continue;
        }
        if (cases.empty() || (section.isEmpty() && line.startsWith(u'#'))) continue;
        if (line.startsWith(u'@')) {
            section = line.mid(1).trimmed();
            continue;
        }
        TRunCase& c = cases.back();
        if (section == QLatin1String("setup")) c.Setup += line + u'\n';
        if (section == QLatin1String("script")) c.Script += (c.Script.isEmpty() ? QString() : QStringLiteral("\r\n")) + line;
        if (section == QLatin1String("answers") && !line.trimmed().isEmpty()) c.Answers << line.trimmed();
        if (section == QLatin1String("expect") && !line.trimmed().isEmpty()) {
            const int colon = line.indexOf(u':');
            c.Expect.push_back({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
        }
    }
    for (TRunCase& c : cases) c.Script = c.Script.trimmed();
    return cases;
}

QString ValueText(const QVariant& v) {
    if (!v.isValid() || v.isNull()) return QStringLiteral("(null)");
    if (v.typeId() == QMetaType::QByteArray) return QString::fromLatin1(v.toByteArray());
    return v.toString();
}

class SQLExecutionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();
    }

    void SetUp() override {
        db.FShowWaitCursor = false;
        db.SetAliasName(QStringLiteral("demo"));
        db.SetFileName(dir.file(QStringLiteral("run.db")));
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        runner.FHistory = &history;
        runner.FParamCache = &cache;
    }

    QStringList GridRows() {
        QStringList rows;
        if (!query.Active()) return rows;
        for (query.First(); !query.Eof(); query.Next()) {
            QStringList cells;
            for (int i = 0; i < query.Fields().Count(); ++i) {
                const TField& f = query.Fields()[i];
                if (!f.FVisible || f.FieldName().startsWith(QLatin1String("brindle__"))) continue;
                cells << ValueText(query.GetFieldValue(f));
            }
            rows << cells.join(u'|');
        }
        return rows;
    }

    QString FirstValues(const QString& SQL) {
        TDLQuery q;
        q.SetDatabase(&db);
        q.FAllowPreprocess = false;
        q.SetSQL(SQL);
        q.Open();
        QStringList values;
        for (q.First(); !q.Eof(); q.Next()) values << ValueText(q.GetFieldValue(q.Fields()[0]));
        return values.join(u'|');
    }

    TempDir dir;
    TDLSQLiteDatabase db;
    TDLQuery query;
    TSQLRunner runner{query};
    TDBCache history;
    TParamCache cache;
};

TEST_F(SQLExecutionTest, ScriptsOfTheFixture) {
    const auto cases = ReadCases(QStringLiteral(BRINDLE_TEST_DATA "/run/scripts.txt"));
    ASSERT_GT(cases.size(), 15u);
    for (const TRunCase& c : cases) {
        SCOPED_TRACE(c.Name.toStdString());
        TempDir caseDir;
        query.Close();
        db.SetConnected(false);
        db.SetFileName(caseDir.file(QStringLiteral("case.db")));
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        if (!c.Setup.trimmed().isEmpty()) db.Execute(c.Setup);
        history = TDBCache();
        cache.clear();

        QStringList prompted;
        int answer = 0;
        runner.FOnMissingParameter = [&](const QString& Name, QString& Value) {
            prompted << Name;
            if (answer >= c.Answers.size()) return false;
            const QString a = c.Answers[answer++];
            if (a == QLatin1String("cancel")) return false;
            EXPECT_EQ(a.section(u'=', 0, 0), Name);
            Value = a.section(u'=', 1);
            return true;
        };
        const TSQLRunOutcome out = runner.ExecuteSQL(&db, c.Script);
        EXPECT_TRUE(out.Ran);

        QStringList grid;
        bool gridNamed = false;
        for (const auto& [key, value] : c.Expect) {
            if (key == QLatin1String("grid")) {
                gridNamed = true;
                if (value != QLatin1String("none")) grid << value;
            } else if (key == QLatin1String("affected")) {
                EXPECT_EQ(out.RowsAffected, value);
            } else if (key == QLatin1String("label")) {
                EXPECT_EQ(out.EditableLabel, value);
            } else if (key == QLatin1String("status")) {
                EXPECT_TRUE(out.Status.startsWith(value == QLatin1String("aborted") ? QLatin1String("Query aborted after ")
                                                                                    : QLatin1String("Query executed in ")))
                    << out.Status.toStdString();
                EXPECT_TRUE(out.Status.endsWith(QLatin1String(" ms")));
            } else if (key == QLatin1String("error")) {
                if (value.isEmpty()) {
                    EXPECT_EQ(out.ErrorMessage, QString());
                } else {
                    EXPECT_TRUE(out.ErrorMessage.contains(value)) << out.ErrorMessage.toStdString();
                }
            } else if (key == QLatin1String("refresh")) {
                const QStringList words = value.split(u' ');
                EXPECT_EQ(out.NeedRefreshDatabase, words.contains(QLatin1String("database")));
                EXPECT_EQ(out.NeedRefreshData, words.contains(QLatin1String("data")));
            } else if (key == QLatin1String("history")) {
                const TDBCache::TDBItem* item = history.GetItem(QStringLiteral("demo"));
                const bool yes = value == QLatin1String("yes");
                EXPECT_EQ(out.AddedToHistory, yes);
                if (yes) {
                    ASSERT_TRUE(item);
                    EXPECT_EQ(item->SQLHistory.value(0), c.Script);
                } else {
                    EXPECT_TRUE(!item || item->SQLHistory.isEmpty());
                }
            } else if (key == QLatin1String("prompted")) {
                EXPECT_EQ(prompted.join(u' '), value);
            } else if (key == QLatin1String("check")) {
                EXPECT_EQ(FirstValues(value.section(QLatin1String(" => "), 0, 0)),
                          value.section(QLatin1String(" => "), 1));
            } else {
                ADD_FAILURE() << "unknown expectation " << key.toStdString();
            }
        }
        if (gridNamed) {
            EXPECT_EQ(GridRows().join(u'\n'), grid.join(u'\n'));
        }
    }
}

TEST_F(SQLExecutionTest, TypedTextLadder) {
    struct {
        const char* text;
        TFieldType type;
        QVariant value;
    } const rows[] = {
        {"null", ftUnknown, QVariant()},
        {"'a''b'", ftWideString, QStringLiteral("a''b")},
        {"x'414243'", ftBlob, QByteArray("ABC")},
        {"007", ftWideString, QStringLiteral("007")},
        {"0.5", ftFloat, 0.5},
        {"-12", ftInteger, -12},
        {"9007199254740993", ftLargeint, qint64(9007199254740993LL)},
        {"1e3", ftFloat, 1000.0},
        {"abc", ftWideString, QStringLiteral("abc")},
        {"0", ftInteger, 0},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.text);
        TParam p;
        StringToParam(QString::fromLatin1(r.text), p);
        EXPECT_TRUE(p.Bound);
        EXPECT_EQ(p.DataType, r.type);
        EXPECT_EQ(p.Value, r.value);
    }
    EXPECT_FALSE(IsSQL(QStringLiteral("  .set param :a = 1")));
    EXPECT_TRUE(IsSQL(QStringLiteral("-- c\n.set")));
    EXPECT_TRUE(IsSQL(QStringLiteral("  ")));
}

TEST_F(SQLExecutionTest, RememberedValueIsOfferedAgain) {
    QStringList offered;
    runner.FOnMissingParameter = [&](const QString&, QString& Value) {
        offered << Value;
        Value = QStringLiteral("42");
        return true;
    };
    runner.ExecuteSQL(&db, QStringLiteral("select :a"));
    runner.ExecuteSQL(&db, QStringLiteral("select :a"));
    EXPECT_EQ(offered, (QStringList{QString(), QStringLiteral("42")}));
    runner.FOnMissingParameter = nullptr;
    const TSQLRunOutcome out = runner.ExecuteSQL(&db, QStringLiteral("select $b"));
    EXPECT_EQ(out.ErrorMessage, QStringLiteral("Missing parameter value: $b"));
}

// A long statement stopped from a timer: the window is pumped often, the
// statement stops soon after the request, and nothing behind it runs.
TEST_F(SQLExecutionTest, StopFromATimer) {
    db.Execute(QStringLiteral("create table t(a); insert into t values (1)"));
    const QString slow = QStringLiteral(
        "with recursive c(x) as (select 1 union all select x + 1 from c where x < 500000000) select count(*) from c");
    const QString scripts[] = {
        slow + QStringLiteral(";\r\ninsert into t values (2)"),
        QStringLiteral("update t set a = (") + slow + QStringLiteral(");\r\ninsert into t values (2)"),
        QStringLiteral("insert into t values (3);\r\n") + slow + QStringLiteral(";\r\nselect 1"),
    };
    int argc = 0;
    QCoreApplication app(argc, nullptr);
    for (const QString& script : scripts) {
        SCOPED_TRACE(script.toStdString());
        QElapsedTimer sincePump;
        qint64 worstGap = 0;
        sincePump.start();
        runner.FOnPump = [&] {
            worstGap = std::max(worstGap, sincePump.restart());
            QCoreApplication::processEvents();
        };
        QElapsedTimer clock;
        qint64 stopAsked = -1;
        QTimer::singleShot(300, [&] {
            stopAsked = clock.elapsed();
            runner.Abort();
        });
        clock.start();
        const TSQLRunOutcome out = runner.ExecuteSQL(&db, script);
        const qint64 took = clock.elapsed();
        ASSERT_GE(stopAsked, 0);
        EXPECT_TRUE(out.Aborted);
        EXPECT_TRUE(out.Status.startsWith(QLatin1String("Query aborted after "))) << out.Status.toStdString();
        EXPECT_EQ(out.ErrorMessage, QString());
        EXPECT_LT(took - stopAsked, 200);
        EXPECT_LT(worstGap, 200);
        EXPECT_EQ(FirstValues(QStringLiteral("select count(*) from t where a = 2")), QStringLiteral("0"));
        EXPECT_EQ(FirstValues(QStringLiteral("select count(*) from t where a = 1")), QStringLiteral("1"));
        EXPECT_FALSE(runner.CanAbort());
    }
    runner.FOnPump = nullptr;
    // The next run is not stopped by the last one's request.
    EXPECT_FALSE(runner.ExecuteSQL(&db, QStringLiteral("select 1")).Aborted);
}

}  // namespace
