// Reading what a database holds of an object into the definitions that
// write it back. Two sources meet here: the catalogue (columns, defaults,
// index lists) and the stored CREATE text read by the parser (collations,
// conflict words, sort orders, constraints). Whatever the definitions cannot
// hold is listed in their FUnsupportedClauses.
//
// Names may be qualified ("main.t"); the database's own connection is used,
// on the calling thread.
#pragma once

#include "DLObjectDefs.h"

namespace brindle {

class TDLSQLiteDatabase;

// A table's columns, primary key and other indexes (without those the
// engine makes for constraints), triggers, constraints and options.
void ReadTableDef(TDLSQLiteDatabase& Database, const QString& TableName, TDLTableDef& TableDef);
// A view with its triggers.
void ReadViewDef(TDLSQLiteDatabase& Database, const QString& ViewName, TDLViewDef& ViewDef);
void ReadVirtualTableDef(TDLSQLiteDatabase& Database, const QString& TableName, TDLVirtualTableDef& Def);
// The trigger's text rebuilt from its record, as a table rebuild writes it.
QString ReadTriggerSQL(TDLSQLiteDatabase& Database, const QString& TriggerName, bool IsTemporary);

// An index the engine made for a constraint of the table: such an index is
// never created or dropped by name. Case-sensitive, on the bare table name.
bool IsAutoIndex(const QString& TableName, const QString& IndexName);

// The database's text for a definition, and running it as one statement.
QString GetCreateSQL(TDLSQLiteDatabase& Database, const TDLTableDef& TableDef, bool IncludeStructure,
                     bool IncludeIndexes, bool IncludeTriggers);
void CreateTable(TDLSQLiteDatabase& Database, const TDLTableDef& TableDef, bool IncludeStructure,
                 bool IncludeIndexes, bool IncludeTriggers);

// A script that recreates the main database's objects, or the one named, in
// an empty database, as the definitions write them: tables (the engine's
// own and those behind virtual tables left out), indexes, views, triggers,
// each statement ended with ";" and followed by an empty line, CRLF line
// ends. An object with clauses the definitions cannot carry keeps its
// stored text behind a comment naming them. Raises when the named object
// does not exist.
QString GetSchemaScript(TDLSQLiteDatabase& Database, const QString& ObjectName = QString());

}  // namespace brindle
