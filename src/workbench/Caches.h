// Small containers that remember things per database alias: the open
// databases with their metadata, the columns a user chose to show for a
// table, a value and the recent SQL texts per alias, and a stack. All of
// them belong to the main thread.
#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

class QSettings;

namespace brindle {

class TDLSQLiteDatabase;
class TDLSQLiteMetadata;

// The open databases, each with its metadata; entry I of one belongs to
// entry I of the other, and the list owns both.
class TMetaList {
public:
    TMetaList();
    ~TMetaList();
    TMetaList(const TMetaList&) = delete;
    TMetaList& operator=(const TMetaList&) = delete;

    void AddDatabase(std::unique_ptr<TDLSQLiteDatabase> Database, std::unique_ptr<TDLSQLiteMetadata> Metadata);
    // Tells OnDeleting first, then frees both; nothing for an unknown alias.
    void DeleteDatabase(const QString& AliasName);
    int GetMetadataCount() const { return static_cast<int>(FMetadata.size()); }
    TDLSQLiteMetadata& GetMetadata(int Index) const { return *FMetadata[static_cast<size_t>(Index)]; }
    TDLSQLiteDatabase& GetDatabase(int Index) const { return *FDatabases[static_cast<size_t>(Index)]; }
    // Aliases compare exactly, file names case-sensitively; null when absent.
    TDLSQLiteMetadata* FindMetadataByAliasName(const QString& AliasName) const;
    TDLSQLiteDatabase* FindDatabaseByAliasName(const QString& AliasName) const;
    TDLSQLiteMetadata* FindMetadataByFileName(const QString& FileName) const;
    TDLSQLiteDatabase* FindDatabaseByFileName(const QString& FileName) const;
    // Reads the schema again and tells OnRefreshMetadata the alias.
    void RefreshMetadata(TDLSQLiteMetadata& Metadata);
    void RefreshMetadata(const QString& AliasName);
    void RefreshAll();

    std::function<void(TDLSQLiteDatabase& Database)> OnAdded;
    std::function<void(TDLSQLiteDatabase& Database)> OnDeleting;
    std::function<void(const QString& AliasName)> OnRefreshMetadata;

private:
    int IndexOfAlias(const QString& AliasName) const;
    int IndexOfFile(const QString& FileName) const;

    // The metadata goes first: it refers to its database.
    std::vector<std::unique_ptr<TDLSQLiteDatabase>> FDatabases;
    std::vector<std::unique_ptr<TDLSQLiteMetadata>> FMetadata;
};

// The columns the user chose to show, per alias and table.
class TColumnsCache {
public:
    struct TItem {
        QString AliasName;
        QString TableName;
        QStringList Columns;
    };

    // An empty list removes the table's choice.
    void SetColumns(const QString& AliasName, const QString& TableName, const QStringList& Columns);
    // Null when there is no choice for the table.
    const TItem* Find(const QString& AliasName, const QString& TableName) const;
    void ClearAlias(const QString& AliasName);
    void RenameAlias(const QString& OldAliasName, const QString& NewAliasName);
    void RenameTable(const QString& AliasName, const QString& OldTableName, const QString& NewTableName);
    int Count() const { return static_cast<int>(FItems.size()); }
    // The section is erased, then "Count" and per item I "Item_I_Alias",
    // "Item_I_Table", "Item_I_Count" and per column J "Item_I_J".
    void SaveToIniFile(QSettings& IniFile, const QString& Section) const;
    void LoadFromIniFile(QSettings& IniFile, const QString& Section);

private:
    std::vector<TItem> FItems;
};

// A value and the recent SQL texts of each alias.
class TDBCache {
public:
    static constexpr int MaxHistory = 20;
    struct TDBItem {
        QString Alias;
        QString Value;
        QStringList SQLHistory;  // newest first
    };

    void SetValue(const QString& Alias, const QString& Value);
    // Empty for an unknown alias, which stays unknown.
    QString GetValue(const QString& Alias) const;
    void ClearAlias(const QString& Alias);
    // The text goes to the front; a text already there moves up, and the
    // oldest goes when the history is full.
    void AddSQL(const QString& Alias, const QString& SQL);
    TDBItem* GetItem(const QString& Alias);
    TDBItem& NewItem(const QString& Alias);
    void RenameAlias(const QString& OldAlias, const QString& NewAlias);
    // Drops texts that are blank.
    void Compact();
    int Count() const { return static_cast<int>(FItems.size()); }
    TDBItem& Items(int Index) { return FItems[static_cast<size_t>(Index)]; }
    const TDBItem& Items(int Index) const { return FItems[static_cast<size_t>(Index)]; }

private:
    std::vector<TDBItem> FItems;
};

// A stack of objects; the owning kind frees what it still holds.
template <class T>
class TLIFO {
public:
    explicit TLIFO(bool OwnsObjects = false) : FOwnsObjects(OwnsObjects) {}
    ~TLIFO() { Clear(); }
    TLIFO(const TLIFO&) = delete;
    TLIFO& operator=(const TLIFO&) = delete;

    void Push(T* Object) { FItems.push_back(Object); }
    // The object on top, taken off; null when empty. The caller owns it.
    T* Pop() {
        if (FItems.empty()) return nullptr;
        T* object = FItems.back();
        FItems.pop_back();
        return object;
    }
    T* Peek() const { return FItems.empty() ? nullptr : FItems.back(); }
    T* Last() const { return Peek(); }
    bool Empty() const { return FItems.empty(); }
    int Count() const { return static_cast<int>(FItems.size()); }
    void Clear() {
        while (T* object = Pop())
            if (FOwnsObjects) std::unique_ptr<T> owned(object);
    }

private:
    bool FOwnsObjects;
    std::vector<T*> FItems;  // owned when FOwnsObjects
};

}  // namespace brindle
