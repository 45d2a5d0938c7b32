#include "DLRecData.h"

#include "engine/Assert.h"
#include "engine/DLTools.h"
#include "engine/Exceptions.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace brindle {

namespace {

// Row numbers in bookmarks are 4 bytes; -1 stands for "no number".
qint64 BookmarkNumber(const QByteArray& Bookmark) {
    if (Bookmark.size() < 4) return -1;
    quint32 result = 0;
    std::memcpy(&result, Bookmark.constData(), sizeof(result));
    return result;
}

}  // namespace

// ---------------------------------------------------------------------------
// Bookmark data of rows

QByteArray TBufferedReadOnlyBookmarkData::GetBookmark() {
    return CardinalToRaw(FBookmarkData);
}

void TBufferedReadOnlyBookmarkData::SetBookmarkData(const QByteArray& Data) {
    const qint64 number = BookmarkNumber(Data);
    if (number >= 0) FBookmarkData = static_cast<quint32>(number);
}

QByteArray TBufferedEditableBookmarkData::GetBookmark() {
    // Made anew each time: the key or the container's update count may have
    // changed since the last call.
    const auto* container = dynamic_cast<const TDLBufferedEditableData*>(FRecData->DataSetData());
    BRINDLE_ASSERT(container, "Editable bookmarks need an editable container");
    TBookmarkRec rec;
    rec.UpdateCount = container->UpdateCount();
    rec.RecNo = FRecNo;
    rec.Key = GetKeyValue(*FRecData);
    const QByteArray encoded = rec.Encode();
    if (encoded != FBookmarkData) FBookmarkData = encoded;
    return FBookmarkData;
}

// ---------------------------------------------------------------------------
// TDLListData

void TDLListData::Sort(const TField& Field, bool Ascending) {
    FSortField = &Field;
    FAscending = Ascending;
    std::stable_sort(
        FList.begin(), FList.end(),
        [&Field, Ascending](const std::unique_ptr<TDLRecData>& A, const std::unique_ptr<TDLRecData>& B) {
            const int result = A->CompareTo(*B, Field);
            return Ascending ? result < 0 : result > 0;
        });
}

// ---------------------------------------------------------------------------
// TDLBufferedData

TDLBufferedData::TDLBufferedData(TRecordOwner* DataSet) : TDLListData(DataSet), FLimit(GetDataBufferSize()) {
    BRINDLE_ASSERT(DataSet, "TDLBufferedData needs a dataset");
}

int TDLBufferedData::GetCount() {
    return FDataSet->GetRecordCount();
}

void TDLBufferedData::SetOffset(int Value) {
    if (Value == FOffset) return;
    FOffset = Value;
    Clear();
}

void TDLBufferedData::SetLimit(int Value) {
    if (Value == FLimit) return;
    FLimit = Value;
    Clear();
}

void TDLBufferedData::Clear() {
    const size_t keep = 2 * static_cast<size_t>(std::max(FLimit, 0));
    for (std::unique_ptr<TDLRecData>& rec : FList)
        if (FSpare.size() < keep && dynamic_cast<TDLSQLiteRecData*>(rec.get())) FSpare.push_back(std::move(rec));
    FList.clear();
}

std::unique_ptr<TDLRecData> TDLBufferedData::NewRow(bool Sqlite) {
    if (!Sqlite || FSpare.empty()) return CreateRecData(Sqlite);
    std::unique_ptr<TDLRecData> rec = std::move(FSpare.back());
    FSpare.pop_back();
    rec->Recycle();
    return rec;
}

bool TDLBufferedData::BringInBuffer(int Index) {
    if (!IndexInBuffer(Index)) {
        int delta;
        if (FSmartBuffering) {
            // Each step backward puts more of the new window before the row.
            if (Index <= FOffset)
                FBackSteps = std::min(FBackSteps + 1, 2);
            else
                FBackSteps = std::max(FBackSteps - 1, 0);
            delta = FLimit * FBackSteps / 2;
        } else {
            delta = FLimit / 2;
        }
        qint64 newOffset = static_cast<qint64>(Index) - delta;
        newOffset = std::max(newOffset, static_cast<qint64>(Index) - FLimit + 1);
        newOffset = std::max<qint64>(newOffset, 0);
        newOffset = std::min<qint64>(newOffset, INT_MAX - FLimit);
        SetOffset(static_cast<int>(newOffset));
        BRINDLE_ASSERT(FDataSet->IsSQLDataSet(), "TDLBufferedData needs a SQL dataset");
        FDataSet->LoadRecords(FOffset, FLimit);
    }
    if (!FList.empty() && BufferCount() + FOffset > FDataSet->GetLastRecNo())
        FDataSet->SetLastRecNo(BufferCount() + FOffset);
    return IndexInBuffer(Index);
}

TDLRecData* TDLBufferedData::GetItems(int Index) {
    if (!BringInBuffer(Index)) return nullptr;
    if (GetCount() == 0 && FDataSet->IsSQLDataSet()) {
        // The count knows of no rows while the window holds some: load the
        // result whole, from its first row.
        SetOffset(0);
        FDataSet->LoadRecords(0, INT_MAX);
        if (!IndexInBuffer(Index)) return nullptr;
    }
    return FList[static_cast<size_t>(Index - FOffset)].get();
}

void TDLBufferedData::SetItems(int Index, const TDLRecData& Value) {
    if (BringInBuffer(Index)) FList[static_cast<size_t>(Index - FOffset)]->Assign(Value);
}

void TDLBufferedData::Delete(int Index) {
    if (BringInBuffer(Index)) FList.erase(FList.begin() + (Index - FOffset));
}

int TDLBufferedData::Append(std::unique_ptr<TDLRecData> Item) {
    if (BufferCount() >= 2 * FLimit) {
        // The window moves on past the rows it drops, so that indexes stay
        // those of the result.
        FOffset += BufferCount();
        Clear();
    }
    FList.push_back(std::move(Item));
    return BufferCount() - 1 + FOffset;
}

void TDLBufferedData::Insert(int Index, std::unique_ptr<TDLRecData> Item) {
    if (BufferCount() >= 2 * FLimit) {
        Clear();
        BringInBuffer(Index);
    }
    const int pos = Index - FOffset;
    BRINDLE_ASSERT(pos >= 0 && pos <= BufferCount(), "TDLBufferedData::Insert: index outside the window");
    FList.insert(FList.begin() + pos, std::move(Item));
}

void TDLBufferedData::UpdateBufferCount() {
    // A grid's rows must fit in one window, twice over for scrolling.
    const int needed = FDataSet->GetBufferCount() * 2;
    if (needed > FLimit) FLimit = needed;
}

void TDLBufferedData::Sort(const TField& Field, bool Ascending) {
    BRINDLE_ASSERT(Sortable(), "TDLBufferedData::Sort: not all rows are loaded");
    TDLListData::Sort(Field, Ascending);
}

// ---------------------------------------------------------------------------
// TDLBufferedReadOnlyData

namespace {

std::unique_ptr<TDLRecData> NewRecData(TDLDataSetData* Container, bool Sqlite) {
    if (Sqlite) return std::make_unique<TDLSQLiteRecData>(Container);
    return std::make_unique<TDLRecData>(Container);
}

}  // namespace

std::unique_ptr<TDLRecData> TDLBufferedReadOnlyData::CreateRecData(bool Sqlite) {
    auto result = NewRecData(this, Sqlite);
    result->FBookmarkData = std::make_unique<TBufferedReadOnlyBookmarkData>(result.get());
    return result;
}

int TDLBufferedReadOnlyData::GetBookmarkIndex(const QByteArray& Bookmark) {
    const qint64 number = BookmarkNumber(Bookmark);
    return number < 0 ? -1 : static_cast<int>(number - 1);
}

void TDLBufferedReadOnlyData::Delete(int Index) {
    (void)Index;
    throw ECustomException(QStringLiteral("Dataset is read-only"));
}

int TDLBufferedReadOnlyData::Append(std::unique_ptr<TDLRecData> Item) {
    TDLRecData* item = Item.get();
    const int result = TDLBufferedData::Append(std::move(Item));
    if (item->FBookmarkData) item->FBookmarkData->UpdateBookmark(result);
    return result;
}

bool TDLBufferedReadOnlyData::BookmarkValid(const QByteArray& Bookmark) {
    // Only the low byte is looked at; kept so on purpose.
    if (Bookmark.isEmpty()) return false;
    const int first = static_cast<unsigned char>(Bookmark.at(0));
    return first != 0 && first <= GetCount();
}

int TDLBufferedReadOnlyData::CompareBookmarks(const QByteArray& Bookmark1, const QByteArray& Bookmark2) {
    if (Bookmark1.constData() == Bookmark2.constData()) return 0;
    if (Bookmark1.isEmpty()) return Bookmark2.isEmpty() ? 0 : -1;
    if (Bookmark2.isEmpty()) return 1;
    return CompareCardinal(static_cast<quint32>(BookmarkNumber(Bookmark1)),
                           static_cast<quint32>(BookmarkNumber(Bookmark2)));
}

// ---------------------------------------------------------------------------
// TDLBufferedEditableData

std::unique_ptr<TDLRecData> TDLBufferedEditableData::CreateRecData(bool Sqlite) {
    auto result = NewRecData(this, Sqlite);
    result->FBookmarkData = std::make_unique<TBufferedEditableBookmarkData>(result.get());
    return result;
}

bool TDLBufferedEditableData::Check(int Index, const QByteArray& Key) {
    const TDLRecData* rec = GetItems(Index);
    return rec && GetKeyValue(*rec) == Key;
}

int TDLBufferedEditableData::GetBookmarkIndex(const QByteArray& Bookmark) {
    const TBookmarkRec rec = TBookmarkRec::GetFromPointer(Bookmark);
    if (!rec.IsValid()) {
        // Without a key there is nothing to look for.
        FLastBookmarkIndex = -1;
        return -1;
    }
    if (rec.UpdateCount == FUpdateCount) {
        FLastBookmarkIndex = static_cast<int>(rec.RecNo) - 1;
        return FLastBookmarkIndex;
    }

    // Rows were posted or deleted since: look for the key, nearest first.
    // Only the last step may move the window.
    int found = -1;
    for (const int candidate : {FLastBookmarkIndex, FLastBookmarkIndex + 1, FLastBookmarkIndex - 1}) {
        if (IndexInBuffer(candidate) && Check(candidate, rec.Key)) {
            found = candidate;
            break;
        }
    }
    if (found < 0) {
        const int first = FOffset;
        const int last = FOffset + BufferCount();
        for (int i = first; i < last && found < 0; ++i)
            if (Check(i, rec.Key)) found = i;
    }
    if (found < 0) {
        // The count may grow while the window moves on.
        for (int i = 0; i < GetCount() && found < 0; ++i)
            if (Check(i, rec.Key)) found = i;
    }
    FLastBookmarkIndex = found;
    return found;
}

bool TDLBufferedEditableData::BookmarkValid(const QByteArray& Bookmark) {
    return TBookmarkRec::GetFromPointer(Bookmark).IsValid();
}

int TDLBufferedEditableData::CompareBookmarks(const QByteArray& Bookmark1, const QByteArray& Bookmark2) {
    if (Bookmark1.constData() == Bookmark2.constData()) return 0;
    if (Bookmark1.isEmpty()) return Bookmark2.isEmpty() ? 0 : -1;
    if (Bookmark2.isEmpty()) return 1;
    return TBookmarkRec::GetFromPointer(Bookmark1).CompareTo(TBookmarkRec::GetFromPointer(Bookmark2));
}

}  // namespace brindle
