// The main window. It opens one database at a time for now and shows the
// objects of its main schema in a tree.
#pragma once

#include <QMainWindow>
#include <functional>
#include <memory>

class QAction;
class QLabel;
class QPlainTextEdit;
class QTabWidget;
class QTableView;
class QTreeWidgetItem;
class QTreeWidget;

namespace brindle {

class TDLTable;
class TDLSQLiteDatabase;
class TDataSetModel;

class TfrmSCMain : public QMainWindow {
    Q_OBJECT

public:
    explicit TfrmSCMain(QWidget* parent = nullptr);
    ~TfrmSCMain() override;

    // Acts only on a list of exactly one existing file: opens it. Anything
    // else is ignored without a message, as the program has no switches.
    void ProcessParams(const QStringList& Params);
    // Opens a database file and shows it; raises on failure.
    void OpenDatabase(const QString& FileName);
    void CloseDatabase();

    TDLSQLiteDatabase* CurrentDatabase() const { return FDatabase.get(); }
    QTreeWidget* Tree() const { return FTree; }
    QPlainTextEdit* DDLView() const { return mmoDDL; }
    // The rows of the selected table or view, read-only.
    QTableView* DataView() const { return grdData; }
    TDataSetModel* DataModel() const { return FDataModel; }
    QTabWidget* Pages() const { return pcObject; }
    QAction* acOpenDatabase = nullptr;
    QAction* acOpenDemoDatabase = nullptr;
    QAction* acCloseDatabase = nullptr;
    QAction* acRefresh = nullptr;
    QAction* acFileExit = nullptr;

    // Where error messages go; unset, they show in a message box.
    std::function<void(const QString&)> FOnError;

    // The caption: product, version and the SQLite library in use.
    static QString ApplicationTitle();

private:
    void CreateActions();
    void RefreshTree();
    void RefreshHeader();
    void ShowObjectDDL(QTreeWidgetItem* item);
    void ShowObjectData(QTreeWidgetItem* item);
    void ShowError(const QString& message);
    void acOpenDatabaseExecute();
    void acOpenDemoDatabaseExecute();

    bool FLogEnabled = false;
    bool FThumbnails = false;  // image thumbnails in grids
    std::unique_ptr<TDLSQLiteDatabase> FDatabase;
    // Declared after the database: destroyed before it.
    std::unique_ptr<TDLTable> FDataQuery;
    QTreeWidget* FTree = nullptr;
    QPlainTextEdit* mmoDDL = nullptr;
    QTabWidget* pcObject = nullptr;
    QTableView* grdData = nullptr;
    TDataSetModel* FDataModel = nullptr;
    QLabel* lblHeader = nullptr;
    QLabel* lblLibrary = nullptr;
};

}  // namespace brindle
