// Identifiers and qualified object names as SQL text and back.
//
// Positions are 0-based indexes into the text. All functions are safe on any
// thread; QuoteChars is written only on the main thread while settings load.
#pragma once

#include <QString>
#include <QStringList>

namespace brindle {

// The opening and the closing quote character, "[]" by default. Any length
// other than 2 switches quoting off.
QString GetQuoteChars();
void SetQuoteChars(const QString& chars);

bool IsValidIdentifier(const QString& value);
bool IsQuotedIdentifier(const QString& value);
QString QuoteIdentifier(const QString& value);
QString QuoteIdentifierIfNeeded(const QString& value);
QString UnQuoteIdentifier(const QString& value);
QString QuoteDeclaredTypeIfNeeded(const QString& value);
// 'text' with inner single quotes doubled: a SQL string literal.
QString QuotedStr(const QString& value);
// A name in a statement the program makes for itself: in double quotes,
// inner ones doubled, so that any name, whatever quote characters the user
// chose, reads back as itself.
QString QuoteSQLName(const QString& name);
// "pragma db.name(object)" with both names so quoted; no "db." when empty.
QString PragmaSQL(const QString& databaseName, const char* pragma, const QString& objectName);
// "insert into table(a, b) values(?, ?)": one mark per column, bound by
// position. The table and the columns come quoted as the caller needs.
QString InsertSQL(const QString& quotedTable, const QStringList& quotedColumns);

// Reads the part from pos up to the first "." outside quotes; pos moves to
// that dot and past it.
void ExtractObject(const QString& qualifiedObjectName, int& pos, QString& result);
void ParseObject(const QString& qualifiedObjectName, QString& databaseName, QString& objectName);
void ParseObject(const QString& qualifiedObjectName, QString& databaseName, QString& tableName,
                 QString& fieldName);
QString ExtractObjectName(const QString& qualifiedObjectName);
QString QuoteObject(const QString& databaseName, const QString& objectName);
QString QuoteObject(const QString& databaseName, const QString& objectName, const QString& fieldName);
QString QuoteObject(const QString& qualifiedObjectName);
QString QuoteObjectIfNeeded(const QString& databaseName, const QString& objectName);
QString QuoteObjectIfNeeded(const QString& qualifiedObjectName);
bool SameObject(const QString& object1, const QString& object2);
QString QualifyObjectName(const QString& unqualifiedObjectName);
QString UnqualifyObjectName(const QString& qualifiedObjectName);
bool IsQualified(const QString& objectName);

// Lists of field names travel as separator-joined text (";" by default).
void ExtractFieldName(const QString& fields, int& pos, QChar separator, QString& result);
void FieldsToList(const QString& fields, QStringList& list, QChar separator = u';');
QString ListToFields(const QStringList& fields, bool alwaysQuote, const QString& separator = QStringLiteral(";"));
void QuoteFieldList(QStringList& fields);
void QuoteFieldListIfNeeded(QStringList& fields);
int IndexOfQuotedObject(const QStringList& list, const QString& quotedObject);
bool ContainsIdentifier(const QStringList& list, const QString& ident);

}  // namespace brindle
