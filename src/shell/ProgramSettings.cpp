#include "ProgramSettings.h"

#include "RegSettings.h"
#include "engine/DLTypeMapping.h"
#include "workbench/Caches.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace brindle {

const QStringList kErasedSections{QStringLiteral("Layout"),     QStringLiteral("Settings"),
                                  QStringLiteral("Persistent"), QStringLiteral("DB"),
                                  QStringLiteral("Cache"),      QStringLiteral("TypeMappings")};

namespace {

// The value names of the integer layout values that are plain numbers.
const char* const kLayoutNames[] = {"SQLPage",
                                    "DBTree.Width",
                                    "SelectedPage",
                                    "TableDesignPage",
                                    "ViewDesignPage",
                                    "ScriptingPage",
                                    "ScriptPanelHeight",
                                    "IndexSplitterPos",
                                    "DatabasesSplitterPos",
                                    "TableTriggerSplitterPos",
                                    "ViewTriggerSplitterPos"};

// Files and the folders they were last in; the folder follows the file.
const char* const kPathPairs[][2] = {{"LastSQLFile", "LastSQLDirectory"},
                                     {"LastScriptFile", "LastScriptDirectory"},
                                     {"LastLuaFile", "LastLuaDirectory"},
                                     {"LastPascalFile", "LastPascalDirectory"},
                                     {"LastHTMLReportFile", "LastHTMLReportDirectory"},
                                     {"LastTextFile", "LastTextFileDirectory"},
                                     {"LastXMLFile", "LastXMLFileDirectory"}};

QString Key(const char* Section, const QString& Name) {
    return QLatin1String(Section) + u'/' + Name;
}

void ReadFont(QSettings& Store, const QString& Name, TFontSetting& Font, bool* Stored = nullptr) {
    const QString base = QStringLiteral("Settings/") + Name;
    if (Stored) *Stored = Store.contains(base + QStringLiteral(".Name"));
    Font.Name = ReadString(Store, base + QStringLiteral(".Name"), Font.Name);
    Font.Size = ReadInt(Store, base + QStringLiteral(".Size"), Font.Size);
    Font.Color = ReadInt(Store, base + QStringLiteral(".Color"), Font.Color);
    Font.Style = ReadInt(Store, base + QStringLiteral(".Style"), Font.Style);
    Font.Charset = ReadInt(Store, base + QStringLiteral(".Charset"), Font.Charset);
}

void WriteFont(QSettings& Store, const QString& Name, const TFontSetting& Font) {
    const QString base = QStringLiteral("Settings/") + Name;
    Store.setValue(base + QStringLiteral(".Name"), Font.Name);
    Store.setValue(base + QStringLiteral(".Size"), Font.Size);
    Store.setValue(base + QStringLiteral(".Color"), Font.Color);
    Store.setValue(base + QStringLiteral(".Style"), Font.Style);
    Store.setValue(base + QStringLiteral(".Charset"), Font.Charset);
}

// One Boolean member per value name of a section, read and written alike.
struct TBoolValue {
    const char* Section;
    const char* Name;
    bool TProgramSettings::*Member;
};
const TBoolValue kBools[] = {
    {"Settings", "SingleInstance", &TProgramSettings::SingleInstance},
    {"Settings", "Unicode", &TProgramSettings::Unicode},
    {"Settings", "UseUpperCase", &TProgramSettings::UseUpperCase},
    {"Settings", "AlternateBackColor", &TProgramSettings::AlternateBackColor},
    {"Settings", "CellAutoHeight", &TProgramSettings::CellAutoHeight},
    {"Settings", "ShowImages", &TProgramSettings::ShowImages},
    {"Settings", "ShowCellHints", &TProgramSettings::ShowCellHints},
    {"Settings", "ShowRecordNumbers", &TProgramSettings::ShowRecordNumbers},
    {"Settings", "AutoRefreshData", &TProgramSettings::AutoRefreshData},
    {"Settings", "ShowRowID", &TProgramSettings::ShowRowID},
    {"Settings", "ResultsAsText", &TProgramSettings::ResultsAsText},
    {"Settings", "ConfirmDragDropObjects", &TProgramSettings::ConfirmDragDropObjects},
    {"Settings", "ConfirmCopyPasteObjects", &TProgramSettings::ConfirmCopyPasteObjects},
    {"Settings", "ConfirmCopyPasteProperties", &TProgramSettings::ConfirmCopyPasteProperties},
    {"Settings", "CellSelect", &TProgramSettings::CellSelect},
    {"Settings", "ThumbTracking", &TProgramSettings::ThumbTracking},
    {"Settings", "TextEditorWordWrap", &TProgramSettings::TextEditorWordWrap},
    {"Settings", "EditorWordWrap", &TProgramSettings::EditorWordWrap},
    {"Settings", "CodeCompletion", &TProgramSettings::CodeCompletion},
    {"Settings", "AutoInvoke", &TProgramSettings::AutoInvoke},
    {"Settings", "CodeTemplateCompletion", &TProgramSettings::CodeTemplateCompletion},
    {"Layout", "ToolbarVisible", &TProgramSettings::ToolbarVisible},
    {"Layout", "FilterRowsVisible", &TProgramSettings::FilterRowsVisible},
    {"Layout", "UseLargeIcons", &TProgramSettings::UseLargeIcons},
    {"Persistent", "ShowRecordCounts", &TProgramSettings::ShowRecordCounts},
    {"Persistent", "RememberOpenDatabases", &TProgramSettings::RememberOpenDatabases},
    {"Persistent", "RecordEditorOnDblClick", &TProgramSettings::RecordEditorOnDblClick},
};

struct TIntValue {
    const char* Section;
    const char* Name;
    int TProgramSettings::*Member;
};
const TIntValue kInts[] = {
    {"Settings", "EvenColor", &TProgramSettings::EvenColor},
    {"Settings", "OddColor", &TProgramSettings::OddColor},
    {"Settings", "TextSizeLimit_v2", &TProgramSettings::TextSizeLimit},
    {"Settings", "EditorTabWidth", &TProgramSettings::EditorTabWidth},
    {"Settings", "CodeCompletionDelay", &TProgramSettings::CodeCompletionDelay},
    {"Layout", "SQLTabCount", &TProgramSettings::SQLTabCount},
    {"Layout", "LookAndFeel", &TProgramSettings::LookAndFeel},
    {"Layout", "Monitor", &TProgramSettings::Monitor},
    {"Persistent", "LastOptionsPage", &TProgramSettings::LastOptionsPage},
    {"Persistent", "ScriptLanguageID", &TProgramSettings::ScriptLanguageID},
    {"Persistent", "CheckUpdatesOption", &TProgramSettings::CheckUpdatesOption},
    {"Persistent", "CheckUpdatesDays", &TProgramSettings::CheckUpdatesDays},
};

struct TStringValue {
    const char* Section;
    const char* Name;
    QString TProgramSettings::*Member;
};
const TStringValue kStrings[] = {
    {"Settings", "LibraryFileName", &TProgramSettings::LibraryFileName},
    {"Layout", "Skin", &TProgramSettings::Skin},
    {"Persistent", "LastDatabaseDirectory", &TProgramSettings::LastDatabaseDirectory},
    {"Persistent", "LastADOConnection", &TProgramSettings::LastADOConnection},
    {"Persistent", "LastUpdateCheck", &TProgramSettings::LastUpdateCheck},
    {"Persistent", "LastEncoding", &TProgramSettings::LastEncoding},
    {"Persistent", "DDLCompareLeftDB", &TProgramSettings::DDLCompareLeftDB},
    {"Persistent", "DDLCompareRightDB", &TProgramSettings::DDLCompareRightDB},
    {"Persistent", "CurrentAlias", &TProgramSettings::CurrentAlias},
    {"Persistent", "CurrentObject", &TProgramSettings::CurrentObject},
};

}  // namespace

bool ReadBool(QSettings& Store, const QString& Key, bool Default) {
    const QVariant v = Store.value(Key);
    bool ok = false;
    const int i = v.toString().trimmed().toInt(&ok);
    return ok ? i != 0 : Default;
}

int ReadInt(QSettings& Store, const QString& Key, int Default) {
    bool ok = false;
    const int i = Store.value(Key).toString().trimmed().toInt(&ok);
    return ok ? i : Default;
}

QString ReadString(QSettings& Store, const QString& Key, const QString& Default) {
    const QVariant v = Store.value(Key);
    if (!v.isValid()) return Default;
    // A value that holds commas comes back from an INI file as a list.
    if (v.typeId() == QMetaType::QStringList) return v.toStringList().join(QStringLiteral(", "));
    return v.toString();
}

void WriteBool(QSettings& Store, const QString& Key, bool Value) {
    Store.setValue(Key, Value ? 1 : 0);
}

QString StringsText(const QStringList& List) {
    QString text;
    for (const QString& line : List) text += line + QStringLiteral("\r\n");
    return text;
}

QStringList TextStrings(const QString& Text) {
    QString t = Text;
    t.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    QStringList lines = t.split(u'\n');
    if (!lines.isEmpty() && lines.last().isEmpty()) lines.removeLast();
    return lines;
}

void ReadProgramSettings(QSettings& Store, TProgramSettings& S, const QString& DocumentsFolder) {
    for (const TBoolValue& v : kBools)
        S.*v.Member = ReadBool(Store, Key(v.Section, QLatin1String(v.Name)), S.*v.Member);
    for (const TIntValue& v : kInts)
        S.*v.Member = ReadInt(Store, Key(v.Section, QLatin1String(v.Name)), S.*v.Member);
    for (const TStringValue& v : kStrings)
        S.*v.Member = ReadString(Store, Key(v.Section, QLatin1String(v.Name)), S.*v.Member);

    if (S.LibraryFileName.isEmpty()) S.LibraryFileName = QStringLiteral("<:internal:>");
    // The legacy flag picks the quotes, and a stored pair overrides it.
    const bool brackets = ReadBool(Store, QStringLiteral("Settings/QuoteWithBrackets"), true);
    S.QuoteChars = ReadString(Store, QStringLiteral("Settings/QuoteChars"),
                              brackets ? QStringLiteral("[]") : QStringLiteral("\"\""));
    // Apostrophes quote strings, never names.
    if (S.QuoteChars == QLatin1String("''") || S.QuoteChars.size() != 2) S.QuoteChars = QStringLiteral("[]");
    S.CodeTemplates = DecodeString(
        ReadString(Store, QStringLiteral("Settings/CodeTemplates"), EncodeString(S.CodeTemplates)));
    if (S.CodeTemplates.isEmpty()) S.CodeTemplates = kNoCodeTemplates;
    ReadFont(Store, QStringLiteral("DefaultFont"), S.DefaultFont);
    ReadFont(Store, QStringLiteral("FixedFont"), S.FixedFont, &S.FixedFontStored);
    ReadFont(Store, QStringLiteral("EditorFont"), S.EditorFont);

    S.SQLPanelHeights.clear();
    for (int i = 0; i < S.SQLTabCount; ++i)
        S.SQLPanelHeights << ReadInt(Store, QStringLiteral("Layout/SQLPanelHeight_%1").arg(i), -1);
    for (const char* name : kLayoutNames) {
        const QString key = QStringLiteral("Layout/") + QLatin1String(name);
        if (Store.contains(key)) S.LayoutValues[QLatin1String(name)] = ReadInt(Store, key, 0);
    }
    Store.beginGroup(QStringLiteral("Layout"));
    for (const QString& key : Store.childKeys()) {
        if (!key.endsWith(QLatin1String(".Row"))) continue;
        const QString bar = key.chopped(4);
        TBarLayout& layout = S.Bars[bar];
        layout.Row = ReadInt(Store, bar + QStringLiteral(".Row"), layout.Row);
        layout.Left = ReadInt(Store, bar + QStringLiteral(".Left"), layout.Left);
        layout.Visible = ReadBool(Store, bar + QStringLiteral(".Visible"), layout.Visible);
    }
    Store.endGroup();

    // The texts of the SQL tabs; "LastSQL" is where older stores kept the
    // first one.
    QStringList texts;
    const QString legacy = ReadString(Store, QStringLiteral("Persistent/LastSQL"), QString());
    for (int i = 0; i < S.SQLTabCount; ++i) {
        const QString key = QStringLiteral("Persistent/LastSQL_%1").arg(i);
        const QString fallback = i == 0 ? legacy : QString();
        texts << DecodeString(
            ReadString(Store, key, EncodeString(i < S.SQLTexts.size() ? S.SQLTexts[i] : fallback)));
    }
    S.SQLTexts = texts;
    S.LastScript =
        DecodeString(ReadString(Store, QStringLiteral("Persistent/LastScript"), EncodeString(S.LastScript)));

    for (const auto& pair : kPathPairs) {
        const QString fileKey = QLatin1String(pair[0]), dirKey = QLatin1String(pair[1]);
        const QString file =
            ReadString(Store, QStringLiteral("Persistent/") + fileKey, S.LastPaths.value(fileKey));
        QString dir = file.isEmpty() ? QString() : QFileInfo(file).path();
        if (dir.isEmpty() || dir == QLatin1String("."))
            dir = ReadString(Store, QStringLiteral("Persistent/") + dirKey, S.LastPaths.value(dirKey));
        S.LastPaths[fileKey] = file;
        S.LastPaths[dirKey] = dir;
    }
    S.LastPaths[QStringLiteral("LastExtensionDirectory")] =
        ReadString(Store, QStringLiteral("Persistent/LastExtensionDirectory"),
                   S.LastPaths.value(QStringLiteral("LastExtensionDirectory")));
    const QString db = S.LastDatabaseDirectory;
    if (db.isEmpty() || db == QLatin1String("\\") || db == QLatin1String("/") || !QDir(db).exists())
        S.LastDatabaseDirectory = DocumentsFolder;
    const QString delimiter = ReadString(Store, QStringLiteral("Persistent/LastDelimiter"), S.LastDelimiter);
    S.LastDelimiter = delimiter.isEmpty() ? S.LastDelimiter : delimiter.left(1);
    S.RecentDatabases = TextStrings(
        ReadString(Store, QStringLiteral("Persistent/RecentDatabases"), StringsText(S.RecentDatabases)));
}

void WriteProgramSettings(QSettings& Store, const TProgramSettings& S) {
    for (const TBoolValue& v : kBools) WriteBool(Store, Key(v.Section, QLatin1String(v.Name)), S.*v.Member);
    for (const TIntValue& v : kInts) Store.setValue(Key(v.Section, QLatin1String(v.Name)), S.*v.Member);
    for (const TStringValue& v : kStrings) Store.setValue(Key(v.Section, QLatin1String(v.Name)), S.*v.Member);

    Store.setValue(QStringLiteral("Settings/QuoteChars"), S.QuoteChars);
    Store.setValue(QStringLiteral("Settings/CodeTemplates"),
                   S.CodeTemplates == kNoCodeTemplates ? S.CodeTemplates : EncodeString(S.CodeTemplates));
    WriteFont(Store, QStringLiteral("DefaultFont"), S.DefaultFont);
    WriteFont(Store, QStringLiteral("EditorFont"), S.EditorFont);

    for (int i = 0; i < S.SQLPanelHeights.size(); ++i)
        if (S.SQLPanelHeights[i] >= 0)
            Store.setValue(QStringLiteral("Layout/SQLPanelHeight_%1").arg(i), S.SQLPanelHeights[i]);
    for (auto it = S.LayoutValues.cbegin(); it != S.LayoutValues.cend(); ++it)
        Store.setValue(QStringLiteral("Layout/") + it.key(), it.value());
    for (auto it = S.Bars.cbegin(); it != S.Bars.cend(); ++it) {
        Store.setValue(QStringLiteral("Layout/") + it.key() + QStringLiteral(".Row"), it->Row);
        Store.setValue(QStringLiteral("Layout/") + it.key() + QStringLiteral(".Left"), it->Left);
        WriteBool(Store, QStringLiteral("Layout/") + it.key() + QStringLiteral(".Visible"), it->Visible);
    }

    for (int i = 0; i < S.SQLTexts.size(); ++i)
        Store.setValue(QStringLiteral("Persistent/LastSQL_%1").arg(i), EncodeString(S.SQLTexts[i]));
    Store.setValue(QStringLiteral("Persistent/LastScript"), EncodeString(S.LastScript));
    for (auto it = S.LastPaths.cbegin(); it != S.LastPaths.cend(); ++it)
        Store.setValue(QStringLiteral("Persistent/") + it.key(), it.value());
    Store.setValue(QStringLiteral("Persistent/LastDelimiter"), S.LastDelimiter);
    Store.setValue(QStringLiteral("Persistent/RecentDatabases"), StringsText(S.RecentDatabases));
}

void ReadTypeMappings(QSettings& Store, TDLTypeMappings& Mappings) {
    const int count = ReadInt(Store, QStringLiteral("Persistent/TypeMappingsCount"), 0);
    if (count <= 0) return;
    TDLTypeMappings read;
    for (int i = 0; i < count; ++i) {
        const QString declared =
            ReadString(Store, QStringLiteral("TypeMappings/Item_%1_DeclaredType").arg(i), QString());
        const int type = ReadInt(Store, QStringLiteral("TypeMappings/Item_%1_DataType").arg(i), ftUnknown);
        // An item the table cannot hold is passed over rather than let in.
        if (declared.trimmed().isEmpty() || !IsMappableDataType(static_cast<TFieldType>(type)) ||
            read.FindDeclaredType(declared))
            continue;
        read.AddTypeMapping(declared, static_cast<TFieldType>(type));
    }
    if (read.Count() > 0) Mappings.Assign(read);
}

void WriteTypeMappings(QSettings& Store, const TDLTypeMappings& Mappings) {
    Store.setValue(QStringLiteral("Persistent/TypeMappingsCount"), Mappings.Count());
    for (int i = 0; i < Mappings.Count(); ++i) {
        Store.setValue(QStringLiteral("TypeMappings/Item_%1_DeclaredType").arg(i),
                       Mappings.Items(i).DeclaredType());
        Store.setValue(QStringLiteral("TypeMappings/Item_%1_DataType").arg(i),
                       static_cast<int>(Mappings.Items(i).DataType()));
    }
}

void ReadDBCache(QSettings& Store, TDBCache& Cache) {
    const int count = ReadInt(Store, QStringLiteral("Persistent/DBCacheCount"), 0);
    for (int i = 0; i < count; ++i) {
        const QString prefix = QStringLiteral("Cache/Item_%1_").arg(i);
        const QString alias = ReadString(Store, prefix + QStringLiteral("Alias"), QString());
        TDBCache::TDBItem& item = Cache.NewItem(alias);
        item.Value = DecodeString(ReadString(Store, prefix + QStringLiteral("Value"), QString()));
        QStringList history =
            DecodeStrings(ReadString(Store, prefix + QStringLiteral("SQLHistory"), QString()));
        while (history.size() > TDBCache::MaxHistory) history.removeAt(0);
        item.SQLHistory = history;
    }
}

void WriteDBCache(QSettings& Store, const TDBCache& Cache) {
    Store.setValue(QStringLiteral("Persistent/DBCacheCount"), Cache.Count());
    for (int i = 0; i < Cache.Count(); ++i) {
        const TDBCache::TDBItem& item = Cache.Items(i);
        const QString prefix = QStringLiteral("Cache/Item_%1_").arg(i);
        Store.setValue(prefix + QStringLiteral("Alias"), item.Alias);
        Store.setValue(prefix + QStringLiteral("Value"), EncodeString(item.Value));
        Store.setValue(prefix + QStringLiteral("SQLHistory"), EncodeStrings(item.SQLHistory));
    }
}

}  // namespace brindle
