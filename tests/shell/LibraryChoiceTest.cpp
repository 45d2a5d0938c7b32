// Which SQLite library the program runs on: the stored choice, and what
// happens when it is missing or is no SQLite library.
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "shell/LibraryChoice.h"

#include <gtest/gtest.h>

using namespace brindle;

namespace {

// Puts the linked library back, whatever a test loaded.
class LibraryChoiceTest : public ::testing::Test {
protected:
    ~LibraryChoiceTest() override { SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB); }
    QStringList messages;
    std::function<void(const QString&)> show = [this](const QString& m) { messages << m; };
    test::TempDir dir;
};

TEST_F(LibraryChoiceTest, StoredChoiceOrTheInternalLibraryWithAMessage) {
    EXPECT_EQ(LoadSQLiteLibrary(QString(), show), SQLITE_INTERNAL_LIB);
    EXPECT_TRUE(messages.isEmpty());

    EXPECT_EQ(LoadSQLiteLibrary(QStringLiteral("libsqlcipher.so.0"), show),
              QStringLiteral("libsqlcipher.so.0"));
    EXPECT_TRUE(messages.isEmpty());
    EXPECT_TRUE(SQLite3Driver->sqlite3drv_supports_encryption());

    EXPECT_EQ(LoadSQLiteLibrary(dir.file(QStringLiteral("gone/libsqlite3.so")), show), SQLITE_INTERNAL_LIB);
    EXPECT_EQ(messages, QStringList{"SQLite library not found: libsqlite3.so"});
    EXPECT_EQ(SQLite3Driver->sqlite3drv_filename(), SQLITE_INTERNAL_LIB);

    messages.clear();
    const QString text = dir.write(QStringLiteral("libnot.so"), "not a library");
    EXPECT_EQ(LoadSQLiteLibrary(text, show), SQLITE_INTERNAL_LIB);
    EXPECT_EQ(messages, QStringList{"Could not load SQLite library: libnot.so"});
    EXPECT_TRUE(SQLite3Driver->sqlite3drv_driver_present());
}

TEST_F(LibraryChoiceTest, ListShowsWhatEachLibraryCanDo) {
    dir.write(QStringLiteral("libbroken.so"), "no library");
    const QList<TLibraryEntry> list = ListSQLiteLibraries({dir.path()});
    ASSERT_GE(list.size(), 2);
    EXPECT_EQ(list[0].FileName, SQLITE_INTERNAL_LIB);
    EXPECT_EQ(list[0].Caption, QStringLiteral("[internal] (version %1) supports FTS3, FTS4, RTREE")
                                   .arg(SQLite3Driver->sqlite3drv_libversion()));
    bool cipher = false;
    for (const TLibraryEntry& e : list) {
        EXPECT_NE(e.FileName, dir.file(QStringLiteral("libbroken.so")));
        if (e.FileName == QLatin1String("libsqlcipher.so.0")) {
            cipher = true;
            EXPECT_TRUE(e.Caption.startsWith(QStringLiteral("libsqlcipher.so.0 (version 3.")))
                << e.Caption.toStdString();
        }
    }
    EXPECT_TRUE(cipher);
    EXPECT_EQ(
        LibraryCaption(QStringLiteral("/x/liba.so"), QStringLiteral("3.8.6"), false, false, false, false),
        QStringLiteral("liba.so (version 3.8.6)"));
    // The probe leaves the library in use alone.
    EXPECT_EQ(SQLite3Driver->sqlite3drv_filename(), SQLITE_INTERNAL_LIB);
}

}  // namespace
