#include "DLMetadata.h"

#include "engine/DLQuoteTools.h"
#include "engine/Exceptions.h"

#include <unordered_map>

namespace brindle {

namespace {

// The refresh walk over one of the two lists. Items and names are matched
// by their exact spelling: a name that now differs only in case belongs to
// a new object, which the tree must see as one. Returns the items that are
// gone, for the caller to forget before they are destroyed, and collects
// the failures of single items.
template <typename TItem, typename TCreate>
std::vector<std::unique_ptr<TItem>> RefreshList(std::vector<std::unique_ptr<TItem>>& Items,
                                                const QStringList& Names, TCreate Create,
                                                QStringList& Errors) {
    std::unordered_map<QString, std::unique_ptr<TItem>> kept;
    kept.reserve(Items.size());
    for (auto& item : Items) {
        const QString name = item->GetName();
        kept.emplace(name, std::move(item));
    }
    Items.clear();
    Items.reserve(static_cast<size_t>(Names.size()));
    for (const QString& name : Names) {
        const auto it = kept.find(name);
        if (it != kept.end() && it->second) {
            Items.push_back(std::move(it->second));
        } else {
            Items.push_back(Create(name));
        }
        try {
            Items.back()->RefreshSchema();
        } catch (const ECustomException& e) {
            Errors << e.message().trimmed();
        }
    }
    std::vector<std::unique_ptr<TItem>> gone;
    for (auto& [name, item] : kept)
        if (item) gone.push_back(std::move(item));
    return gone;
}

template <typename TItem>
std::vector<TMetadataBaseItem*> Pointers(const std::vector<std::unique_ptr<TItem>>& Items) {
    std::vector<TMetadataBaseItem*> pointers;
    for (const auto& item : Items) pointers.push_back(item.get());
    return pointers;
}

}  // namespace

// ---------------------------------------------------------------------------
// TDLMetadata

TDLMetadata::TDLMetadata(TDLDatabase* Database) : FLife(std::make_shared<TDLMetadata*>(this)) {
    SetDatabase(Database);
}

TDLMetadata::~TDLMetadata() {
    if (FDatabase) FDatabase->UnregisterClient(this);
}

void TDLMetadata::SetDatabase(TDLDatabase* Database) {
    if (Database == FDatabase) return;
    if (FDatabase) FDatabase->UnregisterClient(this);
    FDatabase = Database;
    if (FDatabase) FDatabase->RegisterClient(this);
}

void TDLMetadata::Connect() {
    if (FDatabase) FDatabase->SetConnected(true);
}

void TDLMetadata::Disconnect() {
    if (FDatabase) FDatabase->SetConnected(false);
}

void TDLMetadata::RefreshTables() {
    QStringList names;
    GetTableNames(names, FIncludeSystemTables);
    QStringList errors;
    std::vector<std::unique_ptr<TBaseTableInfo>> gone;
    {
        TListRefresh refresh(*this);
        gone = RefreshList(
            FTables, names, [this](const QString& name) { return CreateTableInfo(name); }, errors);
    }
    ForgetItems(Pointers(gone));
    for (const auto& t : FTables) t->GetReferences();
    if (!errors.isEmpty()) throw EObjectsRefreshError(errors.join(QStringLiteral("\r\n")));
}

void TDLMetadata::RefreshViews() {
    QStringList names;
    GetViewNames(names);
    QStringList errors;
    std::vector<std::unique_ptr<TBaseViewInfo>> gone;
    {
        TListRefresh refresh(*this);
        gone = RefreshList(
            FViews, names, [this](const QString& name) { return CreateViewInfo(name); }, errors);
    }
    ForgetItems(Pointers(gone));
    for (const auto& v : FViews) v->GetReferences();
    if (!errors.isEmpty()) throw EObjectsRefreshError(errors.join(QStringLiteral("\r\n")));
}

void TDLMetadata::SetRecordCounter(TRecordCounter Counter) {
    FRecordCounter = std::move(Counter);
}

void TDLMetadata::UpdateRecordCount(TMetadataBaseItem& Item) {
    const QString name = Item.GetName();
    ++FRecordCountUpdates;
    std::weak_ptr<TDLMetadata*> life = FLife;
    TRecordCountDone done = [life, name](std::optional<qint64> Count) {
        if (const auto self = life.lock()) (*self)->RecordCountArrived(name, Count);
    };
    if (FRecordCounter)
        FRecordCounter(name, done);
    else
        done(CountRecords(name));
}

void TDLMetadata::UpdateRecordCounts() {
    // The list may change under a counter that answers at once and a
    // handler that refreshes; walk the names.
    QStringList names;
    for (const auto& t : FTables) names << t->GetName();
    for (const auto& v : FViews) names << v->GetName();
    for (const QString& n : names)
        if (TMetadataBaseItem* item = FindObject(n)) UpdateRecordCount(*item);
}

std::optional<qint64> TDLMetadata::CountRecords(const QString& ObjectName) {
    if (!FDatabase) return std::nullopt;
    try {
        const QString value = FDatabase->GetStringValue(QStringLiteral("select count(*) from ") +
                                                        QuoteObjectIfNeeded(ObjectName));
        bool ok = false;
        const qint64 count = value.toLongLong(&ok);
        return ok ? std::optional<qint64>(count) : std::nullopt;
    } catch (const ECustomException&) {
        // A view over a dropped table or a table of a missing module has
        // no count; the tree shows the bare name.
        return std::nullopt;
    }
}

void TDLMetadata::RecordCountArrived(const QString& ObjectName, std::optional<qint64> Count) {
    if (FRecordCountUpdates > 0) --FRecordCountUpdates;
    TMetadataBaseItem* item = FindObject(ObjectName);
    if (!item || item->GetName() != ObjectName) return;
    item->FRecordCount = Count;
    if (FOnRecordCount) FOnRecordCount(*item);
}

// ---------------------------------------------------------------------------
// Items

void TDLIndexInfo::RefreshSchema() {
    FSQL = FIndexName.isEmpty() ? QString() : FTable->FMetadata->GetIndexDDL(FTable->FTableName, FIndexName);
    QStringList names;
    GetIndexFields(names);
    if (IndexFieldsCurrent(names)) return;
    FIndexFields.clear();
    for (const QString& n : names) {
        FIndexFields.push_back(CreateIndexFieldInfo());
        FIndexFields.back()->FFieldName = n;
    }
    InitIndexFields();
}

void TDLTableInfo::InternalRefreshSchema() {
    RefreshDDL();
    GetFields();
    GetIndexes();
    GetTriggers();
    GetUniqueConstraints();
    GetCheckConstraints();
    GetForeignKeys();
    // In a walk over the whole list the other items are not all read yet;
    // the walk finds the references at its end.
    if (!FMetadata->RefreshingList()) GetReferences();
}

void TDLTableInfo::RefreshDDL() {
    FSQL = FMetadata->GetTableDDL(FTableName);
}

namespace {

// The owner's triggers as the catalogue has them now; an item whose trigger
// is still there is kept.
template <typename TCreate>
void RefreshTriggers(TBaseMetadata& Metadata, const QString& OwnerName,
                     std::vector<std::unique_ptr<TBaseTriggerInfo>>& Triggers, TCreate Create) {
    std::vector<std::unique_ptr<TBaseTriggerInfo>> old = std::move(Triggers);
    Triggers.clear();
    for (bool temporary : {false, true}) {
        QStringList names;
        if (temporary)
            Metadata.GetTemporaryTriggerNames(OwnerName, names);
        else
            Metadata.GetTriggerNames(OwnerName, names);
        for (const QString& n : names) {
            std::unique_ptr<TBaseTriggerInfo> trigger =
                TakeItem(old, Triggers.size(), [&](const TBaseTriggerInfo& t) {
                    return t.FTriggerName == n && t.FIsTemporary == temporary;
                });
            Triggers.push_back(trigger ? std::move(trigger) : Create(n, temporary));
            Triggers.back()->RefreshSchema();
        }
    }
}

}  // namespace

void TDLTableInfo::GetTriggers() {
    RefreshTriggers(*FMetadata, FTableName, FTriggers,
                    [this](const QString& n, bool temporary) { return CreateTriggerInfo(n, temporary); });
}

void TDLViewInfo::InternalRefreshSchema() {
    RefreshDDL();
    GetFields();
    GetTriggers();
    if (!FMetadata->RefreshingList()) GetReferences();
}

void TDLViewInfo::RefreshDDL() {
    FSQL = FMetadata->GetViewDDL(FViewName);
}

void TDLViewInfo::GetTriggers() {
    RefreshTriggers(*FMetadata, FViewName, FTriggers,
                    [this](const QString& n, bool temporary) { return CreateTriggerInfo(n, temporary); });
}

}  // namespace brindle
