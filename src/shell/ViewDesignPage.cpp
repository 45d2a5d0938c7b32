#include "ViewDesignPage.h"

#include "DesignPageTools.h"

#include "Application.h"
#include "ClipboardFormats.h"
#include "DesignDialogs.h"
#include "TableDesignPage.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLiteDatabase.h"
#include "interchange/ClipObjects.h"
#include "schema/DLSQLiteParser.h"
#include "schema/DLSchemaReader.h"
#include "schema/DMBrindle.h"
#include "widgets/SQLEditor.h"

#include <QAction>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QFormLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QSplitter>
#include <QTableWidget>
#include <QToolBar>
#include <QVBoxLayout>

namespace brindle {

namespace {

QAction* MakeAction(QObject* Parent, const char* Name, const QString& Caption) {
    auto* action = new QAction(Caption, Parent);
    action->setObjectName(QLatin1String(Name));
    return action;
}


}  // namespace

// ---------------------------------------------------------------------------
// View

TViewDesignPage::TViewDesignPage(TdmBrindle& DM, THost Host, QWidget* Parent)
    : QWidget(Parent), FDM(DM), FHost(std::move(Host)) {
    setObjectName(QStringLiteral("ViewDesign"));
    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    edViewName = new QLineEdit(this);
    edViewName->setObjectName(QStringLiteral("edViewName"));
    edViewColumns = new QLineEdit(this);
    edViewColumns->setObjectName(QStringLiteral("edViewColumns"));
    edViewColumns->setPlaceholderText(QStringLiteral("column names, if any"));
    cbTemporaryView = new QCheckBox(QStringLiteral("Temporary"), this);
    cbTemporaryView->setObjectName(QStringLiteral("cbTemporaryView"));
    top->addWidget(new QLabel(QStringLiteral("View name:"), this));
    top->addWidget(edViewName, 2);
    top->addWidget(new QLabel(QStringLiteral("Columns:"), this));
    top->addWidget(edViewColumns, 1);
    top->addWidget(cbTemporaryView);
    layout->addLayout(top);

    acApplyViewDesign = MakeAction(this, "acApplyViewDesign", QStringLiteral("Apply"));
    acCancelViewDesign = MakeAction(this, "acCancelViewDesign", QStringLiteral("Cancel"));
    acNewView = MakeAction(this, "acNewView", QStringLiteral("New &View"));
    acAddViewTrigger = MakeAction(this, "acAddViewTrigger", QStringLiteral("Add Trigger"));
    acModifyViewTrigger = MakeAction(this, "acModifyViewTrigger", QStringLiteral("Modify Trigger"));
    acDeleteViewTrigger = MakeAction(this, "acDeleteViewTrigger", QStringLiteral("Delete Trigger"));
    acCopyViewTriggers = MakeAction(this, "acCopyViewTriggers", QStringLiteral("Copy Triggers"));
    acPasteViewTriggers = MakeAction(this, "acPasteViewTriggers", QStringLiteral("Paste Triggers"));
    auto* bar = new QToolBar(this);
    bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    bar->addActions({acApplyViewDesign, acCancelViewDesign});
    layout->addWidget(bar);

    auto* splitter = new QSplitter(Qt::Vertical, this);
    mmoViewSQL = new TSQLEditor(splitter);
    mmoViewSQL->setObjectName(QStringLiteral("mmoViewSQL"));
    auto* triggers = new QWidget(splitter);
    auto* triggersLayout = new QVBoxLayout(triggers);
    triggersLayout->setContentsMargins(0, 0, 0, 0);
    auto* triggerBar = new QToolBar(triggers);
    triggerBar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    triggerBar->addActions(
        {acAddViewTrigger, acModifyViewTrigger, acDeleteViewTrigger, acCopyViewTriggers, acPasteViewTriggers});
    triggersLayout->addWidget(triggerBar);
    auto* triggerSplitter = new QSplitter(Qt::Horizontal, triggers);
    grdViewTriggers =
        MakeDesignGrid(triggerSplitter, "grdViewTriggers", {QStringLiteral("Name"), QStringLiteral("Temporary")});
    mmoViewTrigger = new TSQLEditor(triggerSplitter);
    mmoViewTrigger->setObjectName(QStringLiteral("mmoViewTrigger"));
    mmoViewTrigger->setReadOnly(true);
    triggersLayout->addWidget(triggerSplitter, 1);
    splitter->addWidget(mmoViewSQL);
    splitter->addWidget(triggers);
    layout->addWidget(splitter, 1);

    acDeleteViewTrigger->setShortcut(QKeySequence::Delete);
    acCopyViewTriggers->setShortcut(QKeySequence::Copy);
    acPasteViewTriggers->setShortcut(QKeySequence::Paste);
    for (QAction* a :
         {acAddViewTrigger, acModifyViewTrigger, acDeleteViewTrigger, acCopyViewTriggers, acPasteViewTriggers}) {
        a->setShortcutContext(Qt::WidgetShortcut);
        grdViewTriggers->addAction(a);
    }
    connect(acAddViewTrigger, &QAction::triggered, this, [this] { AddViewTrigger(); });
    connect(acModifyViewTrigger, &QAction::triggered, this, [this] { ModifyViewTrigger(); });
    connect(acDeleteViewTrigger, &QAction::triggered, this, [this] { DeleteViewTriggers(); });
    connect(acCopyViewTriggers, &QAction::triggered, this, [this] { CopyViewTriggers(); });
    connect(acPasteViewTriggers, &QAction::triggered, this, [this] { PasteViewTriggers(); });
    connect(grdViewTriggers, &QTableWidget::cellDoubleClicked, this, [this] {
        if (acModifyViewTrigger->isEnabled()) acModifyViewTrigger->trigger();
    });
    connect(grdViewTriggers, &QTableWidget::currentCellChanged, this, [this] { UpdateViewTriggerSQL(); });
    auto modified = [this] {
        if (FUpdating) return;
        FDM.FViewDesignModified = true;
        Changed();
    };
    connect(edViewName, &QLineEdit::textEdited, this, modified);
    connect(edViewColumns, &QLineEdit::textEdited, this, modified);
    connect(cbTemporaryView, &QCheckBox::toggled, this, modified);
    connect(mmoViewSQL, &QsciScintilla::textChanged, this, modified);
}

TViewDesignPage::~TViewDesignPage() {
    // The editors and the grid go after this part of the page.
    for (QObject* child : findChildren<QObject*>()) child->disconnect(this);
}

void TViewDesignPage::LoadView(TDLSQLiteDatabase& Database, const QString& ViewName) {
    const TFlagGuard updating(FUpdating);
    FCreatingView = false;
    FHasDesign = false;
    FDM.LoadViewDesign(Database, ViewName);
    FHasDesign = true;
    TDLViewDef def;
    ReadViewDef(Database, ViewName, def);
    edViewName->setText(ViewName);
    edViewColumns->setText(def.FColumnNames.join(QStringLiteral(", ")));
    cbTemporaryView->setChecked(TDLSQLiteDatabase::IsTempView(ViewName) || def.FIsTemporary);
    cbTemporaryView->setEnabled(false);
    mmoViewSQL->setText(def.FAsClause);
    FDM.FViewDesignModified = false;
    RefreshTriggers();
}

void TViewDesignPage::NewView() {
    {
        const TFlagGuard updating(FUpdating);
        FCreatingView = true;
        FHasDesign = true;
        // The triggers of the view shown before are no part of a new one.
        QList<qint64> old;
        for (const TDesignTrigger& t : FDM.ViewTriggers()) old << t.RowID;
        FDM.DeleteViewTriggers(old);
        edViewName->clear();
        edViewColumns->clear();
        cbTemporaryView->setChecked(false);
        cbTemporaryView->setEnabled(true);
        mmoViewSQL->setText(QStringLiteral("select "));
        grdViewTriggers->setRowCount(0);
        mmoViewTrigger->clear();
    }
    FDM.FViewDesignModified = true;
    edViewName->setFocus();
    Changed();
}

void TViewDesignPage::ClearView() {
    const TFlagGuard updating(FUpdating);
    FCreatingView = false;
    FHasDesign = false;
    edViewName->clear();
    edViewColumns->clear();
    mmoViewSQL->clear();
    grdViewTriggers->setRowCount(0);
    mmoViewTrigger->clear();
}

bool TViewDesignPage::EditingView() const {
    return FDM.FViewDesignModified || FCreatingView;
}

QString TViewDesignPage::EditorViewName() const {
    return edViewName->text().trimmed();
}

QString TViewDesignPage::AsClause() const {
    return mmoViewSQL->text().trimmed();
}

QStringList TViewDesignPage::ColumnNames() const {
    QStringList names;
    FieldsToList(edViewColumns->text(), names, u',');
    for (QString& name : names) name = UnQuoteIdentifier(name.trimmed());
    names.removeAll(QString());
    return names;
}

bool TViewDesignPage::IsTemporary() const {
    return cbTemporaryView->isChecked();
}

void TViewDesignPage::RefreshTriggers() {
    if (!FHasDesign) return;
    std::vector<TDesignGridRow> rows;
    for (const TDesignTrigger& t : FDM.ViewTriggers())
        rows.push_back({t.RowID, {t.Name, t.IsTemporary ? QStringLiteral("True") : QString()}});
    FillDesignGrid(grdViewTriggers, rows);
    UpdateViewTriggerSQL();
}

void TViewDesignPage::UpdateControls(bool Running) {
    if (!FHasDesign) {
        for (QAction* a : findChildren<QAction*>(QString(), Qt::FindDirectChildrenOnly))
            if (a != acNewView) a->setEnabled(false);
        return;
    }
    const bool editing = EditingView();
    acApplyViewDesign->setEnabled(FDM.FViewDesignModified && !EditorViewName().isEmpty() && !AsClause().isEmpty() &&
                                  !Running);
    acCancelViewDesign->setEnabled(editing && !Running);
    const bool selected = !TTableDesignPage::SelectedRowIDs(grdViewTriggers).isEmpty() && !Running;
    acAddViewTrigger->setEnabled(!FCreatingView && !Running);
    acModifyViewTrigger->setEnabled(selected);
    acDeleteViewTrigger->setEnabled(selected);
    acCopyViewTriggers->setEnabled(grdViewTriggers->rowCount() > 0 && !Running);
    acPasteViewTriggers->setEnabled(ClipboardHasFormat(CF_SE_TRIGGER) && !FCreatingView && !Running);
}

void TViewDesignPage::Changed() {
    UpdateViewTriggerSQL();
    if (FHost.UpdateControls) FHost.UpdateControls();
}

void TViewDesignPage::Edit(const std::function<void()>& Command) {
    try {
        Command();
    } catch (const std::exception& e) {
        if (FHost.ShowError) FHost.ShowError(ExceptionMessage(e));
    }
    RefreshTriggers();
    Changed();
}

void TViewDesignPage::UpdateViewTriggerSQL() {
    if (!FHasDesign) {
        mmoViewTrigger->clear();
        return;
    }
    const int row = grdViewTriggers->currentRow();
    const qint64 id = row >= 0 ? RowIDAt(grdViewTriggers, row) : 0;
    const std::vector<TDesignTrigger> triggers = FDM.ViewTriggers();
    const TDesignTrigger* trigger = FindRow(triggers, id);
    QString text;
    if (trigger) {
        text = trigger->SQL;
        QString schema, view;
        ParseObject(EditorViewName(), schema, view);
        // The trigger follows a renamed view on apply; show it so already.
        if (!view.isEmpty()) {
            try {
                text = ReplaceTableNameInTrigger(trigger->SQL, QuoteObject(QString(), view));
            } catch (const std::exception&) {
            }
        }
    }
    if (mmoViewTrigger->text() != text) mmoViewTrigger->setText(text);
}

void TViewDesignPage::AddViewTrigger() {
    QStringList taken;
    for (const TDesignTrigger& t : FDM.ViewTriggers()) taken << t.Name;
    QString schema, view;
    ParseObject(EditorViewName(), schema, view);
    TDesignTrigger trigger;
    trigger.Name = FreeName(view + QStringLiteral("_trigger"), taken);
    trigger.SQL = NewTriggerSQL(trigger.Name, QuoteObject(QString(), view), true);
    trigger.IsTemporary = IsTemporary();
    if (!TfrmTriggerEditor::Execute(this, trigger)) return;
    qint64 id = 0;
    Edit([&] { id = FDM.AddViewTrigger(trigger); });
    TTableDesignPage::SelectRowID(grdViewTriggers, id);
}

void TViewDesignPage::ModifyViewTrigger() {
    const std::optional<TDesignTrigger> current = CurrentDesignRow(grdViewTriggers, FDM.ViewTriggers());
    if (!current) return;
    const qint64 id = current->RowID;
    TDesignTrigger trigger = *current;
    if (!TfrmTriggerEditor::Execute(this, trigger)) return;
    Edit([&] { FDM.ModifyViewTrigger(id, trigger); });
    TTableDesignPage::SelectRowID(grdViewTriggers, id);
}

void TViewDesignPage::DeleteViewTriggers() {
    const QList<qint64> ids = TTableDesignPage::SelectedRowIDs(grdViewTriggers);
    if (ids.isEmpty()) return;
    if (!FHost.Confirm(ids.size() == 1 ? QStringLiteral("Delete selected trigger?")
                                       : QStringLiteral("Delete selected triggers?")))
        return;
    Edit([&] { FDM.DeleteViewTriggers(ids); });
}

void TViewDesignPage::CopyViewTriggers() {
    const QList<qint64> ids = TTableDesignPage::SelectedRowIDs(grdViewTriggers);
    if (ids.isEmpty()) return;
    const std::vector<TDesignTrigger> rows = RowsOf(FDM.ViewTriggers(), ids);
    auto data = std::make_unique<QMimeData>();
    SetFormatBytes(*data, CF_SE_TRIGGER, ComponentToBytes(ClipFromTriggers(rows)));
    data->setText(DesignGridText(grdViewTriggers, ids));
    QGuiApplication::clipboard()->setMimeData(data.release());
}

void TViewDesignPage::PasteViewTriggers() {
    QByteArray bytes;
    TClipTriggers clip;
    try {
        if (!ClipboardGetBytes(CF_SE_TRIGGER, bytes) || !BytesToComponent(bytes, clip)) return;
    } catch (const std::exception& e) {
        if (FHost.ShowError) FHost.ShowError(ExceptionMessage(e));
        return;
    }
    if (FHost.ConfirmCopyPasteProperties && FHost.ConfirmCopyPasteProperties() &&
        !FHost.Confirm(QStringLiteral("Paste triggers from clipboard?")))
        return;
    Edit([&] { FDM.PasteViewTriggers(TriggersFromClip(clip)); });
}

// ---------------------------------------------------------------------------
// Virtual table

QStringList VirtualTableModules(TDLSQLiteDatabase* Database) {
    QStringList modules = {QStringLiteral("fts3"), QStringLiteral("fts4"), QStringLiteral("fts5"),
                           QStringLiteral("rtree")};
    if (Database && Database->Connected()) {
        // Libraries before 3.30 have no such function: the fixed list stays.
        try {
            QStringList listed;
            Database->GetValues(QStringLiteral("select name from pragma_module_list order by name"), listed);
            for (const QString& name : listed)
                if (!modules.contains(name, Qt::CaseInsensitive)) modules << name;
        } catch (const std::exception&) {
        }
    }
    return modules;
}

TVirtualTableDesignPage::TVirtualTableDesignPage(TdmBrindle& DM, THost Host, QWidget* Parent)
    : QWidget(Parent), FDM(DM), FHost(std::move(Host)) {
    setObjectName(QStringLiteral("VirtualTableDesign"));
    auto* layout = new QVBoxLayout(this);
    auto* form = new QFormLayout;
    edVirtualTableName = new QLineEdit(this);
    edVirtualTableName->setObjectName(QStringLiteral("edVirtualTableName"));
    cbModule = new QComboBox(this);
    cbModule->setObjectName(QStringLiteral("cbModule"));
    cbModule->setEditable(true);
    mmoModuleArguments = new QPlainTextEdit(this);
    mmoModuleArguments->setObjectName(QStringLiteral("mmoModuleArguments"));
    form->addRow(QStringLiteral("Name:"), edVirtualTableName);
    form->addRow(QStringLiteral("Module:"), cbModule);
    form->addRow(QStringLiteral("Arguments:"), mmoModuleArguments);
    acApplyVirtualTableDesign = MakeAction(this, "acApplyVirtualTableDesign", QStringLiteral("Apply"));
    acCancelVirtualTableDesign = MakeAction(this, "acCancelVirtualTableDesign", QStringLiteral("Cancel"));
    acNewVirtualTable = MakeAction(this, "acNewVirtualTable", QStringLiteral("New Virtual &Table"));
    auto* bar = new QToolBar(this);
    bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    bar->addActions({acApplyVirtualTableDesign, acCancelVirtualTableDesign});
    layout->addWidget(bar);
    layout->addLayout(form, 1);

    auto modified = [this] {
        if (FUpdating) return;
        FDM.FVirtualTableDesignModified = true;
        Changed();
    };
    connect(edVirtualTableName, &QLineEdit::textEdited, this, modified);
    connect(cbModule, &QComboBox::currentTextChanged, this, modified);
    connect(mmoModuleArguments, &QPlainTextEdit::textChanged, this, modified);
}

TVirtualTableDesignPage::~TVirtualTableDesignPage() {
    for (QObject* child : findChildren<QObject*>()) child->disconnect(this);
}

void TVirtualTableDesignPage::LoadVirtualTable(TDLSQLiteDatabase& Database, const QString& TableName) {
    const TFlagGuard updating(FUpdating);
    FCreatingVirtualTable = false;
    FLoadedTableName = TableName;
    TDLVirtualTableDef def;
    ReadVirtualTableDef(Database, TableName, def);
    edVirtualTableName->setText(TableName);
    edVirtualTableName->setReadOnly(true);
    cbModule->clear();
    cbModule->addItems(VirtualTableModules(&Database));
    cbModule->setCurrentText(def.FModuleName);
    mmoModuleArguments->setPlainText(def.FModuleArguments.trimmed());
    FDM.FVirtualTableDesignModified = false;
}

void TVirtualTableDesignPage::NewVirtualTable(TDLSQLiteDatabase& Database) {
    {
        const TFlagGuard updating(FUpdating);
        FCreatingVirtualTable = true;
        FLoadedTableName.clear();
        edVirtualTableName->clear();
        edVirtualTableName->setReadOnly(false);
        cbModule->clear();
        cbModule->addItems(VirtualTableModules(&Database));
        cbModule->setCurrentIndex(0);
        mmoModuleArguments->clear();
    }
    FDM.FVirtualTableDesignModified = true;
    edVirtualTableName->setFocus();
    Changed();
}

void TVirtualTableDesignPage::ClearVirtualTable() {
    const TFlagGuard updating(FUpdating);
    FCreatingVirtualTable = false;
    FLoadedTableName.clear();
    edVirtualTableName->clear();
    mmoModuleArguments->clear();
}

bool TVirtualTableDesignPage::EditingVirtualTable() const {
    return FDM.FVirtualTableDesignModified || FCreatingVirtualTable;
}

QString TVirtualTableDesignPage::EditorVirtualTableName() const {
    return edVirtualTableName->text().trimmed();
}

QString TVirtualTableDesignPage::ModuleName() const {
    return cbModule->currentText().trimmed();
}

QString TVirtualTableDesignPage::ModuleArguments() const {
    return mmoModuleArguments->toPlainText();
}

void TVirtualTableDesignPage::UpdateControls(bool Running) {
    acApplyVirtualTableDesign->setEnabled(FDM.FVirtualTableDesignModified && !EditorVirtualTableName().isEmpty() &&
                                          !ModuleName().isEmpty() && !Running);
    acCancelVirtualTableDesign->setEnabled(EditingVirtualTable() && !Running);
}

void TVirtualTableDesignPage::Changed() {
    if (FHost.UpdateControls) FHost.UpdateControls();
}

}  // namespace brindle
