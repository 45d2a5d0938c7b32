#include "EngineTestSupport.h"

#include "engine/DLSQLite3API.h"

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
