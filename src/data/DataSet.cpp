#include "DataSet.h"

#include "DLRecData.h"
#include "engine/DLQuoteTools.h"
#include "engine/Exceptions.h"

#include <algorithm>

namespace brindle {

namespace {

void Fire(const TDataSet::TNotifyEvent& Event, TDataSet& DataSet) {
    if (Event) Event(DataSet);
}

}  // namespace

TDataSet::TDataSet() = default;

TDataSet::~TDataSet() = default;

// ---------------------------------------------------------------------------
// State

void TDataSet::SetActive(bool Value) {
    if (Value == Active()) return;
    if (Value) {
        Fire(BeforeOpen, *this);
        SetState(dsOpening);
        try {
            InternalOpen();
            if (FFields.Count() == 0) CreateFields();
            FActiveBuffer = AllocRecordBuffer();
        } catch (...) {
            try {
                InternalClose();
            } catch (...) {  // the first failure is the one to report
            }
            FActiveBuffer.reset();
            SetState(dsInactive);
            throw;
        }
        SetState(dsBrowse);
        InternalFirst();
        ReadActive(gmNext);
        FBof = true;
        FEof = !FHasActive;
        Fire(AfterOpen, *this);
        DataEvent(deDataSetChange);
        return;
    }
    DoBeforeClose();
    Fire(BeforeClose, *this);
    InternalClose();
    FActiveBuffer.reset();
    FHasActive = false;
    FBof = FEof = true;
    SetState(dsInactive);
    Fire(AfterClose, *this);
    DataEvent(deDataSetChange);
}

void TDataSet::DoBeforeClose() {
    if (FState != dsEdit && FState != dsInsert) return;
    try {
        Post();
    } catch (...) {
        // A close never fails for a row that cannot be posted: it is dropped.
        Cancel();
    }
}

void TDataSet::CheckActive() const {
    if (!Active()) throw ECustomException(QStringLiteral("Cannot perform this operation on a closed dataset"));
}

void TDataSet::CheckInactive() const {
    if (Active()) throw ECustomException(QStringLiteral("Cannot perform this operation on an open dataset"));
}

void TDataSet::CheckBrowseMode() {
    CheckActive();
    if (FState == dsEdit || FState == dsInsert) Post();
}

void TDataSet::SetState(TDataSetState Value) {
    if (FState == Value) return;
    FState = Value;
    DataEvent(deUpdateState);
}

void TDataSet::SetTempState(TDataSetState Value, TDataSetState& Saved) {
    Saved = FState;
    FState = Value;
}

void TDataSet::RestoreState(TDataSetState Saved) {
    FState = Saved;
}

// ---------------------------------------------------------------------------
// Navigation

void TDataSet::ReadActive(TGetMode Mode) {
    FHasActive = FActiveBuffer && GetRecord(*FActiveBuffer, Mode, false) == grOK;
}

void TDataSet::DoBeforeScroll() {
    Fire(BeforeScroll, *this);
}

void TDataSet::DoAfterScroll() {
    Fire(AfterScroll, *this);
}

void TDataSet::First() {
    CheckBrowseMode();
    DoBeforeScroll();
    InternalFirst();
    ReadActive(gmNext);
    FBof = true;
    FEof = !FHasActive;
    DoAfterScroll();
    DataEvent(deDataSetChange);
}

void TDataSet::Last() {
    CheckBrowseMode();
    DoBeforeScroll();
    InternalLast();
    ReadActive(gmPrior);
    FEof = true;
    FBof = !FHasActive;
    DoAfterScroll();
    DataEvent(deDataSetChange);
}

void TDataSet::Next() {
    CheckBrowseMode();
    if (FEof) return;
    DoBeforeScroll();
    // Read into a spare buffer: at the end the active row stays as it was.
    std::unique_ptr<TDLRecData> next = AllocRecordBuffer();
    if (FHasActive) InternalSetToRecord(*FActiveBuffer);
    if (GetRecord(*next, gmNext, true) == grOK) {
        FActiveBuffer = std::move(next);
        FHasActive = true;
        FBof = false;
    } else {
        FEof = true;
    }
    DoAfterScroll();
    DataEvent(deDataSetScroll);
}

void TDataSet::Prior() {
    CheckBrowseMode();
    if (FBof) return;
    DoBeforeScroll();
    std::unique_ptr<TDLRecData> prior = AllocRecordBuffer();
    if (FHasActive) InternalSetToRecord(*FActiveBuffer);
    if (GetRecord(*prior, gmPrior, true) == grOK) {
        FActiveBuffer = std::move(prior);
        FHasActive = true;
        FEof = false;
    } else {
        FBof = true;
    }
    DoAfterScroll();
    DataEvent(deDataSetScroll);
}

void TDataSet::Resync() {
    if (!FActiveBuffer) return;
    if (FHasActive) InternalSetToRecord(*FActiveBuffer);
    ReadActive(gmCurrent);
    if (!FHasActive) ReadActive(gmNext);
    if (!FHasActive) ReadActive(gmPrior);
    FBof = FEof = !FHasActive;
    DataEvent(deDataSetChange);
}

void TDataSet::Refresh() {
    CheckBrowseMode();
    // The rows are read anew: the old buffer belongs to rows that are gone.
    InternalRefresh();
    FActiveBuffer = AllocRecordBuffer();
    ReadActive(gmCurrent);
    if (!FHasActive) ReadActive(gmPrior);
    if (!FHasActive) ReadActive(gmNext);
    FBof = FEof = !FHasActive;
    DoAfterRefresh();
    DataEvent(deDataSetChange);
}

// ---------------------------------------------------------------------------
// Editing

void TDataSet::Edit() {
    if (FState == dsEdit || FState == dsInsert) return;
    CheckActive();
    if (!FHasActive) {
        Insert();
        return;
    }
    Fire(BeforeEdit, *this);
    InternalEdit();
    SetState(dsEdit);
    Fire(AfterEdit, *this);
    DataEvent(deRecordChange);
}

void TDataSet::Insert() {
    CheckBrowseMode();
    Fire(BeforeInsert, *this);
    if (FHasActive) InternalSetToRecord(*FActiveBuffer);
    InternalInsert();
    FActiveBuffer = AllocRecordBuffer();
    InternalInitRecord(*FActiveBuffer);
    FActiveBuffer->FBookmarkFlag = bfInserted;
    SetState(dsInsert);
    DoOnNewRecord();
    Fire(AfterInsert, *this);
    DataEvent(deDataSetChange);
}

void TDataSet::Append() {
    CheckBrowseMode();
    Fire(BeforeInsert, *this);
    InternalLast();
    InternalInsert();
    FActiveBuffer = AllocRecordBuffer();
    InternalInitRecord(*FActiveBuffer);
    FActiveBuffer->FBookmarkFlag = bfEOF;
    SetState(dsInsert);
    DoOnNewRecord();
    Fire(AfterInsert, *this);
    DataEvent(deDataSetChange);
}

void TDataSet::Post() {
    if (FState != dsEdit && FState != dsInsert) return;
    Fire(BeforePost, *this);
    InternalPost();
    SetState(dsBrowse);
    ReadActive(gmCurrent);
    FBof = FEof = false;
    DoAfterPost();
    DataEvent(deDataSetChange);
}

void TDataSet::DoOnNewRecord() {
    Fire(OnNewRecord, *this);
}

void TDataSet::DoAfterPost() {
    Fire(AfterPost, *this);
}

void TDataSet::Cancel() {
    if (FState != dsEdit && FState != dsInsert) return;
    Fire(BeforeCancel, *this);
    const bool inserting = FState == dsInsert;
    InternalCancel();
    SetState(dsBrowse);
    if (inserting) {
        // The cursor still stands where the insert began.
        FActiveBuffer = AllocRecordBuffer();
        ReadActive(gmCurrent);
        if (!FHasActive) ReadActive(gmNext);
        FBof = FEof = !FHasActive;
        DataEvent(deDataSetChange);
    } else {
        Resync();
    }
    Fire(AfterCancel, *this);
}

void TDataSet::Delete() {
    CheckActive();
    if (FState == dsInsert) {
        Cancel();
        return;
    }
    if (!FHasActive) throw ECustomException(QStringLiteral("Cannot perform this operation on an empty dataset"));
    Fire(BeforeDelete, *this);
    CheckBrowseMode();
    InternalSetToRecord(*FActiveBuffer);
    InternalDelete();
    // The row that took the deleted one's place, or the one before at the end.
    ReadActive(gmCurrent);
    if (!FHasActive) ReadActive(gmPrior);
    FBof = FEof = !FHasActive;
    Fire(AfterDelete, *this);
    DataEvent(deDataSetChange);
}

// ---------------------------------------------------------------------------
// Fields

void TDataSet::CreateFields() {
    for (int i = 0; i < FFieldDefs.Count(); ++i) {
        const TFieldDef& def = FFieldDefs.Items(i);
        TField& field = FFields.Add(std::make_unique<TField>(this, def.Name, def.DataType, def.Size, i));
        field.FRequired = def.Required;
        field.FVisible = !(def.Attributes & faHiddenCol);
        field.FReadOnly = def.Attributes & faReadonly;
    }
}

TDLRecData* TDataSet::GetActiveRecData() const {
    if (!FActiveBuffer) return nullptr;
    if (FState == dsEdit || FState == dsInsert || FHasActive) return FActiveBuffer.get();
    return nullptr;
}

QVariant TDataSet::GetFieldValue(const TField& Field) const {
    const TDLRecData* rec = GetActiveRecData();
    return rec ? GetFieldVariant(*rec, Field) : QVariant();
}

void TDataSet::SetFieldValue(const TField& Field, const QVariant& Value) {
    if (FState != dsEdit && FState != dsInsert)
        throw ECustomException(QStringLiteral("Dataset not in edit or insert mode"));
    if (Field.FReadOnly) throw ECustomException(QStringLiteral("Field '%1' cannot be modified").arg(Field.FieldName()));
    SetFieldVariant(*GetActiveRecData(), Field, Value);
    DataEvent(deFieldChange);
}

QVariant TDataSet::GetOldFieldValue(const TField& Field) const {
    return GetFieldValue(Field);
}

// ---------------------------------------------------------------------------
// Bookmarks

TBookmark TDataSet::GetBookmark() {
    if (!Active() || !FHasActive || FState == dsInsert) return TBookmark();
    return GetBookmarkData(*FActiveBuffer);
}

void TDataSet::GotoBookmark(const TBookmark& Bookmark) {
    if (Bookmark.isEmpty()) return;
    CheckBrowseMode();
    DoBeforeScroll();
    InternalGotoBookmark(Bookmark);
    ReadActive(gmCurrent);
    FBof = FEof = !FHasActive;
    DoAfterScroll();
    DataEvent(deDataSetChange);
}

// ---------------------------------------------------------------------------
// Views

void TDataSet::AddListener(IDataSetListener* Listener) {
    FListeners.push_back(Listener);
}

void TDataSet::RemoveListener(IDataSetListener* Listener) {
    std::erase(FListeners, Listener);
}

void TDataSet::EnableControls() {
    if (FDisableCount > 0 && --FDisableCount == 0 && FPendingChange) {
        FPendingChange = false;
        DataEvent(deDataSetChange);
    }
}

void TDataSet::DataEvent(TDataEvent Event) {
    if (FDisableCount > 0) {
        // Views catch up once, when controls are enabled again.
        FPendingChange = true;
        return;
    }
    // A copy: a listener may unregister while it is told.
    const std::vector<IDataSetListener*> listeners = FListeners;
    for (IDataSetListener* l : listeners) l->DataEvent(*this, Event);
}

QVariantList GetFieldValues(const TDataSet& DataSet, const QString& FieldNames) {
    QStringList names;
    FieldsToList(FieldNames, names, u';');
    QVariantList result;
    for (const QString& name : names) result.append(DataSet.GetFieldValue(DataSet.FieldByName(UnQuoteIdentifier(name))));
    return result;
}

}  // namespace brindle
