#include "DLRecData.h"

#include "engine/DLDateTime.h"
#include "engine/DLTools.h"

#include <QStringDecoder>
#include <QStringEncoder>
#include <cmath>
#include <limits>

namespace brindle {

namespace {

// The whole text as a 32-bit integer, else Default.
int StrToIntDef(const QString& Text, int Default) {
    bool ok = false;
    const int value = Text.toInt(&ok);
    return ok ? value : Default;
}

// Decimal point only: no locale reaches stored text.
double StrToFloatDef(const QString& Text, double Default) {
    bool ok = false;
    const double value = Text.toDouble(&ok);
    return ok ? value : Default;
}

QString FloatToText(double Value) {
    return QString::number(Value, 'g', 15);
}

// Halves go to the even neighbour; out of range gives the nearest bound.
qint64 RoundToInt64(double Value) {
    if (std::isnan(Value)) return 0;
    if (Value >= 9223372036854775807.0) return std::numeric_limits<qint64>::max();
    if (Value <= -9223372036854775808.0) return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(std::nearbyint(Value));
}

bool IsTextType(TFieldType DataType) {
    return DataType == ftString || DataType == ftMemo || DataType == ftWideString || DataType == ftWideMemo;
}

bool IsDateType(TFieldType DataType) {
    return DataType == ftDate || DataType == ftTime || DataType == ftDateTime;
}

// The stored value as a double, by its class; 0 for null.
double StoredFloat(const QByteArray& Raw, int StorageClass) {
    switch (StorageClass) {
        case scInteger:
            return static_cast<double>(RawToInt64(Raw));
        case scFloat:
            return RawToFloat(Raw);
        case scText:
            return StrToFloatDef(RawToString(Raw), 0);
        case scBlob:
            return RawToFloat(Raw);
        default:
            return 0;
    }
}

QStringConverter::Encoding FileEncoding(int CodePage) {
    switch (CodePage) {
        case 65001:
            return QStringConverter::Utf8;
        case 1201:
            return QStringConverter::Utf16BE;
        default:
            return QStringConverter::Utf16LE;
    }
}

}  // namespace

int DefaultStorageClass(TFieldType DataType) {
    switch (DataType) {
        case ftBoolean:
        case ftLargeint:
            return scInteger;
        case ftFloat:
        case ftCurrency:
            return scFloat;
        case ftBlob:
        case ftGraphic:
        case ftGuid:
            return scBlob;
        default:
            return scText;
    }
}

TDLSQLiteRecData::TDLSQLiteRecData(TDLDataSetData* DataSetData)
    : TDLRecData(DataSetData), FStorageClass(FFlags.size(), scNull) {}

void TDLSQLiteRecData::Init() {
    TDLRecData::Init();
    std::fill(FStorageClass.begin(), FStorageClass.end(), static_cast<int>(scNull));
}

void TDLSQLiteRecData::Recycle() {
    TDLRecData::Recycle();
    std::fill(FStorageClass.begin(), FStorageClass.end(), static_cast<int>(scNull));
}

void TDLSQLiteRecData::Assign(const TDLRecData& Source) {
    TDLRecData::Assign(Source);
    FStorageClass.resize(FFlags.size());
    if (const auto* source = dynamic_cast<const TDLSQLiteRecData*>(&Source)) {
        FStorageClass = source->FStorageClass;
        FEncoding = source->FEncoding;
        return;
    }
    // A plain row holds typed values: each in the class its type is written with.
    const TFields& fields = FDataSetData->DataSet()->GetFields();
    for (int i = 0; i < FieldCount(); ++i)
        SetStorageClass(
            i, GetHasData(i) && i < fields.Count() ? DefaultStorageClass(fields[i].DataType()) : scNull);
}

void TDLSQLiteRecData::CopyFieldData(const TDLRecData& Source, const TField& Field,
                                     const TField& SourceField) {
    TDLRecData::CopyFieldData(Source, Field, SourceField);
    int storageClass = scNull;
    if (const auto* source = dynamic_cast<const TDLSQLiteRecData*>(&Source))
        storageClass = source->GetStorageClass(SourceField.Index());
    else if (GetHasData(Field.Index()))
        storageClass = DefaultStorageClass(SourceField.DataType());
    SetStorageClass(Field.Index(), storageClass);
}

bool TDLSQLiteRecData::GetField(const TField& Field, QVariant* Value) const {
    const int index = Field.Index();
    if (!GetHasData(index)) return false;
    if (!Value) return true;
    const QByteArray& raw = GetRawData(index);
    const int storageClass = GetStorageClass(index);
    const TFieldType type = Field.DataType();

    if (IsTextType(type)) {
        const bool narrow = type == ftString || type == ftMemo;
        switch (storageClass) {
            case scInteger:
                *Value = QString::number(RawToInt64(raw));
                break;
            case scFloat:
                *Value = FloatToText(RawToFloat(raw));
                break;
            case scText:
                *Value = RawToString(raw);
                break;
            case scBlob:
                *Value = narrow ? RawToAnsiString(raw) : RawToString(raw);
                break;
            default:
                *Value = QString();
        }
        return true;
    }

    switch (type) {
        case ftBoolean: {
            bool result = false;
            switch (storageClass) {
                case scInteger:
                case scBlob:
                    result = RawToInt64(raw) != 0;
                    break;
                case scFloat:
                    result = RoundToInt64(RawToFloat(raw)) != 0;
                    break;
                case scText: {
                    const QString text = RawToString(raw);
                    result = StrToIntDef(text, 0) != 0 || text.startsWith(u't', Qt::CaseInsensitive);
                    break;
                }
                default:
                    break;
            }
            *Value = result;
            return true;
        }
        case ftFloat:
            *Value = StoredFloat(raw, storageClass);
            return true;
        case ftCurrency:
            // An amount has four decimals.
            *Value = static_cast<double>(RoundToInt64(StoredFloat(raw, storageClass) * 10000.0)) / 10000.0;
            return true;
        case ftDate:
        case ftTime:
        case ftDateTime:
            switch (storageClass) {
                case scInteger:
                    *Value = FloatToDateTime(static_cast<double>(RawToInt64(raw)));
                    break;
                case scFloat:
                    *Value = FloatToDateTime(RawToFloat(raw));
                    break;
                case scText:
                case scBlob:
                    *Value = StringToDateTime(RawToString(raw));
                    break;
                default:
                    *Value = 0.0;
            }
            return true;
        case ftLargeint:
            switch (storageClass) {
                case scInteger:
                case scBlob:
                    *Value = RawToInt64(raw);
                    break;
                case scFloat:
                    *Value = RoundToInt64(RawToFloat(raw));
                    break;
                case scText:
                    // A 32-bit reading: longer numbers in text read as 0.
                    *Value = static_cast<qint64>(StrToIntDef(RawToString(raw), 0));
                    break;
                default:
                    break;  // left as it was
            }
            return true;
        case ftGuid:
            switch (storageClass) {
                case scText: {
                    QString text = RawToString(raw);
                    if (text.isEmpty()) {
                        *Value = QUuid();
                        break;
                    }
                    if (text.size() == 36) text = QStringLiteral("{%1}").arg(text);
                    *Value = StringToGUID(text);
                    break;
                }
                case scBlob:
                    *Value = RawToGUID(raw);
                    break;
                default:
                    *Value = QUuid();
            }
            return true;
        default:
            return TDLRecData::GetField(Field, Value);
    }
}

void TDLSQLiteRecData::SetField(const TField& Field, const QVariant& Value) {
    const int index = Field.Index();
    const TFieldType type = Field.DataType();
    if (!Value.isValid()) {
        TDLRecData::SetField(Field, Value);
        SetStorageClass(index, scNull);
        return;
    }
    if (IsDateType(type)) {
        // Dates are written as text, the form the program reads them back in.
        const double value = Value.toDouble();
        const QString text = type == ftDate   ? DateToString(value)
                             : type == ftTime ? TimeToString(value)
                                              : DateTimeToString(value);
        SetHasData(index, true);
        SetModified(index, true);
        SetRawData(index, StringToRaw(text));
        SetStorageClass(index, scText);
        return;
    }
    if (IsTextType(type)) {
        // Text in a SQLite row is UTF-16, narrow fields too.
        QString text = Value.toString();
        const qsizetype end = text.indexOf(QChar(0));
        if (end >= 0) text.truncate(end);
        SetHasData(index, true);
        SetModified(index, true);
        SetRawData(index, StringToRaw(text));
    } else if (type == ftCurrency) {
        // Written to the engine as a float.
        SetHasData(index, true);
        SetModified(index, true);
        SetRawData(index, FloatToRaw(static_cast<double>(qRound64(Value.toDouble() * 10000.0)) / 10000.0));
    } else {
        TDLRecData::SetField(Field, Value);
    }
    SetStorageClass(index, DefaultStorageClass(type));
}

QByteArray TDLSQLiteRecData::GetBlobData(const TField& Field) const {
    const int index = Field.Index();
    const TFieldType type = Field.DataType();
    if (type != ftMemo && type != ftWideMemo) return TDLRecData::GetBlobData(Field);
    if (!GetHasData(index)) return QByteArray();
    const QByteArray& raw = GetRawData(index);
    switch (GetStorageClass(index)) {
        case scInteger:
            return StringToRaw(QString::number(RawToInt64(raw)));
        case scFloat:
            return StringToRaw(FloatToText(RawToFloat(raw)));
        case scText:
        case scBlob:
            return raw;
        default:
            return QByteArray();
    }
}

void TDLSQLiteRecData::SetBlobData(const TField& Field, const QByteArray& Value) {
    TDLRecData::SetBlobData(Field, Value);
    SetStorageClass(Field.Index(), DefaultStorageClass(Field.DataType()));
}

QByteArray TDLSQLiteRecData::GetNativeData(const TField& Field) const {
    const int index = Field.Index();
    if (GetStorageClass(index) != scText || FEncoding == 1200) return TDLRecData::GetNativeData(Field);
    QStringEncoder encoder(FileEncoding(FEncoding));
    return encoder.encode(RawToString(GetRawData(index)));
}

void TDLSQLiteRecData::SetNativeData(const TField& Field, const QByteArray& Value) {
    const int index = Field.Index();
    if (GetStorageClass(index) != scText || FEncoding == 1200) {
        TDLRecData::SetNativeData(Field, Value);
        return;
    }
    QStringDecoder decoder(FileEncoding(FEncoding));
    TDLRecData::SetNativeData(Field, StringToRaw(decoder.decode(Value)));
}

}  // namespace brindle
