// The design pages of a view and of a virtual table, and the note shown for
// a shadow table. A view's page edits its name, its select and its
// triggers (the working copy's ViewTriggers); a virtual table's page its
// name, module and arguments. As on the table page, Apply and Cancel are
// the page's commands and the main window runs their flows.
//
// Threading: main thread only.
#pragma once

#include <QWidget>
#include <functional>

class QAction;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QTableWidget;

namespace brindle {

class TdmBrindle;
class TDLSQLiteDatabase;
class TSQLEditor;

class TViewDesignPage : public QWidget {
    Q_OBJECT

public:
    struct THost {
        std::function<bool(const QString& Question)> Confirm;
        std::function<void(const QString& Message)> ShowError;
        std::function<void()> UpdateControls;
        std::function<bool()> ConfirmCopyPasteProperties;
    };

    TViewDesignPage(TdmBrindle& DM, THost Host, QWidget* Parent = nullptr);
    ~TViewDesignPage() override;

    // The view's text and triggers; the design is clean afterwards.
    void LoadView(TDLSQLiteDatabase& Database, const QString& ViewName);
    // An empty view to create.
    void NewView();
    void ClearView();

    bool EditingView() const;
    bool CreatingView() const { return FCreatingView; }
    void SetCreatingView(bool Value) { FCreatingView = Value; }
    QString EditorViewName() const;
    QString AsClause() const;
    // The names in parentheses behind the view's name, if any.
    QStringList ColumnNames() const;
    bool IsTemporary() const;
    void RefreshTriggers();
    void UpdateControls(bool Running);

    QLineEdit* edViewName;
    QLineEdit* edViewColumns;
    QCheckBox* cbTemporaryView;
    TSQLEditor* mmoViewSQL;
    QTableWidget* grdViewTriggers;
    TSQLEditor* mmoViewTrigger;
    QAction *acApplyViewDesign, *acCancelViewDesign, *acNewView;
    QAction *acAddViewTrigger, *acModifyViewTrigger, *acDeleteViewTrigger, *acCopyViewTriggers,
        *acPasteViewTriggers;

private:
    void Changed();
    void Edit(const std::function<void()>& Command);
    void UpdateViewTriggerSQL();
    void AddViewTrigger();
    void ModifyViewTrigger();
    void DeleteViewTriggers();
    void CopyViewTriggers();
    void PasteViewTriggers();

    TdmBrindle& FDM;
    THost FHost;
    bool FUpdating = false;
    bool FCreatingView = false;
    // A view is loaded or begun; before, nothing reads the working copy.
    bool FHasDesign = false;
};

// fts3, fts4, fts5 and rtree, then the modules the library lists, each once.
QStringList VirtualTableModules(TDLSQLiteDatabase* Database);

class TVirtualTableDesignPage : public QWidget {
    Q_OBJECT

public:
    struct THost {
        std::function<void()> UpdateControls;
    };

    TVirtualTableDesignPage(TdmBrindle& DM, THost Host, QWidget* Parent = nullptr);
    ~TVirtualTableDesignPage() override;

    // The table's module and arguments; the name is read-only.
    void LoadVirtualTable(TDLSQLiteDatabase& Database, const QString& TableName);
    // A virtual table to create: the name editable, the module box open.
    void NewVirtualTable(TDLSQLiteDatabase& Database);
    void ClearVirtualTable();

    bool CreatingVirtualTable() const { return FCreatingVirtualTable; }
    void SetCreatingVirtualTable(bool Value) { FCreatingVirtualTable = Value; }
    bool EditingVirtualTable() const;
    const QString& LoadedTableName() const { return FLoadedTableName; }
    QString EditorVirtualTableName() const;
    QString ModuleName() const;
    QString ModuleArguments() const;
    void UpdateControls(bool Running);

    QLineEdit* edVirtualTableName;
    QComboBox* cbModule;
    QPlainTextEdit* mmoModuleArguments;
    QAction *acApplyVirtualTableDesign, *acCancelVirtualTableDesign, *acNewVirtualTable;

private:
    void Changed();

    TdmBrindle& FDM;
    THost FHost;
    bool FUpdating = false;
    bool FCreatingVirtualTable = false;
    QString FLoadedTableName;
};

}  // namespace brindle
