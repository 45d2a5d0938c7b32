// What the copy into a database and the script writer share: the definitions of a table's parts as
// the metadata describes them, and the facts a copy must keep that no
// definition holds (computed columns, the AUTOINCREMENT counter, clauses
// only the stored text carries).
//
// Threading: the caller's thread, with its databases.
#pragma once

#include "engine/DLPreparedStatement.h"

#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

struct sqlite3_stmt;

namespace brindle {

class TBaseIndexInfo;
class TBaseTableInfo;
class TDLIndexDef;
class TDLSQLiteDatabase;
class TDLTableDef;
class TSQLiteSQLHandle;
class TSQLiteTableInfo;

// The name of an object without its database, unquoted.
QString BareObjectName(const QString& QualifiedName);
// A table a virtual table keeps its data in, made by its module.
bool IsShadowTable(const TBaseTableInfo& Table);
bool IsVirtualTable(const TBaseTableInfo& Table);

// The columns of a table that a row is written to, in table order: all
// but the computed ones, which the engine fills itself.
QStringList InsertableColumns(const TBaseTableInfo& Table);
// Some column is computed, so rows need a column list.
bool HasComputedColumns(const TBaseTableInfo& Table);
// The rows of the table are told apart by a rowid that no column holds
// (no INTEGER PRIMARY KEY, not WITHOUT ROWID, no column named rowid), or it
// is a full-text table, whose rowid other tables point at: a copy that
// makes the table keeps each row's rowid, rather than numbering them anew.
bool KeepsRowID(const TBaseTableInfo& Table);
// Quoted names joined by ", ".
QString QuotedColumnList(const QStringList& Columns);

// The table's CREATE text as stored, renamed to DestName when that
// differs, for a table whose text has clauses the definitions cannot carry
// (a column that is an expression in an index is such a clause too, and is
// not asked here). Empty when the definitions carry everything.
QString StoredTableText(const TSQLiteTableInfo& Table, const QString& DestName);
// A stored CREATE INDEX text under another index and table name; used for
// an index of expressions, which the definitions cannot carry.
QString StoredIndexText(const TBaseIndexInfo& Index, const QString& IndexName, const QString& TableName);
// An index has a column that is an expression.
bool HasExpressionColumns(const TBaseIndexInfo& Index);

// The field definitions of the table's columns: declared type, default,
// collation, not-null (when NotNull) and its conflict clause, and for a
// computed column its expression.
void AddFieldDefs(const TBaseTableInfo& Table, TDLTableDef& TableDef, bool NotNull);
// The index as a definition named IndexName. IsPrimary says whether it
// stays the key.
std::unique_ptr<TDLIndexDef> IndexDefOf(const TBaseIndexInfo& Index, const QString& IndexName,
                                        bool IsPrimary);
// Unique, check and foreign key constraints, one to one.
void AddConstraintDefs(const TBaseTableInfo& Table, TDLTableDef& TableDef);
// STRICT and WITHOUT ROWID, as the stored text says.
void SetTableOptions(const TBaseTableInfo& Table, TDLTableDef& TableDef);

// The database has the table of AUTOINCREMENT counters.
bool HasSequenceTable(TDLSQLiteDatabase& Database);
// The AUTOINCREMENT counter the database keeps for a table (bare name);
// none when it keeps none.
std::optional<qint64> ReadSequence(TDLSQLiteDatabase& Database, const QString& TableName);
// The statements that raise the destination's counter of the table (a
// quoted name) to at least Value, whatever rows it holds; Schema ("main.")
// goes before the counters' table.
QStringList SequenceStatements(const QString& QuotedTableName, qint64 Value,
                               const QString& Schema = QString());

// A name inside a comment: "*/" would end the comment early.
QString CommentSafe(const QString& Text);

}  // namespace brindle
