// Fields and field definitions of a dataset: the columns a cursor shows and
// the description they are made from. A field's Index is its position in
// the dataset's field list and the slot of its value in every record.
#pragma once

#include "engine/DLParams.h"

#include <QString>
#include <QVariant>
#include <memory>
#include <vector>

namespace brindle {

class TDataSet;

enum TFieldKind { fkData, fkCalculated };

// Attributes of a field definition.
enum TFieldAttribute { faHiddenCol = 1, faReadonly = 2, faRequired = 4 };

class TFieldDef {
public:
    QString Name;
    TFieldType DataType = ftUnknown;
    int Size = 0;
    int Precision = 0;
    bool Required = false;
    int Attributes = 0;  // TFieldAttribute bits
    // What the engine says of the column: its declared type whole and
    // without size, its default, and its name before it was made unique.
    QString FullSQLType;
    QString SQLType;
    QString DefaultValue;
    QString OriginalFieldName;
};

class TFieldDefs {
public:
    int Count() const { return static_cast<int>(FItems.size()); }
    TFieldDef& Items(int i) const { return *FItems[static_cast<size_t>(i)]; }
    TFieldDef& Add(const QString& Name, TFieldType DataType, int Size = 0, bool Required = false);
    // Case-insensitive, as the engine compares column names; -1 when absent.
    int IndexOf(const QString& Name) const;
    void Clear() { FItems.clear(); }

private:
    std::vector<std::unique_ptr<TFieldDef>> FItems;
};

// A column of an open dataset. Values are read and written through the
// dataset's active record.
class TField {
public:
    TField(TDataSet* DataSet, const QString& FieldName, TFieldType DataType, int Size, int Index)
        : FDataSet(DataSet), FFieldName(FieldName), FDataType(DataType), FSize(Size), FIndex(Index) {}

    TDataSet* DataSet() const { return FDataSet; }
    const QString& FieldName() const { return FFieldName; }
    TFieldType DataType() const { return FDataType; }
    int Size() const { return FSize; }
    int Index() const { return FIndex; }

    QVariant Value() const;
    void SetValue(const QVariant& Value);
    QVariant OldValue() const;
    bool IsNull() const { return !Value().isValid(); }
    QString AsString() const { return Value().toString(); }
    QString DisplayName() const { return FDisplayLabel.isEmpty() ? FFieldName : FDisplayLabel; }
    bool IsBlob() const { return FDataType == ftBlob || FDataType == ftGraphic || FDataType == ftMemo || FDataType == ftWideMemo; }

    TFieldKind FFieldKind = fkData;
    QString FOrigin;  // the table column behind a result column, "t.a"
    QString FDisplayLabel;
    bool FVisible = true;
    bool FReadOnly = false;
    bool FRequired = false;

private:
    TDataSet* FDataSet;  // not owned
    QString FFieldName;
    TFieldType FDataType;
    int FSize;
    int FIndex;
};

class TFields {
public:
    int Count() const { return static_cast<int>(FItems.size()); }
    TField& operator[](int i) const { return *FItems[static_cast<size_t>(i)]; }
    TField& Add(std::unique_ptr<TField> Field);
    // Case-insensitive; null when absent.
    TField* FindField(const QString& FieldName) const;
    // Raises "Field '%s' not found" when absent.
    TField& FieldByName(const QString& FieldName) const;
    void Clear() { FItems.clear(); }

private:
    std::vector<std::unique_ptr<TField>> FItems;
};

}  // namespace brindle
