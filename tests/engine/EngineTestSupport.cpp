#include "EngineTestSupport.h"

#include "engine/DLSQLite3API.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <gtest/gtest.h>

namespace brindle::test {

std::unique_ptr<TDLSQLiteDatabase> createDatabase(const QString& path, const QString& script) {
    auto db = std::make_unique<TDLSQLiteDatabase>();
    db->SetFileName(path);
    db->SetAliasName(QStringLiteral("test"));
    db->CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
    if (!script.isEmpty()) db->Execute(script);
    return db;
}

std::unique_ptr<TDLSQLiteDatabase> openDatabase(const QString& path, const QString& key) {
    auto db = std::make_unique<TDLSQLiteDatabase>();
    db->SetFileName(path);
    db->SetAliasName(QStringLiteral("test"));
    if (!key.isEmpty()) db->SetEncryptionKey(key);
    db->SetConnected(true);
    return db;
}

void ensureCoreApplication() {
    if (QCoreApplication::instance()) return;
    static int argc = 1;
    static char name[] = "brindle_engine_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
}

bool pumpUntil(const std::function<bool()>& Done, int TimeoutMs) {
    QElapsedTimer timer;
    timer.start();
    // Wakes the wait below now and then, so the clock is looked at.
    QTimer heartbeat;
    heartbeat.start(10);
    while (!Done()) {
        if (timer.elapsed() > TimeoutMs) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

void useInternalLibrary() { ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB)); }

namespace {
class EngineEnvironment : public ::testing::Environment {
public:
    void SetUp() override { useInternalLibrary(); }
};
// gtest owns registered environments.
[[maybe_unused]] ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new EngineEnvironment);
}  // namespace

}  // namespace brindle::test

// Read by the thread sanitizer at start; without it, nothing reads this.
// Qt's event queue is guarded by a mutex inside libQt6Core, which is not
// built for the race detector, so the queue's own allocations look unguarded
// when several workers post to the main thread. Only calls made from inside
// that library are ignored; races in our code still show.
extern "C" const char* __tsan_default_suppressions() { return "called_from_lib:libQt6Core.so.6\n"; }
