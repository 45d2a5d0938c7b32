#include "DLBaseMetadata.h"

#include "engine/DLDatabase.h"
#include "engine/DLQuoteTools.h"
#include "engine/Exceptions.h"

#include <algorithm>
#include <unordered_set>

namespace brindle {

QString FoldName(const QString& Name) {
    // Most names are lower case already; they are shared, not copied.
    const auto upper = std::find_if(Name.begin(), Name.end(), [](QChar c) { return c >= u'A' && c <= u'Z'; });
    if (upper == Name.end()) return Name;
    QString result = Name;
    for (qsizetype i = upper - Name.begin(); i < result.size(); ++i) {
        const QChar c = result.at(i);
        if (c >= u'A' && c <= u'Z') result[i] = QChar(c.unicode() + (u'a' - u'A'));
    }
    return result;
}

namespace {

bool HasQuotes(const QString& Name) {
    for (QChar c : Name)
        if (c == u'"' || c == u'[' || c == u']' || c == u'`') return true;
    return false;
}

}  // namespace

void SplitObjectName(const QString& QualifiedName, QString& DatabaseName, QString& ObjectName) {
    // Names without quotes hold no dot but the separator; the general
    // reader is for the rest.
    if (!HasQuotes(QualifiedName)) {
        const qsizetype dot = QualifiedName.indexOf(u'.');
        DatabaseName = dot < 0 ? QString() : QualifiedName.left(dot);
        ObjectName = dot < 0 ? QualifiedName : QualifiedName.mid(dot + 1);
        return;
    }
    ParseObject(QualifiedName, DatabaseName, ObjectName);
    DatabaseName = UnQuoteIdentifier(DatabaseName);
    ObjectName = UnQuoteIdentifier(ObjectName);
}

QString MetadataNameKey(const QString& DatabaseName, const QString& ObjectName) {
    const QString db = HasQuotes(DatabaseName) ? UnQuoteIdentifier(DatabaseName) : DatabaseName;
    const QString name = HasQuotes(ObjectName) ? UnQuoteIdentifier(ObjectName) : ObjectName;
    return FoldName(db) + u'\x1f' + FoldName(name);
}

namespace {

bool IsTempName(const QString& DatabaseName) {
    return FoldName(DatabaseName) == u"temp";
}

QString DatabaseOf(const QString& QualifiedName) {
    QString db, name;
    SplitObjectName(QualifiedName, db, name);
    return db;
}

}  // namespace

// ---------------------------------------------------------------------------
// Items

TMetadataBaseItem::~TMetadataBaseItem() = default;
TBaseFieldInfo::~TBaseFieldInfo() = default;
TBaseIndexFieldInfo::~TBaseIndexFieldInfo() = default;
TBaseConstraintInfo::~TBaseConstraintInfo() = default;

int MetadataBaseItemListCompare(const TMetadataBaseItem* Item1, const TMetadataBaseItem* Item2) {
    const int rank = Item1->GetSortOrder() - Item2->GetSortOrder();
    if (rank != 0) return rank;
    return Item1->GetName().compare(Item2->GetName(), Qt::CaseInsensitive);
}

bool MetadataItemDependsOn(const TMetadataBaseItem* Item1, const TMetadataBaseItem* Item2) {
    return std::find(Item1->FReferences.begin(), Item1->FReferences.end(), Item2) != Item1->FReferences.end();
}

bool SortByDependencies(
    std::vector<TMetadataBaseItem*>& Objects,
    const std::function<int(const TMetadataBaseItem*, const TMetadataBaseItem*)>& CompareObjects,
    const std::function<bool(const TMetadataBaseItem*, const TMetadataBaseItem*)>& DependsOn) {
    std::stable_sort(
        Objects.begin(), Objects.end(),
        [&](const TMetadataBaseItem* a, const TMetadataBaseItem* b) { return CompareObjects(a, b) < 0; });
    const size_t n = Objects.size();
    for (size_t pass = 0; pass < 2 * n; ++pass) {
        bool moved = false;
        for (size_t i = 0; i < n; ++i) {
            for (size_t j = i + 1; j < n; ++j) {
                if (Objects[i] == Objects[j] || !DependsOn(Objects[i], Objects[j])) continue;
                TMetadataBaseItem* dependency = Objects[j];
                Objects.erase(Objects.begin() + static_cast<std::ptrdiff_t>(j));
                Objects.insert(Objects.begin() + static_cast<std::ptrdiff_t>(i), dependency);
                moved = true;
            }
        }
        if (!moved) return true;
    }
    return n == 0;
}

QString TBaseIndexInfo::OptionsStr() const {
    QStringList words;
    if (FOptions & ixPrimary) words << QStringLiteral("primary key");
    if (FOptions & ixUnique) words << QStringLiteral("unique");
    if (FOptions & ixDescending) words << QStringLiteral("descending");
    if (FOptions & ixExpression) words << QStringLiteral("expression");
    return words.join(QStringLiteral(", "));
}

std::unique_ptr<TBaseIndexFieldInfo> TBaseIndexInfo::CreateIndexFieldInfo() {
    return std::make_unique<TBaseIndexFieldInfo>();
}

TBaseTriggerInfo::TBaseTriggerInfo(TBaseMetadata* Metadata, TMetadataBaseItem* Item,
                                   const QString& TriggerName, bool IsTemporary)
    : FMetadata(Metadata), FItem(Item), FTriggerName(TriggerName), FIsTemporary(IsTemporary) {}

void TBaseTriggerInfo::RefreshSchema() {
    FSQL = FMetadata->GetTriggerDDL(FItem->GetName(), FTriggerName, FIsTemporary);
}

// ---------------------------------------------------------------------------
// Tables and views

TBaseTableInfo::TBaseTableInfo(TBaseMetadata* Metadata, const QString& TableName)
    : FMetadata(Metadata), FTableName(TableName) {}

TBaseTableInfo::~TBaseTableInfo() = default;

void TBaseTableInfo::RefreshSchema() {
    try {
        InternalRefreshSchema();
    } catch (const ECustomException& e) {
        throw ECustomException(
            QStringLiteral("Error refreshing schema for table \"%1\": %2").arg(FTableName, e.message()));
    }
}

bool TBaseTableInfo::IsSystemTable() const {
    return FMetadata->IsSystemTable(FTableName);
}

bool TBaseTableInfo::IsTemporary() const {
    return FMetadata->IsTemporaryTable(FTableName);
}

QString TBaseTableInfo::GetNativeFullTableName() const {
    return QuoteObject(FTableName);
}

TBaseFieldInfo* TBaseTableInfo::FindField(const QString& FieldName) const {
    const QString key = FoldName(UnQuoteIdentifier(FieldName));
    for (const auto& f : FFields)
        if (FoldName(f->FFieldName) == key) return f.get();
    return nullptr;
}

TBaseIndexInfo* TBaseTableInfo::FindIndex(const QString& IndexName) const {
    const QString key = FoldName(UnQuoteIdentifier(IndexName));
    for (const auto& i : FIndexes)
        if (FoldName(i->FIndexName) == key) return i.get();
    return nullptr;
}

TBaseIndexInfo* TBaseTableInfo::PrimaryKey() const {
    for (const auto& i : FIndexes)
        if (i->FOptions & ixPrimary) return i.get();
    return nullptr;
}

std::unique_ptr<TBaseFieldInfo> TBaseTableInfo::CreateFieldInfo() {
    return std::make_unique<TBaseFieldInfo>();
}

std::unique_ptr<TBaseIndexInfo> TBaseTableInfo::CreateIndexInfo() {
    return std::make_unique<TBaseIndexInfo>(this);
}

std::unique_ptr<TBaseTriggerInfo> TBaseTableInfo::CreateTriggerInfo(const QString& TriggerName,
                                                                    bool IsTemporary) {
    return std::make_unique<TBaseTriggerInfo>(FMetadata, this, TriggerName, IsTemporary);
}

TBaseViewInfo::TBaseViewInfo(TBaseMetadata* Metadata, const QString& ViewName)
    : FMetadata(Metadata), FViewName(ViewName) {}

TBaseViewInfo::~TBaseViewInfo() = default;

void TBaseViewInfo::RefreshSchema() {
    try {
        InternalRefreshSchema();
    } catch (const ECustomException& e) {
        throw ECustomException(
            QStringLiteral("Error refreshing schema for view \"%1\": %2").arg(FViewName, e.message()));
    }
}

bool TBaseViewInfo::IsTemporary() const {
    return FMetadata->IsTemporaryView(FViewName);
}

QString TBaseViewInfo::GetNativeFullViewName() const {
    return QuoteObject(FViewName);
}

std::unique_ptr<TBaseFieldInfo> TBaseViewInfo::CreateFieldInfo() {
    return std::make_unique<TBaseFieldInfo>();
}

std::unique_ptr<TBaseTriggerInfo> TBaseViewInfo::CreateTriggerInfo(const QString& TriggerName,
                                                                   bool IsTemporary) {
    return std::make_unique<TBaseTriggerInfo>(FMetadata, this, TriggerName, IsTemporary);
}

// ---------------------------------------------------------------------------
// The metadata

TBaseMetadata::TBaseMetadata() = default;

TBaseMetadata::~TBaseMetadata() = default;

void TBaseMetadata::Refresh() {
    FRefreshErrors.clear();
    try {
        RefreshSchema();
    } catch (const EObjectsRefreshError& e) {
        // One broken object (a view over a dropped table) must not hide the
        // database: the rest is there, and so is the broken one, to be
        // mended or dropped.
        FRefreshErrors = e.message();
    } catch (const ECustomException& e) {
        FRefreshErrors = e.message();
        // What could be read is there; its links must hold all the same.
        RefreshReferences();
        throw;
    }
    RefreshReferences();
}

void TBaseMetadata::RefreshSchema() {
    QStringList errors;
    bool listed = true;  // only objects failed, not the lists
    auto attempt = [&](auto&& Refresh) {
        try {
            Refresh();
        } catch (const EObjectsRefreshError& e) {
            errors << e.message();
        } catch (const ECustomException& e) {
            errors << e.message();
            listed = false;
        }
    };
    attempt([this] { RefreshTables(); });
    attempt([this] { RefreshViews(); });
    if (errors.isEmpty()) return;
    const QString message =
        QStringLiteral("The following errors were encountered while refreshing schema: \r\n\r\n") +
        errors.join(QStringLiteral("\r\n"));
    if (listed) throw EObjectsRefreshError(message);
    throw ECustomException(message);
}

void TBaseMetadata::RefreshReferences() {
    for (const auto& t : FTables) t->GetReferences();
    for (const auto& v : FViews) v->GetReferences();
}

void TBaseMetadata::ForgetItems(const std::vector<TMetadataBaseItem*>& Items) {
    if (Items.empty()) return;
    const std::unordered_set<TMetadataBaseItem*> gone(Items.begin(), Items.end());
    auto forget = [&gone](TMetadataBaseItem& item) {
        std::erase_if(item.FReferences, [&gone](TMetadataBaseItem* r) { return gone.count(r) > 0; });
    };
    for (const auto& t : FTables) forget(*t);
    for (const auto& v : FViews) forget(*v);
}

void TBaseMetadata::BuildIndex() const {
    FTableIndex.clear();
    FViewIndex.clear();
    FDatabaseOrder = {QStringLiteral("temp"), QStringLiteral("main")};
    auto add = [this](std::unordered_map<QString, TMetadataBaseItem*>& map, TMetadataBaseItem* item) {
        QString db, name;
        SplitObjectName(item->GetName(), db, name);
        map.emplace(MetadataNameKey(db, name), item);
        const QString folded = FoldName(db);
        if (!FDatabaseOrder.contains(folded)) FDatabaseOrder << folded;
    };
    for (const auto& t : FTables) add(FTableIndex, t.get());
    for (const auto& v : FViews) add(FViewIndex, v.get());
    FIndexValid = true;
}

TMetadataBaseItem* TBaseMetadata::Lookup(const std::unordered_map<QString, TMetadataBaseItem*>& Map,
                                         const QString& Name) const {
    QString db, name;
    SplitObjectName(Name, db, name);
    if (!db.isEmpty()) {
        const auto it = Map.find(MetadataNameKey(db, name));
        return it == Map.end() ? nullptr : it->second;
    }
    for (const QString& d : FDatabaseOrder) {
        const auto it = Map.find(MetadataNameKey(d, name));
        if (it != Map.end()) return it->second;
    }
    return nullptr;
}

TBaseTableInfo* TBaseMetadata::FindTable(const QString& Name) const {
    if (!FIndexValid) BuildIndex();
    return static_cast<TBaseTableInfo*>(Lookup(FTableIndex, Name));
}

TBaseViewInfo* TBaseMetadata::FindView(const QString& Name) const {
    if (!FIndexValid) BuildIndex();
    return static_cast<TBaseViewInfo*>(Lookup(FViewIndex, Name));
}

TMetadataBaseItem* TBaseMetadata::FindObject(const QString& Name) const {
    if (TBaseTableInfo* t = FindTable(Name)) return t;
    return FindView(Name);
}

void TBaseMetadata::GetReferences(const QString& TableName, const QString& FieldName,
                                  std::vector<TBaseForeignKeyInfo*>& List) const {
    if (const TBaseTableInfo* t = FindTable(TableName)) GetReferences(*t, FieldName, List);
}

void TBaseMetadata::GetReferences(const TBaseTableInfo& TableInfo, const QString& FieldName,
                                  std::vector<TBaseForeignKeyInfo*>& List) const {
    const QString field = FoldName(UnQuoteIdentifier(FieldName));
    for (const auto& t : FTables) {
        if (t.get() == &TableInfo) continue;
        const QString db = DatabaseOf(t->FTableName);
        for (int k = 0; k < t->ForeignKeyCount(); ++k) {
            TBaseForeignKeyInfo& key = t->ForeignKeys(k);
            if (!SameObject(QuoteObject(db, key.FParentTableName), TableInfo.FTableName)) continue;
            if (!field.isEmpty()) {
                bool named = false;
                for (const QString& p : key.FParentKey) named = named || FoldName(p) == field;
                if (!named) continue;
            }
            List.push_back(&key);
        }
    }
}

int TBaseMetadata::GetReferenceCount(const QString& TableName, const QString& FieldName) const {
    std::vector<TBaseForeignKeyInfo*> list;
    GetReferences(TableName, FieldName, list);
    return static_cast<int>(list.size());
}

int TBaseMetadata::GetIndexCount() const {
    int n = 0;
    for (const auto& t : FTables) n += t->IndexCount();
    return n;
}

int TBaseMetadata::GetTriggerCount() const {
    int n = 0;
    for (const auto& t : FTables) n += t->TriggerCount();
    for (const auto& v : FViews) n += v->TriggerCount();
    return n;
}

bool TBaseMetadata::IsSystemTable(const QString& TableName) const {
    QString db, name;
    SplitObjectName(TableName, db, name);
    return name.startsWith(QLatin1String("sqlite_"), Qt::CaseInsensitive);
}

bool TBaseMetadata::IsTemporaryTable(const QString& TableName) const {
    return IsTempName(DatabaseOf(TableName));
}

bool TBaseMetadata::IsTemporaryView(const QString& ViewName) const {
    return IsTempName(DatabaseOf(ViewName));
}

}  // namespace brindle
