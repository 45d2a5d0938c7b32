#include "DLQuoteTools.h"

namespace brindle {

namespace {

// Written only on the main thread when settings load or change; background
// work reads it without a lock.
QString QuoteChars = QStringLiteral("[]");

bool IsRejectedChar(char16_t c) {
    return c <= 47 || (c >= 58 && c <= 64) || (c >= 91 && c <= 94) || c == 96 || (c >= 123 && c <= 127);
}

bool IsDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

// The character that ends a quotation opened by c.
char16_t ClosingQuote(char16_t c) {
    return c == u'[' ? u']' : c;
}

// Undoes the quoting of a text whose first and last characters are the same
// quote: the inner part with doubled quotes made single.
QString DequoteSame(const QString& value) {
    const QChar q = value.front();
    QString inner = value.size() >= 2 ? value.mid(1, value.size() - 2) : QString();
    return inner.replace(QString(2, q), QString(q));
}

}  // namespace

QString GetQuoteChars() {
    return QuoteChars;
}

void SetQuoteChars(const QString& chars) {
    QuoteChars = chars;
}

bool IsValidIdentifier(const QString& value) {
    // Letters, digits, "_" and everything from 128 up; no leading digit. The
    // empty text passes on purpose so that it is never quoted.
    for (qsizetype i = 0; i < value.size(); ++i) {
        const char16_t c = value.at(i).unicode();
        if (IsRejectedChar(c) || (i == 0 && IsDigit(c))) return false;
    }
    return true;
}

bool IsQuotedIdentifier(const QString& value) {
    if (value.isEmpty()) return false;
    const QChar first = value.front();
    const QChar last = value.back();
    if (first == u'[') return last == u']';
    return (first == u'"' || first == u'`' || first == u'\'') && last == first;
}

QString QuoteIdentifier(const QString& value) {
    if (IsQuotedIdentifier(value)) return value;
    const QString chars = QuoteChars;
    if (chars.size() != 2) return value;
    const QChar open = chars.at(0);
    const QChar close = chars.at(1);
    // Differing quotes enclose the text as it is: a "]" inside a bracketed
    // name is deliberately left alone.
    if (open != close) return open + value + close;
    QString inner = value;
    inner.replace(QString(open), QString(2, open));
    return open + inner + close;
}

QString QuoteIdentifierIfNeeded(const QString& value) {
    const QString bare = UnQuoteIdentifier(value);
    return IsValidIdentifier(bare) ? bare : QuoteIdentifier(bare);
}

QString UnQuoteIdentifier(const QString& value) {
    if (!IsQuotedIdentifier(value)) return value;
    if (value.front() == value.back()) return DequoteSame(value);
    // Brackets: nothing inside is escaped, so nothing is undone.
    return value.mid(1, value.size() - 2);
}

QString QuoteDeclaredTypeIfNeeded(const QString& value) {
    QString name = UnQuoteIdentifier(value);
    QString suffix;
    const qsizetype open = name.indexOf(u'(');
    if (open >= 0 && name.indexOf(u')', open) > open) {
        // Blanks before "(" stay with the size part, so "VARCHAR (50)" keeps
        // its bare name.
        qsizetype cut = open;
        while (cut > 0 && name.at(cut - 1).isSpace()) --cut;
        suffix = name.mid(cut);
        name = UnQuoteIdentifier(name.left(cut));
    }
    if (!IsValidIdentifier(name)) name = QuoteIdentifier(name);
    return name + suffix;
}

QString QuotedStr(const QString& value) {
    QString inner = value;
    inner.replace(u'\'', QStringLiteral("''"));
    return u'\'' + inner + u'\'';
}

QString QuoteSQLName(const QString& name) {
    QString result;
    result.reserve(name.size() + 2);
    result += u'"';
    if (name.contains(u'"'))
        result += QString(name).replace(u'"', QStringLiteral("\"\""));
    else
        result += name;
    result += u'"';
    return result;
}

QString PragmaSQL(const QString& databaseName, const char* pragma, const QString& objectName) {
    QString sql = QStringLiteral("pragma ");
    if (!databaseName.isEmpty()) sql += QuoteSQLName(databaseName) + u'.';
    return sql + QLatin1String(pragma) + u'(' + QuoteSQLName(objectName) + u')';
}

QString InsertSQL(const QString& quotedTable, const QStringList& quotedColumns) {
    QStringList marks;
    marks.fill(QStringLiteral("?"), quotedColumns.size());
    return QStringLiteral("insert into %1(%2) values(%3)")
        .arg(quotedTable, quotedColumns.join(QStringLiteral(", ")), marks.join(QStringLiteral(", ")));
}

void ExtractObject(const QString& qualifiedObjectName, int& pos, QString& result) {
    const qsizetype len = qualifiedObjectName.size();
    qsizetype i = qMax(pos, 0);
    const qsizetype start = i;
    char16_t closing = 0;  // non-zero while inside a quotation
    for (; i < len; ++i) {
        const char16_t c = qualifiedObjectName.at(i).unicode();
        if (closing != 0) {
            if (c == closing) closing = 0;
        } else if (c == u'"' || c == u'\'' || c == u'`' || c == u'[') {
            closing = ClosingQuote(c);
        } else if (c == u'.') {
            break;
        }
    }
    result = UnQuoteIdentifier(qualifiedObjectName.mid(start, i - start).trimmed()).trimmed();
    if (i < len) ++i;  // past the dot
    pos = static_cast<int>(i);
}

void ParseObject(const QString& qualifiedObjectName, QString& databaseName, QString& objectName) {
    databaseName.clear();
    objectName.clear();
    int pos = 0;
    ExtractObject(qualifiedObjectName, pos, objectName);
    if (pos < qualifiedObjectName.size()) {
        databaseName = objectName;
        ExtractObject(qualifiedObjectName, pos, objectName);
    }
}

void ParseObject(const QString& qualifiedObjectName, QString& databaseName, QString& tableName,
                 QString& fieldName) {
    databaseName.clear();
    tableName.clear();
    fieldName.clear();
    int pos = 0;
    ExtractObject(qualifiedObjectName, pos, fieldName);
    if (pos < qualifiedObjectName.size()) {
        tableName = fieldName;
        ExtractObject(qualifiedObjectName, pos, fieldName);
    }
    if (pos < qualifiedObjectName.size()) {
        databaseName = tableName;
        tableName = fieldName;
        ExtractObject(qualifiedObjectName, pos, fieldName);
    }
}

QString ExtractObjectName(const QString& qualifiedObjectName) {
    QString databaseName, objectName;
    ParseObject(qualifiedObjectName, databaseName, objectName);
    return objectName;
}

namespace {

template <typename Quote>
QString JoinParts(const QString& databaseName, const QString& objectName, Quote quote) {
    QString result;
    if (!databaseName.isEmpty()) result = quote(databaseName);
    if (!objectName.isEmpty()) {
        if (!result.isEmpty()) result += u'.';
        result += quote(objectName);
    }
    return result;
}

}  // namespace

QString QuoteObject(const QString& databaseName, const QString& objectName) {
    return JoinParts(databaseName, objectName, QuoteIdentifier);
}

QString QuoteObject(const QString& databaseName, const QString& objectName, const QString& fieldName) {
    QString result = QuoteObject(databaseName, objectName);
    if (!result.isEmpty()) result += u'.';
    return result + QuoteIdentifier(fieldName);
}

QString QuoteObject(const QString& qualifiedObjectName) {
    QString databaseName, objectName;
    ParseObject(qualifiedObjectName, databaseName, objectName);
    return QuoteObject(databaseName, objectName);
}

QString QuoteObjectIfNeeded(const QString& databaseName, const QString& objectName) {
    return JoinParts(databaseName, objectName, QuoteIdentifierIfNeeded);
}

QString QuoteObjectIfNeeded(const QString& qualifiedObjectName) {
    QString databaseName, objectName;
    ParseObject(qualifiedObjectName, databaseName, objectName);
    return QuoteObjectIfNeeded(databaseName, objectName);
}

bool SameObject(const QString& object1, const QString& object2) {
    if (object1.compare(object2, Qt::CaseInsensitive) == 0) return true;
    return QuoteObjectIfNeeded(object1).compare(QuoteObjectIfNeeded(object2), Qt::CaseInsensitive) == 0;
}

QString QualifyObjectName(const QString& unqualifiedObjectName) {
    QString databaseName, objectName;
    ParseObject(unqualifiedObjectName, databaseName, objectName);
    if (databaseName.isEmpty()) databaseName = QStringLiteral("main");
    return QuoteObjectIfNeeded(databaseName, objectName);
}

QString UnqualifyObjectName(const QString& qualifiedObjectName) {
    QString databaseName, objectName;
    ParseObject(qualifiedObjectName, databaseName, objectName);
    if (SameObject(databaseName, QStringLiteral("main"))) return QuoteIdentifierIfNeeded(objectName);
    return qualifiedObjectName;
}

bool IsQualified(const QString& objectName) {
    QString databaseName, tableName, fieldName;
    ParseObject(objectName, databaseName, tableName, fieldName);
    return !tableName.isEmpty();
}

void ExtractFieldName(const QString& fields, int& pos, QChar separator, QString& result) {
    // Counts nesting instead of tracking the opening quote; single quotes and
    // backticks are ordinary characters here.
    const qsizetype len = fields.size();
    qsizetype i = qMax(pos, 0);
    const qsizetype start = i;
    int depth = 0;
    for (; i < len; ++i) {
        const QChar c = fields.at(i);
        if (c == separator && depth < 1) break;
        if (c == u'"') {
            depth += depth != 0 ? -1 : 1;
        } else if (c == u'[') {
            ++depth;
        } else if (c == u']') {
            --depth;
        }
    }
    result = UnQuoteIdentifier(fields.mid(start, i - start).trimmed());
    pos = static_cast<int>(i + 1);
}

void FieldsToList(const QString& fields, QStringList& list, QChar separator) {
    list.clear();
    int pos = 0;
    QString name;
    while (pos < fields.size()) {
        ExtractFieldName(fields, pos, separator, name);
        list.append(name);
    }
}

QString ListToFields(const QStringList& fields, bool alwaysQuote, const QString& separator) {
    QStringList quoted = fields;
    if (alwaysQuote) {
        QuoteFieldList(quoted);
    } else {
        QuoteFieldListIfNeeded(quoted);
    }
    return quoted.join(separator == QStringLiteral(",") ? QStringLiteral(", ") : separator);
}

void QuoteFieldList(QStringList& fields) {
    for (QString& field : fields) field = QuoteIdentifier(field);
}

void QuoteFieldListIfNeeded(QStringList& fields) {
    for (QString& field : fields) field = QuoteIdentifierIfNeeded(field);
}

int IndexOfQuotedObject(const QStringList& list, const QString& quotedObject) {
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (SameObject(list.at(i), quotedObject)) return static_cast<int>(i);
    }
    return -1;
}

bool ContainsIdentifier(const QStringList& list, const QString& ident) {
    const QString bare = UnQuoteIdentifier(ident);
    for (const QString& item : list) {
        if (UnQuoteIdentifier(item).compare(bare, Qt::CaseInsensitive) == 0) return true;
    }
    return false;
}

}  // namespace brindle
