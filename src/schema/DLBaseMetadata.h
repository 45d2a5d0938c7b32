// The in-memory picture of a database: its tables and views, their columns,
// indexes, triggers and constraints, and which object depends on which.
// This layer knows no engine; DLMetadata.h refreshes it through a database
// and DLSQLiteMetadata.h adds what is SQLite's own.
//
// Ownership: the metadata owns its tables and views; a table owns its
// columns, indexes, triggers and constraints, a view its columns and
// triggers, an index its columns. Items are made only by a refresh and live
// until a refresh finds them gone or the metadata is destroyed, so a pointer
// to an item stays good until then. FReferences and the owner links are not
// owned.
//
// Names: a table's or view's name is qualified with its database
// ("main.orders", "temp.t") as QuoteObjectIfNeeded writes it. Lookups
// compare like SameObject, ignoring quotes and case.
//
// Threading: main thread only.
#pragma once

#include "engine/Exceptions.h"

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

namespace brindle {

// The failure of objects that a refresh listed but could not read whole;
// the others were read.
class EObjectsRefreshError : public ECustomException {
public:
    using ECustomException::ECustomException;
};

class TBaseMetadata;
class TBaseTableInfo;
class TBaseViewInfo;
class TBaseForeignKeyInfo;

// Anything the tree can show. GetSortOrder ranks the kinds: item 0, table 1,
// view 2, index 3, trigger 4.
class TMetadataBaseItem {
public:
    virtual ~TMetadataBaseItem();
    TMetadataBaseItem(const TMetadataBaseItem&) = delete;
    TMetadataBaseItem& operator=(const TMetadataBaseItem&) = delete;

    // Reads the item again from its source. Raises on failure.
    virtual void RefreshSchema() {}
    virtual QString GetName() const = 0;
    virtual int GetSortOrder() const { return 0; }

    // The items this one depends on, not owned.
    std::vector<TMetadataBaseItem*> FReferences;
    // Of tables and views: the rows last counted, empty before a count has
    // come back or when it failed. Kept across refreshes.
    std::optional<qint64> FRecordCount;

protected:
    TMetadataBaseItem() = default;
};

// Different kinds compare by rank, one kind by name, ignoring case.
int MetadataBaseItemListCompare(const TMetadataBaseItem* Item1, const TMetadataBaseItem* Item2);
// Item2 is among the references of Item1.
bool MetadataItemDependsOn(const TMetadataBaseItem* Item1, const TMetadataBaseItem* Item2);

// Sorts by CompareObjects, then moves every object in front of the first
// one that depends on it, pass after pass until a pass moves nothing. False
// when that did not settle within twice the list's length of passes, which
// a dependency cycle causes; the order is then the last pass's.
bool SortByDependencies(
    std::vector<TMetadataBaseItem*>& Objects,
    const std::function<int(const TMetadataBaseItem*, const TMetadataBaseItem*)>& CompareObjects =
        MetadataBaseItemListCompare,
    const std::function<bool(const TMetadataBaseItem*, const TMetadataBaseItem*)>& DependsOn =
        MetadataItemDependsOn);

// One column of a table or view, as the catalogue and the CREATE text give it.
class TBaseFieldInfo {
public:
    virtual ~TBaseFieldInfo();

    QString FFieldName;
    QString FFullSQLType;   // the declared type as written, "VARCHAR(10)"
    QString FDefaultValue;  // as the catalogue gives it, without DEFAULT
    QString FSQLType;       // the type word, "VARCHAR"
    QString FSize;          // "10", or empty
    QString FPrecision;
    bool FNotNull = false;
};

class TBaseIndexFieldInfo {
public:
    virtual ~TBaseIndexFieldInfo();

    QString FFieldName;  // empty for an expression
};

// An index of a table, or its primary key (ixPrimary among the options).
class TBaseIndexInfo : public TMetadataBaseItem {
public:
    explicit TBaseIndexInfo(TBaseTableInfo* Table) : FTable(Table) {}
    QString GetName() const override { return FIndexName; }
    int GetSortOrder() const override { return 3; }

    int IndexFieldCount() const { return static_cast<int>(FIndexFields.size()); }
    TBaseIndexFieldInfo& IndexFields(int i) const { return *FIndexFields[static_cast<size_t>(i)]; }
    // The options as words: "primary key", "unique", joined with ", ".
    QString OptionsStr() const;

    TBaseTableInfo* FTable;  // the owner
    // Empty for a key that is the rowid, which has no index of its own.
    QString FIndexName;
    int FOptions = 0;  // TIndexOption bits (engine/DLDatabase.h)
    // The stored CREATE INDEX text; empty for what the engine made itself.
    QString FSQL;

protected:
    virtual std::unique_ptr<TBaseIndexFieldInfo> CreateIndexFieldInfo();
    // Completes the columns from what only the texts tell.
    virtual void InitIndexFields() {}

    std::vector<std::unique_ptr<TBaseIndexFieldInfo>> FIndexFields;
};

// A trigger of a table or view.
class TBaseTriggerInfo : public TMetadataBaseItem {
public:
    TBaseTriggerInfo(TBaseMetadata* Metadata, TMetadataBaseItem* Item, const QString& TriggerName,
                     bool IsTemporary);
    // Reads the stored text.
    void RefreshSchema() override;
    QString GetName() const override { return FTriggerName; }
    int GetSortOrder() const override { return 4; }

    TBaseMetadata* FMetadata;
    TMetadataBaseItem* FItem;  // the owning table or view
    QString FTriggerName;      // unqualified
    QString FSQL;
    bool FIsTemporary;  // kept in temp, whatever database its table is in
};

class TBaseConstraintInfo {
public:
    virtual ~TBaseConstraintInfo();

    QString FConstraintName;  // empty when unnamed
};

class TBaseUniqueConstraintInfo : public TBaseConstraintInfo {
public:
    QStringList FFields;
    QString FConflictClause;
};

class TBaseCheckConstraintInfo : public TBaseConstraintInfo {
public:
    QString FExpression;  // verbatim, without the parentheses
};

class TBaseForeignKeyInfo : public TBaseConstraintInfo {
public:
    QStringList FChildKey;
    QString FDeferrable;  // "DEFERRABLE", "NOT DEFERRABLE" or empty
    QString FOnDeleteAction;
    QString FOnUpdateAction;
    QString FParentTableName;  // unqualified, as written
    QString FInitially;
    QStringList FParentKey;  // empty: the parent's primary key
    QString FMatchName;
    QString FChildTableName;  // qualified, the owning table's FTableName
};

class TBaseTableInfo : public TMetadataBaseItem {
public:
    TBaseTableInfo(TBaseMetadata* Metadata, const QString& TableName);
    ~TBaseTableInfo() override;

    // InternalRefreshSchema; a failure is raised again as "Error
    // refreshing schema for table "name": message".
    void RefreshSchema() override;
    QString GetName() const override { return FTableName; }
    int GetSortOrder() const override { return 1; }
    bool IsSystemTable() const;
    bool IsTemporary() const;
    // "main.orders" as held, and fully quoted, "[main].[orders]".
    QString GetFullTableName() const { return FTableName; }
    QString GetNativeFullTableName() const;

    int FieldCount() const { return static_cast<int>(FFields.size()); }
    TBaseFieldInfo& Fields(int i) const { return *FFields[static_cast<size_t>(i)]; }
    TBaseFieldInfo* FindField(const QString& FieldName) const;
    int IndexCount() const { return static_cast<int>(FIndexes.size()); }
    TBaseIndexInfo& Indexes(int i) const { return *FIndexes[static_cast<size_t>(i)]; }
    TBaseIndexInfo* FindIndex(const QString& IndexName) const;
    // The index with ixPrimary, nullptr when the table has no key.
    TBaseIndexInfo* PrimaryKey() const;
    int TriggerCount() const { return static_cast<int>(FTriggers.size()); }
    TBaseTriggerInfo& Triggers(int i) const { return *FTriggers[static_cast<size_t>(i)]; }
    int UniqueConstraintCount() const { return static_cast<int>(FUniqueConstraints.size()); }
    TBaseUniqueConstraintInfo& UniqueConstraints(int i) const {
        return *FUniqueConstraints[static_cast<size_t>(i)];
    }
    int CheckConstraintCount() const { return static_cast<int>(FCheckConstraints.size()); }
    TBaseCheckConstraintInfo& CheckConstraints(int i) const {
        return *FCheckConstraints[static_cast<size_t>(i)];
    }
    int ForeignKeyCount() const { return static_cast<int>(FForeignKeys.size()); }
    TBaseForeignKeyInfo& ForeignKeys(int i) const { return *FForeignKeys[static_cast<size_t>(i)]; }

    // Finds the tables this one refers to and puts them in FReferences.
    virtual void GetReferences() {}

    TBaseMetadata* FMetadata;
    QString FTableName;
    QString FSQL;  // the stored CREATE text

protected:
    virtual void InternalRefreshSchema() {}
    virtual void GetFields() {}
    virtual void GetIndexes() {}
    virtual void GetTriggers() {}
    virtual void GetUniqueConstraints() {}
    virtual void GetCheckConstraints() {}
    virtual void GetForeignKeys() {}
    virtual std::unique_ptr<TBaseFieldInfo> CreateFieldInfo();
    virtual std::unique_ptr<TBaseIndexInfo> CreateIndexInfo();
    virtual std::unique_ptr<TBaseTriggerInfo> CreateTriggerInfo(const QString& TriggerName, bool IsTemporary);

    std::vector<std::unique_ptr<TBaseFieldInfo>> FFields;
    std::vector<std::unique_ptr<TBaseIndexInfo>> FIndexes;
    std::vector<std::unique_ptr<TBaseTriggerInfo>> FTriggers;
    std::vector<std::unique_ptr<TBaseUniqueConstraintInfo>> FUniqueConstraints;
    std::vector<std::unique_ptr<TBaseCheckConstraintInfo>> FCheckConstraints;
    std::vector<std::unique_ptr<TBaseForeignKeyInfo>> FForeignKeys;
};

class TBaseViewInfo : public TMetadataBaseItem {
public:
    TBaseViewInfo(TBaseMetadata* Metadata, const QString& ViewName);
    ~TBaseViewInfo() override;

    // InternalRefreshSchema; a failure is raised again as "Error
    // refreshing schema for view "name": message".
    void RefreshSchema() override;
    QString GetName() const override { return FViewName; }
    int GetSortOrder() const override { return 2; }
    bool IsTemporary() const;
    QString GetFullViewName() const { return FViewName; }
    QString GetNativeFullViewName() const;

    int FieldCount() const { return static_cast<int>(FFields.size()); }
    TBaseFieldInfo& Fields(int i) const { return *FFields[static_cast<size_t>(i)]; }
    int TriggerCount() const { return static_cast<int>(FTriggers.size()); }
    TBaseTriggerInfo& Triggers(int i) const { return *FTriggers[static_cast<size_t>(i)]; }

    // Finds the tables and views that the select names and puts them in
    // FReferences.
    virtual void GetReferences() {}

    TBaseMetadata* FMetadata;
    QString FViewName;
    QString FSQL;  // the stored CREATE VIEW text

protected:
    virtual void InternalRefreshSchema() {}
    virtual void RefreshDDL() {}
    virtual void GetFields() {}
    virtual void GetTriggers() {}
    virtual std::unique_ptr<TBaseFieldInfo> CreateFieldInfo();
    virtual std::unique_ptr<TBaseTriggerInfo> CreateTriggerInfo(const QString& TriggerName, bool IsTemporary);

    std::vector<std::unique_ptr<TBaseFieldInfo>> FFields;
    std::vector<std::unique_ptr<TBaseTriggerInfo>> FTriggers;
};

class TBaseMetadata {
public:
    TBaseMetadata();
    virtual ~TBaseMetadata();
    TBaseMetadata(const TBaseMetadata&) = delete;
    TBaseMetadata& operator=(const TBaseMetadata&) = delete;

    // List the engine's own tables (sqlite_sequence, sqlite_stat1, ...).
    bool FIncludeSystemTables = false;
    // Declared for the settings; no refresh consults it.
    bool FIgnoreRefreshErrors = false;

    virtual void Connect() {}
    virtual void Disconnect() {}

    // RefreshSchema, then RefreshReferences. Objects that could not be read
    // whole do not stop it: they keep their place with what could be read,
    // as every other object does, and RefreshErrors tells what failed. Only
    // a failure to list the objects at all is raised (and kept there too).
    void Refresh();
    // The message of the last Refresh's failures, "The following errors
    // were encountered while refreshing schema: " and each one's; empty when
    // it read everything.
    const QString& RefreshErrors() const { return FRefreshErrors; }
    // RefreshTables, then RefreshViews, each allowed to fail on its own;
    // then raises "The following errors were encountered while refreshing
    // schema: " with their messages, when there were any: as an
    // EObjectsRefreshError when every object was listed.
    virtual void RefreshSchema();
    virtual void RefreshReferences();
    virtual void RefreshTables() = 0;
    virtual void RefreshViews() = 0;

    int TableCount() const { return static_cast<int>(FTables.size()); }
    TBaseTableInfo& Tables(int i) const { return *FTables[static_cast<size_t>(i)]; }
    int ViewCount() const { return static_cast<int>(FViews.size()); }
    TBaseViewInfo& Views(int i) const { return *FViews[static_cast<size_t>(i)]; }

    // By SameObject. An unqualified name is looked for in temp, then main,
    // then the other databases, as the engine resolves it.
    TBaseTableInfo* FindTable(const QString& Name) const;
    TBaseViewInfo* FindView(const QString& Name) const;
    // Tables first.
    TMetadataBaseItem* FindObject(const QString& Name) const;

    // The foreign keys of other tables that refer to the table, through any
    // column or, with FieldName, through that parent column. A table's key
    // to itself is left out, and so are keys of other databases.
    void GetReferences(const QString& TableName, const QString& FieldName,
                       std::vector<TBaseForeignKeyInfo*>& List) const;
    void GetReferences(const TBaseTableInfo& TableInfo, const QString& FieldName,
                       std::vector<TBaseForeignKeyInfo*>& List) const;
    int GetReferenceCount(const QString& TableName, const QString& FieldName) const;
    // Over all tables (and views, for triggers).
    int GetIndexCount() const;
    int GetTriggerCount() const;

    // What the catalogue says now: qualified names in the catalogue's order.
    virtual void GetTableNames(QStringList& List, bool IncludeSystemTables) = 0;
    virtual void GetViewNames(QStringList& List) = 0;
    virtual QString GetTableDDL(const QString& TableName) = 0;
    virtual QString GetViewDDL(const QString& ViewName) = 0;
    virtual QString GetIndexDDL(const QString& TableName, const QString& IndexName) = 0;
    virtual QString GetTriggerDDL(const QString& OwnerName, const QString& TriggerName, bool IsTemporary) = 0;
    // Triggers kept in the owner's own database, and temporary ones on it.
    virtual void GetTriggerNames(const QString& OwnerName, QStringList& List) = 0;
    virtual void GetTemporaryTriggerNames(const QString& OwnerName, QStringList& List) = 0;
    // The first seven letters of the bare name are "sqlite_", in any case.
    virtual bool IsSystemTable(const QString& TableName) const;
    virtual bool IsTemporaryTable(const QString& TableName) const;
    virtual bool IsTemporaryView(const QString& ViewName) const;

    // A walk over FTables or FViews runs: the lists are being rebuilt.
    bool RefreshingList() const { return FRefreshingList; }

protected:
    virtual std::unique_ptr<TBaseTableInfo> CreateTableInfo(const QString& TableName) = 0;
    virtual std::unique_ptr<TBaseViewInfo> CreateViewInfo(const QString& ViewName) = 0;
    // Lookups are hashed; whoever changes FTables or FViews calls this.
    void ListsChanged() { FIndexValid = false; }
    // Removes the items from every item's references, before they go.
    void ForgetItems(const std::vector<TMetadataBaseItem*>& Items);

    // For the time of a walk over a list: marks it, and makes lookups see
    // the list as it is afterwards.
    class TListRefresh {
    public:
        explicit TListRefresh(TBaseMetadata& Metadata) : FMetadata(Metadata) {
            FMetadata.FRefreshingList = true;
            FMetadata.ListsChanged();
        }
        ~TListRefresh() {
            FMetadata.FRefreshingList = false;
            FMetadata.ListsChanged();
        }
        TListRefresh(const TListRefresh&) = delete;
        TListRefresh& operator=(const TListRefresh&) = delete;

    private:
        TBaseMetadata& FMetadata;
    };

    std::vector<std::unique_ptr<TBaseTableInfo>> FTables;
    std::vector<std::unique_ptr<TBaseViewInfo>> FViews;

private:
    void BuildIndex() const;
    TMetadataBaseItem* Lookup(const std::unordered_map<QString, TMetadataBaseItem*>& Map,
                              const QString& Name) const;

    bool FRefreshingList = false;
    QString FRefreshErrors;
    mutable bool FIndexValid = false;
    mutable std::unordered_map<QString, TMetadataBaseItem*> FTableIndex, FViewIndex;
    mutable QStringList FDatabaseOrder;  // databases in the order unqualified names resolve
};

// The key under which two names that SameObject calls equal meet: both
// parts unquoted, ASCII letters folded, as the engine compares names.
QString MetadataNameKey(const QString& DatabaseName, const QString& ObjectName);
// Folds ASCII letters only, as the engine does for names.
QString FoldName(const QString& Name);
// ParseObject with both parts unquoted.
void SplitObjectName(const QString& QualifiedName, QString& DatabaseName, QString& ObjectName);

// For a refresh that keeps the parts of a table whose names are still
// there: takes the item for which Matches holds out of Items, leaving its
// slot empty, and looks at slot Hint first, where it stood before unless
// something changed. Nullptr when there is none.
template <typename T, typename TMatches>
std::unique_ptr<T> TakeItem(std::vector<std::unique_ptr<T>>& Items, size_t Hint, TMatches&& Matches) {
    if (Hint < Items.size() && Items[Hint] && Matches(*Items[Hint])) return std::move(Items[Hint]);
    for (auto& item : Items)
        if (item && Matches(*item)) return std::move(item);
    return nullptr;
}

}  // namespace brindle
