// The dataset over a SQLite statement: opening a text statement by
// statement, the window of rows read from the open statement (and from the
// nearest noted rowid far from it), a stop that cuts the result, the
// rewrite of a simple SELECT and the choice of its key, posting and deleting
// through the table, server-side order and filter.
#include "DLSQLDataSet.h"

#include "DLRowidScan.h"

#include "DLSQLiteEdit.h"
#include "DLSQLiteLoad.h"
#include "engine/Assert.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"

#include <algorithm>

namespace brindle {

namespace {

// A name with only letters, digits and underscores of its ASCII characters.
QString FriendlyIdentifier(const QString& Name) {
    QString result;
    for (const QChar c : Name)
        if (c.unicode() >= 128 || c.isLetterOrNumber() || c == u'_') result += c;
    return result;
}

}  // namespace

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
        StartResult(sql);
        LoadRecords(0, static_cast<TDLBufferedData&>(*FRecs).Limit());
    }
    if (!FRecs) {
        // Nothing but comments and blanks: a result without columns or rows.
        FFieldInfoRecs.clear();
        FTableInfoRecs.clear();
        StartResult(QString());
        FEofReached = true;
    }
    StartRowidScan();
}

QString TDLSQLDataSet::ChangeStamp() {
    return QString::number(SQLite3Driver->sqlite3_total_changes(FDatabase->Handle())) + u'/' +
           FDatabase->GetStringValue(QStringLiteral("pragma data_version"));
}

void TDLSQLDataSet::StartRowidScan() {
    if (!FBackgroundCount || FRowidScanSQL.isEmpty() || !FOrderClause.isEmpty() || FEofReached || !FDatabase)
        return;
    // Another connection cannot see what this one has not committed.
    if (FDatabase->GetInTransaction()) return;
    const int generation = ++FScanGeneration;
    const QString stamp = ChangeStamp();
    const std::weak_ptr<int> alive = FAlive;
    auto task = std::make_unique<TRowidScanTask>(FRowidScanSQL, [this, alive, generation, stamp](TThreadTask& Task) {
        if (alive.expired()) return;
        const auto& scan = static_cast<TRowidScanTask&>(Task);
        AdoptRowidScan(scan.FMarks, scan.FCount, generation, stamp);
    });
    // Nothing took it (no background connections): the end is found by reading.
    FDatabase->RunAsyncTask(std::move(task));
}

void TDLSQLDataSet::AdoptRowidScan(const std::vector<qint64>& Marks, qint64 Count, int Generation,
                                   const QString& Stamp) {
    if (Generation != FScanGeneration || Count < 0 || Count > INT_MAX || !Active() || FEofReached) return;
    if (Count < FLastRecNo || FState != dsBrowse) return;
    try {
        if (FDatabase->GetInTransaction() || ChangeStamp() != Stamp) return;
    } catch (const std::exception&) {
        return;
    }
    if (FOrderClause.isEmpty()) FRowidMarks.Adopt(Marks);
    FEofReached = true;
    FLastRecNo = static_cast<int>(Count);
    DataEvent(deDataSetChange);
}

void TDLSQLDataSet::StartResult(const QString& SQL) {
    FCurrentSQL = SQL;
    FFields.Clear();
    UpdateKeyFields();
    FCanModify = !FInternalTableName.isEmpty() && !FKeyFieldNames.isEmpty() &&
                 FDatabase->CanModifyTable(FInternalTableName);
    FEofReached = false;
    FLastRecNo = 0;
    FSingleSQLHandle.reset();
    FRowidMarks.Clear();
    ++FScanGeneration;
    FSeeking = false;
    FStoppedAt = -1;
    TDLDataSet::InternalOpen();
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
        const QString ordered = OrderedSQL(FOrderClause);
        if (!ordered.isEmpty()) text = ordered;
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
    ++FScanGeneration;  // a count on its way no longer holds
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
    ++FScanGeneration;
    FOrderClause = Value;
    if (!Active()) return;
    CheckBrowseMode();
    // An order the statement does not take is left aside, as the next
    // open leaves it: the rows stay as they are.
    if (!Value.isEmpty() && OrderedSQL(Value).isEmpty()) return;
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

QString TDLSQLDataSet::OrderedSQL(const QString& Order) {
    if (Order.isEmpty()) return FCurrentSQL;
    const QString direct = FCurrentSQL + u' ' + Order;
    if (FDatabase->IsValidSQL(direct)) return direct;
    // A statement with an order of its own (a table in its key's order)
    // is sorted around: the outer order wins, the columns keep their names.
    const QString wrapped = QStringLiteral("select * from (") + FCurrentSQL + QStringLiteral("\n) ") + Order;
    return FDatabase->IsValidSQL(wrapped) ? wrapped : QString();
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
        // The row as it was read: the window's copy, which the write leaves
        // alone (it reads the row back into the active buffer only).
        const TDLRecData* before = OldRecData();
        PerformUpdate(*this, FInternalTableName);
        RowidChanged(before, ActiveRecData());
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


}  // namespace brindle
