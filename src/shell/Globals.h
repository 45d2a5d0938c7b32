// What is selected now, asked by every part of the program through one
// object. The main window installs the callbacks; until it does, and after it
// is gone, every question answers "nothing".
//
// Ownership: GlobalData owns the list of open databases. It is created by
// main() before any window and destroyed after the last one, so that the
// databases close before the engine goes.
// Threading: main thread only.
#pragma once

#include <QString>
#include <functional>
#include <memory>

namespace brindle {

class TDLSQLiteDatabase;
class TDLSQLiteMetadata;
class TMetaList;
class TMetadataBaseItem;
class TDLTableInfo;
class TDLViewInfo;
class TDLSQLDataSet;

enum TItemType { itNone, itDatabase, itTable, itView, itVirtualTable, itShadowTable };

class TGlobalData {
public:
    // Stores itself in GlobalData.
    TGlobalData();
    ~TGlobalData();
    TGlobalData(const TGlobalData&) = delete;
    TGlobalData& operator=(const TGlobalData&) = delete;

    TMetaList& MetaList() const { return *FMetaList; }

    // The table or view behind the focused tree node; null for a database
    // node or no node.
    std::function<TMetadataBaseItem*()> FOnGetCurrentItem;
    // The metadata of the focused node's database.
    std::function<TDLSQLiteMetadata*()> FOnGetCurrentMetadata;
    // The dataset the visible grid shows.
    std::function<TDLSQLDataSet*()> FOnGetCurrentDataSet;
    // Drops the three callbacks, before the window that set them goes.
    void ClearCallbacks();

    TMetadataBaseItem* GetCurrentItem() const;
    TDLSQLiteMetadata* GetCurrentMetadata() const;
    TDLSQLDataSet* GetCurrentDataSet() const;
    TDLSQLiteDatabase* CurrentDatabase() const;
    QString CurrentAlias() const;
    TDLTableInfo* CurrentTableInfo() const;
    TDLViewInfo* CurrentViewInfo() const;
    QString CurrentTableName() const;
    // The table's or view's name, qualified as the metadata holds it.
    QString CurrentItemName() const;
    TItemType CurrentItemType() const;

private:
    std::unique_ptr<TMetaList> FMetaList;
};

// The one instance while it lives; null before and after.
extern TGlobalData* GlobalData;

// The kind of a tree item: null with metadata is the database itself.
TItemType ItemTypeOf(const TDLSQLiteMetadata* Metadata, const TMetadataBaseItem* Item);

// Options of the SQL editors that every editor reads.
extern bool EditorWordWrap;
extern int EditorTabWidth;
// Word wrap of the text editor of a field's value; the editor changes it,
// the main window keeps it as the setting "TextEditorWordWrap".
extern bool TextEditorWordWrap;

}  // namespace brindle
