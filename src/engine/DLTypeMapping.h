// Declared column types as free text and field types, both ways.
//
// SQLite keeps no column types, only the text a CREATE statement declared;
// the program shows typed fields all the same, through one table that pairs
// declared type names with field types. Every database object holds its own
// copy of the process-wide table.
//
// Not thread-safe: tables are changed on the main thread only; background
// work reads its own copy.
#pragma once

#include "DLParams.h"

#include <QString>
#include <QStringList>
#include <set>
#include <vector>

namespace brindle {

using TDataTypes = std::set<TFieldType>;

// One row of the table. The item's name is its declared type.
class TDLTypeMapping {
public:
    TDLTypeMapping() = default;
    TDLTypeMapping(const QString& DeclaredType, TFieldType DataType);

    const QString& Name() const { return FName; }
    const QString& DeclaredType() const { return FDeclaredType; }
    void SetDeclaredType(const QString& value);
    TFieldType DataType() const { return FDataType; }
    void SetDataType(TFieldType value) { FDataType = value; }
    void Assign(const TDLTypeMapping& Source);

    bool operator==(const TDLTypeMapping&) const = default;

private:
    QString FName;
    QString FDeclaredType;
    TFieldType FDataType = ftUnknown;
};

class TDLTypeMappings {
public:
    int Count() const { return static_cast<int>(FItems.size()); }
    const TDLTypeMapping& Items(int i) const { return FItems[static_cast<size_t>(i)]; }
    TDLTypeMapping& Items(int i) { return FItems[static_cast<size_t>(i)]; }
    void Delete(int i) { FItems.erase(FItems.begin() + i); }
    void Clear() { FItems.clear(); }
    void Assign(const TDLTypeMappings& Source) { FItems = Source.FItems; }
    bool operator==(const TDLTypeMappings&) const = default;

    // Asserts that the field type is one a table may hold and that the name
    // is new; the name is stored upper-cased.
    void AddTypeMapping(const QString& DeclaredType, TFieldType DataType);
    // Case-insensitive; null when absent.
    const TDLTypeMapping* FindDeclaredType(const QString& DeclaredType) const;
    // The first item of that type; null when absent.
    const TDLTypeMapping* FindDataType(TFieldType DataType) const;
    bool SupportsDataType(TFieldType DataType) const;
    // "UNKNOWN" when nothing in the table fits.
    QString DataTypeToSQLStr(TFieldType DataType) const;
    QString DataTypeToSQLStr(TFieldType DataType, int Size, int Precision) const;

    // Splits "NUMERIC(10, 2)" into the trimmed name, "10" and " 2". Raises
    // "Error reading field size" when anything follows the ")".
    void SQLStrToDataType(const QString& DeclaredType, QString& DataType, QString& Size,
                          QString& Precision) const;
    // DataType keeps the caller's value for a name that no rule knows, so
    // the caller's initial value is the default.
    void SQLStrToDataType(const QString& DeclaredType, TFieldType& DataType, QString& Size,
                          QString& Precision) const;
    // Empty sizes give 0; a size that is no number raises.
    void SQLStrToDataType(const QString& DeclaredType, TFieldType& DataType, int& Size, int& Precision) const;

    // Replaces the list's content by the declared types in item order.
    void GetDeclaredTypes(QStringList& Values) const;
    TDataTypes GetDataTypes() const;
    void Sort();

private:
    std::vector<TDLTypeMapping> FItems;
};

// The field types that a mapping may name.
bool IsMappableDataType(TFieldType DataType);

// The process-wide table, built with the default rows on first use.
TDLTypeMappings& DefaultTypeMappings();
// Clears the table and fills it with the 47 default rows, sorted.
void ResetTypeMappings(TDLTypeMappings& TypeMappings);

}  // namespace brindle
