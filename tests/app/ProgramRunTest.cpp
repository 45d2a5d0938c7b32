// The brindle program run as a real process on the offscreen platform, with
// its settings in a folder of the test's own: what a restart brings back,
// and a second start that hands its file to the first.
#include "ChildSignal.h"
#include "TempDir.h"

#include <gtest/gtest.h>
#include <unistd.h>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>
#include <QThread>
#include <csignal>

namespace {

// Waits up to Seconds for Condition, checking every 50 ms.
template <typename F>
bool WaitFor(F&& Condition, int Seconds = 30) {
    QElapsedTimer timer;
    timer.start();
    while (!Condition()) {
        if (timer.elapsed() > Seconds * 1000) return false;
        QThread::msleep(50);
    }
    return true;
}

// The process holds the file open: its connection is made.
bool HoldsOpen(qint64 Pid, const QString& File) {
    const QDir fds(QStringLiteral("/proc/%1/fd").arg(Pid));
    const QString target = QFileInfo(File).canonicalFilePath();
    for (const QFileInfo& fd : fds.entryInfoList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot))
        if (fd.symLinkTarget() == target) return true;
    return false;
}

class ProgramRunTest : public ::testing::Test {
protected:
    ProgramRunTest() {
        QFile::copy(QStringLiteral(DEMO_DB), database);
        QFile::setPermissions(database, QFile::ReadOwner | QFile::WriteOwner);
    }
    ~ProgramRunTest() override {
        for (QProcess* p : processes) {
            if (p->state() != QProcess::NotRunning) {
                p->kill();
                p->waitForFinished(5000);
            }
            delete p;
        }
    }
    QProcess& Start(const QStringList& Args) {
        auto* p = new QProcess;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir.file(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_DATA_HOME"), dir.file(QStringLiteral("data")));
        env.insert(QStringLiteral("HOME"), dir.path());
        p->setProcessEnvironment(env);
        p->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        p->start(QStringLiteral(BRINDLE_EXE), Args);
        EXPECT_TRUE(p->waitForStarted(10000));
        processes << p;
        return *p;
    }
    // Ends the program as a session end does: it closes its window, which
    // saves the settings.
    void Terminate(QProcess& P) {
        ASSERT_TRUE(brindle::test::SignalChild(P, SIGTERM));
        ASSERT_TRUE(P.waitForFinished(30000));
        EXPECT_EQ(P.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(P.exitCode(), 0);
    }
    QString Store() const { return dir.file(QStringLiteral("config/Brindle/Desk 3.x.conf")); }

    brindle::test::TempDir dir;
    QString database = dir.file(QStringLiteral("shop.db3"));
    QList<QProcess*> processes;
};

TEST_F(ProgramRunTest, ARestartBringsTheSameDatabasesBack) {
    QProcess& first = Start({database});
    ASSERT_TRUE(WaitFor([&] { return HoldsOpen(first.processId(), database); }));
    Terminate(first);
    {
        QSettings store(Store(), QSettings::IniFormat);
        EXPECT_EQ(store.value(QStringLiteral("Persistent/DBCount")).toInt(), 1);
        EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_FileName")).toString(), database);
        EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_AliasName")).toString(), QStringLiteral("shop"));
        EXPECT_EQ(store.value(QStringLiteral("Settings/SingleInstance")).toString(), QStringLiteral("0"));
        EXPECT_EQ(store.value(QStringLiteral("Persistent/CurrentAlias")).toString(), QStringLiteral("shop"));
        EXPECT_EQ(store.value(QStringLiteral("Placement/TfrmSCMain.Placement")).toString().size(), 88);
    }

    // No argument this time: the remembered database opens by itself.
    QProcess& second = Start({});
    ASSERT_TRUE(WaitFor([&] { return HoldsOpen(second.processId(), database); }));
    Terminate(second);
    QSettings store(Store(), QSettings::IniFormat);
    EXPECT_EQ(store.value(QStringLiteral("Persistent/DBCount")).toInt(), 1);
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_FileName")).toString(), database);
}

TEST_F(ProgramRunTest, ASecondStartHandsItsFileToTheFirst) {
    {
        QDir().mkpath(QFileInfo(Store()).path());
        QSettings store(Store(), QSettings::IniFormat);
        store.setValue(QStringLiteral("Settings/SingleInstance"), 1);
    }
    QProcess& first = Start({});
    // The first listens once its socket is there.
    const QString socketPattern = QStringLiteral("brindle-%1-*-%2").arg(getuid()).arg(first.processId());
    ASSERT_TRUE(WaitFor([&] { return !QDir::temp().entryList({socketPattern}, QDir::System).isEmpty(); }));

    QProcess& second = Start({database});
    ASSERT_TRUE(second.waitForFinished(20000));
    EXPECT_EQ(second.exitCode(), 0);
    ASSERT_TRUE(WaitFor([&] { return HoldsOpen(first.processId(), database); }));
    EXPECT_FALSE(HoldsOpen(second.processId(), database));
    Terminate(first);
    QSettings store(Store(), QSettings::IniFormat);
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_FileName")).toString(), database);
}

}  // namespace
