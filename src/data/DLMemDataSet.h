// A dataset with no database behind it: rows kept in a list in memory, for
// import previews, generated data and batches on their way to a table.
#pragma once

#include "DLDataSet.h"

namespace brindle {

// The rows of a TDLMemDataSet. Each row gets a number when it is made, and
// numbers are never handed out twice, so bookmarks survive sorts and
// deletes. Finding a bookmark scans the list: these sets hold previews and
// batches, not tables.
class TDLMemDataSetData : public TDLListData {
public:
    using TDLListData::TDLListData;

    TDLRecData* GetItems(int Index) override;
    void SetItems(int Index, const TDLRecData& Value) override;
    int GetCount() override { return ListCount(); }
    void Clear() override { FList.clear(); }
    std::unique_ptr<TDLRecData> CreateRecData(bool Sqlite) override;
    int GetBookmarkIndex(const QByteArray& Bookmark) override;
    void Delete(int Index) override;
    int Append(std::unique_ptr<TDLRecData> Item) override;
    void Insert(int Index, std::unique_ptr<TDLRecData> Item) override;
    bool Sortable() override { return true; }
    bool AllRecordsLoaded() override { return true; }
    int GetBookmarkSize() override { return 4; }
    bool BookmarkValid(const QByteArray& Bookmark) override { return GetBookmarkIndex(Bookmark) >= 0; }
    int CompareBookmarks(const QByteArray& Bookmark1, const QByteArray& Bookmark2) override;

private:
    quint32 FLastBookmark = 0;
};

class TDLMemDataSet : public TDLDataSet {
public:
    TDLMemDataSet();
    ~TDLMemDataSet() override;

    // Field definitions from the fields made beforehand, then open.
    void CreateDataSet();
    int GetRecordCount() override;

protected:
    void InternalInitFieldDefs() override;
    std::unique_ptr<TDLDataSetData> CreateDataRecs() override;
};

}  // namespace brindle
