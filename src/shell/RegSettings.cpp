#include "RegSettings.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QSettings>

#include <algorithm>
#include <utility>

namespace brindle {

namespace {

QStringList Lines(const QString& Value) {
    if (Value.isEmpty()) return {};
    static const QRegularExpression breaks(QStringLiteral("\r\n|\r|\n"));
    QStringList lines = Value.split(breaks);
    // A final line break ends the last line; it opens no new one.
    if (lines.size() > 1 && lines.last().isEmpty()) lines.removeLast();
    return lines;
}

}  // namespace

QSettings& Settings() {
    static QSettings settings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("Brindle"),
                              QStringLiteral("Desk 3.x"));
    return settings;
}

QString EncodeString(const QString& Value, QChar Delimiter) {
    const QStringList lines = Lines(Value);
    if (lines.isEmpty() || (lines.size() == 1 && lines.first().isEmpty())) return QString();
    return lines.join(Delimiter);
}

QString DecodeString(const QString& Value, QChar Delimiter) {
    if (Value.isEmpty()) return QString();
    return Value.split(Delimiter).join(u'\n');
}

QString EncodeStrings(const QStringList& List, QChar Delimiter, bool EncodeItems) {
    QStringList items;
    for (const QString& item : List) items << (EncodeItems ? EncodeString(item, kItemLineDelimiter) : item);
    return items.join(Delimiter);
}

QStringList DecodeStrings(const QString& Value, QChar Delimiter, bool EncodeItems) {
    if (Value.isEmpty()) return {};
    QStringList items = Value.split(Delimiter);
    if (EncodeItems)
        for (QString& item : items) item = DecodeString(item, kItemLineDelimiter);
    return items;
}

TStartupOptions ReadStartupOptions(const QString& IniFileName) {
    TStartupOptions options;
    QSettings ini(IniFileName, QSettings::IniFormat);
    if (ini.status() != QSettings::NoError) return options;
    ini.beginGroup(QStringLiteral("Settings"));
    options.Log = ini.value(QStringLiteral("Log"), 0).toInt() != 0;
    options.Thumbnails = ini.value(QStringLiteral("Thumbnails"), 0).toInt() != 0;
    bool ok = false;
    const int size = ini.value(QStringLiteral("DataBufferSize"), options.DataBufferSize).toInt(&ok);
    if (ok) options.DataBufferSize = std::max(size, 128);
    return options;
}

QString StartupOptionsFileName() {
    return QCoreApplication::applicationDirPath() + QStringLiteral("/brindle.ini");
}

// ---------------------------------------------------------------------------
// TFeatureList

const TFeature* TFeatureList::FindItem(const QString& Category, const QString& Name) const {
    for (const TFeature& f : FItems)
        if (f.Category.compare(Category, Qt::CaseInsensitive) == 0 &&
            f.Name.compare(Name, Qt::CaseInsensitive) == 0)
            return &f;
    return nullptr;
}

TFeature* TFeatureList::FindItem(const QString& Category, const QString& Name) {
    return const_cast<TFeature*>(std::as_const(*this).FindItem(Category, Name));
}

TFeature& TFeatureList::GetItems(const QString& Category, const QString& Name) {
    if (TFeature* f = FindItem(Category, Name)) return *f;
    FItems.push_back({Category, Name, true});
    return FItems.back();
}

bool TFeatureList::IsEnabled(const QString& Category, const QString& Name) const {
    const TFeature* f = FindItem(Category, Name);
    return !f || f->Enabled;
}

void TFeatureList::GetCategories(QStringList& List) const {
    for (const TFeature& f : FItems)
        if (!List.contains(f.Category, Qt::CaseInsensitive)) List << f.Category;
}

void TFeatureList::GetCategoryItems(const QString& Category, QStringList& List) const {
    for (const TFeature& f : FItems)
        if (f.Category.compare(Category, Qt::CaseInsensitive) == 0) List << f.Name;
}

void TFeatureList::SetDefaultFeatures() {
    FItems.clear();
    const struct {
        const char* Category;
        std::vector<const char*> Names;
    } defaults[] = {
        {"Show/Hide tabs", {"Database", "SQL", "Data", "Design", "DDL"}},
        {"Show/Hide features",
         {"SQL history", "Find/Replace", "Select columns", "Transaction options", "Attach/Detach databases",
          "Load/Unload extensions", "Generate random data"}},
    };
    for (const auto& d : defaults)
        for (const char* name : d.Names) GetItems(QLatin1String(d.Category), QLatin1String(name));
}

namespace {

// Category and name, as one value name; the store keeps its slashes as
// levels, and the same key reads it back.
QString FeatureKey(const TFeature& Feature) {
    return QStringLiteral("Features/") + Feature.Category + u'/' + Feature.Name;
}

}  // namespace

void TFeatureList::Load(QSettings& Settings) {
    for (TFeature& f : FItems) f.Enabled = Settings.value(FeatureKey(f), f.Enabled ? 1 : 0).toInt() != 0;
}

void TFeatureList::Save(QSettings& Settings) const {
    for (const TFeature& f : FItems) Settings.setValue(FeatureKey(f), f.Enabled ? 1 : 0);
}

}  // namespace brindle
