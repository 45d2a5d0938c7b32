// Rows in memory. A TDLRecData holds one row: per field a flag byte and the
// raw bytes of the value. Containers hold the rows of a dataset: a list, or
// for a SQL result a sliding window of rows around the position asked for,
// refilled by paging through the still open statement. Bookmarks survive a
// moved window and, for an editable result, changed rows (they carry the
// row's key bytes). A process-wide cache bounds the BLOB bytes in memory.
//
// Ownership: a container owns the rows in its list; a row knows its
// container and its owner dataset by plain pointers. All of it belongs to
// the thread of its dataset.
#pragma once

#include "DLFields.h"
#include "DLRecordOwner.h"

#include <QByteArray>
#include <QUuid>
#include <QVariant>
#include <cstdint>
#include <memory>
#include <vector>

namespace brindle {

class TDLDataSetData;
class TDLRecData;

enum TBookmarkFlag { bfCurrent, bfBOF, bfEOF, bfInserted };

// Flag bits of a field's value in a row.
enum : uint8_t { rfHasData = 1, rfFullData = 2, rfModified = 4 };

// The bytes of a value: a plain copy of its memory. Reading checks the
// length: a boolean takes 1 byte, an integer 1 to 8, a float, currency or
// date exactly 8, a GUID exactly 16; any other length reads as zero.
bool RawToBool(const QByteArray& Raw);
QByteArray BoolToRaw(bool Value);
qint64 RawToInt64(const QByteArray& Raw);
QByteArray Int64ToRaw(qint64 Value);
QByteArray CardinalToRaw(quint32 Value);
qint64 RawToCurrency(const QByteArray& Raw);  // scaled by 10000
QByteArray CurrencyToRaw(qint64 Value);
double RawToFloat(const QByteArray& Raw);
QByteArray FloatToRaw(double Value);
double RawToDateTime(const QByteArray& Raw);
QByteArray DateTimeToRaw(double Value);
QUuid RawToGUID(const QByteArray& Raw);
QByteArray GUIDToRaw(const QUuid& Value);
QString RawToAnsiString(const QByteArray& Raw);  // Latin-1 bytes
QByteArray AnsiStringToRaw(const QString& Value);
QString RawToString(const QByteArray& Raw);  // UTF-16 units in memory order
QByteArray StringToRaw(const QString& Value);
QByteArray WideStringToRaw(const QString& Value);

// Types the record layer stores pass through; the others map to the
// nearest stored type (integers to ftLargeint, BCD to ftFloat, binary kinds
// to ftBlob, ftOraClob to ftMemo, object kinds to ftUnknown, the rest to
// ftWideString).
TFieldType DataTypeToSupportedDataType(TFieldType DataType);

// Byte arrays compare with CompareBytes of engine/DLTools.h.

// ---------------------------------------------------------------------------
// Bookmarks

class TBookmarkData {
public:
    explicit TBookmarkData(TDLRecData* RecData) : FRecData(RecData) {}
    virtual ~TBookmarkData() = default;
    virtual void UpdateBookmark(int CurRec) { (void)CurRec; }
    // The bytes a caller keeps to come back to the row.
    virtual QByteArray GetBookmark() = 0;
    virtual void SetBookmarkData(const QByteArray& Data) = 0;
    virtual int GetBookmarkSize() const = 0;

protected:
    TDLRecData* FRecData;  // not owned
};

// The row number, counted from 1, in 4 bytes.
class TBufferedReadOnlyBookmarkData : public TBookmarkData {
public:
    using TBookmarkData::TBookmarkData;
    void UpdateBookmark(int CurRec) override { FBookmarkData = static_cast<quint32>(CurRec + 1); }
    QByteArray GetBookmark() override;
    void SetBookmarkData(const QByteArray& Data) override;
    int GetBookmarkSize() const override { return 4; }
    quint32 FBookmarkData = 1;
};

// The encoded bookmark of an editable result (TBookmarkRec), made anew from
// the row's key whenever it is asked for.
class TBufferedEditableBookmarkData : public TBookmarkData {
public:
    using TBookmarkData::TBookmarkData;
    void UpdateBookmark(int CurRec) override { FRecNo = static_cast<quint32>(CurRec + 1); }
    QByteArray GetBookmark() override;
    void SetBookmarkData(const QByteArray& Data) override { FBookmarkData = Data; }
    int GetBookmarkSize() const override { return 4; }
    quint32 FRecNo = 0;
    QByteArray FBookmarkData;
};

// An editable dataset's bookmark, little-endian: magic, update count of the
// container, row number from 1, key length n, n key bytes. The key bytes:
// magic, then per key field a byte 1 (present, followed by the raw bytes) or
// 0 (null).
struct TBookmarkRec {
    static constexpr quint32 Magic = 138257638;
    quint32 UpdateCount = 0;
    quint32 RecNo = 0;
    QByteArray Key;

    // Empty unless the bytes start with the magic and hold a key.
    static TBookmarkRec GetFromPointer(const QByteArray& Bookmark);
    QByteArray Encode() const;
    bool IsValid() const { return !Key.isEmpty(); }
    // Equal update counts: by row number; else by the key bytes over the
    // shorter length.
    int CompareTo(const TBookmarkRec& Other) const;
};

// The key bytes of a row for the owner's key fields.
QByteArray GetKeyValue(const TDLRecData& RecData);

// ---------------------------------------------------------------------------
// A row

class TDLRecData {
public:
    // A row of Data's dataset with one slot per field; the bookmark kind
    // comes from the container.
    explicit TDLRecData(TDLDataSetData* DataSetData);
    virtual ~TDLRecData();
    TDLRecData(const TDLRecData&) = delete;
    TDLRecData& operator=(const TDLRecData&) = delete;

    TDLDataSetData* DataSetData() const { return FDataSetData; }
    int FieldCount() const { return static_cast<int>(FFlags.size()); }

    // All fields null, not modified.
    virtual void Init();
    // As Init, for a row used again: the slots keep their memory for the
    // next values, unless a slot holds much (a BLOB, a long text).
    virtual void Recycle();
    // Copies every flag (with modified set) and every value, sharing the
    // bytes.
    virtual void Assign(const TDLRecData& Source);
    // For each field of Source's dataset, the field of the same name here.
    void CopyFrom(const TDLRecData& Source);
    virtual void CopyFieldData(const TDLRecData& Source, const TField& Field, const TField& SourceField);

    bool GetHasData(int Index) const { return FFlags[static_cast<size_t>(Index)] & rfHasData; }
    void SetHasData(int Index, bool Value);
    bool GetFullData(int Index) const { return FFlags[static_cast<size_t>(Index)] & rfFullData; }
    void SetFullData(int Index, bool Value);
    bool GetModified(int Index) const { return FFlags[static_cast<size_t>(Index)] & rfModified; }
    void SetModified(int Index, bool Value);
    void ClearModifiedFlag();
    const QByteArray& GetRawData(int Index) const { return FRawData[static_cast<size_t>(Index)]; }
    // Sets full-data; a BLOB value with data enters the BLOB cache.
    void SetRawData(int Index, const QByteArray& Value);
    // The same in two steps, for a reader that writes the bytes itself: room
    // for Size bytes (the slot's memory reused where it fits), then the size
    // the value took.
    char* BeginRawData(int Index, qsizetype Size);
    void EndRawData(int Index, qsizetype Size);
    // An empty Value clears the bytes but still marks them full.
    void SetData(const TField& Field, const QByteArray& Value);

    // The value as the field's type; false (Value untouched) when null.
    // Strings are QString, integers qint64, floats and dates double,
    // currency a double amount (kept to four decimals), booleans bool,
    // GUIDs QUuid.
    virtual bool GetField(const TField& Field, QVariant* Value) const;
    // An invalid Value stores null. Marks the field modified.
    virtual void SetField(const TField& Field, const QVariant& Value);
    virtual QByteArray GetBlobData(const TField& Field) const;
    virtual void SetBlobData(const TField& Field, const QByteArray& Value);
    // The bytes as a hex view shows them.
    virtual QByteArray GetNativeData(const TField& Field) const;
    virtual void SetNativeData(const TField& Field, const QByteArray& Value);

    // Null before any value; then by type.
    int CompareTo(const TDLRecData& Dest, const TField& Field) const;

    // Per field: a flag byte, a 4-byte length, the bytes.
    QByteArray SaveToStream() const;
    void LoadFromStream(const QByteArray& Stream);

    // Frees the bytes and clears full-data; has-data stays.
    void DiscardData(int Index);
    void DiscardBlobs();
    qint64 TotalBlobSize() const;

    TBookmarkFlag FBookmarkFlag = bfCurrent;
    std::unique_ptr<TBookmarkData> FBookmarkData;

protected:
    TDLDataSetData* FDataSetData;  // not owned
    std::vector<uint8_t> FFlags;
    std::vector<QByteArray> FRawData;
};

// Types whose value is its bytes, with no typed reading.
bool IsBinaryType(TFieldType DataType);

// The value of a field in a row as a view shows it: invalid for null,
// the bytes of a binary field, else as GetField reads it.
QVariant GetFieldVariant(const TDLRecData& Rec, const TField& Field);
// The reverse: an invalid Value stores null, a binary field takes bytes.
void SetFieldVariant(TDLRecData& Rec, const TField& Field, const QVariant& Value);
// BLOB values as a variant compares them: the shorter length's bytes
// decide, so a value and its own prefix are equal; an empty value is less.
int CompareBlobValues(const QByteArray& Left, const QByteArray& Right);

// Storage classes of the engine. scBlobText is text that a BLOB field
// holds: the field shows and edits it as its UTF-8 bytes, while writers
// that keep values as stored (exports, copies) still write it as text.
enum TStorageClass { scInteger = 1, scFloat = 2, scText = 3, scBlob = 4, scNull = 5, scBlobText = 6 };

// The class a value of this type is written with.
int DefaultStorageClass(TFieldType DataType);

// A row of a SQLite result: each value is kept in its storage class and read
// as the field's type on demand; text is UTF-16 in memory.
class TDLSQLiteRecData : public TDLRecData {
public:
    explicit TDLSQLiteRecData(TDLDataSetData* DataSetData);

    void Init() override;
    void Recycle() override;
    void Assign(const TDLRecData& Source) override;
    // Carries the storage class along with the bytes.
    void CopyFieldData(const TDLRecData& Source, const TField& Field, const TField& SourceField) override;
    bool GetField(const TField& Field, QVariant* Value) const override;
    void SetField(const TField& Field, const QVariant& Value) override;
    QByteArray GetBlobData(const TField& Field) const override;
    void SetBlobData(const TField& Field, const QByteArray& Value) override;
    // Text in the database file's encoding.
    QByteArray GetNativeData(const TField& Field) const override;
    void SetNativeData(const TField& Field, const QByteArray& Value) override;

    int GetStorageClass(int Index) const { return FStorageClass[static_cast<size_t>(Index)]; }
    void SetStorageClass(int Index, int Value) { FStorageClass[static_cast<size_t>(Index)] = Value; }

    // Code page of the file's text: 65001, 1200 (UTF-16LE) or 1201.
    int FEncoding = 1200;

private:
    std::vector<int> FStorageClass;
};

// ---------------------------------------------------------------------------
// Containers

class TDLDataSetData {
public:
    explicit TDLDataSetData(TRecordOwner* DataSet) : FDataSet(DataSet) {}
    virtual ~TDLDataSetData() = default;
    TDLDataSetData(const TDLDataSetData&) = delete;
    TDLDataSetData& operator=(const TDLDataSetData&) = delete;

    TRecordOwner* DataSet() const { return FDataSet; }

    // The row at a result index, null when there is none.
    virtual TDLRecData* GetItems(int Index) = 0;
    // Replaces the row's content by Value's.
    virtual void SetItems(int Index, const TDLRecData& Value) = 0;
    virtual int GetCount() = 0;
    virtual void UpdateBufferCount() {}
    virtual void Clear() = 0;
    // A new row of this container's kind (SQLite rows when Sqlite).
    virtual std::unique_ptr<TDLRecData> CreateRecData(bool Sqlite) = 0;
    // A row for a reader to fill: new, or one the container gave up before.
    virtual std::unique_ptr<TDLRecData> NewRow(bool Sqlite) { return CreateRecData(Sqlite); }
    virtual int GetBookmarkIndex(const QByteArray& Bookmark) = 0;
    virtual void Delete(int Index) = 0;
    // Returns the result index of the row, -1 where a container cannot append.
    virtual int Append(std::unique_ptr<TDLRecData> Item) { (void)Item; return -1; }
    virtual void Insert(int Index, std::unique_ptr<TDLRecData> Item) { (void)Index; (void)Item; }
    // Called after each post or delete.
    virtual void RecordUpdated() {}
    virtual bool Sortable() = 0;
    virtual bool AllRecordsLoaded() = 0;
    virtual int GetBookmarkSize() = 0;
    virtual bool BookmarkValid(const QByteArray& Bookmark) = 0;
    virtual int CompareBookmarks(const QByteArray& Bookmark1, const QByteArray& Bookmark2) = 0;

protected:
    TRecordOwner* FDataSet;  // not owned
};

// Rows in a list, all in memory; can be sorted by a field.
class TDLListData : public TDLDataSetData {
public:
    using TDLDataSetData::TDLDataSetData;
    virtual void Sort(const TField& Field, bool Ascending);
    int ListCount() const { return static_cast<int>(FList.size()); }

protected:
    std::vector<std::unique_ptr<TDLRecData>> FList;
    const TField* FSortField = nullptr;
    bool FAscending = true;
};

// The sliding window over a SQL result.
class TDLBufferedData : public TDLListData {
public:
    explicit TDLBufferedData(TRecordOwner* DataSet);

    TDLRecData* GetItems(int Index) override;
    void SetItems(int Index, const TDLRecData& Value) override;
    // The owner's count, not the window's.
    int GetCount() override;
    int BufferCount() const { return ListCount(); }
    void UpdateBufferCount() override;
    // The rows go to the spares: a window read next reuses their memory.
    void Clear() override;
    std::unique_ptr<TDLRecData> NewRow(bool Sqlite) override;
    void Delete(int Index) override;
    int Append(std::unique_ptr<TDLRecData> Item) override;
    void Insert(int Index, std::unique_ptr<TDLRecData> Item) override;
    bool Sortable() override { return GetCount() == BufferCount(); }
    bool AllRecordsLoaded() override { return GetCount() == BufferCount(); }
    void Sort(const TField& Field, bool Ascending) override;

    // Loads the window that holds Index when it is not there; true when the
    // row is in the window afterwards.
    bool BringInBuffer(int Index);
    bool IndexInBuffer(int Index) const { return Index >= FOffset && Index < FOffset + ListCount(); }
    int Offset() const { return FOffset; }
    int Limit() const { return FLimit; }
    // Both clear the window when the value changes.
    void SetOffset(int Value);
    void SetLimit(int Value);
    void SetSmartBuffering(bool Value) { FSmartBuffering = Value; }

protected:
    int FOffset = 0;
    int FLimit;  // GetDataBufferSize() when created
    bool FSmartBuffering = true;
    int FBackSteps = 0;  // 0 to 2: how firmly the reader moves backward
    // Rows of windows left behind, at most two windows' worth; SQLite rows
    // only, since only those are read into the window.
    std::vector<std::unique_ptr<TDLRecData>> FSpare;
};

// Bookmarks are row numbers.
class TDLBufferedReadOnlyData : public TDLBufferedData {
public:
    using TDLBufferedData::TDLBufferedData;
    std::unique_ptr<TDLRecData> CreateRecData(bool Sqlite) override;
    int GetBookmarkIndex(const QByteArray& Bookmark) override;
    // Raises "Dataset is read-only".
    void Delete(int Index) override;
    int Append(std::unique_ptr<TDLRecData> Item) override;
    int GetBookmarkSize() override { return 4; }
    bool BookmarkValid(const QByteArray& Bookmark) override;
    int CompareBookmarks(const QByteArray& Bookmark1, const QByteArray& Bookmark2) override;
};

// Bookmarks carry the key; a row is found again after others were posted
// or deleted, also outside the window.
class TDLBufferedEditableData : public TDLBufferedData {
public:
    using TDLBufferedData::TDLBufferedData;
    std::unique_ptr<TDLRecData> CreateRecData(bool Sqlite) override;
    int GetBookmarkIndex(const QByteArray& Bookmark) override;
    void RecordUpdated() override { ++FUpdateCount; }
    int GetBookmarkSize() override { return 4; }
    bool BookmarkValid(const QByteArray& Bookmark) override;
    int CompareBookmarks(const QByteArray& Bookmark1, const QByteArray& Bookmark2) override;
    quint32 UpdateCount() const { return FUpdateCount; }

private:
    bool Check(int Index, const QByteArray& Key);
    quint32 FUpdateCount = 0;
    int FLastBookmarkIndex = -1;
};

// ---------------------------------------------------------------------------
// The BLOB cache

constexpr qint64 MAX_BLOB_CACHE = 268435456;
extern bool EnableBlobOptimizations;

// Rows a window loads at once: the setting "DataBufferSize", at least 128.
constexpr int DATA_BUFFER_SIZE = 512;
int GetDataBufferSize();
void SetDataBufferSize(int Value);

// Rows holding BLOB bytes, most recently touched last. Beyond MAX_BLOB_CACHE
// bytes the oldest rows give their BLOB bytes up; they are read again when
// shown.
class TBlobCache {
public:
    void Add(TDLRecData* Data);
    void Remove(TDLRecData* Data);
    int Count() const { return static_cast<int>(FList.size()); }

private:
    void DiscardOldBlobs();
    std::vector<TDLRecData*> FList;  // not owned
    bool FModified = false;
};

TBlobCache& BlobCache();

}  // namespace brindle
