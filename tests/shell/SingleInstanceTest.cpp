// The single-instance hand-over between real processes: the probe stands in
// for the program, each test under a meeting place of its own.
#include "TempDir.h"

#include "engine/Exceptions.h"
#include "shell/SingleInstance.h"

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSettings>
#include <QSharedMemory>
#include <QtEndian>
#include <algorithm>
#include <memory>
#include <vector>

using namespace brindle;

namespace {

constexpr int kWaitMs = 60000;  // generous: CI runs suites side by side on two cores
// Well below the 10 s lock timeout, so that a pass proves nobody waited it out.
constexpr qint64 kPromptMs = 8000;

std::string Json(const QStringList& List) {
    return QJsonDocument(QJsonArray::fromStringList(List)).toJson(QJsonDocument::Compact).toStdString();
}

// One run of the probe; a running probe is ended by closing its stdin.
class Probe {
public:
    Probe(const QString& Name, const QString& SettingsFile, const QStringList& Args) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("BRINDLE_INSTANCE_NAME"), Name);
        env.insert(QStringLiteral("BRINDLE_INSTANCE_SETTINGS"), SettingsFile);
        FProcess.setProcessEnvironment(env);
        FProcess.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        FProcess.start(QStringLiteral(INSTANCE_PROBE), Args);
        FTimer.start();
    }
    ~Probe() {
        if (FProcess.state() == QProcess::NotRunning) return;
        FProcess.closeWriteChannel();
        if (!FProcess.waitForFinished(kWaitMs)) FProcess.kill();
        FProcess.waitForFinished(kWaitMs);
    }

    // The next line of output, without its line feed; "<none>" when none came.
    std::string NextLine() {
        while (!FBuffer.contains('\n')) {
            FBuffer += FProcess.readAllStandardOutput();
            if (FBuffer.contains('\n')) break;
            if (FProcess.state() == QProcess::NotRunning || !FProcess.waitForReadyRead(kWaitMs)) {
                FBuffer += FProcess.readAllStandardOutput();
                if (!FBuffer.contains('\n')) return "<none>";
            }
        }
        const qsizetype end = FBuffer.indexOf('\n');
        const QByteArray line = FBuffer.left(end);
        FBuffer.remove(0, end + 1);
        return line.toStdString();
    }

    // The exit code of a probe that ends by itself; -1 when it did not.
    int ExitCode() {
        // waitForFinished() is false for a process that has finished already.
        if (FProcess.state() != QProcess::NotRunning) FProcess.waitForFinished(kWaitMs);
        if (FProcess.state() != QProcess::NotRunning || FProcess.exitStatus() != QProcess::NormalExit)
            return -1;
        return FProcess.exitCode();
    }

    // Time since the start.
    qint64 Elapsed() const { return FTimer.elapsed(); }
    void Kill() {
        FProcess.kill();
        FProcess.waitForFinished(kWaitMs);
    }
    void End() {
        FProcess.closeWriteChannel();
        EXPECT_EQ(ExitCode(), 0);
    }

private:
    QProcess FProcess;
    QByteArray FBuffer;
    QElapsedTimer FTimer;
};

class SingleInstance : public ::testing::Test {
protected:
    void SetUp() override {
        FName =
            QStringLiteral("probe-%1-%2")
                .arg(QCoreApplication::applicationPid())
                .arg(QString::fromLatin1(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        FSettings = FDir.write(QStringLiteral("on.ini"), "[Settings]\nSingleInstance=1\n");
    }

    std::unique_ptr<Probe> Start(const QStringList& Args = {}) {
        return std::make_unique<Probe>(FName, FSettings, Args);
    }
    // A second start that hands its arguments over: ends by itself, promptly.
    void HandOver(const QStringList& Args) {
        Probe second(FName, FSettings, Args);
        EXPECT_EQ(second.ExitCode(), 0);
        EXPECT_LT(second.Elapsed(), kPromptMs);
    }
    bool BlockExists() {
        QSharedMemory memory(TOneInstance::MemoryKey(FName));
        return memory.attach(QSharedMemory::ReadOnly);
    }

    test::TempDir FDir;
    QString FName;
    QString FSettings;
};

TEST_F(SingleInstance, SecondStartsHandOverTheirArgumentsInOrderAndEnd) {
    auto first = Start({QStringLiteral("own.db3")});
    ASSERT_EQ(first->NextLine(), "first");
    HandOver({QStringLiteral("/data/one.db3")});
    EXPECT_EQ(first->NextLine(), Json({QStringLiteral("/data/one.db3")}));
    HandOver({QStringLiteral("a b"), QString()});
    HandOver({});
    EXPECT_EQ(first->NextLine(), Json({QStringLiteral("a b"), QString()}));
    EXPECT_EQ(first->NextLine(), Json({}));
    first->End();
    // The last user of the block took it away.
    EXPECT_FALSE(BlockExists());
}

TEST_F(SingleInstance, ArgumentsAreCappedCutAndKeepTheirText) {
    auto first = Start();
    ASSERT_EQ(first->NextLine(), "first");
    const QString unicode = QStringLiteral("Ärger/データ/😀.db3");
    const QString long301 = QString(300, u'x') + u'y';
    QStringList args;
    for (int i = 0; i < 11; ++i) args << QString::number(i);
    args[1] = unicode;
    args[9] = long301;
    HandOver(args);
    QStringList expected = args.mid(0, 10);
    expected[9] = QString(300, u'x');
    EXPECT_EQ(first->NextLine(), Json(expected));
}

// As when several files are opened at once: one start becomes the first
// instance, the others hand over to it.
TEST_F(SingleInstance, StartsAtTheSameTimeMeetOneFirstInstance) {
    std::vector<std::unique_ptr<Probe>> starts;
    for (int i = 0; i < 4; ++i) starts.push_back(Start({QStringLiteral("start %1").arg(i)}));
    Probe* first = nullptr;
    std::vector<std::string> expected;
    for (int i = 0; i < 4; ++i) {
        const std::string line = starts[i]->NextLine();
        if (line == "first") {
            EXPECT_EQ(first, nullptr) << "two first instances";
            first = starts[i].get();
        } else {
            EXPECT_EQ(line, "<none>");
            EXPECT_EQ(starts[i]->ExitCode(), 0);
            expected.push_back(Json({QStringLiteral("start %1").arg(i)}));
        }
    }
    ASSERT_NE(first, nullptr);
    std::vector<std::string> received;
    for (size_t i = 0; i < expected.size(); ++i) received.push_back(first->NextLine());
    std::sort(received.begin(), received.end());
    EXPECT_EQ(received, expected);
}

TEST_F(SingleInstance, OptionOffCreatesNothing) {
    for (const QByteArray& value :
         {QByteArray(), QByteArray("SingleInstance=0\n"), QByteArray("SingleInstance=yes\n"),
          QByteArray("SingleInstance=true\n")}) {
        QSettings settings(FDir.write(QStringLiteral("off.ini"), "[Settings]\n" + value),
                           QSettings::IniFormat);
        EXPECT_FALSE(ReadSingleInstanceOption(settings)) << value.constData();
        EXPECT_FALSE(InitSingleInstance(settings, {QStringLiteral("x")}, FName));
        EXPECT_EQ(brindle::SingleInstance(), nullptr);
    }
    QSettings on(FSettings, QSettings::IniFormat);
    EXPECT_TRUE(ReadSingleInstanceOption(on));

    const QString off = FDir.write(QStringLiteral("off.ini"), "[Settings]\nSingleInstance=0\n");
    Probe one(FName, off, {QStringLiteral("a")});
    Probe two(FName, off, {QStringLiteral("b")});
    EXPECT_EQ(one.NextLine(), "alone");
    EXPECT_EQ(two.NextLine(), "alone");
    EXPECT_FALSE(BlockExists());
}

TEST_F(SingleInstance, KilledFirstInstanceIsReplacedPromptly) {
    {
        auto killed = Start();
        ASSERT_EQ(killed->NextLine(), "first");
        killed->Kill();
    }
    // Its block, semaphore and socket file stay behind. (Looking at the block
    // here would remove it: a detach takes away a block nobody else holds.)
    auto next = Start({QStringLiteral("mine.db3")});
    EXPECT_EQ(next->NextLine(), "first");
    EXPECT_LT(next->Elapsed(), kPromptMs);
    HandOver({QStringLiteral("handed.db3")});
    EXPECT_EQ(next->NextLine(), Json({QStringLiteral("handed.db3")}));
    next->End();
    EXPECT_FALSE(BlockExists());
    // A normal end leaves nothing that slows the next start.
    auto again = Start();
    EXPECT_EQ(again->NextLine(), "first");
    EXPECT_LT(again->Elapsed(), kPromptMs);
}

TEST(SingleInstanceRecord, LayoutOffsetsSlotsAndLimits) {
    static_assert(kInstInfoSize == 6028);
    const QString emoji = QStringLiteral("😀");
    TInstInfo info;
    info.FirstInstanceWnd = 0x01020304;
    for (int i = 0; i < 11; ++i) info.Params << QStringLiteral("p%1").arg(i);
    info.Params[0] = QStringLiteral("Ä");
    info.Params[1] = QString(301, u'z');
    info.Params[2] = QString(299, u'a') + emoji;  // the pair would straddle the cut
    const QByteArray bytes = PackInstInfo(info);
    ASSERT_EQ(bytes.size(), 6028);
    EXPECT_EQ(bytes.left(8), QByteArray("\x04\x03\x02\x01\x0a\x00\x00\x00", 8));
    EXPECT_EQ(bytes.mid(8, 4), QByteArray("\xc4\x00\x00\x00", 4));  // Ä, NUL
    const int slot1 = 8 + 602;
    EXPECT_EQ(qFromLittleEndian<quint16>(bytes.constData() + slot1 + 299 * 2), u'z');
    EXPECT_EQ(qFromLittleEndian<quint16>(bytes.constData() + slot1 + 300 * 2), 0);
    EXPECT_EQ(bytes.mid(8 + 9 * 602, 6), QByteArray("p\x00"
                                                    "9\x00\x00\x00",
                                                    6));
    EXPECT_EQ(bytes.mid(8 + 9 * 602 + 6).count('\0'), 6028 - (8 + 9 * 602 + 6));

    const TInstInfo back = UnpackInstInfo(bytes);
    EXPECT_EQ(back.FirstInstanceWnd, 0x01020304u);
    ASSERT_EQ(back.Params.size(), 10);
    EXPECT_EQ(back.Params[0], QStringLiteral("Ä"));
    EXPECT_EQ(back.Params[1], QString(300, u'z'));
    EXPECT_EQ(back.Params[2], QString(299, u'a'));
    EXPECT_EQ(back.Params[9], QStringLiteral("p9"));

    // A count out of range, a slot without its NUL, a record cut short.
    QByteArray odd = bytes;
    qToLittleEndian<qint32>(-1, odd.data() + 4);
    EXPECT_TRUE(UnpackInstInfo(odd).Params.isEmpty());
    qToLittleEndian<qint32>(99, odd.data() + 4);
    odd.replace(8, 602, QByteArray(602, 'q'));
    const TInstInfo clamped = UnpackInstInfo(odd);
    EXPECT_EQ(clamped.Params.size(), 10);
    EXPECT_EQ(clamped.Params[0], QString(300, QChar(0x7171)));
    EXPECT_THROW(UnpackInstInfo(bytes.left(6027)), ECustomException);
}

TEST(SingleInstanceRecord, OneMechanismPerProcess) {
    auto first = std::make_unique<TOneInstance>(QStringList());
    EXPECT_TRUE(first->FShowOnNewInstance);
    try {
        TOneInstance second({});
        ADD_FAILURE() << "a second mechanism was made";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("Drop only one of these components on your form !"));
    }
    first.reset();
    EXPECT_NO_THROW(TOneInstance again({}));
}

}  // namespace
