// The driver: loading libraries, capability probes, error texts and the
// bookkeeping of automatic extensions, against real libraries.
#include "EngineTestSupport.h"
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/Exceptions.h"

#include "engine/Assert.h"

#include <gtest/gtest.h>

using namespace brindle;
using namespace brindle::test;

namespace {

// Restores the internal library whatever a test switched to.
class DriverTest : public ::testing::Test {
protected:
    void TearDown() override { useInternalLibrary(); }
};

TEST_F(DriverTest, InternalLibraryHasTheLinkedEngineWithoutEncryption) {
    TSQLite3Driver& d = *SQLite3Driver;
    EXPECT_EQ(d.sqlite3drv_filename(), SQLITE_INTERNAL_LIB);
    EXPECT_TRUE(d.sqlite3drv_driver_present());
    EXPECT_TRUE(d.sqlite3drv_libversion().startsWith(QLatin1String("3.")));
    EXPECT_TRUE(d.sqlite3drv_supports_fts3());
    EXPECT_TRUE(d.sqlite3drv_supports_fts4());
    EXPECT_TRUE(d.sqlite3drv_supports_rtree());
    EXPECT_TRUE(d.sqlite3drv_supports_without_rowid());
    EXPECT_TRUE(d.sqlite3drv_supports_partial_indexes());
    EXPECT_TRUE(d.sqlite3drv_supports_backup());
    EXPECT_TRUE(d.sqlite3drv_supports_profile());
    EXPECT_FALSE(d.sqlite3drv_supports_encryption());
    EXPECT_NE(d.sqlite3_threadsafe(), 0);
    EXPECT_NE(d.sqlite3_api_routines, nullptr);
}

TEST_F(DriverTest, LoadingTheSameNameInAnotherCaseReloadsNothing) {
    TSQLite3BaseDriver d;
    ASSERT_TRUE(d.sqlite3drv_load_library(QStringLiteral(FAKE_SQLITE_COMPLETE)));
    void* handle = d.DLLHandle;
    EXPECT_EQ(d.sqlite3drv_libversion(), QStringLiteral("3.99.0-fake"));
    // The upper-cased path names no file; only the name test can pass it.
    EXPECT_TRUE(d.sqlite3drv_load_library(QStringLiteral(FAKE_SQLITE_COMPLETE).toUpper()));
    EXPECT_EQ(d.DLLHandle, handle);
    d.sqlite3drv_unload_library();
}

TEST_F(DriverTest, MissingRequiredEntryFailsTheLoadAndKeepsTheOldName) {
    TSQLite3BaseDriver d;
    ASSERT_TRUE(d.sqlite3drv_load_library(QStringLiteral(FAKE_SQLITE_COMPLETE)));
    EXPECT_FALSE(d.sqlite3drv_load_library(QStringLiteral(FAKE_SQLITE_NO_DECLTYPE16)));
    EXPECT_FALSE(d.sqlite3drv_loaded());
    EXPECT_FALSE(d.sqlite3drv_driver_present());
    EXPECT_EQ(d.sqlite3_step, nullptr);
    EXPECT_EQ(d.sqlite3_backup_init, nullptr);
    EXPECT_EQ(d.DLLHandle, nullptr);
    EXPECT_EQ(d.sqlite3drv_filename(), QStringLiteral(FAKE_SQLITE_COMPLETE));
    // A file that is no library fails the same quiet way.
    EXPECT_FALSE(d.sqlite3drv_load_library(QStringLiteral("/nonexistent/libsqlite3.so")));
    EXPECT_FALSE(d.sqlite3drv_last_load_error().isEmpty());
}

TEST_F(DriverTest, MissingOptionalEntriesLoadWithoutTheFeature) {
    TSQLite3BaseDriver d;
    ASSERT_TRUE(d.sqlite3drv_load_library(QStringLiteral(FAKE_SQLITE_NO_BACKUP)));
    EXPECT_FALSE(d.sqlite3drv_supports_backup());
    EXPECT_FALSE(d.sqlite3drv_supports_profile());
    EXPECT_FALSE(d.sqlite3drv_supports_encryption());
    // Its open always fails, so every probe says no.
    EXPECT_FALSE(d.sqlite3drv_supports_fts3());
    d.sqlite3drv_unload_library();
}

TEST_F(DriverTest, NeverLoadedDriverHasNoLibrary) {
    TSQLite3BaseDriver d;
    EXPECT_FALSE(d.sqlite3drv_driver_present());
    EXPECT_TRUE(d.sqlite3drv_libversion().isEmpty());
    EXPECT_FALSE(d.sqlite3drv_supports_rtree());
}

TEST_F(DriverTest, ErrorTexts) {
    TSQLite3Driver& d = *SQLite3Driver;
    EXPECT_EQ(d.sqlite3drv_get_error_msg(nullptr, 5), QStringLiteral("The database file is locked"));
    EXPECT_EQ(d.sqlite3drv_get_error_msg(nullptr, 26), QStringLiteral("File is encrypted or not a database"));
    EXPECT_EQ(d.sqlite3drv_get_error_msg(nullptr, 0), QString());
    EXPECT_EQ(d.sqlite3drv_get_error_msg(nullptr, 100), QString());
    EXPECT_EQ(d.sqlite3drv_get_error_msg(nullptr, 101), QString());
    EXPECT_EQ(d.sqlite3drv_get_error_msg(nullptr, 1555), QStringLiteral("Unknown error, code 1555"));

    // A live handle whose last error is "not an error" gives the table's text.
    sqlite3* db = nullptr;
    ASSERT_EQ(d.sqlite3_open(":memory:", &db), 0);
    EXPECT_EQ(d.sqlite3drv_get_error_msg(db, 19), QStringLiteral("Abort due to constraint violation"));
    d.sqlite3_exec(db, "select * from missing", nullptr, nullptr, nullptr);
    EXPECT_EQ(d.sqlite3drv_get_error_msg(db, 1), QStringLiteral("no such table: missing"));
    d.sqlite3_close(db);

    EXPECT_NO_THROW(d.sqlite3drv_check_error_msg(nullptr, 101));
    EXPECT_NO_THROW(d.sqlite3drv_check_error_msg(nullptr, 0));
    try {
        d.sqlite3drv_check_error_msg(nullptr, 8);
        FAIL() << "no exception";
    } catch (const ESQLiteException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("Attempt to write a readonly database"));
        EXPECT_EQ(e.GetParam(QStringLiteral("ErrorCode")), QStringLiteral("8"));
    }
}

TEST_F(DriverTest, SameDriverNameComparesBareFileNames) {
    EXPECT_TRUE(SameDriverName(QStringLiteral("/a/LibSQLite.so"), QStringLiteral("/b/c/libsqlite.SO")));
    EXPECT_TRUE(SameDriverName(SQLITE_INTERNAL_LIB, SQLITE_INTERNAL_LIB));
    EXPECT_FALSE(SameDriverName(SQLITE_INTERNAL_LIB, QStringLiteral("/x/libsqlite3.so")));
    EXPECT_FALSE(SameDriverName(QStringLiteral("/x/libsqlite3.so"), SQLITE_INTERNAL_LIB));
    EXPECT_FALSE(SameDriverName(QStringLiteral("/x/a.so"), QStringLiteral("/x/b.so")));
}

TEST_F(DriverTest, ClosingAForeignHandleIsAnAssertionFailure) {
    EXPECT_THROW(SQLite3Driver->sqlite3_close(reinterpret_cast<sqlite3*>(0x1234)), EAssertionFailure);
}

TEST_F(DriverTest, CapabilitiesOfAnOutsideLibraryLeaveTheCurrentOneAlone) {
    QString version;
    bool fts3, fts4, rtree, icu, encryption, threadSafe;
    ASSERT_TRUE(GetSQLiteDriverCapabilities(QString(), QString::fromLatin1(kCipherLibrary), version, fts3, fts4,
                                            rtree, icu, encryption, threadSafe));
    EXPECT_TRUE(version.startsWith(QLatin1String("3.")));
    EXPECT_TRUE(encryption);
    EXPECT_TRUE(threadSafe);
    EXPECT_EQ(SQLite3Driver->sqlite3drv_filename(), SQLITE_INTERNAL_LIB);

    ASSERT_TRUE(GetSQLiteDriverCapabilities(QString(), SQLITE_INTERNAL_LIB, version, fts3, fts4, rtree, icu,
                                            encryption, threadSafe));
    EXPECT_FALSE(encryption);
    EXPECT_TRUE(fts3 && fts4 && rtree);

    EXPECT_FALSE(GetSQLiteDriverCapabilities(QStringLiteral("/nonexistent"), QStringLiteral("libnone.so"), version,
                                             fts3, fts4, rtree, icu, encryption, threadSafe));
    EXPECT_TRUE(version.isEmpty());
}

TEST_F(DriverTest, ProcessDriverSwitchesToAnOutsideLibraryAndBack) {
    TSQLite3Driver& d = *SQLite3Driver;
    ASSERT_TRUE(d.sqlite3drv_load_library(QString::fromLatin1(kCipherLibrary)));
    EXPECT_TRUE(d.sqlite3drv_supports_encryption());
    EXPECT_NE(d.sqlite3_api_routines, nullptr);
    EXPECT_TRUE(d.FInterceptsInitialized);
    auto db = openDatabase(QStringLiteral(":memory:"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select sqlite_version()")), d.sqlite3drv_libversion());
    db.reset();
    useInternalLibrary();
    EXPECT_FALSE(d.sqlite3drv_supports_encryption());
}

TEST_F(DriverTest, AutomaticExtensionsAreRecordedAndReachNewConnections) {
    TSQLite3Driver& d = *SQLite3Driver;
    d.sqlite3drv_auto_load_extension(QStringLiteral(TEST_EXTENSION), QStringLiteral("sqlite3_extension_init"));
    ASSERT_EQ(d.sqlite3drv_auto_entry_points.size(), 1u);
    EXPECT_EQ(d.sqlite3drv_auto_dll_handles.size(), 1u);
    {
        auto db = openDatabase(QStringLiteral(":memory:"));
        EXPECT_EQ(db->GetStringValue(QStringLiteral("select twice(21)")), QStringLiteral("42"));
    }

    std::vector<TSQLiteAutoEntryPoint> saved;
    d.sqlite3drv_get_auto_entry_points(saved);
    d.sqlite3drv_set_auto_entry_points({});
    EXPECT_TRUE(d.sqlite3drv_auto_entry_points.empty());
    {
        auto db = openDatabase(QStringLiteral(":memory:"));
        EXPECT_THROW(db->GetStringValue(QStringLiteral("select twice(1)")), ESQLiteException);
    }
    d.sqlite3drv_set_auto_entry_points(saved);
    EXPECT_EQ(d.sqlite3drv_auto_entry_points, saved);
    {
        auto db = openDatabase(QStringLiteral(":memory:"));
        EXPECT_EQ(db->GetStringValue(QStringLiteral("select twice(5)")), QStringLiteral("10"));
    }
    d.sqlite3drv_set_auto_entry_points({});
    d.sqlite3drv_clear_auto_extensions();
    EXPECT_TRUE(d.sqlite3drv_auto_dll_handles.empty());
}

TEST_F(DriverTest, AutomaticExtensionLoadErrors) {
    TSQLite3Driver& d = *SQLite3Driver;
    try {
        d.sqlite3drv_auto_load_extension(QStringLiteral("/nonexistent/ext.so"), QStringLiteral("init"));
        FAIL() << "no exception";
    } catch (const ECustomException& e) {
        EXPECT_TRUE(e.message().startsWith(QStringLiteral("Could not load library: /nonexistent/ext.so\r\n")));
        EXPECT_GT(e.message().size(), QStringLiteral("Could not load library: /nonexistent/ext.so\r\n").size());
    }
    try {
        d.sqlite3drv_auto_load_extension(QStringLiteral(TEST_EXTENSION), QStringLiteral("no_such_entry"));
        FAIL() << "no exception";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("Entry point no_such_entry not found in library: ") +
                                   QStringLiteral(TEST_EXTENSION));
    }
    EXPECT_TRUE(d.sqlite3drv_auto_dll_handles.empty());
}

}  // namespace
