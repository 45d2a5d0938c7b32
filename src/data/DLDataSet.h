// A cursor over record containers: navigation, bookmarks, filters,
// locating and posting in memory; and the link that opens a detail dataset
// again when its master moves. The SQL datasets stand on it
// (DLSQLDataSet.h, DLQuery.h, DLTable.h).
#pragma once

#include "DataSet.h"
#include "DLRecData.h"

#include <QStringList>

namespace brindle {

class TDLExpr;

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

}  // namespace brindle
