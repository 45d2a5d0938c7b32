// The cursor over record containers (navigation, filters, locating,
// bookmarks, copying, posting in memory) and the master-detail link.
#include "DLDataSet.h"

#include "DLExpr.h"
#include "engine/Assert.h"
#include "engine/DLDateTime.h"
#include "engine/DLQuoteTools.h"
#include "engine/Exceptions.h"

#include <QDateTime>
#include <climits>
#include <utility>

namespace brindle {

namespace {

bool IsDateField(const TField& Field) {
    const TFieldType type = Field.DataType();
    return type == ftDate || type == ftTime || type == ftDateTime;
}

}  // namespace

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
    const bool byText = !FFilterText.isEmpty() && !FServerFiltered;
    if (!FFiltered || (!OnFilterRecord && !byText)) return true;
    TDataSetState saved;
    SetTempState(dsFilter, saved);
    FFilterRecord = &Buffer;
    struct TRestore {
        TDLDataSet& DataSet;
        TDataSetState Saved;
        ~TRestore() {
            DataSet.FFilterRecord = nullptr;
            DataSet.RestoreState(Saved);
        }
    } restore{*this, saved};
    bool accept = true;
    if (byText) {
        TDLExpr& expr = Expr();
        expr.SetExpression(FFilterText);
        expr.Execute();
        const QVariant value = expr.GetValue();
        // Only a true result lets the row through; null and errors do not.
        accept = expr.Successful() && value.typeId() == QMetaType::Bool && value.toBool();
    }
    if (OnFilterRecord) OnFilterRecord(*this, accept);
    return accept;
}

TDLExpr& TDLDataSet::Expr() {
    if (!FExpr) {
        FExpr = std::make_unique<TDLExpr>();
        FExpr->SetCaseInsensitive(FFilterOptions & foCaseInsensitive);
        FExpr->SetDateFormat(FFilterDateFormat);
        FExpr->FOnGetIdentifier = [this](const QString& Ident, QVariant& Value) {
            QString name = Ident;
            if (name.startsWith(u'[') && name.endsWith(u']') && name.size() >= 2) name = name.mid(1, name.size() - 2);
            const TField* field = FindField(name);
            Value = field ? GetFieldValue(*field) : QVariant();
            // Dates are day numbers in a row; the filter compares dates.
            if (field && Value.isValid() && IsDateField(*field)) {
                int y, m, d, h, n, sec, ms;
                DecodeDateTime(Value.toDouble(), y, m, d, h, n, sec, ms);
                Value = QDateTime(QDate(y, m, d), QTime(h, n, sec, ms));
            }
        };
        if (HasCustomLike())
            FExpr->FOnCustomLike = [this](const QVariant& Source, const QVariant& Pattern, bool& Result) {
                CustomLike(Source, Pattern, Result);
            };
    }
    return *FExpr;
}

void TDLDataSet::SetFilterText(const QString& Value) {
    if (Value == FFilterText) return;
    TDataSet::SetFilterText(Value);
    if (FFiltered) FilterChanged();
}

void TDLDataSet::SetFiltered(bool Value) {
    if (Value == FFiltered) return;
    TDataSet::SetFiltered(Value);
    FilterChanged();
}

void TDLDataSet::SetFilterOptions(int Value) {
    TDataSet::SetFilterOptions(Value);
    if (FExpr) FExpr->SetCaseInsensitive(Value & foCaseInsensitive);
}

void TDLDataSet::SetFilterDateFormat(const QString& Value) {
    FFilterDateFormat = Value;
    if (FExpr) FExpr->SetDateFormat(Value);
}

void TDLDataSet::FilterChanged() {
    if (!Active()) return;
    TControlsDisabled disabled(*this);
    // A filter that goes into the statement needs the statement run again.
    if (CanServerFilter()) {
        Close();
        Open();
    }
    First();
}

bool TDLDataSet::FilterActive() const {
    return FFiltered && (OnFilterRecord || (!FFilterText.isEmpty() && !FServerFiltered));
}

int TDLDataSet::GetFilteredCount() {
    if (!FilterActive()) return GetRecordCount();
    if (!FRecs || !FRecs->AllRecordsLoaded()) return -1;
    int result = 0;
    for (int i = 0, n = GetRecordCount(); i < n; ++i)
        if (TDLRecData* rec = FRecs->GetItems(i); rec && FilterAccept(*rec)) ++result;
    return result;
}

int TDLDataSet::GetFilteredRecNo() {
    if (!FilterActive()) return GetRecNo();
    if (!FRecs || !FRecs->AllRecordsLoaded()) return -1;
    int result = 0;
    for (int i = 0; i <= FCurRec && i < GetRecordCount(); ++i)
        if (TDLRecData* rec = FRecs->GetItems(i); rec && FilterAccept(*rec)) ++result;
    return result;
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

// ---------------------------------------------------------------------------
// Locating

namespace {

bool IsTextField(const TField& Field) {
    const TFieldType type = Field.DataType();
    return type == ftString || type == ftWideString || type == ftFixedChar || type == ftFixedWideChar;
}

QString StripTrailingBlanks(QString Text) {
    qsizetype end = Text.size();
    while (end > 0 && Text.at(end - 1) == u' ') --end;
    Text.truncate(end);
    return Text;
}

// A searched value in the form the comparison uses.
QVariant NormalizeKeyValue(const TField& Field, const QVariant& Value, int Options) {
    if (!Value.isValid() || Value.isNull()) return QVariant();
    if (IsTextField(Field)) {
        QString text = StripTrailingBlanks(Value.toString());
        return (Options & loCaseInsensitive) ? text.toUpper() : text;
    }
    switch (Value.typeId()) {
        case QMetaType::Int:
        case QMetaType::Short:
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::UChar:
        case QMetaType::UShort:
        case QMetaType::UInt:
            return Value.toLongLong();
        default:
            return Value;
    }
}

bool FieldMatches(const TField& Field, const QVariant& FieldValue, const QVariant& Key, int Options) {
    if (!Key.isValid()) return !FieldValue.isValid();
    if (!FieldValue.isValid()) return false;
    if (IsTextField(Field)) {
        QString text = StripTrailingBlanks(FieldValue.toString());
        if (Options & loCaseInsensitive) text = text.toUpper();
        const QString key = Key.toString();
        return (Options & loPartialKey) ? text.startsWith(key) : text == key;
    }
    if (Field.DataType() == ftBlob || Field.DataType() == ftGraphic)
        return Key.typeId() == FieldValue.typeId() && Key == FieldValue;
    QVariant converted = FieldValue;
    if (!converted.convert(Key.metaType())) return false;
    return converted == Key;
}

}  // namespace

bool TDLDataSet::InternalLocate(const QString& KeyFields, const QVariantList& KeyValues, int Options) {
    CheckBrowseMode();
    const QStringList names = KeyFields.split(u';', Qt::SkipEmptyParts);
    std::vector<const TField*> fields;
    QVariantList keys;
    for (int i = 0; i < names.size(); ++i) {
        const TField& field = FieldByName(UnQuoteIdentifier(names[i].trimmed()));
        fields.push_back(&field);
        keys.append(NormalizeKeyValue(field, KeyValues.value(i), Options));
    }
    auto matches = [&] {
        if (!FHasActive) return false;
        for (size_t i = 0; i < fields.size(); ++i)
            if (!FieldMatches(*fields[i], GetFieldValue(*fields[i]), keys[static_cast<int>(i)], Options)) return false;
        return true;
    };
    TControlsDisabled disabled(*this);
    const TBookmark start = GetBookmark();
    if (matches()) return true;
    for (First(); !Eof(); Next())
        if (matches()) return true;
    if (!start.isEmpty()) GotoBookmark(start);
    return false;
}

bool TDLDataSet::Locate(const QString& KeyFields, const QVariantList& KeyValues, int Options) {
    DoBeforeScroll();
    const bool found = InternalLocate(KeyFields, KeyValues, Options);
    if (found) {
        DoAfterScroll();
        DataEvent(deDataSetChange);
    }
    return found;
}

QVariantList TDLDataSet::Lookup(const QString& KeyFields, const QVariantList& KeyValues, const QString& ResultFields) {
    QVariantList result;
    const TBookmark start = GetBookmark();
    if (InternalLocate(KeyFields, KeyValues, 0)) {
        for (const QString& name : ResultFields.split(u';', Qt::SkipEmptyParts))
            result.append(GetFieldValue(FieldByName(name.trimmed())));
        // Lookup only reads: back to where the cursor stood.
        if (!start.isEmpty()) GotoBookmark(start);
    }
    return result;
}

TBookmark TDLDataSet::GetBookmarkForRecNo(int RecNo) {
    if (!FRecs || RecNo < 1) return TBookmark();
    TDLRecData* rec = FRecs->GetItems(RecNo - 1);
    if (!rec) return TBookmark();
    std::unique_ptr<TDLRecData> copy = AllocRecordBuffer();
    copy->Assign(*rec);
    copy->FBookmarkData->UpdateBookmark(RecNo - 1);
    return copy->FBookmarkData->GetBookmark();
}

bool TDLDataSet::Sortable() {
    return FRecs && FRecs->Sortable();
}

void TDLDataSet::Sort(const TField& Field, bool Ascending) {
    CheckBrowseMode();
    auto* list = dynamic_cast<TDLListData*>(FRecs.get());
    if (!list || !list->Sortable()) throw ECustomException(QStringLiteral("Dataset cannot be sorted"));
    const TBookmark current = GetBookmark();
    list->Sort(Field, Ascending);
    // Row numbers moved; a bookmark that carries its own number finds the row.
    if (!current.isEmpty() && FRecs->GetBookmarkIndex(current) >= 0) {
        FCurRec = FRecs->GetBookmarkIndex(current);
        ReadActive(gmCurrent);
    } else {
        InternalFirst();
        ReadActive(gmNext);
    }
    FBof = FEof = !FHasActive;
    DataEvent(deDataSetChange);
}

// ---------------------------------------------------------------------------
// Copying

void TDLDataSet::AssignFields(TDataSet& Source) {
    if (!Source.Active()) throw ECustomException(QStringLiteral("Source dataset closed"));
    for (int i = 0; i < FFields.Count(); ++i) {
        TField& field = FFields[i];
        if (field.FReadOnly) continue;
        if (const TField* from = Source.FindField(field.FieldName())) SetFieldValue(field, Source.GetFieldValue(*from));
    }
}

void TDLDataSet::CopyRecord(TDLDataSet& Source) {
    if (!Source.Active()) throw ECustomException(QStringLiteral("Source dataset closed"));
    Append();
    try {
        AssignFields(Source);
        Post();
    } catch (...) {
        Cancel();
        throw;
    }
}

void TDLDataSet::CopyRecs(TDLDataSet& Source) {
    if (!Source.Active()) throw ECustomException(QStringLiteral("Source dataset closed"));
    TControlsDisabled disabled(*this);
    for (Source.First(); !Source.Eof(); Source.Next()) CopyRecord(Source);
}

const TDLRecData* TDLDataSet::OldRecData() const {
    if (FState == dsEdit && FRecs && FCurRec >= 0)
        if (const TDLRecData* rec = FRecs->GetItems(FCurRec)) return rec;
    return FState == dsInsert ? nullptr : GetActiveRecData();
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
    // A view's key names every column quoted.
    QStringList names = FKeyFieldNames.split(u';', Qt::SkipEmptyParts);
    for (QString& name : names) name = UnQuoteIdentifier(name.trimmed());
    return names;
}

void TDLDataSet::InternalEdit() {
    FActiveBuffer->ClearModifiedFlag();
}

void TDLDataSet::InternalPost() {
    FPostedKeyValues.clear();
    for (const QString& name : GetKeyFieldNames())
        if (const TField* field = FindField(name)) FPostedKeyValues.append(GetFieldValue(*field));
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

void TDLDataSet::DoAfterPost() {
    // The key may have changed, or the row moved: find it by its values.
    if (!FPostedKeyValues.isEmpty() && !FKeyFieldNames.isEmpty()) {
        const QVariantList keys = std::exchange(FPostedKeyValues, QVariantList());
        InternalLocate(FKeyFieldNames, keys, 0);
    }
    TDataSet::DoAfterPost();
}

void TDLDataSet::InternalDelete() {
    FRecs->Delete(FCurRec);
    FRecs->RecordUpdated();
    const int count = GetRecordCount();
    if (count >= 0 && FCurRec >= count) FCurRec = count - 1;
}

void TDLDataSet::InternalRefresh() {
    // Back to the same place, and by its key to the same row if it moved.
    FRefreshKeyValues.clear();
    if (FHasActive)
        for (const QString& name : GetKeyFieldNames())
            if (const TField* field = FindField(name)) FRefreshKeyValues.append(GetFieldValue(*field));
    const int saved = FCurRec;
    InternalClose();
    InternalOpen();
    FCurRec = saved;
}

void TDLDataSet::DoAfterRefresh() {
    if (FRefreshKeyValues.isEmpty()) return;
    const QVariantList keys = std::exchange(FRefreshKeyValues, QVariantList());
    QVariantList current;
    for (const QString& name : GetKeyFieldNames())
        if (const TField* field = FindField(name)) current.append(GetFieldValue(*field));
    if (current != keys) InternalLocate(FKeyFieldNames, keys, 0);
}

// ---------------------------------------------------------------------------
// TDLDataLink

TDLDataLink::TDLDataLink(TDataSet& Master, TDataSet& Detail) : FMaster(Master), FDetail(Detail) {
    FMaster.AddListener(this);
}

TDLDataLink::~TDLDataLink() {
    FMaster.RemoveListener(this);
}

void TDLDataLink::DataEvent(TDataSet& DataSet, TDataEvent Event) {
    (void)DataSet;
    switch (Event) {
        case deDataSetChange:
        case deDataSetScroll:
        case deRecordChange:
            if (FDetail.Active()) RefreshDetail();
            break;
        default:
            break;
    }
}

void TDLDataLink::RefreshDetail() {
    if (!FMaster.Active() || FMaster.State() == dsSetKey || FMaster.State() == dsEdit ||
        FMaster.State() == dsInsert)
        return;
    TControlsDisabled disabled(FDetail);
    FDetail.Close();
    FDetail.Open();
}

}  // namespace brindle
