// The packed forms in which the settings store keeps text, and the list of
// features a user can switch off. A stored value holds one line: several
// lines, or several items of several lines, are joined with control
// characters that typed text does not contain.
#pragma once

#include <QString>
#include <QStringList>
#include <vector>

class QSettings;

namespace brindle {

// The per-user store of settings: organisation "Brindle", application
// "Desk 3.x", a group per section. One object for the process, made on
// first use; QSettings::setPath before that moves it (tests do).
QSettings& Settings();

// Separates lines inside one packed item.
constexpr QChar kItemLineDelimiter = QChar(2);
// Separates packed items, and the lines of a packed text.
constexpr QChar kDefaultDelimiter = QChar(1);

// The lines of Value joined with Delimiter; nothing, or one empty line,
// gives the empty string.
QString EncodeString(const QString& Value, QChar Delimiter = kDefaultDelimiter);
// The lines back, joined with line feeds.
QString DecodeString(const QString& Value, QChar Delimiter = kDefaultDelimiter);
// With EncodeItems each item is packed first, so items may hold lines.
QString EncodeStrings(const QStringList& List, QChar Delimiter = kDefaultDelimiter, bool EncodeItems = true);
QStringList DecodeStrings(const QString& Value, QChar Delimiter = kDefaultDelimiter, bool EncodeItems = true);

// Three options read from a plain file beside the program, section
// "Settings", so that they can be set by hand and outlive the per-user
// store. An absent or unreadable file gives the defaults.
struct TStartupOptions {
    bool Log = false;
    bool Thumbnails = false;
    int DataBufferSize = 512;  // rows per fetch; at least 128
};
TStartupOptions ReadStartupOptions(const QString& IniFileName);
// The file: "brindle.ini" in the program's folder.
QString StartupOptionsFileName();

struct TFeature {
    QString Category;
    QString Name;
    bool Enabled = true;
};

// Parts of the program a user can hide, by category and name.
class TFeatureList {
public:
    // Case-insensitive on both; null when absent.
    TFeature* FindItem(const QString& Category, const QString& Name);
    const TFeature* FindItem(const QString& Category, const QString& Name) const;
    // Finds or adds (enabled): a lookup never fails.
    TFeature& GetItems(const QString& Category, const QString& Name);
    // A feature that is not listed counts as enabled.
    bool IsEnabled(const QString& Category, const QString& Name) const;
    void GetCategories(QStringList& List) const;
    void GetCategoryItems(const QString& Category, QStringList& List) const;
    int Count() const { return static_cast<int>(FItems.size()); }
    const TFeature& operator[](int Index) const { return FItems[static_cast<size_t>(Index)]; }
    // Every feature of the program, enabled.
    void SetDefaultFeatures();
    // Group "Features", value category + "/" + name, Boolean as 0 or 1;
    // reading keeps the current value as the default.
    void Load(QSettings& Settings);
    void Save(QSettings& Settings) const;

private:
    std::vector<TFeature> FItems;
};

}  // namespace brindle
