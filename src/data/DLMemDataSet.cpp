#include "DLMemDataSet.h"

#include "engine/Assert.h"
#include "engine/DLTools.h"

#include <cstring>

namespace brindle {

namespace {

quint32 NumberOf(const QByteArray& Bookmark) {
    quint32 result = 0;
    if (Bookmark.size() >= 4) std::memcpy(&result, Bookmark.constData(), sizeof(result));
    return result;
}

// A row's number, given when the row was made.
class TMemBookmarkData : public TBookmarkData {
public:
    using TBookmarkData::TBookmarkData;
    // A working copy takes the number of the row it copies.
    void UpdateBookmark(int CurRec) override {
        if (TDLRecData* row = FRecData->DataSetData()->GetItems(CurRec))
            FNumber = static_cast<TMemBookmarkData&>(*row->FBookmarkData).FNumber;
    }
    QByteArray GetBookmark() override { return CardinalToRaw(FNumber); }
    void SetBookmarkData(const QByteArray& Data) override { FNumber = NumberOf(Data); }
    int GetBookmarkSize() const override { return 4; }
    quint32 FNumber = 0;
};

}  // namespace

// ---------------------------------------------------------------------------
// TDLMemDataSetData

TDLRecData* TDLMemDataSetData::GetItems(int Index) {
    if (Index < 0 || Index >= ListCount()) return nullptr;
    return FList[static_cast<size_t>(Index)].get();
}

void TDLMemDataSetData::SetItems(int Index, const TDLRecData& Value) {
    TDLRecData* row = GetItems(Index);
    BRINDLE_ASSERT(row, "TDLMemDataSetData::SetItems: no row at the index");
    row->Assign(Value);
}

std::unique_ptr<TDLRecData> TDLMemDataSetData::CreateRecData(bool Sqlite) {
    (void)Sqlite;  // no statement behind these rows: plain typed values
    auto result = std::make_unique<TDLRecData>(this);
    auto bookmark = std::make_unique<TMemBookmarkData>(result.get());
    bookmark->FNumber = ++FLastBookmark;
    result->FBookmarkData = std::move(bookmark);
    return result;
}

int TDLMemDataSetData::GetBookmarkIndex(const QByteArray& Bookmark) {
    if (Bookmark.size() < 4) return -1;
    const quint32 number = NumberOf(Bookmark);
    for (int i = 0; i < ListCount(); ++i)
        if (static_cast<TMemBookmarkData&>(*FList[static_cast<size_t>(i)]->FBookmarkData).FNumber == number) return i;
    return -1;
}

void TDLMemDataSetData::Delete(int Index) {
    if (Index >= 0 && Index < ListCount()) FList.erase(FList.begin() + Index);
}

int TDLMemDataSetData::Append(std::unique_ptr<TDLRecData> Item) {
    FList.push_back(std::move(Item));
    return ListCount() - 1;
}

void TDLMemDataSetData::Insert(int Index, std::unique_ptr<TDLRecData> Item) {
    Index = std::clamp(Index, 0, ListCount());
    FList.insert(FList.begin() + Index, std::move(Item));
}

int TDLMemDataSetData::CompareBookmarks(const QByteArray& Bookmark1, const QByteArray& Bookmark2) {
    if (Bookmark1 == Bookmark2) return 0;
    if (Bookmark1.isEmpty()) return -1;
    if (Bookmark2.isEmpty()) return 1;
    return CompareBytes(Bookmark1, Bookmark2);
}

// ---------------------------------------------------------------------------
// TDLMemDataSet

TDLMemDataSet::TDLMemDataSet() = default;

TDLMemDataSet::~TDLMemDataSet() {
    try {
        Close();
    } catch (...) {  // nothing may leave a destructor
    }
}

void TDLMemDataSet::CreateDataSet() {
    CheckInactive();
    if (FFields.Count() > 0) {
        FFieldDefs.Clear();
        for (int i = 0; i < FFields.Count(); ++i) {
            const TField& f = FFields[i];
            FFieldDefs.Add(f.FieldName(), f.DataType(), f.Size(), f.FRequired);
        }
    }
    Open();
}

void TDLMemDataSet::InternalInitFieldDefs() {
    if (FFieldDefs.Count() > 0) return;
    for (int i = 0; i < FFields.Count(); ++i) {
        const TField& f = FFields[i];
        FFieldDefs.Add(f.FieldName(), f.DataType(), f.Size(), f.FRequired);
    }
}

int TDLMemDataSet::GetRecordCount() {
    return FRecs ? FRecs->GetCount() : 0;
}

std::unique_ptr<TDLDataSetData> TDLMemDataSet::CreateDataRecs() {
    return std::make_unique<TDLMemDataSetData>(this);
}

}  // namespace brindle
