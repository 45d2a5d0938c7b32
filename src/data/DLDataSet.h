// The datasets: a cursor over record containers, one over a SQL result that
// fetches rows a window at a time, and a query with parameters.
//
// A dataset does not own its database; the database must outlive it while
// it is open.
#pragma once

#include "DataSet.h"
#include "DLRecData.h"
#include "engine/DLParams.h"

#include <QStringList>

namespace brindle {

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

    virtual std::unique_ptr<TDLDataSetData> CreateDataRecs() = 0;
    virtual bool IsSQLiteData() const { return false; }
    // Whether a record passes the filter; without filter or handler, true.
    bool FilterAccept(TDLRecData& Buffer);
    TDLRecData* GetActiveRecData() const override;

    int FCurRec = -1;
    std::unique_ptr<TDLDataSetData> FRecs;
    bool FCanModify = true;
    std::unique_ptr<TDLRecData> FFilterBuffer;
    TDLRecData* FFilterRecord = nullptr;  // the record under test while filtering
};

// A dataset over the statements of a text, run on a SQLite database. Rows
// come a window at a time; the count is known once the end was read, and
// until then estimated ahead of the cursor.
class TDLSQLDataSet : public TDLDataSet {
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

    bool FSmartBuffering = true;
    bool FCacheBlobs = true;
    bool FRecordCounting = false;
    QString FOrderClause;

protected:
    void InternalOpen() override;
    void InternalClose() override;
    void InternalInitFieldDefs() override;
    std::unique_ptr<TDLDataSetData> CreateDataRecs() override;
    bool IsSQLiteData() const override { return true; }
    void InternalPost() override;
    void InternalDelete() override;
    void InternalRefresh() override;
    // Binds the parameters of a prepared statement; nothing here.
    virtual void InternalSetParams(TSQLiteSQLHandle& SQLHandle) { (void)SQLHandle; }
    void CheckConnected();

private:
    void PrepareSingleSQL();

    TDLSQLiteDatabase* FDatabase = nullptr;  // not owned
    QString FSQLStr;
    QString FCurrentSQL;
    QString FInternalTableName;
    std::unique_ptr<TSQLiteSQLHandle> FSingleSQLHandle;
    bool FAborted = false;
    int FLastRecNo = 0;
    bool FEofReached = false;
};

// A SQL dataset with its text as lines and its parameters.
class TDLQuery : public TDLSQLDataSet {
public:
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
    QStringList FSQL;
    TParams FParams;
    bool FParamsMade = false;
};

}  // namespace brindle
