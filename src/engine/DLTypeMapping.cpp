#include "DLTypeMapping.h"

#include "Assert.h"
#include "Exceptions.h"

#include <algorithm>

namespace brindle {

namespace {

bool IsIntegerType(TFieldType t) {
    return t == ftSmallint || t == ftInteger || t == ftWord || t == ftAutoInc || t == ftLargeint;
}

// The program's own name of a field type, looked for first.
QString FixedTypeName(TFieldType t) {
    if (IsIntegerType(t)) return QStringLiteral("INTEGER");
    switch (t) {
        case ftBoolean:
            return QStringLiteral("BOOLEAN");
        case ftFloat:
            return QStringLiteral("FLOAT");
        case ftCurrency:
            return QStringLiteral("CURRENCY");
        case ftDate:
            return QStringLiteral("DATE");
        case ftTime:
            return QStringLiteral("TIME");
        case ftDateTime:
            return QStringLiteral("DATETIME");
        case ftBlob:
            return QStringLiteral("BLOB");
        case ftGraphic:
            return QStringLiteral("GRAPHIC");
        case ftGuid:
            return QStringLiteral("GUID");
        default:
            return QStringLiteral("CHAR");
    }
}

int SizeToInt(const QString& value) {
    const QString text = value.trimmed();
    if (text.isEmpty()) return 0;
    bool ok = false;
    const int result = text.toInt(&ok);
    if (!ok) throw ECustomException(QStringLiteral("'%1' is not a valid integer value").arg(text));
    return result;
}

}  // namespace

TDLTypeMapping::TDLTypeMapping(const QString& DeclaredType, TFieldType DataType) : FDataType(DataType) {
    SetDeclaredType(DeclaredType);
}

void TDLTypeMapping::SetDeclaredType(const QString& value) {
    FDeclaredType = value;
    FName = value;
}

void TDLTypeMapping::Assign(const TDLTypeMapping& Source) {
    SetDeclaredType(Source.FDeclaredType);
    FDataType = Source.FDataType;
}

bool IsMappableDataType(TFieldType DataType) {
    switch (DataType) {
        case ftString:
        case ftSmallint:
        case ftInteger:
        case ftWord:
        case ftBoolean:
        case ftFloat:
        case ftCurrency:
        case ftDate:
        case ftTime:
        case ftDateTime:
        case ftAutoInc:
        case ftBlob:
        case ftMemo:
        case ftGraphic:
        case ftWideString:
        case ftLargeint:
        case ftGuid:
        case ftWideMemo:
            return true;
        default:
            return false;
    }
}

void TDLTypeMappings::AddTypeMapping(const QString& DeclaredType, TFieldType DataType) {
    BRINDLE_ASSERT(IsMappableDataType(DataType), "type mapping to an unsupported field type");
    BRINDLE_ASSERT(!FindDeclaredType(DeclaredType), "declared type already mapped");
    FItems.emplace_back(DeclaredType.toUpper(), DataType);
}

const TDLTypeMapping* TDLTypeMappings::FindDeclaredType(const QString& DeclaredType) const {
    for (const TDLTypeMapping& m : FItems)
        if (m.DeclaredType().compare(DeclaredType, Qt::CaseInsensitive) == 0) return &m;
    return nullptr;
}

const TDLTypeMapping* TDLTypeMappings::FindDataType(TFieldType DataType) const {
    for (const TDLTypeMapping& m : FItems)
        if (m.DataType() == DataType) return &m;
    return nullptr;
}

bool TDLTypeMappings::SupportsDataType(TFieldType DataType) const {
    if (FindDataType(DataType)) return true;
    // Long text is stored like short text of the same width.
    if (DataType == ftMemo) return FindDataType(ftString) != nullptr;
    if (DataType == ftWideMemo) return FindDataType(ftWideString) != nullptr;
    return false;
}

QString TDLTypeMappings::DataTypeToSQLStr(TFieldType DataType) const {
    const QString fixed = FixedTypeName(DataType);
    if (FindDeclaredType(fixed)) return fixed;
    const TDLTypeMapping* found = FindDataType(DataType);
    if (!found && (DataType == ftMemo || DataType == ftWideString || DataType == ftWideMemo))
        found = FindDataType(ftString);
    if (!found && IsIntegerType(DataType)) found = FindDataType(ftLargeint);
    return found ? found->DeclaredType() : QStringLiteral("UNKNOWN");
}

QString TDLTypeMappings::DataTypeToSQLStr(TFieldType DataType, int Size, int Precision) const {
    const QString name = DataTypeToSQLStr(DataType);
    if (Size <= 0) return name;
    if (Precision < 1) return QStringLiteral("%1(%2)").arg(name).arg(Size);
    return QStringLiteral("%1(%2,%3)").arg(name).arg(Size).arg(Precision);
}

void TDLTypeMappings::SQLStrToDataType(const QString& DeclaredType, QString& DataType, QString& Size,
                                       QString& Precision) const {
    DataType = DeclaredType.trimmed();
    Size.clear();
    Precision.clear();
    const qsizetype open = DataType.indexOf(u'(');
    if (open < 0) return;
    if (DataType.indexOf(u')') != DataType.size() - 1)
        throw ECustomException(QStringLiteral("Error reading field size"));
    const QString args = DataType.mid(open + 1, DataType.size() - open - 2).trimmed();
    const qsizetype comma = args.indexOf(u',');
    if (comma < 0) {
        Size = args;
    } else {
        Size = args.left(comma);
        Precision = args.mid(comma + 1);
    }
    DataType = DataType.left(open).trimmed();
}

void TDLTypeMappings::SQLStrToDataType(const QString& DeclaredType, TFieldType& DataType, QString& Size,
                                       QString& Precision) const {
    QString name;
    SQLStrToDataType(DeclaredType, name, Size, Precision);
    name = name.toUpper();
    if (const TDLTypeMapping* m = FindDeclaredType(name)) {
        DataType = m->DataType();
        return;
    }
    // The engine's own affinity rules, first match wins. An unknown name
    // with CLOB inside thus gives short text, not a memo.
    static const struct {
        const char* Part;
        const char* Mapping;
    } kAffinity[] = {{"INT", "INT"},   {"CHAR", "TEXT"},  {"TEXT", "TEXT"},  {"CLOB", "TEXT"},
                     {"BLOB", "BLOB"}, {"REAL", "FLOAT"}, {"FLOA", "FLOAT"}, {"DOUB", "FLOAT"}};
    for (const auto& rule : kAffinity) {
        if (!name.contains(QLatin1String(rule.Part))) continue;
        if (const TDLTypeMapping* m = FindDeclaredType(QLatin1String(rule.Mapping))) DataType = m->DataType();
        return;
    }
}

void TDLTypeMappings::SQLStrToDataType(const QString& DeclaredType, TFieldType& DataType, int& Size,
                                       int& Precision) const {
    QString size, precision;
    SQLStrToDataType(DeclaredType, DataType, size, precision);
    Size = SizeToInt(size);
    Precision = SizeToInt(precision);
}

void TDLTypeMappings::GetDeclaredTypes(QStringList& Values) const {
    Values.clear();
    for (const TDLTypeMapping& m : FItems) Values.append(m.DeclaredType());
}

TDataTypes TDLTypeMappings::GetDataTypes() const {
    TDataTypes result;
    for (const TDLTypeMapping& m : FItems) result.insert(m.DataType());
    return result;
}

void TDLTypeMappings::Sort() {
    std::stable_sort(FItems.begin(), FItems.end(), [](const TDLTypeMapping& a, const TDLTypeMapping& b) {
        return a.DeclaredType().compare(b.DeclaredType(), Qt::CaseInsensitive) < 0;
    });
}

TDLTypeMappings& DefaultTypeMappings() {
    static TDLTypeMappings table = [] {
        TDLTypeMappings t;
        ResetTypeMappings(t);
        return t;
    }();
    return table;
}

void ResetTypeMappings(TDLTypeMappings& TypeMappings) {
    // In the order of addition; Sort puts them in name order.
    static const struct {
        TFieldType DataType;
        const char* Names[9];  // null-padded
    } kDefaults[] = {
        {ftLargeint, {"INTEGER", "INT", "SMALLINT", "TINYINT", "WORD"}},
        {ftFloat, {"DEC", "DECIMAL", "DOUBLE", "DOUBLE PRECISION", "FLOAT", "NUMERIC", "NUMBER", "REAL"}},
        {ftLargeint, {"BIGINT", "LARGEINT", "INT64"}},
        {ftGuid, {"GUID", "UNIQUEIDENTIFIER"}},
        {ftWideString,
         {"CHAR", "VARCHAR", "VARCHAR2", "TEXT", "DATETEXT", "NCHAR", "NVARCHAR", "NVARCHAR2", "NTEXT"}},
        {ftWideMemo, {"CLOB", "MEMO"}},
        {ftCurrency, {"CURRENCY", "MONEY", "SMALLMONEY"}},
        {ftBlob, {"BLOB", "BLOB_TEXT", "RAW", "BINARY", "VARBINARY"}},
        {ftDate, {"DATE"}},
        {ftTime, {"TIME"}},
        {ftDateTime, {"DATETIME", "TIMESTAMP"}},
        {ftBoolean, {"BOOLEAN", "BOOL"}},
        {ftGraphic, {"GRAPHIC", "IMAGE", "PICTURE", "PHOTO"}},
    };
    TypeMappings.Clear();
    for (const auto& row : kDefaults)
        for (const char* name : row.Names)
            if (name) TypeMappings.AddTypeMapping(QLatin1String(name), row.DataType);
    TypeMappings.Sort();
}

}  // namespace brindle
