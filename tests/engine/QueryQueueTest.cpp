// Background queries: results come back on the main thread, in order, while
// the main connection goes on writing; closing a database with work in
// flight ends promptly and frees every task.
#include "EngineTestSupport.h"
#include "TempDir.h"

#include "engine/DLPragmaOptions.h"
#include "engine/DLQueryQueue.h"
#include "engine/DLSQLite3API.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <atomic>
#include <future>
#include <gtest/gtest.h>

using namespace brindle;
using namespace brindle::test;

namespace {

const QString kCount = QStringLiteral("select count(*) from t");

std::unique_ptr<TDLSQLiteDatabase> databaseWithRows(const QString& path, int rows) {
    return createDatabase(path,
                          QStringLiteral("create table t(a); with recursive n(i) as (select 1 union all "
                                         "select i + 1 from n where i < %1) insert into t select i from n")
                              .arg(rows));
}

// A task whose handler stores its result.
std::unique_ptr<TQueryTask> query(const QString& sql, QVariant& result) {
    return std::make_unique<TQueryTask>(
        sql, [&result](TThreadTask& t) { result = static_cast<TQueryTask&>(t).Result(); });
}

class QueryQueueTest : public ::testing::Test {
protected:
    void SetUp() override { ensureCoreApplication(); }
    void TearDown() override { useInternalLibrary(); }
    TempDir dir;
};

class JournalModeTest : public QueryQueueTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(JournalModeTest, CountsComeBackOnTheMainThreadWhileTheMainConnectionWrites) {
    const QString mode = QString::fromLatin1(GetParam());
    auto db = databaseWithRows(dir.file(QStringLiteral("counts.db")), 100);
    EXPECT_EQ(db->GetStringValue(QStringLiteral("pragma journal_mode = ") + mode), mode);
    db->BeginTransaction();
    db->Execute(QStringLiteral("insert into t select a from t"));

    TThreadPool* pool = db->ThreadPool();
    ASSERT_EQ(pool->ThreadCount(), 8);
    std::vector<std::pair<QVariant, QThread*>> got;
    for (int i = 0; i < 16; ++i) {
        auto task = std::make_unique<TQueryTask>(kCount, [&](TThreadTask& t) {
            got.emplace_back(static_cast<TQueryTask&>(t).Result(), QThread::currentThread());
        });
        TThreadTask* raw = task.get();  // freed only once events are pumped
        ASSERT_EQ(db->RunAsyncTask(std::move(task)), nullptr);
        EXPECT_EQ(raw->Queue(), &pool->Queues(i % 8)) << i;
    }
    db->Execute(QStringLiteral("insert into t values (0)"));
    ASSERT_TRUE(pumpUntil([&] { return got.size() == 16; }));
    for (const auto& [result, thread] : got) {
        EXPECT_EQ(thread, QCoreApplication::instance()->thread());
        EXPECT_EQ(result, QVariant(qint64(100)));  // committed rows only
    }
    db->Commit();

    QVariant count, text, real, null = 0;
    (void)db->RunAsyncTask(query(kCount, count));
    (void)db->RunAsyncTask(query(QStringLiteral("select 'x' || 1.5"), text));
    (void)db->RunAsyncTask(query(QStringLiteral("select 2.5"), real));
    (void)db->RunAsyncTask(query(QStringLiteral("select null"), null));
    ASSERT_TRUE(pumpUntil([&] { return pool->ActiveTasks() == 0; }));
    EXPECT_EQ(count, QVariant(qint64(201)));
    EXPECT_EQ(text, QVariant(QStringLiteral("x1.5")));
    EXPECT_EQ(real, QVariant(2.5));
    EXPECT_FALSE(null.isValid());

    // Readers that have read do not stand in the way of another journal mode.
    TSQLitePragmaOption* journal = db->PragmaByName(QStringLiteral("journal_mode"));
    journal->SetValue(QStringLiteral("main"), QStringLiteral("persist"));
    EXPECT_EQ(journal->GetValue(QStringLiteral("main")), QStringLiteral("persist"));
    count.clear();
    (void)db->RunAsyncTask(query(kCount, count));
    ASSERT_TRUE(pumpUntil([&] { return count.isValid(); }));
    EXPECT_EQ(count, QVariant(qint64(201)));
}

INSTANTIATE_TEST_SUITE_P(RollbackAndWal, JournalModeTest, ::testing::Values("delete", "wal"));

TEST_F(QueryQueueTest, AWriterHoldingTheFileMakesReadersWaitWithinTheirBudget) {
    struct ImpatientTask : TQueryTask {
        ImpatientTask(QVariant& result)
            : TQueryTask(kCount,
                         [&result](TThreadTask& t) { result = static_cast<TQueryTask&>(t).Result(); }) {
            FBusyRetries = 2;
            FBusyWait = std::chrono::milliseconds(20);
        }
    };
    auto db = databaseWithRows(dir.file(QStringLiteral("busy.db")), 10);
    // In rollback mode an exclusive lock keeps readers out of the schema too.
    db->Execute(QStringLiteral("begin exclusive; insert into t values (11)"));
    QVariant patient, impatient = 0;
    (void)db->RunAsyncTask(query(kCount, patient));
    (void)db->RunAsyncTask(std::make_unique<ImpatientTask>(impatient));
    ASSERT_TRUE(pumpUntil([&] { return !impatient.isValid(); }));
    EXPECT_FALSE(patient.isValid());
    db->Commit();
    ASSERT_TRUE(pumpUntil([&] { return patient.isValid(); }));
    EXPECT_EQ(patient, QVariant(qint64(11)));
}

TEST_F(QueryQueueTest, EncryptedFilesAreReadWithTheCurrentKey) {
    ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(QString::fromLatin1(kCipherLibrary)));
    TDLSQLiteDatabase db;
    db.SetFileName(dir.file(QStringLiteral("secret.db")));
    db.CreateDatabase(0, 1024, QString(), QStringLiteral("s3cret"));
    // Every worker keys its connection while the new file is still empty.
    std::vector<QVariant> empty(8);
    for (QVariant& v : empty)
        (void)db.RunAsyncTask(query(QStringLiteral("select count(*) from sqlite_master"), v));
    ASSERT_TRUE(pumpUntil([&] { return db.ThreadPool()->ActiveTasks() == 0; }));
    EXPECT_EQ(empty, std::vector<QVariant>(8, QVariant(qint64(0))));
    db.Execute(QStringLiteral("create table t(a); insert into t values (1), (2)"));
    QVariant before, after;
    (void)db.RunAsyncTask(query(kCount, before));
    ASSERT_TRUE(pumpUntil([&] { return before.isValid(); }));
    EXPECT_EQ(before, QVariant(qint64(2)));
    // A new key rebuilds the workers: the old key no longer reads the file.
    db.SetEncryptionKey(QStringLiteral("n3w"));
    (void)db.RunAsyncTask(query(kCount, after));
    ASSERT_TRUE(pumpUntil([&] { return after.isValid(); }));
    EXPECT_EQ(after, QVariant(qint64(2)));
}

// Records its id when it comes back; the first one holds its worker until
// the test lets go.
class RecordingTask : public TThreadTask {
public:
    RecordingTask(int Id, std::vector<int>& Order, std::promise<void>* Running = nullptr,
                  std::shared_future<void> Release = {})
        : TThreadTask([&Order, Id](TThreadTask&) { Order.push_back(Id); }),
          FRunning(Running),
          FRelease(Release) {}
    void Execute() override {
        if (!FRunning) return;
        FRunning->set_value();
        FRelease.wait();
    }

private:
    std::promise<void>* FRunning;
    std::shared_future<void> FRelease;
};

TEST_F(QueryQueueTest, FinishedTasksKeepTheirOrderAndHighPriorityGoesFirst) {
    TThreadPool pool;
    pool.AddQueue(std::make_unique<TThreadQueue>());
    std::vector<int> order;
    std::promise<void> running, release;
    (void)pool.AddTask(std::make_unique<RecordingTask>(0, order, &running, release.get_future().share()),
                       false);
    ASSERT_EQ(running.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    for (int i = 1; i <= 5; ++i) (void)pool.AddTask(std::make_unique<RecordingTask>(i, order), false);
    (void)pool.AddTask(std::make_unique<RecordingTask>(6, order), true);
    (void)pool.AddTask(std::make_unique<RecordingTask>(7, order), true);
    EXPECT_EQ(pool.ActiveTasks(), 8);
    release.set_value();
    ASSERT_TRUE(pumpUntil([&] { return order.size() == 8; }));
    EXPECT_EQ(order, (std::vector<int>{0, 7, 6, 1, 2, 3, 4, 5}));
    EXPECT_EQ(pool.ActiveTasks(), 0);
}

std::atomic<int> gLiveTasks{0}, gStarted{0};

// Counted, so a test can tell that every task was freed.
class CountedTask : public TQueryTask {
public:
    CountedTask(const QString& SQL, TOnTerminate OnTerminate) : TQueryTask(SQL, std::move(OnTerminate)) {
        ++gLiveTasks;
    }
    ~CountedTask() override { --gLiveTasks; }
    void Execute() override {
        ++gStarted;
        TQueryTask::Execute();
    }
};

TEST_F(QueryQueueTest, ClosingWithTasksInFlightReturnsPromptlyAndFreesEveryTask) {
    auto db = databaseWithRows(dir.file(QStringLiteral("close.db")), 10);
    gLiveTasks = 0;
    gStarted = 0;
    int fired = 0;
    auto count = [&](TThreadTask&) { ++fired; };
    // A statement that never ends on its own on every worker, more waiting.
    const QString endless = QStringLiteral(
        "with recursive c(x) as (select 1 union all select x + 1 from c) select count(*) from c");
    for (int i = 0; i < 8; ++i) (void)db->RunAsyncTask(std::make_unique<CountedTask>(endless, count));
    for (int i = 0; i < 16; ++i) (void)db->RunAsyncTask(std::make_unique<CountedTask>(kCount, count));
    QElapsedTimer timer;
    timer.start();
    while (gStarted < 8 && timer.elapsed() < 10000) QThread::msleep(5);
    ASSERT_EQ(gStarted, 8);
    timer.restart();
    db->SetConnected(false);
    EXPECT_LT(timer.elapsed(), 2000);
    EXPECT_EQ(gStarted, 8);
    EXPECT_EQ(gLiveTasks, 0);
    EXPECT_EQ(SQLite3Driver->OpenConnectionCount(), 0);
    QCoreApplication::processEvents();
    EXPECT_EQ(fired, 0);

    // A closed database takes nothing, nor does a memory database.
    EXPECT_NE(db->RunAsyncTask(std::make_unique<CountedTask>(kCount, count)), nullptr);
    EXPECT_NE(
        openDatabase(QStringLiteral(":memory:"))->RunAsyncTask(std::make_unique<CountedTask>(kCount, count)),
        nullptr);

    // A handler may close the database; the tasks behind it are dropped.
    db->SetConnected(true);
    for (int i = 0; i < 16; ++i)
        (void)db->RunAsyncTask(std::make_unique<CountedTask>(kCount, [&](TThreadTask&) {
            ++fired;
            db->SetConnected(false);
        }));
    ASSERT_TRUE(pumpUntil([&] { return fired == 1; }));
    QCoreApplication::processEvents();
    EXPECT_EQ(fired, 1);
    EXPECT_EQ(gLiveTasks, 0);
}

}  // namespace
