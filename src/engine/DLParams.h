// Field types and statement parameters: the small part of a dataset
// framework that the database object itself needs.
#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <vector>

namespace brindle {

enum TFieldType {
    ftUnknown,
    ftString,
    ftSmallint,
    ftInteger,
    ftWord,
    ftBoolean,
    ftFloat,
    ftCurrency,
    ftBCD,
    ftDate,
    ftTime,
    ftDateTime,
    ftBytes,
    ftVarBytes,
    ftAutoInc,
    ftBlob,
    ftMemo,
    ftGraphic,
    ftFmtMemo,
    ftParadoxOle,
    ftDBaseOle,
    ftTypedBinary,
    ftCursor,
    ftFixedChar,
    ftWideString,
    ftLargeint,
    ftADT,
    ftArray,
    ftReference,
    ftDataSet,
    ftOraBlob,
    ftOraClob,
    ftVariant,
    ftInterface,
    ftIDispatch,
    ftGuid,
    ftTimeStamp,
    ftFMTBcd,
    ftFixedWideChar,
    ftWideMemo,
};

// One statement parameter. A null value is an invalid QVariant; BLOB values
// are QByteArray; dates are doubles (days since 1899-12-30).
struct TParam {
    QString Name;
    TFieldType DataType = ftUnknown;
    QVariant Value;
    int Size = 0;
    // A value was given; a parameter never given stops a query that needs it.
    bool Bound = false;

    // A parameter without a type takes the type of its first value.
    void SetValue(const QVariant& value) {
        Value = value;
        Bound = true;
        if (DataType == ftUnknown) DataType = TypeOfValue(value);
    }
    static TFieldType TypeOfValue(const QVariant& value) {
        switch (value.typeId()) {
            case QMetaType::Bool: return ftBoolean;
            case QMetaType::Int:
            case QMetaType::UInt: return ftInteger;
            case QMetaType::LongLong:
            case QMetaType::ULongLong: return ftLargeint;
            case QMetaType::Double:
            case QMetaType::Float: return ftFloat;
            case QMetaType::QByteArray: return ftBlob;
            default: return ftWideString;
        }
    }
    bool IsNull() const { return !Value.isValid() || Value.isNull(); }
    QString AsString() const { return Value.toString(); }
    int AsInteger() const { return Value.toInt(); }
    qint64 AsLargeInt() const { return Value.toLongLong(); }
    bool AsBoolean() const { return Value.toBool(); }
    double AsFloat() const { return Value.toDouble(); }
    double AsDateTime() const { return Value.toDouble(); }
    QByteArray AsBlob() const { return Value.toByteArray(); }
    void Clear() {
        Value = QVariant();
        Bound = false;
    }
};

// An ordered list of parameters; names need not be unique or present.
class TParams {
public:
    int Count() const { return static_cast<int>(FItems.size()); }
    TParam& operator[](int i) { return FItems[static_cast<size_t>(i)]; }
    const TParam& operator[](int i) const { return FItems[static_cast<size_t>(i)]; }
    TParam& Add(const QString& name, TFieldType type = ftUnknown, const QVariant& value = QVariant()) {
        FItems.push_back(TParam{name, type == ftUnknown && value.isValid() ? TParam::TypeOfValue(value) : type, value, 0, value.isValid()});
        return FItems.back();
    }
    // Case-insensitive; null when absent.
    TParam* FindParam(const QString& name) {
        for (TParam& p : FItems)
            if (p.Name.compare(name, Qt::CaseInsensitive) == 0) return &p;
        return nullptr;
    }
    void Clear() { FItems.clear(); }

private:
    std::vector<TParam> FItems;
};

}  // namespace brindle
