#include "Globals.h"

#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteMetadata.h"
#include "workbench/Caches.h"

namespace brindle {

TGlobalData* GlobalData = nullptr;
bool EditorWordWrap = false;
int EditorTabWidth = 2;
bool TextEditorWordWrap = false;

TGlobalData::TGlobalData() : FMetaList(std::make_unique<TMetaList>()) {
    GlobalData = this;
}

TGlobalData::~TGlobalData() {
    ClearCallbacks();
    FMetaList.reset();
    if (GlobalData == this) GlobalData = nullptr;
}

void TGlobalData::ClearCallbacks() {
    FOnGetCurrentItem = nullptr;
    FOnGetCurrentMetadata = nullptr;
    FOnGetCurrentDataSet = nullptr;
}

TMetadataBaseItem* TGlobalData::GetCurrentItem() const {
    return FOnGetCurrentItem ? FOnGetCurrentItem() : nullptr;
}

TDLSQLiteMetadata* TGlobalData::GetCurrentMetadata() const {
    return FOnGetCurrentMetadata ? FOnGetCurrentMetadata() : nullptr;
}

TDLSQLDataSet* TGlobalData::GetCurrentDataSet() const {
    return FOnGetCurrentDataSet ? FOnGetCurrentDataSet() : nullptr;
}

TDLSQLiteDatabase* TGlobalData::CurrentDatabase() const {
    const TDLSQLiteMetadata* md = GetCurrentMetadata();
    return md ? md->SQLiteDatabase() : nullptr;
}

QString TGlobalData::CurrentAlias() const {
    const TDLSQLiteDatabase* db = CurrentDatabase();
    return db ? db->AliasName() : QString();
}

TDLTableInfo* TGlobalData::CurrentTableInfo() const {
    return dynamic_cast<TDLTableInfo*>(GetCurrentItem());
}

TDLViewInfo* TGlobalData::CurrentViewInfo() const {
    return dynamic_cast<TDLViewInfo*>(GetCurrentItem());
}

QString TGlobalData::CurrentTableName() const {
    const TDLTableInfo* table = CurrentTableInfo();
    return table ? table->FTableName : QString();
}

QString TGlobalData::CurrentItemName() const {
    if (const TDLTableInfo* table = CurrentTableInfo()) return table->FTableName;
    if (const TDLViewInfo* view = CurrentViewInfo()) return view->FViewName;
    return QString();
}

TItemType TGlobalData::CurrentItemType() const {
    return ItemTypeOf(GetCurrentMetadata(), GetCurrentItem());
}

TItemType ItemTypeOf(const TDLSQLiteMetadata* Metadata, const TMetadataBaseItem* Item) {
    if (!Item) return Metadata ? itDatabase : itNone;
    if (const auto* table = dynamic_cast<const TSQLiteTableInfo*>(Item)) {
        if (table->FIsVirtual) return itVirtualTable;
        if (table->FIsShadow) return itShadowTable;
        return itTable;
    }
    if (dynamic_cast<const TDLTableInfo*>(Item)) return itTable;
    if (dynamic_cast<const TDLViewInfo*>(Item)) return itView;
    return itNone;
}

}  // namespace brindle
