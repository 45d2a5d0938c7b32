// The one object through which the program talks to an open SQLite database:
// it owns the connection, opens and creates files, turns engine errors into
// exceptions with a uniform text, keeps track of attachments, extensions
// and savepoints, and lists schema objects.
//
// Threading: every call comes from the main thread, except Interrupt, which
// may come from anywhere. Background work uses connections of its own.
//
// The members are defined by concern: the connection in DLSQLiteDatabase.cpp,
// statements in DLSQLiteStatements.cpp, the catalogue in DLSQLiteCatalog.cpp.
#pragma once

#include "DLDatabase.h"
#include "DLTypeMapping.h"
#include "SQLText.h"

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace brindle {

class TDLSQLiteDatabase;
class TSQLitePragmaOption;
class TSQLitePragmaOptions;
class TThreadPool;
class TThreadTask;

// A cursor over a text of several statements.
class TSQLHandle {
public:
    virtual ~TSQLHandle() = default;
    virtual bool Complete() const = 0;
    virtual QString CurrentStatement() const = 0;
    virtual bool Prepared() const = 0;
};

// Walks the statements of a text one by one. Registers itself with its
// database, which does not own it; destruction finalizes a held statement.
class TSQLiteSQLHandle : public TSQLHandle {
public:
    TSQLiteSQLHandle(TDLSQLiteDatabase* Database, const QString& SQL);
    ~TSQLiteSQLHandle() override;
    TSQLiteSQLHandle(const TSQLiteSQLHandle&) = delete;
    TSQLiteSQLHandle& operator=(const TSQLiteSQLHandle&) = delete;

    bool Complete() const override { return FNext >= FItems.size(); }
    QString CurrentStatement() const override;
    bool Prepared() const override { return FSQLHandle != nullptr; }
    // Back to the first row of the current statement.
    void Reset();
    void Finalize();
    // The database is going away: drop the statement and the link.
    void Detach();

    TDLSQLiteDatabase* FDatabase;  // not owned
    QStringList FItems;
    sqlite3_stmt* FSQLHandle = nullptr;
    qsizetype FCurrent = -1;
    qsizetype FNext = 0;
    qint64 FLastSteppedRecNo = 0;
};

// Open savepoints, oldest first, names as given.
class TSavepointList {
public:
    void Savepoint(const QString& Name) { FItems.append(Name); }
    int FindLast(const QString& Name) const;
    void Release(const QString& Name);
    void Rollback(const QString& Name);
    void Clear() { FItems.clear(); }
    int Count() const { return static_cast<int>(FItems.size()); }
    QString operator[](int i) const { return FItems[i]; }

private:
    QStringList FItems;
};

// Logical database name to file name; names compare case-insensitively.
class TNameValueContainer {
public:
    void Clear();
    void Delete(const QString& Name);
    int Count() const { return static_cast<int>(FNames.size()); }
    QString Names(int i) const { return FNames[i]; }
    QString Values(int i) const { return FValues[i]; }
    QString ValuesByName(const QString& Name) const;
    void SetValueByName(const QString& Name, const QString& Value);

private:
    int IndexOf(const QString& Name) const;
    QStringList FNames;
    QStringList FValues;
};

struct TSQLiteExtension {
    QString FileName;
    QString EntryPoint;
};

enum TStringOption { soUseMemo = 1, soUseDefaultSize = 2 };
// A set without either member becomes {soUseMemo}.
int ValidateStringOptions(int options);

// Stored nowhere: each read and write is a pragma on the connection.
class TSQLiteDatabaseParams {
public:
    explicit TSQLiteDatabaseParams(TDLSQLiteDatabase* owner) : FOwner(owner) {}
    int AutoVacuum() const;
    void SetAutoVacuum(int value);
    int PageSize() const;
    void SetPageSize(int value);
    QString Encoding() const;
    void SetEncoding(const QString& value);

private:
    // The pragma's value as a number; 0 when it does not read as one.
    int IntPragma(const char* name) const;
    TDLSQLiteDatabase* FOwner;  // not owned
};

class TDLSQLiteDatabase : public TDLDatabase {
public:
    TDLSQLiteDatabase();
    ~TDLSQLiteDatabase() override;

    // --- properties -----------------------------------------------------
    sqlite3* Handle() const { return FDB; }
    QString FileName() const { return FFileName; }
    // Raises "Cannot change FileName while connected".
    void SetFileName(const QString& value);
    QString AliasName() const { return FAliasName; }
    void SetAliasName(const QString& value) { FAliasName = value; }
    bool Unicode() const { return FUnicode; }
    void SetUnicode(bool value);
    QString EncryptionKey() const { return FEncryptionKey; }
    // Connected: rekeys the file (raises without encryption support).
    void SetEncryptionKey(const QString& value);
    bool LoadExtensionEnabled() const { return FLoadExtensionEnabled; }
    void SetLoadExtensionEnabled(bool value);
    int StringOptions() const { return FStringOptions; }
    void SetStringOptions(int value) { FStringOptions = ValidateStringOptions(value); }
    int DefaultFieldSize() const { return FDefaultFieldSize; }
    void SetDefaultFieldSize(int value) { FDefaultFieldSize = value; }
    TSQLiteDatabaseParams& DatabaseParams() { return FDatabaseParams; }
    bool CorruptedFile() const { return FCorruptedFile; }
    // The text encoding as a code page: 65001, 1200 (UTF-16LE), 1201 (UTF-16BE).
    int GetEncoding();
    // The schema version of every database of the connection, joined by
    // ",": a change from outside shows as a different text.
    QString SchemaVersion();

    // Names from "pragma database_list", main first.
    int DatabaseCount();
    QString Databases(int i);
    QStringList DatabaseNames();
    int AttachedDatabaseCount();
    QString AttachedDatabases(int i);
    int ExtensionCount() const { return static_cast<int>(FExtensions.size()); }
    const TSQLiteExtension& Extensions(int i) const { return FExtensions[static_cast<size_t>(i)]; }
    int SavepointCount() const { return FSavepoints.Count(); }
    QString Savepoints(int i) const { return FSavepoints[i]; }
    void ClearSavepoints() { FSavepoints.Clear(); }
    int PragmaCount() const;
    TSQLitePragmaOption* Pragma(int i) const;
    // Case-insensitive; null for a name the table does not list.
    TSQLitePragmaOption* PragmaByName(const QString& Name) const;

    // --- lifecycle --------------------------------------------------------
    // Makes a new file; raises when connected, without a library, or when
    // the file exists.
    void CreateDatabase(int AutoVacuum, int PageSize, const QString& Encoding, const QString& EncryptionKey);
    // 3 for "SQLite format 3", 2 for an SQLite 2 header, 0 otherwise.
    static int GetDatabaseVersion(const QString& FileName);

    // --- errors -----------------------------------------------------------
    // The one road from an engine code to an exception. Returns the code
    // when it raised nothing, so callers can test 100 and 101.
    int SQLiteCheck(int ErrorCode, const QString& SQL = QString(), const TParams* Params = nullptr);
    // Adds alias, file, statement (five lines at most) and parameters to an
    // ESQLiteException; other exceptions pass untouched.
    void CheckException(ECustomException& E, const QString& SQL, const TParams* Params);
    ESQLiteException CreateException(const QString& Message) override;
    ESQLiteException CreateException(const QString& Message, const QString& Name, const QString& Value) override;

    // --- generic services -------------------------------------------------
    using TDLDatabase::Execute;
    void Execute(const QString& SQL, const TParams* Params) override;
    QString GetStringValue(const QString& SQL) override;
    void GetValues(const QString& SQL, QStringList& Values);
    // Runs the first statement only and keeps every row as text.
    IRecordSetPtr GetRecordSet(const QString& SQL);
    // Rows of a SELECT (by count(*)), PRAGMA or EXPLAIN; 0 for anything else.
    qint64 GetRecordCount(const QString& SQL);
    void Interrupt();
    int GetChanges();
    int GetTotalChanges();
    qint64 GetLastInsertRowID();
    double GetLastLockTime() const { return FLastLockTime; }
    // When a paused read cursor last took its lock (now, as a date).
    void SetLastLockTime(double Value) { FLastLockTime = Value; }
    QString IntegrityCheck();
    TDatabaseStatus GetStatus() override;
    bool Exists() override;
    // Questions about SQL text, answered by the parser once it is installed.
    // A statement that returns rows: EXPLAIN, PRAGMA or SELECT.
    bool HasSQLCursor(const QString& SQL);
    bool IsSelectSQL(const QString& SQL);
    bool IsSimpleSelect(const QString& SQL);
    bool HasOrderBy(const QString& SQL);
    QString GetTableNameFromSQL(const QString& SQL);
    int GetTableCountFromSQL(const QString& SQL);
    QString FixFilterExpression(const QString& SQL, const QStringList& ExcludedFieldNames);
    bool IsValidSQL(const QString& SQL);
    void CheckValidSQL(const QString& SQL);

    // --- transactions -----------------------------------------------------
    bool GetInTransaction() override;
    void BeginTransaction() override;
    void Commit() override;
    void Rollback() override;

    // --- schema helpers ---------------------------------------------------
    bool TableExists(const QString& TableName) override;
    bool ViewExists(const QString& ViewName);
    bool DatabaseExists(const QString& Name);
    static bool IsSystemTable(const QString& TableName);
    static bool IsTempTable(const QString& TableName);
    static bool IsTempView(const QString& ViewName);
    static bool IsRowIDField(const QString& FieldName);
    bool IsVirtualTable(const QString& TableName, QString* ModuleName = nullptr);
    bool IsFtsVirtualTable(const QString& TableName);
    bool IsFtsShadowTable(const QString& TableName);
    bool IsRtreeShadowTable(const QString& TableName);
    bool IsWithoutRowID(const QString& TableName);
    bool CanModifyTable(const QString& TableName);
    QString GetObjectDDL(const QString& OwnerName, const QString& ObjectName);
    QString GetTriggerDDL(const QString& OwnerName, const QString& ObjectName, bool IsTemporary);
    void DropTable(const QString& TableName) override;
    void DropView(const QString& ViewName) override;

    // Flags of GetTableNames: set for virtual tables (and shadow tables when
    // they are listed).
    struct TNameEntry {
        QString Name;
        bool Flag = false;
    };
    void GetTableNames(const QString& DatabaseName, std::vector<TNameEntry>& TableNames, bool SystemTables,
                       bool ShadowTables, bool QualifyTableNames);
    void GetTableNames(QStringList& List, bool SystemTables);
    void GetViewNames(const QString& DatabaseName, std::vector<TNameEntry>& ViewNames, bool QualifyViewNames);
    void GetViewNames(QStringList& List);
    void GetIndexNames(const QString& TableName, QStringList& IndexNames);
    void GetTriggerNames(const QString& TableName, QStringList& TriggerNames);
    void GetTemporaryTriggerNames(const QString& TableName, QStringList& TriggerNames);
    void GetCollations(const QString& DatabaseName, QStringList& List);

    void GetFields(const QString& TableName, TFieldRecords& FieldRecs);
    void GetIndexes(const QString& TableName, TIndexRecords& IndexRecs);
    void GetIndexFields(const QString& TableName, const QString& IndexName, QStringList& Fields);
    void GetRowIDFields(const QString& TableName, QStringList& List);
    QString GetRowIDFieldName(const QString& TableName);
    // The column that is the rowid under a name of its own (a lone INTEGER
    // PRIMARY KEY, not DESC); empty when there is none.
    QString GetRowIDAliasField(const QString& TableName);
    // Fields null or empty: "*".
    QString GetSelectSQL(const QString& TableName, const QStringList* Fields);
    void GetFieldNamesFromTable(const QString& TableName, QStringList& List);
    void GetFieldNamesFromSQL(const QString& SQL, QStringList& List);

    // --- type mappings ------------------------------------------------------
    // Each clears its outputs and asks FTypeMappings; an unknown type name
    // thus gives ftUnknown here.
    const TDLTypeMappings& TypeMappings() const { return FTypeMappings; }
    void SetTypeMappings(const TDLTypeMappings& value) { FTypeMappings.Assign(value); }
    // The declared type as field type, size and precision, and BaseType the
    // type's name without its size.
    virtual void SQLStrToDataType(const QString& SQLType, TFieldType& DataType, int& Size, int& Precision,
                                  QString& BaseType);
    void SQLStrToDataType(const QString& SQLType, QString& DataType, QString& Size, QString& Precision);
    void SQLStrToDataType(const QString& SQLType, TFieldType& DataType, QString& Size, QString& Precision);
    void SQLStrToDataType(const QString& SQLType, TFieldType& DataType, int& Size, int& Precision);
    QString DataTypeToSQLStr(TFieldType DataType) const { return FTypeMappings.DataTypeToSQLStr(DataType); }
    QString DataTypeToSQLStr(TFieldType DataType, int Size, int Precision) const {
        return FTypeMappings.DataTypeToSQLStr(DataType, Size, Precision);
    }
    bool SupportsDataType(TFieldType DataType) const { return FTypeMappings.SupportsDataType(DataType); }

    // --- connection level -------------------------------------------------
    void Attach(const QString& FileName, const QString& Alias);
    QString GetAttachedFileName(const QString& DatabaseName) const;
    // Raises with the engine's text when the library refuses.
    void LoadExtension(const QString& FileName, const QString& EntryPoint);
    using TBackupProgress = std::function<void(int Remaining, int PageCount, bool& Stop)>;
    // The result is the destination's last engine code; raises only when
    // the library has no backup entries.
    int Backup(const QString& FileName, const TBackupProgress& Progress);

    // --- statements -------------------------------------------------------
    std::unique_ptr<TSQLiteSQLHandle> CreateSQLHandle(const QString& SQL);
    void Prepare(TSQLiteSQLHandle& SQLHandle);
    void BindParams(TSQLiteSQLHandle& SQLHandle, const TParams* Params);
    // The parameter names of a statement, "" for an unnamed one; nothing
    // when it does not prepare.
    void GetParamNames(const QString& SQL, QStringList& ParamNames);
    void CreateParams(const QString& SQL, TParams& Params);
    void ExecuteNext(TSQLiteSQLHandle& SQLHandle);
    int InternalPrepare(const QString& SQL, sqlite3_stmt*& Handle);
    int InternalPrepareNoCheck(const QString& SQL, sqlite3_stmt*& Handle);
    void InternalBeforeExecute(const QString& SQL);
    void InternalAfterExecute(const QString& SQL);
    // Resets every live handle so paused read cursors give up their locks.
    void ResetHandles();

    // --- events -----------------------------------------------------------
    std::function<void(bool& Continue)> FOnProgress;
    std::function<void(const QString& SQL, quint64 Nanoseconds)> FOnProfile;
    std::function<void(const QString& SQL)> FBeforeExecute, FAfterExecute, FBeforePrepare;
    std::function<void(const QString& SQL, int ErrorCode)> FAfterPrepare;

    virtual void DoBeforePrepare(const QString& SQL);
    virtual void DoAfterPrepare(const QString& SQL, int ErrorCode);
    virtual void DoOnProgress(bool& Continue);

    // --- background queries ---------------------------------------------
    // Hands the task to one of the background connections; its handler
    // fires on this thread once it ran. Returns the task when nothing took
    // it: not connected, or a memory database, which no other connection
    // can see.
    std::unique_ptr<TThreadTask> RunAsyncTask(std::unique_ptr<TThreadTask> Task, bool HighPriority = false);
    // Null when not connected.
    TThreadPool* ThreadPool() const { return FThreadPool.get(); }
    // Rebuilds the pool: eight workers for a file, none for a memory
    // database. A worker starts, and opens its read-only connection, with
    // its first task. Only when connected.
    void InitializeQueryQueue();
    // Drops the pool; returns once the running tasks ended. Tasks that wait
    // are freed unrun, and their handlers never fire.
    void FinalizeQueryQueue();

protected:
    bool GetConnected() const override { return FDB != nullptr; }
    void DoConnect() override;
    void DoDisconnect() override;

private:
    friend class TSQLiteSQLHandle;
    void InternalOpen(bool Create);
    void CheckIfSupportsSavepoints();
    QString InternalGetStringValue(const QString& SQL);
    void InternalGetStringValues(const QString& SQL, QStringList& Values, int Index);
    qint64 InternalGetRecordCount(const QString& SQL);
    QString MasterTable(const QString& DatabaseName) const;
    int CountRows(const QString& SQL);
    bool ObjectExists(const QString& QualifiedName, const char* Type, bool SystemNames);
    void ReadTableInfo(const QString& TableName, IRecordSetPtr& Result);
    QString ColumnText(sqlite3_stmt* stmt, int col) const;
    void Attached(const QString& Name, const QString& FileName);
    void Detached(const QString& Name);
    void CheckLoadExtension(const QString& SQL);
    static int ProgressCallback(void* Obj);
    static void ProfileCallback(void* Obj, const char* SQL, quint64 Time);

    sqlite3* FDB = nullptr;
    bool FCorruptedFile = false;
    TSQLiteDatabaseParams FDatabaseParams{this};
    int FDefaultFieldSize = 50;
    QString FFileName;
    int FStringOptions = soUseMemo;
    TDLTypeMappings FTypeMappings = DefaultTypeMappings();
    int FStepCounter = 0;
    bool FLoadExtensionEnabled = false;
    QString FEncryptionKey;
    TNameValueContainer FDatabaseFiles;
    std::vector<TSQLiteExtension> FExtensions;
    TSavepointList FSavepoints;
    std::unique_ptr<TSQLitePragmaOptions> FPragmas;
    std::vector<TSQLiteSQLHandle*> FSQLHandles;  // not owned
    bool FUnicode = true;
    int FEncoding = 0;  // cached code page; 0 = unknown
    double FLastLockTime = 0;
    std::unique_ptr<TThreadPool> FThreadPool;
};

}  // namespace brindle
