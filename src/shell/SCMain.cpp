#include "SCMain.h"

#include "FrameSQL.h"
#include "SQLPage.h"
#include "TableDesignPage.h"
#include "ViewDesignPage.h"
#include "widgets/SQLEditor.h"

#include "Application.h"
#include "FDialogs.h"
#include "FOptions.h"
#include "FieldMapping.h"
#include "FileAssociations.h"
#include "Globals.h"
#include "LibraryChoice.h"
#include "SCPaths.h"
#include "SingleInstance.h"
#include "data/DLRecData.h"
#include "data/DLTable.h"
#include "engine/DLDateTime.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/DLTypeMapping.h"
#include "engine/Exceptions.h"
#include "engine/SQLText.h"
#include "schema/DLSQLiteMetadata.h"
#include "schema/DMBrindle.h"
#include "widgets/DBTree.h"
#include "widgets/BrindleDBGrid.h"
#include "widgets/DataSetModel.h"
#include "workbench/Caches.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QScreen>
#include <QScrollBar>
#include <QSettings>
#include <QShortcut>
#include <QSignalBlocker>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QTableWidget>
#include <QTimer>
#include <QToolBar>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace brindle {

namespace {

TFontSetting FontSetting(const QFont& Font, const QColor& Color = Qt::black) {
    TFontSetting s;
    s.Name = Font.family();
    s.Size = Font.pointSize() > 0 ? Font.pointSize() : 10;
    s.Color = ColorValue(Color);
    s.Style = (Font.bold() ? 1 : 0) | (Font.italic() ? 2 : 0) | (Font.underline() ? 4 : 0) |
              (Font.strikeOut() ? 8 : 0);
    s.Charset = 1;
    return s;
}

QFont ToFont(const TFontSetting& S) {
    QFont font(S.Name, S.Size > 0 ? S.Size : 10);
    font.setBold(S.Style & 1);
    font.setItalic(S.Style & 2);
    font.setUnderline(S.Style & 4);
    font.setStrikeOut(S.Style & 8);
    return font;
}

// The fixed-width font of editors when none is chosen: the system's own at
// ten points.
QFont DefaultFixedFont() {
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPointSize(10);
    return font;
}

qint64 NowMSecs() {
    return QDateTime::currentMSecsSinceEpoch();
}

// The arrow over a question asked in the middle of hourglass work.
class TNormalCursor {
public:
    TNormalCursor() : FSet(QApplication::overrideCursor() != nullptr) {
        if (FSet) QApplication::setOverrideCursor(Qt::ArrowCursor);
    }
    ~TNormalCursor() {
        if (FSet) QApplication::restoreOverrideCursor();
    }
    TNormalCursor(const TNormalCursor&) = delete;
    TNormalCursor& operator=(const TNormalCursor&) = delete;

private:
    bool FSet;
};

QAction* MakeAction(QObject* Parent, const char* Name, const QString& Caption) {
    auto* action = new QAction(Caption, Parent);
    action->setObjectName(QLatin1String(Name));
    return action;
}

}  // namespace

TfrmSCMain::TfrmSCMain(QWidget* Parent)
    : QMainWindow(Parent),
      FDBCache(std::make_unique<TDBCache>()),
      FColumnsCache(std::make_unique<TColumnsCache>()),
      FRegistry(std::make_unique<TDatabaseRegistry>(GlobalData->MetaList(), *FDBCache, *FColumnsCache,
                                                    static_cast<IRegistryHost&>(*this))),
      FdmBrindle(std::make_unique<TdmBrindle>()) {
    setObjectName(QStringLiteral("TfrmSCMain"));
    FRegistry->FLastDatabaseDirectory = UserDataPath();
    FFeatures.SetDefaultFeatures();

    // Options set by hand beside the program, read before any dataset exists.
    const TStartupOptions startup = ReadStartupOptions(StartupOptionsFileName());
    FLogEnabled = startup.Log;
    FThumbnails = startup.Thumbnails;
    FDataBufferSize = startup.DataBufferSize;
    SetDataBufferSize(startup.DataBufferSize);

    // What stands when nothing is stored.
    const QPalette palette = QApplication::palette();
    FSettings.EvenColor = ColorValue(palette.color(QPalette::Base));
    FSettings.OddColor = ColorValue(palette.color(QPalette::Button));
    FSettings.DefaultFont = FontSetting(QApplication::font());
    FSettings.LastDatabaseDirectory = UserDataPath();
    FLibraryFileName = SQLite3Driver->sqlite3drv_filename();

    CreateWidgets();
    CreateActions();
    CreateTimers();
    setWindowTitle(ApplicationTitle());
    // Until a stored placement says otherwise.
    resize(1200, 760);

    GlobalData->FOnGetCurrentItem = [this] { return tvDatabases->FocusedObject(); };
    GlobalData->FOnGetCurrentMetadata = [this] { return tvDatabases->FocusedMetadata(); };
    GlobalData->FOnGetCurrentDataSet = [this]() -> TDLSQLDataSet* { return FDataTable.get(); };
    TMetaList& list = GlobalData->MetaList();
    list.OnAdded = [this](TDLSQLiteDatabase& Database) {
        // A new database's node becomes the current one. Quietly: whether it
        // connects now is the opener's decision, and the timer notices the
        // move and refreshes the pages.
        const QSignalBlocker quiet(tvDatabases);
        tvDatabases->AddDatabase(Database);
        tvDatabases->SelectDatabase(Database.AliasName());
        ForceRefreshAll();
    };
    list.OnDeleting = [this](TDLSQLiteDatabase& Database) {
        // The grid must let go of rows that the database holds.
        if (FDataTable && FDataTable->Database() == &Database) CloseData();
        tvDatabases->DeleteDatabase(Database);
    };
    list.OnRefreshMetadata = [this](const QString& AliasName) { tvDatabases->RefreshDatabase(AliasName); };

    QDir().mkpath(GetCommonDataPath());
    FFocusConnection = connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* Now) {
        if (Now == FLastActiveControl) return;
        FLastActiveControl = Now;
        UpdateControls();
    });
}

TfrmSCMain::~TfrmSCMain() {
    FClosing = true;
    // The base class's destructor still moves the focus and may wait for
    // events: this part of the object is gone by then.
    disconnect(FFocusConnection);
    // Nothing that outlives the window may call back into it.
    GlobalData->ClearCallbacks();
    TMetaList& list = GlobalData->MetaList();
    list.OnAdded = nullptr;
    list.OnDeleting = nullptr;
    list.OnRefreshMetadata = nullptr;
    for (int i = 0; i < list.GetMetadataCount(); ++i) {
        TDLSQLiteDatabase& db = list.GetDatabase(i);
        db.FOnProgress = nullptr;
        db.AfterConnect = nullptr;
        db.FAfterExecute = nullptr;
        db.FAfterPrepare = nullptr;
        db.FOnProfile = nullptr;
        list.GetMetadata(i).FOnRecordCount = nullptr;
    }
    CloseData();
}

QString TfrmSCMain::ApplicationTitle() {
    return brindle::ApplicationTitle();
}

// ---------------------------------------------------------------------------
// Building the window

void TfrmSCMain::CreateWidgets() {
    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    auto* header = new QHBoxLayout;
    lblHeader = new QLabel(central);
    lblHeader->setObjectName(QStringLiteral("lblHeader"));
    lblLibrary = new QLabel(central);
    lblLibrary->setObjectName(QStringLiteral("lblLibrary"));
    header->addWidget(lblHeader, 1);
    header->addWidget(lblLibrary);
    layout->addLayout(header);

    FSplitter = new QSplitter(Qt::Horizontal, central);
    FSplitter->setObjectName(QStringLiteral("DBTree"));
    tvDatabases = new TDLDBTree(GlobalData->MetaList(), FSplitter);
    tvDatabases->setObjectName(QStringLiteral("tvDatabases"));
    pcMain = new QTabWidget(FSplitter);
    pcMain->setObjectName(QStringLiteral("pcMain"));

    mmoDatabase = new QPlainTextEdit(pcMain);
    mmoDatabase->setObjectName(QStringLiteral("mmoDatabase"));
    mmoDatabase->setReadOnly(true);
    tabDatabase = mmoDatabase;
    TSQLPage::THost host;
    host.CurrentDatabase = [this] { return ConnectedCurrent(); };
    host.DBCache = [this]() -> TDBCache& { return *FDBCache; };
    host.SetStatus = [this](const QString& Text) {
        spStatus->setText(Text);
        spStatus->repaint();
    };
    host.SetRowsAffected = [this](const QString& Text) { spRowsAffected->setText(Text); };
    host.ShowError = [this](const QString& Message) { ShowError(Message); };
    host.Confirm = [this](const QString& Question) { return Confirm(Question); };
    host.SelectEncoding = [this](const QString& Caption, QString& Encoding) { return SelectEncoding(Caption, Encoding); };
    host.RefreshDatabase = [this] { RefreshCurrentDatabase(); };
    host.RefreshData = [this] {
        if (FSettings.AutoRefreshData && FDataTable) RefreshData();
    };
    host.UpdateControls = [this] { UpdateControls(); };
    host.AsyncUpdateControls = [this] { AsyncUpdateControls(); };
    host.FrameCreated = [this](TfrmSQL& Frame) {
        Frame.qrySQL.FCacheBlobs = FSettings.ShowImages;
        if (!pmDataPopup) return;  // the first tab: attached with the commands
        AttachGrid(*Frame.dbgSQL);
        connect(Frame.dbgSQL, &TBrindleDBGrid::CurrentChanged, this, [this] { ShowRecordCount(); });
    };
    FSQLPage = new TSQLPage(std::move(host), pcMain);
    tabSQL = FSQLPage;
    dbgData = new TBrindleDBGrid(pcMain);
    dbgData->setObjectName(QStringLiteral("dbgData"));
    FDataModel = new TDataSetModel(this);
    dbgData->SetModel(FDataModel);
    tabData = dbgData;
    CreateDesignPages();
    tabDesign = nbkDesign;
    mmoDDL = new QPlainTextEdit(pcMain);
    mmoDDL->setObjectName(QStringLiteral("mmoDDL"));
    mmoDDL->setReadOnly(true);
    mmoDDL->setLineWrapMode(QPlainTextEdit::NoWrap);
    tabDDL = mmoDDL;
    mmoLog = new QPlainTextEdit(pcMain);
    mmoLog->setObjectName(QStringLiteral("mmoLog"));
    mmoLog->setReadOnly(true);
    tabLog = mmoLog;
    pcMain->addTab(tabDatabase, QStringLiteral("Database"));
    pcMain->addTab(tabSQL, QStringLiteral("SQL"));
    pcMain->addTab(tabData, QStringLiteral("Data"));
    pcMain->addTab(tabDesign, QStringLiteral("Design"));
    pcMain->addTab(tabDDL, QStringLiteral("DDL"));
    pcMain->addTab(tabLog, QStringLiteral("Log"));
    pcMain->setTabVisible(pcMain->indexOf(tabLog), FLogEnabled);
    mmoDDL->setFont(DefaultFixedFont());

    // The pages take whatever the window gains or loses; the tree keeps the
    // width it was given, so that a width restored before the window has its
    // final size is not scaled with it.
    FSplitter->setStretchFactor(0, 0);
    FSplitter->setStretchFactor(1, 1);
    FSplitter->setSizes({300, 900});
    layout->addWidget(FSplitter, 1);
    setCentralWidget(central);

    spTransaction = new QLabel(this);
    spRowsAffected = new QLabel(this);
    spRecordCount = new QLabel(this);
    spStatus = new QLabel(this);
    spTransaction->setObjectName(QStringLiteral("spTransaction"));
    spRecordCount->setObjectName(QStringLiteral("spRecordCount"));
    for (QLabel* panel : {spTransaction, spRowsAffected, spRecordCount})
        statusBar()->addPermanentWidget(panel);
    statusBar()->addWidget(spStatus, 1);

    connect(tvDatabases, &QTreeWidget::currentItemChanged, this, [this] { FocusedNodeChanged(); });
    connect(tvDatabases, &QTreeWidget::itemExpanded, this, [this](QTreeWidgetItem* Node) {
        // Expanding a database that is not connected connects it.
        TDLSQLiteMetadata* md = tvDatabases->NodeMetadata(Node);
        if (md && md->SQLiteDatabase() && !md->SQLiteDatabase()->Connected())
            Guard([&] { md->SQLiteDatabase()->SetConnected(true); });
    });
    connect(tvDatabases, &TDLDBTree::FilesDropped, this, [this](const QStringList& Files) {
        for (const QString& file : Files)
            if (TDatabaseRegistry::IsValidDatabase(file))
                Guard([&] { OpenDatabase(file, FRegistry->PickAlias(file)); });
    });
    connect(pcMain, &QTabWidget::currentChanged, this, [this] {
        spRowsAffected->clear();
        if (pcMain->currentWidget() == tabData && !FDataTable) ShowData();
        AsyncUpdateControls();
        spStatus->clear();
    });
    // A refused edit stays in its row until it is mended or dropped (Esc).
    connect(FDataModel, &TDataSetModel::PostFailed, this,
            [this](const QString& Message) { ShowError(Message); });
    auto* cancel = new QShortcut(QKeySequence(Qt::Key_Escape), dbgData->View(), nullptr, nullptr, Qt::WidgetShortcut);
    connect(cancel, &QShortcut::activated, FDataModel, &TDataSetModel::CancelEdit);
}

void TfrmSCMain::CreateActions() {
    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    QMenu* database = menuBar()->addMenu(QStringLiteral("&Database"));
    miTransaction = menuBar()->addMenu(QStringLiteral("&Transaction"));
    miTransaction->setObjectName(QStringLiteral("miTransaction"));
    QMenu* tools = menuBar()->addMenu(QStringLiteral("T&ools"));
    QToolBar* bar = addToolBar(QStringLiteral("Main"));
    bar->setObjectName(QStringLiteral("tbMain"));

    acCreateDatabase = MakeAction(this, "acCreateDatabase", QStringLiteral("&New Database"));
    acCreateDatabase->setShortcut(QKeySequence::New);
    acOpenDatabase = MakeAction(this, "acOpenDatabase", QStringLiteral("&Open Database"));
    acOpenDatabase->setShortcut(QKeySequence::Open);
    acOpenDemoDatabase = MakeAction(this, "acOpenDemoDatabase", QStringLiteral("Open &Demo Database"));
    miRecentDatabases = new QMenu(QStringLiteral("&Reopen Database..."), this);
    miRecentDatabases->setObjectName(QStringLiteral("miRecentDatabases"));
    acOpenRecentDatabase = miRecentDatabases->menuAction();
    acOpenRecentDatabase->setObjectName(QStringLiteral("acOpenRecentDatabase"));
    acCloseDatabase = MakeAction(this, "acCloseDatabase", QStringLiteral("Close Data&base"));
    acCloseAllDatabases = MakeAction(this, "acCloseAllDatabases", QStringLiteral("C&lose All Databases"));
    acEditDatabaseRegistration =
        MakeAction(this, "acEditDatabaseRegistration", QStringLiteral("&Edit Registration"));
    acRefreshDatabase = MakeAction(this, "acRefreshDatabase", QStringLiteral("Re&fresh"));
    acRefreshDatabase->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
    acAttachDatabase = MakeAction(this, "acAttachDatabase", QStringLiteral("&Attach Database"));
    miAttachedDatabases = new QMenu(QStringLiteral("Detach Database"), this);
    acDetachDatabase = miAttachedDatabases->menuAction();
    acDetachDatabase->setObjectName(QStringLiteral("acDetachDatabase"));
    acBeginTransaction = MakeAction(this, "acBeginTransaction", QStringLiteral("&Begin Transaction"));
    acCommit = MakeAction(this, "acCommit", QStringLiteral("&Commit"));
    acRollback = MakeAction(this, "acRollback", QStringLiteral("&Rollback"));
    acSavepoint = MakeAction(this, "acSavepoint", QStringLiteral("&Savepoint"));
    miReleaseSavepoints = new QMenu(QStringLiteral("Release..."), this);
    acReleaseSavepoint = miReleaseSavepoints->menuAction();
    acReleaseSavepoint->setObjectName(QStringLiteral("acReleaseSavepoint"));
    miRollbackToSavepoints = new QMenu(QStringLiteral("Rollback to..."), this);
    acRollbackToSavepoint = miRollbackToSavepoints->menuAction();
    acRollbackToSavepoint->setObjectName(QStringLiteral("acRollbackToSavepoint"));
    acOptions = MakeAction(this, "acOptions", QStringLiteral("&Options..."));
    acFileExit = MakeAction(this, "acFileExit", QStringLiteral("E&xit"));
    acFileExit->setShortcut(QKeySequence::Quit);
    acRefreshData = MakeAction(this, "acRefreshData", QStringLiteral("Refresh &Data"));
    acRefreshData->setShortcut(QKeySequence::Refresh);
    acRenameTable = MakeAction(this, "acRenameTable", QStringLiteral("&Rename Table"));

    connect(acCreateDatabase, &QAction::triggered, this,
            [this] { Guard([this] { acCreateDatabaseExecute(); }); });
    connect(acOpenDatabase, &QAction::triggered, this,
            [this] { Guard([this] { acOpenDatabaseExecute(); }); });
    connect(acOpenDemoDatabase, &QAction::triggered, this,
            [this] { Guard([this] { OpenDatabase(GetDemoDatabasePath()); }); });
    connect(acCloseDatabase, &QAction::triggered, this,
            [this] { Guard([this] { CloseDatabase(CurrentDatabase()); }); });
    connect(acCloseAllDatabases, &QAction::triggered, this,
            [this] { Guard([this] { acCloseAllDatabasesExecute(); }); });
    connect(acEditDatabaseRegistration, &QAction::triggered, this,
            [this] { Guard([this] { acEditDatabaseRegistrationExecute(); }); });
    connect(acRefreshDatabase, &QAction::triggered, this, [this] {
        FDBPropsChanged = true;
        Guard([this] { RefreshCurrentDatabase(); });
        AsyncUpdateControls();
    });
    connect(acRefreshData, &QAction::triggered, this, [this] { RefreshData(); });
    connect(acAttachDatabase, &QAction::triggered, this,
            [this] { Guard([this] { acAttachDatabaseExecute(); }); });
    connect(acBeginTransaction, &QAction::triggered, this, [this] {
        Guard([this] {
            TDLSQLiteDatabase* db = CurrentDatabase();
            if (db && db->GetStatus() == dsConnected && !db->GetInTransaction()) db->BeginTransaction();
        });
        AsyncUpdateControls();
    });
    connect(acCommit, &QAction::triggered, this, [this] {
        Guard([this] {
            TDLSQLiteDatabase* db = CurrentDatabase();
            if (db && db->GetStatus() == dsConnected && db->GetInTransaction()) db->Commit();
        });
        AsyncUpdateControls();
    });
    connect(acRollback, &QAction::triggered, this, [this] {
        Guard([this] {
            TDLSQLiteDatabase* db = CurrentDatabase();
            if (!db || db->GetStatus() != dsConnected || !db->GetInTransaction()) return;
            db->Rollback();
            RefreshCurrentDatabase();
        });
        AsyncUpdateControls();
    });
    connect(acSavepoint, &QAction::triggered, this, [this] { Guard([this] { acSavepointExecute(); }); });
    connect(acOptions, &QAction::triggered, this, [this] { Guard([this] { acOptionsExecute(); }); });
    connect(acFileExit, &QAction::triggered, this, &QWidget::close);
    connect(acRenameTable, &QAction::triggered, this, [this] { Guard([this] { acRenameTableExecute(); }); });

    connect(miRecentDatabases, &QMenu::aboutToShow, this, &TfrmSCMain::RefreshRecentMenu);
    connect(miAttachedDatabases, &QMenu::aboutToShow, this, [this] {
        miAttachedDatabases->clear();
        TDLSQLiteDatabase* db = ConnectedCurrent();
        if (!db) return;
        const int width = screen() ? screen()->geometry().width() / 2 : 600;
        for (int i = 0; i < db->AttachedDatabaseCount(); ++i) {
            const QString name = db->AttachedDatabases(i);
            const QString fileName =
                fontMetrics().elidedText(db->GetAttachedFileName(name), Qt::ElideMiddle, width);
            QAction* entry = miAttachedDatabases->addAction(QStringLiteral("%1 (%2)").arg(name, fileName));
            connect(entry, &QAction::triggered, this, [this, db, name] {
                Guard([&] {
                    db->Execute(QStringLiteral("detach %1").arg(QuoteIdentifier(name)));
                    RefreshCurrentDatabase();
                });
            });
        }
    });
    auto savepointMenu = [this](QMenu* Menu, bool Release) {
        connect(Menu, &QMenu::aboutToShow, this, [this, Menu, Release] {
            Menu->clear();
            TDLSQLiteDatabase* db = ConnectedCurrent();
            if (!db) return;
            for (int i = db->SavepointCount() - 1; i >= 0; --i) {
                const QString name = db->Savepoints(i);
                connect(Menu->addAction(name), &QAction::triggered, this, [this, db, name, Release] {
                    Guard([&] {
                        if (Release) {
                            db->Execute(QStringLiteral("RELEASE ") + QuoteIdentifier(name));
                            CloseData();
                            ShowData();
                        } else {
                            db->Execute(QStringLiteral("rollback to ") + QuoteIdentifier(name));
                            RefreshCurrentDatabase();
                        }
                    });
                    AsyncUpdateControls();
                });
            }
        });
    };
    savepointMenu(miReleaseSavepoints, true);
    savepointMenu(miRollbackToSavepoints, false);

    file->addAction(acCreateDatabase);
    file->addAction(acOpenDatabase);
    file->addAction(acOpenDemoDatabase);
    file->addMenu(miRecentDatabases);
    file->addSeparator();
    file->addAction(acCloseDatabase);
    file->addAction(acCloseAllDatabases);
    file->addSeparator();
    file->addAction(acFileExit);
    database->addAction(acRefreshDatabase);
    database->addAction(acEditDatabaseRegistration);
    database->addSeparator();
    database->addAction(acAttachDatabase);
    database->addMenu(miAttachedDatabases);
    database->addSeparator();
    database->addAction(FTableDesignPage->acNewTable);
    database->addAction(FViewDesignPage->acNewView);
    database->addAction(FVirtualTableDesignPage->acNewVirtualTable);
    database->addAction(acRenameTable);
    database->addSeparator();
    database->addAction(acRefreshData);
    miTransaction->addAction(acBeginTransaction);
    miTransaction->addAction(acCommit);
    miTransaction->addAction(acRollback);
    miTransaction->addSeparator();
    miTransaction->addAction(acSavepoint);
    miTransaction->addMenu(miReleaseSavepoints);
    miTransaction->addMenu(miRollbackToSavepoints);
    tools->addAction(acOptions);
    for (QAction* a : {acCreateDatabase, acOpenDatabase, acCloseDatabase, acRefreshDatabase})
        bar->addAction(a);
    bar->addSeparator();
    for (QAction* a : {acBeginTransaction, acCommit, acRollback}) bar->addAction(a);

    TSQLPage& q = *FSQLPage;
    auto* sql = new QMenu(QStringLiteral("&SQL"), this);
    sql->setObjectName(QStringLiteral("miSQL"));
    menuBar()->insertMenu(tools->menuAction(), sql);
    for (QAction* a : {q.acExecuteSQL, q.acExecuteCurrentLineSQL, q.acExecuteCurrentStatementSQL, q.acStopQuery})
        sql->addAction(a);
    sql->addSeparator();
    for (QAction* a : {q.acNewSQLTab, q.acCloseSQLTab, q.acCloseOtherSQLTabs}) sql->addAction(a);
    sql->addSeparator();
    for (QAction* a : {q.acLoadSQL, q.acSaveSQL, q.acClearSQL}) sql->addAction(a);
    sql->addMenu(q.miSQLHistory);
    sql->addSeparator();
    for (QAction* a : {q.acFind, q.acFindNext, q.acFindPrev, q.acReplace, q.acEditComment, q.acResultsAsText})
        sql->addAction(a);
    bar->addSeparator();
    for (QAction* a : {q.acExecuteSQL, q.acStopQuery}) bar->addAction(a);

    // The tree's own menu: one list for every kind of node, each entry
    // gated by the rule table.
    tvDatabases->setContextMenuPolicy(Qt::ActionsContextMenu);
    for (QAction* a : {acRefreshDatabase, acEditDatabaseRegistration, acCloseDatabase, acCloseAllDatabases,
                       acAttachDatabase, acDetachDatabase, FTableDesignPage->acNewTable, FViewDesignPage->acNewView,
                       FVirtualTableDesignPage->acNewVirtualTable, acRenameTable})
        tvDatabases->addAction(a);
    CreateDataCommands();
}

void TfrmSCMain::CreateTimers() {
    auto make = [this](const char* Name, int Interval, auto Slot) {
        auto* timer = new QTimer(this);
        timer->setObjectName(QLatin1String(Name));
        timer->setInterval(Interval);
        connect(timer, &QTimer::timeout, this, Slot);
        return timer;
    };
    // A cached read statement must not keep its lock once a lock error
    // was seen.
    tmUnlock = make("tmUnlock", 200, [this] {
        if (FSQLPage->Running()) return;
        TDLSQLiteDatabase* db = CurrentDatabase();
        if (db && db->Connected() && db->GetLastLockTime() > 0 &&
            NowAsDateTime() - db->GetLastLockTime() > 1.0 / 86400.0)
            db->ResetHandles();
    });
    // Keyboard moves in the tree that no signal reported.
    tmFocusedChanged = make("tmFocusedChanged", 200, [this] {
        if (FSQLPage->Running()) return;
        if (tvDatabases->currentItem() != FOldFocusedNode && !EditingTable() && !EditingView() &&
            !EditingVirtualTable())
            ForceRefreshAll();
    });
    tmRecordCount = make("tmRecordCount", 100, [this] {
        if (FSQLPage->Running()) return;
        const qint64 now = NowMSecs();
        if (FLastRefreshTime < FLastModifiedTime && now - FLastModifiedTime > 333) {
            tvDatabases->UpdateRecordCounts();
            FLastRefreshTime = now;
        }
    });
    tmVersionCheck = make("tmVersionCheck", 300000, [this] {
        tmVersionCheck->stop();
        tmVersionCheck->setInterval(300000);
        tmVersionCheck->start();
    });
    // Arguments handed over by later starts. A timer rather than the idle
    // hook: a list that has to wait (behind a modal dialog, during a design
    // edit) would otherwise be looked at again on every pass of the loop.
    tmInstParams = make("tmInstParams", 200, [this] {
        if (!FSQLPage->Running()) DrainInstParams();
    });
    tmUnlock->start();
    tmFocusedChanged->start();
    tmRecordCount->start();
    tmInstParams->start();
}

// ---------------------------------------------------------------------------
// Start and close

void TfrmSCMain::Start(const QStringList& Params) {
    LoadSettings();
    ProcessParams(Params);
    FInitialized = true;
    AsyncUpdateControls();
}

void TfrmSCMain::ProcessParams(const QStringList& Params) {
    // The program has no switches: anything but one file is ignored.
    if (Params.size() != 1) return;
    const QString file = Params.front();
    if (!QFileInfo::exists(file)) return;
    Guard([&] {
        if (TDLSQLiteDatabase* db = OpenDatabase(file)) {
            tvDatabases->SelectDatabase(db->AliasName());
            tvDatabases->SetExpanded(db->AliasName(), true);
        }
    });
}

QString TfrmSCMain::ShowByName(const QString& ObjectName, const QString& PageCaption) {
    if (!ObjectName.isEmpty()) {
        const QString alias = GlobalData->CurrentAlias();
        if (alias.isEmpty()) return QStringLiteral("No database is open to show %1 of.").arg(ObjectName);
        if (!tvDatabases->SelectObject(alias, ObjectName))
            return QStringLiteral("Database %1 shows no object %2.").arg(alias, ObjectName);
    }
    if (PageCaption.isEmpty()) return QString();
    // Which tabs show depends on the selection: the rule table decides now.
    UpdateControls();
    QStringList shown;
    for (int i = 0; i < pcMain->count(); ++i) {
        if (!pcMain->isTabVisible(i)) continue;
        const QString caption = pcMain->tabText(i).remove(u'&');
        if (caption.compare(PageCaption, Qt::CaseInsensitive) == 0) {
            pcMain->setCurrentIndex(i);
            return QString();
        }
        shown << caption;
    }
    return QStringLiteral("No page %1; the pages shown are %2.")
        .arg(PageCaption, shown.join(QStringLiteral(", ")));
}

void TfrmSCMain::DrainInstParams() {
    if (InstParams().isEmpty() || FClosing) return;
    // Not behind a modal dialog nor during a design edit: the list waits.
    if (QApplication::activeModalWidget() || EditingTable() || EditingView() || EditingVirtualTable()) return;
    // Another window of the program in front waits too. No active window at
    // all (no window manager, or another program in front) does not: the
    // second start asked for this file.
    const QWidget* active = QApplication::activeWindow();
    if (active && active != this) return;
    while (!InstParams().isEmpty()) ProcessParams(InstParams().takeFirst());
}

void TfrmSCMain::changeEvent(QEvent* Event) {
    QMainWindow::changeEvent(Event);
    // Back in front, say after a modal dialog: what waits opens now rather
    // than at the next tick; from the loop, not from inside this event.
    if (Event->type() == QEvent::ActivationChange && isActiveWindow() && !InstParams().isEmpty())
        QMetaObject::invokeMethod(this, &TfrmSCMain::DrainInstParams, Qt::QueuedConnection);
}

void TfrmSCMain::showEvent(QShowEvent* Event) {
    QMainWindow::showEvent(Event);
    if (FStarted) return;
    FStarted = true;
    ForceRefreshAll();
    tmVersionCheck->start();
}

void TfrmSCMain::closeEvent(QCloseEvent* Event) {
    if ((EditingTable() || EditingView() || EditingVirtualTable()) &&
        !Confirm(QStringLiteral("Exit without applying changes?"))) {
        Event->ignore();
        return;
    }
    TMetaList& list = GlobalData->MetaList();
    for (int i = 0; i < list.GetMetadataCount(); ++i) {
        bool mayClose = false;
        Guard([&] { mayClose = FRegistry->CheckActiveTransaction(&list.GetDatabase(i)); });
        if (!mayClose) {
            Event->ignore();
            return;
        }
    }
    Guard([this] { SaveSettings(); });
    FClosing = true;
    Event->accept();
}

// ---------------------------------------------------------------------------
// Settings

void TfrmSCMain::LoadSettings() {
    QSettings& store = Settings();
    TProgramSettings& s = FSettings;
    s.LastEncoding = FRegistry->FLastEncoding;
    ReadProgramSettings(store, s, UserDataPath());

    tvDatabases->SetShowRecordCounts(s.ShowRecordCounts);
    // The library first: everything after it needs the engine.
    if (!SameDriverName(s.LibraryFileName, SQLite3Driver->sqlite3drv_filename()) ||
        !SQLite3Driver->sqlite3drv_driver_present()) {
        ReleaseDesign();
        FLibraryFileName = LoadSQLiteLibrary(s.LibraryFileName, [this](const QString& m) { ShowError(m); });
    }
    else
        FLibraryFileName = SQLite3Driver->sqlite3drv_filename();
    FRegistry->FUnicodeEncoding = s.Unicode;
    SetQuoteChars(s.QuoteChars);
    ReadTypeMappings(store, DefaultTypeMappings());
    if (s.RememberOpenDatabases) {
        ReadDBCache(store, *FDBCache);
        FRegistry->LoadDatabases(store);
    }
    FFeatures.Load(store);
    FSQLPage->RestoreTabs(s.SQLTexts, s.SQLPanelHeights, s.LayoutValues.value(QStringLiteral("SQLPage"), 0));
    FSQLPage->FLastSQLFile = s.LastPaths.value(QStringLiteral("LastSQLFile"));
    FSQLPage->FLastSQLDirectory = s.LastPaths.value(QStringLiteral("LastSQLDirectory"));

    ApplySettings();
    FRegistry->FLastEncoding = s.LastEncoding;
    FRegistry->FLastDatabaseDirectory = s.LastDatabaseDirectory;
    if (!s.CurrentAlias.isEmpty()) SelectObject(s.CurrentAlias, s.CurrentObject);
    FRegistry->FRecentDatabases = s.RecentDatabases;
    FRegistry->CleanupRecentDatabases();
    FColumnsCache->LoadFromIniFile(store, QStringLiteral("Columns"));
    RefreshHeader();
}

void TfrmSCMain::ApplySettings() {
    const TProgramSettings& s = FSettings;
    EditorWordWrap = s.EditorWordWrap;
    EditorTabWidth = s.EditorTabWidth;
    TextEditorWordWrap = s.TextEditorWordWrap;
    const int width = s.LayoutValues.value(QStringLiteral("DBTree.Width"), -1);
    if (width > 0) FSplitter->setSizes({width, std::max(200, FSplitter->width() - width)});
    const int page = s.LayoutValues.value(QStringLiteral("SelectedPage"), -1);
    if (page >= 0 && page < pcMain->count()) pcMain->setCurrentIndex(page);

    // A stored fixed font counts only under the two names older versions
    // wrote; anything else gives the default. The editor font goes over it.
    QFont fixed = DefaultFixedFont();
    if (s.FixedFontStored &&
        (s.FixedFont.Name == QLatin1String("Consolas") || s.FixedFont.Name == QLatin1String("Coorier New")))
        fixed = ToFont(s.FixedFont);
    const QFont editor = s.EditorFont.Name.isEmpty() ? fixed : ToFont(s.EditorFont);
    for (QPlainTextEdit* e : {mmoDDL}) {
        e->setFont(editor);
        e->setLineWrapMode(s.EditorWordWrap ? QPlainTextEdit::WidgetWidth : QPlainTextEdit::NoWrap);
        e->setTabStopDistance(s.EditorTabWidth * QFontMetricsF(editor).horizontalAdvance(u' '));
    }
    FSQLPage->ApplyEditorSettings(editor, s.EditorWordWrap, s.EditorTabWidth, s.CodeCompletion, s.AutoInvoke,
                                  s.CodeCompletionDelay, s.CodeTemplates, s.CodeTemplateCompletion);
    FSQLPage->SetResultsAsText(s.ResultsAsText, s.TextSizeLimit);
    if (!s.DefaultFont.Name.isEmpty()) setFont(ToFont(s.DefaultFont));

    for (TBrindleDBGrid* grid : findChildren<TBrindleDBGrid*>()) {
        QTableView* view = grid->View();
        view->setAlternatingRowColors(s.AlternateBackColor);
        QPalette palette = view->palette();
        palette.setColor(QPalette::Base, StoredColor(s.OddColor));
        palette.setColor(QPalette::AlternateBase, StoredColor(s.EvenColor));
        view->setPalette(palette);
        view->verticalHeader()->setVisible(s.ShowRecordNumbers);
        grid->SetCellSelect(s.CellSelect);
        grid->VerticalBar()->setTracking(s.ThumbTracking);
        grid->FShowCellHints = s.ShowCellHints;
        grid->FShowImages = s.ShowImages;
        grid->SetCellAutoHeight(s.CellAutoHeight);
        grid->SetFilterRowVisible(s.FilterRowsVisible);
    }
    // Takes effect at each query's next open.
    for (int i = 0; i < FSQLPage->TabCount(); ++i) FSQLPage->Frame(i)->qrySQL.FCacheBlobs = s.ShowImages;
    if (QToolBar* bar = findChild<QToolBar*>(QStringLiteral("tbMain"))) {
        bar->setVisible(s.ToolbarVisible && s.Bars.value(QStringLiteral("tbMain")).Visible);
        bar->setIconSize(s.UseLargeIcons ? QSize(32, 32) : QSize(16, 16));
    }
}

void TfrmSCMain::CollectSettings() {
    TProgramSettings& s = FSettings;
    s.LayoutValues[QStringLiteral("DBTree.Width")] = FSplitter->sizes().value(0);
    s.TextEditorWordWrap = TextEditorWordWrap;
    s.LayoutValues[QStringLiteral("SelectedPage")] = pcMain->currentIndex();
    s.Monitor = std::max<qsizetype>(0, QGuiApplication::screens().indexOf(screen()));
    s.SQLTexts = FSQLPage->Texts();
    s.SQLTabCount = s.SQLTexts.size();
    s.SQLPanelHeights = FSQLPage->PanelHeights();
    s.LayoutValues[QStringLiteral("SQLPage")] = FSQLPage->pcSQL->currentIndex();
    s.LastPaths[QStringLiteral("LastSQLFile")] = FSQLPage->FLastSQLFile;
    s.LastPaths[QStringLiteral("LastSQLDirectory")] = FSQLPage->FLastSQLDirectory;
    s.ShowRecordCounts = tvDatabases->ShowRecordCounts();
    s.CurrentAlias = GlobalData->CurrentAlias();
    s.CurrentObject = GlobalData->CurrentItemName();
    s.RecentDatabases = FRegistry->FRecentDatabases;
    s.LastDatabaseDirectory = FRegistry->FLastDatabaseDirectory;
    s.LastEncoding = FRegistry->FLastEncoding;
    s.Unicode = FRegistry->FUnicodeEncoding;
    s.LibraryFileName = FLibraryFileName;
    s.DefaultFont = FontSetting(font());
    s.EditorFont = FontSetting(FSQLPage->Frame(0)->mmoSQL->font());
    if (const QToolBar* bar = findChild<QToolBar*>(QStringLiteral("tbMain"))) {
        TBarLayout& layout = s.Bars[bar->objectName()];
        layout.Row = 0;
        layout.Left = bar->x();
        layout.Visible = !bar->isHidden();
    }
}

void TfrmSCMain::SaveSettings() {
    CollectSettings();
    QSettings& store = Settings();
    // A value not written again is gone: the sections start empty.
    for (const QString& section : kErasedSections) store.remove(section);
    WriteProgramSettings(store, FSettings);
    FRegistry->SaveDatabases(store);
    FDBCache->Compact();
    WriteDBCache(store, *FDBCache);
    WriteTypeMappings(store, DefaultTypeMappings());
    FFeatures.Save(store);
    FColumnsCache->SaveToIniFile(store, QStringLiteral("Columns"));
    store.sync();
}

// ---------------------------------------------------------------------------
// Refreshing

void TfrmSCMain::ForceRefreshAll() {
    FOldFocusedNode = tvDatabases->currentItem();
    if (!FStarted || FNeedRefreshAll) return;
    FNeedRefreshAll = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            FNeedRefreshAll = false;
            // Nothing reads the schema while a statement runs on the same
            // connection; the refresh follows the run.
            if (FSQLPage->Running()) {
                FRefreshAfterRun = true;
                return;
            }
            RefreshAll();
        },
        Qt::QueuedConnection);
}

void TfrmSCMain::AsyncUpdateControls() {
    if (FNeedUpdateControls) return;
    FNeedUpdateControls = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            FNeedUpdateControls = false;
            UpdateControls();
        },
        Qt::QueuedConnection);
}

void TfrmSCMain::RefreshAll() {
    if (!SQLite3Driver->sqlite3drv_driver_present()) return;
    RefreshHeader();
    CloseData();
    RefreshDesign();
    RefreshDatabaseInfo();
    AsyncUpdateControls();
    FOldFocusedNode = tvDatabases->currentItem();
    if (pcMain->currentWidget() == tabData) ShowData();
}

void TfrmSCMain::RefreshCurrentDatabase(const QString& AliasName, const QString& ObjectName) {
    FRegistry->RefreshCurrentDatabase(AliasName, ObjectName);
}

void TfrmSCMain::RefreshAlias(const QString& AliasName) {
    Guard([&] { GlobalData->MetaList().RefreshMetadata(AliasName); });
    RefreshDatabaseInfo();
    AsyncUpdateControls();
    tvDatabases->viewport()->update();
}

QString TfrmSCMain::HeaderText() const {
    return lblHeader->text();
}

void TfrmSCMain::RefreshHeader() {
    const QString alias = GlobalData->CurrentAlias();
    // The object's own name, without its database.
    QString schema, bare;
    SplitObjectName(GlobalData->CurrentItemName(), schema, bare);
    QString text;
    switch (GlobalData->CurrentItemType()) {
        case itDatabase:
            text = QStringLiteral("Database: ") + alias;
            break;
        case itTable:
            text = QStringLiteral("Database: %1   Table: %2").arg(alias, bare);
            break;
        case itVirtualTable:
            text = QStringLiteral("Database: %1   Virtual Table: %2").arg(alias, bare);
            break;
        case itShadowTable:
            text = QStringLiteral("Database: %1   Shadow Table: %2").arg(alias, bare);
            break;
        case itView:
            text = QStringLiteral("Database: %1   View: %2").arg(alias, bare);
            break;
        default:
            text = QStringLiteral("No database");
    }
    QString library;
    if (SQLite3Driver->sqlite3drv_driver_present()) {
        const QString file = SQLite3Driver->sqlite3drv_filename();
        library =
            QStringLiteral("SQLite Library: %1 version %2")
                .arg(file == SQLITE_INTERNAL_LIB ? QStringLiteral("[internal]") : QFileInfo(file).fileName(),
                     SQLite3Driver->sqlite3drv_libversion());
    }
    lblLibrary->setText(library);
    if (TDLSQLiteDatabase* db = GlobalData->CurrentDatabase()) {
        const QFontMetrics metrics(lblHeader->font());
        const int room =
            width() - (metrics.horizontalAdvance(library) + 16) - metrics.horizontalAdvance(text) - 32;
        text += QStringLiteral("   File: ") +
                metrics.elidedText(db->FileName(), Qt::ElideMiddle, std::max(room, 80));
    }
    lblHeader->setText(text);
}

void TfrmSCMain::RefreshDatabaseInfo() {
    TDLSQLiteDatabase* db = GlobalData->CurrentDatabase();
    if (FDBPropsChanged || mmoDatabase->property("alias").toString() != (db ? db->AliasName() : QString())) {
        QString text;
        if (!db) {
            text = QStringLiteral("No database");
        } else {
            static const char* const statuses[] = {"Connected", "Disconnected", "Unavailable",
                                                   "Access error"};
            const TDatabaseStatus status = db->GetStatus();
            QString word = QLatin1String(statuses[status]);
            if (status == dsConnected && !db->EncryptionKey().isEmpty())
                word = QStringLiteral("Connected, encrypted");
            text = QStringLiteral("Status for %1 database: %2\n\n").arg(db->AliasName(), word);
            if (db->Connected()) {
                Guard([&] {
                    for (const QString& name : db->DatabaseNames()) {
                        const QString file =
                            name == QLatin1String("main") ? db->FileName() : db->GetAttachedFileName(name);
                        text += QStringLiteral("%1\t%2\n")
                                    .arg(name, file.isEmpty() ? QStringLiteral(":memory:") : file);
                    }
                });
            } else {
                text += QStringLiteral("main\t%1\n").arg(db->FileName());
            }
        }
        mmoDatabase->setPlainText(text);
        mmoDatabase->setProperty("alias", db ? db->AliasName() : QString());
        FDBPropsChanged = false;
    }

    // The DDL page: the object's text with its indexes and triggers, or the
    // whole database's for a database node.
    QStringList ddl;
    auto addTable = [&ddl](const TBaseTableInfo& t) {
        if (!t.FSQL.isEmpty()) ddl << t.FSQL;
        for (int i = 0; i < t.IndexCount(); ++i)
            if (!t.Indexes(i).FSQL.isEmpty()) ddl << t.Indexes(i).FSQL;
        for (int i = 0; i < t.TriggerCount(); ++i) ddl << t.Triggers(i).FSQL;
    };
    auto addView = [&ddl](const TBaseViewInfo& v) {
        ddl << v.FSQL;
        for (int i = 0; i < v.TriggerCount(); ++i) ddl << v.Triggers(i).FSQL;
    };
    TDLSQLiteMetadata* md = GlobalData->GetCurrentMetadata();
    TMetadataBaseItem* item = GlobalData->GetCurrentItem();
    if (auto* table = dynamic_cast<TBaseTableInfo*>(item)) {
        addTable(*table);
    } else if (auto* view = dynamic_cast<TBaseViewInfo*>(item)) {
        addView(*view);
    } else if (md && !item && db && db->Connected()) {
        for (int i = 0; i < md->TableCount(); ++i) addTable(md->Tables(i));
        for (int i = 0; i < md->ViewCount(); ++i) addView(md->Views(i));
    }
    ddl.removeAll(QString());
    mmoDDL->setPlainText(ddl.isEmpty() ? QString() : ddl.join(QStringLiteral(";\n\n")) + u';');
}

void TfrmSCMain::RefreshDesign() {
    // The design of the current item, fresh from the database: whatever
    // was pending is gone, which is why nothing calls this during an edit.
    TDLSQLiteDatabase* db = GlobalData->CurrentDatabase();
    const TItemType type = GlobalData->CurrentItemType();
    const QString name = GlobalData->CurrentItemName();
    FdmBrindle->ClearDesign();
    FTableDesignPage->ClearTable();
    FViewDesignPage->ClearView();
    FVirtualTableDesignPage->ClearVirtualTable();
    const bool connected = db && db->Connected();
    switch (type) {
        case itTable:
            nbkDesign->setCurrentWidget(FTableDesignPage);
            if (connected) Guard([&] { FTableDesignPage->LoadTable(*db, name); });
            break;
        case itView:
            nbkDesign->setCurrentWidget(FViewDesignPage);
            if (connected) Guard([&] { FViewDesignPage->LoadView(*db, name); });
            break;
        case itVirtualTable:
            nbkDesign->setCurrentWidget(FVirtualTableDesignPage);
            if (connected) Guard([&] { FVirtualTableDesignPage->LoadVirtualTable(*db, name); });
            break;
        case itShadowTable:
            nbkDesign->setCurrentWidget(lblShadowTable);
            break;
        default:
            break;
    }
    // A load that failed half-way leaves nothing pending either.
    FdmBrindle->FTableDesignModified = FdmBrindle->FFieldsModified = FdmBrindle->FIndexesModified =
        FdmBrindle->FTableTriggersModified = FdmBrindle->FViewDesignModified =
            FdmBrindle->FVirtualTableDesignModified = FdmBrindle->FCreatingTable = false;
}

void TfrmSCMain::CloseData() {
    if (FDataModel) FDataModel->SetDataSet(nullptr);
    FDataTable.reset();
    ShowRecordCount();
}

void TfrmSCMain::ShowData() {
    const TItemType type = GlobalData->CurrentItemType();
    if (type != itTable && type != itView && type != itVirtualTable && type != itShadowTable) return;
    TDLSQLiteDatabase* db = GlobalData->CurrentDatabase();
    if (!db || !db->Connected()) return;
    auto table = std::make_unique<TDLTable>();
    table->SetDatabase(db);
    table->SetTableName(GlobalData->CurrentItemName());
    table->FHideRowID = !FSettings.ShowRowID;
    table->FBackgroundCount = true;
    // Without images in cells a BLOB is read only when it is opened, so a
    // window of rows with large values costs no more than their keys.
    table->FCacheBlobs = FSettings.ShowImages;
    bool opened = false;
    Guard([&] {
        table->Open();
        opened = true;
    });
    if (!opened) return;
    ApplyColumnChoice(*table);
    FDataTable = std::move(table);
    FDataModel->SetDataSet(FDataTable.get());
    // Another object starts unfiltered; the same one keeps its filter row.
    const QString object = db->AliasName() + u'\n' + FDataTable->TableName();
    if (dbgData->property("object").toString() != object) dbgData->ClearFilterRow();
    dbgData->setProperty("object", object);
    if (!dbgData->FilterRowText().isEmpty()) dbgData->ApplyFilterRow();
    ShowRecordCount();
}

// ---------------------------------------------------------------------------
// The rule table

void TfrmSCMain::UpdateControls() {
    if (FUpdatingControls || FClosing || !FInitialized) return;
    FUpdatingControls = true;
    try {
        InternalUpdateControls();
    } catch (const std::exception&) {
    }
    FUpdatingControls = false;
}

void TfrmSCMain::InternalUpdateControls() {
    FCanAbort = FSQLPage->Running();
    const bool running = FCanAbort;
    const bool editingTable = EditingTable(), editingView = EditingView(),
               editingVirtualTable = EditingVirtualTable();
    const bool editing = editingTable || editingView || editingVirtualTable;
    const bool idle = !editing && !running;
    TDLSQLiteDatabase* db = CurrentDatabase();
    const bool hasDB = db != nullptr;
    const bool connected = hasDB && db->Connected();
    const bool ready = hasDB && db->GetStatus() == dsConnected;
    const bool inTransaction = ready && db->GetInTransaction();
    const TItemType item = GlobalData->CurrentItemType();

    tvDatabases->setEnabled(idle);
    for (QAction* a : {acOpenDatabase, acCreateDatabase, acOptions, acOpenDemoDatabase}) a->setEnabled(idle);
    for (QAction* a : {acRefreshDatabase, acCloseDatabase, acCloseAllDatabases, acEditDatabaseRegistration})
        a->setEnabled(hasDB && idle);
    acAttachDatabase->setEnabled(connected && idle);
    acDetachDatabase->setEnabled(connected && idle && db->AttachedDatabaseCount() > 0);
    acBeginTransaction->setEnabled(ready && !inTransaction && idle);
    acCommit->setEnabled(ready && inTransaction && idle);
    acRollback->setEnabled(ready && inTransaction && idle && !running);
    acSavepoint->setEnabled(ready && idle);
    const bool savepoints = ready && db->SavepointCount() > 0;
    acReleaseSavepoint->setEnabled(savepoints && idle);
    acRollbackToSavepoint->setEnabled(savepoints && idle);
    acRefreshData->setEnabled((item == itTable || item == itView || item == itVirtualTable) && idle);
    UpdateDataCommands(idle);
    acRenameTable->setEnabled((item == itTable || item == itVirtualTable) && idle);
    acRenameTable->setText(item == itTable || item == itVirtualTable
                               ? QStringLiteral("&Rename Table ") + ExtractObjectName(GlobalData->CurrentItemName())
                               : QStringLiteral("&Rename Table"));
    for (QAction* a : {FTableDesignPage->acNewTable, FViewDesignPage->acNewView, FVirtualTableDesignPage->acNewVirtualTable})
        a->setEnabled(connected && idle);

    // The design pages. A new table may always be shaped; an existing one
    // only where a rebuild would not fire foreign key actions.
    bool canRestructure = FdmBrindle->FCreatingTable || FVirtualTableDesignPage->CreatingVirtualTable();
    if (!canRestructure && item == itTable) {
        try {
            canRestructure = CanRestructureTable(db, GlobalData->CurrentItemName());
        } catch (const std::exception&) {
        }
    }
    FTableDesignPage->UpdateControls(running || editingVirtualTable, canRestructure);
    FViewDesignPage->UpdateControls(running);
    FVirtualTableDesignPage->UpdateControls(running);

    const QString features = QStringLiteral("Show/Hide features");
    const bool attach = FFeatures.IsEnabled(features, QStringLiteral("Attach/Detach databases"));
    acAttachDatabase->setVisible(attach);
    acDetachDatabase->setVisible(attach);
    const bool transactions = FFeatures.IsEnabled(features, QStringLiteral("Transaction options"));
    for (QAction* a : {acBeginTransaction, acCommit, acRollback, acSavepoint, acReleaseSavepoint,
                       acRollbackToSavepoint, miTransaction->menuAction()})
        a->setVisible(transactions);
    acOpenRecentDatabase->setVisible(!FRegistry->FRecentDatabases.isEmpty());

    auto tab = [this](QWidget* Page, const char* Feature, bool Rule) {
        const bool shown =
            Rule && FFeatures.IsEnabled(QStringLiteral("Show/Hide tabs"), QLatin1String(Feature));
        pcMain->setTabVisible(pcMain->indexOf(Page), shown);
    };
    tab(tabDatabase, "Database", idle);
    tab(tabSQL, "SQL", !editing);
    tab(tabData, "Data", !editing);
    const bool creating = FdmBrindle->FCreatingTable || FViewDesignPage->CreatingView() ||
                          FVirtualTableDesignPage->CreatingVirtualTable();
    tab(tabDesign, "Design", !running && (item >= itTable || creating));
    tab(tabDDL, "DDL", idle && item != itNone);
    pcMain->setTabVisible(pcMain->indexOf(tabLog), FLogEnabled);
    FSQLPage->UpdateControls(connected, idle, pcMain->currentWidget() == tabSQL,
                             FFeatures.IsEnabled(QStringLiteral("Show/Hide features"), QStringLiteral("Find/Replace")),
                             FFeatures.IsEnabled(QStringLiteral("Show/Hide features"), QStringLiteral("SQL history")));
    SetTransactionStatus(inTransaction ? QStringLiteral("Active") : QString());
    if (!running && FRefreshAfterRun) {
        FRefreshAfterRun = false;
        ForceRefreshAll();
    }
}

void TfrmSCMain::SetTransactionStatus(const QString& Value) {
    spTransaction->setText(Value.isEmpty() ? QString() : QStringLiteral("Transaction: ") + Value);
}

// ---------------------------------------------------------------------------
// Commands

void TfrmSCMain::RunSQL(const QString& Text) {
    pcMain->setCurrentWidget(tabSQL);
    FSQLPage->GetSQLFrame()->mmoSQL->setText(Text);
    FSQLPage->ExecuteSQL(Text);
}

TDLSQLiteDatabase* TfrmSCMain::OpenDatabase(const QString& FileName, const QString& AliasName) {
    return FRegistry->OpenDatabase(FileName, AliasName);
}

void TfrmSCMain::CloseDatabase(TDLSQLiteDatabase* Database) {
    FRegistry->CloseDatabase(Database);
}

TDLSQLiteDatabase* TfrmSCMain::CurrentDatabase() {
    return GlobalData->CurrentDatabase();
}

TDLSQLiteDatabase* TfrmSCMain::ConnectedCurrent() {
    TDLSQLiteDatabase* db = CurrentDatabase();
    return db && db->Connected() ? db : nullptr;
}

void TfrmSCMain::FocusedNodeChanged() {
    // The selection cannot move while a design is pending; a move that got
    // through does not throw the design away.
    if (EditingTable() || EditingView() || EditingVirtualTable()) return;
    // A database connects when it is first chosen.
    if (TDLSQLiteDatabase* db = CurrentDatabase(); db && !db->Connected())
        Guard([db] { db->SetConnected(true); });
    RefreshHeader();
    ForceRefreshAll();
}

void TfrmSCMain::acOpenDatabaseExecute() {
    const QString file =
        SelectDatabaseFile(this, QStringLiteral("Select database file"), FRegistry->FLastDatabaseDirectory,
                           TDatabaseRegistry::GetDefaultDBFilter(
                               GetAssociatedExtensions(QCoreApplication::applicationFilePath())),
                           true);
    if (file.isEmpty()) return;
    if (!QFileInfo::exists(file))
        throw ECustomException(QStringLiteral("Could not open file: %1.").arg(file));
    FRegistry->FLastDatabaseDirectory = QFileInfo(file).absolutePath();
    if (TDLSQLiteDatabase* db = OpenDatabase(file, FRegistry->PickAlias(file))) {
        tvDatabases->SelectDatabase(db->AliasName());
        tvDatabases->SetExpanded(db->AliasName(), true);
    }
}

void TfrmSCMain::acCreateDatabaseExecute() {
    TfrmCreateDB dialog([this](const QString& f) { return FRegistry->PickAlias(f); },
                        SQLite3Driver->sqlite3drv_supports_encryption(), FRegistry->FLastDatabaseDirectory,
                        TDatabaseRegistry::GetDefaultDBFilter(), this);
    if (dialog.exec() != QDialog::Accepted) return;
    TDLSQLiteDatabase* db = FRegistry->CreateDatabase(dialog.FileName(), dialog.Alias(), dialog.Encoding(),
                                                      dialog.Key(), dialog.PageSize(), dialog.AutoVacuum());
    if (db) tvDatabases->SelectDatabase(db->AliasName());
}

void TfrmSCMain::acCloseAllDatabasesExecute() {
    if (!Confirm(QStringLiteral("Close all databases?"))) return;
    FRegistry->CloseAllDatabases();
}

void TfrmSCMain::acEditDatabaseRegistrationExecute() {
    TDLSQLiteDatabase* db = CurrentDatabase();
    if (!db) return;
    const QString oldAlias = db->AliasName();
    TfrmDBReg dialog([this](const QString& f) { return FRegistry->PickAlias(f); }, db->FileName(), oldAlias,
                     TDatabaseRegistry::GetDefaultDBFilter(), this);
    if (dialog.exec() != QDialog::Accepted) return;
    FRegistry->EditRegistration(oldAlias, dialog.FileName(), dialog.Alias());
}

void TfrmSCMain::acAttachDatabaseExecute() {
    TDLSQLiteDatabase* db = ConnectedCurrent();
    if (!db) return;
    const QString file =
        SelectDatabaseFile(this, QStringLiteral("Select database file"), FRegistry->FLastDatabaseDirectory,
                           TDatabaseRegistry::GetDefaultDBFilter(), true);
    if (file.isEmpty()) return;
    if (!QFileInfo::exists(file))
        throw ECustomException(QStringLiteral("Could not open file: %1.").arg(file));
    FRegistry->FLastDatabaseDirectory = QFileInfo(file).absolutePath();
    QString alias = FRegistry->PickInternalAlias(file, *db);
    // A blank answer asks again; Cancel ends the command.
    for (;;) {
        bool ok = false;
        alias = QInputDialog::getText(this, QStringLiteral("Select alias"), QStringLiteral("Select alias"),
                                      QLineEdit::Normal, alias, &ok);
        if (!ok) return;
        if (!alias.trimmed().isEmpty()) break;
    }
    db->Attach(file, alias.trimmed());
    RefreshAlias(db->AliasName());
}

void TfrmSCMain::acSavepointExecute() {
    TDLSQLiteDatabase* db = ConnectedCurrent();
    if (!db) return;
    bool ok = false;
    const QString name =
        QInputDialog::getText(this, QStringLiteral("Savepoint"), QStringLiteral("Savepoint name"),
                              QLineEdit::Normal, QString(), &ok);
    if (!ok || name.trimmed().isEmpty()) return;
    db->Execute(QStringLiteral("SAVEPOINT ") + QuoteIdentifier(name.trimmed()));
    AsyncUpdateControls();
}

void TfrmSCMain::RefreshRecentMenu() {
    miRecentDatabases->clear();
    int n = 0;
    for (const QString& file : FRegistry->FRecentDatabases) {
        QAction* entry = miRecentDatabases->addAction(QStringLiteral("&%1 %2").arg(n++).arg(file));
        entry->setObjectName(QStringLiteral("acOpenRecentDB%1").arg(n - 1));
        connect(entry, &QAction::triggered, this, [this, file] {
            Guard([&] {
                if (TDLSQLiteDatabase* db = OpenDatabase(file)) tvDatabases->SelectDatabase(db->AliasName());
            });
        });
    }
}

void TfrmSCMain::acOptionsExecute() {
    CollectSettings();
    TOptionsData data;
    data.Settings = FSettings;
    data.Features = FFeatures;
    data.TypeMappings = DefaultTypeMappings();
    data.DefaultFont = font();
    data.EditorFont = FSQLPage->Frame(0)->mmoSQL->font();
    data.AssociatedExtensions = GetAssociatedExtensions(QCoreApplication::applicationFilePath());
    TfrmOptions dialog(data, ListSQLiteLibraries({QCoreApplication::applicationDirPath()}), this);
    const int result = dialog.exec();
    FSettings.LastOptionsPage = dialog.CurrentPage();
    if (result == QDialog::Accepted) ApplyOptions(dialog.Data());
}

void TfrmSCMain::ApplyOptions(const TOptionsData& Data) {
    const TProgramSettings old = FSettings;
    const TProgramSettings& s = Data.Settings;
    bool fullRefresh = false, dataRefresh = false;
    FFeatures = Data.Features;
    if (s.ShowRecordCounts != old.ShowRecordCounts) {
        tvDatabases->SetShowRecordCounts(s.ShowRecordCounts);
        fullRefresh = true;
    }
    dataRefresh = s.ShowRowID != old.ShowRowID || s.AutoRefreshData != old.AutoRefreshData ||
                  s.ShowRecordNumbers != old.ShowRecordNumbers;
    QApplication::setOverrideCursor(Qt::WaitCursor);
    spStatus->setText(QStringLiteral("Applying settings..."));
    const int lastPage = FSettings.LastOptionsPage;
    FSettings = s;
    FSettings.LastOptionsPage = lastPage;
    FSettings.DefaultFont = FontSetting(Data.DefaultFont);
    FSettings.EditorFont = FontSetting(Data.EditorFont);
    FSettings.LibraryFileName = FLibraryFileName;
    Guard([&] {
        if (!(Data.TypeMappings == DefaultTypeMappings())) {
            DefaultTypeMappings().Assign(Data.TypeMappings);
            TMetaList& list = GlobalData->MetaList();
            BeginUpdate();
            for (int i = 0; i < list.GetMetadataCount(); ++i)
                list.GetDatabase(i).SetTypeMappings(Data.TypeMappings);
            Guard([&] { list.RefreshAll(); });
            EndUpdate();
        }
        if (s.Unicode != old.Unicode) SetUnicodeEncoding(s.Unicode);
        SetQuoteChars(s.QuoteChars);
        ApplySettings();
        if (!SameDriverName(s.LibraryFileName, FLibraryFileName) && s.LibraryFileName != FLibraryFileName) {
            UpdateDriver(s.LibraryFileName);
            dataRefresh = true;
        }
        // Associations: what was checked and is not yet, and the reverse.
        const QString program = QCoreApplication::applicationFilePath();
        for (const QString& ext : Data.CheckedExtensions)
            if (!Data.AssociatedExtensions.contains(u'*' + ext, Qt::CaseInsensitive))
                RegisterFileType(ext, QStringLiteral("sqlitedb"), QStringLiteral("SQLite Database"),
                                 QString(), u'"' + program + u'"');
        for (const QString& glob : Data.AssociatedExtensions)
            if (!Data.CheckedExtensions.contains(QString(glob).remove(u'*'), Qt::CaseInsensitive))
                DeregisterFileType(glob);
    });
    if (fullRefresh)
        Guard([this] { FRegistry->RefreshAllDatabases(); });
    else if (dataRefresh)
        RefreshAll();
    AsyncUpdateControls();
    spStatus->setText(QStringLiteral("Ready!"));
    QApplication::restoreOverrideCursor();
}

void TfrmSCMain::UpdateDriver(const QString& LibraryFileName) {
    TWaitCursorGuard cursor(true);
    const QString alias = GlobalData->CurrentAlias(), object = GlobalData->CurrentItemName();
    TMetaList& list = GlobalData->MetaList();
    struct TState {
        bool Expanded, Connected;
    };
    std::vector<TState> states;
    CloseData();
    for (int i = 0; i < list.GetMetadataCount(); ++i) {
        TDLSQLiteDatabase& db = list.GetDatabase(i);
        states.push_back({tvDatabases->GetExpanded(db.AliasName()), db.Connected()});
        Guard([&] { db.SetConnected(false); });
    }
    // The tree is built anew over the databases on the new library.
    for (int i = 0; i < list.GetMetadataCount(); ++i) tvDatabases->DeleteDatabase(list.GetDatabase(i));
    ReleaseDesign();
    FLibraryFileName = LoadSQLiteLibrary(LibraryFileName, [this](const QString& m) { ShowError(m); });
    FSettings.LibraryFileName = FLibraryFileName;
    const bool encryption = SQLite3Driver->sqlite3drv_supports_encryption();
    for (int i = 0; i < list.GetMetadataCount(); ++i) {
        TDLSQLiteDatabase& db = list.GetDatabase(i);
        if (!encryption) Guard([&] { db.SetEncryptionKey(QString()); });
        tvDatabases->AddDatabase(db);
        if (states[static_cast<size_t>(i)].Connected) Guard([&] { db.SetConnected(true); });
        tvDatabases->SetExpanded(db.AliasName(), states[static_cast<size_t>(i)].Expanded);
    }
    SelectObject(alias, object);
    RefreshHeader();
    RefreshDatabaseInfo();
}

void TfrmSCMain::SetUnicodeEncoding(bool Value) {
    const QString alias = GlobalData->CurrentAlias(), object = GlobalData->CurrentItemName();
    FRegistry->FUnicodeEncoding = Value;
    FRegistry->SaveDatabases(Settings());
    FRegistry->CloseAllDatabases();
    FRegistry->LoadDatabases(Settings());
    SelectObject(alias, object);
}

// ---------------------------------------------------------------------------
// Design pages

void TfrmSCMain::CreateDesignPages() {
    nbkDesign = new QStackedWidget(pcMain);
    nbkDesign->setObjectName(QStringLiteral("nbkDesign"));
    // The pages' rows of boxes and buttons would otherwise set how narrow
    // the pages may get, and with it how wide the tree may be.
    nbkDesign->setMinimumSize(200, 200);
    auto confirm = [this](const QString& Question) { return Confirm(Question); };
    auto error = [this](const QString& Message) { ShowError(Message); };
    auto update = [this] { UpdateControls(); };
    auto confirmPaste = [this] { return FSettings.ConfirmCopyPasteProperties; };

    TTableDesignPage::THost table;
    table.CurrentDatabase = [this] { return ConnectedCurrent(); };
    table.Confirm = confirm;
    table.ShowError = error;
    table.UpdateControls = update;
    table.ConfirmCopyPasteProperties = confirmPaste;
    table.TableNames = [this] {
        QStringList names;
        if (TDLSQLiteMetadata* md = GlobalData->GetCurrentMetadata())
            for (int i = 0; i < md->TableCount(); ++i) names << ExtractObjectName(md->Tables(i).GetName());
        return names;
    };
    FTableDesignPage = new TTableDesignPage(*FdmBrindle, std::move(table), nbkDesign);
    TViewDesignPage::THost view;
    view.Confirm = confirm;
    view.ShowError = error;
    view.UpdateControls = update;
    view.ConfirmCopyPasteProperties = confirmPaste;
    FViewDesignPage = new TViewDesignPage(*FdmBrindle, std::move(view), nbkDesign);
    FVirtualTableDesignPage = new TVirtualTableDesignPage(*FdmBrindle, {update}, nbkDesign);
    lblShadowTable = new QLabel(
        QStringLiteral("This table holds the data of a virtual table, which maintains it; it has no design of "
                       "its own."),
        nbkDesign);
    lblShadowTable->setObjectName(QStringLiteral("ShadowTableDesign"));
    lblShadowTable->setAlignment(Qt::AlignCenter);
    nbkDesign->addWidget(FTableDesignPage);
    nbkDesign->addWidget(FViewDesignPage);
    nbkDesign->addWidget(FVirtualTableDesignPage);
    nbkDesign->addWidget(lblShadowTable);

    // Apply and Cancel stand above the sub-pages of the table page.
    auto* bar = new QToolBar(FTableDesignPage);
    bar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    bar->addAction(FTableDesignPage->acApplyTableDesign);
    bar->addAction(FTableDesignPage->acCancelTableDesign);
    static_cast<QVBoxLayout*>(FTableDesignPage->layout())->insertWidget(1, bar);

    TTableDesignPage& t = *FTableDesignPage;
    connect(t.acApplyTableDesign, &QAction::triggered, this, [this] { Guard([this] { acApplyTableDesignExecute(); }); });
    connect(t.acCancelTableDesign, &QAction::triggered, this, [this] { acCancelTableDesignExecute(); });
    connect(t.acNewTable, &QAction::triggered, this, [this] { Guard([this] { acNewTableExecute(); }); });
    TViewDesignPage& v = *FViewDesignPage;
    connect(v.acApplyViewDesign, &QAction::triggered, this, [this] { Guard([this] { acApplyViewDesignExecute(); }); });
    connect(v.acCancelViewDesign, &QAction::triggered, this, [this] {
        FViewDesignPage->SetCreatingView(false);
        ForceRefreshAll();
    });
    connect(v.acNewView, &QAction::triggered, this, [this] { Guard([this] { acNewViewExecute(); }); });
    TVirtualTableDesignPage& vt = *FVirtualTableDesignPage;
    connect(vt.acApplyVirtualTableDesign, &QAction::triggered, this,
            [this] { Guard([this] { acApplyVirtualTableDesignExecute(); }); });
    connect(vt.acCancelVirtualTableDesign, &QAction::triggered, this, [this] {
        FVirtualTableDesignPage->SetCreatingVirtualTable(false);
        ForceRefreshAll();
    });
    connect(vt.acNewVirtualTable, &QAction::triggered, this,
            [this] { Guard([this] { acNewVirtualTableExecute(); }); });
}

void TfrmSCMain::ReleaseDesign() {
    // The design's own connection goes with the library; the working copy
    // connects again on the next load, on the library then in use.
    FTableDesignPage->ClearTable();
    FViewDesignPage->ClearView();
    FVirtualTableDesignPage->ClearVirtualTable();
    FdmBrindle->Uninitialize();
}

bool TfrmSCMain::EditingTable() const {
    return FdmBrindle->FTableDesignModified || FdmBrindle->FCreatingTable;
}

bool TfrmSCMain::EditingView() const {
    return FViewDesignPage && FViewDesignPage->EditingView();
}

bool TfrmSCMain::EditingVirtualTable() const {
    return FVirtualTableDesignPage && FVirtualTableDesignPage->EditingVirtualTable();
}

void TfrmSCMain::acApplyTableDesignExecute() {
    TDLSQLiteDatabase* db = ConnectedCurrent();
    if (!db || !FdmBrindle->FTableDesignModified) return;
    const QString alias = db->AliasName();
    QString name = FTableDesignPage->EditorTableName();
    TApplyHooks hooks;
    hooks.OnStatus = [this](const QString& Status) {
        spStatus->setText(Status);
        spStatus->repaint();
    };
    hooks.OnConfirm = [this](const QString& Question) { return ConfirmWarning(Question); };
    TApplyResult result;
    QString failure;
    {
        TWaitCursorGuard cursor(true);
        // The working copy is walked again and again; the grids wait.
        FTableDesignPage->SetGridsUpdatesEnabled(false);
        try {
            result = FdmBrindle->ApplyTableDesign(*db, name, hooks);
        } catch (const std::exception& e) {
            failure = ExceptionMessage(e);
        }
        FTableDesignPage->SetGridsUpdatesEnabled(true);
    }
    spStatus->setText(QStringLiteral("Ready!"));
    // The name as the apply qualified it, whatever came of it; the columns
    // chosen for the old table may not fit the new one.
    FTableDesignPage->SetEditorTableName(name);
    FColumnsCache->SetColumns(alias, name, {});
    if (!failure.isEmpty()) {
        // The design stays on the page to be mended and applied again.
        ShowError(failure);
        UpdateControls();
        return;
    }
    FdmBrindle->FCreatingTable = false;
    FdmBrindle->FTableDesignModified = false;
    const QString selected = result.TableName.isEmpty() ? name : result.TableName;
    // A failed refresh does not undo what was committed.
    Guard([&] { RefreshCurrentDatabase(alias, selected); });
    AsyncUpdateControls();
}

void TfrmSCMain::acCancelTableDesignExecute() {
    FdmBrindle->FCreatingTable = false;
    // The page reloads the design from the database.
    ForceRefreshAll();
}

void TfrmSCMain::acNewTableExecute() {
    if (!ConnectedCurrent()) return;
    nbkDesign->setCurrentWidget(FTableDesignPage);
    FTableDesignPage->NewTable();
    UpdateControls();
    pcMain->setCurrentWidget(tabDesign);
    FTableDesignPage->edTableName->setFocus();
}

void TfrmSCMain::acApplyViewDesignExecute() {
    TDLSQLiteDatabase* db = ConnectedCurrent();
    if (!db || !FdmBrindle->FViewDesignModified) return;
    const QString alias = db->AliasName();
    const QString name = FViewDesignPage->EditorViewName();
    const bool creating = FViewDesignPage->CreatingView(), temporary = FViewDesignPage->IsTemporary();
    QString failure;
    {
        TWaitCursorGuard cursor(true);
        FViewDesignPage->grdViewTriggers->setUpdatesEnabled(false);
        try {
            FdmBrindle->ApplyViewDesign(*db, name, FViewDesignPage->AsClause(), FViewDesignPage->ColumnNames(),
                                        temporary, creating);
        } catch (const std::exception& e) {
            failure = ExceptionMessage(e);
        }
        FViewDesignPage->grdViewTriggers->setUpdatesEnabled(true);
    }
    if (!failure.isEmpty()) {
        // The old view is back; the edit stays on the page.
        ShowError(failure);
        UpdateControls();
        return;
    }
    FdmBrindle->FViewDesignModified = false;
    FViewDesignPage->SetCreatingView(false);
    // A new temporary view lives in temp, whatever the name said.
    const QString selected =
        creating && temporary ? QuoteObjectIfNeeded(QStringLiteral("temp"), ExtractObjectName(name)) : name;
    Guard([&] { RefreshCurrentDatabase(alias, selected); });
    AsyncUpdateControls();
}

void TfrmSCMain::acNewViewExecute() {
    if (!ConnectedCurrent()) return;
    nbkDesign->setCurrentWidget(FViewDesignPage);
    FdmBrindle->ClearDesign();
    FViewDesignPage->NewView();
    UpdateControls();
    pcMain->setCurrentWidget(tabDesign);
}

void TfrmSCMain::acApplyVirtualTableDesignExecute() {
    TDLSQLiteDatabase* db = ConnectedCurrent();
    if (!db || !FdmBrindle->FVirtualTableDesignModified) return;
    const QString alias = db->AliasName();
    TVirtualTableDesignPage& page = *FVirtualTableDesignPage;
    const QString name = page.EditorVirtualTableName();
    TApplyHooks hooks;
    hooks.OnStatus = [this](const QString& Status) {
        spStatus->setText(Status);
        spStatus->repaint();
    };
    hooks.OnConfirm = [this](const QString& Question) { return ConfirmWarning(Question); };
    auto mapping = [this](const QStringList& Source, const QStringList& Dest, QStringList& MappedSource,
                          QStringList& MappedDest) {
        if (FOnFieldMapping) return FOnFieldMapping(Source, Dest, MappedSource, MappedDest);
        const TNormalCursor normal;
        return TfrmFieldMapping::Execute(this,
                                         QStringLiteral("Please review the field mapping for recreating virtual table:"),
                                         Source, Dest, MappedSource, MappedDest);
    };
    QString failure;
    try {
        TWaitCursorGuard cursor(true);
        FdmBrindle->ApplyVirtualTableDesign(*db, page.LoadedTableName(), name, page.ModuleName(),
                                            page.ModuleArguments(), page.CreatingVirtualTable(), mapping, hooks);
    } catch (const std::exception& e) {
        failure = ExceptionMessage(e);
    }
    spStatus->setText(QStringLiteral("Ready!"));
    if (!failure.isEmpty()) {
        ShowError(failure);
        UpdateControls();
        return;
    }
    FdmBrindle->FVirtualTableDesignModified = false;
    page.SetCreatingVirtualTable(false);
    Guard([&] { RefreshCurrentDatabase(alias, name); });
    AsyncUpdateControls();
}

void TfrmSCMain::acNewVirtualTableExecute() {
    TDLSQLiteDatabase* db = ConnectedCurrent();
    if (!db) return;
    nbkDesign->setCurrentWidget(FVirtualTableDesignPage);
    FdmBrindle->ClearDesign();
    FVirtualTableDesignPage->NewVirtualTable(*db);
    UpdateControls();
    pcMain->setCurrentWidget(tabDesign);
}

void TfrmSCMain::acRenameTableExecute() {
    TDLSQLiteDatabase* db = ConnectedCurrent();
    const TItemType item = GlobalData->CurrentItemType();
    if (!db || (item != itTable && item != itVirtualTable)) return;
    const QString alias = db->AliasName();
    const QString oldName = GlobalData->CurrentItemName();
    QString schema, bare;
    ParseObject(oldName, schema, bare);
    bool ok = false;
    const QString newName = QInputDialog::getText(this, QStringLiteral("Rename table ") + oldName,
                                                  QStringLiteral("New name: "), QLineEdit::Normal, bare, &ok)
                                .trimmed();
    if (!ok || newName.isEmpty() || newName == bare) return;
    {
        TWaitCursorGuard cursor(true);
        RenameTable(*db, oldName, newName);
    }
    const QString qualified = QuoteObjectIfNeeded(schema, newName);
    FColumnsCache->RenameTable(alias, oldName, qualified);
    RefreshCurrentDatabase(alias, qualified);
    AsyncUpdateControls();
}

// ---------------------------------------------------------------------------
// Answers and messages

void TfrmSCMain::Guard(const std::function<void()>& Command) {
    try {
        Command();
    } catch (const std::exception& e) {
        ShowError(ExceptionMessage(e));
    }
}

void TfrmSCMain::ShowError(const QString& Message) {
    // Error texts carry CRLF line ends; the box wants plain line feeds.
    QString text = Message;
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    spStatus->setText(text.section(u'\n', 0, 0));
    if (FOnError) {
        LogError(text);
        FOnError(text);
    } else {
        ShowErrorBox(text, this);
    }
}

bool TfrmSCMain::ConfirmWarning(const QString& Question) {
    if (FOnConfirm) return FOnConfirm(Question);
    const TNormalCursor normal;
    return QMessageBox::warning(this, windowTitle(), Question, QMessageBox::Yes | QMessageBox::No) ==
           QMessageBox::Yes;
}

bool TfrmSCMain::Confirm(const QString& Question) {
    if (FOnConfirm) return FOnConfirm(Question);
    return QMessageBox::question(this, windowTitle(), Question, QMessageBox::Yes | QMessageBox::No) ==
           QMessageBox::Yes;
}

bool TfrmSCMain::SelectEncoding(const QString& Caption, QString& Encoding) {
    if (FOnSelectEncoding) return FOnSelectEncoding(Caption, Encoding);
    TfrmSelectEncoding dialog(Caption, Encoding, this);
    if (dialog.exec() != QDialog::Accepted) return false;
    Encoding = dialog.Encoding();
    return true;
}

int TfrmSCMain::AskTransaction(const QString& Text) {
    if (FOnAskTransaction) return FOnAskTransaction(Text);
    TfrmTransactionPrompt prompt(Text, this);
    prompt.exec();
    return prompt.Answer;
}

// ---------------------------------------------------------------------------
// The registry's view of the window

void TfrmSCMain::WireDatabase(TDLSQLiteDatabase& Database, bool Created) {
    TDLSQLiteDatabase* db = &Database;
    if (!Created) {
        Database.FOnProgress = [](bool& Continue) { Continue = true; };
        Database.FAfterExecute = [this](const QString& SQL) {
            const TSQLTokenType command = GetSQLCommand(SQL);
            if (command == stDelete || command == stInsert || command == stUpdate)
                FLastModifiedTime = NowMSecs();
        };
    }
    Database.AfterConnect = [this, db] { RefreshAlias(db->AliasName()); };
    Database.FAfterPrepare = [this](const QString& SQL, int) {
        if (FLogEnabled) mmoLog->appendPlainText(QStringLiteral("Prepare: ") + SQL);
        if (!FDBPropsChanged && TDatabaseRegistry::ChangesDatabaseProperties(SQL)) FDBPropsChanged = true;
    };
    if (FLogEnabled)
        Database.FOnProfile = [this](const QString& SQL, quint64 Nanoseconds) {
            mmoLog->appendPlainText(QStringLiteral("%1\n-- %2 ms").arg(SQL).arg(Nanoseconds / 1000000));
        };
}

void TfrmSCMain::SelectDatabase(const QString& AliasName) {
    tvDatabases->SelectDatabase(AliasName);
}

void TfrmSCMain::SelectObject(const QString& AliasName, const QString& ObjectName) {
    if (!tvDatabases->SelectObject(AliasName, ObjectName)) tvDatabases->SelectDatabase(AliasName);
}

bool TfrmSCMain::GetExpanded(const QString& AliasName) {
    return tvDatabases->GetExpanded(AliasName);
}

void TfrmSCMain::SetExpanded(const QString& AliasName, bool Value) {
    tvDatabases->SetExpanded(AliasName, Value);
}

void TfrmSCMain::AliasRenamed(const QString& OldAliasName, const QString& NewAliasName) {
    tvDatabases->RenameDatabase(OldAliasName, NewAliasName);
}

void TfrmSCMain::BeginUpdate() {
    tvDatabases->BeginUpdate();
}

void TfrmSCMain::EndUpdate() {
    tvDatabases->EndUpdate();
}

bool TfrmSCMain::DatabaseNodeIsCurrent() {
    return GlobalData->CurrentItemType() == itDatabase;
}

QString TfrmSCMain::CurrentObjectName() {
    return GlobalData->CurrentItemName();
}

}  // namespace brindle
