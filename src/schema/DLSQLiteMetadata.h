// The metadata of a SQLite connection: the tables and views of main, temp
// and every attached database, with what the catalogue gives (columns from
// "pragma table_xinfo", indexes from "pragma index_list" and "index_info")
// and what only the stored CREATE text tells, read by the parser:
// collations, conflict clauses, sort orders, autoincrement, constraint
// names, foreign keys, partial index conditions, virtual table modules.
//
// Use:
//     TDLSQLiteMetadata metadata(&database);  // database connected, not owned
//     metadata.Refresh();                     // after anything changed the schema
//     metadata.UpdateRecordCounts();          // counts through the counter seam
//
// A refresh reads each database's master table once, runs the column and
// index pragmas once per table and index, and asks the parser (through its
// cache) once per stored text. Tables of other connections' changes are
// seen at the next refresh; nothing polls.
//
// Threading: main thread only.
#pragma once

#include "DLMetadata.h"

#include <memory>
#include <vector>

namespace brindle {

class TDLSQLiteDatabase;
class TDLSQLiteMetadata;
struct TSQLiteCatalogue;

class TSQLiteFieldInfo : public TBaseFieldInfo {
public:
    QString FCollate;
    QString FNotNullConflictClause;
    // Place in the primary key, from 1; 0 when the column is not in it.
    int FPrimaryKey = 0;
    // GENERATED ALWAYS AS: the engine computes the value.
    bool FGenerated = false;
};

class TSQLiteIndexFieldInfo : public TBaseIndexFieldInfo {
public:
    QString FCollate;    // as written, empty for the column's own
    QString FSortOrder;  // "ASC", "DESC" as written, or empty
    bool FAutoincrement = false;
    // For a column that is an expression: its text, verbatim.
    QString FExpression;
};

class TSQLiteIndexInfo : public TDLIndexInfo {
public:
    using TDLIndexInfo::TDLIndexInfo;
    ~TSQLiteIndexInfo() override;
    TSQLiteIndexFieldInfo& Field(int i) const { return static_cast<TSQLiteIndexFieldInfo&>(IndexFields(i)); }

    QString FConflictClause;  // of a primary key
    QString FWhereClause;     // of a partial index, without WHERE

protected:
    std::unique_ptr<TBaseIndexFieldInfo> CreateIndexFieldInfo() override;
    void GetIndexFields(QStringList& Fields) override;
    bool IndexFieldsCurrent(const QStringList& Fields) override;
    void InitIndexFields() override;

private:
    // What the columns were last read from: the index's text, the table's
    // (for a key), and the options before and after.
    QString FReadSQL, FReadKeySQL;
    int FReadOptions = -1, FReadResultOptions = 0;
    // Each column's collation and order as the engine keeps them; empty
    // where the engine cannot tell (no index of its own, an old library).
    struct TEngineColumn {
        QString Collation;
        bool Descending = false;
    };
    std::vector<TEngineColumn> FEngineColumns;
};

struct TSQLiteParsedTable;

class TSQLiteTableInfo : public TDLTableInfo {
public:
    TSQLiteTableInfo(TDLSQLiteMetadata* Metadata, const QString& TableName);
    ~TSQLiteTableInfo() override;
    TSQLiteFieldInfo& Field(int i) const { return static_cast<TSQLiteFieldInfo&>(Fields(i)); }
    TSQLiteIndexInfo& Index(int i) const { return static_cast<TSQLiteIndexInfo&>(Indexes(i)); }

    // On one reading of the catalogue.
    void RefreshSchema() override;
    // The parents of the foreign keys, in this table's database.
    void GetReferences() override;

    bool FIsVirtual = false;
    // Made by a full-text or R*Tree table to hold its data; set by the
    // metadata after the walk.
    bool FIsShadow = false;
    bool FIsWithoutRowID = false;
    QString FModuleName;       // of a virtual table
    QString FModuleArguments;  // between the parentheses, verbatim

protected:
    void RefreshDDL() override;
    void GetFields() override;
    void GetIndexes() override;
    void GetUniqueConstraints() override;
    void GetCheckConstraints() override;
    void GetForeignKeys() override;
    std::unique_ptr<TBaseFieldInfo> CreateFieldInfo() override;
    std::unique_ptr<TBaseIndexInfo> CreateIndexInfo() override;

private:
    friend class TSQLiteIndexInfo;
    TDLSQLiteMetadata& Metadata() const;

    QString FDatabaseName, FObjectName;  // FTableName's parts, unquoted
    // What the parser made of FSQL, kept while the text stays the same, so
    // that a refresh parses only the texts that changed.
    std::unique_ptr<TSQLiteParsedTable> FParsed;
};

class TSQLiteViewInfo : public TDLViewInfo {
public:
    TSQLiteViewInfo(TDLSQLiteMetadata* Metadata, const QString& ViewName);

    // On one reading of the catalogue.
    void RefreshSchema() override;

    // The tables and views that the select names, each found in the
    // database it names, or else in the view's own (a temporary view
    // resolves as the engine does: temp, main, the others).
    void GetReferences() override;

protected:
    void GetFields() override;

private:
    TDLSQLiteMetadata& Metadata() const;
};

class TDLSQLiteMetadata : public TDLMetadata {
public:
    explicit TDLSQLiteMetadata(TDLSQLiteDatabase* Database = nullptr);
    ~TDLSQLiteMetadata() override;

    // Not owned; the same object as Database().
    TDLSQLiteDatabase* SQLiteDatabase() const;
    void SetDatabase(TDLSQLiteDatabase* Database);

    TSQLiteTableInfo* FindSQLiteTable(const QString& Name) const;
    TSQLiteTableInfo& SQLiteTables(int i) const { return static_cast<TSQLiteTableInfo&>(Tables(i)); }

    // Reads the catalogue once for the whole walk.
    void RefreshSchema() override;
    // After the walk, marks the shadow tables.
    void RefreshTables() override;
    void RefreshViews() override;

    // Tables of every database (main, temp, attached, in the connection's
    // order), each database's sorted by name; shadow tables included.
    void GetTableNames(QStringList& List, bool IncludeSystemTables) override;
    void GetViewNames(QStringList& List) override;
    QString GetTableDDL(const QString& TableName) override;
    QString GetViewDDL(const QString& ViewName) override;
    QString GetIndexDDL(const QString& TableName, const QString& IndexName) override;
    QString GetTriggerDDL(const QString& OwnerName, const QString& TriggerName, bool IsTemporary) override;
    void GetTriggerNames(const QString& OwnerName, QStringList& List) override;
    void GetTemporaryTriggerNames(const QString& OwnerName, QStringList& List) override;

    // The catalogue as read now, or for the refresh that runs: while a
    // scope lives, every question is answered from one reading of the
    // master tables.
    class TCatalogueScope {
    public:
        explicit TCatalogueScope(TDLSQLiteMetadata& Metadata);
        ~TCatalogueScope();
        TCatalogueScope(const TCatalogueScope&) = delete;
        TCatalogueScope& operator=(const TCatalogueScope&) = delete;

    private:
        TDLSQLiteMetadata& FMetadata;
    };

protected:
    std::unique_ptr<TBaseTableInfo> CreateTableInfo(const QString& TableName) override;
    std::unique_ptr<TBaseViewInfo> CreateViewInfo(const QString& ViewName) override;

private:
    friend class TSQLiteTableInfo;
    friend class TSQLiteIndexInfo;
    friend class TSQLiteViewInfo;
    TSQLiteCatalogue& Catalogue();
    void MarkShadowTables();

    std::unique_ptr<TSQLiteCatalogue> FCatalogue;
    int FCatalogueDepth = 0;
};

// How the object tree shows an item; a database's own node is ntDatabase.
enum TTreeNodeType { ntUnknown, ntDatabase, ntTable, ntView, ntVirtualTable, ntShadowTable };
TTreeNodeType GetNodeType(const TMetadataBaseItem* Item);

// A record counter for the metadata that counts on the database's
// background connections, so that no count holds up the window or waits
// for the main connection's locks; results come back on the main thread,
// which must run an event loop. What those connections cannot see
// (temporary and attached objects, a memory database) is counted at once
// on the main connection.
TRecordCounter QueryQueueRecordCounter(TDLSQLiteDatabase& Database);

}  // namespace brindle
