// The shell suite runs with the program's application object on the
// offscreen platform, the linked SQLite library and the parser, and with the
// per-user store and data folder in a temporary folder, so that no test sees
// the user's settings.
#include "engine/DLSQLite3API.h"
#include "schema/DLSQLiteParser.h"
#include "shell/Application.h"
#include "shell/RegSettings.h"

#include <gtest/gtest.h>
#include <QSettings>
#include <QTemporaryDir>

using namespace brindle;

namespace {

class ShellEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
        ASSERT_TRUE(FHome.isValid());
        qputenv("XDG_DATA_HOME", FHome.filePath(QStringLiteral("data")).toUtf8());
        qputenv("XDG_CONFIG_HOME", FHome.filePath(QStringLiteral("config")).toUtf8());
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                           FHome.filePath(QStringLiteral("config")));
        static int argc = 1;
        static char name[] = "brindle_shell_tests";
        static char* argv[] = {name, nullptr};
        FApp = std::make_unique<TApplication>(argc, argv);
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();  // as the program does at start
    }
    void TearDown() override { FApp.reset(); }

private:
    QTemporaryDir FHome;
    std::unique_ptr<TApplication> FApp;
};

[[maybe_unused]] ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new ShellEnvironment);

}  // namespace
