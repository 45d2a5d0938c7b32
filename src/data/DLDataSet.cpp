#include "DLDataSet.h"

#include "DLSQLiteLoad.h"
#include "engine/Assert.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"

#include <climits>

namespace brindle {

// ---------------------------------------------------------------------------
// TDLDataSet

TDLDataSet::TDLDataSet() = default;

TDLDataSet::~TDLDataSet() = default;

void TDLDataSet::InternalOpen() {
    InternalInitFieldDefs();
    if (FFields.Count() == 0) CreateFields();
    FRecs = CreateDataRecs();
    FCurRec = -1;
    FFilterBuffer = FRecs->CreateRecData(IsSQLiteData());
}

void TDLDataSet::InternalClose() {
    FFilterBuffer.reset();
    FRecs.reset();
    FFields.Clear();
    FCurRec = -1;
}

std::unique_ptr<TDLRecData> TDLDataSet::AllocRecordBuffer() {
    BRINDLE_ASSERT(FRecs, "a record buffer of a closed dataset");
    std::unique_ptr<TDLRecData> rec = FRecs->CreateRecData(IsSQLiteData());
    rec->Init();
    return rec;
}

TGetResult TDLDataSet::InternalGetRecord(TDLRecData& Buffer, TGetMode GetMode, bool DoCheck) {
    TGetResult result = grOK;
    if (!FRecs) {
        result = grError;
    } else {
        FRecs->UpdateBufferCount();
        // An estimated count bounds nothing: reading finds the true end.
        const int count = ValidRecordCount() ? GetRecordCount() : -1;
        if (count == 0) return grEOF;
        switch (GetMode) {
            case gmCurrent:
                if (FCurRec < 0 || (count >= 0 && count <= FCurRec)) result = grError;
                break;
            case gmNext:
                if (count >= 0 && count - 1 <= FCurRec)
                    result = grEOF;
                else
                    ++FCurRec;
                break;
            case gmPrior:
                if (FCurRec > 0)
                    --FCurRec;
                else
                    result = grBOF;
                break;
        }
    }
    if (result == grOK) {
        if (const TDLRecData* rec = FRecs->GetItems(FCurRec)) {
            Buffer.Assign(*rec);
            Buffer.ClearModifiedFlag();
            Buffer.FBookmarkFlag = bfCurrent;
            Buffer.FBookmarkData->UpdateBookmark(FCurRec);
        } else {
            // The true end lies before this index; now the count is known.
            result = grEOF;
            FCurRec = GetRecordCount();
        }
    }
    if (result == grError && DoCheck) throw ECustomException(QStringLiteral("No current record"));
    return result;
}

TGetResult TDLDataSet::GetRecord(TDLRecData& Buffer, TGetMode GetMode, bool DoCheck) {
    TGetResult result = InternalGetRecord(Buffer, GetMode, DoCheck);
    // Backward from beyond an end that was not known: once more from the
    // end that the first read found.
    if (result == grEOF && GetMode == gmPrior) result = InternalGetRecord(Buffer, gmPrior, DoCheck);
    while (result == grOK && !FilterAccept(Buffer)) {
        if (GetMode == gmCurrent) GetMode = gmNext;
        result = InternalGetRecord(Buffer, GetMode, DoCheck);
    }
    return result;
}

bool TDLDataSet::FilterAccept(TDLRecData& Buffer) {
    if (!FFiltered || !OnFilterRecord) return true;
    TDataSetState saved;
    SetTempState(dsFilter, saved);
    FFilterRecord = &Buffer;
    bool accept = true;
    try {
        OnFilterRecord(*this, accept);
    } catch (...) {
        FFilterRecord = nullptr;
        RestoreState(saved);
        throw;
    }
    FFilterRecord = nullptr;
    RestoreState(saved);
    return accept;
}

TDLRecData* TDLDataSet::GetActiveRecData() const {
    if (FState == dsFilter) return FFilterRecord;
    return TDataSet::GetActiveRecData();
}

void TDLDataSet::InternalLast() {
    FCurRec = ValidRecordCount() ? GetRecordCount() : INT_MAX;
}

void TDLDataSet::InternalSetToRecord(TDLRecData& Buffer) {
    if (!FRecs || Buffer.FBookmarkFlag != bfCurrent) return;
    const int index = FRecs->GetBookmarkIndex(Buffer.FBookmarkData->GetBookmark());
    if (index >= 0) FCurRec = index;
}

void TDLDataSet::InternalGotoBookmark(const TBookmark& Bookmark) {
    const int index = FRecs ? FRecs->GetBookmarkIndex(Bookmark) : -1;
    if (index < 0) throw ECustomException(QStringLiteral("Bookmark not found"));
    FCurRec = index;
}

TBookmark TDLDataSet::GetBookmarkData(TDLRecData& Buffer) {
    return Buffer.FBookmarkData->GetBookmark();
}

bool TDLDataSet::BookmarkValid(const TBookmark& Bookmark) {
    return FRecs && !Bookmark.isEmpty() && FRecs->BookmarkValid(Bookmark);
}

int TDLDataSet::CompareBookmarks(const TBookmark& Bookmark1, const TBookmark& Bookmark2) {
    return FRecs ? FRecs->CompareBookmarks(Bookmark1, Bookmark2) : 0;
}

int TDLDataSet::GetRecNo() {
    if (!FHasActive) return 0;
    if (FState == dsBrowse) InternalSetToRecord(*FActiveBuffer);
    return FCurRec + 1;
}

void TDLDataSet::SetRecNo(int Value) {
    CheckBrowseMode();
    const int count = GetRecordCount();
    // An estimated count is no bound: the row may lie beyond it.
    if (Value < 1 || (count >= 0 && Value > count && ValidRecordCount())) return;
    DoBeforeScroll();
    FCurRec = Value - 1;
    ReadActive(gmCurrent);
    if (!FHasActive && ValidRecordCount() && GetRecordCount() > 0) {
        // Past the end that the read just found: the last row it is.
        InternalLast();
        ReadActive(gmPrior);
    }
    FBof = FEof = !FHasActive;
    DoAfterScroll();
    DataEvent(deDataSetChange);
}

const TDLRecData* TDLDataSet::RecordAt(int Index) {
    if (!FRecs || Index < 0) return nullptr;
    const int count = GetRecordCount();
    if (count >= 0 && Index >= count && ValidRecordCount()) return nullptr;
    return FRecs->GetItems(Index);
}

QVariant TDLDataSet::GetOldFieldValue(const TField& Field) const {
    // The row as the container holds it; an edit works on the active buffer.
    if (FState == dsEdit && FRecs && FCurRec >= 0) {
        QVariant value;
        if (const TDLRecData* rec = FRecs->GetItems(FCurRec); rec && rec->GetField(Field, &value)) return value;
        return QVariant();
    }
    return FState == dsInsert ? QVariant() : GetFieldValue(Field);
}

QStringList TDLDataSet::GetKeyFieldNames() const {
    return FKeyFieldNames.split(u';', Qt::SkipEmptyParts);
}

void TDLDataSet::InternalEdit() {
    FActiveBuffer->ClearModifiedFlag();
}

void TDLDataSet::InternalPost() {
    if (FState == dsEdit) {
        FRecs->SetItems(FCurRec, *FActiveBuffer);
    } else {
        std::unique_ptr<TDLRecData> rec = FRecs->CreateRecData(IsSQLiteData());
        rec->Assign(*FActiveBuffer);
        if (FActiveBuffer->FBookmarkFlag == bfEOF) {
            const int index = FRecs->Append(std::move(rec));
            FCurRec = index >= 0 ? index : (ValidRecordCount() ? GetRecordCount() - 1 : INT_MAX - 1);
        } else {
            const int at = FCurRec < 1 ? 0 : FCurRec;
            FRecs->Insert(at, std::move(rec));
            FCurRec = at;
        }
    }
    FRecs->RecordUpdated();
}

void TDLDataSet::InternalDelete() {
    FRecs->Delete(FCurRec);
    FRecs->RecordUpdated();
    const int count = GetRecordCount();
    if (count >= 0 && FCurRec >= count) FCurRec = count - 1;
}

void TDLDataSet::InternalRefresh() {
    InternalClose();
    InternalOpen();
}

// ---------------------------------------------------------------------------
// TDLSQLDataSet

TDLSQLDataSet::TDLSQLDataSet() {
    FCanModify = false;
}

TDLSQLDataSet::~TDLSQLDataSet() {
    try {
        Close();
    } catch (...) {  // nothing may leave a destructor
    }
}

void TDLSQLDataSet::SetDatabase(TDLSQLiteDatabase* Value) {
    if (Value == FDatabase) return;
    Close();
    FSingleSQLHandle.reset();
    FDatabase = Value;
}

void TDLSQLDataSet::SetSQLStr(const QString& Value) {
    if (Value == FSQLStr) return;
    Close();
    FSQLStr = Value;
    FCurrentSQL.clear();
    FInternalTableName.clear();
    FSingleSQLHandle.reset();
}

void TDLSQLDataSet::CheckConnected() {
    if (!FDatabase) throw ECustomException(QStringLiteral("Database not assigned."));
    FDatabase->SetConnected(true);
}

void TDLSQLDataSet::InternalOpen() {
    CheckConnected();
    FOrderClause.clear();
    TSQLiteSQLHandle temp(FDatabase, FSQLStr);
    // Every statement of a script is run in turn; the dataset shows the
    // last one that gave a statement.
    while (!temp.Complete()) {
        FDatabase->Prepare(temp);
        if (!temp.Prepared()) continue;
        FCurrentSQL = temp.CurrentStatement();
        FCanModify = false;
        FEofReached = false;
        FLastRecNo = 0;
        FSingleSQLHandle.reset();
        FFields.Clear();
        TDLDataSet::InternalOpen();
        LoadRecords(0, static_cast<TDLBufferedData&>(*FRecs).Limit());
    }
}

void TDLSQLDataSet::InternalClose() {
    FSingleSQLHandle.reset();
    TDLDataSet::InternalClose();
}

void TDLSQLDataSet::InternalInitFieldDefs() {
    // The statement that will give the rows describes them.
    PrepareSingleSQL();
    InitializeFieldDefs(*FDatabase, *FSingleSQLHandle, *this);
}

std::unique_ptr<TDLDataSetData> TDLSQLDataSet::CreateDataRecs() {
    std::unique_ptr<TDLBufferedData> recs;
    if (GetCanModify())
        recs = std::make_unique<TDLBufferedEditableData>(this);
    else
        recs = std::make_unique<TDLBufferedReadOnlyData>(this);
    recs->SetLimit(GetDataBufferSize());
    recs->SetSmartBuffering(FSmartBuffering);
    return recs;
}

void TDLSQLDataSet::PrepareSingleSQL() {
    QString text = FCurrentSQL;
    if (!FOrderClause.isEmpty()) {
        const QString ordered = FCurrentSQL + u' ' + FOrderClause;
        if (FDatabase->IsValidSQL(ordered)) text = ordered;
    }
    FSingleSQLHandle = std::make_unique<TSQLiteSQLHandle>(FDatabase, text);
    FDatabase->Prepare(*FSingleSQLHandle);
    if (FSingleSQLHandle->Prepared()) InternalSetParams(*FSingleSQLHandle);
}

void TDLSQLDataSet::LoadRecords(int Offset, int Limit) {
    BRINDLE_ASSERT(FDatabase, "rows loaded without a database");
    FAborted = false;
    if (!FSingleSQLHandle) PrepareSingleSQL();
    try {
        brindle::LoadRecords(*FDatabase, *this, *FSingleSQLHandle, Offset, Limit);
    } catch (...) {
        FSingleSQLHandle.reset();
        // A later page that fails leaves nothing half-read on screen.
        if (FState != dsOpening && Active()) {
            try {
                Close();
            } catch (...) {  // the read failure is the one to report
            }
        }
        throw;
    }
    if (!FEofReached && FRecordCounting) {
        const qint64 count = FDatabase->GetRecordCount(FCurrentSQL);
        if (count >= 0) {
            FEofReached = true;
            FLastRecNo = static_cast<int>(count);
        }
    }
}

int TDLSQLDataSet::GetRecordCount() {
    // Until the end was read, the count stays ahead of the cursor, so that
    // a scroll bar has room and reading on goes further.
    return FEofReached ? FLastRecNo : FLastRecNo * 2;
}

void TDLSQLDataSet::ExecSQL() {
    CheckConnected();
    FAborted = false;
    TSQLiteSQLHandle handle(FDatabase, FSQLStr);
    while (!handle.Complete() && !FAborted) {
        FDatabase->Prepare(handle);
        if (handle.Prepared()) InternalSetParams(handle);
        FDatabase->ExecuteNext(handle);
    }
}

void TDLSQLDataSet::InternalPost() {
    if (FState == dsEdit && !GetCanModify()) throw ECustomException(QStringLiteral("Can not edit"));
    if (FState == dsInsert && !GetCanModify()) throw ECustomException(QStringLiteral("Can not insert"));
    TDLDataSet::InternalPost();
}

void TDLSQLDataSet::InternalDelete() {
    if (!GetCanModify()) throw ECustomException(QStringLiteral("Can not edit"));
    TDLDataSet::InternalDelete();
    --FLastRecNo;
}

void TDLSQLDataSet::InternalRefresh() {
    InternalClose();
    InternalOpen();
}

// ---------------------------------------------------------------------------
// TDLQuery

void TDLQuery::SetSQL(const QStringList& Value) {
    Close();
    FSQL = Value;
    FParams.Clear();
    FParamsMade = false;
    SetSQLStr(FSQL.join(u'\n'));
}

void TDLQuery::CreateParams() {
    if (FParamsMade || !Database()) return;
    Database()->SetConnected(true);
    Database()->CreateParams(SQLStr(), FParams);
    FParamsMade = true;
}

TParams& TDLQuery::Params() {
    CreateParams();
    return FParams;
}

TParam& TDLQuery::ParamByName(const QString& Name) {
    TParam* p = Params().FindParam(Name);
    if (!p) {
        // Names are asked for without their leading mark.
        for (const QChar mark : {u':', u'@', u'$', u'?'})
            if (!p) p = FParams.FindParam(mark + Name);
    }
    if (!p) throw ECustomException(QStringLiteral("Parameter '%1' not found").arg(Name));
    return *p;
}

void TDLQuery::InternalSetParams(TSQLiteSQLHandle& SQLHandle) {
    CreateParams();
    if (FParams.Count() == 0) return;
    for (int i = 0; i < FParams.Count(); ++i)
        if (!FParams[i].Bound) throw ECustomException(QStringLiteral("Required param not set: ") + FParams[i].Name);
    Database()->BindParams(SQLHandle, &FParams);
}

}  // namespace brindle
