// The windows that edit one value or one row of a dataset: the hex editor,
// the image editor and the text editor for a field of the current row, and
// the record editor for the whole row. Each is modal. A value goes back
// through Edit and Post of the dataset, only when the field can be written
// and the user changed it; a post that fails keeps the window open with the
// engine's message, so that the value can be mended or the edit cancelled.
//
// The functions work on the dataset's current row: the caller moves the
// cursor there first. The dataset must outlive the window.
#pragma once

#include "engine/DLParams.h"
#include "tools/ImageTools.h"

#include <QDialog>
#include <QImage>
#include <QVariant>
#include <memory>
#include <vector>

class QCheckBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QScrollArea;
class QFormLayout;
class QLayout;

namespace brindle {

class TDataSet;
class TField;
class THexView;

// The data grid's record-number column, which no table has and the record
// editor leaves out.
inline const QString kRecNoFieldName = QStringLiteral("{57B7525E-9944-428E-A7B5-2C932F2035E7}");

// The value editors; true when the value was changed and posted.
bool EditBlob(QWidget* Parent, TField& Field);
bool EditImage(QWidget* Parent, TField& Field);
bool EditMemo(QWidget* Parent, TField& Field);
// True when the window posted the row (OK, or a value editor opened from it).
bool EditRecord(QWidget* Parent, TDataSet& DataSet);
// The grid's way into a BLOB-like cell: memo types the text editor, graphic
// fields the image editor, other BLOBs the image editor when they hold an
// image that decodes, else the hex editor.
bool EditBlobField(QWidget* Parent, TField& Field);

// --- the choices behind the windows ------------------------------------------

// Whether the editors may write the field: it takes data, is not read-only,
// its dataset can be modified and has a row to change.
bool FieldWritable(const TField& Field);
// The value of the field in the current row, read from the table first when
// the dataset left it out. Raises "Could not load data for field " + name
// when it cannot be read.
QVariant ReadFieldValue(TField& Field);

enum TBlobEditorKind { bekText, bekImage, bekHex };
// The editor a BLOB value opens in from the record editor: an image by its
// signature, then text when it is plain ASCII, else hex.
TBlobEditorKind BlobEditorFor(const QByteArray& Value);
// "Text Editor", "Image Editor" or "Blob Editor".
QString BlobEditorCaption(TBlobEditorKind Kind);

enum TRecordEditorKind {
    rekLine,
    rekMemo,
    rekCheck,
    rekDate,
    rekTime,
    rekDateTime,
    rekNumber,
    rekCurrency,
    rekBlob,
    rekUnsupported
};
TRecordEditorKind RecordEditorKind(TFieldType DataType);

// The record editor's scroll steps from section "Settings" of the file
// beside the program, values "RecordEditorScrollbars.SmallChange" and
// "RecordEditorScrollbars.LargeChange"; 0 where the file says nothing (the
// toolkit's steps stay). The file is only read.
struct TScrollSteps {
    int SmallChange = 0;
    int LargeChange = 0;
};
TScrollSteps ReadRecordEditorScrollbars(const QString& IniFileName);

// The image a value holds at its format's offset; null when it holds none
// that the toolkit's readers decode (Error then says why).
QImage DecodeImage(const QByteArray& Value, QString* Error = nullptr);

// --- the windows ---------------------------------------------------------------

// What the value editors share: the field, whether it may be written, and
// what OK and Cancel do to the dataset.
class TfrmValueEditor : public QDialog {
    Q_OBJECT

public:
    // The field's value is read first: "Could not load data for field ...".
    TfrmValueEditor(TField& Field, QWidget* Parent);
    TField& Field() const { return FField; }
    bool Writable() const { return FWritable; }
    bool Posted() const { return FPosted; }
    // Posts a changed value and closes; a failing post shows the error and
    // stays.
    void accept() override;
    // Cancels the dataset's edit when this window began one.
    void reject() override;

protected:
    // The value shown now, and whether it differs from the one read.
    virtual QVariant CurrentValue() const = 0;
    virtual bool ValueChanged() const = 0;
    // A dropped local file: the window loads it.
    virtual void LoadFile(const QString& FileName) = 0;
    void dragEnterEvent(QDragEnterEvent* Event) override;
    void dropEvent(QDropEvent* Event) override;
    // The row of OK and Cancel, with Status to their left.
    QLayout* ButtonRow(QWidget* Status);

    TField& FField;
    QVariant FOriginal;
    bool FWritable;

private:
    bool FPosted = false;
    bool FTouched = false;  // this window put the dataset in edit
};

// The hex editor.
class TfrmBlobView : public TfrmValueEditor {
    Q_OBJECT

public:
    TfrmBlobView(TField& Field, QWidget* Parent = nullptr);
    THexView* hvData;
    QLabel* lblSize;
    QLabel* lblOffset;
    QPushButton *btnLoad, *btnSave, *btnClear, *btnGoto;
    void LoadFile(const QString& FileName) override;
    void SaveFile(const QString& FileName);
    void Clear();

protected:
    QVariant CurrentValue() const override;
    bool ValueChanged() const override;

private:
    void UpdateStatus();
    bool FCleared = false;
};

// The image editor. The value is the bytes of the image as loaded (a file's
// own bytes, not a re-encoding), possibly behind a wrapper header.
class TfrmImageView : public TfrmValueEditor {
    Q_OBJECT

public:
    TfrmImageView(TField& Field, QWidget* Parent = nullptr);
    const QImage& Image() const { return FImage; }
    TImageFormat Format() const { return FFormat; }
    int Zoom() const { return FZoom; }
    bool Optimize() const { return FOptimize; }
    void SetOptimize(bool Value);
    void LoadFile(const QString& FileName) override;
    void SaveFile(const QString& FileName);
    void CopyToClipboard();
    void PasteFromClipboard();
    void Clear();

    QScrollArea* sbImage;
    QLabel* imgImage;
    QPushButton *btnLoad, *btnSave, *btnCopy, *btnPaste, *btnClear;

protected:
    QVariant CurrentValue() const override;
    bool ValueChanged() const override;
    bool eventFilter(QObject* Watched, QEvent* Event) override;
    void resizeEvent(QResizeEvent* Event) override;

private:
    void SetBytes(const QByteArray& Bytes, bool Null);
    void ShowImage();
    void FitWindow();
    QByteArray FBytes;
    bool FNull = true;
    QImage FImage;
    TImageFormat FFormat = ifUnknown;
    int FZoom = 100;
    bool FOptimize = false;
};

// The text editor.
class TfrmMemoView : public TfrmValueEditor {
    Q_OBJECT

public:
    TfrmMemoView(TField& Field, QWidget* Parent = nullptr);
    QPlainTextEdit* mmoText;
    QCheckBox* cbWordWrap;
    void LoadFile(const QString& FileName) override;

protected:
    QVariant CurrentValue() const override;
    bool ValueChanged() const override;

private:
    QString EditedText() const;
    QString FOriginalText;
};

// The record editor: a labelled editor per visible field of the row.
class TfrmRecordEditor : public QDialog {
    Q_OBJECT

public:
    TfrmRecordEditor(TDataSet& DataSet, QWidget* Parent = nullptr);
    ~TfrmRecordEditor() override;
    // The title line: "Record %d", or "New record" while inserting.
    QLabel* lblRecord;
    QScrollArea* sbFields;
    bool Posted() const { return FPosted; }
    // Sets the changed values and posts the row; an error keeps the window.
    void accept() override;
    // Cancels a pending edit.
    void reject() override;
    // The editor of a field; null for one the window does not show.
    QWidget* EditorOf(const QString& FieldName) const;

private:
    struct TFieldEditor;
    class TListener;
    void LoadSettings();
    void LoadBlobs();
    void AddEditor(TField& Field, QFormLayout& Layout);
    void BlobEditClick(TFieldEditor& Editor);
    void DataSourceDataChange();
    TDataSet& FDataSet;
    bool FWritable;
    std::vector<std::unique_ptr<TFieldEditor>> FEditors;
    std::unique_ptr<TListener> FListener;
    bool FPosted = false;
};

}  // namespace brindle
