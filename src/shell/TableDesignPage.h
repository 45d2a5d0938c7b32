// The table design page: the table's name and options above five sub-pages
// of design rows (fields, indexes, foreign keys, unique and check
// constraints, triggers), each a grid over the working copy of TdmBrindle
// (schema/DMBrindle.h) with its commands to add, modify, delete, copy and
// paste rows. Every edit goes to the working copy and the grids are filled
// from it again; nothing touches the database here. Apply and Cancel are
// the page's commands, but their flows belong to the main window, which
// owns the refresh of the tree.
//
// A grid selects whole rows; its selection is taken in the grid's order,
// and with nothing selected the current row stands for it. Each row keeps
// its RowID in the first cell (Qt::UserRole). A double click modifies the
// row, Delete deletes, Ctrl+C and Ctrl+V copy and paste, while the grid has
// the focus.
//
// Threading: main thread only.
#pragma once

#include <QWidget>
#include <functional>
#include <vector>

class QAction;
class QCheckBox;
class QLabel;
class QLineEdit;
class QTableWidget;
class QTabWidget;

namespace brindle {

class TdmBrindle;
class TDLSQLiteDatabase;
class TSQLEditor;
struct TDesignField;
struct TForeignKeyDialogContext;

// A table may be rebuilt now: without a transaction always; inside one only
// when foreign keys are off or no table with rows refers to it, since the
// pragma cannot be switched there and a rebuild would fire their actions.
// False without a database or table name.
bool CanRestructureTable(TDLSQLiteDatabase* Database, const QString& TableName);

// A grid of design rows: whole rows selected, several at a time, read-only.
QTableWidget* MakeDesignGrid(QWidget* Parent, const char* Name, const QStringList& Headers);
struct TDesignGridRow {
    qint64 RowID;
    QStringList Cells;
};
// Refills the grid, keeping the selected and the current rows by RowID; a
// grid left with rows but no current one takes the row at the old place.
void FillDesignGrid(QTableWidget* Grid, const std::vector<TDesignGridRow>& Rows);
// The rows' cells as tab-separated text under a header line: what other
// programs take from the clipboard beside the program's own format.
QString DesignGridText(const QTableWidget* Grid, const QList<qint64>& RowIDs);

// The first name of Name, Name_1, Name_2, ... that Taken does not hold
// (case ignored): what a pasted row is called.
QString FreeName(const QString& Name, const QStringList& Taken);

class TTableDesignPage : public QWidget {
    Q_OBJECT

public:
    struct THost {
        std::function<TDLSQLiteDatabase*()> CurrentDatabase;
        std::function<bool(const QString& Question)> Confirm;
        std::function<void(const QString& Message)> ShowError;
        // After every edit: the rule table, at once, so that the tree is
        // off as soon as the design is pending.
        std::function<void()> UpdateControls;
        std::function<bool()> ConfirmCopyPasteProperties;
        // The tables of the database, for the foreign key's parent.
        std::function<QStringList()> TableNames;
    };

    TTableDesignPage(TdmBrindle& DM, THost Host, QWidget* Parent = nullptr);
    ~TTableDesignPage() override;

    // Loads the table's design into the working copy and shows it: the name
    // read-only, the options from the table.
    void LoadTable(TDLSQLiteDatabase& Database, const QString& TableName);
    // acNewTable: an empty design for a table to create; the name is
    // editable and takes the focus.
    void NewTable();
    // Nothing to show: no design behind the page.
    void ClearTable();
    // Fills the six grids from the working copy, keeping the current rows.
    void RefreshGrids();

    bool EditingTable() const;
    QString EditorTableName() const;
    void SetEditorTableName(const QString& Name);
    bool IsTemporary() const;
    // Suspends the grids' painting while an apply walks the design.
    void SetGridsUpdatesEnabled(bool Value);

    // The page's part of the rule table.
    void UpdateControls(bool Running, bool CanRestructure);

    // The selection of a grid: RowIDs in the grid's order, or the current
    // row's alone when nothing is selected.
    static QList<qint64> SelectedRowIDs(const QTableWidget* Grid);
    // Makes the row of the RowID current and selects it alone.
    static void SelectRowID(QTableWidget* Grid, qint64 RowID);

    QLineEdit* edTableName;
    QCheckBox *cbTemporaryTable, *cbWithoutRowID, *cbStrict;
    QLabel* lblReferences;
    QTabWidget* pcTableDesign;
    QWidget *tabFields, *tabIndexes, *tabForeignKeys, *tabConstraints, *tabTableTriggers;
    QTableWidget *grdFields, *grdIndexes, *grdForeignKeys, *grdUniqueConstraints, *grdCheckConstraints,
        *grdTableTriggers;
    TSQLEditor* mmoTableTrigger;

    QAction *acApplyTableDesign, *acCancelTableDesign, *acNewTable;
    QAction *acAddField, *acModifyField, *acDeleteField, *acCopyFields, *acPasteFields, *acMoveUpField,
        *acMoveDownField;
    QAction *acAddIndex, *acModifyIndex, *acDeleteIndex, *acCopyIndexes, *acPasteIndexes;
    QAction *acAddForeignKey, *acModifyForeignKey, *acDeleteForeignKey, *acCopyForeignKeys, *acPasteForeignKeys;
    QAction *acAddUniqueConstraint, *acModifyUniqueConstraint, *acDeleteUniqueConstraint,
        *acCopyUniqueConstraints, *acPasteUniqueConstraints;
    QAction *acAddCheckConstraint, *acModifyCheckConstraint, *acDeleteCheckConstraint, *acCopyCheckConstraints,
        *acPasteCheckConstraints;
    QAction *acAddTableTrigger, *acModifyTableTrigger, *acDeleteTableTrigger, *acCopyTableTriggers,
        *acPasteTableTriggers;

private:
    void CreateWidgets();
    void CreateActions();
    void ShowOptionBoxes();
    // Runs an edit; a refusal of the working copy shows as an error.
    void Edit(const std::function<void()>& Command);
    void Changed();
    // The foreign key dialog's fields, parent tables and parent columns.
    TForeignKeyDialogContext ForeignKeyContext();
    void UpdateTableTriggerSQL();
    // The name the page's triggers stand on: quoted, with its database for
    // a temporary table.
    QString TriggerTableName() const;
    QString OriginalFieldName(const TDesignField& Field) const;
    bool CurrentFieldReferenced() const;
    QStringList FieldNames() const;

    void AddField();
    void ModifyField();
    void DeleteFields();
    void MoveFields(bool Up);
    void AddIndex();
    void ModifyIndex();
    void DeleteIndexes();
    void AddForeignKey();
    void ModifyForeignKey();
    void DeleteForeignKeys();
    void AddUniqueConstraint();
    void ModifyUniqueConstraint();
    void DeleteUniqueConstraints();
    void AddCheckConstraint();
    void ModifyCheckConstraint();
    void DeleteCheckConstraints();
    void AddTableTrigger();
    void ModifyTableTrigger();
    void DeleteTableTriggers();
    // Copy and paste of each family, by its clipboard format.
    void Copy(QTableWidget* Grid);
    void Paste(QTableWidget* Grid);

    TdmBrindle& FDM;
    THost FHost;
    // While the page fills its own controls, their change signals mean nothing.
    bool FUpdating = false;
    // A design is loaded or begun: before, the working copy may not even
    // have its tables, and no command is offered.
    bool FHasDesign = false;
    // The table's field names as loaded, by their place: a field's old name.
    QStringList FLoadedFieldNames;
    // Those of them that other tables' foreign keys name, found at load.
    QStringList FReferencedFields;
    QString FLoadedTableName;
};

}  // namespace brindle
