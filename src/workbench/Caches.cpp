#include "Caches.h"

#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteMetadata.h"

#include <QSettings>

namespace brindle {

// ---------------------------------------------------------------------------
// TMetaList

TMetaList::TMetaList() = default;

TMetaList::~TMetaList() {
    FMetadata.clear();
    FDatabases.clear();
}

void TMetaList::AddDatabase(std::unique_ptr<TDLSQLiteDatabase> Database, std::unique_ptr<TDLSQLiteMetadata> Metadata) {
    TDLSQLiteDatabase& added = *Database;
    FDatabases.push_back(std::move(Database));
    FMetadata.push_back(std::move(Metadata));
    if (OnAdded) OnAdded(added);
}

void TMetaList::DeleteDatabase(const QString& AliasName) {
    const int i = IndexOfAlias(AliasName);
    if (i < 0) return;
    if (OnDeleting) OnDeleting(*FDatabases[static_cast<size_t>(i)]);
    FMetadata.erase(FMetadata.begin() + i);
    FDatabases.erase(FDatabases.begin() + i);
}

int TMetaList::IndexOfAlias(const QString& AliasName) const {
    for (size_t i = 0; i < FDatabases.size(); ++i)
        if (FDatabases[i]->AliasName() == AliasName) return static_cast<int>(i);
    return -1;
}

int TMetaList::IndexOfFile(const QString& FileName) const {
    for (size_t i = 0; i < FDatabases.size(); ++i)
        if (FDatabases[i]->FileName() == FileName) return static_cast<int>(i);
    return -1;
}

TDLSQLiteMetadata* TMetaList::FindMetadataByAliasName(const QString& AliasName) const {
    const int i = IndexOfAlias(AliasName);
    return i < 0 ? nullptr : FMetadata[static_cast<size_t>(i)].get();
}

TDLSQLiteDatabase* TMetaList::FindDatabaseByAliasName(const QString& AliasName) const {
    const int i = IndexOfAlias(AliasName);
    return i < 0 ? nullptr : FDatabases[static_cast<size_t>(i)].get();
}

TDLSQLiteMetadata* TMetaList::FindMetadataByFileName(const QString& FileName) const {
    const int i = IndexOfFile(FileName);
    return i < 0 ? nullptr : FMetadata[static_cast<size_t>(i)].get();
}

TDLSQLiteDatabase* TMetaList::FindDatabaseByFileName(const QString& FileName) const {
    const int i = IndexOfFile(FileName);
    return i < 0 ? nullptr : FDatabases[static_cast<size_t>(i)].get();
}

void TMetaList::RefreshMetadata(TDLSQLiteMetadata& Metadata) {
    TDLSQLiteDatabase* db = Metadata.SQLiteDatabase();
    if (!db) return;
    Metadata.Refresh();
    if (OnRefreshMetadata) OnRefreshMetadata(db->AliasName());
}

void TMetaList::RefreshMetadata(const QString& AliasName) {
    if (TDLSQLiteMetadata* md = FindMetadataByAliasName(AliasName)) RefreshMetadata(*md);
}

void TMetaList::RefreshAll() {
    for (const auto& md : FMetadata) RefreshMetadata(*md);
}

// ---------------------------------------------------------------------------
// TColumnsCache

void TColumnsCache::SetColumns(const QString& AliasName, const QString& TableName, const QStringList& Columns) {
    for (auto it = FItems.begin(); it != FItems.end(); ++it) {
        if (it->AliasName != AliasName || it->TableName != TableName) continue;
        if (Columns.isEmpty())
            FItems.erase(it);
        else
            it->Columns = Columns;
        return;
    }
    if (!Columns.isEmpty()) FItems.push_back({AliasName, TableName, Columns});
}

const TColumnsCache::TItem* TColumnsCache::Find(const QString& AliasName, const QString& TableName) const {
    for (const TItem& item : FItems)
        if (item.AliasName == AliasName && item.TableName == TableName) return &item;
    return nullptr;
}

void TColumnsCache::ClearAlias(const QString& AliasName) {
    std::erase_if(FItems, [&](const TItem& item) { return item.AliasName == AliasName; });
}

void TColumnsCache::RenameAlias(const QString& OldAliasName, const QString& NewAliasName) {
    for (TItem& item : FItems)
        if (item.AliasName == OldAliasName) item.AliasName = NewAliasName;
}

void TColumnsCache::RenameTable(const QString& AliasName, const QString& OldTableName, const QString& NewTableName) {
    for (TItem& item : FItems)
        if (item.AliasName == AliasName && item.TableName == OldTableName) {
            item.TableName = NewTableName;
            return;
        }
}

void TColumnsCache::SaveToIniFile(QSettings& IniFile, const QString& Section) const {
    IniFile.remove(Section);
    IniFile.beginGroup(Section);
    IniFile.setValue(QStringLiteral("Count"), Count());
    for (int i = 0; i < Count(); ++i) {
        const TItem& item = FItems[static_cast<size_t>(i)];
        const QString prefix = QStringLiteral("Item_%1_").arg(i);
        IniFile.setValue(prefix + QStringLiteral("Alias"), item.AliasName);
        IniFile.setValue(prefix + QStringLiteral("Table"), item.TableName);
        IniFile.setValue(prefix + QStringLiteral("Count"), static_cast<int>(item.Columns.size()));
        for (int j = 0; j < item.Columns.size(); ++j) IniFile.setValue(prefix + QString::number(j), item.Columns[j]);
    }
    IniFile.endGroup();
}

void TColumnsCache::LoadFromIniFile(QSettings& IniFile, const QString& Section) {
    FItems.clear();
    IniFile.beginGroup(Section);
    const int count = IniFile.value(QStringLiteral("Count"), 0).toInt();
    for (int i = 0; i < count; ++i) {
        const QString prefix = QStringLiteral("Item_%1_").arg(i);
        TItem item;
        item.AliasName = IniFile.value(prefix + QStringLiteral("Alias")).toString();
        item.TableName = IniFile.value(prefix + QStringLiteral("Table")).toString();
        const int columns = IniFile.value(prefix + QStringLiteral("Count"), 0).toInt();
        for (int j = 0; j < columns; ++j) item.Columns << IniFile.value(prefix + QString::number(j)).toString();
        if (!item.Columns.isEmpty()) FItems.push_back(std::move(item));
    }
    IniFile.endGroup();
}

// ---------------------------------------------------------------------------
// TDBCache

TDBCache::TDBItem* TDBCache::GetItem(const QString& Alias) {
    for (TDBItem& item : FItems)
        if (item.Alias == Alias) return &item;
    return nullptr;
}

TDBCache::TDBItem& TDBCache::NewItem(const QString& Alias) {
    if (TDBItem* item = GetItem(Alias)) return *item;
    FItems.push_back({Alias, QString(), QStringList()});
    return FItems.back();
}

void TDBCache::SetValue(const QString& Alias, const QString& Value) {
    NewItem(Alias).Value = Value;
}

QString TDBCache::GetValue(const QString& Alias) const {
    for (const TDBItem& item : FItems)
        if (item.Alias == Alias) return item.Value;
    return QString();
}

void TDBCache::ClearAlias(const QString& Alias) {
    std::erase_if(FItems, [&](const TDBItem& item) { return item.Alias == Alias; });
}

void TDBCache::AddSQL(const QString& Alias, const QString& SQL) {
    QStringList& history = NewItem(Alias).SQLHistory;
    history.removeAll(SQL);
    while (history.size() >= MaxHistory) history.removeLast();
    history.prepend(SQL);
}

void TDBCache::RenameAlias(const QString& OldAlias, const QString& NewAlias) {
    for (TDBItem& item : FItems)
        if (item.Alias == OldAlias) item.Alias = NewAlias;
}

void TDBCache::Compact() {
    for (TDBItem& item : FItems)
        item.SQLHistory.removeIf([](const QString& text) { return text.trimmed().isEmpty(); });
}

}  // namespace brindle
