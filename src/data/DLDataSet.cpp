#include "DLDataSet.h"

#include "DLExpr.h"
#include "DLSQLiteEdit.h"
#include "DLSQLiteLoad.h"
#include "engine/Assert.h"
#include "engine/DLDateTime.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/DLTools.h"
#include "engine/SQLText.h"
#include "engine/Exceptions.h"

#include <QDateTime>
#include <algorithm>
#include <climits>
#include <utility>

namespace brindle {

namespace {

// A name with only letters, digits and underscores of its ASCII characters.
QString FriendlyIdentifier(const QString& Name) {
    QString result;
    for (const QChar c : Name)
        if (c.unicode() >= 128 || c.isLetterOrNumber() || c == u'_') result += c;
    return result;
}

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
// TDLSQLDataSet

TDLSQLDataSet::TDLSQLDataSet() {
    FCanModify = false;
}

TDLSQLDataSet::~TDLSQLDataSet() {
    try {
        Close();
    } catch (...) {  // nothing may leave a destructor
    }
    if (FDatabase) FDatabase->UnregisterClient(this);
}

void TDLSQLDataSet::SetDatabase(TDLSQLiteDatabase* Value) {
    if (Value == FDatabase) return;
    Close();
    FSingleSQLHandle.reset();
    if (FDatabase) FDatabase->UnregisterClient(this);
    FDatabase = Value;
    if (FDatabase) FDatabase->RegisterClient(this);
}

void TDLSQLDataSet::ConnectionClosing() {
    // A pending edit goes in while it still can; one that fails is dropped
    // with the rest, as a close drops it.
    Close();
    FSingleSQLHandle.reset();
}

void TDLSQLDataSet::ConnectionDestroyed() {
    FSingleSQLHandle.reset();
    FDatabase = nullptr;
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
        QString sql = temp.CurrentStatement();
        FFieldInfoRecs.clear();
        FTableInfoRecs.clear();
        if (FAllowPreprocess && FDatabase->IsSimpleSelect(sql)) {
            try {
                PreprocessSQL(sql);
            } catch (const std::exception&) {
                // What cannot be read costs editing, nothing else.
                FFieldInfoRecs.clear();
                FTableInfoRecs.clear();
                sql = temp.CurrentStatement();
            }
        }
        FCurrentSQL = sql;
        FFields.Clear();
        UpdateKeyFields();
        FCanModify = !FInternalTableName.isEmpty() && !FKeyFieldNames.isEmpty() &&
                     FDatabase->CanModifyTable(FInternalTableName);
        FEofReached = false;
        FLastRecNo = 0;
        FSingleSQLHandle.reset();
        FRowidMarks.Clear();
        FSeeking = false;
        FStoppedAt = -1;
        FFields.Clear();
        TDLDataSet::InternalOpen();
        LoadRecords(0, static_cast<TDLBufferedData&>(*FRecs).Limit());
    }
    if (!FRecs) {
        // Nothing but comments and blanks: a result without columns or rows.
        FCurrentSQL.clear();
        FFieldInfoRecs.clear();
        FTableInfoRecs.clear();
        UpdateKeyFields();
        FCanModify = false;
        FSingleSQLHandle.reset();
        FRowidMarks.Clear();
        FFields.Clear();
        FLastRecNo = 0;
        FEofReached = true;
        TDLDataSet::InternalOpen();
    }
}

void TDLSQLDataSet::InternalClose() {
    FSingleSQLHandle.reset();
    TDLDataSet::InternalClose();
}

void TDLSQLDataSet::InternalInitFieldDefs() {
    if (FCurrentSQL.isEmpty()) {
        FFieldDefs.Clear();
        return;
    }
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
    } else if (!FNaturalOrder.isEmpty()) {
        text += u' ' + FNaturalOrder;
    }
    FSingleSQLHandle = std::make_unique<TSQLiteSQLHandle>(FDatabase, text);
    FDatabase->Prepare(*FSingleSQLHandle);
    if (FSingleSQLHandle->Prepared()) InternalSetParams(*FSingleSQLHandle);
}

void TDLSQLDataSet::LoadRecords(int Offset, int Limit) {
    BRINDLE_ASSERT(FDatabase, "rows loaded without a database");
    FAborted = false;
    if (FCurrentSQL.isEmpty()) return;  // no statement, no rows
    if (!FSingleSQLHandle) {
        // A new statement: rows and their marks may have changed.
        FRowidMarks.Clear();
        FSeeking = false;
        PrepareSingleSQL();
    }
    try {
        // Marks hold for the rowid order only: a sort of the user's has none.
        const bool seekable = !FSeekSQL.isEmpty() && FOrderClause.isEmpty();
        if (seekable) SeekTowards(Offset);
        brindle::LoadRecords(*FDatabase, *this, *FSingleSQLHandle, Offset, Limit, seekable ? &FRowidMarks : nullptr);
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

void TDLSQLDataSet::StopAt(int Count) {
    FStoppedAt = Count;
    FLastRecNo = Count;
    FEofReached = true;
}

void TDLSQLDataSet::SeekTowards(int Offset) {
    const qint64 position = FSingleSQLHandle->FLastSteppedRecNo;
    // The reader would start the statement again, or step far ahead.
    const bool restart = Offset == 0 || Offset < position;
    if (!restart && Offset - position <= TRowidMarks::Step) return;
    qint64 start = 0, rowid = 0;
    if (FRowidMarks.Nearest(Offset, start, rowid) && (restart || start > position)) {
        auto handle = std::make_unique<TSQLiteSQLHandle>(FDatabase, FSeekSQL);
        FDatabase->Prepare(*handle);
        if (handle->Prepared()) {
            SQLite3Driver->sqlite3_bind_int64(handle->FSQLHandle, 1, rowid);
            handle->FLastSteppedRecNo = start;
            FSingleSQLHandle = std::move(handle);
            FSeeking = true;
            return;
        }
    }
    // From the first row: a statement that began at a mark cannot go there.
    if (restart && FSeeking) {
        PrepareSingleSQL();
        FSeeking = false;
    }
}

bool TDLSQLDataSet::MarkedRowid(const TDLRecData* Rec, qint64& Rowid) const {
    const auto* rec = dynamic_cast<const TDLSQLiteRecData*>(Rec);
    if (!rec || rec->FieldCount() == 0 || rec->GetStorageClass(0) != scInteger) return false;
    Rowid = RawToInt64(rec->GetRawData(0));
    return true;
}

void TDLSQLDataSet::RowidChanged(const TDLRecData* Before, const TDLRecData* After) {
    if (FSeekSQL.isEmpty() || FRowidMarks.Empty()) return;
    qint64 before = 0, after = 0;
    const bool hasBefore = MarkedRowid(Before, before), hasAfter = MarkedRowid(After, after);
    if ((Before && !hasBefore) || (After && !hasAfter)) {
        FRowidMarks.Clear();  // a row whose place cannot be told
    } else if (!Before || !After || before != after) {
        FRowidMarks.RowChanged(!Before ? after : !After ? before : std::min(before, after));
    }
}

int TDLSQLDataSet::GetRecordCount() {
    // Until the end was read, the count stays ahead of the cursor, so that
    // a scroll bar has room and reading on goes further.
    return FEofReached ? FLastRecNo : FLastRecNo * 2;
}

void TDLSQLDataSet::SetOrderClause(const QString& Value) {
    FOrderClause = Value;
    if (!Active()) return;
    CheckBrowseMode();
    // An order the statement does not take is left aside, as the next
    // open leaves it: the rows stay as they are.
    const QString text = Value.isEmpty() ? FCurrentSQL : FCurrentSQL + u' ' + Value;
    if (!FDatabase->IsValidSQL(text)) return;
    FSingleSQLHandle.reset();
    auto& recs = static_cast<TDLBufferedData&>(*FRecs);
    recs.Clear();
    recs.SetOffset(0);
    FEofReached = false;
    FLastRecNo = 0;
    FStoppedAt = -1;
    LoadRecords(0, recs.Limit());
    First();
}

bool TDLSQLDataSet::Sortable() {
    if (TDLDataSet::Sortable()) return true;
    if (!Active() || FFields.Count() == 0 || FDatabase->HasOrderBy(FCurrentSQL)) return false;
    return FDatabase->IsValidSQL(FCurrentSQL + u' ' + FOrderClause);
}

QString TDLSQLDataSet::ServerFilterCondition() {
    // Dates and GUIDs compare otherwise in the engine; a column renamed in
    // the result has a name the statement does not know.
    QStringList excluded;
    for (int i = 0; i < FFieldDefs.Count(); ++i) {
        const TFieldDef& def = FFieldDefs.Items(i);
        const TFieldType type = def.DataType;
        const bool renamed = !def.OriginalFieldName.isEmpty() && def.OriginalFieldName != def.Name;
        if (type == ftDate || type == ftTime || type == ftDateTime || type == ftGuid || renamed) excluded << def.Name;
    }
    return FDatabase->FixFilterExpression(FFilterText, excluded);
}

void TDLSQLDataSet::DescribeColumns(const QString& SQL) {
    TSQLiteSQLHandle handle(FDatabase, SQL);
    FDatabase->Prepare(handle);
    if (handle.Prepared()) InitializeFieldDefs(*FDatabase, handle, *this);
}

void TDLSQLDataSet::CustomLike(const QVariant& Source, const QVariant& Pattern, bool& Result) {
    const QString sql = QStringLiteral("select %1 like %2")
                            .arg(QuotedStr(Source.toString()), QuotedStr(Pattern.toString()));
    Result = FDatabase && FDatabase->GetStringValue(sql) == QLatin1String("1");
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
    BRINDLE_ASSERT(FDatabase, "a post without a database");
    if (FState == dsEdit) {
        // The row as it was read, before the write reads it back.
        std::unique_ptr<TDLRecData> before = FRecs->CreateRecData(IsSQLiteData());
        if (const TDLRecData* old = OldRecData()) before->Assign(*old);
        PerformUpdate(*this, FInternalTableName);
        RowidChanged(before.get(), ActiveRecData());
    } else {
        if (!PerformInsert(*this, FInternalTableName, FRefreshAfterInsert)) {
            // In the table, but not to be found by its key: not shown.
            FRowidMarks.Clear();
            Cancel();
            return;
        }
        RowidChanged(nullptr, ActiveRecData());
        ++FLastRecNo;
    }
    TDLDataSet::InternalPost();
}

void TDLSQLDataSet::InternalDelete() {
    // Without a key the delete says so itself; with one, a result kept
    // read-only (a shadow table, or by the caller's wish) refuses.
    if (!FOriginKeyFieldNames.isEmpty() && !GetCanModify()) throw ECustomException(QStringLiteral("Can not edit"));
    PerformDelete(*this, FInternalTableName);
    RowidChanged(ActiveRecData(), nullptr);
    TDLDataSet::InternalDelete();
    --FLastRecNo;
}

void TDLSQLDataSet::PreprocessSQL(QString& SQL) {
    // Fields are made anew from each statement: none limit the columns.
    GetFieldInfoFromSQL(*FDatabase, SQL, FFieldInfoRecs, FTableInfoRecs, nullptr);
    for (const TTableInfoRec& t : FTableInfoRecs)
        if (IsView(*FDatabase, QuoteObject(t.DatabaseName, t.TableName))) return;
    const QString select = GetSelectClause(SQL);
    if (select.isEmpty()) return;
    const QString tail = SQL.mid(select.size());
    for (TFieldInfoRec& f : FFieldInfoRecs) f.Hidden = false;

    // A hidden column brings the rowid of each table that did not select it.
    int sequence = 0;
    for (size_t t = 0; t < FTableInfoRecs.size(); ++t) {
        TTableInfoRec& table = FTableInfoRecs[t];
        if (table.RowIDIndex >= 0 || table.RowIDField.isEmpty()) continue;
        TFieldInfoRec rec;
        rec.TableIndex = static_cast<int>(t);
        rec.FieldName = table.RowIDField;
        rec.FieldAlias = QStringLiteral("brindle_%1_%2_rowid_%3")
                             .arg(FriendlyIdentifier(table.DatabaseName), FriendlyIdentifier(table.TableName))
                             .arg(sequence++);
        rec.FinalName = rec.FieldAlias;
        rec.OriginalFieldName = rec.FieldAlias;
        rec.DeclaredType = QStringLiteral("INTEGER");
        rec.DataType = ftLargeint;
        rec.Loaded = true;
        rec.Hidden = true;
        FFieldInfoRecs.push_back(rec);
        table.RowIDIndex = static_cast<int>(FFieldInfoRecs.size()) - 1;
    }

    QStringList columns;
    for (TFieldInfoRec& f : FFieldInfoRecs) {
        f.Loaded = true;
        QString column;
        if (f.TableIndex < 0) {
            column = QuoteIdentifier(f.FieldName);
        } else {
            const TTableInfoRec& t = FTableInfoRecs[static_cast<size_t>(f.TableIndex)];
            column = t.TableAlias.isEmpty() ? QuoteObject(t.DatabaseName, t.TableName, f.FieldName)
                                            : QuoteIdentifier(t.TableAlias) + u'.' + QuoteIdentifier(f.FieldName);
        }
        columns << column + u' ' + QuoteIdentifier(f.FinalName);
    }
    SQL = QStringLiteral("select ") + columns.join(QStringLiteral(", ")) + u' ' + tail.trimmed();
}

bool TDLSQLDataSet::CanLoadField(const TField& Field) const {
    // A column of a table whose rowid the result carries.
    for (const TFieldInfoRec& f : FFieldInfoRecs)
        if (f.FinalName.compare(Field.FieldName(), Qt::CaseInsensitive) == 0)
            return f.TableIndex >= 0 && FTableInfoRecs[static_cast<size_t>(f.TableIndex)].RowIDIndex >= 0;
    return false;
}

void TDLSQLDataSet::LoadField(const TDLRecData& Rec, const TField& Field) {
    if (FDatabase && Active()) brindle::LoadField(*FDatabase, *this, Rec, Field);
}

void TDLSQLDataSet::UpdateKeyFields() {
    FKeyFieldNames.clear();
    FOriginKeyFieldNames.clear();
    FInternalTableName.clear();
    if (FTableInfoRecs.size() != 1 || FFieldInfoRecs.empty()) return;
    const TTableInfoRec& table = FTableInfoRecs.front();
    FInternalTableName = QuoteObjectIfNeeded(table.DatabaseName, table.TableName);
    const QString object = QuoteObject(table.DatabaseName, table.TableName);
    if (FDatabase->TableExists(object)) {
        if (table.RowIDIndex < 0) {
            FKeyFieldNames = table.KeyFieldNames.join(u';');
            FOriginKeyFieldNames = table.OriginKeyFieldNames.join(u';');
        } else {
            const TFieldInfoRec& rowid = FFieldInfoRecs[static_cast<size_t>(table.RowIDIndex)];
            FKeyFieldNames = rowid.FinalName;
            FOriginKeyFieldNames = rowid.FieldName;
        }
    } else if (IsView(*FDatabase, object)) {
        // Every column is the key; a renamed or qualified one cannot say
        // which column of the view it is.
        QStringList names;
        for (const TFieldInfoRec& f : FFieldInfoRecs) {
            if (f.FieldAlias.isEmpty() && (f.FieldName != f.OriginalFieldName || IsQualified(f.FieldName))) return;
            names << QuoteIdentifier(f.FinalName);
        }
        FKeyFieldNames = names.join(u';');
        FOriginKeyFieldNames = FKeyFieldNames;
    }
}

void TDLSQLDataSet::CreateFields() {
    TDLDataSet::CreateFields();
    // Each result column writes to the table column it came from.
    for (const TFieldInfoRec& f : FFieldInfoRecs) {
        TField* field = FindField(f.FinalName);
        if (!field) continue;
        if (f.TableIndex >= 0) field->FOrigin = f.FieldName;
        if (f.Hidden) {
            field->FVisible = false;
            field->FReadOnly = true;
        }
    }
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

// ---------------------------------------------------------------------------
// TDLQuery

void TDLQuery::SetSQL(const QStringList& Value) {
    Close();
    FSQL = Value;
    FParams.Clear();
    FParamsMade = false;
    SetSQLStr(SQLText());
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
    SetParamsFromCursor();
    Database()->BindParams(SQLHandle, &FParams);
}

void TDLQuery::SetParamsFromCursor() {
    TDataSet* master = FDataLink ? FDataLink->Master() : nullptr;
    for (int i = 0; i < FParams.Count(); ++i) {
        TParam& p = FParams[i];
        if (p.Bound) continue;
        if (!master) throw ECustomException(QStringLiteral("Required param not set: ") + p.Name);
        // Taken afresh from the master's row each time: it stays unbound.
        QString name = p.Name;
        if (name.startsWith(u':')) name.remove(0, 1);
        const TField* field = master->FindField(name);
        p.Value = field ? master->GetFieldValue(*field) : QVariant();
        if (p.DataType == ftUnknown) p.DataType = field ? field->DataType() : ftWideString;
    }
}

void TDLQuery::SetDataSource(TDataSet* Master) {
    if (Master == this) throw ECustomException(QStringLiteral("Circular reference"));
    for (auto* q = dynamic_cast<TDLQuery*>(Master); q; q = q->FDataLink ? dynamic_cast<TDLQuery*>(q->FDataLink->Master()) : nullptr)
        if (q->FDataLink && q->FDataLink->Master() == this) throw ECustomException(QStringLiteral("Circular reference"));
    FDataLink.reset();
    if (Master) FDataLink = std::make_unique<TDLDataLink>(*Master, *this);
}

TDataSet* TDLQuery::DataSource() const {
    return FDataLink ? FDataLink->Master() : nullptr;
}

QString TDLQuery::FilterableStatement() const {
    if (!Database()) return QString();
    QStringList pieces;
    ParseSQL(SQLText(), pieces, true);
    QString statement;
    for (const QString& piece : pieces) {
        if (GetSQLCommand(piece) == stUnknown) continue;  // comments and blanks
        if (!statement.isEmpty()) return QString();
        statement = piece;
    }
    // A WHERE behind a compound SELECT would filter its last part only.
    if (statement.isEmpty() || HasSetOperationOrGrouping(statement)) return QString();
    return statement;
}

QString TDLQuery::WithCondition(const QString& Statement, const QString& Condition) {
    // On a line of its own: a comment at the statement's end ends there.
    return Statement + QStringLiteral("\nWHERE ") + Condition;
}

bool TDLQuery::CanServerFilter() {
    const QString statement = FilterableStatement();
    return !statement.isEmpty() && Database()->IsValidSQL(WithCondition(statement, QStringLiteral("1=1")));
}

QString TDLQuery::SQLText() const {
    return FSQL.join(u'\n');
}

void TDLQuery::SetActive(bool Value) {
    if (Value && !Active()) {
        FServerFiltered = false;
        QString text = SQLText();
        if (FFiltered && !FFilterText.isEmpty() && CanServerFilter()) {
            const QString statement = FilterableStatement();
            // The columns the condition may name, as this statement has them.
            DescribeColumns(statement);
            const QString where = ServerFilterCondition();
            if (!where.isEmpty()) {
                text = WithCondition(statement, where);
                FServerFiltered = true;
            }
        }
        SetSQLStr(text);
    }
    TDLSQLDataSet::SetActive(Value);
}

}  // namespace brindle
