#include "DLSQLiteLoad.h"

#include "DLSQLDataSet.h"
#include "DLRowidMarks.h"
#include "DLTable.h"
#include "engine/DLDateTime.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLiteDatabase.h"

#include <QDateTime>
#include <QStringDecoder>
#include <cstring>
#include <sqlite3.h>

namespace brindle {

namespace {

// Sizes kept for these types; the others have none.
bool KeepsSize(TFieldType t) {
    switch (t) {
        case ftString: case ftBCD: case ftBytes: case ftVarBytes: case ftBlob: case ftMemo: case ftGraphic:
        case ftFmtMemo: case ftParadoxOle: case ftDBaseOle: case ftTypedBinary: case ftWideString: case ftADT:
        case ftArray: case ftWideMemo:
            return true;
        default:
            return false;
    }
}

// How text comes out of the engine: as UTF-16 from a file that keeps it so;
// from a UTF-8 file as its own bytes, made UTF-16 here straight into the
// row, which is much cheaper than the engine's conversion.
struct TTextReader {
    bool Unicode = true;
    bool Utf8File = false;
    QStringDecoder Decoder{QStringDecoder::Utf8, QStringConverter::Flag::Stateless};
};

// The value of column Col into slot Index of the row, in its storage class.
void ReadColumn(TSQLite3Driver& d, sqlite3_stmt* Stmt, int Col, TTextReader& Text, bool LoadBlobs, const TField& Field,
                TDLSQLiteRecData& Rec) {
    int storage = d.sqlite3_column_type(Stmt, Col);
    const int index = Field.Index();
    if (storage == SQLITE_NULL) {
        Rec.SetStorageClass(index, scNull);
        Rec.SetHasData(index, false);
        Rec.EndRawData(index, 0);
        return;
    }
    // A BLOB field keeps whatever it holds as bytes; text among them keeps
    // its class beside the bytes, so that it is written back out as text.
    if (Field.DataType() == ftBlob || Field.DataType() == ftGraphic)
        storage = storage == SQLITE_TEXT ? scBlobText : SQLITE_BLOB;
    Rec.SetStorageClass(index, storage);
    Rec.SetHasData(index, true);
    switch (storage) {
        case SQLITE_INTEGER: {
            const qint64 v = d.sqlite3_column_int64(Stmt, Col);
            std::memcpy(Rec.BeginRawData(index, sizeof v), &v, sizeof v);
            Rec.EndRawData(index, sizeof v);
            break;
        }
        case SQLITE_FLOAT: {
            const double v = d.sqlite3_column_double(Stmt, Col);
            std::memcpy(Rec.BeginRawData(index, sizeof v), &v, sizeof v);
            Rec.EndRawData(index, sizeof v);
            break;
        }
        case SQLITE_TEXT:
            if (Text.Unicode && !Text.Utf8File) {
                const void* p = d.sqlite3_column_text16(Stmt, Col);
                const int bytes = d.sqlite3_column_bytes16(Stmt, Col);
                std::memcpy(Rec.BeginRawData(index, bytes), p, static_cast<size_t>(bytes));
                Rec.EndRawData(index, bytes);
            } else {
                const char* p = reinterpret_cast<const char*>(d.sqlite3_column_text(Stmt, Col));
                const int bytes = d.sqlite3_column_bytes(Stmt, Col);
                auto* out = reinterpret_cast<QChar*>(Rec.BeginRawData(index, 2 * Text.Decoder.requiredSpace(bytes)));
                const QChar* end = Text.Decoder.appendToBuffer(out, QByteArrayView(p, bytes));
                Rec.EndRawData(index, 2 * (end - out));
            }
            break;
        default:  // a BLOB, or text a BLOB field holds
            if (LoadBlobs) {
                // Text comes as UTF-8 whatever the file's encoding: its
                // bytes are what the field shows.
                const void* p = storage == scBlobText ? static_cast<const void*>(d.sqlite3_column_text(Stmt, Col))
                                                      : d.sqlite3_column_blob(Stmt, Col);
                const int bytes = d.sqlite3_column_bytes(Stmt, Col);
                if (bytes > 0) std::memcpy(Rec.BeginRawData(index, bytes), p, static_cast<size_t>(bytes));
                Rec.EndRawData(index, bytes);
            } else {
                // Fetched when shown.
                Rec.EndRawData(index, 0);
                Rec.SetFullData(index, false);
            }
            break;
    }
}

}  // namespace

QString ColumnString(bool Unicode, const void* Text16, const char* Text8) {
    if (Unicode) return Text16 ? QString::fromUtf16(static_cast<const char16_t*>(Text16)) : QString();
    return Text8 ? QString::fromUtf8(Text8) : QString();
}

void GetFieldRecs(TDLSQLiteDatabase& Database, TDLSQLDataSet& DataSet, TSQLiteSQLHandle& SQLHandle,
                  TFieldRecords& Fields) {
    TSQLite3Driver& d = *SQLite3Driver;
    sqlite3_stmt* stmt = SQLHandle.FSQLHandle;
    const bool unicode = Database.Unicode();
    const int n = stmt ? d.sqlite3_column_count(stmt) : 0;
    Fields.clear();
    QStringList declared;
    for (int i = 0; i < n; ++i) {
        TFieldRecord f;
        const QString name = ColumnString(unicode, unicode ? d.sqlite3_column_name16(stmt, i) : nullptr,
                                          unicode ? nullptr : d.sqlite3_column_name(stmt, i));
        declared << ColumnString(unicode, unicode ? d.sqlite3_column_decltype16(stmt, i) : nullptr,
                                 unicode ? nullptr : d.sqlite3_column_decltype(stmt, i));
        f.DataType = ftWideString;
        f.OriginalFieldName = name;
        f.FieldName = name;
        auto taken = [&](const QString& candidate) {
            for (const TFieldRecord& e : Fields)
                if (e.FieldName.compare(candidate, Qt::CaseInsensitive) == 0) return true;
            return false;
        };
        for (int k = 1; taken(f.FieldName); ++k) f.FieldName = QStringLiteral("%1_%2").arg(name).arg(k);
        Fields.push_back(f);
    }
    // A rewritten statement names every column by its unique name; the
    // engine's own name for it is kept from the reading of the query.
    for (TFieldRecord& f : Fields)
        for (const TFieldInfoRec& info : DataSet.FieldInfoRecs())
            if (info.FinalName.compare(f.FieldName, Qt::CaseInsensitive) == 0) f.OriginalFieldName = info.OriginalFieldName;
    // A table's own columns say which are required and what they default to.
    if (const auto* table = dynamic_cast<const TDLTable*>(&DataSet)) {
        TFieldRecords columns;
        Database.GetFields(table->TableName(), columns);
        for (TFieldRecord& f : Fields)
            for (const TFieldRecord& c : columns)
                if (c.FieldName.compare(f.FieldName, Qt::CaseInsensitive) == 0) {
                    f.Required = c.Required;
                    f.DefaultValue = c.DefaultValue;
                }
    }
    for (int i = 0; i < n; ++i) {
        TFieldRecord& f = Fields[static_cast<size_t>(i)];
        f.FullSQLType = declared[i];
        if (const TField* field = DataSet.FindField(f.FieldName)) {
            f.DataType = field->DataType();
            f.Size = field->Size();
        } else if (!declared[i].isEmpty()) {
            Database.SQLStrToDataType(declared[i], f.DataType, f.Size, f.Precision, f.SQLType);
            // A type name the mappings do not know is read as text.
            if (f.DataType == ftUnknown) f.DataType = ftWideString;
        }
    }
}

void InitializeFieldDefs(TDLSQLiteDatabase& Database, TSQLiteSQLHandle& SQLHandle, TDLSQLDataSet& DataSet) {
    TFieldDefs& defs = DataSet.FieldDefs();
    defs.Clear();
    TFieldRecords recs;
    GetFieldRecs(Database, DataSet, SQLHandle, recs);
    for (const TFieldRecord& f : recs) {
        const TFieldType type = DataTypeToSupportedDataType(f.DataType);
        TFieldDef& def = defs.Add(f.FieldName, type, KeepsSize(type) ? f.Size : (type == ftGuid ? 38 : 0), f.Required);
        def.Precision = f.Precision;
        def.FullSQLType = f.FullSQLType;
        def.SQLType = f.SQLType;
        def.DefaultValue = f.DefaultValue;
        def.OriginalFieldName = f.OriginalFieldName;
    }
}

void LoadRecords(TDLSQLiteDatabase& Database, TDLSQLDataSet& DataSet, TSQLiteSQLHandle& SQLHandle, int Offset,
                 int Limit, TRowidMarks* Marks) {
    TWaitCursorGuard wait(Database.FShowWaitCursor);
    TDLDataSetData& recs = *DataSet.Recs();
    recs.Clear();
    sqlite3_stmt* stmt = SQLHandle.FSQLHandle;
    const QString statement = SQLHandle.CurrentStatement();
    struct TAfter {
        TDLSQLiteDatabase& Database;
        const QString& Statement;
        ~TAfter() {
            Database.InternalAfterExecute(Statement);
            Database.SetLastLockTime(NowAsDateTime());
        }
    };
    if (!stmt) {
        TAfter after{Database, statement};
        return;
    }
    Database.InternalBeforeExecute(statement);
    TAfter after{Database, statement};
    TSQLite3Driver& d = *SQLite3Driver;
    if (Offset == 0 || Offset < SQLHandle.FLastSteppedRecNo) SQLHandle.Reset();

    // Columns to fields once, not per row.
    const int columns = d.sqlite3_column_count(stmt);
    std::vector<const TField*> fieldOf(static_cast<size_t>(columns), nullptr);
    std::vector<char> loadBlobs(static_cast<size_t>(columns), 1);
    for (int i = 0; i < columns && i < DataSet.FieldDefs().Count(); ++i) {
        const TField* f = DataSet.FindField(DataSet.FieldDefs().Items(i).Name);
        fieldOf[static_cast<size_t>(i)] = f;
        if (f && !DataSet.FCacheBlobs && DataSet.CanLoadField(*f)) loadBlobs[static_cast<size_t>(i)] = 0;
    }
    TTextReader text;
    text.Unicode = Database.Unicode();
    const int encoding = Database.GetEncoding();
    text.Utf8File = encoding == 65001;
    qint64 end = static_cast<qint64>(Offset) + Limit;
    // A result cut by a stop ends there, whatever a later window asks.
    if (DataSet.StoppedAt() >= 0) end = std::min<qint64>(end, DataSet.StoppedAt());

    bool Continue = true;
    while (SQLHandle.FLastSteppedRecNo < end) {
        const int rc = d.sqlite3_step(stmt);
        bool stopped = rc == SQLITE_INTERRUPT;
        if (rc == SQLITE_DONE) {
            DataSet.SetEofReached();
            break;
        }
        if (Database.FOnProgress) {
            Database.DoOnProgress(Continue);
            if (!Continue) stopped = true;
        }
        if (stopped) {
            DataSet.Abort();
            DataSet.StopAt(static_cast<int>(SQLHandle.FLastSteppedRecNo));
            break;
        }
        if (rc == SQLITE_MISUSE) break;
        if (rc != SQLITE_ROW) {
            d.sqlite3_finalize(stmt);
            SQLHandle.FSQLHandle = nullptr;
            Database.SQLiteCheck(rc, statement);
            break;
        }
        if (Marks && Marks->Wants(SQLHandle.FLastSteppedRecNo)) Marks->Note(d.sqlite3_column_int64(stmt, 0));
        if (SQLHandle.FLastSteppedRecNo >= Offset) {
            std::unique_ptr<TDLRecData> rec = recs.NewRow(true);
            auto& sqliteRec = static_cast<TDLSQLiteRecData&>(*rec);
            sqliteRec.FEncoding = encoding;
            for (int i = 0; i < columns; ++i)
                if (const TField* f = fieldOf[static_cast<size_t>(i)])
                    ReadColumn(d, stmt, i, text, loadBlobs[static_cast<size_t>(i)] != 0, *f, sqliteRec);
            recs.Append(std::move(rec));
        }
        ++SQLHandle.FLastSteppedRecNo;
        if (DataSet.GetLastRecNo() < SQLHandle.FLastSteppedRecNo)
            DataSet.SetLastRecNo(static_cast<int>(SQLHandle.FLastSteppedRecNo));
    }
}

void LoadField(TDLSQLiteDatabase& Database, TDLSQLDataSet& DataSet, const TDLRecData& Rec, const TField& Field) {
    const std::vector<TFieldInfoRec>& fields = DataSet.FieldInfoRecs();
    const std::vector<TTableInfoRec>& tables = DataSet.TableInfoRecs();
    const TFieldInfoRec* info = nullptr;
    for (const TFieldInfoRec& f : fields)
        if (f.FinalName.compare(Field.FieldName(), Qt::CaseInsensitive) == 0) info = &f;
    if (!info || info->TableIndex < 0) return;
    const TTableInfoRec& table = tables[static_cast<size_t>(info->TableIndex)];
    if (table.RowIDIndex < 0) return;
    const TFieldInfoRec& key = fields[static_cast<size_t>(table.RowIDIndex)];
    const TField* keyField = DataSet.FindField(key.FinalName);
    if (!keyField || !Rec.GetHasData(keyField->Index())) return;
    TSQLiteSQLHandle handle(&Database,
                            QStringLiteral("select %1 from %2 where %3 = ?")
                                .arg(QuoteIdentifier(info->FieldName), QuoteObject(table.DatabaseName, table.TableName),
                                     QuoteIdentifier(key.FieldName)));
    Database.Prepare(handle);
    if (!handle.Prepared()) return;
    TSQLite3Driver& d = *SQLite3Driver;
    d.sqlite3_bind_int64(handle.FSQLHandle, 1, RawToInt64(Rec.GetRawData(keyField->Index())));
    const int rc = d.sqlite3_step(handle.FSQLHandle);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) Database.SQLiteCheck(rc, handle.CurrentStatement());
    // The row's bytes are a cache of the table: filling it in changes no value.
    auto& rec = const_cast<TDLSQLiteRecData&>(static_cast<const TDLSQLiteRecData&>(Rec));
    if (rc == SQLITE_ROW) {
        TTextReader text;
        text.Unicode = Database.Unicode();
        text.Utf8File = Database.GetEncoding() == 65001;
        ReadColumn(d, handle.FSQLHandle, 0, text, true, Field, rec);
    } else {
        // The row is gone from the table: it reads as empty rather than again and again.
        rec.SetFullData(Field.Index(), true);
    }
}

}  // namespace brindle
