// Copying chosen tables and views from one database into another: their
// structure (columns, keys, indexes, constraints, triggers), their rows, in
// an order that puts what an object depends on first. The script writer and
// loader (ScriptExport.h, ScriptLoad.h) share the base and the object
// records.
//
// A run: make the transfer, fill FObjects and both databases, set switches
// and events, Execute; Clear (or destroy) afterwards. The metadata items the
// records point at and both databases are not owned and must outlive the run.
//
// Values arrive as they are stored: a row read from a SQLite table is bound
// into the destination in each value's own storage class, whatever the
// column's declared type says.
//
// Threading: Execute runs on the calling thread and blocks it; the events
// fire on it. Nothing here locks.
#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

struct sqlite3_context;
struct sqlite3_value;

namespace brindle {

class TBaseDatabase;
class TBaseMetadata;
class TBaseTableInfo;
class TBaseViewInfo;
class TDataSet;
class TDLSQLiteDatabase;
class TDLTableDef;
class TMetadataBaseItem;
class TPreparedStatement;

class TDataTransfer {
public:
    TDataTransfer();
    virtual ~TDataTransfer();
    TDataTransfer(const TDataTransfer&) = delete;
    TDataTransfer& operator=(const TDataTransfer&) = delete;

    // Forgets the objects and the databases, for the next run.
    virtual void Clear() = 0;
    virtual void Execute() = 0;

    std::function<void(TDataTransfer& Sender, const QString& Msg)> FOnLog;
    std::function<void(TDataTransfer& Sender)> FOnTransferComplete;
    std::function<void(TDataTransfer& Sender, int Position, int Max)> FOnProgress;
    std::function<void(TDataTransfer& Sender, const QString& TableName, qint64 Records)> FOnTableProgress;
    // Polled at every row (every 100 rows of a script) and every object;
    // setting Aborted stops the run at that point.
    std::function<void(TDataTransfer& Sender, bool& Aborted)> FOnCheckAbort;
    std::function<void(TDataTransfer& Sender, const QString& Error)> FOnTransferError;

    // All of the run or nothing: a savepoint around it.
    bool FUseTransaction = false;
    // Indexes are named "table_index" in the destination.
    bool FRenameIndexes = false;
    // Errors reach FOnTransferError only, and Execute returns normally.
    bool FHideExceptions = true;

    // The last run was stopped by FOnCheckAbort.
    bool Aborted() const { return FAborted; }

protected:
    void DoLog(const QString& Msg);
    void DoProgress(int Position, int Max);
    void DoTableProgress(const QString& TableName, qint64 Records);
    void DoOnTransferComplete();
    void DoOnTransferError(const QString& Error);
    // Asks FOnCheckAbort; sets FAborted when it says so. Returns FAborted.
    bool DoCheckAbort();

    bool FAborted = false;
};

// One chosen object. The metadata item is not owned.
class TObjRec {
public:
    virtual ~TObjRec();
    virtual bool GetSelected() const = 0;
    virtual TMetadataBaseItem* GetMetadataBaseItem() const = 0;

    bool FIncludeStructure = false;
    // Names of the object's triggers to copy, as the metadata has them.
    QStringList FTriggers;
};

class TViewRec : public TObjRec {
public:
    explicit TViewRec(TBaseViewInfo* ViewInfo) : FViewInfo(ViewInfo) {}
    // The structure or any trigger is wanted.
    bool GetSelected() const override;
    TMetadataBaseItem* GetMetadataBaseItem() const override;

    TBaseViewInfo* FViewInfo;
    // Filled with the source's name, quoted, when empty at the time of use.
    QString FDestViewName;
};

class TTableRec : public TObjRec {
public:
    explicit TTableRec(TBaseTableInfo* TableInfo) : FTableInfo(TableInfo) {}
    // Structure, data, or any index or trigger is wanted.
    bool GetSelected() const override;
    TMetadataBaseItem* GetMetadataBaseItem() const override;

    TBaseTableInfo* FTableInfo;
    bool FIncludeData = false;
    // Names of the indexes to copy; the key of a table whose key is its
    // rowid has an empty name.
    QStringList FIndexes;
    // Not-null, unique, check and foreign key constraints.
    bool FIncludeConstraints = false;
    QString FDestTableName;
};

using TTransferObjects = std::vector<std::unique_ptr<TObjRec>>;

// Records for the tables and views of Metadata's main database (the tables
// the engine keeps behind virtual tables and its own sqlite_ tables left
// out), or for those named (with or without "main."), each with its
// structure, constraints, every index and every trigger kept in the
// database, and with data when IncludeData. Raises "No table or view named
// %s" for a name it does not find.
void AddTransferObjects(TTransferObjects& Objects, const TBaseMetadata& Metadata, const QStringList& Names,
                        bool IncludeData);

// Orders the records so that what an object depends on (a parent table of
// its foreign keys, a table or view a view selects from) comes first. False
// when a cycle keeps that from settling; the order is then usable but not
// dependency-safe.
bool SortObjectsByDependencies(TTransferObjects& Objects);

// The order of steps over a list of objects, from one database into
// another of any kind.
class TDBToDB : public TDataTransfer {
public:
    TDBToDB();
    ~TDBToDB() override;

    void Clear() override;
    // Every object in list order inside one transaction when
    // FUseTransaction; see TDBToSQLite for the form in use.
    void Execute() override;

    // The quoted name for the destination, unqualified: the objects land in
    // the destination's main database.
    static QString DestObjectName(const QString& SourceName);

    TTransferObjects FObjects;
    // Drop a table or view of the same name before it is made.
    bool FDropDestination = false;
    TBaseDatabase* FDestDatabase = nullptr;    // not owned
    TBaseDatabase* FSourceDatabase = nullptr;  // not owned

protected:
    // Four passes: columns (only when not Sorted), structure, data, views.
    virtual void InternalDBToDB(bool Sorted);
    virtual void ViewToDatabase(TViewRec& ViewRec) = 0;
    // Rows through a dataset over the source table, one at a time.
    virtual void CopyData(TTableRec& TableRec);
    virtual void CopyStructure(TTableRec& TableRec, bool ColumnsOnly) = 0;

    // The source table as a dataset; a SQLite source gives a table dataset.
    virtual std::unique_ptr<TDataSet> OpenTable(const QString& TableName);
    // The current row of DataSet into the destination table.
    virtual void InsertCurrentRecord(TDataSet& DataSet, const QString& TableName, bool InsertNulls) = 0;
    // Called after the data pass (and before the views): what must wait
    // for the rows, such as triggers, which would fire on them.
    virtual void AfterData() {}

    // Drops a table of the destination by its quoted name.
    virtual void DropDestTable(const QString& TableName);
    // Fills FDestTableName when empty; logs "Copying table: ".
    void PrepareTable(TTableRec& TableRec);
    // FDropDestination: drops the destination's table of the record.
    void DropDestinationTable(TTableRec& TableRec);
};

// Writes into a SQLite database from any source.
class TDBToSQLite : public TDBToDB {
public:
    TDBToSQLite();
    ~TDBToSQLite() override;

    void Clear() override;
    // Foreign keys off around the run (refused inside an open transaction
    // while they are on), a savepoint when FUseTransaction, the passes.
    void Execute() override;

protected:
    TDLSQLiteDatabase& DestDatabase() const;

    void InternalDBToDB(bool Sorted) override;
    void ViewToDatabase(TViewRec& ViewRec) override;
    void CopyStructure(TTableRec& TableRec, bool ColumnsOnly) override;
    // The generic path, with computed columns left out and the counter
    // of an AUTOINCREMENT table carried over.
    void CopyData(TTableRec& TableRec) override;
    void InsertCurrentRecord(TDataSet& DataSet, const QString& TableName, bool InsertNulls) override;
    void AfterData() override;
    void DropDestTable(const QString& TableName) override;

    virtual void CopyFields(TTableRec& TableRec, TDLTableDef& TableDef);
    virtual void CopyIndexes(TTableRec& TableRec, TDLTableDef& TableDef);
    virtual void CopyTriggers(TTableRec& TableRec, TDLTableDef& TableDef);
    virtual void CopyConstraints(TTableRec& TableRec, TDLTableDef& TableDef);

    // The counter of an AUTOINCREMENT table follows the source's, which may
    // stand above the highest key copied.
    void CopySequence(TTableRec& TableRec);
    // The columns a row is written to: all but the computed ones.
    QStringList InsertableFields(const TTableRec& TableRec) const;

private:
    // Triggers made after all rows, per destination table.
    std::vector<std::pair<QString, QStringList>> FPendingTriggers;
    // Tables the column pass made, which the structure pass makes again.
    QStringList FColumnsMade;
    // The insert of the last row, kept prepared for the next.
    std::unique_ptr<TPreparedStatement> FInsert;
    QString FInsertSQL;
    QStringList FSkippedFields;
};

// Both sides SQLite: rows go from the source's statement into the
// destination's without being converted.
class TSQLiteToSQLite : public TDBToSQLite {
public:
    TSQLiteToSQLite();
    ~TSQLiteToSQLite() override;

    // With the source attached to the destination's connection, the rows
    // of a plain table go over inside the engine, still counted and
    // checked for an abort one by one. Taken when it can be: a source file
    // without a key, neither side in a transaction.
    bool FAttachSource = true;
    // Page size, encoding and auto-vacuum of the source, set first.
    bool FIncludeDBProperties = false;

    void Execute() override;

protected:
    TDLSQLiteDatabase& SourceDatabase() const;

    void InternalDBToDB(bool Sorted) override;
    void CopyData(TTableRec& TableRec) override;
    void CopyDBProperties();

private:
    struct TRowCounter;
    // Rows from the source's statement bound into the destination's.
    void CopyRows(TTableRec& TableRec);
    // One INSERT ... SELECT from the attached source.
    void CopyInEngine(TTableRec& TableRec);
    // The SQL function that counts the rows of CopyInEngine.
    static void RowCopied(sqlite3_context* Context, int Count, sqlite3_value** Values);

    bool FAttached = false;
};

}  // namespace brindle
