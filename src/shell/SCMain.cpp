#include "SCMain.h"

#include "SCPaths.h"
#include "data/DLRecData.h"
#include "data/DLTable.h"
#include "shell/RegSettings.h"
#include "engine/DLObjectNames.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "widgets/DataSetModel.h"

#include <QAction>
#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QSplitter>
#include <QShortcut>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QToolBar>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace brindle {

TfrmSCMain::TfrmSCMain(QWidget* parent) : QMainWindow(parent) {
    setObjectName(QStringLiteral("TfrmSCMain"));
    // Options set by hand beside the program, before any dataset exists.
    const TStartupOptions startup = ReadStartupOptions(StartupOptionsFileName());
    FLogEnabled = startup.Log;
    FThumbnails = startup.Thumbnails;
    SetDataBufferSize(startup.DataBufferSize);
    setWindowTitle(ApplicationTitle());
    resize(1000, 700);

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

    auto* splitter = new QSplitter(Qt::Horizontal, central);
    FTree = new QTreeWidget(splitter);
    FTree->setObjectName(QStringLiteral("tvDatabases"));
    FTree->setHeaderHidden(true);
    FTree->setUniformRowHeights(true);
    pcObject = new QTabWidget(splitter);
    pcObject->setObjectName(QStringLiteral("pcObject"));
    grdData = new QTableView(pcObject);
    grdData->setObjectName(QStringLiteral("grdData"));
    grdData->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                             QAbstractItemView::AnyKeyPressed);
    grdData->verticalHeader()->setDefaultSectionSize(grdData->fontMetrics().height() + 6);
    FDataModel = new TDataSetModel(this);
    grdData->setModel(FDataModel);
    // A refused edit stays in its row until it is mended or dropped (Esc).
    connect(FDataModel, &TDataSetModel::PostFailed, this, [this](const QString& message) { ShowError(message); });
    auto* cancel = new QShortcut(QKeySequence(Qt::Key_Escape), grdData, nullptr, nullptr, Qt::WidgetShortcut);
    connect(cancel, &QShortcut::activated, FDataModel, &TDataSetModel::CancelEdit);
    // Ctrl+End goes to the true last row, reading the result to its end.
    auto* toEnd = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_End), grdData, nullptr, nullptr, Qt::WidgetShortcut);
    connect(toEnd, &QShortcut::activated, this, [this] {
        FDataModel->FetchAll();
        if (const int rows = FDataModel->rowCount(); rows > 0) {
            const QModelIndex last = FDataModel->index(rows - 1, std::max(0, grdData->currentIndex().column()));
            grdData->setCurrentIndex(last);
            grdData->scrollTo(last);
        }
    });
    mmoDDL = new QPlainTextEdit(pcObject);
    mmoDDL->setObjectName(QStringLiteral("mmoDDL"));
    mmoDDL->setReadOnly(true);
    mmoDDL->setLineWrapMode(QPlainTextEdit::NoWrap);
    mmoDDL->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    pcObject->addTab(mmoDDL, tr("DDL"));
    pcObject->addTab(grdData, tr("Data"));
    splitter->setStretchFactor(0, 1);
    splitter->setStretchFactor(1, 2);
    splitter->setSizes({320, 680});
    layout->addWidget(splitter, 1);
    setCentralWidget(central);
    connect(FTree, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem* item) {
        ShowObjectDDL(item);
        ShowObjectData(item);
    });

    CreateActions();
    RefreshHeader();
    statusBar();
}

TfrmSCMain::~TfrmSCMain() {
    // The grid's model is a child and outlives the members: it must let go
    // of the dataset before the dataset goes.
    FDataModel->SetDataSet(nullptr);
}

QString TfrmSCMain::ApplicationTitle() {
    QString title = QStringLiteral("Brindle " BRINDLE_VERSION);
    if (SQLite3Driver && SQLite3Driver->sqlite3drv_driver_present())
        title += QStringLiteral(" - SQLite ") + SQLite3Driver->sqlite3drv_libversion();
    return title;
}

void TfrmSCMain::CreateActions() {
    QMenu* file = menuBar()->addMenu(tr("&File"));
    QToolBar* bar = addToolBar(tr("Main"));
    bar->setObjectName(QStringLiteral("tbMain"));

    acOpenDatabase = new QAction(tr("&Open Database..."), this);
    acOpenDatabase->setObjectName(QStringLiteral("acOpenDatabase"));
    acOpenDatabase->setShortcut(QKeySequence::Open);
    connect(acOpenDatabase, &QAction::triggered, this, &TfrmSCMain::acOpenDatabaseExecute);

    acOpenDemoDatabase = new QAction(tr("Open &Demo Database"), this);
    acOpenDemoDatabase->setObjectName(QStringLiteral("acOpenDemoDatabase"));
    connect(acOpenDemoDatabase, &QAction::triggered, this, &TfrmSCMain::acOpenDemoDatabaseExecute);

    acCloseDatabase = new QAction(tr("&Close Database"), this);
    acCloseDatabase->setObjectName(QStringLiteral("acCloseDatabase"));
    connect(acCloseDatabase, &QAction::triggered, this, &TfrmSCMain::CloseDatabase);

    acRefresh = new QAction(tr("&Refresh"), this);
    acRefresh->setObjectName(QStringLiteral("acRefresh"));
    acRefresh->setShortcut(QKeySequence::Refresh);
    connect(acRefresh, &QAction::triggered, this, &TfrmSCMain::RefreshTree);

    acFileExit = new QAction(tr("E&xit"), this);
    acFileExit->setObjectName(QStringLiteral("acFileExit"));
    acFileExit->setShortcut(QKeySequence::Quit);
    connect(acFileExit, &QAction::triggered, this, &QWidget::close);

    file->addAction(acOpenDatabase);
    file->addAction(acOpenDemoDatabase);
    file->addAction(acCloseDatabase);
    file->addSeparator();
    file->addAction(acRefresh);
    file->addSeparator();
    file->addAction(acFileExit);
    bar->addAction(acOpenDatabase);
    bar->addAction(acOpenDemoDatabase);
    bar->addAction(acRefresh);
}

void TfrmSCMain::ProcessParams(const QStringList& Params) {
    if (Params.size() != 1) return;
    const QString file = Params.front();
    if (!QFileInfo::exists(file)) return;
    try {
        OpenDatabase(file);
    } catch (const ECustomException& e) {
        ShowError(e.message());
    }
}

void TfrmSCMain::OpenDatabase(const QString& FileName) {
    auto db = std::make_unique<TDLSQLiteDatabase>();
    db->SetFileName(FileName);
    db->SetAliasName(QFileInfo(FileName).completeBaseName());
    db->SetConnected(true);
    CloseDatabase();
    FDatabase = std::move(db);
    RefreshTree();
}

void TfrmSCMain::CloseDatabase() {
    FDataModel->SetDataSet(nullptr);
    FDataQuery.reset();
    FDatabase.reset();
    RefreshTree();
}

void TfrmSCMain::RefreshTree() {
    FTree->clear();
    mmoDDL->clear();
    if (FDatabase && FDatabase->Connected()) {
        TObjectNames names;
        try {
            names = GetObjectNames(*FDatabase);
        } catch (const ECustomException& e) {
            ShowError(e.message());
        }
        auto* root = new QTreeWidgetItem(FTree, {FDatabase->AliasName()});
        root->setToolTip(0, FDatabase->FileName());
        // Tables and views show their rows on the Data page.
        auto addGroup = [root](const QString& caption, const QStringList& items, bool rows) {
            if (items.isEmpty()) return;
            auto* group = new QTreeWidgetItem(root, {QStringLiteral("%1 (%2)").arg(caption).arg(items.size())});
            for (const QString& n : items) {
                auto* node = new QTreeWidgetItem(group, {n});
                node->setData(0, Qt::UserRole, n);
                if (rows) node->setData(0, Qt::UserRole + 1, QStringLiteral("rows"));
            }
        };
        addGroup(tr("Tables"), names.Tables, true);
        addGroup(tr("Virtual Tables"), names.VirtualTables, true);
        addGroup(tr("Views"), names.Views, true);
        addGroup(tr("Indexes"), names.Indexes, false);
        addGroup(tr("Triggers"), names.Triggers, false);
        FTree->expandAll();
    }
    RefreshHeader();
}

void TfrmSCMain::ShowObjectDDL(QTreeWidgetItem* item) {
    QString ddl;
    const QString name = item ? item->data(0, Qt::UserRole).toString() : QString();
    if (FDatabase && FDatabase->Connected() && !name.isEmpty()) {
        try {
            ddl = FDatabase->GetObjectDDL(QStringLiteral("main"), name);
        } catch (const ECustomException& e) {
            ddl = e.message();
        }
    }
    // Indexes made for constraints have no text of their own.
    mmoDDL->setPlainText(ddl);
}

void TfrmSCMain::ShowObjectData(QTreeWidgetItem* item) {
    FDataModel->SetDataSet(nullptr);
    FDataQuery.reset();
    const QString name = item ? item->data(0, Qt::UserRole).toString() : QString();
    const QString kind = item ? item->data(0, Qt::UserRole + 1).toString() : QString();
    if (!FDatabase || !FDatabase->Connected() || name.isEmpty() || kind != QLatin1String("rows")) return;
    auto query = std::make_unique<TDLTable>();
    query->SetDatabase(FDatabase.get());
    query->SetTableName(name);
    try {
        query->Open();
    } catch (const ECustomException& e) {
        ShowError(e.message());
        return;
    }
    FDataQuery = std::move(query);
    FDataModel->SetDataSet(FDataQuery.get());
}

void TfrmSCMain::RefreshHeader() {
    if (FDatabase)
        lblHeader->setText(QStringLiteral("Database: ") + FDatabase->AliasName() + QStringLiteral("   File: ") +
                           FDatabase->FileName());
    else
        lblHeader->setText(QStringLiteral("No database"));
    QString lib;
    if (SQLite3Driver && SQLite3Driver->sqlite3drv_driver_present()) {
        const QString file = SQLite3Driver->sqlite3drv_filename();
        lib = QStringLiteral("SQLite Library: %1 version %2")
                  .arg(file == SQLITE_INTERNAL_LIB ? QStringLiteral("[internal]") : QFileInfo(file).fileName(),
                       SQLite3Driver->sqlite3drv_libversion());
    }
    lblLibrary->setText(lib);
    acCloseDatabase->setEnabled(FDatabase != nullptr);
    setWindowTitle(ApplicationTitle());
}

void TfrmSCMain::ShowError(const QString& message) {
    // Error texts carry CRLF line ends; the box wants plain line feeds.
    QString text = message;
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    statusBar()->showMessage(text);
    if (FOnError)
        FOnError(text);
    else
        QMessageBox::critical(this, windowTitle(), text);
}

void TfrmSCMain::acOpenDatabaseExecute() {
    const QString file =
        QFileDialog::getOpenFileName(this, QStringLiteral("Select database file"), UserDataPath(),
                                     QStringLiteral("Database Files (*.db *.db3 *.sqlite);;Any File (*)"));
    if (file.isEmpty()) return;
    try {
        OpenDatabase(file);
    } catch (const ECustomException& e) {
        ShowError(e.message());
    }
}

void TfrmSCMain::acOpenDemoDatabaseExecute() {
    try {
        OpenDatabase(GetDemoDatabasePath());
    } catch (const ECustomException& e) {
        ShowError(e.message());
    }
}

}  // namespace brindle
