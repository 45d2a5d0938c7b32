// Rows of a SQLite statement into a dataset: the result's columns as field
// definitions, and paging through the open statement into the window.
#pragma once

#include "engine/DLDatabase.h"

#include <vector>

namespace brindle {

class TDLSQLDataSet;
class TDLSQLiteDatabase;
class TSQLiteSQLHandle;
class TDLRecData;
class TField;
class TRowidMarks;

// A column's name or declared type from the engine: the UTF-16 reading
// when Unicode, else the UTF-8 one.
QString ColumnString(bool Unicode, const void* Text16, const char* Text8);

// One entry per result column: name (made unique with "_1", "_2"...),
// declared type mapped to a field type; an expression is ftWideString.
void GetFieldRecs(TDLSQLiteDatabase& Database, TDLSQLDataSet& DataSet, TSQLiteSQLHandle& SQLHandle,
                  TFieldRecords& Fields);
// The dataset's field definitions from a prepared statement.
void InitializeFieldDefs(TDLSQLiteDatabase& Database, TSQLiteSQLHandle& SQLHandle, TDLSQLDataSet& DataSet);
// Clears the window and fills it with rows Offset .. Offset+Limit-1. Reading
// on from a later offset continues the statement; an earlier one starts it
// again. The statement stays open, with its read lock, until reset.
// A BLOB value is left out of the row (to be read when shown) when the
// dataset does not cache BLOBs and can read the value again.
//
// With Marks, the rowid in the first column is noted as the rows are stepped
// over. A stop (the progress handler or an interrupt) cuts the result where
// it stopped: the dataset then knows its count, and no later call reads
// beyond it.
void LoadRecords(TDLSQLiteDatabase& Database, TDLSQLDataSet& DataSet, TSQLiteSQLHandle& SQLHandle, int Offset,
                 int Limit, TRowidMarks* Marks = nullptr);

// Reads one value of the active row that a row read left out, by the rowid
// of its table.
void LoadField(TDLSQLiteDatabase& Database, TDLSQLDataSet& DataSet, const TDLRecData& Rec, const TField& Field);

}  // namespace brindle
