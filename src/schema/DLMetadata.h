// The metadata read through a database: the refresh walk that keeps items
// alive across refreshes, the order in which an item reads itself, and
// record counts. What the catalogue holds comes from the SQLite layer
// (DLSQLiteMetadata.h) through the virtual questions of TBaseMetadata.
//
// Threading: main thread only. A record count may come back later, but
// only on the main thread.
#pragma once

#include "DLBaseMetadata.h"
#include "engine/DLDatabase.h"

#include <functional>
#include <memory>
#include <optional>

namespace brindle {

// The seam for record counts. The counter is given an object's qualified
// name ("main.orders") and must call Done exactly once, on the main thread,
// with the number of rows, or with nothing when the object cannot be
// counted. It may call Done before it returns (the default counter runs
// "select count(*) from ..." on the metadata's own connection at once) or
// any time later (a background queue with connections of its own). Done
// checks by itself that the metadata and the object still exist: a count
// for an object that a refresh removed meanwhile, or that arrives after the
// metadata is gone, is dropped.
using TRecordCountDone = std::function<void(std::optional<qint64> Count)>;
using TRecordCounter = std::function<void(const QString& ObjectName, const TRecordCountDone& Done)>;

class TDLMetadata : public TBaseMetadata, private IConnectionClient {
public:
    explicit TDLMetadata(TDLDatabase* Database = nullptr);
    ~TDLMetadata() override;

    // Not owned. Destroying the database clears the link.
    TDLDatabase* Database() const { return FDatabase; }
    void SetDatabase(TDLDatabase* Database);
    // Forward to the database.
    void Connect() override;
    void Disconnect() override;

    // The identity of items survives: an item whose exact name is still in
    // the catalogue is refreshed in place, one that is gone, or whose name
    // now differs in case, is deleted, and a new name gets a new item. The
    // list ends in the catalogue's order. One item's failure does not stop
    // the others, and the item stays with what could be read; the messages
    // are raised together at the end, as an EObjectsRefreshError.
    void RefreshTables() override;
    void RefreshViews() override;

    // Empty restores the default, a synchronous count on Database().
    void SetRecordCounter(TRecordCounter Counter);
    // Asks the counter for the rows of a table or view; the result lands in
    // the item's FRecordCount, then FOnRecordCount is called.
    void UpdateRecordCount(TMetadataBaseItem& Item);
    // Every table and view.
    void UpdateRecordCounts();
    // Counts asked for and not yet come back.
    int RecordCountUpdates() const { return FRecordCountUpdates; }
    std::function<void(TMetadataBaseItem& Item)> FOnRecordCount;

protected:
    // The default counter's work: the count, or nothing when it fails.
    std::optional<qint64> CountRecords(const QString& ObjectName);

private:
    void ConnectionDestroyed() override { FDatabase = nullptr; }
    void RecordCountArrived(const QString& ObjectName, std::optional<qint64> Count);

    TDLDatabase* FDatabase = nullptr;
    TRecordCounter FRecordCounter;
    int FRecordCountUpdates = 0;
    // Counts that come back after the metadata is gone see this expired.
    std::shared_ptr<TDLMetadata*> FLife;
};

class TDLIndexInfo : public TBaseIndexInfo {
public:
    using TBaseIndexInfo::TBaseIndexInfo;
    // The stored text, the columns, then InitIndexFields.
    void RefreshSchema() override;

protected:
    // The columns' names in key order, empty for an expression.
    virtual void GetIndexFields(QStringList& Fields) = 0;
    // The column items already say all there is for these names: the
    // texts they were read from are unchanged. They are then kept.
    virtual bool IndexFieldsCurrent(const QStringList&) { return false; }
};

class TDLTableInfo : public TBaseTableInfo {
public:
    using TBaseTableInfo::TBaseTableInfo;

protected:
    // In this order: the stored text, columns, indexes, triggers, unique,
    // check and foreign key constraints, references.
    void InternalRefreshSchema() override;
    virtual void RefreshDDL();
    // The table's own triggers, then the temporary ones on it.
    void GetTriggers() override;
};

class TDLViewInfo : public TBaseViewInfo {
public:
    using TBaseViewInfo::TBaseViewInfo;

protected:
    // The stored text, columns, triggers, references.
    void InternalRefreshSchema() override;
    void RefreshDDL() override;
    void GetTriggers() override;
};

}  // namespace brindle
