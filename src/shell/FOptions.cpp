#include "FOptions.h"

#include "LibraryChoice.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QFontDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace brindle {

int ColorValue(const QColor& Color) {
    return Color.red() | (Color.green() << 8) | (Color.blue() << 16);
}

QColor StoredColor(int Value) {
    return QColor(Value & 0xFF, (Value >> 8) & 0xFF, (Value >> 16) & 0xFF);
}

const QStringList TfrmOptions::kPages{QStringLiteral("Show/Hide Features"),
                                      QStringLiteral("General"),
                                      QStringLiteral("Look and Feel"),
                                      QStringLiteral("Code Generation"),
                                      QStringLiteral("Data"),
                                      QStringLiteral("Type Mappings"),
                                      QStringLiteral("Fonts"),
                                      QStringLiteral("Updates"),
                                      QStringLiteral("File Associations"),
                                      QStringLiteral("Code Completion")};

namespace {

const char* const kTypeNames[] = {
    "Unknown",     "String",    "Smallint",  "Integer",       "Word",     "Boolean",    "Float",
    "Currency",    "BCD",       "Date",      "Time",          "DateTime", "Bytes",      "VarBytes",
    "AutoInc",     "Blob",      "Memo",      "Graphic",       "FmtMemo",  "ParadoxOle", "DBaseOle",
    "TypedBinary", "Cursor",    "FixedChar", "WideString",    "Largeint", "ADT",        "Array",
    "Reference",   "DataSet",   "OraBlob",   "OraClob",       "Variant",  "Interface",  "IDispatch",
    "Guid",        "TimeStamp", "FMTBcd",    "FixedWideChar", "WideMemo"};
static_assert(std::size(kTypeNames) == ftWideMemo + 1);

void ShowColor(QPushButton* Button, int Value) {
    Button->setStyleSheet(QStringLiteral("background-color: %1").arg(StoredColor(Value).name()));
}

QString FontText(const QFont& Font) {
    return QStringLiteral("%1, %2 pt").arg(Font.family()).arg(Font.pointSize());
}

QCheckBox* Check(const QString& Caption, bool Value, const char* Name, QWidget* Parent) {
    auto* box = new QCheckBox(Caption, Parent);
    box->setChecked(Value);
    box->setObjectName(QLatin1String(Name));
    return box;
}

QRadioButton* Radio(const QString& Caption, bool Value, const char* Name, QWidget* Parent) {
    auto* button = new QRadioButton(Caption, Parent);
    button->setChecked(Value);
    button->setObjectName(QLatin1String(Name));
    return button;
}

}  // namespace

QString TfrmOptions::DataTypeName(TFieldType Type) {
    return Type >= 0 && Type <= ftWideMemo ? QLatin1String(kTypeNames[Type]) : QString();
}

TFieldType TfrmOptions::StrToDataType(const QString& Name) {
    for (int t = 1; t <= ftWideMemo; ++t)
        if (Name.trimmed().compare(QLatin1String(kTypeNames[t]), Qt::CaseInsensitive) == 0)
            return IsMappableDataType(static_cast<TFieldType>(t)) ? static_cast<TFieldType>(t) : ftUnknown;
    return ftUnknown;
}

TfrmOptions::TfrmOptions(const TOptionsData& Data, const QList<TLibraryEntry>& Libraries, QWidget* Parent)
    : QDialog(Parent), FData(Data), FOddColor(Data.Settings.OddColor), FEvenColor(Data.Settings.EvenColor) {
    setObjectName(QStringLiteral("TfrmOptions"));
    setWindowTitle(QStringLiteral("Options"));
    lbPages = new QListWidget(this);
    lbPages->setObjectName(QStringLiteral("lbPages"));
    lbPages->addItems(kPages);
    lbPages->setMaximumWidth(180);
    FPages = new QStackedWidget(this);
    FPages->addWidget(CreateFeaturesPage());
    FPages->addWidget(CreateGeneralPage());
    FPages->addWidget(CreateLookAndFeelPage());
    FPages->addWidget(CreateCodeGenerationPage());
    FPages->addWidget(CreateDataPage(Libraries));
    FPages->addWidget(CreateTypeMappingsPage());
    FPages->addWidget(CreateFontsPage());
    FPages->addWidget(CreateUpdatesPage());
    FPages->addWidget(CreateAssociationsPage());
    FPages->addWidget(CreateCodeCompletionPage());
    connect(lbPages, &QListWidget::currentRowChanged, FPages, &QStackedWidget::setCurrentIndex);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &TfrmOptions::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* top = new QHBoxLayout;
    top->addWidget(lbPages);
    top->addWidget(FPages, 1);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top, 1);
    layout->addWidget(buttons);
    SetCurrentPage(Data.Settings.LastOptionsPage);
    UpdateEnabled();
    resize(720, 520);
}

int TfrmOptions::CurrentPage() const {
    return lbPages->currentRow();
}

void TfrmOptions::SetCurrentPage(int Page) {
    lbPages->setCurrentRow(Page >= 0 && Page < kPages.size() ? Page : 0);
}

QWidget* TfrmOptions::CreateFeaturesPage() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    tvFeatures = new QTreeWidget(page);
    tvFeatures->setObjectName(QStringLiteral("tvFeatures"));
    tvFeatures->setHeaderHidden(true);
    QStringList categories;
    FData.Features.GetCategories(categories);
    for (const QString& category : categories) {
        auto* node = new QTreeWidgetItem(tvFeatures, {category});
        QStringList names;
        FData.Features.GetCategoryItems(category, names);
        for (const QString& name : names) {
            auto* item = new QTreeWidgetItem(node, {name});
            item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
            item->setCheckState(
                0, FData.Features.GetItems(category, name).Enabled ? Qt::Checked : Qt::Unchecked);
        }
    }
    tvFeatures->expandAll();
    layout->addWidget(tvFeatures);
    return page;
}

QWidget* TfrmOptions::CreateGeneralPage() {
    const TProgramSettings& s = FData.Settings;
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    auto* encoding = new QGroupBox(QStringLiteral("Encoding"), page);
    auto* el = new QVBoxLayout(encoding);
    el->addWidget(rbUnicode =
                      Radio(QStringLiteral("Unicode (UTF-8, UTF-16)"), s.Unicode, "rbUnicode", encoding));
    el->addWidget(rbAnsi = Radio(QStringLiteral("Default ANSI code page"), !s.Unicode, "rbAnsi", encoding));
    auto* startup = new QGroupBox(QStringLiteral("Startup"), page);
    auto* sl = new QVBoxLayout(startup);
    sl->addWidget(cbSingleInstance = Check(QStringLiteral("Application is single instance"), s.SingleInstance,
                                           "cbSingleInstance", startup));
    sl->addWidget(cbRememberOpenDatabases =
                      Check(QStringLiteral("Remember open databases"), s.RememberOpenDatabases,
                            "cbRememberOpenDatabases", startup));
    auto* bars = new QGroupBox(QStringLiteral("Toolbars"), page);
    auto* bl = new QVBoxLayout(bars);
    bl->addWidget(cbUseLargeIcons =
                      Check(QStringLiteral("Use large icons"), s.UseLargeIcons, "cbUseLargeIcons", bars));
    auto* editors = new QGroupBox(QStringLiteral("Editors"), page);
    auto* edl = new QHBoxLayout(editors);
    edl->addWidget(cbEditorWordWrap =
                       Check(QStringLiteral("Word wrap"), s.EditorWordWrap, "cbEditorWordWrap", editors));
    edl->addWidget(new QLabel(QStringLiteral("Tab width:"), editors));
    seTabWidth = new QSpinBox(editors);
    seTabWidth->setObjectName(QStringLiteral("seTabWidth"));
    seTabWidth->setRange(1, 32);
    seTabWidth->setValue(s.EditorTabWidth);
    edl->addWidget(seTabWidth);
    edl->addStretch();
    auto* confirm = new QGroupBox(QStringLiteral("Confirmations"), page);
    auto* cl = new QVBoxLayout(confirm);
    cl->addWidget(cbConfirmDragDrop = Check(QStringLiteral("Confirm drag and drop of objects"),
                                            s.ConfirmDragDropObjects, "cbConfirmDragDrop", confirm));
    cl->addWidget(cbConfirmCopyPasteObjects =
                      Check(QStringLiteral("Confirm paste of objects"), s.ConfirmCopyPasteObjects,
                            "cbConfirmCopyPasteObjects", confirm));
    cl->addWidget(cbConfirmCopyPasteProperties =
                      Check(QStringLiteral("Confirm paste of fields, indexes and the like"),
                            s.ConfirmCopyPasteProperties, "cbConfirmCopyPasteProperties", confirm));
    for (QWidget* w : {encoding, startup, bars, editors, confirm}) layout->addWidget(w);
    layout->addStretch();
    return page;
}

QWidget* TfrmOptions::CreateLookAndFeelPage() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    lbLookAndFeel = new QListWidget(page);
    lbLookAndFeel->setObjectName(QStringLiteral("lbLookAndFeel"));
    lbLookAndFeel->addItems({QStringLiteral("Flat"), QStringLiteral("Office 11"), QStringLiteral("Standard"),
                             QStringLiteral("Ultra Flat"), QStringLiteral("Native")});
    lbLookAndFeel->setCurrentRow(qBound(0, FData.Settings.LookAndFeel, 4));
    layout->addWidget(lbLookAndFeel);
    return page;
}

QWidget* TfrmOptions::CreateCodeGenerationPage() {
    const TProgramSettings& s = FData.Settings;
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    auto* quotes = new QGroupBox(QStringLiteral("Quote identifiers using"), page);
    auto* ql = new QVBoxLayout(quotes);
    ql->addWidget(rbBrackets = Radio(QStringLiteral("Square brackets ([])"),
                                     s.QuoteChars == QLatin1String("[]"), "rbBrackets", quotes));
    ql->addWidget(rbDoubleQuotes = Radio(QStringLiteral("Double quotes (\"\")"),
                                         s.QuoteChars != QLatin1String("[]"), "rbDoubleQuotes", quotes));
    auto* caps = new QGroupBox(QStringLiteral("Capitalization"), page);
    auto* cl = new QVBoxLayout(caps);
    cl->addWidget(rbUpperCase = Radio(QStringLiteral("Upper case"), s.UseUpperCase, "rbUpperCase", caps));
    cl->addWidget(rbLowerCase = Radio(QStringLiteral("Lower case"), !s.UseUpperCase, "rbLowerCase", caps));
    layout->addWidget(quotes);
    layout->addWidget(caps);
    layout->addStretch();
    return page;
}

QWidget* TfrmOptions::CreateDataPage(const QList<TLibraryEntry>& Libraries) {
    const TProgramSettings& s = FData.Settings;
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    auto* libraries = new QGroupBox(QStringLiteral("SQLite Library"), page);
    auto* ll = new QVBoxLayout(libraries);
    lbLibraries = new QListWidget(libraries);
    lbLibraries->setObjectName(QStringLiteral("lbLibraries"));
    for (const TLibraryEntry& entry : Libraries) {
        auto* item = new QListWidgetItem(entry.Caption, lbLibraries);
        item->setData(Qt::UserRole, entry.FileName);
        // The stored name, or its bare name, picks the entry.
        if (entry.FileName == s.LibraryFileName ||
            QFileInfo(entry.FileName).fileName() == QFileInfo(s.LibraryFileName).fileName())
            lbLibraries->setCurrentItem(item);
    }
    if (!lbLibraries->currentItem() && lbLibraries->count() > 0) lbLibraries->setCurrentRow(0);
    ll->addWidget(lbLibraries);

    auto* grids = new QGroupBox(QStringLiteral("Grids"), page);
    auto* gl = new QGridLayout(grids);
    int n = 0;
    auto add = [&](QCheckBox* box) {
        gl->addWidget(box, n / 2, n % 2);
        ++n;
        return box;
    };
    cbAlternateRowColors = add(
        Check(QStringLiteral("Alternate row colors"), s.AlternateBackColor, "cbAlternateRowColors", grids));
    cbAutoRefreshData =
        add(Check(QStringLiteral("Auto refresh data"), s.AutoRefreshData, "cbAutoRefreshData", grids));
    cbShowCellHints =
        add(Check(QStringLiteral("Show cell hints"), s.ShowCellHints, "cbShowCellHints", grids));
    cbShowImages = add(Check(QStringLiteral("Show images"), s.ShowImages, "cbShowImages", grids));
    cbShowRecordNumbers =
        add(Check(QStringLiteral("Show record numbers"), s.ShowRecordNumbers, "cbShowRecordNumbers", grids));
    cbShowRowID = add(Check(QStringLiteral("Show \"rowid\" on Data tab"), s.ShowRowID, "cbShowRowID", grids));
    cbDblClickRecordEditor = add(Check(QStringLiteral("DblClick opens record editor"),
                                       s.RecordEditorOnDblClick, "cbDblClickRecordEditor", grids));
    cbCellAutoHeight =
        add(Check(QStringLiteral("Cell auto height"), s.CellAutoHeight, "cbCellAutoHeight", grids));
    cbThumbTracking = add(Check(QStringLiteral("Thumb Tracking"), s.ThumbTracking, "cbThumbTracking", grids));

    auto* results = new QGroupBox(QStringLiteral("Results"), page);
    auto* rl = new QHBoxLayout(results);
    rl->addWidget(rbResultsAsGrid = Radio(QStringLiteral("Display results in grid"), !s.ResultsAsText,
                                          "rbResultsAsGrid", results));
    rl->addWidget(rbResultsAsText = Radio(QStringLiteral("Display results as text"), s.ResultsAsText,
                                          "rbResultsAsText", results));
    rl->addWidget(new QLabel(QStringLiteral("Up to"), results));
    seTextLimit = new QSpinBox(results);
    seTextLimit->setObjectName(QStringLiteral("seTextLimit"));
    seTextLimit->setRange(1, 2000);
    seTextLimit->setValue(qBound(1, s.TextSizeLimit, 2000));
    rl->addWidget(seTextLimit);
    rl->addWidget(new QLabel(QStringLiteral("MB"), results));
    rl->addStretch();

    auto* counts = new QGroupBox(QStringLiteral("Record Count"), page);
    auto* col = new QVBoxLayout(counts);
    col->addWidget(cbShowRecordCount = Check(QStringLiteral("Show record count"), s.ShowRecordCounts,
                                             "cbShowRecordCount", counts));

    auto* colors = new QGroupBox(QStringLiteral("Row Colors"), page);
    auto* rcl = new QHBoxLayout(colors);
    btnOddColor = new QPushButton(colors);
    btnOddColor->setObjectName(QStringLiteral("btnOddColor"));
    btnEvenColor = new QPushButton(colors);
    btnEvenColor->setObjectName(QStringLiteral("btnEvenColor"));
    ShowColor(btnOddColor, FOddColor);
    ShowColor(btnEvenColor, FEvenColor);
    rcl->addWidget(new QLabel(QStringLiteral("Odd Rows:"), colors));
    rcl->addWidget(btnOddColor);
    rcl->addWidget(new QLabel(QStringLiteral("Even Rows:"), colors));
    rcl->addWidget(btnEvenColor);
    rcl->addStretch();
    auto pick = [this](QPushButton* button, int& value) {
        const QColor c = QColorDialog::getColor(StoredColor(value), this);
        if (!c.isValid()) return;
        value = ColorValue(c);
        ShowColor(button, value);
    };
    connect(btnOddColor, &QPushButton::clicked, this, [this, pick] { pick(btnOddColor, FOddColor); });
    connect(btnEvenColor, &QPushButton::clicked, this, [this, pick] { pick(btnEvenColor, FEvenColor); });

    for (QWidget* w : {libraries, grids, results, counts, colors}) layout->addWidget(w);
    connect(rbResultsAsText, &QRadioButton::toggled, this, &TfrmOptions::UpdateEnabled);
    connect(cbAlternateRowColors, &QCheckBox::toggled, this, &TfrmOptions::UpdateEnabled);
    return page;
}

void TfrmOptions::FillTypeMappings(const TDLTypeMappings& Mappings) {
    grdTypeMappings->setRowCount(0);
    for (int i = 0; i < Mappings.Count(); ++i) {
        grdTypeMappings->insertRow(i);
        grdTypeMappings->setItem(i, 0, new QTableWidgetItem(Mappings.Items(i).DeclaredType()));
        grdTypeMappings->setItem(i, 1, new QTableWidgetItem(DataTypeName(Mappings.Items(i).DataType())));
    }
}

QWidget* TfrmOptions::CreateTypeMappingsPage() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    grdTypeMappings = new QTableWidget(0, 2, page);
    grdTypeMappings->setObjectName(QStringLiteral("grdTypeMappings"));
    grdTypeMappings->setHorizontalHeaderLabels(
        {QStringLiteral("Declared Type"), QStringLiteral("Mapped to")});
    grdTypeMappings->horizontalHeader()->setStretchLastSection(true);
    FillTypeMappings(FData.TypeMappings);
    auto* buttons = new QHBoxLayout;
    auto* add = new QPushButton(QStringLiteral("Add"), page);
    auto* del = new QPushButton(QStringLiteral("Delete"), page);
    auto* reset = new QPushButton(QStringLiteral("Reset"), page);
    reset->setObjectName(QStringLiteral("btnResetMappings"));
    buttons->addWidget(add);
    buttons->addWidget(del);
    buttons->addWidget(reset);
    buttons->addStretch();
    connect(add, &QPushButton::clicked, this, [this] {
        const int row = grdTypeMappings->rowCount();
        grdTypeMappings->insertRow(row);
        grdTypeMappings->setItem(row, 0, new QTableWidgetItem);
        grdTypeMappings->setItem(row, 1, new QTableWidgetItem(DataTypeName(ftString)));
        grdTypeMappings->editItem(grdTypeMappings->item(row, 0));
    });
    connect(del, &QPushButton::clicked, this, [this] {
        if (grdTypeMappings->currentRow() >= 0) grdTypeMappings->removeRow(grdTypeMappings->currentRow());
    });
    connect(reset, &QPushButton::clicked, this, [this] {
        if (QMessageBox::question(this, windowTitle(), QStringLiteral("Reset to default mappings?"),
                                  QMessageBox::Yes | QMessageBox::No) != QMessageBox::Yes)
            return;
        TDLTypeMappings defaults;
        ResetTypeMappings(defaults);
        FillTypeMappings(defaults);
    });
    layout->addWidget(grdTypeMappings, 1);
    layout->addLayout(buttons);
    return page;
}

QWidget* TfrmOptions::CreateFontsPage() {
    auto* page = new QWidget;
    auto* form = new QFormLayout(page);
    btnApplicationFont = new QPushButton(FontText(FData.DefaultFont), page);
    btnApplicationFont->setObjectName(QStringLiteral("btnApplicationFont"));
    btnEditorFont = new QPushButton(FontText(FData.EditorFont), page);
    btnEditorFont->setObjectName(QStringLiteral("btnEditorFont"));
    btnApplicationFont->setToolTip(QStringLiteral("Select font"));
    btnEditorFont->setToolTip(QStringLiteral("Select font"));
    form->addRow(QStringLiteral("Application Font"), btnApplicationFont);
    form->addRow(QStringLiteral("SQL Editor Font"), btnEditorFont);
    auto pick = [this](QPushButton* button, QFont& font) {
        bool ok = false;
        const QFont chosen = QFontDialog::getFont(&ok, font, this, QStringLiteral("Select font"));
        if (!ok) return;
        font = chosen;
        button->setText(FontText(font));
    };
    connect(btnApplicationFont, &QPushButton::clicked, this,
            [this, pick] { pick(btnApplicationFont, FData.DefaultFont); });
    connect(btnEditorFont, &QPushButton::clicked, this,
            [this, pick] { pick(btnEditorFont, FData.EditorFont); });
    return page;
}

QWidget* TfrmOptions::CreateUpdatesPage() {
    const TProgramSettings& s = FData.Settings;
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    auto* group = new QGroupBox(QStringLiteral("Check for updates"), page);
    auto* gl = new QHBoxLayout(group);
    gl->addWidget(rbNeverCheck =
                      Radio(QStringLiteral("Never"), s.CheckUpdatesOption == 0, "rbNeverCheck", group));
    gl->addWidget(rbCheckEvery =
                      Radio(QStringLiteral("Every"), s.CheckUpdatesOption != 0, "rbCheckEvery", group));
    seCheckDays = new QSpinBox(group);
    seCheckDays->setObjectName(QStringLiteral("seCheckDays"));
    seCheckDays->setRange(1, 365);
    seCheckDays->setValue(qBound(1, s.CheckUpdatesDays, 365));
    gl->addWidget(seCheckDays);
    gl->addWidget(new QLabel(QStringLiteral("days"), group));
    gl->addStretch();
    layout->addWidget(group);
    layout->addStretch();
    connect(rbCheckEvery, &QRadioButton::toggled, this, &TfrmOptions::UpdateEnabled);
    return page;
}

QWidget* TfrmOptions::CreateAssociationsPage() {
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(
        new QLabel(QStringLiteral("Associate the following file extensions with Brindle:"), page));
    lbExtensions = new QListWidget(page);
    lbExtensions->setObjectName(QStringLiteral("lbExtensions"));
    lbExtensions->setSortingEnabled(true);
    QStringList extensions{QStringLiteral(".db"), QStringLiteral(".db3"), QStringLiteral(".sqlite")};
    for (QString ext : FData.AssociatedExtensions) {
        ext.remove(u'*');
        if (!extensions.contains(ext, Qt::CaseInsensitive)) extensions << ext;
    }
    for (const QString& ext : extensions) {
        auto* item = new QListWidgetItem(ext, lbExtensions);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(FData.AssociatedExtensions.contains(QLatin1Char('*') + ext, Qt::CaseInsensitive)
                                ? Qt::Checked
                                : Qt::Unchecked);
    }
    auto* add = new QPushButton(QStringLiteral("Add"), page);
    connect(add, &QPushButton::clicked, this, [this] {
        QString ext = QInputDialog::getText(this, QStringLiteral("File Associations"),
                                            QStringLiteral("Please enter the new file extension:"))
                          .trimmed();
        if (ext.isEmpty()) return;
        if (!ext.startsWith(u'.')) ext.prepend(u'.');
        if (!lbExtensions->findItems(ext, Qt::MatchFixedString).isEmpty()) return;
        auto* item = new QListWidgetItem(ext, lbExtensions);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Checked);
    });
    layout->addWidget(lbExtensions, 1);
    layout->addWidget(add, 0, Qt::AlignLeft);
    return page;
}

QWidget* TfrmOptions::CreateCodeCompletionPage() {
    const TProgramSettings& s = FData.Settings;
    auto* page = new QWidget;
    auto* layout = new QVBoxLayout(page);
    auto* completion = new QGroupBox(QStringLiteral("Code Completion"), page);
    auto* cl = new QHBoxLayout(completion);
    cl->addWidget(cbCodeCompletion =
                      Check(QStringLiteral("Enabled"), s.CodeCompletion, "cbCodeCompletion", completion));
    cl->addWidget(cbAutoInvoke =
                      Check(QStringLiteral("Auto-invoke"), s.AutoInvoke, "cbAutoInvoke", completion));
    cl->addWidget(new QLabel(QStringLiteral("Delay:"), completion));
    cbDelay = new QComboBox(completion);
    cbDelay->setObjectName(QStringLiteral("cbDelay"));
    cbDelay->addItems(
        {QStringLiteral("None"), QStringLiteral("Low"), QStringLiteral("Medium"), QStringLiteral("High")});
    cbDelay->setCurrentIndex(qBound(0, s.CodeCompletionDelay, 3));
    cl->addWidget(cbDelay);
    cl->addStretch();
    auto* templates = new QGroupBox(QStringLiteral("Code Templates"), page);
    auto* tl = new QVBoxLayout(templates);
    tl->addWidget(cbTemplateCompletion = Check(QStringLiteral("Enabled"), s.CodeTemplateCompletion,
                                               "cbTemplateCompletion", templates));
    tl->addWidget(new QLabel(QStringLiteral("Templates:"), templates));
    mmoTemplates = new QPlainTextEdit(templates);
    mmoTemplates->setObjectName(QStringLiteral("mmoTemplates"));
    mmoTemplates->setPlainText(s.CodeTemplates == kNoCodeTemplates ? FData.DefaultCodeTemplates
                                                                   : s.CodeTemplates);
    tl->addWidget(mmoTemplates, 1);
    auto* reset = new QPushButton(QStringLiteral("Reset"), templates);
    connect(reset, &QPushButton::clicked, this,
            [this] { mmoTemplates->setPlainText(FData.DefaultCodeTemplates); });
    tl->addWidget(reset, 0, Qt::AlignLeft);
    layout->addWidget(completion);
    layout->addWidget(templates, 1);
    connect(cbCodeCompletion, &QCheckBox::toggled, this, &TfrmOptions::UpdateEnabled);
    connect(cbAutoInvoke, &QCheckBox::toggled, this, &TfrmOptions::UpdateEnabled);
    connect(cbTemplateCompletion, &QCheckBox::toggled, this, &TfrmOptions::UpdateEnabled);
    return page;
}

void TfrmOptions::UpdateEnabled() {
    seTextLimit->setEnabled(rbResultsAsText->isChecked());
    seCheckDays->setEnabled(rbCheckEvery->isChecked());
    btnOddColor->setEnabled(cbAlternateRowColors->isChecked());
    btnEvenColor->setEnabled(cbAlternateRowColors->isChecked());
    cbAutoInvoke->setEnabled(cbCodeCompletion->isChecked());
    cbDelay->setEnabled(cbCodeCompletion->isChecked() && cbAutoInvoke->isChecked());
    mmoTemplates->setEnabled(cbTemplateCompletion->isChecked());
}

bool TfrmOptions::Collect() {
    TDLTypeMappings mappings;
    for (int row = 0; row < grdTypeMappings->rowCount(); ++row) {
        const QString declared =
            grdTypeMappings->item(row, 0) ? grdTypeMappings->item(row, 0)->text().trimmed() : QString();
        const QString mapped =
            grdTypeMappings->item(row, 1) ? grdTypeMappings->item(row, 1)->text().trimmed() : QString();
        const TFieldType type = StrToDataType(mapped);
        if (type == ftUnknown || declared.isEmpty() || mappings.FindDeclaredType(declared)) {
            QMessageBox::warning(
                this, windowTitle(),
                QStringLiteral("Invalid type mapping: ") + declared + QStringLiteral(" -> ") + mapped);
            lbPages->setCurrentRow(kPages.indexOf(QStringLiteral("Type Mappings")));
            grdTypeMappings->setCurrentCell(row, type == ftUnknown ? 1 : 0);
            return false;
        }
        mappings.AddTypeMapping(declared, type);
    }
    FData.TypeMappings = mappings;

    for (int i = 0; i < tvFeatures->topLevelItemCount(); ++i) {
        const QTreeWidgetItem* category = tvFeatures->topLevelItem(i);
        for (int j = 0; j < category->childCount(); ++j)
            FData.Features.GetItems(category->text(0), category->child(j)->text(0)).Enabled =
                category->child(j)->checkState(0) == Qt::Checked;
    }

    TProgramSettings& s = FData.Settings;
    s.Unicode = rbUnicode->isChecked();
    s.SingleInstance = cbSingleInstance->isChecked();
    s.RememberOpenDatabases = cbRememberOpenDatabases->isChecked();
    s.UseLargeIcons = cbUseLargeIcons->isChecked();
    s.EditorWordWrap = cbEditorWordWrap->isChecked();
    s.EditorTabWidth = seTabWidth->value();
    s.ConfirmDragDropObjects = cbConfirmDragDrop->isChecked();
    s.ConfirmCopyPasteObjects = cbConfirmCopyPasteObjects->isChecked();
    s.ConfirmCopyPasteProperties = cbConfirmCopyPasteProperties->isChecked();
    s.LookAndFeel = lbLookAndFeel->currentRow();
    s.QuoteChars = rbBrackets->isChecked() ? QStringLiteral("[]") : QStringLiteral("\"\"");
    s.UseUpperCase = rbUpperCase->isChecked();
    if (lbLibraries->currentItem())
        s.LibraryFileName = lbLibraries->currentItem()->data(Qt::UserRole).toString();
    s.AlternateBackColor = cbAlternateRowColors->isChecked();
    s.AutoRefreshData = cbAutoRefreshData->isChecked();
    s.ShowCellHints = cbShowCellHints->isChecked();
    s.ShowImages = cbShowImages->isChecked();
    s.ShowRecordNumbers = cbShowRecordNumbers->isChecked();
    s.ShowRowID = cbShowRowID->isChecked();
    s.RecordEditorOnDblClick = cbDblClickRecordEditor->isChecked();
    s.CellAutoHeight = cbCellAutoHeight->isChecked();
    s.ThumbTracking = cbThumbTracking->isChecked();
    s.ResultsAsText = rbResultsAsText->isChecked();
    s.TextSizeLimit = seTextLimit->value();
    s.ShowRecordCounts = cbShowRecordCount->isChecked();
    s.OddColor = FOddColor;
    s.EvenColor = FEvenColor;
    s.CheckUpdatesOption = rbCheckEvery->isChecked() ? 1 : 0;
    s.CheckUpdatesDays = seCheckDays->value();
    s.CodeCompletion = cbCodeCompletion->isChecked();
    s.AutoInvoke = cbAutoInvoke->isChecked();
    s.CodeCompletionDelay = cbDelay->currentIndex();
    s.CodeTemplateCompletion = cbTemplateCompletion->isChecked();
    const QString templates = mmoTemplates->toPlainText();
    s.CodeTemplates = templates == FData.DefaultCodeTemplates ? kNoCodeTemplates : templates;
    FData.CheckedExtensions.clear();
    for (int i = 0; i < lbExtensions->count(); ++i)
        if (lbExtensions->item(i)->checkState() == Qt::Checked)
            FData.CheckedExtensions << lbExtensions->item(i)->text();
    return true;
}

void TfrmOptions::accept() {
    if (!Collect()) return;
    QDialog::accept();
}

}  // namespace brindle
