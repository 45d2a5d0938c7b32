// The generic database interface: a connection with its events, the
// transactional operations that outside code uses on any database, and the
// plain records that describe fields, indexes and small results.
//
// Not thread-safe: a database object is used from the main thread only.
#pragma once

#include "DLParams.h"
#include "Exceptions.h"

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <vector>

namespace brindle {

// Anything bound to a connection that must let go of it when the connection
// object goes away (datasets register here).
class IConnectionClient {
public:
    virtual ~IConnectionClient() = default;
    virtual void ConnectionDestroyed() = 0;
    // The connection is about to close (not to go away).
    virtual void ConnectionClosing() {}
};

// The connection: Connected runs DoConnect or DoDisconnect between the four
// events. Clients are not owned.
class TCustomConnection {
public:
    TCustomConnection() = default;
    virtual ~TCustomConnection();
    TCustomConnection(const TCustomConnection&) = delete;
    TCustomConnection& operator=(const TCustomConnection&) = delete;

    bool Connected() const { return GetConnected(); }
    void SetConnected(bool value);

    // True while the object is being set up from stored state; connecting is
    // then a no-op.
    bool FLoading = false;

    std::function<void()> BeforeConnect, AfterConnect, BeforeDisconnect, AfterDisconnect;

    void RegisterClient(IConnectionClient* client);
    void UnregisterClient(IConnectionClient* client);
    int DataSetCount() const { return static_cast<int>(FClients.size()); }
    IConnectionClient* DataSets(int i) const { return FClients[static_cast<size_t>(i)]; }
    void DetachClients();

protected:
    virtual bool GetConnected() const = 0;
    virtual void DoConnect() = 0;
    virtual void DoDisconnect() = 0;

private:
    std::vector<IConnectionClient*> FClients;
};

struct TFieldRecord {
    QString FieldName;
    QString OriginalFieldName;
    QString FullSQLType;
    QString SQLType;
    TFieldType DataType = ftUnknown;
    int Size = 0;
    int Precision = 0;
    bool Required = false;
    QString DefaultValue;
};
using TFieldRecords = std::vector<TFieldRecord>;

enum TIndexOption { ixPrimary = 1, ixUnique = 2, ixDescending = 4, ixCaseInsensitive = 8, ixExpression = 16,
                    ixNonMaintained = 32 };
struct TIndexRecord {
    QString IndexName;
    int Options = 0;  // TIndexOption bits
};
using TIndexRecords = std::vector<TIndexRecord>;

enum TDatabaseStatus { dsConnected, dsDisconnected, dsUnavailable, dsAccessError };

// A small in-memory table of strings, for pragma results and the like.
class IRecordSet {
public:
    virtual ~IRecordSet() = default;
    virtual const QStringList& GetNames() const = 0;
    virtual int GetRecordCount() const = 0;
    virtual void Clear() = 0;
    // Asserts when the set already holds rows.
    virtual void AddField(const QString& Name) = 0;
    // Adds an empty row and returns its number.
    virtual int Append() = 0;
    virtual QString GetValueByName(int RecNo, const QString& FieldName) const = 0;
    virtual void SetValueByName(int RecNo, const QString& FieldName, const QString& Value) = 0;
    virtual QString GetValue(int RecNo, int FieldNo) const = 0;
    virtual void SetValue(int RecNo, int FieldNo, const QString& Value) = 0;
};
using IRecordSetPtr = std::shared_ptr<IRecordSet>;

class TRecordSet : public IRecordSet {
public:
    const QStringList& GetNames() const override { return FNames; }
    const std::vector<QStringList>& GetRecs() const { return FRecs; }
    int GetRecordCount() const override { return static_cast<int>(FRecs.size()); }
    void Clear() override;
    void AddField(const QString& Name) override;
    int Append() override;
    QString GetValueByName(int RecNo, const QString& FieldName) const override;
    void SetValueByName(int RecNo, const QString& FieldName, const QString& Value) override;
    QString GetValue(int RecNo, int FieldNo) const override;
    void SetValue(int RecNo, int FieldNo, const QString& Value) override;

private:
    int FieldIndex(const QString& FieldName) const;
    QStringList FNames;
    std::vector<QStringList> FRecs;
};

// Operations that the transfer engine uses on any database.
class TBaseDatabase : public TCustomConnection {
public:
    QString FAliasName;

    virtual bool GetInTransaction() = 0;
    virtual void BeginTransaction() = 0;
    virtual void Commit() = 0;
    virtual void Rollback() = 0;
    virtual bool TableExists(const QString& TableName) = 0;
    virtual void DropTable(const QString& TableName) = 0;
    virtual void DropView(const QString& ViewName) = 0;
};

// What datasets are written against.
class TDLDatabase : public TBaseDatabase {
public:
    bool FReadOnly = false;
    bool FShowWaitCursor = true;

    bool ReadOnly() const { return FReadOnly; }
    // Raises "Cannot set ReadOnly while connected".
    virtual void SetReadOnly(bool value);

    // Raises "Database not connected." through CreateException.
    virtual void CheckConnected();
    // Builds (does not raise) an exception that carries alias and file.
    [[nodiscard]] virtual ESQLiteException CreateException(const QString& Message) = 0;
    [[nodiscard]] virtual ESQLiteException CreateException(const QString& Message, const QString& Name,
                                                           const QString& Value) = 0;

    void Execute(const QString& SQL) { Execute(SQL, nullptr); }
    virtual void Execute(const QString& SQL, const TParams* Params) = 0;
    virtual QString GetStringValue(const QString& SQL);
    virtual bool Exists() = 0;
    virtual TDatabaseStatus GetStatus() = 0;

    // "a; b" -> "[a], [b]": the semicolon-separated list as quoted identifiers.
    static QString FormatFieldsList(const QString& Fields);
};

// Shows the wait cursor while a long call runs. The shell installs the hook;
// headless code leaves it empty.
using TWaitCursorHook = std::function<void(bool busy)>;
void SetWaitCursorHook(TWaitCursorHook hook);
class TWaitCursorGuard {
public:
    explicit TWaitCursorGuard(bool enabled);
    ~TWaitCursorGuard();
    TWaitCursorGuard(const TWaitCursorGuard&) = delete;
    TWaitCursorGuard& operator=(const TWaitCursorGuard&) = delete;

private:
    bool FEnabled;
};

}  // namespace brindle
