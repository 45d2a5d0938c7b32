// Everything the program remembers between runs, as plain values with their
// defaults, and the exact forms in which the per-user store keeps them. The
// main window copies its state into a TProgramSettings to save and applies
// one after loading; reading and writing the store is here, headless.
//
// The store is a QSettings; a section is a group. Booleans are kept as the
// integers 0 and 1, colours as 0x00BBGGRR integers, several lines of text as
// one packed value (RegSettings.h). A value of the wrong type reads as its
// default.
#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

class QSettings;

namespace brindle {

class TDBCache;
class TDLTypeMappings;

inline const QString kDefaultSkin = QStringLiteral("iMaginary");
// The read default of "CodeTemplates": only another value replaces the
// built-in templates.
inline const QString kNoCodeTemplates = QString(QChar(3));

// Five values under a name: Name + ".Name", ".Size", ".Color", ".Style"
// (bold 1, italic 2, underline 4, strike-out 8), ".Charset".
struct TFontSetting {
    QString Name;
    int Size = 10;
    int Color = 0;
    int Style = 0;
    int Charset = 1;
    bool operator==(const TFontSetting&) const = default;
};

// A toolbar's place: "Layout" values bar name + ".Row", ".Left", ".Visible".
struct TBarLayout {
    int Row = 0;
    int Left = 0;
    bool Visible = true;
    bool operator==(const TBarLayout&) const = default;
};

struct TProgramSettings {
    // --- "Settings" ---------------------------------------------------
    bool SingleInstance = false;
    QString LibraryFileName = QStringLiteral("<:internal:>");
    bool Unicode = true;
    QString QuoteChars = QStringLiteral("[]");
    bool UseUpperCase = true;
    bool AlternateBackColor = true;
    bool CellAutoHeight = true;
    int EvenColor = 0xFFFFFF;
    int OddColor = 0xF0F0F0;
    bool ShowImages = true;
    bool ShowCellHints = false;
    bool ShowRecordNumbers = true;
    bool AutoRefreshData = true;
    bool ShowRowID = false;
    bool ResultsAsText = false;
    bool ConfirmDragDropObjects = true;
    bool ConfirmCopyPasteObjects = true;
    bool ConfirmCopyPasteProperties = true;
    bool CellSelect = false;
    bool ThumbTracking = true;
    int TextSizeLimit = 1;  // "TextSizeLimit_v2", MB
    bool TextEditorWordWrap = false;
    bool EditorWordWrap = false;
    int EditorTabWidth = 2;
    bool CodeCompletion = true;
    bool AutoInvoke = true;
    bool CodeTemplateCompletion = true;
    int CodeCompletionDelay = 2;
    QString CodeTemplates = kNoCodeTemplates;
    // An editor font without a name is the fixed font.
    TFontSetting DefaultFont, EditorFont;
    // Read, never written: older stores kept the fixed font apart.
    TFontSetting FixedFont;
    bool FixedFontStored = false;

    // --- "Layout" -------------------------------------------------------
    int SQLTabCount = 1;
    QList<int> SQLPanelHeights;  // "SQLPanelHeight_N"
    // Splitter positions and page indexes by value name ("DBTree.Width",
    // "SelectedPage", ...): kept as read where the window has no such part.
    QMap<QString, int> LayoutValues;
    int LookAndFeel = 4;
    QString Skin = kDefaultSkin;
    int Monitor = 0;
    bool ToolbarVisible = true;
    bool FilterRowsVisible = true;
    bool UseLargeIcons = false;
    QMap<QString, TBarLayout> Bars;

    // --- "Persistent" ---------------------------------------------------
    bool ShowRecordCounts = false;
    bool RememberOpenDatabases = true;
    QStringList SQLTexts;  // "LastSQL_N"; "LastSQL" of old stores is the first
    QString LastScript;
    // "LastSQLFile", "LastSQLDirectory" and the other file and folder
    // values, by value name. A folder is taken from its file when that has
    // one.
    QMap<QString, QString> LastPaths;
    QString LastDatabaseDirectory;
    int LastOptionsPage = 0;
    QString LastDelimiter = QStringLiteral(",");
    QString LastADOConnection;
    int ScriptLanguageID = 0;
    int CheckUpdatesOption = 1;  // 0 never, 1 every CheckUpdatesDays
    int CheckUpdatesDays = 14;
    QString LastUpdateCheck = QStringLiteral("0");
    QString LastEncoding = QStringLiteral("UTF-8");
    bool RecordEditorOnDblClick = true;
    QString DDLCompareLeftDB, DDLCompareRightDB;
    QString CurrentAlias, CurrentObject;
    QStringList RecentDatabases;
};

// The sections that a save erases before it writes them anew; a value that
// is not written again is gone. "Features", "Columns" and "Placement" are
// overwritten in place.
extern const QStringList kErasedSections;

// Reads every value; what the store lacks, or holds in the wrong type,
// keeps the value Settings had. Folders: LastDatabaseDirectory becomes
// DocumentsFolder when empty, "\" or missing.
void ReadProgramSettings(QSettings& Store, TProgramSettings& Settings, const QString& DocumentsFolder);
// Writes "Settings", "Layout" and "Persistent" values (it erases nothing).
void WriteProgramSettings(QSettings& Store, const TProgramSettings& Settings);

// "Persistent"/"TypeMappingsCount" and section "TypeMappings":
// "Item_N_DeclaredType", "Item_N_DataType". Reading leaves Mappings alone
// when the count is 0.
void ReadTypeMappings(QSettings& Store, TDLTypeMappings& Mappings);
void WriteTypeMappings(QSettings& Store, const TDLTypeMappings& Mappings);

// "Persistent"/"DBCacheCount" and section "Cache": "Item_N_Alias",
// "Item_N_Value" (packed), "Item_N_SQLHistory" (packed items). Histories
// longer than 20 lose their first entries.
void ReadDBCache(QSettings& Store, TDBCache& Cache);
void WriteDBCache(QSettings& Store, const TDBCache& Cache);

// Typed reads with a default for an absent or unreadable value.
bool ReadBool(QSettings& Store, const QString& Key, bool Default);
int ReadInt(QSettings& Store, const QString& Key, int Default);
QString ReadString(QSettings& Store, const QString& Key, const QString& Default);
void WriteBool(QSettings& Store, const QString& Key, bool Value);

// A string list as one text, each line ended by CR LF, and back.
QString StringsText(const QStringList& List);
QStringList TextStrings(const QString& Text);

}  // namespace brindle
