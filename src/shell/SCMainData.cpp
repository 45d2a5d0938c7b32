// The main window's data commands: the Data tab's refresh and counter, the
// grids' commands and popup menu, and the column choice per object.
#include "SCMain.h"

#include "CellEditors.h"
#include "FrameSQL.h"
#include "Globals.h"
#include "SQLPage.h"
#include "TextDialogs.h"
#include "data/DLTable.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "widgets/BrindleDBGrid.h"
#include "widgets/DBTree.h"
#include "widgets/DataSetModel.h"
#include "workbench/Caches.h"
#include "workbench/DataTools.h"
#include "workbench/SQLExecution.h"

#include <QAction>
#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QInputDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QShortcut>
#include <QTabWidget>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>

namespace brindle {

namespace {

QAction* GridAction(QObject* Parent, const char* Name, const QString& Caption, bool Checkable = false) {
    auto* action = new QAction(Caption, Parent);
    action->setObjectName(QLatin1String(Name));
    action->setCheckable(Checkable);
    return action;
}

// The check list of "Select columns".
class TfrmFields : public QDialog {
public:
    TfrmFields(const QStringList& Names, const QStringList& Checked, QWidget* Parent) : QDialog(Parent) {
        setObjectName(QStringLiteral("TfrmFields"));
        setWindowTitle(QStringLiteral("Select columns"));
        auto* layout = new QVBoxLayout(this);
        FList = new QListWidget(this);
        for (const QString& name : Names) {
            auto* item = new QListWidgetItem(name, FList);
            item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
            item->setCheckState(Checked.contains(name, Qt::CaseInsensitive) ? Qt::Checked : Qt::Unchecked);
        }
        layout->addWidget(FList);
        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
        connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
        connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
        layout->addWidget(buttons);
    }
    QStringList Checked() const {
        QStringList out;
        for (int i = 0; i < FList->count(); ++i)
            if (FList->item(i)->checkState() == Qt::Checked) out << FList->item(i)->text();
        return out;
    }

private:
    QListWidget* FList;
};

TRowRangeList RangesOf(const TRowRanges& Rows) {
    TRowRangeList out;
    for (const auto& r : Rows.Ranges()) out.emplace_back(r.first, r.second);
    return out;
}

}  // namespace

void TfrmSCMain::CreateDataCommands() {
    acSelectColumns = GridAction(this, "acSelectColumns", QStringLiteral("Select columns"));
    acCellSelect = GridAction(this, "acCellSelect", QStringLiteral("S&witch to Cell select mode"));
    acSetCellsToValue = GridAction(this, "acSetCellsToValue", QStringLiteral("Set cells to value..."));
    acSetCellsToNull = GridAction(this, "acSetCellsToNull", QStringLiteral("Set cells to NULL"));
    acShowCellHints = GridAction(this, "acShowCellHints", QStringLiteral("Show cell hints"), true);
    acCellAutoHeight = GridAction(this, "acCellAutoHeight", QStringLiteral("Cell auto height"), true);
    acShowFilterRows = GridAction(this, "acShowFilterRows", QStringLiteral("Show &filter rows"), true);
    acDeleteRecords = GridAction(this, "acDeleteRecords", QStringLiteral("Delete selected record"));
    acEditRecord = GridAction(this, "acEditRecord", QStringLiteral("Record Editor"));
    acTextEditor = GridAction(this, "acTextEditor", QStringLiteral("Text Editor"));
    acImageEditor = GridAction(this, "acImageEditor", QStringLiteral("Image Editor"));
    acHexEditor = GridAction(this, "acHexEditor", QStringLiteral("Hex Editor"));
    acImportTextFile =
        GridAction(this, "acImportTextFile", QStringLiteral("&Import Text File (CSV, TSV)..."));
    acExportToTextFile =
        GridAction(this, "acExportToTextFile", QStringLiteral("&Export to Text File (CSV, TSV)..."));
    connect(acImportTextFile, &QAction::triggered, this, [this] { Guard([this] { ImportTextFile(); }); });
    connect(acExportToTextFile, &QAction::triggered, this, [this] { Guard([this] { ExportToTextFile(); }); });

    connect(acSelectColumns, &QAction::triggered, this, [this] { Guard([this] { SelectColumns(); }); });
    connect(acCellSelect, &QAction::triggered, this, [this] {
        FSettings.CellSelect = !FSettings.CellSelect;
        for (TBrindleDBGrid* grid : findChildren<TBrindleDBGrid*>())
            grid->SetCellSelect(FSettings.CellSelect);
        AsyncUpdateControls();
    });
    connect(acSetCellsToValue, &QAction::triggered, this, [this] {
        QString text = FLastSetCellValue;
        bool ok = false;
        if (FOnInputQuery) {
            ok = FOnInputQuery(QStringLiteral("Set cells to the same value"),
                               QStringLiteral("Enter the value to set the cells to:"), text);
        } else {
            text = QInputDialog::getText(this, QStringLiteral("Set cells to the same value"),
                                         QStringLiteral("Enter the value to set the cells to:"),
                                         QLineEdit::Normal, FLastSetCellValue, &ok);
        }
        if (!ok) return;
        bool done = false;
        Guard([&] {
            SetSelectedCellsToValue(StringToVariant(text));
            done = true;
        });
        if (done) FLastSetCellValue = text;
    });
    connect(acSetCellsToNull, &QAction::triggered, this,
            [this] { Guard([this] { SetSelectedCellsToValue(QVariant()); }); });
    connect(acShowCellHints, &QAction::toggled, this, [this](bool On) {
        FSettings.ShowCellHints = On;
        for (TBrindleDBGrid* grid : findChildren<TBrindleDBGrid*>()) grid->FShowCellHints = On;
    });
    connect(acCellAutoHeight, &QAction::toggled, this, [this](bool On) {
        FSettings.CellAutoHeight = On;
        for (TBrindleDBGrid* grid : findChildren<TBrindleDBGrid*>()) grid->SetCellAutoHeight(On);
    });
    connect(acShowFilterRows, &QAction::toggled, this, [this](bool On) {
        FSettings.FilterRowsVisible = On;
        for (TBrindleDBGrid* grid : findChildren<TBrindleDBGrid*>()) grid->SetFilterRowVisible(On);
    });
    // The editors work on the selected grid's current row.
    const auto onField = [this](bool (*Edit)(QWidget*, TField&)) {
        return [this, Edit] {
            TBrindleDBGrid* grid = GetSelectedGrid();
            if (!grid || !grid->SyncDataSet()) return;
            auto* field = const_cast<TField*>(grid->Model()->FieldAt(grid->CurrentColumn()));
            if (field) Guard([&] { Edit(this, *field); });
        };
    };
    connect(acTextEditor, &QAction::triggered, this, onField(&EditMemo));
    connect(acImageEditor, &QAction::triggered, this, onField(&EditImage));
    connect(acHexEditor, &QAction::triggered, this, onField(&EditBlob));
    connect(acEditRecord, &QAction::triggered, this, [this] {
        TBrindleDBGrid* grid = GetSelectedGrid();
        if (grid && grid->SyncDataSet()) Guard([&] { EditRecord(this, *grid->DataSet()); });
    });
    connect(acDeleteRecords, &QAction::triggered, this, [this] {
        if (TBrindleDBGrid* grid = GetSelectedGrid()) Guard([&] { DeleteDataRecords(*grid); });
    });

    QMenu* data = menuBar()->addMenu(QStringLiteral("D&ata"));
    data->setObjectName(QStringLiteral("miData"));
    data->addAction(acRefreshData);
    data->addAction(acSelectColumns);
    data->addSeparator();
    for (QAction* a : {acShowFilterRows, acShowCellHints, acCellAutoHeight, acCellSelect}) data->addAction(a);
    data->addSeparator();
    for (QAction* a : {acSetCellsToValue, acSetCellsToNull, acDeleteRecords}) data->addAction(a);
    data->addSeparator();
    for (QAction* a : {acEditRecord, acTextEditor, acImageEditor, acHexEditor}) data->addAction(a);
    data->addSeparator();
    for (QAction* a : {acImportTextFile, acExportToTextFile}) data->addAction(a);

    pmDataPopup = new QMenu(this);
    pmDataPopup->setObjectName(QStringLiteral("pmDataPopup"));
    for (QAction* a : {acDeleteRecords, acSetCellsToValue, acSetCellsToNull}) pmDataPopup->addAction(a);
    pmDataPopup->addSeparator();
    for (QAction* a : {acEditRecord, acTextEditor, acImageEditor, acHexEditor}) pmDataPopup->addAction(a);
    pmDataPopup->addSeparator();
    for (QAction* a : {acSelectColumns, acShowFilterRows, acCellSelect}) pmDataPopup->addAction(a);
    pmDataPopup->addSeparator();
    pmDataPopup->addAction(acExportToTextFile);

    const QSignalBlocker a(acShowCellHints), b(acCellAutoHeight), c(acShowFilterRows);
    acShowCellHints->setChecked(FSettings.ShowCellHints);
    acCellAutoHeight->setChecked(FSettings.CellAutoHeight);
    acShowFilterRows->setChecked(FSettings.FilterRowsVisible);

    AttachGrid(*dbgData);
    for (int i = 0; i < FSQLPage->TabCount(); ++i) {
        AttachGrid(*FSQLPage->Frame(i)->dbgSQL);
        connect(FSQLPage->Frame(i)->dbgSQL, &TBrindleDBGrid::CurrentChanged, this,
                [this] { ShowRecordCount(); });
    }
    connect(dbgData, &TBrindleDBGrid::CurrentChanged, this, [this] { ShowRecordCount(); });
    connect(FDataModel, &QAbstractItemModel::rowsInserted, this, [this] { ShowRecordCount(); });
    connect(FDataModel, &QAbstractItemModel::rowsRemoved, this, [this] { ShowRecordCount(); });
    connect(FDataModel, &QAbstractItemModel::modelReset, this, [this] { ShowRecordCount(); });
    connect(pcMain, &QTabWidget::currentChanged, this, [this] { ShowRecordCount(); });
}

void TfrmSCMain::AttachGrid(TBrindleDBGrid& Grid) {
    connect(&Grid, &TBrindleDBGrid::Error, this, [this](const QString& Message) { ShowError(Message); });
    connect(&Grid, &TBrindleDBGrid::SelectionChanged, this, [this] { AsyncUpdateControls(); });
    QTableView* view = Grid.View();
    view->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(view, &QWidget::customContextMenuRequested, this, [this, view](const QPoint& Pos) {
        UpdateControls();
        pmDataPopup->popup(view->viewport()->mapToGlobal(Pos));
    });
    // A double click on a value no line editor holds opens its editor
    // window; on other cells the record editor, when the option says so.
    connect(&Grid, &TBrindleDBGrid::CellActivated, this, [this, grid = &Grid](int, int Column) {
        if (!grid->SyncDataSet()) return;
        auto* field = const_cast<TField*>(grid->Model()->FieldAt(Column));
        if (!field) return;
        if (field->IsBlob())
            Guard([&] { EditBlobField(this, *field); });
        else if (FSettings.RecordEditorOnDblClick)
            Guard([&] { EditRecord(this, *grid->DataSet()); });
    });
    // Delete in a grid deletes its selected rows.
    auto* del = new QShortcut(QKeySequence::Delete, view, nullptr, nullptr, Qt::WidgetShortcut);
    connect(del, &QShortcut::activated, this,
            [this, grid = &Grid] { Guard([&] { DeleteDataRecords(*grid); }); });
}

TBrindleDBGrid* TfrmSCMain::GetCurrentGrid() const {
    if (pcMain->currentWidget() == tabData) return dbgData;
    if (pcMain->currentWidget() == tabSQL)
        if (TfrmSQL* frame = FSQLPage->GetSQLFrame()) return frame->dbgSQL;
    return nullptr;
}

TBrindleDBGrid* TfrmSCMain::GetSelectedGrid() const {
    for (QWidget* w = QApplication::focusWidget(); w; w = w->parentWidget())
        if (auto* grid = qobject_cast<TBrindleDBGrid*>(w)) return grid;
    return GetCurrentGrid();
}

void TfrmSCMain::UpdateDataCommands(bool Idle) {
    if (FClosing) return;
    TBrindleDBGrid* grid = GetSelectedGrid();
    TDLSQLDataSet* ds = grid ? grid->DataSet() : nullptr;
    const bool active = ds && ds->Active();
    const bool rows = active && grid->RowCount() > 0;
    const bool modifiable = rows && ds->GetCanModify();
    const TField* field = rows ? grid->Model()->FieldAt(grid->CurrentColumn()) : nullptr;
    const bool onDataOrSQL = pcMain->currentWidget() == tabData || pcMain->currentWidget() == tabSQL;
    acSelectColumns->setEnabled(active && Idle);
    acSelectColumns->setVisible(onDataOrSQL);
    acCellSelect->setText(FSettings.CellSelect ? QStringLiteral("S&witch to Row select mode")
                                               : QStringLiteral("S&witch to Cell select mode"));
    const bool cells = modifiable && FSettings.CellSelect && field && !field->FReadOnly;
    acSetCellsToValue->setEnabled(cells);
    acSetCellsToNull->setEnabled(cells);
    acDeleteRecords->setEnabled(modifiable);
    acDeleteRecords->setText(grid && grid->GetSelectedCount() > 1 ? QStringLiteral("Delete selected records")
                                                                  : QStringLiteral("Delete selected record"));
    const TFieldType type = field ? field->DataType() : ftUnknown;
    const bool text = type == ftString || type == ftWideString || type == ftFixedChar ||
                      type == ftFixedWideChar || type == ftMemo || type == ftWideMemo;
    const bool blob = type == ftBlob || type == ftGraphic;
    acEditRecord->setEnabled(rows);
    acTextEditor->setVisible(text);
    acTextEditor->setEnabled(rows && text);
    acImageEditor->setVisible(blob);
    acImageEditor->setEnabled(rows && blob);
    acHexEditor->setVisible(blob);
    acHexEditor->setEnabled(rows && blob);
    const TDLSQLiteDatabase* db = GlobalData->CurrentDatabase();
    acImportTextFile->setEnabled(db && db->Connected() && Idle);
    acExportToTextFile->setEnabled(active && Idle);
}

// ---------------------------------------------------------------------------
// The Data tab

void TfrmSCMain::ApplyColumnChoice(TDLSQLDataSet& DataSet) {
    TDLSQLiteDatabase* db = DataSet.Database();
    const auto* table = dynamic_cast<TDLTable*>(&DataSet);
    if (!db || !table) return;
    const TColumnsCache::TItem* choice = FColumnsCache->Find(db->AliasName(), table->TableName());
    if (!choice) return;
    for (int i = 0; i < DataSet.Fields().Count(); ++i) {
        TField& f = DataSet.Fields()[i];
        if (f.FVisible || choice->Columns.contains(f.FieldName(), Qt::CaseInsensitive))
            f.FVisible = choice->Columns.contains(f.FieldName(), Qt::CaseInsensitive);
    }
}

void TfrmSCMain::RefreshData() {
    const TItemType type = GlobalData->CurrentItemType();
    if (type != itTable && type != itView && type != itVirtualTable && type != itShadowTable) {
        ShowRecordCount();
        return;
    }
    TDLSQLiteDatabase* db = GlobalData->CurrentDatabase();
    const bool same = FDataTable && FDataTable->Active() && FDataTable->Database() == db &&
                      FDataTable->TableName() == GlobalData->CurrentItemName();
    if (same) {
        // Place, columns and widths stay.
        dbgData->FLockedColumns = true;
        Guard([&] { FDataTable->Refresh(); });
        dbgData->FLockedColumns = false;
    } else {
        // Another object starts without the filter of the last one.
        dbgData->ClearFilterRow();
        CloseData();
        ShowData();
    }
    ShowRecordCount();
}

void TfrmSCMain::ShowRecordCount() {
    if (!spRecordCount || FClosing) return;
    TBrindleDBGrid* grid = GetCurrentGrid();
    TDLSQLDataSet* ds = grid ? grid->DataSet() : nullptr;
    const bool asText = pcMain->currentWidget() == tabSQL && FSettings.ResultsAsText;
    if (!ds || !ds->Active() || asText || grid->RowCount() == 0) {
        spRecordCount->clear();
        return;
    }
    const int current = std::max(0, grid->CurrentRow()) + 1;
    if (grid->Model()->CountIsExact())
        spRecordCount->setText(QStringLiteral("Record %1 of %2").arg(current).arg(grid->RowCount()));
    else
        spRecordCount->setText(
            QStringLiteral("Record %1 of at least %2").arg(current).arg(ds->GetLastRecNo()));
}

void TfrmSCMain::SelectColumns() {
    TBrindleDBGrid* grid = GetCurrentGrid();
    TDLSQLDataSet* ds = grid ? grid->DataSet() : nullptr;
    if (!ds || !ds->Active()) return;
    QStringList names, checked;
    for (int i = 0; i < ds->Fields().Count(); ++i) {
        const TField& f = ds->Fields()[i];
        const int def = ds->FieldDefs().IndexOf(f.FieldName());
        // Hidden columns (a rowid the table shows no more) are not offered.
        if (def >= 0 && (ds->FieldDefs().Items(def).Attributes & faHiddenCol) && !f.FVisible) continue;
        names << f.FieldName();
        if (f.FVisible) checked << f.FieldName();
    }
    bool ok = false;
    if (FOnSelectColumns) {
        ok = FOnSelectColumns(names, checked);
    } else {
        TfrmFields dialog(names, checked, this);
        ok = dialog.exec() == QDialog::Accepted;
        checked = dialog.Checked();
    }
    if (!ok) return;
    if (ds == FDataTable.get()) {
        FColumnsCache->SetColumns(FDataTable->Database()->AliasName(), FDataTable->TableName(), checked);
        CloseData();
        ShowData();
    } else {
        // A result of the SQL tab: its choice lives as long as the result.
        for (int i = 0; i < ds->Fields().Count(); ++i) {
            TField& f = ds->Fields()[i];
            if (names.contains(f.FieldName())) f.FVisible = checked.contains(f.FieldName());
        }
        grid->Model()->SetDataSet(nullptr);
        grid->Model()->SetDataSet(ds);
    }
}

void TfrmSCMain::SetSelectedCellsToValue(const QVariant& Value) {
    TBrindleDBGrid* grid = GetSelectedGrid();
    TDLSQLDataSet* ds = grid ? grid->DataSet() : nullptr;
    if (!ds || !ds->Active()) return;
    const QStringList fields = grid->GetSelectedFieldNames();
    brindle::SetSelectedCellsToValue(*ds, RangesOf(grid->EffectiveSelectedRows()), fields, Value);
}

QString TfrmSCMain::ShowInGrid(const QString& Filter, const QString& Command) {
    TBrindleDBGrid* grid = GetCurrentGrid();
    if (!grid || !grid->Model()) return QStringLiteral("no grid on this page");
    const auto column = [grid](const QString& Name) {
        for (int c = 0; c < grid->Model()->columnCount(); ++c)
            if (const TField* f = grid->Model()->FieldAt(c);
                f && f->FieldName().compare(Name, Qt::CaseInsensitive) == 0)
                return c;
        return -1;
    };
    if (!Filter.isEmpty()) {
        const int c = column(Filter.section(u'=', 0, 0));
        if (c < 0) return QStringLiteral("no column %1").arg(Filter.section(u'=', 0, 0));
        acShowFilterRows->setChecked(true);
        grid->FilterEditor(c)->setText(Filter.section(u'=', 1));
        grid->ApplyFilterRow();
    }
    if (!Command.isEmpty()) {
        const int c = column(Command.section(u':', 0, 0));
        auto* action = findChild<QAction*>(Command.section(u':', 1));
        if (c < 0 || !action) return QStringLiteral("no column or command in %1").arg(Command);
        grid->SetCurrentCell(0, c);
        grid->View()->setFocus();
        UpdateControls();
        // The editor windows are modal: they open once this returns.
        QTimer::singleShot(0, action, &QAction::trigger);
    }
    return QString();
}

void TfrmSCMain::DeleteDataRecords(TBrindleDBGrid& Grid) {
    TDLSQLDataSet* ds = Grid.DataSet();
    if (!ds || !ds->Active() || Grid.RowCount() == 0 || !ds->GetCanModify()) return;
    const qint64 count = Grid.GetSelectedCount();
    if (count <= 1) {
        if (Grid.CurrentRow() < 0) return;
        if (!Confirm(QStringLiteral("Delete selected record?"))) return;
    } else if (!Confirm(QStringLiteral("Delete selected records?"))) {
        return;
    }
    brindle::DeleteSelection(*ds, RangesOf(Grid.EffectiveSelectedRows()));
    Grid.ClearSelection();
}

// ---------------------------------------------------------------------------
// Delimited text

void TfrmSCMain::ImportTextFile() {
    TDLSQLiteDatabase* db = GlobalData->CurrentDatabase();
    if (!db || !db->Connected()) return;
    QString table;
    {
        TfrmTextImport dialog(*db, this);
        dialog.exec();
        table = dialog.ImportedTable();
    }
    if (table.isEmpty()) return;
    // The new rows, or the new table, show at once.
    RefreshCurrentDatabase(db->AliasName(), table);
    if (tvDatabases->SelectObject(db->AliasName(), table)) {
        pcMain->setCurrentWidget(tabData);
        RefreshData();
    }
}

void TfrmSCMain::ExportToTextFile() {
    TBrindleDBGrid* grid = GetSelectedGrid();
    TDLSQLDataSet* ds = grid ? grid->DataSet() : nullptr;
    if (!ds || !ds->Active()) return;
    std::vector<int> records;
    if (grid->GetSelectedCount() > 1 && !grid->AreAllRecordsSelected())
        for (const auto& [first, last] : grid->SelectedRows().Ranges())
            for (int r = first; r <= last; ++r) records.push_back(r + 1);
    QString name;
    if (grid == dbgData && FDataTable)
        name = ExtractObjectName(FDataTable->TableName());
    else
        name = QStringLiteral("result");
    {
        TfrmTextExport dialog(*ds, name, std::move(records), this);
        dialog.exec();
    }
    // The export walked the dataset; the grid puts it back on its row.
    grid->SyncDataSet();
}

}  // namespace brindle
