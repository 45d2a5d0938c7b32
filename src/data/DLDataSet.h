// The datasets: a cursor over record containers, one over a SQL result that
// fetches rows a window at a time, and a query with parameters.
//
// A dataset does not own its database; the database must outlive it while
// it is open.
#pragma once

#include "DataSet.h"
#include "DLRecData.h"
#include "DLRowidMarks.h"
#include "engine/DLDatabase.h"
#include "engine/DLParams.h"
#include "engine/DLQueryInfo.h"

#include <QStringList>

namespace brindle {

class TDLExpr;
class TDLSQLiteDatabase;
class TSQLiteSQLHandle;

// A cursor over a TDLDataSetData: navigation, bookmarks, posting in memory.
class TDLDataSet : public TDataSet {
public:
    TDLDataSet();
    ~TDLDataSet() override;

    bool FReadOnly = false;
    // Semicolon-separated result names that identify a row, and the table
    // column names of the same key.
    QString FKeyFieldNames;
    QString FOriginKeyFieldNames;

    int GetRecNo() override;
    void SetRecNo(int Value) override;
    bool BookmarkValid(const TBookmark& Bookmark) override;
    int CompareBookmarks(const TBookmark& Bookmark1, const TBookmark& Bookmark2) override;
    QVariant GetOldFieldValue(const TField& Field) const override;
    QStringList GetKeyFieldNames() const override;

    // The row at a result index (from 0) for a view that reads rows without
    // moving the cursor; null past the end. The pointer lasts until the next
    // read moves the window.
    const TDLRecData* RecordAt(int Index);
    virtual bool ValidRecordCount() { return true; }
    virtual bool GetCanModify() const { return FCanModify && !FReadOnly; }
    TDLDataSetData* Recs() const { return FRecs.get(); }

    // Finds the first row, from the current one on and then from the top,
    // whose fields (semicolon-separated names) hold the values; stays put
    // when none does. Options are TLocateOption bits.
    bool Locate(const QString& KeyFields, const QVariantList& KeyValues, int Options = 0);
    // The values of ResultFields in the row Locate would find, without
    // moving; an empty list when there is none.
    QVariantList Lookup(const QString& KeyFields, const QVariantList& KeyValues, const QString& ResultFields);
    TBookmark GetBookmarkForRecNo(int RecNo);
    // The row as it was read: the container's copy while the active one is
    // edited, else the active row.
    const TDLRecData* OldRecData() const;

    // Rows in memory sort by a field; a SQL result sorts on the server.
    virtual bool Sortable();
    // Sorts the rows in memory; the cursor stays on its row.
    void Sort(const TField& Field, bool Ascending);

    // --- filtering ---------------------------------------------------------
    void SetFilterText(const QString& Value) override;
    void SetFiltered(bool Value) override;
    void SetFilterOptions(int Value) override;
    const QString& FilterDateFormat() const { return FFilterDateFormat; }
    void SetFilterDateFormat(const QString& Value);
    // The count of rows the filter lets through: -1 while not all are loaded.
    int GetFilteredCount();
    int GetFilteredRecNo();
    // Whether the filter can move into the statement.
    virtual bool CanServerFilter() { return false; }

    // --- copying -----------------------------------------------------------
    // Values of the fields of the same name; "Source dataset closed" when
    // Source is not open.
    void AssignFields(TDataSet& Source);
    // Appends Source's current row and posts it.
    void CopyRecord(TDLDataSet& Source);
    // Appends every row of Source.
    void CopyRecs(TDLDataSet& Source);

    // --- TRecordOwner, for datasets without a statement --------------------
    bool IsSQLDataSet() const override { return false; }
    void LoadRecords(int Offset, int Limit) override {
        (void)Offset;
        (void)Limit;
    }
    int GetLastRecNo() const override { return 0; }
    void SetLastRecNo(int Value) override { (void)Value; }

protected:
    void InternalOpen() override;
    void InternalClose() override;
    bool IsCursorOpen() const override { return FRecs != nullptr; }
    std::unique_ptr<TDLRecData> AllocRecordBuffer() override;
    TGetResult GetRecord(TDLRecData& Buffer, TGetMode GetMode, bool DoCheck) override;
    TGetResult InternalGetRecord(TDLRecData& Buffer, TGetMode GetMode, bool DoCheck);
    void InternalFirst() override { FCurRec = -1; }
    void InternalLast() override;
    void InternalSetToRecord(TDLRecData& Buffer) override;
    void InternalGotoBookmark(const TBookmark& Bookmark) override;
    TBookmark GetBookmarkData(TDLRecData& Buffer) override;
    void InternalInitRecord(TDLRecData& Buffer) override { Buffer.Init(); }
    void InternalEdit() override;
    void InternalPost() override;
    void InternalDelete() override;
    void InternalRefresh() override;
    void DoAfterRefresh() override;

    virtual std::unique_ptr<TDLDataSetData> CreateDataRecs() = 0;
    virtual bool IsSQLiteData() const { return false; }
    // Whether a record passes the filter; without filter or handler, true.
    bool FilterAccept(TDLRecData& Buffer);
    TDLRecData* GetActiveRecData() const override;
    // A pattern match of the filter's LIKE in place of the evaluator's own.
    virtual bool HasCustomLike() const { return false; }
    virtual void CustomLike(const QVariant& Source, const QVariant& Pattern, bool& Result) {
        (void)Source;
        (void)Pattern;
        (void)Result;
    }
    TDLExpr& Expr();
    // A filter applies in memory (one in the statement does not).
    bool FilterActive() const;
    // The filter changed: a dataset that filters in its statement reopens.
    virtual void FilterChanged();
    bool InternalLocate(const QString& KeyFields, const QVariantList& KeyValues, int Options);
    void DoAfterPost() override;

    int FCurRec = -1;
    std::unique_ptr<TDLDataSetData> FRecs;
    bool FCanModify = true;
    std::unique_ptr<TDLRecData> FFilterBuffer;
    TDLRecData* FFilterRecord = nullptr;  // the record under test while filtering
    std::unique_ptr<TDLExpr> FExpr;
    bool FServerFiltered = false;  // the filter text went into the statement
    QString FFilterDateFormat;
    QVariantList FPostedKeyValues;  // the key of the row last posted
    QVariantList FRefreshKeyValues;  // the key of the row a refresh began on
};

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

    bool CanLoadField(const TField& Field) const override;
    void LoadField(const TDLRecData& Rec, const TField& Field) override;

    // The table or view that edits go to; empty for a read-only result.
    const QString& InternalTableName() const { return FInternalTableName; }
    const std::vector<TFieldInfoRec>& FieldInfoRecs() const { return FFieldInfoRecs; }
    const std::vector<TTableInfoRec>& TableInfoRecs() const { return FTableInfoRecs; }

    const QString& OrderClause() const { return FOrderClause; }
    // Reads the rows again in this order when the statement takes it.
    void SetOrderClause(const QString& Value);
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

// Opens a detail dataset again whenever its master moves to another row.
// Listens to the master, which must outlive the link.
class TDLDataLink : public IDataSetListener {
public:
    TDLDataLink(TDataSet& Master, TDataSet& Detail);
    ~TDLDataLink() override;
    TDLDataLink(const TDLDataLink&) = delete;
    TDLDataLink& operator=(const TDLDataLink&) = delete;

    TDataSet* Master() const { return &FMaster; }
    void DataEvent(TDataSet& DataSet, TDataEvent Event) override;
    void RefreshDetail();

private:
    TDataSet& FMaster;
    TDataSet& FDetail;
};

// A SQL dataset with its text as lines and its parameters.
class TDLQuery : public TDLSQLDataSet {
public:
    void SetActive(bool Value) override;
    // A filter moves into the statement as a WHERE clause when the text is
    // one statement that takes one.
    bool CanServerFilter() override;
    // Parameters not set take the master's field of the same name, read
    // each time the master moves; null for none. "Circular reference" when
    // the link would come back here.
    void SetDataSource(TDataSet* Master);
    TDataSet* DataSource() const;

    const QStringList& SQL() const { return FSQL; }
    void SetSQL(const QStringList& Value);
    void SetSQL(const QString& Text) { SetSQL(QStringList{Text}); }
    // Made from the text when first asked for.
    TParams& Params();
    // Raises "Parameter '%s' not found" when the text has no such name.
    TParam& ParamByName(const QString& Name);

protected:
    void InternalSetParams(TSQLiteSQLHandle& SQLHandle) override;

private:
    void CreateParams();
    void SetParamsFromCursor();
    QString SQLText() const;
    // The text's one statement, without its semicolon; empty when it holds
    // none or several, or one a WHERE cannot follow.
    QString FilterableStatement() const;
    static QString WithCondition(const QString& Statement, const QString& Condition);
    QStringList FSQL;
    TParams FParams;
    bool FParamsMade = false;
    std::unique_ptr<TDLDataLink> FDataLink;
};

}  // namespace brindle
