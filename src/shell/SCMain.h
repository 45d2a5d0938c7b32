// The main window: the tree of open databases, the pages that show the
// selected object, and the commands that open, create, register, attach and
// close databases. The logic of the registry and of the settings lives in
// DBRegistry.h and ProgramSettings.h; this class wires them to widgets.
//
// Start-up: the constructor builds the window and sets the defaults, Start
// loads the settings (library, remembered databases) and takes the command
// line. Closing asks about open transactions and saves the settings.
// Threading: main thread only.
#pragma once

#include "DBRegistry.h"
#include "ProgramSettings.h"
#include "RegSettings.h"

#include <QMainWindow>
#include <QPointer>
#include <functional>
#include <memory>

class QAction;
class QLabel;
class QMenu;
class QPlainTextEdit;
class QSplitter;
class QStackedWidget;
class QTabWidget;
class QTableView;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;

namespace brindle {

class TColumnsCache;
class TDBCache;
class TDLDBTree;
class TDLSQLiteDatabase;
class TDLTable;
class TDataSetModel;
class TBrindleDBGrid;
class TDLSQLDataSet;
class TSQLPage;
class TTableDesignPage;
class TViewDesignPage;
class TVirtualTableDesignPage;
class TdmBrindle;

class TfrmSCMain : public QMainWindow, private IRegistryHost {
    Q_OBJECT

public:
    // Needs GlobalData and a loaded SQLite driver.
    explicit TfrmSCMain(QWidget* Parent = nullptr);
    ~TfrmSCMain() override;

    // Loads the settings, which chooses the SQLite library and reopens the
    // remembered databases, then acts on the command line's arguments.
    void Start(const QStringList& Params);
    // Opens or selects the one existing file of a list of exactly one; any
    // other list is ignored without a word. A failure shows its message.
    void ProcessParams(const QStringList& Params);
    // Selects a table or view of the current database by name and the page
    // whose tab reads PageCaption (case ignored), as a person would with the
    // mouse; either may be empty. Returns what could not be found, else an
    // empty text. Lets a script name what it wants to see.
    QString ShowByName(const QString& ObjectName, const QString& PageCaption);
    // Puts Text in the current SQL tab and runs it there, as F5 does.
    void RunSQL(const QString& Text);

    // Registry flows, as the commands run them.
    TDLSQLiteDatabase* OpenDatabase(const QString& FileName, const QString& AliasName = QString());
    void CloseDatabase(TDLSQLiteDatabase* Database);
    void RefreshCurrentDatabase(const QString& AliasName = QString(), const QString& ObjectName = QString());
    // Deferred: each request posts once until it has run.
    void ForceRefreshAll() override;
    void AsyncUpdateControls() override;
    void UpdateControls() override;
    void RefreshAll() override;
    void LoadSettings();
    void SaveSettings();

    TDatabaseRegistry& Registry() { return *FRegistry; }
    TDBCache& DBCache() { return *FDBCache; }
    TColumnsCache& ColumnsCache() { return *FColumnsCache; }
    TFeatureList& Features() { return FFeatures; }
    TDLDBTree* Tree() const { return tvDatabases; }
    QTabWidget* Pages() const { return pcMain; }
    QPlainTextEdit* DDLView() const { return mmoDDL; }
    TSQLPage* SQLPage() const { return FSQLPage; }
    // The design tab: a book of the table, view, virtual table and shadow
    // table pages, showing the one of the current item.
    QStackedWidget* DesignBook() const { return nbkDesign; }
    TTableDesignPage* TableDesignPage() const { return FTableDesignPage; }
    TViewDesignPage* ViewDesignPage() const { return FViewDesignPage; }
    TVirtualTableDesignPage* VirtualTableDesignPage() const { return FVirtualTableDesignPage; }
    TdmBrindle& dmBrindle() const { return *FdmBrindle; }
    // A design is pending: the tree and almost every command wait for its
    // apply or cancel.
    bool EditingTable() const;
    bool EditingView() const;
    bool EditingVirtualTable() const;
    TBrindleDBGrid* DataView() const { return dbgData; }
    TDataSetModel* DataModel() const { return FDataModel; }
    QString HeaderText() const;
    TDLSQLiteDatabase* CurrentDatabase() override;
    int DataBufferSize() const { return FDataBufferSize; }
    const TProgramSettings& ProgramSettings() const { return FSettings; }

    // What a person would answer; unset, real dialogs ask. Tests set them.
    std::function<void(const QString& Message)> FOnError;
    std::function<int(const QString& Text)> FOnAskTransaction;
    std::function<bool(const QString& Caption, QString& Encoding)> FOnSelectEncoding;
    std::function<bool(const QString& Question)> FOnConfirm;
    // A line of text asked for ("Set cells to the same value"); false cancels.
    std::function<bool(const QString& Caption, const QString& Prompt, QString& Value)> FOnInputQuery;
    // The columns to show, as the check list gives them back; false cancels.
    std::function<bool(const QStringList& Names, QStringList& Checked)> FOnSelectColumns;
    // The field mapping of a virtual table rebuild; false cancels.
    std::function<bool(const QStringList& SourceFields, const QStringList& DestFields, QStringList& MappedSource,
                       QStringList& MappedDest)>
        FOnFieldMapping;

    // Commands, named as the rule table names them.
    QAction *acCreateDatabase, *acOpenDatabase, *acOpenDemoDatabase, *acOpenRecentDatabase, *acCloseDatabase,
        *acCloseAllDatabases, *acEditDatabaseRegistration, *acRefreshDatabase, *acAttachDatabase,
        *acDetachDatabase, *acBeginTransaction, *acCommit, *acRollback, *acSavepoint, *acReleaseSavepoint,
        *acRollbackToSavepoint, *acOptions, *acFileExit, *acRefreshData, *acRenameTable;
    // Commands of the grids.
    QAction *acSelectColumns, *acCellSelect, *acSetCellsToValue, *acSetCellsToNull, *acShowCellHints,
        *acCellAutoHeight, *acShowFilterRows, *acDeleteRecords, *acEditRecord, *acTextEditor, *acImageEditor,
        *acHexEditor;
    // Delimited text in (into a table of the current database) and out
    // (the grid's rows, or its selected ones).
    QAction *acImportTextFile, *acExportToTextFile;
    QMenu* pmDataPopup = nullptr;

    // The Data tab again: a soft refresh of the same object keeps place,
    // columns and widths; another object is opened afresh.
    void RefreshData();
    void ShowRecordCount();
    // The grid of the active page; the grid that has the focus.
    TBrindleDBGrid* GetCurrentGrid() const;
    TBrindleDBGrid* GetSelectedGrid() const;
    // The selected cells of the selected grid, all or none (NULL: invalid).
    void SetSelectedCellsToValue(const QVariant& Value);
    void DeleteDataRecords(TBrindleDBGrid& Grid);
    void SelectColumns();
    // For the screenshot script: "COLUMN=TEXT" typed in the current grid's
    // filter row and applied; "COLUMN:acCommand" run on the first row's
    // cell of that column. Empty when done, else what was not found.
    QString ShowInGrid(const QString& Filter, const QString& Command);
    QMenu* miRecentDatabases;

    static QString ApplicationTitle();

protected:
    void changeEvent(QEvent* Event) override;
    void closeEvent(QCloseEvent* Event) override;
    void showEvent(QShowEvent* Event) override;

private:
    void CreateWidgets();
    void CreateActions();
    void CreateTimers();
    void InternalUpdateControls();
    void RefreshHeader();
    void RefreshDatabaseInfo();
    void RefreshDesign();
    void ShowData();
    void CloseData();
    void RefreshAlias(const QString& AliasName);
    void RefreshRecentMenu();
    void DrainInstParams();
    void SetTransactionStatus(const QString& Value);
    void ApplySettings();
    void CollectSettings();
    bool Confirm(const QString& Question);
    // A Yes/No question in a warning box: the apply's row count check.
    bool ConfirmWarning(const QString& Question);
    // Runs a command; an exception's message goes to the error box.
    void Guard(const std::function<void()>& Command);
    TDLSQLiteDatabase* ConnectedCurrent();
    void FocusedNodeChanged();

    void acCreateDatabaseExecute();
    void acOpenDatabaseExecute();
    void acCloseAllDatabasesExecute();
    void acEditDatabaseRegistrationExecute();
    void acAttachDatabaseExecute();
    void acSavepointExecute();
    void acOptionsExecute();
    void ApplyOptions(const struct TOptionsData& Data);
    void UpdateDriver(const QString& LibraryFileName);
    void SetUnicodeEncoding(bool Value);
    void CreateDesignPages();
    // Lets go of the working copy's connection, before the library changes.
    void ReleaseDesign();
    void acApplyTableDesignExecute();
    void acCancelTableDesignExecute();
    void acNewTableExecute();
    void acApplyViewDesignExecute();
    void acNewViewExecute();
    void acApplyVirtualTableDesignExecute();
    void acNewVirtualTableExecute();
    void acRenameTableExecute();

    // IRegistryHost
    void WireDatabase(TDLSQLiteDatabase& Database, bool Created) override;
    void SelectDatabase(const QString& AliasName) override;
    void SelectObject(const QString& AliasName, const QString& ObjectName) override;
    void ShowError(const QString& Message) override;
    bool SelectEncoding(const QString& Caption, QString& Encoding) override;
    int AskTransaction(const QString& Text) override;
    bool GetExpanded(const QString& AliasName) override;
    void SetExpanded(const QString& AliasName, bool Value) override;
    void AliasRenamed(const QString& OldAliasName, const QString& NewAliasName) override;
    void BeginUpdate() override;
    void EndUpdate() override;
    bool DatabaseNodeIsCurrent() override;
    QString CurrentObjectName() override;

    TProgramSettings FSettings;
    TFeatureList FFeatures;
    std::unique_ptr<TDBCache> FDBCache;
    std::unique_ptr<TColumnsCache> FColumnsCache;
    std::unique_ptr<TDatabaseRegistry> FRegistry;
    // The rows on the Data page; declared after nothing that it needs.
    std::unique_ptr<TDLTable> FDataTable;
    // The working copy of the design shown on the design pages.
    std::unique_ptr<TdmBrindle> FdmBrindle;

    bool FInitialized = false;
    bool FStarted = false;
    bool FClosing = false;
    bool FUpdatingControls = false;
    bool FNeedRefreshAll = false;
    bool FNeedUpdateControls = false;
    bool FDBPropsChanged = true;
    bool FLogEnabled = false;
    bool FThumbnails = false;
    int FDataBufferSize = 512;
    bool FCanAbort = false;  // a SQL run is under way
    bool FRefreshAfterRun = false;
    qint64 FLastRefreshTime = 0, FLastModifiedTime = 0;  // ms since the epoch
    QPointer<QWidget> FLastActiveControl;
    QMetaObject::Connection FFocusConnection;
    QTreeWidgetItem* FOldFocusedNode = nullptr;  // compared, never followed
    QString FLibraryFileName;
    QString FShownDDLFor;

    TDLDBTree* tvDatabases = nullptr;
    QSplitter* FSplitter = nullptr;
    QTabWidget* pcMain = nullptr;
    QWidget *tabDatabase = nullptr, *tabSQL = nullptr, *tabData = nullptr, *tabDesign = nullptr,
            *tabDDL = nullptr, *tabLog = nullptr;
    QPlainTextEdit* mmoDatabase = nullptr;
    TSQLPage* FSQLPage = nullptr;
    QStackedWidget* nbkDesign = nullptr;
    TTableDesignPage* FTableDesignPage = nullptr;
    TViewDesignPage* FViewDesignPage = nullptr;
    TVirtualTableDesignPage* FVirtualTableDesignPage = nullptr;
    QLabel* lblShadowTable = nullptr;
    QPlainTextEdit* mmoDDL = nullptr;
    QPlainTextEdit* mmoLog = nullptr;
    void CreateDataCommands();
    void UpdateDataCommands(bool Idle);
    void ImportTextFile();
    void ExportToTextFile();
    void AttachGrid(TBrindleDBGrid& Grid);
    // The open object's fields as the user chose them for it.
    void ApplyColumnChoice(TDLSQLDataSet& DataSet);
    TBrindleDBGrid* dbgData = nullptr;
    QString FLastSetCellValue;
    TDataSetModel* FDataModel = nullptr;
    QLabel* lblHeader = nullptr;
    QLabel* lblLibrary = nullptr;
    QLabel *spTransaction = nullptr, *spRowsAffected = nullptr, *spRecordCount = nullptr, *spStatus = nullptr;
    QMenu *miAttachedDatabases = nullptr, *miReleaseSavepoints = nullptr, *miRollbackToSavepoints = nullptr,
          *miTransaction = nullptr;
    QTimer *tmUnlock = nullptr, *tmFocusedChanged = nullptr, *tmRecordCount = nullptr,
           *tmVersionCheck = nullptr, *tmInstParams = nullptr;
};

}  // namespace brindle
