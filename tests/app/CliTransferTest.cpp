// brindle-cli dump, load and transfer run as real processes: round trips of
// everything, the choice of objects and the switches, bad inputs, and a run
// stopped by Ctrl+C or killed outright, which must leave the destination as
// it was.
#include "CatalogueReport.h"
#include "ChildSignal.h"
#include "CliRun.h"
#include "DataReport.h"
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"

#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <csignal>
#include <memory>

using namespace brindle;
using namespace brindle::test;

namespace {

using TRun = TCliRun;

TRun Cli(const QStringList& Args) {
    return RunCli(Args, 120000);
}

class CliTransfer : public ::testing::Test {
protected:
    void SetUp() override {
        InstallSQLParserServices();
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
    }
    void TearDown() override { SQLite3Driver->sqlite3drv_unload_library(); }

    // A database of the folder, opened in this process.
    std::unique_ptr<TDLSQLiteDatabase> Open(const QString& Name) {
        auto db = std::make_unique<TDLSQLiteDatabase>();
        db->FShowWaitCursor = false;
        db->SetFileName(dir.file(Name));
        if (!QFile::exists(dir.file(Name))) {
            db->CreateDatabase(0, 0, QString(), QString());
            db->SetConnected(false);
        }
        db->SetConnected(true);
        return db;
    }

    QString Fixture() {
        QFile file(QStringLiteral(BRINDLE_TEST_DATA "/transfer/everything.sql"));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        Open(QStringLiteral("source.db"))->Execute(QString::fromUtf8(file.readAll()));
        return dir.file(QStringLiteral("source.db"));
    }

    // Schema and data of a file, as one list.
    QStringList Report(const QString& Name) {
        auto db = Open(Name);
        return CatalogueReport(*db) + DataReport(*db);
    }

    // A file with a table of Rows rows of some length, and its dump.
    QString BigScript(int Rows) {
        Open(QStringLiteral("big.db"))
            ->Execute(
                QStringLiteral("create table big(id integer primary key, name text, amount real);"
                               "with recursive n(i) as (select 1 union all select i + 1 from n where i < %1) "
                               "insert into big select i, 'name number ' || i, i / 7.0 from n;")
                    .arg(Rows));
        const QString script = dir.file(QStringLiteral("big.sql"));
        EXPECT_EQ(Cli({QStringLiteral("dump"), dir.file(QStringLiteral("big.db")), script}).code, 0);
        return script;
    }

    TempDir dir;
};

}  // namespace

TEST_F(CliTransfer, EverythingRoundTripsThroughDumpLoadAndTransfer) {
    const QString source = Fixture();
    const QString script = dir.file(QStringLiteral("all.sql"));
    TRun r = Cli({QStringLiteral("dump"), source, script});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out + r.err, QString());  // no progress when not on a terminal
    r = Cli({QStringLiteral("load"), dir.file(QStringLiteral("loaded.db")), script});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    r = Cli({QStringLiteral("transfer"), source, dir.file(QStringLiteral("copied.db"))});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const QStringList expected = Report(QStringLiteral("source.db"));
    EXPECT_EQ(ReportDifferences(expected, Report(QStringLiteral("loaded.db"))), QStringList());
    EXPECT_EQ(ReportDifferences(expected, Report(QStringLiteral("copied.db"))), QStringList());
    // Again over the copy, every object replaced.
    r = Cli({QStringLiteral("transfer"), source, dir.file(QStringLiteral("copied.db")),
             QStringLiteral("--drop")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(ReportDifferences(expected, Report(QStringLiteral("copied.db"))), QStringList());
    r = Cli({QStringLiteral("transfer"), source, source});
    EXPECT_EQ(r.err, QStringLiteral("SOURCE and DEST are the same file\n"));
    // The script in another encoding, read back by what its bytes say.
    r = Cli({QStringLiteral("dump"), source, dir.file(QStringLiteral("utf16.sql")),
             QStringLiteral("--encoding"), QStringLiteral("UTF-16")});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_TRUE(QFile(dir.file(QStringLiteral("utf16.sql"))).open(QIODevice::ReadOnly));
    r = Cli({QStringLiteral("load"), dir.file(QStringLiteral("utf16.db")),
             dir.file(QStringLiteral("utf16.sql"))});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(ReportDifferences(expected, Report(QStringLiteral("utf16.db"))), QStringList());
}

TEST_F(CliTransfer, ObjectsAndSwitches) {
    const QString source = Fixture();
    const QString part = dir.file(QStringLiteral("part.sql"));
    ASSERT_EQ(Cli({QStringLiteral("dump"), source, part, QStringLiteral("order"), QStringLiteral("c_base"),
                   QStringLiteral("--no-data")})
                  .code,
              0);
    ASSERT_EQ(Cli({QStringLiteral("load"), dir.file(QStringLiteral("part.db")), part}).code, 0);
    QStringList names;
    Open(QStringLiteral("part.db"))
        ->GetValues(QStringLiteral("select name from sqlite_master order by name"), names);
    EXPECT_EQ(names, QStringList({QStringLiteral("c_base"), QStringLiteral("order"),
                                  QStringLiteral("order update")}));
    EXPECT_EQ(
        Open(QStringLiteral("part.db"))->GetStringValue(QStringLiteral("select count(*) from \"order\"")),
        QStringLiteral("0"));

    // Into a file that has the table: refused and undone, unless replaced.
    const QString dest = dir.file(QStringLiteral("dest.db"));
    const QStringList copyOrder = {
        QStringLiteral("transfer"),        source, dest, QStringLiteral("order"), QStringLiteral("indexed"),
        QStringLiteral("--rename-indexes")};
    ASSERT_EQ(Cli(copyOrder).code, 0);
    Open(QStringLiteral("dest.db"))->Execute(QStringLiteral("delete from \"order\" where \"key\" = 1"));
    const QStringList before = Report(QStringLiteral("dest.db"));
    TRun r = Cli(copyOrder);
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains(QLatin1String("already exists"))) << r.err.toStdString();
    EXPECT_EQ(Report(QStringLiteral("dest.db")), before);
    ASSERT_EQ(Cli(copyOrder + QStringList{QStringLiteral("--drop")}).code, 0);
    auto db = Open(QStringLiteral("dest.db"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from \"order\"")), QStringLiteral("3"));
    EXPECT_EQ(
        db->GetStringValue(QStringLiteral("select group_concat(name) from (select name from sqlite_master "
                                          "where type = 'index' and name like 'indexed%' order by name)")),
        QStringLiteral("indexed_indexed_code,indexed_indexed_collated,indexed_indexed_expression,"
                       "indexed_indexed_partial"));

    r = Cli({QStringLiteral("transfer"), source, dest, QStringLiteral("nope")});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, QStringLiteral("No table or view named nope\n"));
    EXPECT_EQ(Cli({QStringLiteral("load"), dest}).code, 2);
    EXPECT_EQ(Cli({QStringLiteral("dump"), source, part, QStringLiteral("--drop")}).code, 2);
}

TEST_F(CliTransfer, BadInputsAreToldAndLeaveTheDestinationAsItWas) {
    auto dest = Open(QStringLiteral("dest.db"));
    dest->Execute(QStringLiteral("create table kept(x); insert into kept values (1)"));
    const QStringList before = Report(QStringLiteral("dest.db"));

    QByteArray failing = "begin transaction;\ncreate table e(i);\n";
    for (int i = 3; i < 50000; ++i) failing += "insert into e values(" + QByteArray::number(i) + ");\n";
    failing += "insert into e values(oops);\ncommit;\n";
    TRun r = Cli({QStringLiteral("load"), dir.file(QStringLiteral("dest.db")),
                  dir.write(QStringLiteral("failing.sql"), failing)});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.startsWith(QLatin1String("Statement 50000 (line 50000): no such column: oops")))
        << r.err.toStdString();

    r = Cli({QStringLiteral("load"), dir.file(QStringLiteral("dest.db")),
             dir.write(QStringLiteral("open.sql"), "begin;\ninsert into kept values (2);\n")});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err, QStringLiteral("The script left a transaction open; it was rolled back\n"));
    EXPECT_EQ(Report(QStringLiteral("dest.db")), before);

    // A file that another connection holds locked.
    dest->Execute(QStringLiteral("begin exclusive"));
    r = Cli({QStringLiteral("transfer"), Fixture(), dir.file(QStringLiteral("dest.db"))});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.contains(QLatin1String("database is locked"))) << r.err.toStdString();
    dest->Execute(QStringLiteral("rollback"));
    EXPECT_EQ(Report(QStringLiteral("dest.db")), before);

    // UTF-16 without its mark is recognised by its bytes.
    const QString text = QStringLiteral("create table u(a);\r\ninsert into u values ('Grüße 世界');\r\n");
    r = Cli({QStringLiteral("load"), dir.file(QStringLiteral("u.db")),
             dir.write(QStringLiteral("u16.sql"),
                       QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2))});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(Open(QStringLiteral("u.db"))->GetStringValue(QStringLiteral("select a from u")),
              QStringLiteral("Grüße 世界"));
}

// Ctrl+C stops a load and a transfer, and what they did is undone.
TEST_F(CliTransfer, InterruptUndoesTheRun) {
    const QString script = BigScript(300000);
    for (const QString& command : {QStringLiteral("load"), QStringLiteral("transfer")}) {
        SCOPED_TRACE(command.toStdString());
        const QString dest = dir.file(command + QStringLiteral(".db"));
        Open(command + QStringLiteral(".db"))->Execute(QStringLiteral("create table kept(x)"));
        const QStringList args = {command, command == u"load" ? dest : dir.file(QStringLiteral("big.db")),
                                  command == u"load" ? script : dest};
        // A whole run first, on a copy, for its length.
        QStringList whole = args;
        whole[whole.indexOf(dest)] = dest + QStringLiteral(".whole");
        ASSERT_TRUE(QFile::copy(dest, whole[whole.indexOf(dest + QStringLiteral(".whole"))]));
        QElapsedTimer timer;
        timer.start();
        ASSERT_EQ(Cli(whole).code, 0);
        const qint64 length = timer.elapsed();
        QProcess p;
        p.start(QStringLiteral(BRINDLE_CLI), args);
        ASSERT_TRUE(p.waitForStarted());
        p.waitForFinished(static_cast<int>(length / 2));
        ASSERT_TRUE(SignalChild(p, SIGINT)) << "finished within " << length / 2 << " ms";
        ASSERT_TRUE(p.waitForFinished(20000));
        EXPECT_EQ(p.exitCode(), 1);
        EXPECT_TRUE(QString::fromUtf8(p.readAllStandardError()).contains(QLatin1String("interrupted")));
        EXPECT_EQ(Open(command + QStringLiteral(".db"))
                      ->GetStringValue(QStringLiteral("select group_concat(name) from sqlite_master")),
                  QStringLiteral("kept"));
    }
}

// A load in a transaction killed at any moment leaves the file as it was,
// or, once it has committed, as the script made it.
TEST_F(CliTransfer, LoadKilledAtRandomMomentsLeavesTheFileWhole) {
    const QString script = BigScript(60000);
    auto make = [&](const QString& Name) {
        Open(Name)->Execute(QStringLiteral("create table kept(x); insert into kept values (1)"));
        return dir.file(Name);
    };
    const QStringList before = Report(QFileInfo(make(QStringLiteral("before.db"))).fileName());
    QElapsedTimer timer;
    timer.start();
    ASSERT_EQ(Cli({QStringLiteral("load"), make(QStringLiteral("after.db")), script}).code, 0);
    const qint64 length = timer.elapsed();
    const QStringList after = Report(QStringLiteral("after.db"));
    int undone = 0;
    for (int k = 0; k < 10; ++k) {
        const QString name = QStringLiteral("k%1.db").arg(k);
        const QString file = make(name);
        QProcess p;
        p.start(QStringLiteral(BRINDLE_CLI), {QStringLiteral("load"), file, script});
        ASSERT_TRUE(p.waitForStarted());
        const int at = QRandomGenerator::global()->bounded(static_cast<int>(length) + 1);
        p.waitForFinished(at);
        SignalChild(p, SIGKILL);
        p.waitForFinished(10000);
        SCOPED_TRACE("killed after " + std::to_string(at) + " ms of " + std::to_string(length));
        auto db = Open(name);
        EXPECT_EQ(db->GetStringValue(QStringLiteral("pragma integrity_check")), QStringLiteral("ok"));
        db.reset();
        const QStringList report = Report(name);
        EXPECT_TRUE(report == before || report == after) << ReportDifferences(before, report).size();
        undone += report == before ? 1 : 0;
    }
    RecordProperty("undone", undone);
}
