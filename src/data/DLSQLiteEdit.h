// Editing the rows of a query in place. A simple SELECT is read with the
// parser and the engine's catalogue: which table and column each result
// column comes from, its declared type, and what finds its row again (the
// rowid, a key of a table without one, or every column of a view). Edits go
// back as UPDATE, INSERT and DELETE statements that address that one row.
#pragma once

#include "engine/DLQueryInfo.h"

#include <vector>

namespace brindle {

class TDataSet;
class TDLRecData;
class TDLSQLDataSet;
class TDLSQLiteDatabase;
class TField;
struct TParam;
class TParams;

// A view, and not a temporary table (which the engine's view check also
// answers for).
bool IsView(TDLSQLiteDatabase& Database, const QString& ObjectName);

// Fills both arrays for SQL: tables of the FROM clause, one record per
// result column with its table, names, declared type and data type, the
// rowid of each table, and a key from an index for a table without rowid.
// DataSet, when it has fields already, limits the records to them.
void GetFieldInfoFromSQL(TDLSQLiteDatabase& Database, const QString& SQL, std::vector<TFieldInfoRec>& FieldInfoRecs,
                         std::vector<TTableInfoRec>& TableInfoRecs, const TDataSet* DataSet);

// The value of a field as a statement parameter, typed by the field.
TParam FieldValueToParam(const TField& Field, const QVariant& Value);
// The value a row holds for a field, typed as it is stored, so that a key
// compares equal to what the table holds whatever the column's declared type.
TParam StoredValueToParam(const TDLRecData& Rec, const TField& Field);

// "where a = ? and b is ?" over the key's table columns, "is" for a key
// value that is null; the key's values as they were read go to KeyParams.
// Empty (and no parameters) without a key.
QString GetKeyWhereClause(TDLSQLDataSet& DataSet, TParams& KeyParams);

// The fields changed in the active row, by key; nothing when none changed.
// "Cannot update a read-only dataset" without a key.
void PerformUpdate(TDLSQLDataSet& DataSet, const QString& TableName);
void PerformDelete(TDLSQLDataSet& DataSet, const QString& TableName);
// Inserts the active row; with RefreshRecord, reads it back (defaults,
// rowid, what triggers did). False when the row went in but cannot be
// found by its key: the dataset then drops it from view.
bool PerformInsert(TDLSQLDataSet& DataSet, const QString& TableName, bool RefreshRecord);
// The fields that hold data (all with InsertNulls) of the current row of
// any dataset into a table. "Could not insert empty record" when none.
void InsertCurrentRecord(TDLSQLiteDatabase& Database, TDataSet& DataSet, const QString& TableName, bool InsertNulls);
void InsertDataSet(TDLSQLiteDatabase& Database, TDataSet& DataSet, const QString& TableName, bool InsertNulls);

// A field's value as an SQL literal; false for a type without one.
bool FieldToSQLStr(const TField& Field, QString& Value);

}  // namespace brindle
