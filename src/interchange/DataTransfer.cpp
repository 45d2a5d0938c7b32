#include "DataTransfer.h"

#include "TransferTools.h"

#include "data/DLQuery.h"
#include "data/DLRecData.h"
#include "data/DLSQLiteEdit.h"
#include "engine/DLPragmaOptions.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLObjectDefs.h"
#include "schema/DLSQLiteMetadata.h"
#include "schema/DLSQLiteParser.h"
#include "schema/DLSchemaReader.h"

#include <QFileInfo>
#include <exception>
#include <unordered_map>

namespace brindle {

namespace {

bool InMainDatabase(const QString& QualifiedName) {
    QString db, name;
    SplitObjectName(QualifiedName, db, name);
    return db.isEmpty() || db.compare(QLatin1String("main"), Qt::CaseInsensitive) == 0;
}

// A destination name in the destination's main database, said so: while
// the source is attached a bare name could find the source's table.
QString InMain(const QString& Name) {
    QString db, name;
    SplitObjectName(Name, db, name);
    return db.isEmpty() ? QStringLiteral("main.") + Name : Name;
}

// A trigger's text for a table or view that has another name in the
// destination.
QString TriggerText(const QString& SQL, const QString& SourceName, const QString& DestName) {
    if (SameObject(QuoteName(BareObjectName(SourceName)), DestName)) return SQL;
    return ReplaceTableNameInTrigger(SQL, DestName);
}

std::unique_ptr<TTableRec> NewTableRec(TBaseTableInfo& Table, bool IncludeData) {
    auto rec = std::make_unique<TTableRec>(&Table);
    rec->FIncludeStructure = true;
    rec->FIncludeData = IncludeData;
    rec->FIncludeConstraints = true;
    for (int i = 0; i < Table.IndexCount(); ++i) rec->FIndexes << Table.Indexes(i).FIndexName;
    // Temporary triggers belong to the connection that made them.
    for (int i = 0; i < Table.TriggerCount(); ++i)
        if (!Table.Triggers(i).FIsTemporary) rec->FTriggers << Table.Triggers(i).FTriggerName;
    return rec;
}

std::unique_ptr<TViewRec> NewViewRec(TBaseViewInfo& View) {
    auto rec = std::make_unique<TViewRec>(&View);
    rec->FIncludeStructure = true;
    for (int i = 0; i < View.TriggerCount(); ++i)
        if (!View.Triggers(i).FIsTemporary) rec->FTriggers << View.Triggers(i).FTriggerName;
    return rec;
}

}  // namespace

// ---------------------------------------------------------------------------
// TDataTransfer

TDataTransfer::TDataTransfer() = default;
TDataTransfer::~TDataTransfer() = default;

void TDataTransfer::DoLog(const QString& Msg) {
    if (FOnLog) FOnLog(*this, Msg);
}

void TDataTransfer::DoProgress(int Position, int Max) {
    if (FOnProgress) FOnProgress(*this, Position, Max);
}

void TDataTransfer::DoTableProgress(const QString& TableName, qint64 Records) {
    if (FOnTableProgress) FOnTableProgress(*this, TableName, Records);
}

void TDataTransfer::DoOnTransferComplete() {
    if (FOnTransferComplete) FOnTransferComplete(*this);
}

void TDataTransfer::DoOnTransferError(const QString& Error) {
    if (FOnTransferError) FOnTransferError(*this, Error);
}

bool TDataTransfer::DoCheckAbort() {
    if (FOnCheckAbort && !FAborted) FOnCheckAbort(*this, FAborted);
    return FAborted;
}

// ---------------------------------------------------------------------------
// Object records

TObjRec::~TObjRec() = default;

bool TViewRec::GetSelected() const {
    return FIncludeStructure || !FTriggers.isEmpty();
}

TMetadataBaseItem* TViewRec::GetMetadataBaseItem() const {
    return FViewInfo;
}

bool TTableRec::GetSelected() const {
    return FIncludeStructure || FIncludeData || !FIndexes.isEmpty() || !FTriggers.isEmpty();
}

TMetadataBaseItem* TTableRec::GetMetadataBaseItem() const {
    return FTableInfo;
}

void AddTransferObjects(TTransferObjects& Objects, const TBaseMetadata& Metadata, const QStringList& Names,
                        bool IncludeData) {
    if (Names.isEmpty()) {
        for (int i = 0; i < Metadata.TableCount(); ++i) {
            TBaseTableInfo& t = Metadata.Tables(i);
            if (InMainDatabase(t.FTableName) && !t.IsSystemTable() && !IsShadowTable(t))
                Objects.push_back(NewTableRec(t, IncludeData));
        }
        for (int i = 0; i < Metadata.ViewCount(); ++i)
            if (InMainDatabase(Metadata.Views(i).FViewName)) Objects.push_back(NewViewRec(Metadata.Views(i)));
        return;
    }
    for (const QString& name : Names) {
        // Only main's objects: a bare name must not find a temporary one.
        QString db, bare;
        SplitObjectName(name, db, bare);
        const QString qualified = QuoteObjectIfNeeded(QStringLiteral("main"), bare);
        if (!db.isEmpty() && db.compare(QLatin1String("main"), Qt::CaseInsensitive) != 0)
            throw ECustomException(QStringLiteral("No table or view named %1").arg(name));
        if (TBaseTableInfo* t = Metadata.FindTable(qualified)) {
            if (IsShadowTable(*t))
                throw ECustomException(
                    QStringLiteral("Table %1 holds the data of a virtual table and goes with it").arg(name));
            Objects.push_back(NewTableRec(*t, IncludeData));
        } else if (TBaseViewInfo* v = Metadata.FindView(qualified)) {
            Objects.push_back(NewViewRec(*v));
        } else {
            throw ECustomException(QStringLiteral("No table or view named %1").arg(name));
        }
    }
}

bool SortObjectsByDependencies(TTransferObjects& Objects) {
    std::vector<TMetadataBaseItem*> items;
    std::unordered_map<TMetadataBaseItem*, std::unique_ptr<TObjRec>> records;
    for (auto& rec : Objects) {
        TMetadataBaseItem* item = rec->GetMetadataBaseItem();
        // The same object twice: the second record goes.
        if (records.count(item)) continue;
        items.push_back(item);
        records[item] = std::move(rec);
    }
    const bool sorted = SortByDependencies(items);
    Objects.clear();
    for (TMetadataBaseItem* item : items) Objects.push_back(std::move(records[item]));
    return sorted;
}

// ---------------------------------------------------------------------------
// TDBToDB

TDBToDB::TDBToDB() = default;
TDBToDB::~TDBToDB() = default;

void TDBToDB::Clear() {
    FObjects.clear();
    FDestDatabase = nullptr;
    FSourceDatabase = nullptr;
}

QString TDBToDB::DestObjectName(const QString& SourceName) {
    return QuoteName(BareObjectName(SourceName));
}

void TDBToDB::PrepareTable(TTableRec& TableRec) {
    if (TableRec.FDestTableName.isEmpty())
        TableRec.FDestTableName = DestObjectName(TableRec.FTableInfo->FTableName);
    DoLog(QStringLiteral("Copying table: ") + TableRec.FDestTableName);
}

void TDBToDB::DropDestinationTable(TTableRec& TableRec) {
    if (FDropDestination && TableRec.FIncludeStructure &&
        FDestDatabase->TableExists(TableRec.FDestTableName)) {
        DoLog(QStringLiteral("Dropping table..."));
        DropDestTable(TableRec.FDestTableName);
    }
}

void TDBToDB::DropDestTable(const QString& TableName) {
    FDestDatabase->DropTable(TableName);
}

void TDBToDB::InternalDBToDB(bool Sorted) {
    auto eachTable = [this](const std::function<void(TTableRec&)>& Step) {
        for (auto& obj : FObjects) {
            if (DoCheckAbort()) return;
            auto* rec = dynamic_cast<TTableRec*>(obj.get());
            if (rec && rec->GetSelected()) Step(*rec);
        }
    };
    // Without a safe order every table is made with its columns first, so
    // that whatever refers to it finds it.
    if (!Sorted)
        eachTable([this](TTableRec& rec) {
            PrepareTable(rec);
            DropDestinationTable(rec);
            CopyStructure(rec, true);
        });
    eachTable([this](TTableRec& rec) {
        PrepareTable(rec);
        DropDestinationTable(rec);
        CopyStructure(rec, false);
    });
    eachTable([this](TTableRec& rec) {
        if (!rec.FIncludeData || IsShadowTable(*rec.FTableInfo)) return;
        DoLog(QStringLiteral("Copying data..."));
        CopyData(rec);
    });
    if (FAborted) return;
    AfterData();
    const int count = static_cast<int>(FObjects.size());
    for (int i = 0; i < count; ++i) {
        if (DoCheckAbort()) return;
        auto* rec = dynamic_cast<TViewRec*>(FObjects[static_cast<size_t>(i)].get());
        if (!rec) continue;
        if (rec->FDestViewName.isEmpty()) rec->FDestViewName = DestObjectName(rec->FViewInfo->FViewName);
        ViewToDatabase(*rec);
        DoProgress(i + 1, count);
    }
}

void TDBToDB::Execute() {
    FAborted = false;
    try {
        if (FUseTransaction) {
            if (!FDestDatabase->GetInTransaction()) FDestDatabase->BeginTransaction();
            try {
                InternalDBToDB(true);
            } catch (...) {
                FDestDatabase->Rollback();
                throw;
            }
            if (FAborted)
                FDestDatabase->Rollback();
            else
                FDestDatabase->Commit();
        } else {
            InternalDBToDB(true);
        }
        DoOnTransferComplete();
    } catch (const ECustomException& e) {
        DoOnTransferError(e.message());
        if (!FHideExceptions) throw;
    }
}

std::unique_ptr<TDataSet> TDBToDB::OpenTable(const QString& TableName) {
    auto* db = dynamic_cast<TDLSQLiteDatabase*>(FSourceDatabase);
    if (!db) throw ECustomException(QStringLiteral("No way to read the tables of this source"));
    // The rows as the table gives them, through a statement of our own: a
    // table dataset's would not hold every name.
    auto query = std::make_unique<TDLQuery>();
    query->FAllowPreprocess = false;
    query->SetDatabase(db);
    query->SetSQL(QStringLiteral("select * from ") + QuoteQualifiedName(TableName));
    return query;
}

void TDBToDB::CopyData(TTableRec& TableRec) {
    const QString name = TableRec.FTableInfo->FTableName;
    std::unique_ptr<TDataSet> source = OpenTable(name);
    source->Open();
    qint64 count = 0;
    try {
        while (!FAborted && !source->Eof()) {
            InsertCurrentRecord(*source, TableRec.FDestTableName, true);
            // The row is done with: its BLOBs need not stay in memory.
            if (TDLRecData* rec = source->ActiveRecData()) rec->DiscardBlobs();
            source->Next();
            if (++count % 100 == 0) DoTableProgress(name, count);
            DoCheckAbort();
        }
    } catch (...) {
        DoTableProgress(name, count);
        throw;
    }
    DoTableProgress(name, count);
}

// ---------------------------------------------------------------------------
// TDBToSQLite

TDBToSQLite::TDBToSQLite() = default;
TDBToSQLite::~TDBToSQLite() = default;

void TDBToSQLite::Clear() {
    FInsert.reset();
    FInsertSQL.clear();
    TDBToDB::Clear();
}

TDLSQLiteDatabase& TDBToSQLite::DestDatabase() const {
    auto* db = dynamic_cast<TDLSQLiteDatabase*>(FDestDatabase);
    if (!db) throw ECustomException(QStringLiteral("The destination is no SQLite database"));
    return *db;
}

namespace {

// Undoes the run's savepoint: back to it inside a transaction that was open
// before, else the whole transaction. A failure that already ended the
// transaction (the engine does that on an interrupt) leaves nothing to undo.
void UndoTransfer(TDLSQLiteDatabase& Database, bool WasInTransaction) {
    if (!Database.GetInTransaction()) return;
    Database.Execute(WasInTransaction ? QStringLiteral("rollback to brindle_data_transfer")
                                      : QStringLiteral("rollback"));
}

}  // namespace

void TDBToSQLite::Execute() {
    FAborted = false;
    try {
        const bool sorted = SortObjectsByDependencies(FObjects);
        TDLSQLiteDatabase& dest = DestDatabase();
        bool foreignKeys = false;
        if (const TSQLitePragmaOption* option = dest.PragmaByName(QStringLiteral("foreign_keys")))
            foreignKeys = option->GetValue().compare(QLatin1String("on"), Qt::CaseInsensitive) == 0;
        if (foreignKeys) {
            // Inside a transaction the engine ignores the switch, and rows
            // would be checked against parents not yet copied.
            if (dest.GetInTransaction())
                throw ECustomException(
                    QStringLiteral("Active transaction on destination database, transfer aborted"));
            dest.Execute(QStringLiteral("pragma foreign_keys = off;"));
        }
        auto restoreKeys = [&] {
            if (foreignKeys) dest.Execute(QStringLiteral("pragma foreign_keys = on;"));
        };
        try {
            if (FUseTransaction) {
                const bool wasInTransaction = dest.GetInTransaction();
                dest.Execute(QStringLiteral("savepoint brindle_data_transfer"));
                try {
                    InternalDBToDB(sorted);
                } catch (...) {
                    try {
                        UndoTransfer(dest, wasInTransaction);
                    } catch (const ECustomException&) {
                        // The first failure is the one to tell.
                    }
                    throw;
                }
                if (FAborted)
                    UndoTransfer(dest, wasInTransaction);
                else
                    dest.Execute(QStringLiteral("release brindle_data_transfer"));
            } else {
                InternalDBToDB(sorted);
            }
        } catch (...) {
            try {
                restoreKeys();
            } catch (const ECustomException&) {
            }
            throw;
        }
        restoreKeys();
        DoOnTransferComplete();
    } catch (const ECustomException& e) {
        DoOnTransferError(e.message());
        if (!FHideExceptions) throw;
    }
}

void TDBToSQLite::InternalDBToDB(bool Sorted) {
    FPendingTriggers.clear();
    FColumnsMade.clear();
    try {
        TDBToDB::InternalDBToDB(Sorted);
    } catch (...) {
        FInsert.reset();
        FInsertSQL.clear();
        throw;
    }
    FInsert.reset();
    FInsertSQL.clear();
}

QStringList TDBToSQLite::InsertableFields(const TTableRec& TableRec) const {
    return InsertableColumns(*TableRec.FTableInfo);
}

void TDBToSQLite::CopyStructure(TTableRec& TableRec, bool ColumnsOnly) {
    TDLSQLiteDatabase& dest = DestDatabase();
    const QString destName = TableRec.FDestTableName;
    const auto* info = dynamic_cast<const TSQLiteTableInfo*>(TableRec.FTableInfo);
    // What the column pass made stands in the way of the whole table.
    if (!ColumnsOnly && FColumnsMade.removeAll(destName) > 0 && dest.TableExists(destName))
        DropDestTable(destName);

    if (info && info->FIsVirtual) {
        // Made once, whole: a module takes no partial definition.
        if (TableRec.FIncludeStructure && !ColumnsOnly) {
            DoLog(QStringLiteral("Copying structure..."));
            TDLVirtualTableDef def(destName, info->FModuleName, info->FModuleArguments);
            dest.Execute(def.GetCreateSQL());
        }
        return;
    }
    if (info && info->FIsShadow) return;

    TDLTableDef def(destName);
    if (TableRec.FIncludeStructure) {
        DoLog(QStringLiteral("Copying structure..."));
        CopyFields(TableRec, def);
    }
    QStringList extra;  // indexes of expressions, which no definition holds
    if (!ColumnsOnly) {
        CopyIndexes(TableRec, def);
        for (int i = 0; i < TableRec.FTableInfo->IndexCount(); ++i) {
            const TBaseIndexInfo& index = TableRec.FTableInfo->Indexes(i);
            if (!TableRec.FIndexes.contains(index.FIndexName) || !HasExpressionColumns(index) ||
                (index.FOptions & ixPrimary))
                continue;
            const QString name = FRenameIndexes
                                     ? QStringLiteral("%1_%2").arg(BareObjectName(destName), index.FIndexName)
                                     : index.FIndexName;
            extra << EndStatement(StoredIndexText(index, name, destName));
        }
        CopyTriggers(TableRec, def);
        if (TableRec.FIncludeConstraints) CopyConstraints(TableRec, def);
    } else {
        // A placeholder of the columns alone: without its key a table
        // without rowid cannot be made.
        def.FIsWithoutRowID = false;
    }
    const QString stored =
        TableRec.FIncludeStructure && !ColumnsOnly && info ? StoredTableText(*info, destName) : QString();
    if (!stored.isEmpty()) {
        // Clauses the definitions would drop: the stored text keeps them.
        dest.Execute(EndStatement(stored));
        CreateTable(dest, def, false, true, false);
    } else {
        CreateTable(dest, def, TableRec.FIncludeStructure, true, false);
    }
    for (const QString& sql : extra) dest.Execute(sql);
    if (ColumnsOnly && TableRec.FIncludeStructure) FColumnsMade << destName;
}

void TDBToSQLite::CopyFields(TTableRec& TableRec, TDLTableDef& TableDef) {
    AddFieldDefs(*TableRec.FTableInfo, TableDef, TableRec.FIncludeConstraints);
    SetTableOptions(*TableRec.FTableInfo, TableDef);
}

void TDBToSQLite::CopyIndexes(TTableRec& TableRec, TDLTableDef& TableDef) {
    const TBaseTableInfo& table = *TableRec.FTableInfo;
    const QString tableName = BareObjectName(table.FTableName);
    const QString destTable = BareObjectName(TableRec.FDestTableName);
    bool hasPrimaryKey = false;
    for (int i = 0; i < table.IndexCount(); ++i) {
        const TBaseIndexInfo& index = table.Indexes(i);
        if (!TableRec.FIndexes.contains(index.FIndexName)) continue;
        const bool primary = (index.FOptions & ixPrimary) && !hasPrimaryKey;
        if (primary) hasPrimaryKey = true;
        // Made by a constraint of the table, and made again by it.
        if (dynamic_cast<const TSQLiteIndexInfo*>(&index) && IsAutoIndex(tableName, index.FIndexName) &&
            !primary)
            continue;
        if (!primary && HasExpressionColumns(index)) continue;  // from its stored text
        // Index names are unique in a whole database, keys' names are the
        // engine's own.
        const QString name = FRenameIndexes && !primary
                                 ? QStringLiteral("%1_%2").arg(destTable, index.FIndexName)
                                 : index.FIndexName;
        if (!TableDef.FindIndex(name)) TableDef.AddIndex(IndexDefOf(index, name, primary));
    }
}

void TDBToSQLite::CopyTriggers(TTableRec& TableRec, TDLTableDef& TableDef) {
    (void)TableDef;
    // Made after the rows: a trigger would fire on every row copied.
    QStringList texts;
    const TBaseTableInfo& table = *TableRec.FTableInfo;
    for (int i = 0; i < table.TriggerCount(); ++i) {
        const TBaseTriggerInfo& trigger = table.Triggers(i);
        if (TableRec.FTriggers.contains(trigger.FTriggerName))
            texts << EndStatement(TriggerText(trigger.FSQL, table.FTableName, TableRec.FDestTableName));
    }
    if (!texts.isEmpty()) FPendingTriggers.emplace_back(TableRec.FDestTableName, texts);
}

void TDBToSQLite::CopyConstraints(TTableRec& TableRec, TDLTableDef& TableDef) {
    AddConstraintDefs(*TableRec.FTableInfo, TableDef);
}

// The name is quoted as the definitions write it, which holds any name.
void TDBToSQLite::DropDestTable(const QString& TableName) {
    DestDatabase().Execute(QStringLiteral("drop table ") + InMain(TableName));
}

void TDBToSQLite::AfterData() {
    TDLSQLiteDatabase& dest = DestDatabase();
    for (const auto& [table, texts] : FPendingTriggers) {
        DoLog(QStringLiteral("Copying triggers: ") + table);
        for (const QString& sql : texts) dest.Execute(sql);
    }
    FPendingTriggers.clear();
}

void TDBToSQLite::ViewToDatabase(TViewRec& ViewRec) {
    if (!ViewRec.GetSelected()) return;
    TDLSQLiteDatabase& dest = DestDatabase();
    const QString destName = ViewRec.FDestViewName;
    DoLog(QString());
    DoLog(QStringLiteral("Copying view: ") + destName);
    if (FDropDestination && ViewRec.FIncludeStructure && dest.ViewExists(destName)) {
        DoLog(QStringLiteral("Dropping view..."));
        dest.Execute(QStringLiteral("drop view ") + InMain(destName));
    }
    const TBaseViewInfo& view = *ViewRec.FViewInfo;
    TDLViewDef def(destName);
    const TViewDataRec rec = GetViewRec(view.FSQL);
    def.FAsClause = rec.AsClause;
    def.FColumnNames = rec.ColumnNames;
    for (int i = 0; i < view.TriggerCount(); ++i) {
        const TBaseTriggerInfo& trigger = view.Triggers(i);
        if (ViewRec.FTriggers.contains(trigger.FTriggerName))
            def.AddTrigger(trigger.FTriggerName, TriggerText(trigger.FSQL, view.FViewName, destName));
    }
    dest.Execute(def.GetCreateSQL(ViewRec.FIncludeStructure, true));
}

void TDBToSQLite::InsertCurrentRecord(TDataSet& DataSet, const QString& TableName, bool InsertNulls) {
    TDLSQLiteDatabase& dest = DestDatabase();
    TParams params;
    QStringList names;
    const TDLRecData* rec = DataSet.ActiveRecData();
    for (int i = 0; i < DataSet.Fields().Count(); ++i) {
        const TField& field = DataSet.Fields()[i];
        // Hidden fields (the rowid) are the dataset's, not the table's.
        if (field.FFieldKind != fkData || !field.FVisible || FSkippedFields.contains(field.FieldName()))
            continue;
        if (!(rec && rec->GetHasData(field.Index())) && !InsertNulls) continue;
        // A row read from SQLite keeps each value's own storage class.
        TParam p =
            rec ? StoredValueToParam(*rec, field) : FieldValueToParam(field, DataSet.GetFieldValue(field));
        if (!dest.SupportsDataType(p.DataType) && !p.IsNull() &&
            (p.DataType == ftWideString || p.DataType == ftWideMemo)) {
            p.DataType = ftString;
            p.Value = field.AsString();
        }
        p.Name.clear();  // bound by position
        params.Add(QString(), p.DataType, p.Value);
        names << QuoteName(field.FieldName());
    }
    if (names.isEmpty()) throw ECustomException(QStringLiteral("Could not insert empty record"));
    const QString sql = InsertSQL(InMain(TableName), names);
    // Rows of one table give one text: it is prepared once.
    if (!FInsert || sql != FInsertSQL) {
        FInsert.reset();
        FInsert = std::make_unique<TPreparedStatement>(dest, sql);
        FInsertSQL = sql;
    }
    dest.BindParams(FInsert->SQLHandle(), &params);
    FInsert->Step();
    FInsert->Reset();
}

void TDBToSQLite::CopySequence(TTableRec& TableRec) {
    auto* source = dynamic_cast<TDLSQLiteDatabase*>(FSourceDatabase);
    if (!source) return;
    const std::optional<qint64> seq = ReadSequence(*source, BareObjectName(TableRec.FTableInfo->FTableName));
    TDLSQLiteDatabase& dest = DestDatabase();
    // The destination keeps counters only when a table of it has
    // AUTOINCREMENT.
    if (!seq || !HasSequenceTable(dest)) return;
    for (const QString& sql : SequenceStatements(TableRec.FDestTableName, *seq, QStringLiteral("main.")))
        dest.Execute(sql);
}

void TDBToSQLite::CopyData(TTableRec& TableRec) {
    const QStringList insertable = InsertableFields(TableRec);
    FSkippedFields.clear();
    for (int i = 0; i < TableRec.FTableInfo->FieldCount(); ++i)
        if (!insertable.contains(TableRec.FTableInfo->Fields(i).FFieldName))
            FSkippedFields << TableRec.FTableInfo->Fields(i).FFieldName;
    TDBToDB::CopyData(TableRec);
    if (!FAborted) CopySequence(TableRec);
}

// ---------------------------------------------------------------------------
// TSQLiteToSQLite

TSQLiteToSQLite::TSQLiteToSQLite() = default;
TSQLiteToSQLite::~TSQLiteToSQLite() = default;

TDLSQLiteDatabase& TSQLiteToSQLite::SourceDatabase() const {
    auto* db = dynamic_cast<TDLSQLiteDatabase*>(FSourceDatabase);
    if (!db) throw ECustomException(QStringLiteral("The source is no SQLite database"));
    return *db;
}

void TSQLiteToSQLite::CopyDBProperties() {
    if (!FIncludeDBProperties) return;
    TDLSQLiteDatabase& source = SourceDatabase();
    TDLSQLiteDatabase& dest = DestDatabase();
    // The page size first: once auto_vacuum is set on a new file the
    // engine keeps the page size it has.
    dest.Execute(QStringLiteral("pragma page_size=%1;").arg(source.DatabaseParams().PageSize()));
    dest.Execute(QStringLiteral("pragma auto_vacuum=%1;").arg(source.DatabaseParams().AutoVacuum()));
    dest.Execute(QStringLiteral("pragma encoding=%1;").arg(QuotedStr(source.DatabaseParams().Encoding())));
}

void TSQLiteToSQLite::InternalDBToDB(bool Sorted) {
    CopyDBProperties();
    TDLSQLiteDatabase& source = SourceDatabase();
    // The whole copy reads one state of the source, whatever other
    // connections write meanwhile.
    const bool snapshot = &source != FDestDatabase && !source.GetInTransaction();
    if (snapshot) source.Execute(QStringLiteral("begin"));
    try {
        TDBToSQLite::InternalDBToDB(Sorted);
    } catch (...) {
        if (snapshot && source.GetInTransaction()) {
            try {
                source.Execute(QStringLiteral("rollback"));
            } catch (const ECustomException&) {
            }
        }
        throw;
    }
    if (snapshot && source.GetInTransaction()) source.Execute(QStringLiteral("rollback"));
}

namespace {

constexpr char kAttachedSource[] = "brindle_transfer_source";

}  // namespace

void TSQLiteToSQLite::Execute() {
    FAttached = false;
    TDLSQLiteDatabase* source = dynamic_cast<TDLSQLiteDatabase*>(FSourceDatabase);
    TDLSQLiteDatabase* dest = dynamic_cast<TDLSQLiteDatabase*>(FDestDatabase);
    if (FAttachSource && source && dest && source != dest && source->Connected() && dest->Connected() &&
        !source->GetInTransaction() && !dest->GetInTransaction() && source->EncryptionKey().isEmpty() &&
        QFileInfo(source->FileName()).isFile()) {
        try {
            dest->Execute(QStringLiteral("attach database %1 as %2")
                              .arg(QuotedStr(QFileInfo(source->FileName()).absoluteFilePath()),
                                   QLatin1String(kAttachedSource)));
            FAttached = true;
        } catch (const ECustomException&) {
            // The rows go over one by one through both connections.
        }
    }
    struct TDetach {
        TSQLiteToSQLite& Self;
        TDLSQLiteDatabase* Dest;
        ~TDetach() {
            if (!Self.FAttached) return;
            Self.FAttached = false;
            try {
                Dest->Execute(QStringLiteral("detach database %1").arg(QLatin1String(kAttachedSource)));
            } catch (const ECustomException&) {
            }
        }
    } detach{*this, dest};
    TDBToSQLite::Execute();
}

void TSQLiteToSQLite::CopyData(TTableRec& TableRec) {
    // A virtual table's module may be missing on the destination's
    // connection; its rows go the other way.
    if (FAttached && !IsVirtualTable(*TableRec.FTableInfo))
        CopyInEngine(TableRec);
    else
        CopyRows(TableRec);
    if (!FAborted) CopySequence(TableRec);
}

// The run that RowCopied reports to: one statement at a time, on this
// thread.
struct TSQLiteToSQLite::TRowCounter {
    TSQLiteToSQLite* Transfer;
    QString Table;
    qint64 Count = 0;
    std::exception_ptr Failure;
};

namespace {

thread_local void* ActiveRowCounter = nullptr;

}  // namespace

void TSQLiteToSQLite::RowCopied(sqlite3_context* Context, int, sqlite3_value**) {
    TSQLite3Driver& d = *SQLite3Driver;
    auto* counter = static_cast<TRowCounter*>(ActiveRowCounter);
    if (!counter) return d.sqlite3_result_int(Context, 1);
    // Nothing may be thrown through the engine: a failure waits in the
    // counter until the statement has given up. An abort lets the rest of
    // the rows by, so that the rows copied so far stay, as they do on the
    // other road.
    try {
        if (counter->Transfer->DoCheckAbort()) return d.sqlite3_result_int(Context, 0);
        if (++counter->Count % 100 == 0) counter->Transfer->DoTableProgress(counter->Table, counter->Count);
    } catch (...) {
        counter->Failure = std::current_exception();
        return d.sqlite3_result_error(Context, "failed", -1);
    }
    d.sqlite3_result_int(Context, 1);
}

void TSQLiteToSQLite::CopyInEngine(TTableRec& TableRec) {
    TDLSQLiteDatabase& dest = DestDatabase();
    TSQLite3Driver& d = *SQLite3Driver;
    const TBaseTableInfo& table = *TableRec.FTableInfo;
    const QString columns =
        (TableRec.FIncludeStructure && KeepsRowID(table) ? QStringLiteral("rowid, ") : QString()) +
        QuotedColumnList(InsertableColumns(table));
    const QString source =
        QuoteName(QLatin1String(kAttachedSource)) + u'.' + QuoteName(BareObjectName(table.FTableName));
    const QString sql = QStringLiteral("insert into %1(%2) select %2 from %3 where brindle_transfer_row()")
                            .arg(InMain(TableRec.FDestTableName), columns, source);
    dest.SQLiteCheck(d.sqlite3_create_function(dest.Handle(), "brindle_transfer_row", 0, SQLITE_UTF8, nullptr,
                                               &TSQLiteToSQLite::RowCopied, nullptr, nullptr));
    TRowCounter counter{this, table.FTableName, 0, {}};
    struct TScope {
        TDLSQLiteDatabase& Dest;
        ~TScope() {
            ActiveRowCounter = nullptr;
            SQLite3Driver->sqlite3_create_function(Dest.Handle(), "brindle_transfer_row", 0, SQLITE_UTF8,
                                                   nullptr, nullptr, nullptr, nullptr);
        }
    } scope{dest};
    try {
        TPreparedStatement insert(dest, sql);
        ActiveRowCounter = &counter;
        insert.Step();
    } catch (const ECustomException&) {
        DoTableProgress(table.FTableName, counter.Count);
        if (counter.Failure) std::rethrow_exception(counter.Failure);
        throw;
    }
    DoTableProgress(table.FTableName, counter.Count);
}

void TSQLiteToSQLite::CopyRows(TTableRec& TableRec) {
    TDLSQLiteDatabase& dest = DestDatabase();
    const TBaseTableInfo& table = *TableRec.FTableInfo;
    const QString name = table.FTableName;
    const QString from = QStringLiteral(" from ") + QuoteQualifiedName(name);
    // A table this run made keeps its rows' rowids; computed columns are
    // the engine's to fill.
    const bool rowid = TableRec.FIncludeStructure && KeepsRowID(table);
    TPreparedStatement select(
        SourceDatabase(),
        QStringLiteral("select ") + (rowid ? QStringLiteral("rowid, ") : QString()) +
            (HasComputedColumns(table) && !IsVirtualTable(table) ? QuotedColumnList(InsertableColumns(table))
                                                                 : QStringLiteral("*")) +
            from);
    sqlite3_stmt* src = select.Handle();
    const int columns = SQLite3Driver->sqlite3_column_count(src);
    QStringList names;
    for (int c = 0; c < columns; ++c) {
        names << (rowid && c == 0 ? QStringLiteral("rowid")
                                  : QuoteName(QString::fromUtf16(static_cast<const char16_t*>(
                                        SQLite3Driver->sqlite3_column_name16(src, c)))));
    }
    if (names.isEmpty()) throw ECustomException(QStringLiteral("Could not insert empty record"));
    TPreparedStatement insert(dest, InsertSQL(InMain(TableRec.FDestTableName), names));
    sqlite3_stmt* ins = insert.Handle();
    TSQLite3Driver& d = *SQLite3Driver;
    static const char empty = 0;
    qint64 count = 0;
    try {
        while (!FAborted && select.Step()) {
            // Each value in its own storage class, straight from the row
            // that the source's statement holds; it lives until the next
            // step of that statement.
            for (int c = 0; c < columns; ++c) {
                int rc = SQLITE_OK;
                switch (d.sqlite3_column_type(src, c)) {
                    case SQLITE_INTEGER:
                        rc = d.sqlite3_bind_int64(ins, c + 1, d.sqlite3_column_int64(src, c));
                        break;
                    case SQLITE_FLOAT:
                        rc = d.sqlite3_bind_double(ins, c + 1, d.sqlite3_column_double(src, c));
                        break;
                    case SQLITE_TEXT: {
                        const auto* text = reinterpret_cast<const char*>(d.sqlite3_column_text(src, c));
                        rc = d.sqlite3_bind_text(ins, c + 1, text ? text : &empty,
                                                 d.sqlite3_column_bytes(src, c), SQLITE_STATIC);
                        break;
                    }
                    case SQLITE_BLOB: {
                        // An empty BLOB comes as a null pointer, which would bind NULL.
                        const void* blob = d.sqlite3_column_blob(src, c);
                        rc = d.sqlite3_bind_blob(ins, c + 1, blob ? blob : &empty,
                                                 d.sqlite3_column_bytes(src, c), SQLITE_STATIC);
                        break;
                    }
                    default:
                        rc = d.sqlite3_bind_null(ins, c + 1);
                        break;
                }
                if (rc != SQLITE_OK) dest.SQLiteCheck(rc, insert.SQL());
            }
            insert.Step();
            insert.Reset();
            if (++count % 100 == 0) DoTableProgress(name, count);
            DoCheckAbort();
        }
    } catch (...) {
        DoTableProgress(name, count);
        throw;
    }
    DoTableProgress(name, count);
}

}  // namespace brindle
