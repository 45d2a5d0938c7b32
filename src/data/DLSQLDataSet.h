// A dataset over the statements of a text, run on a SQLite database: rows
// come a window at a time from the open statement, a simple SELECT is
// rewritten so that its rows can be edited, and edits go back to the table.
//
// A dataset does not own its database; the database must outlive it while
// it is open, and a dataset closes when its database closes.
#pragma once

#include "DLDataSet.h"
#include "DLRowidMarks.h"
#include "engine/DLDatabase.h"
#include "engine/DLQueryInfo.h"

namespace brindle {

class TDLSQLiteDatabase;
class TSQLiteSQLHandle;

// A dataset over the statements of a text, run on a SQLite database. Rows
// come a window at a time; the count is known once the end was read, and
// until then estimated ahead of the cursor.
class TDLSQLDataSet : public TDLDataSet, private IConnectionClient {
public:
    TDLSQLDataSet();
    ~TDLSQLDataSet() override;

    TDLSQLiteDatabase* Database() const { return FDatabase; }
    void SetDatabase(TDLSQLiteDatabase* Value);
    const QString& SQLStr() const { return FSQLStr; }
    virtual void SetSQLStr(const QString& Value);
    const QString& CurrentSQL() const { return FCurrentSQL; }

    // Pages rows Offset .. Offset+Limit-1 of the open statement into the window.
    void LoadRecords(int Offset, int Limit) override;
    // Runs every statement of the text; a stop by Abort ends after the
    // running one.
    void ExecSQL();
    void Abort() { FAborted = true; }
    bool Aborted() const { return FAborted; }

    int GetRecordCount() override;
    bool ValidRecordCount() override { return FEofReached; }
    bool IsSQLDataSet() const override { return true; }
    int GetLastRecNo() const override { return FLastRecNo; }
    void SetLastRecNo(int Value) override { FLastRecNo = Value; }
    void SetEofReached() { FEofReached = true; }
    bool EofReached() const { return FEofReached; }
    // A stop cut the result after Count rows: that is its count, and no
    // later read goes beyond it until the statement runs anew. -1: not cut.
    void StopAt(int Count);
    int StoppedAt() const { return FStoppedAt; }

    bool FSmartBuffering = true;
    bool FCacheBlobs = true;
    bool FRecordCounting = false;
    // A simple SELECT may be rewritten so that its rows can be edited.
    bool FAllowPreprocess = true;
    // An inserted row is read back: defaults, rowid, what triggers did.
    bool FRefreshAfterInsert = true;
    // An insert lists the fields left null too.
    bool FInsertNulls = false;
    // Once open, a table read in rowid order is counted, and its places
    // noted, on a background connection: its end and any place of it are
    // then reached without reading there.
    bool FBackgroundCount = false;

    bool CanLoadField(const TField& Field) const override;
    void LoadField(const TDLRecData& Rec, const TField& Field) override;

    // The table or view that edits go to; empty for a read-only result.
    const QString& InternalTableName() const { return FInternalTableName; }
    const std::vector<TFieldInfoRec>& FieldInfoRecs() const { return FFieldInfoRecs; }
    const std::vector<TTableInfoRec>& TableInfoRecs() const { return FTableInfoRecs; }

    const QString& OrderClause() const { return FOrderClause; }
    // Reads the rows again in this order when the statement takes it.
    void SetOrderClause(const QString& Value);
    // The statement in that order; empty when it cannot take it.
    QString OrderedSQL(const QString& Order);
    bool Sortable() override;

protected:
    void InternalOpen() override;
    void InternalClose() override;
    void InternalInitFieldDefs() override;
    void CreateFields() override;
    std::unique_ptr<TDLDataSetData> CreateDataRecs() override;
    bool IsSQLiteData() const override { return true; }
    void InternalPost() override;
    void InternalDelete() override;
    // Binds the parameters of a prepared statement; nothing here.
    virtual void InternalSetParams(TSQLiteSQLHandle& SQLHandle) { (void)SQLHandle; }
    void CheckConnected();
    // The filter text as a condition of the statement; empty when it names
    // a field whose values the statement cannot compare as the filter
    // means them (dates, GUIDs).
    QString ServerFilterCondition();
    // The field definitions from a statement's columns, without running it.
    void DescribeColumns(const QString& SQL);
    // SQLite's own LIKE, so that a filter matches as a WHERE clause would.
    bool HasCustomLike() const override { return true; }
    void CustomLike(const QVariant& Source, const QVariant& Pattern, bool& Result) override;

    QString FOrderClause;
    // The same rows from a rowid on, for a result that comes in rowid order
    // with the rowid first: "... where rowid >= ?1 order by rowid". With
    // it, a window far behind the statement's position is read from the
    // nearest noted rowid instead of from the first row.
    QString FSeekSQL;
    // The order that makes the rows come in rowid order, when the text has
    // none; a sort of the user's replaces it, and then nothing is sought.
    QString FNaturalOrder;
    // The rowids alone in the same order, for the background count.
    QString FRowidScanSQL;

    // Reads a simple SELECT's columns and tables and rewrites it: every
    // column under a unique alias, a hidden rowid for each table that has
    // one and whose rowid is not selected.
    void PreprocessSQL(QString& SQL);
    // Chooses the table that edits go to and the key that finds a row.
    void UpdateKeyFields();

private:
    // The database closes: so does the dataset. It goes away: no link is left.
    void ConnectionClosing() override;
    void ConnectionDestroyed() override;
    // The state of a new result of SQL (empty: none), its fields and its
    // container made; no row read yet.
    void StartResult(const QString& SQL);
    void PrepareSingleSQL();
    std::vector<TFieldInfoRec> FFieldInfoRecs;
    std::vector<TTableInfoRec> FTableInfoRecs;
    // Puts a statement that continues the result at the noted row nearest
    // below Offset in place of the open one, when that saves stepping.
    void SeekTowards(int Offset);
    // The rowid a row of a result in rowid order holds in its first column.
    bool MarkedRowid(const TDLRecData* Rec, qint64& Rowid) const;
    // Rows came, went or changed their rowid: marks from there on go.
    void RowidChanged(const TDLRecData* Before, const TDLRecData* After);
    TRowidMarks FRowidMarks;
    void StartRowidScan();
    // What tells whether the file changed since: this connection's changes
    // and other connections' commits.
    QString ChangeStamp();
    // Counts and marks of a scan that began at Generation; taken only when
    // nothing changed the rows in between.
    void AdoptRowidScan(const std::vector<qint64>& Marks, qint64 Count, int Generation, const QString& Stamp);
    int FScanGeneration = 0;
    // Handlers of scans still running hold it weakly: a dataset that is
    // gone is not called.
    std::shared_ptr<int> FAlive = std::make_shared<int>(0);
    bool FSeeking = false;  // the open statement began at a mark
    int FStoppedAt = -1;

    TDLSQLiteDatabase* FDatabase = nullptr;  // not owned
    QString FSQLStr;
    QString FCurrentSQL;
    QString FInternalTableName;
    std::unique_ptr<TSQLiteSQLHandle> FSingleSQLHandle;
    bool FAborted = false;
    int FLastRecNo = 0;
    bool FEofReached = false;
};

}  // namespace brindle
