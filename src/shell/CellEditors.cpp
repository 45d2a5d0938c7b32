#include "CellEditors.h"

#include "Application.h"
#include "FDialogs.h"
#include "Globals.h"
#include "RegSettings.h"
#include "data/DLDataSet.h"
#include "data/DLRecData.h"
#include "data/DataSet.h"
#include "engine/DLDateTime.h"
#include "engine/Exceptions.h"
#include "tools/Encodings.h"
#include "widgets/DataSetModel.h"
#include "widgets/HexView.h"

#include <QBuffer>
#include <QCheckBox>
#include <QClipboard>
#include <QDateTimeEdit>
#include <QDialogButtonBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QFileDialog>
#include <QFormLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QImageReader>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSaveFile>
#include <QScreen>
#include <QScrollArea>
#include <QScrollBar>
#include <QSettings>
#include <QTextDocument>
#include <QVBoxLayout>

namespace brindle {

namespace {

bool IsMemoType(TFieldType DataType) {
    return DataType == ftMemo || DataType == ftWideMemo || DataType == ftFmtMemo;
}

bool IsStringType(TFieldType DataType) {
    return DataType == ftString || DataType == ftWideString || DataType == ftFixedChar ||
           DataType == ftFixedWideChar || IsMemoType(DataType);
}

// The file dialogs of the editors: the toolkit's own, filters in the
// "Label|patterns" form. Empty when cancelled.
QString AskFileName(QWidget* Parent, const QString& Title, const QString& Filter, bool Open,
                    const QString& DefaultExt = QString()) {
    QFileDialog dialog(Parent, Title, QString(), ToDialogFilter(Filter));
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setAcceptMode(Open ? QFileDialog::AcceptOpen : QFileDialog::AcceptSave);
    dialog.setFileMode(Open ? QFileDialog::ExistingFile : QFileDialog::AnyFile);
    if (DefaultExt.startsWith(u'.')) dialog.setDefaultSuffix(DefaultExt.mid(1));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return QString();
    return dialog.selectedFiles().first();
}

QByteArray ReadWholeFile(const QString& FileName) {
    QFile file(FileName);
    if (!file.open(QIODevice::ReadOnly))
        throw ECustomException(QStringLiteral("Cannot open file \"%1\"").arg(FileName));
    return file.readAll();
}

void WriteWholeFile(const QString& FileName, const QByteArray& Bytes) {
    QSaveFile file(FileName);
    if (!file.open(QIODevice::WriteOnly) || file.write(Bytes) != Bytes.size() || !file.commit())
        throw ECustomException(QStringLiteral("Cannot create file \"%1\"").arg(FileName));
}

QPushButton* ToolButton(const QString& Text, const char* Name, QWidget* Parent, QHBoxLayout& Row) {
    auto* button = new QPushButton(Text, Parent);
    button->setObjectName(QLatin1String(Name));
    button->setAutoDefault(false);
    Row.addWidget(button);
    return button;
}

// The text a plain text editor holds, as it was given: the document keeps
// blocks, not line ends, so they come back as the original text had them.
// Raw text, since the plain text would turn no-break spaces into blanks.
QString EditorText(const QPlainTextEdit& Editor, bool CRLF) {
    QString text = Editor.document()->toRawText();
    text.replace(QChar::ParagraphSeparator, CRLF ? QStringLiteral("\r\n") : QStringLiteral("\n"));
    return text;
}

QDateTime ToQDateTime(double Value) {
    int y, m, d, h, n, s, ms;
    DecodeDateTime(Value, y, m, d, h, n, s, ms);
    return QDateTime(QDate(y, m, d), QTime(h, n, s, ms));
}

QVariant FromQDateTime(const QDateTime& Value, TRecordEditorKind Kind) {
    const QDate date = Value.date();
    const QTime time = Value.time();
    double result = 0;
    bool ok = false;
    if (Kind == rekTime)
        ok = TryEncodeTime(time.hour(), time.minute(), time.second(), time.msec(), result);
    else if (Kind == rekDate)
        ok = TryEncodeDate(date.year(), date.month(), date.day(), result);
    else
        ok = TryEncodeDateTime(date.year(), date.month(), date.day(), time.hour(), time.minute(),
                               time.second(), time.msec(), result);
    return ok ? QVariant(result) : QVariant();
}

// A scroll area that keeps the steps it was given: the toolkit's own set
// them anew on every resize.
class TStepScrollArea : public QScrollArea {
public:
    using QScrollArea::QScrollArea;
    void SetSteps(const TScrollSteps& Steps) {
        FSteps = Steps;
        Apply();
    }
    bool eventFilter(QObject* Watched, QEvent* Event) override {
        const bool result = QScrollArea::eventFilter(Watched, Event);
        Apply();
        return result;
    }

protected:
    void resizeEvent(QResizeEvent* Event) override {
        QScrollArea::resizeEvent(Event);
        Apply();
    }

private:
    void Apply() {
        if (FSteps.SmallChange > 0) verticalScrollBar()->setSingleStep(FSteps.SmallChange);
        if (FSteps.LargeChange > 0) verticalScrollBar()->setPageStep(FSteps.LargeChange);
    }
    TScrollSteps FSteps;
};

}  // namespace

// ---------------------------------------------------------------------------
// The choices

bool FieldWritable(const TField& Field) {
    TDataSet* dataSet = Field.DataSet();
    if (!dataSet || !dataSet->Active() || Field.FReadOnly || Field.FFieldKind != fkData) return false;
    if (const auto* dl = dynamic_cast<const TDLDataSet*>(dataSet); dl && !dl->GetCanModify()) return false;
    return dataSet->State() == dsEdit || dataSet->State() == dsInsert || !dataSet->IsEmpty();
}

QVariant ReadFieldValue(TField& Field) {
    const QString failed = QStringLiteral("Could not load data for field ") + Field.FieldName();
    TDataSet& dataSet = *Field.DataSet();
    try {
        // A value the dataset left out of the row (BLOBs not cached) is
        // read now; one that still is not there cannot be read.
        if (TDLRecData* rec = dataSet.ActiveRecData()) {
            const int index = Field.Index();
            if (rec->GetHasData(index) && !rec->GetFullData(index)) {
                dataSet.LoadField(*rec, Field);
                if (!rec->GetFullData(index)) throw ECustomException(failed);
            }
        }
        return Field.Value();
    } catch (const std::exception&) {
        throw ECustomException(failed);
    }
}

TBlobEditorKind BlobEditorFor(const QByteArray& Value) {
    if (IsSupportedImage(Value)) return bekImage;
    return HasASCIIData(Value) ? bekText : bekHex;
}

QString BlobEditorCaption(TBlobEditorKind Kind) {
    switch (Kind) {
        case bekText:
            return QStringLiteral("Text Editor");
        case bekImage:
            return QStringLiteral("Image Editor");
        case bekHex:
            break;
    }
    return QStringLiteral("Blob Editor");
}

TRecordEditorKind RecordEditorKind(TFieldType DataType) {
    switch (DataType) {
        case ftString:
        case ftWideString:
        case ftFixedChar:
        case ftFixedWideChar:
        case ftGuid:
            return rekLine;
        case ftMemo:
        case ftWideMemo:
        case ftFmtMemo:
            return rekMemo;
        case ftBoolean:
            return rekCheck;
        case ftDate:
            return rekDate;
        case ftTime:
            return rekTime;
        case ftDateTime:
        case ftTimeStamp:
            return rekDateTime;
        case ftSmallint:
        case ftInteger:
        case ftWord:
        case ftAutoInc:
        case ftLargeint:
        case ftFloat:
        case ftBCD:
        case ftFMTBcd:
            return rekNumber;
        case ftCurrency:
            return rekCurrency;
        case ftBlob:
        case ftGraphic:
        case ftBytes:
        case ftVarBytes:
        case ftTypedBinary:
        case ftOraBlob:
            return rekBlob;
        default:
            return rekUnsupported;
    }
}

TScrollSteps ReadRecordEditorScrollbars(const QString& IniFileName) {
    TScrollSteps steps;
    QSettings ini(IniFileName, QSettings::IniFormat);
    if (ini.status() != QSettings::NoError) return steps;
    ini.beginGroup(QStringLiteral("Settings"));
    const auto read = [&ini](const char* Name) {
        bool ok = false;
        const int value =
            ini.value(QStringLiteral("RecordEditorScrollbars.") + QLatin1String(Name)).toInt(&ok);
        return ok && value > 0 ? value : 0;
    };
    steps.SmallChange = read("SmallChange");
    steps.LargeChange = read("LargeChange");
    return steps;
}

QImage DecodeImage(const QByteArray& Value, QString* Error) {
    qint64 offset = 0;
    GetImageFormat(Value, offset);
    // The image behind a wrapper header, without copying it.
    QByteArray image = QByteArray::fromRawData(Value.constData() + offset, Value.size() - offset);
    QBuffer buffer(&image);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    QImage result = reader.read();
    if (result.isNull() && Error) *Error = reader.errorString();
    return result;
}

// ---------------------------------------------------------------------------
// TfrmValueEditor

TfrmValueEditor::TfrmValueEditor(TField& Field, QWidget* Parent)
    : QDialog(Parent), FField(Field), FOriginal(ReadFieldValue(Field)), FWritable(FieldWritable(Field)) {
    setAcceptDrops(true);
    setSizeGripEnabled(true);
}

QLayout* TfrmValueEditor::ButtonRow(QWidget* Status) {
    auto* row = new QHBoxLayout;
    if (Status) row->addWidget(Status, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->setObjectName(QStringLiteral("btnsOkCancel"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    row->addWidget(buttons);
    return row;
}

void TfrmValueEditor::accept() {
    if (!FWritable || !ValueChanged()) {
        QDialog::accept();
        return;
    }
    TDataSet& dataSet = *FField.DataSet();
    try {
        if (dataSet.State() != dsEdit && dataSet.State() != dsInsert) dataSet.Edit();
        FTouched = true;
        FField.SetValue(CurrentValue());
        dataSet.Post();
    } catch (const std::exception& e) {
        // The window stays, so that the value can be mended or given up.
        ShowErrorBox(ExceptionMessage(e), this);
        return;
    }
    FPosted = true;
    QDialog::accept();
}

void TfrmValueEditor::reject() {
    if (FTouched) Guarded(this, [this] { FField.DataSet()->Cancel(); });
    QDialog::reject();
}

void TfrmValueEditor::dragEnterEvent(QDragEnterEvent* Event) {
    const QList<QUrl> urls = Event->mimeData()->urls();
    if (FWritable && !urls.isEmpty() && urls.first().isLocalFile()) Event->acceptProposedAction();
}

void TfrmValueEditor::dropEvent(QDropEvent* Event) {
    const QList<QUrl> urls = Event->mimeData()->urls();
    if (!FWritable || urls.isEmpty() || !urls.first().isLocalFile()) return;
    Event->acceptProposedAction();
    Guarded(this, [&] { LoadFile(urls.first().toLocalFile()); });
}

// ---------------------------------------------------------------------------
// TfrmBlobView

TfrmBlobView::TfrmBlobView(TField& Field, QWidget* Parent) : TfrmValueEditor(Field, Parent) {
    setObjectName(QStringLiteral("TfrmBlobView"));
    setWindowTitle(QStringLiteral("Hex Editor: ") + Field.FieldName());
    resize(720, 460);
    auto* layout = new QVBoxLayout(this);
    auto* tools = new QHBoxLayout;
    btnLoad = ToolButton(QStringLiteral("Load..."), "btnLoad", this, *tools);
    btnSave = ToolButton(QStringLiteral("Save..."), "btnSave", this, *tools);
    btnClear = ToolButton(QStringLiteral("Clear"), "btnClear", this, *tools);
    btnGoto = ToolButton(QStringLiteral("Go to offset..."), "btnGoto", this, *tools);
    tools->addStretch(1);
    layout->addLayout(tools);
    hvData = new THexView(this);
    hvData->setObjectName(QStringLiteral("hvData"));
    hvData->SetData(FOriginal.toByteArray());
    hvData->SetReadOnly(!FWritable);
    layout->addWidget(hvData, 1);
    auto* status = new QWidget(this);
    auto* statusRow = new QHBoxLayout(status);
    statusRow->setContentsMargins(0, 0, 0, 0);
    lblSize = new QLabel(status);
    lblOffset = new QLabel(status);
    statusRow->addWidget(lblSize);
    statusRow->addSpacing(16);
    statusRow->addWidget(lblOffset);
    statusRow->addStretch(1);
    layout->addLayout(ButtonRow(status));
    btnLoad->setEnabled(FWritable);
    btnClear->setEnabled(FWritable);

    connect(hvData, &THexView::Changed, this, &TfrmBlobView::UpdateStatus);
    connect(hvData, &THexView::CaretMoved, this, &TfrmBlobView::UpdateStatus);
    connect(btnLoad, &QPushButton::clicked, this, [this] {
        const QString name = AskFileName(this, QStringLiteral("Load BLOB field from file"),
                                         QStringLiteral("All files (*.*)|*.*"), true);
        if (!name.isEmpty()) Guarded(this, [&] { LoadFile(name); });
    });
    connect(btnSave, &QPushButton::clicked, this, [this] {
        const QString name = AskFileName(this, QStringLiteral("Save BLOB field to file"),
                                         QStringLiteral("All files (*.*)|*.*"), false);
        if (!name.isEmpty()) Guarded(this, [&] { SaveFile(name); });
    });
    connect(btnClear, &QPushButton::clicked, this, &TfrmBlobView::Clear);
    connect(btnGoto, &QPushButton::clicked, this, [this] {
        bool ok = false;
        const QString text =
            QInputDialog::getText(this, QStringLiteral("Go to offset"), QStringLiteral("Offset:"),
                                  QLineEdit::Normal, QString::number(hvData->CaretPos()), &ok)
                .trimmed();
        if (!ok || text.isEmpty()) return;
        // Decimal, or hexadecimal behind "0x" or "$".
        qint64 offset = 0;
        if (text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
            offset = text.mid(2).toLongLong(&ok, 16);
        else if (text.startsWith(u'$'))
            offset = text.mid(1).toLongLong(&ok, 16);
        else
            offset = text.toLongLong(&ok);
        if (!ok || offset < 0) {
            ShowErrorBox(QStringLiteral("'%1' is not a valid integer value").arg(text), this);
            return;
        }
        hvData->GotoOffset(offset);
        hvData->setFocus();
    });
    UpdateStatus();
    hvData->setFocus();
}

void TfrmBlobView::UpdateStatus() {
    lblSize->setText(QStringLiteral("Size: %1").arg(hvData->Size()));
    const qint64 caret = hvData->CaretPos();
    QString offset = QStringLiteral("Offset: %1 ($%2)").arg(caret).arg(caret, 0, 16);
    if (hvData->SelLength() > 0) offset += QStringLiteral(", selected: %1").arg(hvData->SelLength());
    lblOffset->setText(offset);
    btnSave->setEnabled(hvData->Size() > 0);
}

void TfrmBlobView::LoadFile(const QString& FileName) {
    hvData->SetData(ReadWholeFile(FileName));
    hvData->SetModified(true);
    FCleared = false;
}

void TfrmBlobView::SaveFile(const QString& FileName) {
    WriteWholeFile(FileName, hvData->Data());
}

void TfrmBlobView::Clear() {
    hvData->SetData(QByteArray());
    hvData->SetModified(true);
    FCleared = true;
}

QVariant TfrmBlobView::CurrentValue() const {
    // Nothing left of a value cleared, or of none, stays no value.
    if (hvData->Size() == 0 && (FCleared || !FOriginal.isValid())) return QVariant();
    return hvData->Data();
}

bool TfrmBlobView::ValueChanged() const {
    const QVariant value = CurrentValue();
    if (value.isValid() != FOriginal.isValid()) return true;
    return value.isValid() && value.toByteArray() != FOriginal.toByteArray();
}

// ---------------------------------------------------------------------------
// TfrmImageView

TfrmImageView::TfrmImageView(TField& Field, QWidget* Parent) : TfrmValueEditor(Field, Parent) {
    setObjectName(QStringLiteral("TfrmImageView"));
    auto* layout = new QVBoxLayout(this);
    auto* tools = new QHBoxLayout;
    btnLoad = ToolButton(QStringLiteral("Load..."), "btnLoad", this, *tools);
    btnSave = ToolButton(QStringLiteral("Save..."), "btnSave", this, *tools);
    btnCopy = ToolButton(QStringLiteral("To Clipboard"), "btnCopy", this, *tools);
    btnPaste = ToolButton(QStringLiteral("From Clipboard"), "btnPaste", this, *tools);
    btnClear = ToolButton(QStringLiteral("Clear"), "btnClear", this, *tools);
    tools->addStretch(1);
    layout->addLayout(tools);
    sbImage = new QScrollArea(this);
    sbImage->setObjectName(QStringLiteral("sbImage"));
    sbImage->setAlignment(Qt::AlignCenter);
    imgImage = new QLabel;
    imgImage->setObjectName(QStringLiteral("imgImage"));
    imgImage->setAlignment(Qt::AlignCenter);
    sbImage->setWidget(imgImage);
    imgImage->installEventFilter(this);
    sbImage->viewport()->installEventFilter(this);
    layout->addWidget(sbImage, 1);
    layout->addLayout(ButtonRow(nullptr));
    btnLoad->setEnabled(FWritable);
    btnPaste->setEnabled(FWritable);
    btnClear->setEnabled(FWritable);

    connect(btnLoad, &QPushButton::clicked, this, [this] {
        const QString name =
            AskFileName(this, QStringLiteral("Load BLOB field from file"), ImageLoadFilter(), true);
        if (!name.isEmpty()) Guarded(this, [&] { LoadFile(name); });
    });
    connect(btnSave, &QPushButton::clicked, this, [this] {
        const TImageSaveFilter filter = ImageSaveFilter(FFormat);
        const QString name = AskFileName(this, QStringLiteral("Save BLOB field to file"), filter.Filter,
                                         false, filter.DefaultExt);
        if (!name.isEmpty()) Guarded(this, [&] { SaveFile(name); });
    });
    connect(btnCopy, &QPushButton::clicked, this, &TfrmImageView::CopyToClipboard);
    connect(btnPaste, &QPushButton::clicked, this,
            [this] { Guarded(this, [this] { PasteFromClipboard(); }); });
    connect(btnClear, &QPushButton::clicked, this, &TfrmImageView::Clear);

    SetBytes(FOriginal.toByteArray(), !FOriginal.isValid());
    FitWindow();
}

void TfrmImageView::SetBytes(const QByteArray& Bytes, bool Null) {
    FBytes = Bytes;
    FNull = Null;
    FFormat = GetImageFormat(FBytes);
    QString error;
    FImage = FBytes.isEmpty() ? QImage() : DecodeImage(FBytes, &error);
    btnSave->setEnabled(!FImage.isNull());
    btnCopy->setEnabled(!FImage.isNull());
    if (FImage.isNull()) {
        imgImage->setPixmap(QPixmap());
        imgImage->setText(error);
        imgImage->adjustSize();
    }
    ShowImage();
}

void TfrmImageView::ShowImage() {
    if (!FImage.isNull()) {
        FZoom = 100;
        if (FOptimize) {
            const QSize room = sbImage->viewport()->size();
            const double scale =
                std::min(double(room.width()) / FImage.width(), double(room.height()) / FImage.height());
            FZoom = std::max(1, static_cast<int>(scale * 100));
        }
        const QSize size(std::max(1, FImage.width() * FZoom / 100),
                         std::max(1, FImage.height() * FZoom / 100));
        imgImage->setPixmap(FZoom == 100 ? QPixmap::fromImage(FImage)
                                         : QPixmap::fromImage(FImage.scaled(size, Qt::KeepAspectRatio,
                                                                            Qt::SmoothTransformation)));
        imgImage->adjustSize();
    }
    setWindowTitle(QStringLiteral("Image Editor: %1 (%2%)").arg(FField.FieldName()).arg(FZoom));
}

void TfrmImageView::FitWindow() {
    QSize size(480, 360);
    if (!FImage.isNull()) {
        // The window around the image, as far as the work area allows.
        const QSize chrome = sizeHint() - sbImage->sizeHint();
        size = size.expandedTo(FImage.size() + chrome + QSize(8, 8));
        if (const QScreen* s = screen()) size = size.boundedTo(s->availableGeometry().size());
    }
    resize(size);
}

void TfrmImageView::SetOptimize(bool Value) {
    FOptimize = Value;
    sbImage->setHorizontalScrollBarPolicy(Value ? Qt::ScrollBarAlwaysOff : Qt::ScrollBarAsNeeded);
    sbImage->setVerticalScrollBarPolicy(Value ? Qt::ScrollBarAlwaysOff : Qt::ScrollBarAsNeeded);
    ShowImage();
}

bool TfrmImageView::eventFilter(QObject* Watched, QEvent* Event) {
    if (Event->type() == QEvent::MouseButtonDblClick &&
        (Watched == imgImage || Watched == sbImage->viewport())) {
        SetOptimize(!FOptimize);
        return true;
    }
    return TfrmValueEditor::eventFilter(Watched, Event);
}

void TfrmImageView::resizeEvent(QResizeEvent* Event) {
    TfrmValueEditor::resizeEvent(Event);
    if (FOptimize) ShowImage();
}

void TfrmImageView::LoadFile(const QString& FileName) {
    const QByteArray bytes = ReadWholeFile(FileName);
    QString error;
    if (DecodeImage(bytes, &error).isNull())
        throw ECustomException(QStringLiteral("Cannot load image from file \"%1\": %2").arg(FileName, error));
    SetBytes(bytes, false);
    FitWindow();
}

void TfrmImageView::SaveFile(const QString& FileName) {
    qint64 offset = 0;
    GetImageFormat(FBytes, offset);
    WriteWholeFile(FileName, FBytes.mid(offset));
}

void TfrmImageView::CopyToClipboard() {
    if (!FImage.isNull()) QGuiApplication::clipboard()->setImage(FImage);
}

void TfrmImageView::PasteFromClipboard() {
    const QImage image = QGuiApplication::clipboard()->image();
    if (image.isNull()) return;
    // The clipboard has pixels, not a file: they are kept as PNG.
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "PNG"))
        throw ECustomException(QStringLiteral("Cannot store the clipboard's image"));
    SetBytes(bytes, false);
    FitWindow();
}

void TfrmImageView::Clear() {
    SetBytes(QByteArray(), true);
}

QVariant TfrmImageView::CurrentValue() const {
    return FNull ? QVariant() : QVariant(FBytes);
}

bool TfrmImageView::ValueChanged() const {
    if (FNull != !FOriginal.isValid()) return true;
    return !FNull && FBytes != FOriginal.toByteArray();
}

// ---------------------------------------------------------------------------
// TfrmMemoView

TfrmMemoView::TfrmMemoView(TField& Field, QWidget* Parent) : TfrmValueEditor(Field, Parent) {
    setObjectName(QStringLiteral("TfrmMemoView"));
    setWindowTitle(QStringLiteral("Text Editor: ") + Field.FieldName());
    resize(640, 440);
    auto* layout = new QVBoxLayout(this);
    mmoText = new QPlainTextEdit(this);
    mmoText->setObjectName(QStringLiteral("mmoText"));
    // A dropped file is the window's to load, not text to insert.
    mmoText->setAcceptDrops(false);
    FOriginalText =
        IsBinaryType(Field.DataType()) ? QString::fromUtf8(FOriginal.toByteArray()) : FOriginal.toString();
    mmoText->setPlainText(FOriginalText);
    mmoText->document()->setModified(false);
    mmoText->setReadOnly(!FWritable);
    layout->addWidget(mmoText, 1);
    cbWordWrap = new QCheckBox(QStringLiteral("Word wrap"), this);
    cbWordWrap->setObjectName(QStringLiteral("cbWordWrap"));
    cbWordWrap->setChecked(TextEditorWordWrap);
    const auto wrap = [this](bool On) {
        mmoText->setLineWrapMode(On ? QPlainTextEdit::WidgetWidth : QPlainTextEdit::NoWrap);
    };
    wrap(TextEditorWordWrap);
    connect(cbWordWrap, &QCheckBox::toggled, this, [wrap](bool On) {
        TextEditorWordWrap = On;
        wrap(On);
    });
    layout->addLayout(ButtonRow(cbWordWrap));
    mmoText->setFocus();
}

QString TfrmMemoView::EditedText() const {
    return EditorText(*mmoText, FOriginalText.contains(QLatin1String("\r\n")));
}

QVariant TfrmMemoView::CurrentValue() const {
    const QString text = EditedText();
    if (text.isEmpty() && !FOriginal.isValid()) return QVariant();
    if (IsBinaryType(FField.DataType())) return text.toUtf8();
    return text;
}

bool TfrmMemoView::ValueChanged() const {
    // Untouched text is never written back: the row may hold bytes the
    // editor could only show approximately (text that is not valid UTF-8).
    return mmoText->document()->isModified() && EditedText() != FOriginalText;
}

void TfrmMemoView::LoadFile(const QString& FileName) {
    mmoText->setPlainText(LoadStrings(FileName));
    mmoText->document()->setModified(true);
}

// ---------------------------------------------------------------------------
// TfrmRecordEditor

struct TfrmRecordEditor::TFieldEditor {
    TField* Field = nullptr;
    TRecordEditorKind Kind = rekUnsupported;
    QWidget* Editor = nullptr;
    // What the editor showed at first: a change is a difference from it.
    QVariant Shown;
    // A date editor whose minimum stands for no value.
    bool NullAtMinimum = false;
};

class TfrmRecordEditor::TListener : public IDataSetListener {
public:
    explicit TListener(TfrmRecordEditor& Owner) : FOwner(Owner) {}
    void DataEvent(TDataSet&, TDataEvent) override { FOwner.DataSourceDataChange(); }

private:
    TfrmRecordEditor& FOwner;
};

namespace {

bool EditorChanged(const QWidget* Editor, TRecordEditorKind Kind, const QVariant& Shown) {
    switch (Kind) {
        case rekLine:
        case rekNumber:
        case rekCurrency:
            return static_cast<const QLineEdit*>(Editor)->text() != Shown.toString();
        case rekMemo: {
            const auto* memo = static_cast<const QPlainTextEdit*>(Editor);
            return memo->document()->isModified() &&
                   EditorText(*memo, Shown.toString().contains(QLatin1String("\r\n"))) != Shown.toString();
        }
        case rekCheck:
            return static_cast<const QCheckBox*>(Editor)->checkState() != Shown.toInt();
        case rekDate:
        case rekTime:
        case rekDateTime:
            return static_cast<const QDateTimeEdit*>(Editor)->dateTime() != Shown.toDateTime();
        default:
            return false;
    }
}

}  // namespace

TfrmRecordEditor::TfrmRecordEditor(TDataSet& DataSet, QWidget* Parent) : QDialog(Parent), FDataSet(DataSet) {
    setObjectName(QStringLiteral("TfrmRecordEditor"));
    const auto* dl = dynamic_cast<const TDLDataSet*>(&DataSet);
    FWritable = DataSet.Active() && (!dl || dl->GetCanModify());
    setWindowTitle(FWritable ? QStringLiteral("Record Editor") : QStringLiteral("Record Viewer"));
    setSizeGripEnabled(true);
    resize(520, 480);
    LoadBlobs();

    auto* layout = new QVBoxLayout(this);
    lblRecord = new QLabel(this);
    lblRecord->setObjectName(QStringLiteral("lblRecord"));
    QFont bold = lblRecord->font();
    bold.setBold(true);
    lblRecord->setFont(bold);
    layout->addWidget(lblRecord);
    auto* scroll = new TStepScrollArea(this);
    sbFields = scroll;
    sbFields->setObjectName(QStringLiteral("sbFields"));
    sbFields->setWidgetResizable(true);
    auto* box = new QWidget;
    auto* form = new QFormLayout(box);
    for (int i = 0; i < DataSet.Fields().Count(); ++i) {
        TField& field = DataSet.Fields()[i];
        if (field.FVisible && field.FieldName() != kRecNoFieldName) AddEditor(field, *form);
    }
    sbFields->setWidget(box);
    layout->addWidget(sbFields, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->setObjectName(QStringLiteral("btnsOkCancel"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);

    LoadSettings();
    DataSourceDataChange();
    FListener = std::make_unique<TListener>(*this);
    DataSet.AddListener(FListener.get());
}

TfrmRecordEditor::~TfrmRecordEditor() {
    if (FListener) FDataSet.RemoveListener(FListener.get());
}

void TfrmRecordEditor::LoadSettings() {
    static_cast<TStepScrollArea*>(sbFields)->SetSteps(ReadRecordEditorScrollbars(StartupOptionsFileName()));
}

void TfrmRecordEditor::LoadBlobs() {
    // The editors choose by content, so every value must be in the row.
    for (int i = 0; i < FDataSet.Fields().Count(); ++i) {
        TField& field = FDataSet.Fields()[i];
        if (field.IsBlob() || IsBinaryType(field.DataType())) ReadFieldValue(field);
    }
}

void TfrmRecordEditor::AddEditor(TField& Field, QFormLayout& Layout) {
    auto entry = std::make_unique<TFieldEditor>();
    entry->Field = &Field;
    entry->Kind = RecordEditorKind(Field.DataType());
    const bool editable = FWritable && !Field.FReadOnly && Field.FFieldKind == fkData;
    const QVariant value = Field.Value();
    QWidget* box = Layout.parentWidget();
    switch (entry->Kind) {
        case rekLine:
        case rekNumber:
        case rekCurrency: {
            const QString text =
                value.isValid() ? TDataSetModel::EditText(value, Field.DataType()) : QString();
            auto* edit = new QLineEdit(text, box);
            edit->setReadOnly(!editable);
            if (entry->Kind != rekLine) edit->setAlignment(Qt::AlignRight);
            entry->Editor = edit;
            entry->Shown = text;
            break;
        }
        case rekMemo: {
            const QString text = value.toString();
            auto* memo = new QPlainTextEdit(box);
            memo->setPlainText(text);
            memo->document()->setModified(false);
            memo->setReadOnly(!editable);
            memo->setMinimumHeight(4 * memo->fontMetrics().height());
            entry->Editor = memo;
            entry->Shown = text;
            break;
        }
        case rekCheck: {
            auto* check = new QCheckBox(box);
            check->setTristate(true);
            check->setCheckState(!value.isValid() ? Qt::PartiallyChecked
                                 : value.toBool() ? Qt::Checked
                                                  : Qt::Unchecked);
            check->setEnabled(editable);
            entry->Editor = check;
            entry->Shown = static_cast<int>(check->checkState());
            break;
        }
        case rekDate:
        case rekTime:
        case rekDateTime: {
            QDateTimeEdit* edit = entry->Kind == rekDate   ? new QDateEdit(box)
                                  : entry->Kind == rekTime ? new QTimeEdit(box)
                                                           : new QDateTimeEdit(box);
            edit->setDisplayFormat(entry->Kind == rekDate   ? QStringLiteral("yyyy-MM-dd")
                                   : entry->Kind == rekTime ? QStringLiteral("HH:mm:ss.zzz")
                                                            : QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
            if (entry->Kind != rekTime) edit->setCalendarPopup(true);
            edit->setMinimumDateTime(QDateTime(QDate(100, 1, 1), QTime(0, 0)));
            if (value.isValid()) {
                edit->setDateTime(ToQDateTime(value.toDouble()));
            } else {
                // No value shows blank: the minimum with a text of its own.
                edit->setSpecialValueText(QStringLiteral(" "));
                edit->setDateTime(edit->minimumDateTime());
                entry->NullAtMinimum = true;
            }
            edit->setReadOnly(!editable);
            entry->Editor = edit;
            entry->Shown = edit->dateTime();
            break;
        }
        case rekBlob: {
            auto* button = new QPushButton(BlobEditorCaption(BlobEditorFor(value.toByteArray())), box);
            button->setAutoDefault(false);
            TFieldEditor* target = entry.get();
            connect(button, &QPushButton::clicked, this, [this, target] { BlobEditClick(*target); });
            entry->Editor = button;
            break;
        }
        case rekUnsupported:
            entry->Editor = new QLabel(QStringLiteral("Unsupported field type"), box);
            break;
    }
    entry->Editor->setObjectName(Field.FieldName());
    Layout.addRow(Field.DisplayName(), entry->Editor);
    FEditors.push_back(std::move(entry));
}

void TfrmRecordEditor::BlobEditClick(TFieldEditor& Editor) {
    TField& field = *Editor.Field;
    QByteArray value;
    try {
        value = ReadFieldValue(field).toByteArray();
    } catch (const std::exception& e) {
        ShowErrorBox(ExceptionMessage(e), this);
        return;
    }
    const TBlobEditorKind kind = BlobEditorFor(value);
    const bool posted = kind == bekText    ? EditMemo(this, field)
                        : kind == bekImage ? EditImage(this, field)
                                           : EditBlob(this, field);
    if (!posted) return;
    FPosted = true;
    Guarded(this, [&] {
        static_cast<QPushButton*>(Editor.Editor)
            ->setText(BlobEditorCaption(BlobEditorFor(ReadFieldValue(field).toByteArray())));
    });
}

void TfrmRecordEditor::DataSourceDataChange() {
    lblRecord->setText(FDataSet.State() == dsInsert ? QStringLiteral("New record")
                                                    : QStringLiteral("Record %1").arg(FDataSet.GetRecNo()));
}

QWidget* TfrmRecordEditor::EditorOf(const QString& FieldName) const {
    for (const auto& e : FEditors)
        if (e->Field->FieldName().compare(FieldName, Qt::CaseInsensitive) == 0) return e->Editor;
    return nullptr;
}

void TfrmRecordEditor::accept() {
    try {
        std::vector<std::pair<TField*, QVariant>> changes;
        for (const auto& e : FEditors) {
            if (!EditorChanged(e->Editor, e->Kind, e->Shown)) continue;
            const TFieldType type = e->Field->DataType();
            QVariant value;
            switch (e->Kind) {
                case rekLine:
                case rekNumber:
                case rekCurrency: {
                    const QString text = static_cast<QLineEdit*>(e->Editor)->text();
                    // Emptied text is an empty string, or no value where the
                    // type has no empty one.
                    if (!text.isEmpty() || IsStringType(type))
                        value = TDataSetModel::ValueFromText(text, type);
                    break;
                }
                case rekMemo:
                    value = EditorText(*static_cast<QPlainTextEdit*>(e->Editor),
                                       e->Shown.toString().contains(QLatin1String("\r\n")));
                    break;
                case rekCheck: {
                    const Qt::CheckState state = static_cast<QCheckBox*>(e->Editor)->checkState();
                    if (state != Qt::PartiallyChecked) value = state == Qt::Checked;
                    break;
                }
                case rekDate:
                case rekTime:
                case rekDateTime: {
                    const auto* edit = static_cast<QDateTimeEdit*>(e->Editor);
                    if (!(e->NullAtMinimum && edit->dateTime() == edit->minimumDateTime()))
                        value = FromQDateTime(edit->dateTime(), e->Kind);
                    break;
                }
                default:
                    continue;
            }
            changes.emplace_back(e->Field, value);
        }
        const auto editing = [this] { return FDataSet.State() == dsEdit || FDataSet.State() == dsInsert; };
        if (!changes.empty() && !editing()) FDataSet.Edit();
        for (const auto& [field, value] : changes) field->SetValue(value);
        if (editing()) {
            FDataSet.Post();
            FPosted = true;
        }
    } catch (const std::exception& e) {
        ShowErrorBox(ExceptionMessage(e), this);
        return;
    }
    QDialog::accept();
}

void TfrmRecordEditor::reject() {
    if (FDataSet.State() == dsEdit || FDataSet.State() == dsInsert)
        Guarded(this, [this] { FDataSet.Cancel(); });
    QDialog::reject();
}

// ---------------------------------------------------------------------------
// The entry points

namespace {

template <class TForm>
bool RunValueEditor(QWidget* Parent, TField& Field) {
    try {
        TForm form(Field, Parent);
        form.exec();
        return form.Posted();
    } catch (const std::exception& e) {
        ShowErrorBox(ExceptionMessage(e), Parent);
        return false;
    }
}

}  // namespace

bool EditBlob(QWidget* Parent, TField& Field) {
    return RunValueEditor<TfrmBlobView>(Parent, Field);
}

bool EditImage(QWidget* Parent, TField& Field) {
    return RunValueEditor<TfrmImageView>(Parent, Field);
}

bool EditMemo(QWidget* Parent, TField& Field) {
    return RunValueEditor<TfrmMemoView>(Parent, Field);
}

bool EditRecord(QWidget* Parent, TDataSet& DataSet) {
    try {
        TfrmRecordEditor form(DataSet, Parent);
        form.exec();
        return form.Posted();
    } catch (const std::exception& e) {
        ShowErrorBox(ExceptionMessage(e), Parent);
        return false;
    }
}

bool EditBlobField(QWidget* Parent, TField& Field) {
    const TFieldType type = Field.DataType();
    if (IsMemoType(type)) return EditMemo(Parent, Field);
    if (type == ftGraphic) return EditImage(Parent, Field);
    if (!IsBinaryType(type)) return EditMemo(Parent, Field);
    QByteArray value;
    try {
        value = ReadFieldValue(Field).toByteArray();
    } catch (const std::exception& e) {
        ShowErrorBox(ExceptionMessage(e), Parent);
        return false;
    }
    // An image the readers cannot decode is better seen as bytes.
    if (IsSupportedImage(value) && !DecodeImage(value).isNull()) return EditImage(Parent, Field);
    return EditBlob(Parent, Field);
}

}  // namespace brindle
