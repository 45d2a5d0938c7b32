#include "DLRecData.h"

#include "engine/Assert.h"
#include "engine/DLTools.h"

#include <algorithm>
#include <cstring>

namespace brindle {

// ---------------------------------------------------------------------------
// Raw conversions. The platform is little-endian, so a plain copy of a
// value's memory is also its little-endian form.

namespace {

template <typename T>
QByteArray ValueToRaw(const T& Value) {
    return QByteArray(reinterpret_cast<const char*>(&Value), sizeof(T));
}

// Zero unless the array holds exactly one T.
template <typename T>
T RawToValue(const QByteArray& Raw) {
    T result{};
    if (Raw.size() == static_cast<qsizetype>(sizeof(T))) std::memcpy(&result, Raw.constData(), sizeof(T));
    return result;
}

quint32 ReadCardinal(const QByteArray& Data, qsizetype Pos) {
    quint32 result = 0;
    if (Pos < 0 || Pos + static_cast<qsizetype>(sizeof(result)) > Data.size()) return result;
    // With the sanitizers GCC loses the length check above and sees the
    // shared empty array's one byte here: a false alarm.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
    std::memcpy(&result, Data.constData() + Pos, sizeof(result));
#pragma GCC diagnostic pop
    return result;
}

bool IsBlobType(TFieldType DataType) {
    return DataType == ftBlob || DataType == ftGraphic;
}

}  // namespace

bool RawToBool(const QByteArray& Raw) {
    return Raw.size() == 1 && Raw.at(0) != 0;
}

QByteArray BoolToRaw(bool Value) {
    return QByteArray(1, Value ? '\1' : '\0');
}

qint64 RawToInt64(const QByteArray& Raw) {
    // Shorter integers are their low bytes; no sign is extended.
    qint64 result = 0;
    if (Raw.size() >= 1 && Raw.size() <= 8)
        std::memcpy(&result, Raw.constData(), static_cast<size_t>(Raw.size()));
    return result;
}

QByteArray Int64ToRaw(qint64 Value) {
    return ValueToRaw(Value);
}

QByteArray CardinalToRaw(quint32 Value) {
    return ValueToRaw(Value);
}

qint64 RawToCurrency(const QByteArray& Raw) {
    return RawToValue<qint64>(Raw);
}

QByteArray CurrencyToRaw(qint64 Value) {
    return ValueToRaw(Value);
}

double RawToFloat(const QByteArray& Raw) {
    return RawToValue<double>(Raw);
}

QByteArray FloatToRaw(double Value) {
    return ValueToRaw(Value);
}

double RawToDateTime(const QByteArray& Raw) {
    return RawToValue<double>(Raw);
}

QByteArray DateTimeToRaw(double Value) {
    return ValueToRaw(Value);
}

QUuid RawToGUID(const QByteArray& Raw) {
    return Raw.size() == 16 ? BytesToGUID(Raw) : QUuid();
}

QByteArray GUIDToRaw(const QUuid& Value) {
    return GUIDToBytes(Value);
}

QString RawToAnsiString(const QByteArray& Raw) {
    return QString::fromLatin1(Raw);
}

QByteArray AnsiStringToRaw(const QString& Value) {
    return Value.toLatin1();
}

QString RawToString(const QByteArray& Raw) {
    // An odd last byte is no whole character.
    return QString(reinterpret_cast<const QChar*>(Raw.constData()), Raw.size() / 2);
}

QByteArray StringToRaw(const QString& Value) {
    return QByteArray(reinterpret_cast<const char*>(Value.utf16()), Value.size() * 2);
}

QByteArray WideStringToRaw(const QString& Value) {
    return StringToRaw(Value);
}

TFieldType DataTypeToSupportedDataType(TFieldType DataType) {
    switch (DataType) {
        case ftString:
        case ftBoolean:
        case ftFloat:
        case ftCurrency:
        case ftDate:
        case ftTime:
        case ftDateTime:
        case ftBlob:
        case ftMemo:
        case ftGraphic:
        case ftWideString:
        case ftLargeint:
        case ftGuid:
        case ftWideMemo:
            return DataType;
        case ftSmallint:
        case ftInteger:
        case ftWord:
        case ftAutoInc:
            return ftLargeint;
        case ftBCD:
        case ftFMTBcd:
            return ftFloat;
        case ftBytes:
        case ftVarBytes:
        case ftFmtMemo:
        case ftParadoxOle:
        case ftDBaseOle:
        case ftTypedBinary:
        case ftOraBlob:
        case ftVariant:
            return ftBlob;
        case ftOraClob:
            return ftMemo;
        case ftDataSet:
        case ftInterface:
        case ftIDispatch:
            return ftUnknown;
        default:
            return ftWideString;
    }
}

// ---------------------------------------------------------------------------
// Encoded bookmarks

TBookmarkRec TBookmarkRec::GetFromPointer(const QByteArray& Bookmark) {
    TBookmarkRec result;
    if (Bookmark.size() < 16 || ReadCardinal(Bookmark, 0) != Magic) return result;
    const quint32 keyLength = ReadCardinal(Bookmark, 12);
    // A key that the bytes do not hold whole is no key.
    if (keyLength == 0 || keyLength > static_cast<quint64>(Bookmark.size() - 16)) return result;
    result.UpdateCount = ReadCardinal(Bookmark, 4);
    result.RecNo = ReadCardinal(Bookmark, 8);
    result.Key = Bookmark.mid(16, keyLength);
    return result;
}

QByteArray TBookmarkRec::Encode() const {
    QByteArray result;
    result.reserve(16 + Key.size());
    result += CardinalToRaw(Magic);
    result += CardinalToRaw(UpdateCount);
    result += CardinalToRaw(RecNo);
    result += CardinalToRaw(static_cast<quint32>(Key.size()));
    result += Key;
    return result;
}

int TBookmarkRec::CompareTo(const TBookmarkRec& Other) const {
    if (UpdateCount == Other.UpdateCount) return CompareCardinal(RecNo, Other.RecNo);
    return MemCmp(Key.constData(), Other.Key.constData(),
                  static_cast<size_t>(std::min(Key.size(), Other.Key.size())));
}

QByteArray GetKeyValue(const TDLRecData& RecData) {
    const TRecordOwner* owner = RecData.DataSetData()->DataSet();
    const TFields& fields = owner->GetFields();
    QByteArray result = CardinalToRaw(TBookmarkRec::Magic);
    for (const QString& name : owner->GetKeyFieldNames()) {
        const TField* field = fields.FindField(name);
        if (!field) continue;
        if (RecData.GetHasData(field->Index())) {
            result += '\1';
            result += RecData.GetRawData(field->Index());
        } else {
            result += '\0';
        }
    }
    return result;
}

// ---------------------------------------------------------------------------
// TDLRecData

TDLRecData::TDLRecData(TDLDataSetData* DataSetData) : FDataSetData(DataSetData) {
    BRINDLE_ASSERT(DataSetData && DataSetData->DataSet(), "TDLRecData needs a container with a dataset");
    const auto count = static_cast<size_t>(DataSetData->DataSet()->GetFields().Count());
    FFlags.assign(count, 0);
    FRawData.assign(count, QByteArray());
}

TDLRecData::~TDLRecData() {
    BlobCache().Remove(this);
}

void TDLRecData::Init() {
    std::fill(FFlags.begin(), FFlags.end(), 0);
    for (QByteArray& raw : FRawData) raw = QByteArray();
}

void TDLRecData::Recycle() {
    BlobCache().Remove(this);
    std::fill(FFlags.begin(), FFlags.end(), 0);
    for (QByteArray& raw : FRawData) {
        if (raw.isDetached() && raw.capacity() <= 256)
            raw.resize(0);
        else
            raw = QByteArray();
    }
    FBookmarkFlag = bfCurrent;
}

void TDLRecData::Assign(const TDLRecData& Source) {
    FFlags.resize(Source.FFlags.size());
    for (size_t i = 0; i < FFlags.size(); ++i) FFlags[i] = Source.FFlags[i] | rfModified;
    FRawData = Source.FRawData;  // shares the bytes
}

void TDLRecData::CopyFieldData(const TDLRecData& Source, const TField& Field, const TField& SourceField) {
    const auto to = static_cast<size_t>(Field.Index());
    const auto from = static_cast<size_t>(SourceField.Index());
    FFlags[to] = Source.FFlags[from] | rfModified;
    FRawData[to] = Source.FRawData[from];
}

void TDLRecData::CopyFrom(const TDLRecData& Source) {
    const TFields& sourceFields = Source.FDataSetData->DataSet()->GetFields();
    const TFields& fields = FDataSetData->DataSet()->GetFields();
    for (int i = 0; i < sourceFields.Count(); ++i) {
        const TField& sourceField = sourceFields[i];
        if (const TField* field = fields.FindField(sourceField.FieldName()))
            CopyFieldData(Source, *field, sourceField);
    }
}

namespace {

void SetBit(uint8_t& Flags, uint8_t Bit, bool Value) {
    Flags = Value ? static_cast<uint8_t>(Flags | Bit) : static_cast<uint8_t>(Flags & ~Bit);
}

}  // namespace

void TDLRecData::SetHasData(int Index, bool Value) {
    SetBit(FFlags[static_cast<size_t>(Index)], rfHasData, Value);
}

void TDLRecData::SetFullData(int Index, bool Value) {
    SetBit(FFlags[static_cast<size_t>(Index)], rfFullData, Value);
}

void TDLRecData::SetModified(int Index, bool Value) {
    SetBit(FFlags[static_cast<size_t>(Index)], rfModified, Value);
}

void TDLRecData::ClearModifiedFlag() {
    for (uint8_t& flags : FFlags) flags &= static_cast<uint8_t>(~rfModified);
}

void TDLRecData::SetRawData(int Index, const QByteArray& Value) {
    FRawData[static_cast<size_t>(Index)] = Value;
    SetFullData(Index, true);
    if (!Value.isEmpty() && IsBlobType(FDataSetData->DataSet()->GetFields()[Index].DataType()))
        BlobCache().Add(this);
}

char* TDLRecData::BeginRawData(int Index, qsizetype Size) {
    QByteArray& raw = FRawData[static_cast<size_t>(Index)];
    // Reused when it fits and is not much too large, so that a row keeps no
    // memory of an earlier long value.
    if (raw.isDetached() && raw.capacity() >= Size && raw.capacity() <= std::max<qsizetype>(256, 2 * Size))
        raw.resize(Size);
    else
        raw = QByteArray(Size, Qt::Uninitialized);
    return raw.data();
}

void TDLRecData::EndRawData(int Index, qsizetype Size) {
    QByteArray& raw = FRawData[static_cast<size_t>(Index)];
    raw.resize(Size);
    SetFullData(Index, true);
    if (Size > 0 && IsBlobType(FDataSetData->DataSet()->GetFields()[Index].DataType())) BlobCache().Add(this);
}

void TDLRecData::SetData(const TField& Field, const QByteArray& Value) {
    SetRawData(Field.Index(), Value);
}

bool TDLRecData::GetField(const TField& Field, QVariant* Value) const {
    const int index = Field.Index();
    if (!GetHasData(index)) return false;
    if (!Value) return true;
    const QByteArray& raw = GetRawData(index);
    switch (Field.DataType()) {
        case ftString:
        case ftMemo:
            *Value = RawToAnsiString(raw);
            break;
        case ftWideString:
        case ftWideMemo:
            *Value = RawToString(raw);
            break;
        case ftBoolean:
            *Value = RawToBool(raw);
            break;
        case ftFloat:
            *Value = RawToFloat(raw);
            break;
        case ftDate:
        case ftTime:
        case ftDateTime:
            *Value = RawToDateTime(raw);
            break;
        case ftCurrency:
            // Kept scaled by 10000; a value is the amount itself.
            *Value = static_cast<double>(RawToCurrency(raw)) / 10000.0;
            break;
        case ftLargeint:
            *Value = RawToInt64(raw);
            break;
        case ftGuid:
            *Value = RawToGUID(raw);
            break;
        default:
            BRINDLE_ASSERT(false, "TDLRecData::GetField: field type not supported");
    }
    return true;
}

namespace {

// Text ends at its first NUL, as a terminated buffer would.
QString UpToTerminator(const QString& Text) {
    const qsizetype end = Text.indexOf(QChar(0));
    return end < 0 ? Text : Text.left(end);
}

}  // namespace

void TDLRecData::SetField(const TField& Field, const QVariant& Value) {
    const int index = Field.Index();
    QByteArray raw;
    switch (Field.DataType()) {
        case ftString:
        case ftMemo:
            raw = AnsiStringToRaw(UpToTerminator(Value.toString()));
            break;
        case ftWideString:
        case ftWideMemo:
            raw = StringToRaw(UpToTerminator(Value.toString()));
            break;
        case ftBoolean:
            raw = BoolToRaw(Value.toBool());
            break;
        case ftFloat:
        case ftDate:
        case ftTime:
        case ftDateTime:
            raw = FloatToRaw(Value.toDouble());
            break;
        case ftCurrency:
            raw = CurrencyToRaw(qRound64(Value.toDouble() * 10000.0));
            break;
        case ftLargeint:
            raw = Int64ToRaw(Value.toLongLong());
            break;
        case ftGuid:
            raw = GUIDToRaw(Value.value<QUuid>());
            break;
        default:
            BRINDLE_ASSERT(false, "TDLRecData::SetField: field type not supported");
    }
    const bool hasData = Value.isValid();
    SetHasData(index, hasData);
    SetModified(index, true);
    // The value is complete now; a deferred one must not be fetched over it.
    SetRawData(index, hasData ? raw : QByteArray());
}

bool IsBinaryType(TFieldType DataType) {
    return DataType == ftBlob || DataType == ftGraphic || DataType == ftBytes || DataType == ftVarBytes;
}

QVariant GetFieldVariant(const TDLRecData& Rec, const TField& Field) {
    if (IsBinaryType(Field.DataType())) {
        if (!Rec.GetHasData(Field.Index())) return QVariant();
        // Left out when the row was read, or given up since: read it now.
        if (!Rec.GetFullData(Field.Index())) Rec.DataSetData()->DataSet()->LoadField(Rec, Field);
        return Rec.GetBlobData(Field);
    }
    QVariant value;
    if (Rec.GetField(Field, &value)) return value;
    return QVariant();
}

void SetFieldVariant(TDLRecData& Rec, const TField& Field, const QVariant& Value) {
    if (!IsBinaryType(Field.DataType())) {
        Rec.SetField(Field, Value);
        return;
    }
    const int index = Field.Index();
    Rec.SetBlobData(Field, Value.toByteArray());
    Rec.SetHasData(index, Value.isValid());
    Rec.SetModified(index, true);
    if (!Value.isValid())
        if (auto* sqlite = dynamic_cast<TDLSQLiteRecData*>(&Rec)) sqlite->SetStorageClass(index, scNull);
}

int CompareBlobValues(const QByteArray& Left, const QByteArray& Right) {
    if (Left.constData() == Right.constData() && Left.size() == Right.size()) return 0;
    if (Left.isEmpty()) return Right.isEmpty() ? 0 : -1;
    if (Right.isEmpty()) return 1;
    return MemCmp(Left.constData(), Right.constData(), static_cast<size_t>(std::min(Left.size(), Right.size())));
}

QByteArray TDLRecData::GetBlobData(const TField& Field) const {
    return GetRawData(Field.Index());
}

void TDLRecData::SetBlobData(const TField& Field, const QByteArray& Value) {
    SetRawData(Field.Index(), Value);
}

QByteArray TDLRecData::GetNativeData(const TField& Field) const {
    return GetRawData(Field.Index());
}

void TDLRecData::SetNativeData(const TField& Field, const QByteArray& Value) {
    SetRawData(Field.Index(), Value);
    SetModified(Field.Index(), true);
}

int TDLRecData::CompareTo(const TDLRecData& Dest, const TField& Field) const {
    const int index = Field.Index();
    const bool hasData = GetHasData(index);
    int result = CompareBool(hasData, Dest.GetHasData(index));
    if (result != 0 || !hasData) return result;

    const auto values = [&](QVariant& Own, QVariant& Other) {
        GetField(Field, &Own);
        Dest.GetField(Field, &Other);
    };
    switch (Field.DataType()) {
        case ftBoolean: {
            QVariant a(false), b(false);
            values(a, b);
            return CompareBool(a.toBool(), b.toBool());
        }
        case ftFloat:
        case ftCurrency:
        case ftDate:
        case ftTime:
        case ftDateTime: {
            QVariant a(0.0), b(0.0);
            values(a, b);
            return CompareFloat(a.toDouble(), b.toDouble());
        }
        case ftLargeint: {
            // Starts at 0: a reading may leave the value as it was.
            QVariant a(qint64(0)), b(qint64(0));
            values(a, b);
            return CompareInt64(a.toLongLong(), b.toLongLong());
        }
        default:
            return CompareBytes(GetRawData(index), Dest.GetRawData(index));
    }
}

QByteArray TDLRecData::SaveToStream() const {
    QByteArray result;
    for (size_t i = 0; i < FFlags.size(); ++i) {
        result += static_cast<char>(FFlags[i]);
        result += CardinalToRaw(static_cast<quint32>(FRawData[i].size()));
        result += FRawData[i];
    }
    return result;
}

void TDLRecData::LoadFromStream(const QByteArray& Stream) {
    qsizetype pos = 0;
    bool blobs = false;
    const TFields& fields = FDataSetData->DataSet()->GetFields();
    // The bytes may come from outside (the clipboard): a short stream is
    // damaged data, not a broken program.
    const ECustomException damaged(QStringLiteral("Record data is damaged"));
    for (size_t i = 0; i < FFlags.size(); ++i) {
        if (Stream.size() - pos < 5) throw damaged;
        FFlags[i] = static_cast<uint8_t>(Stream.at(pos));
        const quint32 length = ReadCardinal(Stream, pos + 1);
        pos += 5;
        if (Stream.size() - pos < static_cast<qint64>(length)) throw damaged;
        FRawData[i] = Stream.mid(pos, length);
        pos += length;
        if (length > 0 && IsBlobType(fields[static_cast<int>(i)].DataType())) blobs = true;
    }
    if (blobs) BlobCache().Add(this);
}

void TDLRecData::DiscardData(int Index) {
    FRawData[static_cast<size_t>(Index)] = QByteArray();
    SetFullData(Index, false);
}

void TDLRecData::DiscardBlobs() {
    TRecordOwner* owner = FDataSetData->DataSet();
    const TFields& fields = owner->GetFields();
    // Only what can be read again goes, and never an edit not yet posted.
    for (int i = 0; i < fields.Count() && i < FieldCount(); ++i)
        if (IsBlobType(fields[i].DataType()) && !GetModified(i) && owner->CanLoadField(fields[i])) DiscardData(i);
}

qint64 TDLRecData::TotalBlobSize() const {
    const TFields& fields = FDataSetData->DataSet()->GetFields();
    qint64 result = 0;
    for (int i = 0; i < fields.Count() && i < FieldCount(); ++i)
        if (IsBlobType(fields[i].DataType())) result += GetRawData(i).size();
    return result;
}

// ---------------------------------------------------------------------------
// The BLOB cache and the buffer size

bool EnableBlobOptimizations = true;

namespace {
int DataBufferSize = DATA_BUFFER_SIZE;
}

int GetDataBufferSize() {
    return DataBufferSize;
}

void SetDataBufferSize(int Value) {
    // Fewer rows per load would make paging through a result too chatty.
    DataBufferSize = std::max(Value, 128);
}

void TBlobCache::Add(TDLRecData* Data) {
    if (!EnableBlobOptimizations) return;
    if (std::find(FList.begin(), FList.end(), Data) == FList.end()) {
        FList.push_back(Data);
        FModified = true;
    }
    DiscardOldBlobs();
}

void TBlobCache::Remove(TDLRecData* Data) {
    const auto it = std::find(FList.begin(), FList.end(), Data);
    if (it != FList.end()) FList.erase(it);
}

void TBlobCache::DiscardOldBlobs() {
    if (!FModified) return;
    // The newest rows keep their bytes; from the one that passes the limit
    // on, older rows give theirs up.
    qint64 total = 0;
    for (size_t i = FList.size(); i-- > 0;) {
        total += FList[i]->TotalBlobSize();
        if (total > MAX_BLOB_CACHE) {
            for (size_t j = 0; j <= i; ++j) FList[j]->DiscardBlobs();
            FList.erase(FList.begin(), FList.begin() + static_cast<std::ptrdiff_t>(i) + 1);
            break;
        }
    }
    FModified = false;
}

TBlobCache& BlobCache() {
    static TBlobCache cache;
    return cache;
}

}  // namespace brindle
