// The cursor framework the datasets stand on: fields, a state machine, the
// active record buffer, bookmarks, filter properties and events. A subclass
// supplies the rows through the Internal* operations and GetRecord; views
// (the grid model, exporters) listen to data events.
//
// Records are TDLRecData objects; the dataset owns its working buffers.
// One thread at a time.
#pragma once

#include "DLFields.h"
#include "DLRecordOwner.h"

#include <QByteArray>
#include <QVariant>
#include <functional>
#include <memory>
#include <vector>

namespace brindle {

class TDLRecData;

enum TDataSetState {
    dsInactive,
    dsBrowse,
    dsEdit,
    dsInsert,
    dsSetKey,
    dsCalcFields,
    dsFilter,
    dsNewValue,
    dsOldValue,
    dsCurValue,
    dsOpening
};
enum TGetMode { gmCurrent, gmNext, gmPrior };
enum TGetResult { grOK, grBOF, grEOF, grError };
enum TDataEvent { deFieldChange, deRecordChange, deDataSetChange, deDataSetScroll, deLayoutChange, deUpdateState };
enum TLocateOption { loCaseInsensitive = 1, loPartialKey = 2 };
enum TFilterOption { foCaseInsensitive = 1, foNoPartialCompare = 2 };

using TBookmark = QByteArray;

class TDataSet;

// Told of every change a view must follow. Registered listeners are not
// owned and must unregister before they die.
class IDataSetListener {
public:
    virtual ~IDataSetListener() = default;
    virtual void DataEvent(TDataSet& DataSet, TDataEvent Event) = 0;
};

class TDataSet : public TRecordOwner {
public:
    using TNotifyEvent = std::function<void(TDataSet&)>;
    using TFilterRecordEvent = std::function<void(TDataSet&, bool& Accept)>;

    TDataSet();
    ~TDataSet() override;
    TDataSet(const TDataSet&) = delete;
    TDataSet& operator=(const TDataSet&) = delete;

    // --- state -------------------------------------------------------------
    TDataSetState State() const { return FState; }
    bool Active() const { return FState != dsInactive; }
    virtual void SetActive(bool Value);
    void Open() { SetActive(true); }
    void Close() { SetActive(false); }
    void CheckActive() const;
    void CheckInactive() const;
    // Posts a pending edit or insert.
    void CheckBrowseMode();

    // --- navigation --------------------------------------------------------
    void First();
    void Last();
    void Next();
    void Prior();
    bool Eof() const { return FEof; }
    bool Bof() const { return FBof; }
    bool IsEmpty() const { return FEof && FBof; }
    virtual int GetRecNo() { return -1; }
    virtual void SetRecNo(int Value) { (void)Value; }
    int GetRecordCount() override { return -1; }
    void Resync();
    void Refresh();

    // --- editing -----------------------------------------------------------
    void Edit();
    void Insert();
    void Append();
    void Post();
    void Cancel();
    void Delete();

    // --- fields ------------------------------------------------------------
    TFields& Fields() { return FFields; }
    const TFields& GetFields() const override { return FFields; }
    TFieldDefs& FieldDefs() { return FFieldDefs; }
    TField* FindField(const QString& FieldName) const { return FFields.FindField(FieldName); }
    TField& FieldByName(const QString& FieldName) const { return FFields.FieldByName(FieldName); }
    // The value of a field in the record the state selects; invalid for null.
    virtual QVariant GetFieldValue(const TField& Field) const;
    virtual void SetFieldValue(const TField& Field, const QVariant& Value);
    virtual QVariant GetOldFieldValue(const TField& Field) const;
    // The record the state selects (the row under the cursor, the one being
    // edited, the one under the filter); null when none.
    TDLRecData* ActiveRecData() const { return GetActiveRecData(); }
    // Tells the views that a field of the active record was written directly.
    void NotifyFieldChange() { DataEvent(deFieldChange); }

    // --- bookmarks ---------------------------------------------------------
    TBookmark GetBookmark();
    // Raises "Bookmark not found" when the row is gone.
    void GotoBookmark(const TBookmark& Bookmark);
    virtual bool BookmarkValid(const TBookmark& Bookmark) { (void)Bookmark; return false; }
    virtual int CompareBookmarks(const TBookmark& Bookmark1, const TBookmark& Bookmark2) {
        (void)Bookmark1;
        (void)Bookmark2;
        return 0;
    }

    // --- filter properties -------------------------------------------------
    const QString& Filter() const { return FFilterText; }
    virtual void SetFilterText(const QString& Value) { FFilterText = Value; }
    bool Filtered() const { return FFiltered; }
    virtual void SetFiltered(bool Value) { FFiltered = Value; }
    int FilterOptions() const { return FFilterOptions; }
    virtual void SetFilterOptions(int Value) { FFilterOptions = Value; }

    // --- views and events --------------------------------------------------
    void AddListener(IDataSetListener* Listener);
    void RemoveListener(IDataSetListener* Listener);
    void DisableControls() { ++FDisableCount; }
    void EnableControls();
    bool ControlsDisabled() const { return FDisableCount > 0; }

    TNotifyEvent BeforeOpen, AfterOpen, BeforeClose, AfterClose, BeforeInsert, AfterInsert, BeforeEdit, AfterEdit,
        BeforePost, AfterPost, BeforeCancel, AfterCancel, BeforeDelete, AfterDelete, BeforeScroll, AfterScroll,
        OnNewRecord;
    TFilterRecordEvent OnFilterRecord;

    // --- TRecordOwner ------------------------------------------------------
    int GetBufferCount() const override { return 1; }

protected:
    // What a subclass supplies.
    virtual void InternalOpen() = 0;
    virtual void InternalClose() = 0;
    virtual bool IsCursorOpen() const = 0;
    virtual std::unique_ptr<TDLRecData> AllocRecordBuffer() = 0;
    // Fills Buffer with the record GetMode selects and moves the cursor.
    virtual TGetResult GetRecord(TDLRecData& Buffer, TGetMode GetMode, bool DoCheck) = 0;
    virtual void InternalFirst() = 0;
    virtual void InternalLast() = 0;
    // Puts the cursor on the row whose copy Buffer holds.
    virtual void InternalSetToRecord(TDLRecData& Buffer) = 0;
    virtual void InternalGotoBookmark(const TBookmark& Bookmark) = 0;
    virtual TBookmark GetBookmarkData(TDLRecData& Buffer) = 0;
    virtual void InternalInitRecord(TDLRecData& Buffer) = 0;
    virtual void InternalEdit() {}
    virtual void InternalInsert() {}
    virtual void InternalPost() = 0;
    virtual void InternalCancel() {}
    virtual void InternalDelete() = 0;
    virtual void InternalRefresh() = 0;
    virtual void InternalInitFieldDefs() = 0;
    // Fields from the definitions, when none were made beforehand.
    virtual void CreateFields();

    virtual void DoBeforeClose();
    virtual void DoAfterPost();
    virtual void DoOnNewRecord();
    // After a refresh put the cursor back where it was by position.
    virtual void DoAfterRefresh() {}
    void DoBeforeScroll();
    void DoAfterScroll();
    void SetState(TDataSetState Value);
    void SetTempState(TDataSetState Value, TDataSetState& Saved);
    void RestoreState(TDataSetState Saved);
    void DataEvent(TDataEvent Event);

    // The buffer the state selects; null when none.
    virtual TDLRecData* GetActiveRecData() const;
    TDLRecData* ActiveBuffer() const { return FActiveBuffer.get(); }
    // Rereads the active row after the cursor changed underneath.
    void ReadActive(TGetMode Mode);

    TFields FFields;
    TFieldDefs FFieldDefs;
    TDataSetState FState = dsInactive;
    bool FBof = true;
    bool FEof = true;
    std::unique_ptr<TDLRecData> FActiveBuffer;
    bool FHasActive = false;  // the active buffer holds a row
    QString FFilterText;
    bool FFiltered = false;
    int FFilterOptions = 0;

private:
    std::vector<IDataSetListener*> FListeners;  // not owned
    int FDisableCount = 0;
    bool FPendingChange = false;
};

// The values of the named fields (";" between names, quoted or not) in the
// record the state selects; "Field '%s' not found" for a name it lacks.
QVariantList GetFieldValues(const TDataSet& DataSet, const QString& FieldNames);

// Views of the dataset wait for the scope's end: controls are disabled
// while it lives, and enabled again however it ends.
class TControlsDisabled {
public:
    explicit TControlsDisabled(TDataSet& DataSet) : FDataSet(DataSet) { FDataSet.DisableControls(); }
    ~TControlsDisabled() { FDataSet.EnableControls(); }
    TControlsDisabled(const TControlsDisabled&) = delete;
    TControlsDisabled& operator=(const TControlsDisabled&) = delete;

private:
    TDataSet& FDataSet;
};

}  // namespace brindle
