#include "data/DLRecData.h"
#include "engine/DLDateTime.h"
#include "engine/Exceptions.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <utility>

namespace brindle {
namespace {

// A result served from memory: column i holds the row's number and is the
// key, column t a text. It counts like a SQL result, twice the rows seen
// until the end was read, so the window has to find the end by itself.
class MemOwner : public TRecordOwner {
public:
    explicit MemOwner(int Rows, const std::vector<std::pair<QString, TFieldType>>& Defs = {
                                    {"i", ftLargeint}, {"t", ftWideString}}) {
        for (const auto& [name, type] : Defs)
            FFields.Add(std::make_unique<TField>(nullptr, name, type, 0, FFields.Count()));
        for (int r = 0; r < Rows; ++r) FRows.push_back(r);
    }

    const TFields& GetFields() const override { return FFields; }
    QStringList GetKeyFieldNames() const override { return {"i"}; }
    int GetRecordCount() override { return FEof ? FLastRecNo : FLastRecNo * 2; }
    bool IsSQLDataSet() const override { return true; }
    bool CanLoadField(const TField&) const override { return true; }  // as if a rowid came along
    void LoadRecords(int Offset, int Limit) override {
        ++Loads;
        Data->Clear();
        const qint64 end = std::min<qint64>(qint64(Offset) + Limit, qint64(FRows.size()));
        for (qint64 r = Offset; r < end; ++r) {
            auto rec = Data->CreateRecData(true);
            rec->SetField(FFields[0], FRows[size_t(r)]);
            if (FFields.Count() > 1 && FFields[1].DataType() == ftWideString)
                rec->SetField(FFields[1], QStringLiteral("row %1").arg(FRows[size_t(r)]));
            rec->ClearModifiedFlag();
            Data->Append(std::move(rec));
        }
        FLastRecNo = std::max(FLastRecNo, int(std::max<qint64>(end, 0)));
        if (qint64(Offset) + Limit > qint64(FRows.size())) FEof = true;
    }
    int GetLastRecNo() const override { return FLastRecNo; }
    void SetLastRecNo(int Value) override { FLastRecNo = Value; }
    int GetBufferCount() const override { return 20; }

    // Deletes in the source, as a posted delete would.
    void DeleteRow(int Index) {
        FRows.erase(FRows.begin() + Index);
        --FLastRecNo;
    }

    const TField& Field(int i) const { return FFields[i]; }
    TDLDataSetData* Data = nullptr;
    int Loads = 0;

private:
    TFields FFields;
    std::vector<qint64> FRows;
    int FLastRecNo = 0;
    bool FEof = false;
};

qint64 Key(TDLRecData* Rec, const TField& Field) {
    QVariant v;
    return Rec && Rec->GetField(Field, &v) ? v.toLongLong() : -1;
}

TEST(RawData, ReadingChecksTheLength) {
    EXPECT_TRUE(RawToBool(BoolToRaw(true)));
    EXPECT_FALSE(RawToBool(QByteArray("\1\1", 2)));
    EXPECT_EQ(RawToInt64(Int64ToRaw(-5)), -5);
    EXPECT_EQ(RawToInt64(QByteArray("\x01\x02", 2)), 0x0201);  // shorter integers are their low bytes
    EXPECT_EQ(RawToInt64(QByteArray(9, '\1')), 0);
    EXPECT_EQ(RawToInt64(QByteArray()), 0);
    EXPECT_EQ(RawToFloat(FloatToRaw(2.5)), 2.5);
    EXPECT_EQ(RawToFloat(FloatToRaw(2.5).left(7)), 0.0);
    EXPECT_EQ(RawToCurrency(CurrencyToRaw(12345)), 12345);
    EXPECT_EQ(RawToCurrency(Int64ToRaw(1).left(4)), 0);
    const QUuid guid(QStringLiteral("{00112233-4455-6677-8899-aabbccddeeff}"));
    EXPECT_EQ(RawToGUID(GUIDToRaw(guid)), guid);
    EXPECT_TRUE(RawToGUID(GUIDToRaw(guid).left(15)).isNull());
    const QString text = QStringLiteral("a\u00e9\u20ac");
    EXPECT_EQ(StringToRaw(text).size(), 6);
    EXPECT_EQ(RawToString(StringToRaw(text) + 'x'), text);  // an odd byte is no character
    EXPECT_EQ(AnsiStringToRaw(QStringLiteral("\u00e9")), QByteArray("\xe9"));
    EXPECT_EQ(DataTypeToSupportedDataType(ftAutoInc), ftLargeint);
    EXPECT_EQ(DataTypeToSupportedDataType(ftVarBytes), ftBlob);
    EXPECT_EQ(DataTypeToSupportedDataType(ftFixedChar), ftWideString);
    EXPECT_EQ(DataTypeToSupportedDataType(ftGuid), ftGuid);
}

TEST(RecData, TypedValuesNullsAndBlobFlags) {
    MemOwner owner(0, {{"s", ftString},
                       {"w", ftWideString},
                       {"b", ftBoolean},
                       {"f", ftFloat},
                       {"c", ftCurrency},
                       {"d", ftDateTime},
                       {"l", ftLargeint},
                       {"g", ftGuid},
                       {"blob", ftBlob}});
    TDLBufferedReadOnlyData data(&owner);
    owner.Data = &data;
    auto rec = data.CreateRecData(false);
    const QVariant values[] = {QStringLiteral("\u00e9t\u00e9"),
                               QStringLiteral("\u20ac"),
                               true,
                               1.5,
                               qint64(25000),
                               45000.25,
                               qint64(-7),
                               QUuid(QStringLiteral("{00112233-4455-6677-8899-aabbccddeeff}"))};
    for (int i = 0; i < 8; ++i) {
        const TField& f = owner.Field(i);
        rec->SetField(f, values[i]);
        QVariant v;
        EXPECT_TRUE(rec->GetField(f, &v)) << i;
        EXPECT_EQ(v, values[i]) << i;
        EXPECT_TRUE(rec->GetModified(i));

        rec->SetField(f, QVariant());
        QVariant untouched(42);
        EXPECT_FALSE(rec->GetField(f, &untouched)) << i;
        EXPECT_EQ(untouched, QVariant(42));
        rec->SetField(f, values[i]);
    }
    EXPECT_EQ(rec->GetRawData(0).size(), 3);  // narrow text: a byte a character
    EXPECT_EQ(rec->GetRawData(1).size(), 2);

    // The stream keeps flags and bytes of every field.
    const TField& blob = owner.Field(8);
    rec->SetHasData(8, true);
    rec->SetData(blob, QByteArray("\0\1\2", 3));
    auto copy = data.CreateRecData(false);
    copy->LoadFromStream(rec->SaveToStream());
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(copy->GetRawData(i), rec->GetRawData(i)) << i;
        EXPECT_EQ(copy->GetHasData(i), rec->GetHasData(i)) << i;
        EXPECT_EQ(copy->GetModified(i), rec->GetModified(i)) << i;
    }
    // A stream cut short anywhere is refused as damaged, never read past.
    const QByteArray stream = rec->SaveToStream();
    for (const qsizetype cut : {qsizetype(0), qsizetype(3), stream.size() - 1})
        EXPECT_THROW(copy->LoadFromStream(stream.left(cut)), ECustomException) << cut;

    // Emptying a BLOB marks it full and leaves has-data alone.
    copy->DiscardData(8);
    copy->SetData(blob, QByteArray());
    EXPECT_TRUE(copy->GetHasData(8));
    EXPECT_TRUE(copy->GetFullData(8));
    auto fresh = data.CreateRecData(false);
    fresh->SetData(blob, QByteArray());
    EXPECT_FALSE(fresh->GetHasData(8));
    EXPECT_TRUE(fresh->GetFullData(8));

    // Discarded BLOB bytes are still a value, only not in memory.
    EXPECT_EQ(rec->TotalBlobSize(), 3);
    rec->SetModified(8, true);
    rec->DiscardBlobs();
    EXPECT_TRUE(rec->GetFullData(8));  // an edit not posted keeps its bytes
    rec->ClearModifiedFlag();
    rec->DiscardBlobs();
    EXPECT_TRUE(rec->GetHasData(8));
    EXPECT_FALSE(rec->GetFullData(8));
    EXPECT_TRUE(rec->GetRawData(8).isEmpty());
    EXPECT_EQ(rec->GetRawData(6), Int64ToRaw(-7));  // other fields keep theirs
}

TEST(RecData, NullSortsFirstAndDescendingPutsItLast) {
    MemOwner owner(4);
    TDLBufferedEditableData data(&owner);
    owner.Data = &data;
    const TField& i = owner.Field(0);
    ASSERT_NE(data.GetItems(0), nullptr);
    ASSERT_TRUE(data.Sortable());
    data.GetItems(2)->SetField(i, QVariant());

    const auto order = [&] {
        std::vector<qint64> keys;
        for (int r = 0; r < 4; ++r) keys.push_back(Key(data.GetItems(r), i));
        return keys;
    };
    data.Sort(i, true);
    EXPECT_EQ(order(), (std::vector<qint64>{-1, 0, 1, 3}));
    data.Sort(i, false);
    EXPECT_EQ(order(), (std::vector<qint64>{3, 1, 0, -1}));

    // Numbers compare by value whatever class holds them.
    auto* a = dynamic_cast<TDLSQLiteRecData*>(data.GetItems(0));
    auto* b = dynamic_cast<TDLSQLiteRecData*>(data.GetItems(1));
    ASSERT_TRUE(a && b);
    b->SetRawData(0, FloatToRaw(2.5));
    b->SetStorageClass(0, scFloat);
    const TField asFloat(nullptr, "i", ftFloat, 0, 0);
    EXPECT_GT(a->CompareTo(*b, asFloat), 0);  // 3 against 2.5
    EXPECT_LT(b->CompareTo(*a, asFloat), 0);
}

// The value of slot 0, stored with a class, read as a field of Type.
QVariant ReadAs(TDLSQLiteRecData& Rec, int StorageClass, const QByteArray& Raw, TFieldType Type) {
    Rec.SetHasData(0, true);
    Rec.SetRawData(0, Raw);
    Rec.SetStorageClass(0, StorageClass);
    QVariant v;
    EXPECT_TRUE(Rec.GetField(TField(nullptr, "x", Type, 0, 0), &v));
    return v;
}

TEST(SQLiteRecData, StoredValuesReadAsTheFieldType) {
    MemOwner owner(0, {{"x", ftWideString}});
    TDLBufferedReadOnlyData data(&owner);
    owner.Data = &data;
    auto holder = data.CreateRecData(true);
    auto& rec = dynamic_cast<TDLSQLiteRecData&>(*holder);
    const auto text = [](const char* s) { return StringToRaw(QString::fromUtf8(s)); };

    EXPECT_EQ(ReadAs(rec, scInteger, Int64ToRaw(42), ftWideString), QVariant(QStringLiteral("42")));
    EXPECT_EQ(ReadAs(rec, scFloat, FloatToRaw(0.1), ftWideString), QVariant(QStringLiteral("0.1")));
    EXPECT_EQ(ReadAs(rec, scInteger, Int64ToRaw(2), ftBoolean), QVariant(true));
    EXPECT_EQ(ReadAs(rec, scText, text("yes"), ftBoolean), QVariant(false));
    EXPECT_EQ(ReadAs(rec, scText, text("True"), ftBoolean), QVariant(true));
    EXPECT_EQ(ReadAs(rec, scText, text("-3"), ftBoolean), QVariant(true));
    EXPECT_EQ(ReadAs(rec, scText, text("12345678901"), ftLargeint), QVariant(qint64(0)));
    EXPECT_EQ(ReadAs(rec, scText, text("-123"), ftLargeint), QVariant(qint64(-123)));
    EXPECT_EQ(ReadAs(rec, scFloat, FloatToRaw(2.5), ftLargeint), QVariant(qint64(2)));
    EXPECT_EQ(ReadAs(rec, scFloat, FloatToRaw(1.25), ftCurrency), QVariant(1.25));
    EXPECT_EQ(ReadAs(rec, scText, text("abc"), ftFloat), QVariant(0.0));
    EXPECT_EQ(ReadAs(rec, scText, text("2024-01-02"), ftDate), QVariant(StringToDateTime("2024-01-02")));
    EXPECT_EQ(ReadAs(rec, scInteger, Int64ToRaw(45000), ftDateTime), QVariant(45000.0));
    const QUuid guid(QStringLiteral("{00112233-4455-6677-8899-aabbccddeeff}"));
    EXPECT_EQ(ReadAs(rec, scText, text("00112233-4455-6677-8899-aabbccddeeff"), ftGuid), QVariant(guid));
    EXPECT_EQ(ReadAs(rec, scText, QByteArray(), ftGuid), QVariant(QUuid()));
    EXPECT_EQ(ReadAs(rec, scInteger, Int64ToRaw(1), ftGuid), QVariant(QUuid()));

    // Dates are written as text; other values in their type's class.
    const TField date(nullptr, "x", ftDate, 0, 0), stamp(nullptr, "x", ftDateTime, 0, 0);
    rec.SetField(date, 45000.5);
    EXPECT_EQ(rec.GetStorageClass(0), scText);
    EXPECT_EQ(RawToString(rec.GetRawData(0)), DateToString(45000.5));
    rec.SetField(stamp, 45000.5);
    EXPECT_EQ(RawToString(rec.GetRawData(0)), DateTimeToString(45000.5));
    rec.SetField(stamp, QVariant());
    EXPECT_EQ(rec.GetStorageClass(0), scNull);
    EXPECT_FALSE(rec.GetHasData(0));
    const TField money(nullptr, "x", ftCurrency, 0, 0);
    rec.SetField(money, 1.25);
    EXPECT_EQ(rec.GetStorageClass(0), scFloat);
    EXPECT_EQ(RawToFloat(rec.GetRawData(0)), 1.25);

    EXPECT_EQ(DefaultStorageClass(ftBoolean), 1);
    EXPECT_EQ(DefaultStorageClass(ftCurrency), 2);
    EXPECT_EQ(DefaultStorageClass(ftWideMemo), 3);
    EXPECT_EQ(DefaultStorageClass(ftTime), 3);
    EXPECT_EQ(DefaultStorageClass(ftGraphic), 4);
    EXPECT_EQ(DefaultStorageClass(ftGuid), 4);
    EXPECT_EQ(DefaultStorageClass(ftFixedChar), 3);

    // A copied value keeps its class, so it reads the same in the copy.
    rec.SetField(TField(nullptr, "x", ftLargeint, 0, 0), qint64(42));
    auto other = data.CreateRecData(true);
    other->CopyFrom(rec);
    QVariant v;
    EXPECT_TRUE(other->GetField(owner.Field(0), &v));
    EXPECT_EQ(v, QVariant(QStringLiteral("42")));

    // The native bytes of text are those of the file's encoding.
    rec.FEncoding = 65001;
    ReadAs(rec, scText, text("\u00e9"), ftWideString);
    EXPECT_EQ(rec.GetNativeData(owner.Field(0)), QByteArray("\xc3\xa9"));
    rec.SetNativeData(owner.Field(0), QByteArray("\xe2\x82\xac"));
    EXPECT_EQ(RawToString(rec.GetRawData(0)), QStringLiteral("\u20ac"));
}

TEST(BufferedData, WindowFollowsTheReaderAndReadOnlyBookmarks) {
    MemOwner owner(3000);
    TDLBufferedReadOnlyData data(&owner);
    owner.Data = &data;
    const TField& i = owner.Field(0);
    ASSERT_EQ(data.Limit(), 512);

    EXPECT_EQ(Key(data.GetItems(0), i), 0);
    EXPECT_EQ(Key(data.GetItems(1000), i), 1000);  // forward: the window begins at the row
    EXPECT_EQ(data.Offset(), 1000);
    EXPECT_EQ(data.BufferCount(), 512);
    EXPECT_EQ(owner.GetLastRecNo(), 1512);
    EXPECT_EQ(Key(data.GetItems(999), i), 999);  // turning: the row in the middle
    EXPECT_EQ(data.Offset(), 743);
    EXPECT_EQ(Key(data.GetItems(742), i), 742);  // backward: the window ends at the row
    EXPECT_EQ(data.Offset(), 231);
    EXPECT_EQ(data.Offset() + data.BufferCount() - 1, 742);
    const int loads = owner.Loads;
    data.GetItems(500);
    EXPECT_EQ(owner.Loads, loads);
    EXPECT_FALSE(data.Sortable());

    // Past the end there is no row; the count becomes exact.
    EXPECT_EQ(data.GetItems(3000), nullptr);
    EXPECT_EQ(data.GetCount(), 3000);

    data.SetSmartBuffering(false);
    data.GetItems(2000);
    EXPECT_EQ(data.Offset(), 1744);

    // Bookmarks are row numbers; validity looks at the low byte only.
    const QByteArray row256 = data.GetItems(255)->FBookmarkData->GetBookmark();
    EXPECT_EQ(row256.at(0), 0);
    EXPECT_EQ(data.GetBookmarkIndex(row256), 255);
    EXPECT_FALSE(data.BookmarkValid(row256));
    const QByteArray row255 = data.GetItems(254)->FBookmarkData->GetBookmark();
    EXPECT_TRUE(data.BookmarkValid(row255));
    EXPECT_LT(data.CompareBookmarks(row255, row256), 0);
    EXPECT_LT(data.CompareBookmarks(QByteArray(), row256), 0);

    try {
        data.Delete(0);
        FAIL() << "Delete succeeded";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), "Dataset is read-only");
    }
}

TEST(BufferedData, EditableBookmarkFindsItsRowByKey) {
    MemOwner owner(2000);
    TDLBufferedEditableData data(&owner);
    owner.Data = &data;
    const TField& i = owner.Field(0);

    // The dataset's own buffer holds a copy of the row.
    auto buffer = data.CreateRecData(true);
    buffer->Assign(*data.GetItems(700));
    buffer->FBookmarkData->UpdateBookmark(700);
    const QByteArray bookmark = buffer->FBookmarkData->GetBookmark();
    ASSERT_TRUE(data.BookmarkValid(bookmark));
    EXPECT_EQ(data.GetBookmarkIndex(bookmark), 700);

    owner.DeleteRow(10);
    data.Delete(10);
    data.RecordUpdated();
    EXPECT_EQ(data.Offset(), 0);  // the bookmarked row is no longer in the window

    const int index = data.GetBookmarkIndex(bookmark);
    EXPECT_EQ(index, 699);
    EXPECT_EQ(Key(data.GetItems(index), i), 700);
    EXPECT_NE(buffer->FBookmarkData->GetBookmark(), bookmark);  // made anew for the new count

    // Bytes without the marker or without a key are no bookmark.
    EXPECT_FALSE(data.BookmarkValid(QByteArray(20, '\1')));
    TBookmarkRec empty;
    EXPECT_FALSE(data.BookmarkValid(empty.Encode()));
    EXPECT_EQ(data.GetBookmarkIndex(QByteArray(20, '\1')), -1);
}

TEST(BlobCache, NewestRowsKeepTheirBytes) {
    MemOwner owner(0, {{"i", ftLargeint}, {"b", ftBlob}});
    TDLBufferedReadOnlyData data(&owner);
    owner.Data = &data;
    const TField& b = owner.Field(1);
    // One allocation shared by all rows: the cache counts bytes per row.
    const QByteArray bytes(100 * 1024 * 1024, 'x');
    const int before = BlobCache().Count();

    std::vector<std::unique_ptr<TDLRecData>> rows;
    for (int r = 0; r < 3; ++r) {
        rows.push_back(data.CreateRecData(true));
        rows.back()->SetHasData(1, true);
        rows.back()->SetData(b, bytes);
    }
    EXPECT_TRUE(rows[0]->GetHasData(1));
    EXPECT_FALSE(rows[0]->GetFullData(1));
    EXPECT_TRUE(rows[0]->GetRawData(1).isEmpty());
    for (int r = 1; r < 3; ++r) {
        EXPECT_TRUE(rows[size_t(r)]->GetFullData(1));
        EXPECT_EQ(rows[size_t(r)]->GetRawData(1).size(), bytes.size());
    }
    EXPECT_EQ(BlobCache().Count(), before + 2);
    rows.clear();
    EXPECT_EQ(BlobCache().Count(), before);
}

}  // namespace
}  // namespace brindle
