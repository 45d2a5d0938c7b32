// What the program remembers between runs: every value's stored form, what
// a wrong or absent value reads as, and window placements.
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLTypeMapping.h"
#include "shell/FileAssociations.h"
#include "shell/ProgramSettings.h"
#include "shell/Splash.h"
#include "shell/WindowPlacement.h"
#include "workbench/Caches.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QSettings>

using namespace brindle;

namespace {

class SettingsTest : public ::testing::Test {
protected:
    QSettings& Store() { return FStore; }
    test::TempDir dir;
    QSettings FStore{dir.file(QStringLiteral("store.ini")), QSettings::IniFormat};
};

TEST_F(SettingsTest, ValuesRoundTripInTheirStoredForms) {
    TProgramSettings s;
    s.SingleInstance = true;
    s.LibraryFileName = QStringLiteral("/opt/lib/libsqlite3.so.0");
    s.ShowRowID = true;
    s.EvenColor = 0x00FF8040;
    s.TextSizeLimit = 17;
    s.QuoteChars = QStringLiteral("\"\"");
    s.CodeTemplates = QStringLiteral("sel=select * from |\nins=insert into |");
    s.EditorFont = {QStringLiteral("Mono"), 12, 0xFF, 1 | 4, 1};
    s.LayoutValues[QStringLiteral("DBTree.Width")] = 333;
    s.Bars[QStringLiteral("tbMain")] = {1, 40, false};
    s.SQLTexts = {QStringLiteral("select 1;\nselect 2"), QString(), QStringLiteral("-- three")};
    s.SQLTabCount = 3;
    s.SQLPanelHeights = {100, 200, 300};
    s.RecentDatabases = {QStringLiteral("/a/one.db"), QStringLiteral("/b/two, three.db")};
    s.LastPaths[QStringLiteral("LastSQLFile")] = dir.file(QStringLiteral("q.sql"));
    s.LastDatabaseDirectory = dir.path();
    s.CheckUpdatesOption = 0;
    s.LastUpdateCheck = QStringLiteral("45123.5");
    WriteProgramSettings(Store(), s);
    Store().sync();

    // What a person reading the store sees.
    EXPECT_EQ(Store().value(QStringLiteral("Settings/SingleInstance")).toString(), QStringLiteral("1"));
    EXPECT_EQ(Store().value(QStringLiteral("Settings/Unicode")).toString(), QStringLiteral("1"));
    EXPECT_EQ(Store().value(QStringLiteral("Settings/ShowCellHints")).toString(), QStringLiteral("0"));
    EXPECT_EQ(Store().value(QStringLiteral("Settings/EvenColor")).toInt(), 0x00FF8040);
    EXPECT_EQ(Store().value(QStringLiteral("Settings/TextSizeLimit_v2")).toInt(), 17);
    EXPECT_EQ(Store().value(QStringLiteral("Settings/EditorFont.Style")).toInt(), 5);
    EXPECT_FALSE(Store().contains(QStringLiteral("Settings/QuoteWithBrackets")));
    EXPECT_FALSE(Store().contains(QStringLiteral("Settings/FixedFont.Name")));
    EXPECT_EQ(Store().value(QStringLiteral("Settings/CodeTemplates")).toString(),
              QStringLiteral("sel=select * from |\x01ins=insert into |"));
    EXPECT_EQ(Store().value(QStringLiteral("Persistent/LastSQL_0")).toString(),
              QStringLiteral("select 1;\x01select 2"));
    EXPECT_EQ(Store().value(QStringLiteral("Persistent/RecentDatabases")).toString(),
              QStringLiteral("/a/one.db\r\n/b/two, three.db\r\n"));
    EXPECT_EQ(Store().value(QStringLiteral("Persistent/LastSQLDirectory")).toString(), QString());
    EXPECT_EQ(Store().value(QStringLiteral("Layout/tbMain.Visible")).toString(), QStringLiteral("0"));
    EXPECT_EQ(Store().value(QStringLiteral("Persistent/LastUpdateCheck")).toString(),
              QStringLiteral("45123.5"));

    // Read back into defaults: everything as it was written, and the
    // folder of a file taken from the file.
    TProgramSettings r;
    ReadProgramSettings(Store(), r, QStringLiteral("/docs"));
    EXPECT_TRUE(r.SingleInstance);
    EXPECT_EQ(r.LibraryFileName, s.LibraryFileName);
    EXPECT_TRUE(r.ShowRowID);
    EXPECT_EQ(r.EvenColor, s.EvenColor);
    EXPECT_EQ(r.QuoteChars, QStringLiteral("\"\""));
    EXPECT_EQ(r.CodeTemplates, s.CodeTemplates);
    EXPECT_EQ(r.EditorFont, s.EditorFont);
    EXPECT_EQ(r.LayoutValues.value(QStringLiteral("DBTree.Width")), 333);
    EXPECT_EQ(r.Bars.value(QStringLiteral("tbMain")), (TBarLayout{1, 40, false}));
    EXPECT_EQ(r.SQLTexts, s.SQLTexts);
    EXPECT_EQ(r.SQLPanelHeights, s.SQLPanelHeights);
    EXPECT_EQ(r.RecentDatabases, s.RecentDatabases);
    EXPECT_EQ(r.LastPaths.value(QStringLiteral("LastSQLDirectory")), dir.path());
    EXPECT_EQ(r.LastDatabaseDirectory, dir.path());
    EXPECT_EQ(r.CheckUpdatesOption, 0);
}

TEST_F(SettingsTest, WrongOrMissingValuesGiveDefaults) {
    TProgramSettings r;
    ReadProgramSettings(Store(), r, QStringLiteral("/docs"));
    EXPECT_EQ(r.LastDatabaseDirectory, QStringLiteral("/docs"));
    EXPECT_EQ(r.CodeTemplates, kNoCodeTemplates);
    EXPECT_EQ(r.QuoteChars, QStringLiteral("[]"));
    EXPECT_EQ(r.LibraryFileName, QStringLiteral("<:internal:>"));
    EXPECT_EQ(r.SQLTexts, QStringList{QString()});

    Store().setValue(QStringLiteral("Settings/CellAutoHeight"), QStringLiteral("maybe"));
    Store().setValue(QStringLiteral("Settings/EditorTabWidth"), QStringLiteral("wide"));
    Store().setValue(QStringLiteral("Settings/LibraryFileName"), QString());
    Store().setValue(QStringLiteral("Persistent/LastDatabaseDirectory"), QStringLiteral("\\"));
    Store().setValue(QStringLiteral("Persistent/LastDelimiter"), QStringLiteral(";;"));
    Store().setValue(QStringLiteral("Persistent/LastSQL"), QStringLiteral("old\x01text"));
    TProgramSettings w;
    ReadProgramSettings(Store(), w, QStringLiteral("/docs"));
    EXPECT_TRUE(w.CellAutoHeight);
    EXPECT_EQ(w.EditorTabWidth, 2);
    EXPECT_EQ(w.LibraryFileName, QStringLiteral("<:internal:>"));
    EXPECT_EQ(w.LastDatabaseDirectory, QStringLiteral("/docs"));
    EXPECT_EQ(w.LastDelimiter, QStringLiteral(";"));
    EXPECT_EQ(w.SQLTexts, QStringList{"old\ntext"});  // an older store's only tab

    // Quotes: the legacy flag picks, a stored pair overrides, apostrophes
    // are refused.
    Store().setValue(QStringLiteral("Settings/QuoteWithBrackets"), 0);
    ReadProgramSettings(Store(), w, QString());
    EXPECT_EQ(w.QuoteChars, QStringLiteral("\"\""));
    Store().setValue(QStringLiteral("Settings/QuoteChars"), QStringLiteral("''"));
    ReadProgramSettings(Store(), w, QString());
    EXPECT_EQ(w.QuoteChars, QStringLiteral("[]"));
}

TEST_F(SettingsTest, SplashGoesToTheMonitorLastUsedIfThere) {
    EXPECT_EQ(SplashMonitor(Store(), 2), 0);
    Store().setValue(QStringLiteral("Layout/Monitor"), 1);
    EXPECT_EQ(SplashMonitor(Store(), 2), 1);
    EXPECT_EQ(SplashMonitor(Store(), 1), 0);
    Store().setValue(QStringLiteral("Layout/Monitor"), QStringLiteral("left"));
    EXPECT_EQ(SplashMonitor(Store(), 2), 0);
}

TEST_F(SettingsTest, TypeMappingsAndCachesInTheirSections) {
    TDLTypeMappings mappings;
    mappings.AddTypeMapping(QStringLiteral("MONEY"), ftCurrency);
    mappings.AddTypeMapping(QStringLiteral("TEXT"), ftWideMemo);
    WriteTypeMappings(Store(), mappings);
    EXPECT_EQ(Store().value(QStringLiteral("Persistent/TypeMappingsCount")).toInt(), 2);
    EXPECT_EQ(Store().value(QStringLiteral("TypeMappings/Item_0_DeclaredType")).toString(),
              QStringLiteral("MONEY"));
    EXPECT_EQ(Store().value(QStringLiteral("TypeMappings/Item_0_DataType")).toInt(),
              static_cast<int>(ftCurrency));
    TDLTypeMappings read = DefaultTypeMappings();
    ReadTypeMappings(Store(), read);
    EXPECT_EQ(read, mappings);
    // Nothing stored: what there was stays.
    QSettings empty(dir.file(QStringLiteral("empty.ini")), QSettings::IniFormat);
    TDLTypeMappings kept = DefaultTypeMappings();
    ReadTypeMappings(empty, kept);
    EXPECT_EQ(kept, DefaultTypeMappings());

    TDBCache cache;
    for (int i = 0; i < 22; ++i)
        cache.AddSQL(QStringLiteral("db"), QStringLiteral("select %1\nfrom t").arg(i));
    cache.SetValue(QStringLiteral("db"), QStringLiteral("two\nlines"));
    WriteDBCache(Store(), cache);
    EXPECT_EQ(Store().value(QStringLiteral("Persistent/DBCacheCount")).toInt(), 1);
    EXPECT_EQ(Store().value(QStringLiteral("Cache/Item_0_Value")).toString(), QStringLiteral("two\x01lines"));
    // An older store's longer history keeps its newest twenty.
    QStringList long_;
    for (int i = 0; i < 25; ++i) long_ << QStringLiteral("q%1").arg(i);
    Store().setValue(QStringLiteral("Cache/Item_0_SQLHistory"), long_.join(QChar(1)));
    TDBCache back;
    ReadDBCache(Store(), back);
    ASSERT_EQ(back.Count(), 1);
    EXPECT_EQ(back.GetValue(QStringLiteral("db")), QStringLiteral("two\nlines"));
    EXPECT_EQ(back.GetItem(QStringLiteral("db"))->SQLHistory.size(), 20);
    EXPECT_EQ(back.GetItem(QStringLiteral("db"))->SQLHistory.first(), QStringLiteral("q5"));
}

TEST(FileAssociations, ExtensionsOpenWithThisProgramOnly) {
    const QString program = QStringLiteral("/opt/brindle/bin/brindle");
    RegisterFileType(QStringLiteral("..abc."), QStringLiteral("sqlitedb"), QStringLiteral("SQLite Database"),
                     QString(), u'"' + program + u'"');
    RegisterFileType(QStringLiteral(".xyz"), QStringLiteral("sqlitedb"), QStringLiteral("SQLite Database"),
                     QString(), program);
    RegisterFileType(QString(), QStringLiteral("sqlitedb"), QString(), QString(), program);  // nothing
    EXPECT_EQ(GetAssociatedExtensions(program), (QStringList{"*.abc", "*.xyz"}));
    EXPECT_TRUE(GetAssociatedExtensions(QStringLiteral("/usr/bin/other")).isEmpty());
    DeregisterFileType(QStringLiteral("abc"));
    EXPECT_EQ(GetAssociatedExtensions(program), QStringList{"*.xyz"});
    DeregisterFileType(QStringLiteral(".xyz"));
    EXPECT_TRUE(GetAssociatedExtensions(program).isEmpty());
}

TEST(WindowPlacement, RecordOfFortyFourBytesAsHexDigits) {
    TWindowPlacement p;
    p.ShowCmd = swMaximized;
    p.SetNormalRect(QRect(10, 20, 800, 600));
    const QString hex = EncodePlacement(p);
    ASSERT_EQ(hex.size(), 88);
    EXPECT_TRUE(hex.startsWith(QStringLiteral("2C00000000000000")));  // length 44, no flags
    EXPECT_EQ(hex.mid(16, 8), QStringLiteral("03000000"));
    EXPECT_EQ(hex.mid(56, 8), QStringLiteral("0A000000"));  // left
    EXPECT_EQ(hex.mid(72, 8), QStringLiteral("2A030000"));  // right: 10 + 800
    const auto back = DecodePlacement(hex);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->NormalRect(), QRect(10, 20, 800, 600));
    EXPECT_EQ(back->ShowCmd, swMaximized);
    EXPECT_FALSE(DecodePlacement(hex.left(86)));
    EXPECT_FALSE(DecodePlacement(QString(hex).replace(0, 1, u'x')));

    const QRect desktop(0, 0, 1280, 800);
    EXPECT_TRUE(UsablePlacement(p, desktop));
    p.ShowCmd = swMinimized;
    EXPECT_EQ(UsablePlacement(p, desktop)->ShowCmd, swNormal);
    // Only the centre counts: mostly off-screen is fine, a centre outside
    // every monitor is not.
    p.SetNormalRect(QRect(-300, 100, 1000, 500));
    EXPECT_TRUE(UsablePlacement(p, desktop));
    p.SetNormalRect(QRect(1300, 100, 400, 300));
    EXPECT_FALSE(UsablePlacement(p, desktop));
}

}  // namespace
