#include "TableDesignPage.h"

#include "DesignPageTools.h"

#include "Application.h"
#include "ClipboardFormats.h"
#include "DesignDialogs.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/DLTypeMapping.h"
#include "engine/SQLText.h"
#include "interchange/ClipObjects.h"
#include "schema/DLSQLiteParser.h"
#include "schema/DLSchemaReader.h"
#include "schema/DMBrindle.h"
#include "widgets/SQLEditor.h"

#include <QAction>
#include <QCheckBox>
#include <QClipboard>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QSplitter>
#include <QTabWidget>
#include <QTableWidget>
#include <QToolBar>
#include <QVBoxLayout>
#include <QVersionNumber>
#include <algorithm>
#include <map>

namespace brindle {

namespace {

using TGridRow = TDesignGridRow;

}  // namespace

QTableWidget* MakeDesignGrid(QWidget* Parent, const char* Name, const QStringList& Headers) {
    auto* grid = new QTableWidget(0, static_cast<int>(Headers.size()), Parent);
    grid->setObjectName(QLatin1String(Name));
    grid->setHorizontalHeaderLabels(Headers);
    grid->setSelectionBehavior(QAbstractItemView::SelectRows);
    grid->setSelectionMode(QAbstractItemView::ExtendedSelection);
    grid->setEditTriggers(QAbstractItemView::NoEditTriggers);
    grid->horizontalHeader()->setStretchLastSection(true);
    grid->verticalHeader()->setDefaultSectionSize(grid->fontMetrics().height() + 6);
    // The fields' grid numbers its rows itself; the others need no numbers.
    grid->verticalHeader()->setVisible(false);
    grid->setContextMenuPolicy(Qt::ActionsContextMenu);
    return grid;
}

namespace {

int RowOf(const QTableWidget* Grid, qint64 RowID) {
    for (int r = 0; r < Grid->rowCount(); ++r)
        if (RowIDAt(Grid, r) == RowID) return r;
    return -1;
}

}  // namespace

void FillDesignGrid(QTableWidget* Grid, const std::vector<TGridRow>& Rows) {
    QList<qint64> selected;
    for (const QModelIndex& index : Grid->selectionModel()->selectedRows()) selected << RowIDAt(Grid, index.row());
    const int oldCurrent = Grid->currentRow();
    const qint64 current = oldCurrent >= 0 ? RowIDAt(Grid, oldCurrent) : 0;
    Grid->clearSelection();
    Grid->setRowCount(static_cast<int>(Rows.size()));
    for (int r = 0; r < static_cast<int>(Rows.size()); ++r) {
        const TGridRow& row = Rows[static_cast<size_t>(r)];
        for (int c = 0; c < Grid->columnCount(); ++c) {
            auto* item = new QTableWidgetItem(row.Cells.value(c));
            item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
            if (c == 0) item->setData(Qt::UserRole, row.RowID);
            Grid->setItem(r, c, item);
        }
    }
    // A design has few rows: the columns may fit their texts.
    Grid->resizeColumnsToContents();
    if (Rows.empty()) return;
    int currentRow = RowOf(Grid, current);
    if (currentRow < 0) currentRow = std::clamp(oldCurrent, 0, static_cast<int>(Rows.size()) - 1);
    QItemSelectionModel* model = Grid->selectionModel();
    model->setCurrentIndex(Grid->model()->index(currentRow, 0), QItemSelectionModel::NoUpdate);
    bool any = false;
    for (const qint64 id : selected)
        if (const int r = RowOf(Grid, id); r >= 0) {
            model->select(Grid->model()->index(r, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
            any = true;
        }
    if (!any)
        model->select(Grid->model()->index(currentRow, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
}

namespace {

QString BoolCell(bool Value) {
    return Value ? QStringLiteral("True") : QString();
}

QString IndexFieldsText(const TDesignIndex& Index) {
    QStringList parts;
    for (const TDesignIndexField& f : Index.Fields) {
        QString part = QuoteIdentifierIfNeeded(f.FieldName);
        if (!f.Collate.isEmpty()) part += QStringLiteral(" COLLATE ") + f.Collate;
        if (!f.SortOrder.isEmpty()) part += u' ' + f.SortOrder;
        if (f.Autoincrement) part += QStringLiteral(" AUTOINCREMENT");
        parts << part;
    }
    return parts.join(QStringLiteral(", "));
}

}  // namespace

QString DesignGridText(const QTableWidget* Grid, const QList<qint64>& RowIDs) {
    QStringList lines, header;
    for (int c = 0; c < Grid->columnCount(); ++c) header << Grid->horizontalHeaderItem(c)->text();
    lines << header.join(u'\t');
    for (const qint64 id : RowIDs) {
        const int r = RowOf(Grid, id);
        if (r < 0) continue;
        QStringList cells;
        for (int c = 0; c < Grid->columnCount(); ++c) {
            QString text = Grid->item(r, c) ? Grid->item(r, c)->text() : QString();
            text.replace(u'\t', u' ').replace(u'\r', u' ').replace(u'\n', u' ');
            cells << text;
        }
        lines << cells.join(u'\t');
    }
    return lines.join(QStringLiteral("\r\n")) + QStringLiteral("\r\n");
}

bool CanRestructureTable(TDLSQLiteDatabase* Database, const QString& TableName) {
    if (!Database || !Database->Connected() || TableName.isEmpty()) return false;
    if (!Database->GetInTransaction()) return true;
    QString schema, table;
    ParseObject(TableName, schema, table);
    const QString value =
        Database->GetStringValue(schema.isEmpty() ? QStringLiteral("pragma foreign_keys")
                                                  : PragmaSQL(schema, "foreign_keys", QString()));
    if (value == u"0") return true;
    for (const QString& referring : GetReferencingTables(*Database, TableName))
        if (!TableIsEmpty(*Database, referring)) return false;
    return true;
}

QString FreeName(const QString& Name, const QStringList& Taken) {
    if (!Taken.contains(Name, Qt::CaseInsensitive)) return Name;
    for (int i = 1;; ++i) {
        const QString candidate = QStringLiteral("%1_%2").arg(Name).arg(i);
        if (!Taken.contains(candidate, Qt::CaseInsensitive)) return candidate;
    }
}

TTableDesignPage::TTableDesignPage(TdmBrindle& DM, THost Host, QWidget* Parent)
    : QWidget(Parent), FDM(DM), FHost(std::move(Host)) {
    setObjectName(QStringLiteral("TableDesign"));
    CreateWidgets();
    CreateActions();
}

TTableDesignPage::~TTableDesignPage() {
    // The grids go after this part of the page: their last signals must
    // not reach it.
    for (QObject* child : findChildren<QObject*>()) child->disconnect(this);
}

void TTableDesignPage::CreateWidgets() {
    auto* layout = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    edTableName = new QLineEdit(this);
    edTableName->setObjectName(QStringLiteral("edTableName"));
    edTableName->setReadOnly(true);
    cbTemporaryTable = new QCheckBox(QStringLiteral("Temporary"), this);
    cbTemporaryTable->setObjectName(QStringLiteral("cbTemporaryTable"));
    cbTemporaryTable->setEnabled(false);
    cbWithoutRowID = new QCheckBox(QStringLiteral("Without RowID"), this);
    cbWithoutRowID->setObjectName(QStringLiteral("cbWithoutRowID"));
    cbStrict = new QCheckBox(QStringLiteral("Strict"), this);
    cbStrict->setObjectName(QStringLiteral("cbStrict"));
    lblReferences = new QLabel(this);
    lblReferences->setObjectName(QStringLiteral("lblReferences"));
    top->addWidget(new QLabel(QStringLiteral("Table name:"), this));
    top->addWidget(edTableName, 1);
    top->addWidget(cbTemporaryTable);
    top->addWidget(cbWithoutRowID);
    top->addWidget(cbStrict);
    top->addWidget(lblReferences);
    layout->addLayout(top);

    pcTableDesign = new QTabWidget(this);
    pcTableDesign->setObjectName(QStringLiteral("pcTableDesign"));
    grdFields = MakeDesignGrid(this, "grdFields",
                         {QStringLiteral("#"), QStringLiteral("Name"), QStringLiteral("Declared Type"),
                          QStringLiteral("Not Null"), QStringLiteral("On Conflict"), QStringLiteral("Default Value"),
                          QStringLiteral("Collate"), QStringLiteral("Generated")});
    grdIndexes = MakeDesignGrid(this, "grdIndexes",
                          {QStringLiteral("Name"), QStringLiteral("Type"), QStringLiteral("Fields"),
                           QStringLiteral("On Conflict"), QStringLiteral("Where Clause")});
    grdForeignKeys = MakeDesignGrid(this, "grdForeignKeys",
                              {QStringLiteral("Name"), QStringLiteral("Parent Table"), QStringLiteral("Child Key"),
                               QStringLiteral("Parent Key"), QStringLiteral("On Delete"), QStringLiteral("On Update"),
                               QStringLiteral("Match"), QStringLiteral("Deferrable"), QStringLiteral("Initially")});
    grdUniqueConstraints =
        MakeDesignGrid(this, "grdUniqueConstraints",
                 {QStringLiteral("Name"), QStringLiteral("Fields"), QStringLiteral("On Conflict")});
    grdCheckConstraints =
        MakeDesignGrid(this, "grdCheckConstraints", {QStringLiteral("Name"), QStringLiteral("Expression")});
    grdTableTriggers =
        MakeDesignGrid(this, "grdTableTriggers", {QStringLiteral("Name"), QStringLiteral("Temporary")});
    mmoTableTrigger = new TSQLEditor(this);
    mmoTableTrigger->setObjectName(QStringLiteral("mmoTableTrigger"));
    mmoTableTrigger->setReadOnly(true);

    auto page = [this](const char* Name, const QString& Caption) {
        auto* tab = new QWidget(pcTableDesign);
        tab->setObjectName(QLatin1String(Name));
        auto* box = new QVBoxLayout(tab);
        box->setContentsMargins(2, 2, 2, 2);
        pcTableDesign->addTab(tab, Caption);
        return tab;
    };
    tabFields = page("tabFields", QStringLiteral("Fields"));
    tabIndexes = page("tabIndexes", QStringLiteral("Indexes"));
    tabForeignKeys = page("tabForeignKeys", QStringLiteral("Foreign Keys"));
    tabConstraints = page("tabConstraints", QStringLiteral("Constraints"));
    tabTableTriggers = page("tabTableTriggers", QStringLiteral("Triggers"));
    layout->addWidget(pcTableDesign, 1);

    connect(edTableName, &QLineEdit::textEdited, this, [this](const QString& Text) {
        if (FUpdating) return;
        FDM.SetTableName(Text.trimmed());
        Changed();
    });
    connect(cbTemporaryTable, &QCheckBox::toggled, this, [this](bool Value) {
        if (FUpdating) return;
        FDM.SetTemporary(Value);
        Changed();
    });
    connect(cbWithoutRowID, &QCheckBox::toggled, this, [this](bool Value) {
        if (FUpdating) return;
        FDM.SetWithoutRowID(Value);
        Changed();
    });
    connect(cbStrict, &QCheckBox::toggled, this, [this](bool Value) {
        if (FUpdating) return;
        FDM.SetStrict(Value);
        Changed();
    });
    connect(grdTableTriggers, &QTableWidget::currentCellChanged, this, [this] { UpdateTableTriggerSQL(); });
    for (QTableWidget* grid : {grdFields, grdIndexes, grdForeignKeys, grdUniqueConstraints, grdCheckConstraints,
                               grdTableTriggers})
        connect(grid->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
            if (!FUpdating && FHost.UpdateControls) FHost.UpdateControls();
        });
}

void TTableDesignPage::CreateActions() {
    auto make = [this](const char* Name, const QString& Caption, auto Slot) {
        auto* action = new QAction(Caption, this);
        action->setObjectName(QLatin1String(Name));
        connect(action, &QAction::triggered, this, Slot);
        return action;
    };
    acApplyTableDesign = new QAction(QStringLiteral("Apply"), this);
    acApplyTableDesign->setObjectName(QStringLiteral("acApplyTableDesign"));
    acCancelTableDesign = new QAction(QStringLiteral("Cancel"), this);
    acCancelTableDesign->setObjectName(QStringLiteral("acCancelTableDesign"));
    acNewTable = new QAction(QStringLiteral("&New Table"), this);
    acNewTable->setObjectName(QStringLiteral("acNewTable"));

    acAddField = make("acAddField", QStringLiteral("Add Field"), [this] { AddField(); });
    acModifyField = make("acModifyField", QStringLiteral("Modify Field"), [this] { ModifyField(); });
    acDeleteField = make("acDeleteField", QStringLiteral("Delete Field"), [this] { DeleteFields(); });
    acMoveUpField = make("acMoveUpField", QStringLiteral("Move Up"), [this] { MoveFields(true); });
    acMoveDownField = make("acMoveDownField", QStringLiteral("Move Down"), [this] { MoveFields(false); });
    acCopyFields = make("acCopyFields", QStringLiteral("Copy Fields"), [this] { Copy(grdFields); });
    acPasteFields = make("acPasteFields", QStringLiteral("Paste Fields"), [this] { Paste(grdFields); });
    acAddIndex = make("acAddIndex", QStringLiteral("Add Index"), [this] { AddIndex(); });
    acModifyIndex = make("acModifyIndex", QStringLiteral("Modify Index"), [this] { ModifyIndex(); });
    acDeleteIndex = make("acDeleteIndex", QStringLiteral("Delete Index"), [this] { DeleteIndexes(); });
    acCopyIndexes = make("acCopyIndexes", QStringLiteral("Copy Indexes"), [this] { Copy(grdIndexes); });
    acPasteIndexes = make("acPasteIndexes", QStringLiteral("Paste Indexes"), [this] { Paste(grdIndexes); });
    acAddForeignKey = make("acAddForeignKey", QStringLiteral("Add Foreign Key"), [this] { AddForeignKey(); });
    acModifyForeignKey =
        make("acModifyForeignKey", QStringLiteral("Modify Foreign Key"), [this] { ModifyForeignKey(); });
    acDeleteForeignKey =
        make("acDeleteForeignKey", QStringLiteral("Delete Foreign Key"), [this] { DeleteForeignKeys(); });
    acCopyForeignKeys =
        make("acCopyForeignKeys", QStringLiteral("Copy Foreign Keys"), [this] { Copy(grdForeignKeys); });
    acPasteForeignKeys =
        make("acPasteForeignKeys", QStringLiteral("Paste Foreign Keys"), [this] { Paste(grdForeignKeys); });
    acAddUniqueConstraint = make("acAddUniqueConstraint", QStringLiteral("Add Unique Constraint"),
                                 [this] { AddUniqueConstraint(); });
    acModifyUniqueConstraint = make("acModifyUniqueConstraint", QStringLiteral("Modify Unique Constraint"),
                                    [this] { ModifyUniqueConstraint(); });
    acDeleteUniqueConstraint = make("acDeleteUniqueConstraint", QStringLiteral("Delete Unique Constraint"),
                                    [this] { DeleteUniqueConstraints(); });
    acCopyUniqueConstraints = make("acCopyUniqueConstraints", QStringLiteral("Copy Unique Constraints"),
                                   [this] { Copy(grdUniqueConstraints); });
    acPasteUniqueConstraints = make("acPasteUniqueConstraints", QStringLiteral("Paste Unique Constraints"),
                                    [this] { Paste(grdUniqueConstraints); });
    acAddCheckConstraint = make("acAddCheckConstraint", QStringLiteral("Add Check Constraint"),
                                [this] { AddCheckConstraint(); });
    acModifyCheckConstraint = make("acModifyCheckConstraint", QStringLiteral("Modify Check Constraint"),
                                   [this] { ModifyCheckConstraint(); });
    acDeleteCheckConstraint = make("acDeleteCheckConstraint", QStringLiteral("Delete Check Constraint"),
                                   [this] { DeleteCheckConstraints(); });
    acCopyCheckConstraints = make("acCopyCheckConstraints", QStringLiteral("Copy Check Constraints"),
                                  [this] { Copy(grdCheckConstraints); });
    acPasteCheckConstraints = make("acPasteCheckConstraints", QStringLiteral("Paste Check Constraints"),
                                   [this] { Paste(grdCheckConstraints); });
    acAddTableTrigger = make("acAddTableTrigger", QStringLiteral("Add Trigger"), [this] { AddTableTrigger(); });
    acModifyTableTrigger =
        make("acModifyTableTrigger", QStringLiteral("Modify Trigger"), [this] { ModifyTableTrigger(); });
    acDeleteTableTrigger =
        make("acDeleteTableTrigger", QStringLiteral("Delete Trigger"), [this] { DeleteTableTriggers(); });
    acCopyTableTriggers =
        make("acCopyTableTriggers", QStringLiteral("Copy Triggers"), [this] { Copy(grdTableTriggers); });
    acPasteTableTriggers =
        make("acPasteTableTriggers", QStringLiteral("Paste Triggers"), [this] { Paste(grdTableTriggers); });

    // Each family: a bar above its grid; the grid's own menu and keys.
    struct TFamily {
        QTableWidget* Grid;
        QAction *Add, *Modify, *Delete, *Copy, *Paste;
    };
    const TFamily families[] = {
        {grdFields, acAddField, acModifyField, acDeleteField, acCopyFields, acPasteFields},
        {grdIndexes, acAddIndex, acModifyIndex, acDeleteIndex, acCopyIndexes, acPasteIndexes},
        {grdForeignKeys, acAddForeignKey, acModifyForeignKey, acDeleteForeignKey, acCopyForeignKeys,
         acPasteForeignKeys},
        {grdUniqueConstraints, acAddUniqueConstraint, acModifyUniqueConstraint, acDeleteUniqueConstraint,
         acCopyUniqueConstraints, acPasteUniqueConstraints},
        {grdCheckConstraints, acAddCheckConstraint, acModifyCheckConstraint, acDeleteCheckConstraint,
         acCopyCheckConstraints, acPasteCheckConstraints},
        {grdTableTriggers, acAddTableTrigger, acModifyTableTrigger, acDeleteTableTrigger, acCopyTableTriggers,
         acPasteTableTriggers},
    };
    auto bar = [this](QWidget* Tab, const QList<QAction*>& Actions) {
        auto* toolbar = new QToolBar(Tab);
        toolbar->setToolButtonStyle(Qt::ToolButtonTextOnly);
        toolbar->addActions(Actions);
        Tab->layout()->addWidget(toolbar);
    };
    for (const TFamily& f : families) {
        // The same keys in every grid: only the focused grid's act.
        f.Delete->setShortcut(QKeySequence::Delete);
        f.Copy->setShortcut(QKeySequence::Copy);
        f.Paste->setShortcut(QKeySequence::Paste);
        for (QAction* a : {f.Add, f.Modify, f.Delete, f.Copy, f.Paste}) {
            a->setShortcutContext(Qt::WidgetShortcut);
            f.Grid->addAction(a);
        }
        connect(f.Grid, &QTableWidget::cellDoubleClicked, this, [action = f.Modify] {
            if (action->isEnabled()) action->trigger();
        });
    }
    for (QAction* a : {acMoveUpField, acMoveDownField}) {
        a->setShortcutContext(Qt::WidgetShortcut);
        grdFields->addAction(a);
    }
    acMoveUpField->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Up));
    acMoveDownField->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Down));

    bar(tabFields, {acAddField, acModifyField, acDeleteField, acMoveUpField, acMoveDownField, acCopyFields,
                    acPasteFields});
    tabFields->layout()->addWidget(grdFields);
    bar(tabIndexes, {acAddIndex, acModifyIndex, acDeleteIndex, acCopyIndexes, acPasteIndexes});
    tabIndexes->layout()->addWidget(grdIndexes);
    bar(tabForeignKeys,
        {acAddForeignKey, acModifyForeignKey, acDeleteForeignKey, acCopyForeignKeys, acPasteForeignKeys});
    tabForeignKeys->layout()->addWidget(grdForeignKeys);
    bar(tabConstraints, {acAddUniqueConstraint, acModifyUniqueConstraint, acDeleteUniqueConstraint,
                         acCopyUniqueConstraints, acPasteUniqueConstraints});
    auto* constraints = new QSplitter(Qt::Vertical, tabConstraints);
    constraints->addWidget(grdUniqueConstraints);
    auto* checks = new QWidget(constraints);
    auto* checksLayout = new QVBoxLayout(checks);
    checksLayout->setContentsMargins(0, 0, 0, 0);
    auto* checkBar = new QToolBar(checks);
    checkBar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    checkBar->addActions({acAddCheckConstraint, acModifyCheckConstraint, acDeleteCheckConstraint,
                          acCopyCheckConstraints, acPasteCheckConstraints});
    checksLayout->addWidget(checkBar);
    checksLayout->addWidget(grdCheckConstraints);
    constraints->addWidget(checks);
    tabConstraints->layout()->addWidget(constraints);
    bar(tabTableTriggers,
        {acAddTableTrigger, acModifyTableTrigger, acDeleteTableTrigger, acCopyTableTriggers, acPasteTableTriggers});
    auto* triggers = new QSplitter(Qt::Vertical, tabTableTriggers);
    triggers->addWidget(grdTableTriggers);
    triggers->addWidget(mmoTableTrigger);
    tabTableTriggers->layout()->addWidget(triggers);

    // A paste is offered while the clipboard holds the family's rows.
    connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, this, [this] {
        if (FHost.UpdateControls) FHost.UpdateControls();
    });
}

// ---------------------------------------------------------------------------
// Loading

void TTableDesignPage::ShowOptionBoxes() {
    // The library answers by trying a statement: asked per design, not per
    // update of the commands.
    cbWithoutRowID->setVisible(SQLite3Driver->sqlite3drv_supports_without_rowid());
    cbStrict->setVisible(QVersionNumber::fromString(SQLite3Driver->sqlite3drv_libversion()) >=
                         QVersionNumber(3, 37));
}

void TTableDesignPage::LoadTable(TDLSQLiteDatabase& Database, const QString& TableName) {
    const TFlagGuard updating(FUpdating);
    ShowOptionBoxes();
    FLoadedTableName = TableName;
    FLoadedFieldNames.clear();
    FHasDesign = false;
    FDM.LoadTableDesign(Database, TableName);
    FHasDesign = true;
    const bool temporary = TDLSQLiteDatabase::IsTempTable(TableName);
    FDM.SetTemporary(temporary);
    edTableName->setText(TableName);
    edTableName->setReadOnly(true);
    cbTemporaryTable->setChecked(temporary);
    cbTemporaryTable->setEnabled(false);
    cbWithoutRowID->setChecked(FDM.IsWithoutRowID());
    cbStrict->setChecked(FDM.IsStrict());
    const std::vector<TDesignField> fields = FDM.Fields();
    for (const TDesignField& f : fields) {
        if (!f.OldPosition) continue;
        const auto place = static_cast<qsizetype>(*f.OldPosition);
        if (FLoadedFieldNames.size() <= place) FLoadedFieldNames.resize(place + 1);
        FLoadedFieldNames[place] = f.Name;
    }
    // Asked once here: the rule table wants the answer on every update.
    FReferencedFields.clear();
    int references = 0;
    try {
        references = static_cast<int>(GetReferencingTables(Database, TableName).size());
        if (references > 0)
            for (const QString& name : std::as_const(FLoadedFieldNames))
                if (IsFieldReferenced(Database, TableName, name)) FReferencedFields << name;
    } catch (const std::exception&) {
    }
    lblReferences->setText(QStringLiteral("Foreign key references: %1").arg(references));
    lblReferences->setProperty("count", references);
    lblReferences->setVisible(true);
    for (QTableWidget* grid : {grdFields, grdIndexes, grdForeignKeys, grdUniqueConstraints, grdCheckConstraints,
                               grdTableTriggers})
        grid->setRowCount(0);
    RefreshGrids();
}

void TTableDesignPage::NewTable() {
    {
        const TFlagGuard updating(FUpdating);
        FLoadedTableName.clear();
        FLoadedFieldNames.clear();
        FReferencedFields.clear();
        ShowOptionBoxes();
        FDM.NewTableDesign();
        FHasDesign = true;
        FDM.SetTemporary(false);
        edTableName->clear();
        edTableName->setReadOnly(false);
        cbTemporaryTable->setEnabled(true);
        cbTemporaryTable->setChecked(false);
        cbWithoutRowID->setChecked(false);
        cbStrict->setChecked(false);
        lblReferences->setVisible(false);
        RefreshGrids();
        mmoTableTrigger->clear();
    }
    pcTableDesign->setCurrentWidget(tabFields);
    edTableName->setFocus();
    Changed();
}

void TTableDesignPage::ClearTable() {
    const TFlagGuard updating(FUpdating);
    FHasDesign = false;
    FLoadedTableName.clear();
    FLoadedFieldNames.clear();
    FReferencedFields.clear();
    edTableName->clear();
    edTableName->setReadOnly(true);
    lblReferences->setVisible(false);
    for (QTableWidget* grid : {grdFields, grdIndexes, grdForeignKeys, grdUniqueConstraints, grdCheckConstraints,
                               grdTableTriggers})
        grid->setRowCount(0);
    mmoTableTrigger->clear();
}

void TTableDesignPage::RefreshGrids() {
    if (!FHasDesign) return;
    // The grids' selection signals would ask for the rule table once a row.
    const TFlagGuard updating(FUpdating);
    std::vector<TGridRow> rows;
    int n = 0;
    for (const TDesignField& f : FDM.Fields())
        rows.push_back({f.RowID,
                        {QString::number(++n), f.Name, f.DeclaredType, BoolCell(f.NotNull), f.NotNullOnConflict,
                         f.DefaultValue, f.Collate,
                         f.GeneratedExpression.isEmpty()
                             ? QString()
                             : f.GeneratedExpression + (f.GeneratedStored ? QStringLiteral(" STORED")
                                                                          : QStringLiteral(" VIRTUAL"))}});
    FillDesignGrid(grdFields, rows);
    rows.clear();
    for (const TDesignIndex& i : FDM.Indexes())
        rows.push_back({i.RowID, {i.Name, i.Type, IndexFieldsText(i), i.OnConflict, i.WhereClause}});
    FillDesignGrid(grdIndexes, rows);
    rows.clear();
    for (const TDesignForeignKey& k : FDM.ForeignKeys())
        rows.push_back({k.RowID,
                        {k.Name, k.ParentTable, k.ChildKey, k.ParentKey, k.OnDelete, k.OnUpdate, k.Match,
                         k.Deferrable, k.Initially}});
    FillDesignGrid(grdForeignKeys, rows);
    rows.clear();
    for (const TDesignUniqueConstraint& u : FDM.UniqueConstraints())
        rows.push_back({u.RowID, {u.Name, u.Fields, u.OnConflict}});
    FillDesignGrid(grdUniqueConstraints, rows);
    rows.clear();
    for (const TDesignCheckConstraint& c : FDM.CheckConstraints())
        rows.push_back({c.RowID, {c.Name, c.Expression}});
    FillDesignGrid(grdCheckConstraints, rows);
    rows.clear();
    for (const TDesignTrigger& t : FDM.TableTriggers()) rows.push_back({t.RowID, {t.Name, BoolCell(t.IsTemporary)}});
    FillDesignGrid(grdTableTriggers, rows);
    UpdateTableTriggerSQL();
}

// ---------------------------------------------------------------------------
// State

bool TTableDesignPage::EditingTable() const {
    return FDM.FTableDesignModified || FDM.FCreatingTable;
}

QString TTableDesignPage::EditorTableName() const {
    return edTableName->text().trimmed();
}

void TTableDesignPage::SetEditorTableName(const QString& Name) {
    if (edTableName->text() != Name) edTableName->setText(Name);
}

bool TTableDesignPage::IsTemporary() const {
    return cbTemporaryTable->isChecked();
}

void TTableDesignPage::SetGridsUpdatesEnabled(bool Value) {
    for (QTableWidget* grid : {grdFields, grdIndexes, grdForeignKeys, grdUniqueConstraints, grdCheckConstraints,
                               grdTableTriggers})
        grid->setUpdatesEnabled(Value);
}

QList<qint64> TTableDesignPage::SelectedRowIDs(const QTableWidget* Grid) {
    QList<int> rows;
    for (const QModelIndex& index : Grid->selectionModel()->selectedRows()) rows << index.row();
    std::sort(rows.begin(), rows.end());
    if (rows.isEmpty() && Grid->currentRow() >= 0) rows << Grid->currentRow();
    QList<qint64> ids;
    for (const int r : rows) ids << RowIDAt(Grid, r);
    return ids;
}

void TTableDesignPage::SelectRowID(QTableWidget* Grid, qint64 RowID) {
    const int row = RowOf(Grid, RowID);
    if (row < 0) return;
    Grid->clearSelection();
    Grid->selectionModel()->setCurrentIndex(Grid->model()->index(row, 0),
                                            QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

QStringList TTableDesignPage::FieldNames() const {
    return FDM.GetFields();
}

QString TTableDesignPage::OriginalFieldName(const TDesignField& Field) const {
    return Field.OldPosition ? FLoadedFieldNames.value(static_cast<qsizetype>(*Field.OldPosition)) : QString();
}

bool TTableDesignPage::CurrentFieldReferenced() const {
    if (FReferencedFields.isEmpty()) return false;
    const std::vector<TDesignField> fields = FDM.Fields();
    for (const qint64 id : SelectedRowIDs(grdFields))
        if (const TDesignField* f = FindRow(fields, id)) {
            const QString name = OriginalFieldName(*f);
            if (!name.isEmpty() && FReferencedFields.contains(name)) return true;
        }
    return false;
}

void TTableDesignPage::UpdateControls(bool Running, bool CanRestructure) {
    if (!FHasDesign) {
        for (QAction* a : findChildren<QAction*>(QString(), Qt::FindDirectChildrenOnly))
            if (a != acNewTable) a->setEnabled(false);
        return;
    }
    const bool editing = EditingTable();
    const int fieldRows = grdFields->rowCount();
    acApplyTableDesign->setEnabled(editing && !EditorTableName().isEmpty() && fieldRows > 0 && !Running);
    acCancelTableDesign->setEnabled(editing && !Running);

    const QList<qint64> fields = SelectedRowIDs(grdFields);
    const bool referenced = !fields.isEmpty() && CurrentFieldReferenced();
    acAddField->setEnabled(!Running);
    acModifyField->setEnabled(!fields.isEmpty() && (CanRestructure || !referenced) && !Running);
    acDeleteField->setEnabled(!fields.isEmpty() && CanRestructure && !referenced && !Running);
    const bool canMove = !Running && CanRestructure && fieldRows > 0 && !fields.isEmpty();
    acMoveUpField->setEnabled(canMove && RowOf(grdFields, fields.front()) > 0);
    acMoveDownField->setEnabled(canMove && RowOf(grdFields, fields.back()) < fieldRows - 1);
    acCopyFields->setEnabled(fieldRows > 0 && !Running);
    acPasteFields->setEnabled(ClipboardHasFormat(CF_SE_FIELD) && CanRestructure && !Running);

    // An index the engine made for a constraint is neither modified nor dropped.
    QString schema, bare;
    ParseObject(EditorTableName(), schema, bare);
    bool autoIndex = false, primary = false;
    const QList<qint64> indexIDs = SelectedRowIDs(grdIndexes);
    const std::vector<TDesignIndex> indexes = indexIDs.isEmpty() ? std::vector<TDesignIndex>() : FDM.Indexes();
    for (const qint64 id : indexIDs)
        if (const TDesignIndex* i = FindRow(indexes, id)) {
            autoIndex = autoIndex || IsAutoIndex(bare, i->Name);
            primary = primary || i->Type == QLatin1String("Primary");
        }
    const bool indexOK = !indexIDs.isEmpty() && !autoIndex && (!primary || CanRestructure) && !Running;
    acAddIndex->setEnabled(fieldRows > 0 && !Running);
    acModifyIndex->setEnabled(indexOK);
    acDeleteIndex->setEnabled(indexOK);
    acCopyIndexes->setEnabled(grdIndexes->rowCount() > 0 && !Running);
    acPasteIndexes->setEnabled(ClipboardHasFormat(CF_SE_INDEX) && !Running);

    const bool key = !SelectedRowIDs(grdForeignKeys).isEmpty() && !Running;
    acAddForeignKey->setEnabled(fieldRows > 0 && !Running);
    acModifyForeignKey->setEnabled(key);
    acDeleteForeignKey->setEnabled(key);
    acCopyForeignKeys->setEnabled(grdForeignKeys->rowCount() > 0 && !Running);
    acPasteForeignKeys->setEnabled(ClipboardHasFormat(CF_SE_FOREIGN_KEY) && CanRestructure && !Running);

    const bool unique = !SelectedRowIDs(grdUniqueConstraints).isEmpty() && CanRestructure && !Running;
    acAddUniqueConstraint->setEnabled(fieldRows > 0 && CanRestructure && !Running);
    acModifyUniqueConstraint->setEnabled(unique);
    acDeleteUniqueConstraint->setEnabled(unique);
    acCopyUniqueConstraints->setEnabled(grdUniqueConstraints->rowCount() > 0 && !Running);
    acPasteUniqueConstraints->setEnabled(ClipboardHasFormat(CF_SE_UNIQUE_CONSTRAINT) && CanRestructure &&
                                         !Running);

    const bool check = !SelectedRowIDs(grdCheckConstraints).isEmpty() && CanRestructure && !Running;
    acAddCheckConstraint->setEnabled(fieldRows > 0 && CanRestructure && !Running);
    acModifyCheckConstraint->setEnabled(check);
    acDeleteCheckConstraint->setEnabled(check);
    acCopyCheckConstraints->setEnabled(grdCheckConstraints->rowCount() > 0 && !Running);
    acPasteCheckConstraints->setEnabled(ClipboardHasFormat(CF_SE_CHECK_CONSTRAINT) && CanRestructure &&
                                        !Running);

    const bool trigger = !SelectedRowIDs(grdTableTriggers).isEmpty() && !Running;
    acAddTableTrigger->setEnabled(!Running);
    acModifyTableTrigger->setEnabled(trigger);
    acDeleteTableTrigger->setEnabled(trigger);
    acCopyTableTriggers->setEnabled(grdTableTriggers->rowCount() > 0 && !Running);
    acPasteTableTriggers->setEnabled(ClipboardHasFormat(CF_SE_TRIGGER) && CanRestructure && !Running);

    cbWithoutRowID->setEnabled(CanRestructure && !Running);
    cbStrict->setEnabled(CanRestructure && !Running);

    const int references = lblReferences->property("count").toInt();
    lblReferences->setToolTip(
        references == 0
            ? QStringLiteral("The current table is not referenced by foreign keys and can be fully restructured.")
        : CanRestructure ? QStringLiteral(
                               "The current table is referenced by foreign keys and some restructure operations "
                               "are disabled.")
                         : QStringLiteral("The current table is referenced by foreign keys and cannot be "
                                          "restructured while a transaction is in progress."));
}

void TTableDesignPage::Edit(const std::function<void()>& Command) {
    try {
        Command();
    } catch (const std::exception& e) {
        if (FHost.ShowError) FHost.ShowError(ExceptionMessage(e));
    }
    RefreshGrids();
    Changed();
}

void TTableDesignPage::Changed() {
    UpdateTableTriggerSQL();
    if (FHost.UpdateControls) FHost.UpdateControls();
}

QString TTableDesignPage::TriggerTableName() const {
    QString schema, table;
    ParseObject(EditorTableName(), schema, table);
    if (IsTemporary()) return QuoteObject(schema.isEmpty() ? QStringLiteral("temp") : schema, table);
    return QuoteObject(QString(), table);
}

void TTableDesignPage::UpdateTableTriggerSQL() {
    if (!FHasDesign) {
        mmoTableTrigger->clear();
        return;
    }
    const QList<qint64> ids = SelectedRowIDs(grdTableTriggers);
    const int row = grdTableTriggers->currentRow();
    const qint64 id = row >= 0 ? RowIDAt(grdTableTriggers, row) : (ids.isEmpty() ? 0 : ids.front());
    const std::vector<TDesignTrigger> triggers = FDM.TableTriggers();
    const TDesignTrigger* trigger = FindRow(triggers, id);
    QString text;
    if (trigger) {
        text = trigger->SQL;
        // The head names the table as the editor does; a broken text shows as it is.
        if (!EditorTableName().isEmpty()) {
            try {
                text = ReplaceTableNameInTrigger(trigger->SQL, TriggerTableName());
            } catch (const std::exception&) {
            }
        }
    }
    if (mmoTableTrigger->text() != text) mmoTableTrigger->setText(text);
}

// ---------------------------------------------------------------------------
// Fields

namespace {

QStringList DeclaredTypes(TDLSQLiteDatabase* Database) {
    QStringList types;
    (Database ? Database->TypeMappings() : DefaultTypeMappings()).GetDeclaredTypes(types);
    types.removeDuplicates();
    return types;
}

QStringList Collations(TDLSQLiteDatabase* Database) {
    QStringList list;
    if (!Database || !Database->Connected()) return list;
    try {
        Database->GetCollations(QString(), list);
    } catch (const std::exception&) {
    }
    list.sort(Qt::CaseInsensitive);
    return list;
}

}  // namespace

void TTableDesignPage::AddField() {
    TDLSQLiteDatabase* db = FHost.CurrentDatabase ? FHost.CurrentDatabase() : nullptr;
    TFieldDialogContext context{DeclaredTypes(db), Collations(db), false, FieldNames()};
    TDesignField field;
    if (!TfrmFieldEditor::Execute(this, context, field)) return;
    qint64 id = 0;
    Edit([&] { id = FDM.AddField(field); });
    SelectRowID(grdFields, id);
}

void TTableDesignPage::ModifyField() {
    const QList<qint64> ids = SelectedRowIDs(grdFields);
    if (ids.isEmpty()) return;
    const qint64 id = grdFields->currentRow() >= 0 ? RowIDAt(grdFields, grdFields->currentRow()) : ids.front();
    const std::vector<TDesignField> fields = FDM.Fields();
    const TDesignField* found = FindRow(fields, id);
    if (!found) return;
    TDesignField field = *found;
    TDLSQLiteDatabase* db = FHost.CurrentDatabase ? FHost.CurrentDatabase() : nullptr;
    TFieldDialogContext context{DeclaredTypes(db), Collations(db), false, {}};
    const QString original = OriginalFieldName(field);
    context.IsReferenced = !original.isEmpty() && FReferencedFields.contains(original);
    for (const TDesignField& f : fields)
        if (f.RowID != id) context.OtherFieldNames << f.Name;
    if (!TfrmFieldEditor::Execute(this, context, field)) return;
    Edit([&] { FDM.ModifyField(id, field); });
    SelectRowID(grdFields, id);
}

void TTableDesignPage::DeleteFields() {
    const QList<qint64> ids = SelectedRowIDs(grdFields);
    if (ids.isEmpty()) return;
    if (!FHost.Confirm(ids.size() == 1 ? QStringLiteral("Delete selected field?")
                                       : QStringLiteral("Delete selected fields?")))
        return;
    Edit([&] { FDM.DeleteFields(ids); });
}

void TTableDesignPage::MoveFields(bool Up) {
    QList<qint64> ids = SelectedRowIDs(grdFields);
    if (ids.isEmpty()) return;
    // Up from the first selected row on, down from the last, so that the
    // rows keep their order among themselves.
    if (!Up) std::reverse(ids.begin(), ids.end());
    Edit([&] {
        for (const qint64 id : ids)
            if (!(Up ? FDM.MoveUpField(id) : FDM.MoveDownField(id))) break;
    });
    grdFields->clearSelection();
    for (const qint64 id : ids)
        if (const int r = RowOf(grdFields, id); r >= 0)
            grdFields->selectionModel()->select(grdFields->model()->index(r, 0),
                                                QItemSelectionModel::Select | QItemSelectionModel::Rows);
    if (const int r = RowOf(grdFields, ids.front()); r >= 0)
        grdFields->selectionModel()->setCurrentIndex(grdFields->model()->index(r, 0), QItemSelectionModel::NoUpdate);
    if (FHost.UpdateControls) FHost.UpdateControls();
}

// ---------------------------------------------------------------------------
// Indexes

void TTableDesignPage::AddIndex() {
    TDLSQLiteDatabase* db = FHost.CurrentDatabase ? FHost.CurrentDatabase() : nullptr;
    TIndexDialogContext context{EditorTableName(), FDM.Fields(), Collations(db), FDM.HasPrimaryKey()};
    TDesignIndex index;
    if (!TfrmIndexEditor::Execute(this, context, index)) return;
    qint64 id = 0;
    Edit([&] { id = FDM.AddIndex(index); });
    SelectRowID(grdIndexes, id);
}

void TTableDesignPage::ModifyIndex() {
    const std::vector<TDesignIndex> indexes = FDM.Indexes();
    const std::optional<TDesignIndex> current = CurrentDesignRow(grdIndexes, indexes);
    if (!current) return;
    const qint64 id = current->RowID;
    TDesignIndex index = *current;
    TDLSQLiteDatabase* db = FHost.CurrentDatabase ? FHost.CurrentDatabase() : nullptr;
    TIndexDialogContext context{EditorTableName(), FDM.Fields(), Collations(db), false};
    for (const TDesignIndex& i : indexes)
        if (i.RowID != id && i.Type == QLatin1String("Primary")) context.HasOtherPrimaryKey = true;
    if (!TfrmIndexEditor::Execute(this, context, index)) return;
    Edit([&] { FDM.ModifyIndex(id, index); });
    SelectRowID(grdIndexes, id);
}

void TTableDesignPage::DeleteIndexes() {
    const QList<qint64> ids = SelectedRowIDs(grdIndexes);
    if (ids.isEmpty()) return;
    if (!FHost.Confirm(ids.size() == 1 ? QStringLiteral("Delete selected index?")
                                       : QStringLiteral("Delete selected indexes?")))
        return;
    Edit([&] { FDM.DeleteIndexes(ids); });
}

// ---------------------------------------------------------------------------
// Foreign keys

TForeignKeyDialogContext TTableDesignPage::ForeignKeyContext() {
    TForeignKeyDialogContext context;
    context.Fields = FieldNames();
    context.ParentTables = FHost.TableNames ? FHost.TableNames() : QStringList();
    QString schema, table;
    ParseObject(EditorTableName(), schema, table);
    context.GetParentFields = [this, schema](const QString& Parent) {
        QStringList fields;
        TDLSQLiteDatabase* db = FHost.CurrentDatabase ? FHost.CurrentDatabase() : nullptr;
        // The parent stands in the child's database.
        if (db) db->GetFieldNamesFromTable(QuoteObject(schema, ExtractObjectName(Parent)), fields);
        return fields;
    };
    return context;
}

void TTableDesignPage::AddForeignKey() {
    TDesignForeignKey key;
    TForeignKeyDialogContext context = ForeignKeyContext();
    if (!TfrmForeignKeyEditor::Execute(this, context, key)) return;
    qint64 id = 0;
    Edit([&] { id = FDM.AddForeignKey(key); });
    SelectRowID(grdForeignKeys, id);
}

void TTableDesignPage::ModifyForeignKey() {
    const std::optional<TDesignForeignKey> current = CurrentDesignRow(grdForeignKeys, FDM.ForeignKeys());
    if (!current) return;
    const qint64 id = current->RowID;
    TDesignForeignKey key = *current;
    TForeignKeyDialogContext context = ForeignKeyContext();
    if (!TfrmForeignKeyEditor::Execute(this, context, key)) return;
    Edit([&] { FDM.ModifyForeignKey(id, key); });
    SelectRowID(grdForeignKeys, id);
}

void TTableDesignPage::DeleteForeignKeys() {
    const QList<qint64> ids = SelectedRowIDs(grdForeignKeys);
    if (ids.isEmpty()) return;
    if (!FHost.Confirm(ids.size() == 1 ? QStringLiteral("Delete selected foreign key?")
                                       : QStringLiteral("Delete selected foreign keys?")))
        return;
    Edit([&] { FDM.DeleteForeignKeys(ids); });
}

// ---------------------------------------------------------------------------
// Constraints

void TTableDesignPage::AddUniqueConstraint() {
    TDesignUniqueConstraint constraint;
    if (!TfrmUniqueConstraintEditor::Execute(this, FieldNames(), constraint)) return;
    qint64 id = 0;
    Edit([&] { id = FDM.AddUniqueConstraint(constraint); });
    SelectRowID(grdUniqueConstraints, id);
}

void TTableDesignPage::ModifyUniqueConstraint() {
    const std::optional<TDesignUniqueConstraint> current = CurrentDesignRow(grdUniqueConstraints, FDM.UniqueConstraints());
    if (!current) return;
    const qint64 id = current->RowID;
    TDesignUniqueConstraint constraint = *current;
    if (!TfrmUniqueConstraintEditor::Execute(this, FieldNames(), constraint)) return;
    Edit([&] { FDM.ModifyUniqueConstraint(id, constraint); });
    SelectRowID(grdUniqueConstraints, id);
}

void TTableDesignPage::DeleteUniqueConstraints() {
    const QList<qint64> ids = SelectedRowIDs(grdUniqueConstraints);
    if (ids.isEmpty()) return;
    if (!FHost.Confirm(ids.size() == 1 ? QStringLiteral("Delete selected unique constraint?")
                                       : QStringLiteral("Delete selected unique constraints?")))
        return;
    Edit([&] { FDM.DeleteUniqueConstraints(ids); });
}

void TTableDesignPage::AddCheckConstraint() {
    TDesignCheckConstraint constraint;
    if (!TfrmCheckConstraintEditor::Execute(this, constraint)) return;
    qint64 id = 0;
    Edit([&] { id = FDM.AddCheckConstraint(constraint); });
    SelectRowID(grdCheckConstraints, id);
}

void TTableDesignPage::ModifyCheckConstraint() {
    const std::optional<TDesignCheckConstraint> current = CurrentDesignRow(grdCheckConstraints, FDM.CheckConstraints());
    if (!current) return;
    const qint64 id = current->RowID;
    TDesignCheckConstraint constraint = *current;
    if (!TfrmCheckConstraintEditor::Execute(this, constraint)) return;
    Edit([&] { FDM.ModifyCheckConstraint(id, constraint); });
    SelectRowID(grdCheckConstraints, id);
}

void TTableDesignPage::DeleteCheckConstraints() {
    const QList<qint64> ids = SelectedRowIDs(grdCheckConstraints);
    if (ids.isEmpty()) return;
    if (!FHost.Confirm(ids.size() == 1 ? QStringLiteral("Delete selected check constraint?")
                                       : QStringLiteral("Delete selected check constraints?")))
        return;
    Edit([&] { FDM.DeleteCheckConstraints(ids); });
}

// ---------------------------------------------------------------------------
// Triggers

void TTableDesignPage::AddTableTrigger() {
    QStringList taken;
    for (const TDesignTrigger& t : FDM.TableTriggers()) taken << t.Name;
    QString schema, table;
    ParseObject(EditorTableName(), schema, table);
    TDesignTrigger trigger;
    trigger.Name = FreeName(table.isEmpty() ? QStringLiteral("new_trigger") : table + QStringLiteral("_trigger"), taken);
    trigger.SQL = NewTriggerSQL(trigger.Name, TriggerTableName(), false);
    trigger.IsTemporary = IsTemporary();
    if (!TfrmTriggerEditor::Execute(this, trigger)) return;
    qint64 id = 0;
    Edit([&] { id = FDM.AddTableTrigger(trigger); });
    SelectRowID(grdTableTriggers, id);
    UpdateTableTriggerSQL();
}

void TTableDesignPage::ModifyTableTrigger() {
    const std::optional<TDesignTrigger> current = CurrentDesignRow(grdTableTriggers, FDM.TableTriggers());
    if (!current) return;
    const qint64 id = current->RowID;
    TDesignTrigger trigger = *current;
    if (!TfrmTriggerEditor::Execute(this, trigger)) return;
    Edit([&] { FDM.ModifyTableTrigger(id, trigger); });
    SelectRowID(grdTableTriggers, id);
    UpdateTableTriggerSQL();
}

void TTableDesignPage::DeleteTableTriggers() {
    const QList<qint64> ids = SelectedRowIDs(grdTableTriggers);
    if (ids.isEmpty()) return;
    if (!FHost.Confirm(ids.size() == 1 ? QStringLiteral("Delete selected trigger?")
                                       : QStringLiteral("Delete selected triggers?")))
        return;
    Edit([&] { FDM.DeleteTableTriggers(ids); });
}

// ---------------------------------------------------------------------------
// Copy and paste

void TTableDesignPage::Copy(QTableWidget* Grid) {
    const QList<qint64> ids = SelectedRowIDs(Grid);
    if (ids.isEmpty()) return;
    QString format;
    QByteArray bytes;
    if (Grid == grdFields) {
        format = CF_SE_FIELD;
        bytes = ComponentToBytes(ClipFromFields(RowsOf(FDM.Fields(), ids)));
    } else if (Grid == grdIndexes) {
        format = CF_SE_INDEX;
        bytes = ComponentToBytes(ClipFromIndexes(RowsOf(FDM.Indexes(), ids)));
    } else if (Grid == grdForeignKeys) {
        format = CF_SE_FOREIGN_KEY;
        bytes = ComponentToBytes(ClipFromForeignKeys(RowsOf(FDM.ForeignKeys(), ids)));
    } else if (Grid == grdUniqueConstraints) {
        format = CF_SE_UNIQUE_CONSTRAINT;
        bytes = ComponentToBytes(ClipFromUniqueConstraints(RowsOf(FDM.UniqueConstraints(), ids)));
    } else if (Grid == grdCheckConstraints) {
        format = CF_SE_CHECK_CONSTRAINT;
        bytes = ComponentToBytes(ClipFromCheckConstraints(RowsOf(FDM.CheckConstraints(), ids)));
    } else {
        format = CF_SE_TRIGGER;
        bytes = ComponentToBytes(ClipFromTriggers(RowsOf(FDM.TableTriggers(), ids)));
    }
    // The object and the rows as text in one go: other programs take the text.
    auto data = std::make_unique<QMimeData>();
    SetFormatBytes(*data, format, bytes);
    data->setText(DesignGridText(Grid, ids));
    QGuiApplication::clipboard()->setMimeData(data.release());
}

void TTableDesignPage::Paste(QTableWidget* Grid) {
    const bool ask = FHost.ConfirmCopyPasteProperties && FHost.ConfirmCopyPasteProperties();
    auto confirm = [&](const QString& Question) { return !ask || FHost.Confirm(Question); };
    QByteArray bytes;
    try {
        if (Grid == grdFields) {
            TClipFields clip;
            if (!ClipboardGetBytes(CF_SE_FIELD, bytes) || !BytesToComponent(bytes, clip)) return;
            if (!confirm(QStringLiteral("Paste fields from clipboard?"))) return;
            Edit([&] { FDM.PasteFields(FieldsFromClip(clip)); });
        } else if (Grid == grdIndexes) {
            TClipIndexes clip;
            if (!ClipboardGetBytes(CF_SE_INDEX, bytes) || !BytesToComponent(bytes, clip)) return;
            if (!confirm(QStringLiteral("Paste indexes from clipboard?"))) return;
            Edit([&] { FDM.PasteIndexes(IndexesFromClip(clip)); });
        } else if (Grid == grdForeignKeys) {
            TClipForeignKeys clip;
            if (!ClipboardGetBytes(CF_SE_FOREIGN_KEY, bytes) || !BytesToComponent(bytes, clip)) return;
            if (!confirm(QStringLiteral("Paste foreign keys from clipboard?"))) return;
            Edit([&] { FDM.PasteForeignKeys(ForeignKeysFromClip(clip)); });
        } else if (Grid == grdUniqueConstraints) {
            TClipUniqueConstraints clip;
            if (!ClipboardGetBytes(CF_SE_UNIQUE_CONSTRAINT, bytes) || !BytesToComponent(bytes, clip)) return;
            if (!confirm(QStringLiteral("Paste constraints from clipboard?"))) return;
            Edit([&] { FDM.PasteUniqueConstraints(UniqueConstraintsFromClip(clip)); });
        } else if (Grid == grdCheckConstraints) {
            TClipCheckConstraints clip;
            if (!ClipboardGetBytes(CF_SE_CHECK_CONSTRAINT, bytes) || !BytesToComponent(bytes, clip)) return;
            if (!confirm(QStringLiteral("Paste constraints from clipboard?"))) return;
            Edit([&] { FDM.PasteCheckConstraints(CheckConstraintsFromClip(clip)); });
        } else {
            TClipTriggers clip;
            if (!ClipboardGetBytes(CF_SE_TRIGGER, bytes) || !BytesToComponent(bytes, clip)) return;
            if (!confirm(QStringLiteral("Paste triggers from clipboard?"))) return;
            Edit([&] { FDM.PasteTableTriggers(TriggersFromClip(clip)); });
        }
    } catch (const std::exception& e) {
        // A malformed clipboard text: its reader's message.
        if (FHost.ShowError) FHost.ShowError(ExceptionMessage(e));
    }
}

}  // namespace brindle
