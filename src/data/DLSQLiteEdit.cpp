#include "DLSQLiteEdit.h"

#include "DLQuery.h"
#include "DLSQLiteLoad.h"
#include "engine/Assert.h"
#include "engine/DLDateTime.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/DLTools.h"
#include "engine/Exceptions.h"
#include "engine/SQLText.h"

#include <QUuid>

namespace brindle {

namespace {

bool HasPersistentFields(const TDataSet* DataSet) {
    return DataSet && DataSet->GetFields().Count() > 0;
}

QString TableObject(const TTableInfoRec& Table) {
    return QuoteObject(Table.DatabaseName, Table.TableName);
}

// The engine's name of each result column.
void GetOriginalFieldNames(TDLSQLiteDatabase& Database, const QString& SQL, std::vector<TFieldInfoRec>& Fields) {
    TSQLiteSQLHandle handle(&Database, SQL);
    Database.Prepare(handle);
    if (!handle.Prepared()) return;
    TSQLite3Driver& d = *SQLite3Driver;
    const int columns = d.sqlite3_column_count(handle.FSQLHandle);
    Fields.resize(static_cast<size_t>(columns));
    for (int i = 0; i < columns; ++i)
        Fields[static_cast<size_t>(i)].OriginalFieldName =
            ColumnString(Database.Unicode(), d.sqlite3_column_name16(handle.FSQLHandle, i), d.sqlite3_column_name(handle.FSQLHandle, i));
}

void PopulateFinalNames(std::vector<TFieldInfoRec>& Fields) {
    for (size_t i = 0; i < Fields.size(); ++i) {
        const QString base = Fields[i].OriginalFieldName;
        auto taken = [&](const QString& Name) {
            for (size_t k = 0; k < i; ++k)
                if (Fields[k].FinalName.compare(Name, Qt::CaseInsensitive) == 0) return true;
            return false;
        };
        QString name = base;
        for (int n = 1; taken(name); ++n) name = QStringLiteral("%1_%2").arg(base).arg(n);
        Fields[i].FinalName = name;
    }
}

// The declared types, by a statement of its own over the same columns.
void PopulateDataTypes(TDLSQLiteDatabase& Database, std::vector<TFieldInfoRec>& Fields,
                       const std::vector<TTableInfoRec>& Tables) {
    QStringList columns;
    std::vector<size_t> typed;
    for (size_t i = 0; i < Fields.size(); ++i) {
        const TFieldInfoRec& f = Fields[i];
        if (f.TableIndex < 0) continue;
        const TTableInfoRec& t = Tables[static_cast<size_t>(f.TableIndex)];
        QString column = t.TableAlias.isEmpty() ? QuoteObject(t.DatabaseName, t.TableName, f.FieldName)
                                                : QuoteIdentifier(t.TableAlias) + u'.' + QuoteIdentifier(f.FieldName);
        if (!f.FieldAlias.isEmpty()) column += u' ' + QuoteIdentifier(f.FieldAlias);
        columns << column;
        typed.push_back(i);
    }
    if (columns.isEmpty()) return;
    QStringList from;
    for (const TTableInfoRec& t : Tables)
        from << TableObject(t) + (t.TableAlias.isEmpty() ? QString() : u' ' + QuoteIdentifier(t.TableAlias));
    const QString sql =
        QStringLiteral("select ") + columns.join(QStringLiteral(", ")) + QStringLiteral(" from ") + from.join(QStringLiteral(", "));
    TSQLiteSQLHandle handle(&Database, sql);
    Database.Prepare(handle);
    if (!handle.Prepared()) throw ECustomException(QStringLiteral("Cannot read the column types of the query"));
    TSQLite3Driver& d = *SQLite3Driver;
    // A query read otherwise than the engine reads it: nothing to edit by.
    if (d.sqlite3_column_count(handle.FSQLHandle) != static_cast<int>(typed.size()))
        throw ECustomException(QStringLiteral("Cannot read the column types of the query"));
    for (size_t c = 0; c < typed.size(); ++c) {
        TFieldInfoRec& f = Fields[typed[c]];
        const int col = static_cast<int>(c);
        f.DeclaredType = ColumnString(Database.Unicode(), d.sqlite3_column_decltype16(handle.FSQLHandle, col),
                                    d.sqlite3_column_decltype(handle.FSQLHandle, col));
        int size = 0, precision = 0;
        Database.SQLStrToDataType(f.DeclaredType, f.DataType, size, precision);
    }
}

void FindRowIDFields(TDLSQLiteDatabase& Database, std::vector<TFieldInfoRec>& Fields,
                     std::vector<TTableInfoRec>& Tables) {
    for (size_t t = 0; t < Tables.size(); ++t) {
        TTableInfoRec& table = Tables[t];
        const QString object = TableObject(table);
        if (IsView(Database, object)) continue;
        table.RowIDIndex = -1;
        table.RowIDField.clear();
        QStringList names;
        Database.GetRowIDFields(object, names);
        if (names.isEmpty()) continue;
        table.RowIDField = names.first();
        for (size_t i = 0; i < Fields.size(); ++i) {
            if (Fields[i].TableIndex != static_cast<int>(t) || !names.contains(Fields[i].FieldName, Qt::CaseInsensitive))
                continue;
            table.RowIDIndex = static_cast<int>(i);
            table.RowIDField = Fields[i].FieldName;
            break;
        }
    }
}

// A key from the indexes of the one table, for when there is no rowid.
void UpdateKeyInfo(TDLSQLiteDatabase& Database, const QString& SQL, std::vector<TFieldInfoRec>& Fields,
                   std::vector<TTableInfoRec>& Tables, const TDataSet* DataSet) {
    for (TTableInfoRec& t : Tables) {
        t.KeyFieldNames.clear();
        t.OriginKeyFieldNames.clear();
    }
    if (Tables.size() != 1 || HasSubquery(SQL) || HasSetOperationOrGrouping(SQL)) return;
    for (const TFieldInfoRec& f : Fields)
        if (!f.FieldAlias.isEmpty() && f.FieldAlias.compare(f.FieldName, Qt::CaseInsensitive) != 0) return;
    for (size_t i = 0; i < Fields.size(); ++i)
        for (size_t k = i + 1; k < Fields.size(); ++k)
            if (Fields[i].OriginalFieldName.compare(Fields[k].OriginalFieldName, Qt::CaseInsensitive) == 0 &&
                !TDLSQLiteDatabase::IsRowIDField(Fields[k].OriginalFieldName))
                return;
    std::vector<QString> names;
    for (const TFieldInfoRec& f : Fields)
        names.push_back(HasPersistentFields(DataSet) && f.FieldName != u'*' && !DataSet->FindField(f.FieldName)
                            ? QString()
                            : f.FieldName);
    auto contained = [&](const QString& Column) {
        for (const QString& n : names)
            if (n == u'*' || n.compare(Column, Qt::CaseInsensitive) == 0) return true;
        return false;
    };
    TTableInfoRec& table = Tables.front();
    const QString object = TableObject(table);
    TIndexRecords indexes;
    Database.GetIndexes(object, indexes);
    for (const TIndexRecord& index : indexes) {
        if (!(index.Options & (ixPrimary | ixUnique))) continue;
        QStringList columns;
        Database.GetIndexFields(object, (index.Options & ixPrimary) ? QString() : index.IndexName, columns);
        if (columns.isEmpty()) continue;
        bool all = true;
        for (const QString& c : columns) all = all && contained(c);
        if (!all) continue;
        for (const QString& c : columns) {
            table.OriginKeyFieldNames << c;
            for (const TFieldInfoRec& f : Fields)
                if (f.OriginalFieldName.compare(c, Qt::CaseInsensitive) == 0) {
                    table.KeyFieldNames << f.FieldName;
                    break;
                }
        }
        return;
    }
}

// Statements here bind by position: the parameters carry no names.
void AddParam(TParams& Params, const TParam& Param) {
    TParam& p = Params.Add(QString(), Param.DataType, Param.Value);
    p.Size = Param.Size;
    p.Bound = true;
}

QString GetFieldOrigin(const TField& Field) {
    return Field.FOrigin.isEmpty() ? Field.FieldName() : Field.FOrigin;
}

}  // namespace

bool IsView(TDLSQLiteDatabase& Database, const QString& ObjectName) {
    return Database.ViewExists(ObjectName) && !Database.TableExists(ObjectName);
}

void GetFieldInfoFromSQL(TDLSQLiteDatabase& Database, const QString& SQL, std::vector<TFieldInfoRec>& FieldInfoRecs,
                         std::vector<TTableInfoRec>& TableInfoRecs, const TDataSet* DataSet) {
    TableInfoRecs.clear();
    std::vector<TFieldInfoRec> parsed;
    GetQueryInfo(SQL, TableInfoRecs, parsed);

    std::vector<QStringList> columns(TableInfoRecs.size());
    for (size_t t = 0; t < TableInfoRecs.size(); ++t)
        Database.GetFieldNamesFromTable(TableObject(TableInfoRecs[t]), columns[t]);
    // A column named without its table belongs to the first table that has it.
    for (TFieldInfoRec& f : parsed) {
        if (f.TableIndex >= 0 || f.FieldName == u'*') continue;
        for (size_t t = 0; t < columns.size() && f.TableIndex < 0; ++t)
            if (columns[t].contains(f.FieldName, Qt::CaseInsensitive)) f.TableIndex = static_cast<int>(t);
    }

    FieldInfoRecs.clear();
    for (const TFieldInfoRec& f : parsed) {
        if (f.FieldName != u'*') {
            TFieldInfoRec rec;
            rec.TableIndex = f.TableIndex;
            rec.FieldName = f.FieldName;
            rec.FieldAlias = f.FieldAlias;
            FieldInfoRecs.push_back(rec);
            continue;
        }
        for (size_t t = 0; t < columns.size(); ++t) {
            if (f.TableIndex >= 0 && static_cast<size_t>(f.TableIndex) != t) continue;
            for (const QString& c : columns[t]) {
                TFieldInfoRec rec;
                rec.TableIndex = static_cast<int>(t);
                rec.FieldName = c;
                FieldInfoRecs.push_back(rec);
            }
        }
    }

    // The engine's column names; the records line up with the result's
    // columns from here on.
    std::vector<TFieldInfoRec> named(FieldInfoRecs);
    GetOriginalFieldNames(Database, SQL, named);
    if (named.size() != FieldInfoRecs.size()) {
        // The text and the parser disagree on the columns: nothing to edit by.
        for (size_t i = FieldInfoRecs.size(); i < named.size(); ++i) named[i].TableIndex = -1;
    }
    FieldInfoRecs = std::move(named);
    PopulateFinalNames(FieldInfoRecs);
    if (HasPersistentFields(DataSet))
        for (size_t i = FieldInfoRecs.size(); i-- > 0;)
            if (!DataSet->FindField(FieldInfoRecs[i].FinalName)) FieldInfoRecs.erase(FieldInfoRecs.begin() + static_cast<long>(i));
    PopulateDataTypes(Database, FieldInfoRecs, TableInfoRecs);
    FindRowIDFields(Database, FieldInfoRecs, TableInfoRecs);
    UpdateKeyInfo(Database, SQL, FieldInfoRecs, TableInfoRecs, DataSet);
}

TParam FieldValueToParam(const TField& Field, const QVariant& Value) {
    TParam p;
    p.Name = Field.FieldName();
    p.DataType = Field.DataType();
    p.Size = Field.Size();
    p.Value = Value;
    p.Bound = true;
    // A GUID goes to the engine as its text.
    if (p.DataType == ftGuid && Value.isValid()) p.Value = Value.value<QUuid>().toString(QUuid::WithBraces).toUpper();
    return p;
}

TParam StoredValueToParam(const TDLRecData& Rec, const TField& Field) {
    const auto* sqlite = dynamic_cast<const TDLSQLiteRecData*>(&Rec);
    const int index = Field.Index();
    if (!sqlite || !Rec.GetHasData(index)) return FieldValueToParam(Field, GetFieldVariant(Rec, Field));
    TParam p;
    p.Name = Field.FieldName();
    p.Bound = true;
    const QByteArray& raw = Rec.GetRawData(index);
    switch (sqlite->GetStorageClass(index)) {
        case scInteger:
            p.DataType = ftLargeint;
            p.Value = RawToInt64(raw);
            break;
        case scFloat:
            p.DataType = ftFloat;
            p.Value = RawToFloat(raw);
            break;
        case scText:
            p.DataType = ftWideString;
            p.Value = RawToString(raw);
            break;
        case scBlob:
            p.DataType = ftBlob;
            p.Value = raw;
            break;
        case scBlobText:
            p.DataType = ftWideString;
            p.Value = QString::fromUtf8(raw);
            break;
        default:
            p.DataType = Field.DataType();
            break;
    }
    return p;
}

namespace {

// "where a = ? and b is ?" over the key's table columns, for the values
// Params holds in the key's order.
QString KeyWhereClause(const QStringList& Origins, const TParams& Params) {
    QString clause;
    for (int i = 0; i < Origins.size(); ++i)
        clause += (i == 0 ? QStringLiteral("where ") : QStringLiteral(" and ")) +
                  QuoteIdentifier(UnQuoteIdentifier(Origins[i])) +
                  (Params[i].IsNull() ? QStringLiteral(" is ?") : QStringLiteral(" = ?"));
    return clause;
}

}  // namespace

QString GetKeyWhereClause(TDLSQLDataSet& DataSet, TParams& KeyParams) {
    const QStringList keys = DataSet.FKeyFieldNames.split(u';', Qt::SkipEmptyParts);
    const QStringList origins = DataSet.FOriginKeyFieldNames.split(u';', Qt::SkipEmptyParts);
    if (origins.isEmpty()) return QString();
    const TDLRecData* old = DataSet.OldRecData();
    TParams values;
    for (int i = 0; i < origins.size(); ++i) {
        const TField* field = DataSet.FindField(UnQuoteIdentifier(keys.value(i)));
        AddParam(values, field && old ? StoredValueToParam(*old, *field) : TParam());
    }
    for (int i = 0; i < values.Count(); ++i) AddParam(KeyParams, values[i]);
    return KeyWhereClause(origins, values);
}

namespace {

// The key of the active row as the table holds it after the row was
// written: a key field that was changed gives its new value, the rowid
// follows a change of the column that stands for it, any other key value
// stays what it was. After an insert every value is new.
void GetWrittenKey(TDLSQLDataSet& DataSet, const QString& TableName, bool Inserted, TParams& KeyParams) {
    TDLSQLiteDatabase& db = *DataSet.Database();
    const TDLRecData* rec = DataSet.ActiveRecData();
    const TDLRecData* old = Inserted ? nullptr : DataSet.OldRecData();
    const QStringList keys = DataSet.FKeyFieldNames.split(u';', Qt::SkipEmptyParts);
    const QStringList origins = DataSet.FOriginKeyFieldNames.split(u';', Qt::SkipEmptyParts);
    QString alias;  // read once, and only when a rowid may have moved
    bool aliasRead = false;
    for (int i = 0; i < origins.size(); ++i) {
        const TField* field = DataSet.FindField(UnQuoteIdentifier(keys.value(i)));
        const QString origin = UnQuoteIdentifier(origins[i]);
        TParam p;
        if (Inserted && TDLSQLiteDatabase::IsRowIDField(origin) && SameObject(db.GetRowIDFieldName(TableName), origin)) {
            p.DataType = ftLargeint;
            p.Value = db.GetLastInsertRowID();
        } else if (field && rec && (Inserted || rec->GetModified(field->Index()))) {
            p = StoredValueToParam(*rec, *field);
        } else {
            if (field && (old || rec)) p = StoredValueToParam(old ? *old : *rec, *field);
            if (rec && TDLSQLiteDatabase::IsRowIDField(origin)) {
                if (!aliasRead) {
                    alias = db.GetRowIDAliasField(TableName);
                    aliasRead = true;
                }
                // The INTEGER PRIMARY KEY is the rowid: a new value renumbers the row.
                for (int f = 0; !alias.isEmpty() && f < DataSet.Fields().Count(); ++f) {
                    const TField& changed = DataSet.Fields()[f];
                    if (changed.FFieldKind == fkData && rec->GetModified(changed.Index()) &&
                        GetFieldOrigin(changed).compare(alias, Qt::CaseInsensitive) == 0) {
                        p = StoredValueToParam(*rec, changed);
                        break;
                    }
                }
            }
        }
        AddParam(KeyParams, p);
    }
}

// Reads the row the key finds into the active record, so that it shows
// what the table holds: defaults, the rowid, what triggers did, a value
// the column's affinity converted. False when no row answers. A statement
// that fails raises with the engine's message.
bool ReadBackRow(TDLSQLDataSet& DataSet, const QString& TableName, const TParams& KeyParams) {
    QStringList list;
    for (int i = 0; i < DataSet.Fields().Count(); ++i) {
        const TField& field = DataSet.Fields()[i];
        if (field.FFieldKind != fkData) continue;
        list << QuoteIdentifier(GetFieldOrigin(field)) + u' ' + QuoteIdentifier(field.FieldName());
    }
    const QStringList origins = DataSet.FOriginKeyFieldNames.split(u';', Qt::SkipEmptyParts);
    if (list.isEmpty() || origins.isEmpty() || !DataSet.ActiveRecData()) return true;
    TDLQuery q;
    q.FAllowPreprocess = false;
    q.SetDatabase(DataSet.Database());
    q.SetSQL(QStringLiteral("select %1 from %2 ").arg(list.join(QStringLiteral(", ")), QuoteObject(TableName)) +
             KeyWhereClause(origins, KeyParams));
    // Typed as the row stores them: a date, a GUID or an amount in a key
    // is compared as what the table holds.
    TParams& params = q.Params();
    for (int i = 0; i < params.Count() && i < KeyParams.Count(); ++i) {
        params[i].DataType = KeyParams[i].DataType;
        params[i].Size = KeyParams[i].Size;
        params[i].SetValue(KeyParams[i].Value);
    }
    q.Open();
    if (q.IsEmpty()) return false;
    DataSet.ActiveRecData()->CopyFrom(*q.ActiveRecData());
    return true;
}

}  // namespace

void PerformUpdate(TDLSQLDataSet& DataSet, const QString& TableName) {
    BRINDLE_ASSERT(DataSet.Database(), "an update without a database");
    TDLSQLiteDatabase& db = *DataSet.Database();
    TParams keyParams;
    const QString where = GetKeyWhereClause(DataSet, keyParams);
    if (where.isEmpty()) throw ECustomException(QStringLiteral("Cannot update a read-only dataset"));
    const TDLRecData* rec = DataSet.ActiveRecData();
    TParams params;
    QStringList sets;
    for (int i = 0; i < DataSet.Fields().Count(); ++i) {
        const TField& field = DataSet.Fields()[i];
        if (field.FFieldKind != fkData || !rec || !rec->GetModified(field.Index())) continue;
        TParam p = FieldValueToParam(field, GetFieldVariant(*rec, field));
        if (!db.SupportsDataType(field.DataType()) && !p.IsNull() &&
            (field.DataType() == ftWideString || field.DataType() == ftWideMemo))
            p.Value = field.AsString();
        sets << QuoteIdentifier(GetFieldOrigin(field)) + QStringLiteral(" = ?");
        AddParam(params, p);
    }
    if (sets.isEmpty()) return;
    for (int i = 0; i < keyParams.Count(); ++i) AddParam(params, keyParams[i]);
    db.Execute(QStringLiteral("update %1 set ").arg(QuoteObject(TableName)) + sets.join(QStringLiteral(", ")) + u' ' + where,
               &params);
    // The row keeps the key it has now, also when the edit changed it.
    TParams written;
    GetWrittenKey(DataSet, TableName, false, written);
    ReadBackRow(DataSet, TableName, written);
}

void PerformDelete(TDLSQLDataSet& DataSet, const QString& TableName) {
    BRINDLE_ASSERT(DataSet.Database(), "a delete without a database");
    TParams params;
    const QString where = GetKeyWhereClause(DataSet, params);
    if (where.isEmpty()) throw ECustomException(QStringLiteral("Cannot update a read-only dataset"));
    DataSet.Database()->Execute(QStringLiteral("delete from %1 %2").arg(QuoteObject(TableName), where), &params);
}

void InsertCurrentRecord(TDLSQLiteDatabase& Database, TDataSet& DataSet, const QString& TableName, bool InsertNulls) {
    TParams params;
    QStringList names;
    for (int i = 0; i < DataSet.Fields().Count(); ++i) {
        const TField& field = DataSet.Fields()[i];
        if (field.FFieldKind != fkData) continue;
        const QVariant value = DataSet.GetFieldValue(field);
        const TDLRecData* rec = DataSet.ActiveRecData();
        const bool hasData = rec && rec->GetHasData(field.Index());
        if (!hasData && !InsertNulls) continue;
        TParam p = FieldValueToParam(field, value);
        if (!Database.SupportsDataType(field.DataType()) && !p.IsNull() &&
            (field.DataType() == ftWideString || field.DataType() == ftWideMemo)) {
            p.DataType = ftString;
            p.Value = field.AsString();
        }
        names << QuoteIdentifier(GetFieldOrigin(field));
        AddParam(params, p);
    }
    if (names.isEmpty()) throw ECustomException(QStringLiteral("Could not insert empty record"));
    Database.Execute(InsertSQL(QuoteObject(TableName), names), &params);
}

void InsertDataSet(TDLSQLiteDatabase& Database, TDataSet& DataSet, const QString& TableName, bool InsertNulls) {
    for (DataSet.First(); !DataSet.Eof(); DataSet.Next()) InsertCurrentRecord(Database, DataSet, TableName, InsertNulls);
}

bool PerformInsert(TDLSQLDataSet& DataSet, const QString& TableName, bool RefreshRecord) {
    TDLSQLiteDatabase& db = *DataSet.Database();
    InsertCurrentRecord(db, DataSet, TableName, DataSet.FInsertNulls);
    if (!RefreshRecord) return true;
    TParams key;
    GetWrittenKey(DataSet, TableName, true, key);
    return ReadBackRow(DataSet, TableName, key);
}

bool FieldToSQLStr(const TField& Field, QString& Value) {
    const QVariant v = Field.Value();
    if (!v.isValid()) {
        Value = QStringLiteral("null");
        return true;
    }
    switch (Field.DataType()) {
        case ftString:
        case ftMemo:
        case ftWideString:
        case ftWideMemo:
            Value = QuotedStr(v.toString());
            return true;
        case ftInteger:
        case ftFloat:
        case ftCurrency:
        case ftLargeint:
            Value = Field.AsString();
            return true;
        case ftBoolean:
            Value = v.toBool() ? QStringLiteral("1") : QStringLiteral("0");
            return true;
        case ftDate:
            Value = QuotedStr(DateToString(v.toDouble()));
            return true;
        case ftTime:
            Value = QuotedStr(TimeToString(v.toDouble()));
            return true;
        case ftDateTime:
            Value = QuotedStr(DateTimeToString(v.toDouble()));
            return true;
        case ftBlob:
        case ftGraphic:
            Value = EncodeBinary(v.toByteArray());
            return true;
        case ftGuid: {
            // As stored: the text a column holds, or the 16 bytes of a BLOB.
            const auto* rec = dynamic_cast<const TDLSQLiteRecData*>(Field.DataSet()->ActiveRecData());
            if (rec && rec->GetStorageClass(Field.Index()) == scBlob)
                Value = EncodeBinary(rec->GetRawData(Field.Index()));
            else if (rec && rec->GetStorageClass(Field.Index()) == scText)
                Value = QuotedStr(RawToString(rec->GetRawData(Field.Index())));
            else
                Value = QuotedStr(v.value<QUuid>().toString(QUuid::WithBraces).toUpper());
            return true;
        }
        default:
            return false;
    }
}

}  // namespace brindle
