// The main window on the offscreen platform: the flows a person runs with
// the mouse, from opening and creating databases to closing the program
// with a transaction open, and what comes back at the next start.
#include "ShellTestSupport.h"
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/DLTypeMapping.h"
#include "schema/DLSQLiteMetadata.h"
#include "shell/CellEditors.h"
#include "shell/FDialogs.h"
#include "shell/FOptions.h"
#include "shell/Globals.h"
#include "shell/RegSettings.h"
#include "shell/SCMain.h"
#include "shell/SCPaths.h"
#include "shell/SingleInstance.h"
#include "shell/TextDialogs.h"
#include "widgets/DBTree.h"
#include "widgets/HexView.h"
#include "widgets/BrindleDBGrid.h"
#include "widgets/DataSetModel.h"
#include "workbench/Caches.h"

#include <gtest/gtest.h>
#include <QAbstractEventDispatcher>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QSettings>
#include <QShortcut>
#include <QSplitter>
#include <QTabWidget>
#include <QTableView>
#include <QTableWidget>
#include <QTimer>

using namespace brindle;
using brindle::test::Settle;
using brindle::test::TDialogDriver;

namespace {

void ChooseFile(QWidget* Dialog, const QString& File) {
    auto* files = qobject_cast<QFileDialog*>(Dialog);
    ASSERT_NE(files, nullptr);
    // Typed into the name field, as a person would.
    auto* name = files->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"));
    ASSERT_NE(name, nullptr);
    name->setText(File);
    QMetaObject::invokeMethod(files, "accept", Qt::DirectConnection);
}

QStringList ChildTexts(QTreeWidgetItem* Node) {
    QStringList texts;
    for (int i = 0; Node && i < Node->childCount(); ++i) texts << Node->child(i)->text(0);
    return texts;
}

class MainWindowTest : public ::testing::Test {
protected:
    MainWindowTest() {
        Settings().clear();
        Start();
    }
    ~MainWindowTest() override { Stop(); }

    void Start(const QStringList& Params = {}) {
        global = std::make_unique<TGlobalData>();
        window = std::make_unique<TfrmSCMain>();
        window->FOnError = [this](const QString& m) { errors << m; };
        window->FOnAskTransaction = [this](const QString& t) {
            prompts << t;
            return answers.isEmpty() ? 3 : answers.takeFirst();
        };
        window->FOnConfirm = [](const QString&) { return true; };
        window->Start(Params);
        window->show();
        Settle();
    }
    // As the program ends: the window goes, then the databases.
    void Stop() {
        window.reset();
        global.reset();
    }
    QString MakeDatabase(const QString& Name, const QString& SQL = QStringLiteral("create table t(a)")) {
        const QString path = dir.file(Name);
        TDLSQLiteDatabase db;
        db.SetFileName(path);
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db.Execute(SQL);
        return path;
    }
    TDLDBTree* Tree() { return window->Tree(); }
    QTreeWidgetItem* Node(const QString& Alias) { return Tree()->FindNodeByAliasName(Alias); }
    TMetaList& List() { return GlobalData->MetaList(); }

    test::TempDir dir;
    std::unique_ptr<TGlobalData> global;
    std::unique_ptr<TfrmSCMain> window;
    QStringList errors, prompts;
    QList<int> answers;
};

TEST_F(MainWindowTest, CommandLineOpensOnlyASingleExistingFile) {
    const QString demo = GetDemoDatabasePath();
    window->ProcessParams({});
    window->ProcessParams({demo, demo});
    window->ProcessParams({dir.file(QStringLiteral("missing.db"))});
    EXPECT_EQ(List().GetMetadataCount(), 0);
    EXPECT_TRUE(errors.isEmpty());

    window->ProcessParams({demo});
    Settle();
    ASSERT_EQ(List().GetMetadataCount(), 1);
    TDLSQLiteDatabase* db = window->CurrentDatabase();
    ASSERT_NE(db, nullptr);
    EXPECT_TRUE(db->Connected());
    EXPECT_EQ(db->AliasName(), QStringLiteral("dbdemos"));
    EXPECT_TRUE(Node(QStringLiteral("dbdemos"))->isExpanded());
    EXPECT_TRUE(ChildTexts(Node(QStringLiteral("dbdemos"))).contains(QStringLiteral("orders")));
    EXPECT_EQ(window->HeaderText().section(QStringLiteral("   File: "), 0, 0),
              QStringLiteral("Database: dbdemos"));

    // The same file again makes no second connection.
    window->ProcessParams({demo});
    EXPECT_EQ(List().GetMetadataCount(), 1);

    // A file that is no database: its message, and what was open stays.
    window->ProcessParams({dir.write(QStringLiteral("bad.db3"), QByteArray(1024, 'b'))});
    ASSERT_FALSE(errors.isEmpty());
    EXPECT_TRUE(errors.first().startsWith(QStringLiteral("file is not a database")))
        << errors.first().toStdString();
    EXPECT_TRUE(List().FindDatabaseByAliasName(QStringLiteral("dbdemos"))->Connected());
}

// A file handed over by a second start waits behind a modal dialog without
// keeping the loop busy, and opens once the dialog is closed.
TEST_F(MainWindowTest, HandedOverFileWaitsQuietlyForAModalDialog) {
    const QString path = MakeDatabase(QStringLiteral("later.db"));
    int wakeups = 0;
    const QMetaObject::Connection counter =
        QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock,
                         [&wakeups] { ++wakeups; });
    int openWhileModal = -1;
    {
        QMessageBox box(QMessageBox::Information, QStringLiteral("Busy"), QStringLiteral("A dialog"),
                        QMessageBox::Ok, window.get());
        QTimer::singleShot(0, &box, [path] { InstParams().append(QStringList{path}); });
        QTimer::singleShot(200, &box, [&wakeups] { wakeups = 0; });
        QTimer::singleShot(700, &box, [&] {
            openWhileModal = List().GetMetadataCount();
            box.accept();
        });
        box.exec();
    }
    QObject::disconnect(counter);
    EXPECT_EQ(openWhileModal, 0);
    // Half a second of waiting: the window's timers, not a busy loop.
    EXPECT_LT(wakeups, 100);

    // Then a loop that waits for events, as the program's does.
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (List().GetMetadataCount() > 0) loop.quit();
    });
    poll.start(20);
    QTimer::singleShot(3000, &loop, &QEventLoop::quit);
    loop.exec();
    ASSERT_EQ(List().GetMetadataCount(), 1);
    EXPECT_EQ(List().GetDatabase(0).FileName(), path);
}

TEST_F(MainWindowTest, CreateRegisterAndClose) {
    const QString file = dir.file(QStringLiteral("made.db3"));
    {
        TDialogDriver driver({[&](QWidget* d) {
            auto* create = qobject_cast<TfrmCreateDB*>(d);
            ASSERT_NE(create, nullptr);
            create->edFileName->setText(file);
            EXPECT_EQ(create->edAlias->text(), QStringLiteral("made"));  // proposed from the file
            create->cbPageSize->setCurrentText(QStringLiteral("8192"));
            create->accept();
        }});
        window->acCreateDatabase->trigger();
        EXPECT_TRUE(driver.Done());
    }
    Settle();
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    TDLSQLiteDatabase* db = List().FindDatabaseByAliasName(QStringLiteral("made"));
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(window->CurrentDatabase(), db);
    EXPECT_EQ(db->DatabaseParams().PageSize(), 8192);

    // The registration dialog renames.
    {
        TDialogDriver driver({[&](QWidget* d) {
            auto* reg = qobject_cast<TfrmDBReg*>(d);
            ASSERT_NE(reg, nullptr);
            EXPECT_EQ(reg->edDatabaseFile->text(), file);
            reg->edDatabaseAlias->setText(QStringLiteral("Renamed"));
            reg->accept();
        }});
        window->acEditDatabaseRegistration->trigger();
    }
    Settle();
    EXPECT_EQ(db->AliasName(), QStringLiteral("Renamed"));
    ASSERT_NE(Node(QStringLiteral("Renamed")), nullptr);
    EXPECT_EQ(Node(QStringLiteral("Renamed"))->text(0), QStringLiteral("Renamed"));

    // Opening through the file dialog; then closing puts it on the recent list.
    const QString other = MakeDatabase(QStringLiteral("other.db"));
    {
        TDialogDriver driver({[&](QWidget* d) { ChooseFile(d, other); }});
        window->acOpenDatabase->trigger();
    }
    Settle();
    ASSERT_NE(List().FindDatabaseByAliasName(QStringLiteral("other")), nullptr);
    EXPECT_EQ(window->CurrentDatabase()->AliasName(), QStringLiteral("other"));
    window->acCloseDatabase->trigger();
    Settle();
    EXPECT_EQ(List().FindDatabaseByAliasName(QStringLiteral("other")), nullptr);
    EXPECT_EQ(Node(QStringLiteral("other")), nullptr);
    EXPECT_EQ(window->Registry().FRecentDatabases.first(), other);
    EXPECT_TRUE(window->acOpenRecentDatabase->isVisible());

    window->acCloseAllDatabases->trigger();
    Settle();
    EXPECT_EQ(List().GetMetadataCount(), 0);
    // Closing the last database leaves the open, create and options commands.
    EXPECT_TRUE(window->acOpenDatabase->isEnabled());
    EXPECT_TRUE(window->acCreateDatabase->isEnabled());
    EXPECT_TRUE(window->acOptions->isEnabled());
    EXPECT_FALSE(window->acCloseDatabase->isEnabled());
    EXPECT_FALSE(window->acRefreshDatabase->isEnabled());
    EXPECT_FALSE(window->acCommit->isEnabled());
}

TEST_F(MainWindowTest, RefreshShowsWhatAScriptChanged) {
    const QString path = MakeDatabase(QStringLiteral("grow.db"));
    window->ProcessParams({path});
    Settle();
    EXPECT_EQ(ChildTexts(Node(QStringLiteral("grow"))), QStringList{"t"});
    window->CurrentDatabase()->Execute(QStringLiteral(
        "create table u(x); create view v as select * from t; create index i on t(a); drop table u"));
    window->acRefreshDatabase->trigger();
    Settle();
    EXPECT_EQ(ChildTexts(Node(QStringLiteral("grow"))), (QStringList{"t", "v"}));

    // Selecting an object shows its stored text, a database all of them.
    ASSERT_TRUE(Tree()->SelectObject(QStringLiteral("grow"), QStringLiteral("v")));
    Settle();
    EXPECT_EQ(window->DDLView()->toPlainText(), QStringLiteral("CREATE VIEW v as select * from t;"));
    EXPECT_TRUE(window->HeaderText().startsWith(QStringLiteral("Database: grow   View: v")));
    Tree()->SelectDatabase(QStringLiteral("grow"));
    Settle();
    EXPECT_EQ(
        window->DDLView()->toPlainText(),
        QStringLiteral("CREATE TABLE t(a);\n\nCREATE INDEX i on t(a);\n\nCREATE VIEW v as select * from t;"));
}

TEST_F(MainWindowTest, AttachAndDetachShowInTheTree) {
    const QString main = MakeDatabase(QStringLiteral("main.db"));
    const QString extra = MakeDatabase(QStringLiteral("extra.db"), QStringLiteral("create table e(x)"));
    window->ProcessParams({main});
    Settle();
    {
        TDialogDriver driver({[&](QWidget* d) { ChooseFile(d, extra); },
                              [&](QWidget* d) {
                                  auto* input = qobject_cast<QInputDialog*>(d);
                                  ASSERT_NE(input, nullptr);
                                  EXPECT_EQ(input->textValue(), QStringLiteral("extra"));
                                  input->setTextValue(QStringLiteral("ext"));
                                  input->accept();
                              }});
        window->acAttachDatabase->trigger();
        EXPECT_TRUE(driver.Done());
    }
    Settle();
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(ChildTexts(Node(QStringLiteral("main"))), (QStringList{"t", "ext"}));
    EXPECT_TRUE(window->acDetachDatabase->isEnabled());

    QMenu* detach = window->acDetachDatabase->menu();
    emit detach->aboutToShow();
    ASSERT_EQ(detach->actions().size(), 1);
    EXPECT_EQ(detach->actions()[0]->text(), QStringLiteral("ext (%1)").arg(extra));
    detach->actions()[0]->trigger();
    Settle();
    EXPECT_EQ(ChildTexts(Node(QStringLiteral("main"))), QStringList{"t"});
}

TEST_F(MainWindowTest, ClosingWithAnOpenTransactionAsks) {
    const QString path = MakeDatabase(QStringLiteral("tx.db"));
    window->ProcessParams({path});
    Settle();
    TDLSQLiteDatabase* db = window->CurrentDatabase();
    window->acBeginTransaction->trigger();
    db->Execute(QStringLiteral("insert into t values (1)"));
    Settle();
    EXPECT_TRUE(window->acCommit->isEnabled());

    answers = {3};  // Cancel: the window stays, the transaction too
    EXPECT_FALSE(window->close());
    EXPECT_EQ(prompts.size(), 1);
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(db->GetInTransaction());

    answers = {2};  // Rollback, and the program ends
    EXPECT_TRUE(window->close());
    Stop();
    TDLSQLiteDatabase check;
    check.SetFileName(path);
    check.SetConnected(true);
    EXPECT_EQ(check.GetStringValue(QStringLiteral("select count(*) from t")), QStringLiteral("0"));
    // The settings were saved with the database in them.
    EXPECT_EQ(Settings().value(QStringLiteral("DB/DB_0_FileName")).toString(), path);
}

TEST_F(MainWindowTest, TheSameDatabasesComeBackAtTheNextStart) {
    const QString a = MakeDatabase(QStringLiteral("a.db"));
    const QString b = MakeDatabase(QStringLiteral("b.db"),
                                   QStringLiteral("create table bt(x); create view bv as select 1"));
    const QString recent = MakeDatabase(QStringLiteral("recent.db"));
    // Values that nothing writes any more are gone after a save.
    Settings().setValue(QStringLiteral("Settings/QuoteWithBrackets"), 0);
    Settings().setValue(QStringLiteral("Persistent/Unknown"), 1);
    window->ProcessParams({a});
    window->ProcessParams({recent});
    window->ProcessParams({b});
    Settle();
    window->CloseDatabase(List().FindDatabaseByAliasName(QStringLiteral("recent")));
    Tree()->SetExpanded(QStringLiteral("a"), false);
    ASSERT_TRUE(Tree()->SelectObject(QStringLiteral("b"), QStringLiteral("bv")));
    window->Pages()->setCurrentIndex(4);
    Settle();
    EXPECT_TRUE(window->close());
    Stop();

    EXPECT_FALSE(Settings().contains(QStringLiteral("Settings/QuoteWithBrackets")));
    EXPECT_FALSE(Settings().contains(QStringLiteral("Persistent/Unknown")));
    EXPECT_EQ(Settings().value(QStringLiteral("Features/Show/Hide tabs/DDL")).toString(),
              QStringLiteral("1"));
    Start();
    ASSERT_EQ(List().GetMetadataCount(), 2);
    EXPECT_EQ(List().GetDatabase(0).AliasName(), QStringLiteral("a"));
    EXPECT_EQ(List().GetDatabase(1).AliasName(), QStringLiteral("b"));
    EXPECT_FALSE(Node(QStringLiteral("a"))->isExpanded());
    EXPECT_TRUE(Node(QStringLiteral("b"))->isExpanded());
    EXPECT_EQ(GlobalData->CurrentItemName(), QStringLiteral("main.bv"));
    EXPECT_EQ(window->Pages()->currentIndex(), 4);
    EXPECT_EQ(window->Registry().FRecentDatabases, QStringList{recent});
    EXPECT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();

    // A remembered file that has gone is passed over without a word.
    EXPECT_TRUE(window->close());
    Stop();
    ASSERT_TRUE(QFile::remove(a));
    Start();
    ASSERT_EQ(List().GetMetadataCount(), 1);
    EXPECT_EQ(List().GetDatabase(0).AliasName(), QStringLiteral("b"));
    EXPECT_TRUE(errors.isEmpty());
}

// Selecting a table or view shows its rows; the grid grows as it is
// scrolled, a window of rows at a time, until the end is known.
TEST_F(MainWindowTest, DataPageShowsTheRowsOfTheSelection) {
    const QString path = MakeDatabase(
        QStringLiteral("rows.db"),
        QStringLiteral("create table big(i integer primary key, s text, n);"
                       "with recursive c(x) as (select 1 union all select x + 1 from c where x < 2000) "
                       "insert into big select x, 'row ' || x, case when x % 2 then null else x end from c;"
                       "create view small as select i from big where i <= 3; create index big_s on big(s)"));
    window->ProcessParams({path});
    window->Pages()->setCurrentWidget(window->DataView());
    TDataSetModel* model = window->DataModel();

    ASSERT_TRUE(Tree()->SelectObject(QStringLiteral("rows"), QStringLiteral("big")));
    Settle();
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(model->columnCount(), 3);
    EXPECT_EQ(model->headerData(1, Qt::Horizontal).toString(), QStringLiteral("s"));
    EXPECT_EQ(model->data(model->index(0, 1)).toString(), QStringLiteral("row 1"));
    EXPECT_EQ(model->data(model->index(0, 2)).toString(), QStringLiteral("(null)"));
    // The count comes from the background; until then it is a lower bound.
    auto* counter = window->findChild<QLabel*>(QStringLiteral("spRecordCount"));
    ASSERT_TRUE(counter);
    if (!model->CountIsExact()) {
        EXPECT_TRUE(counter->text().startsWith(QLatin1String("Record 1 of at least "))) << counter->text().toStdString();
    }
    for (int i = 0; i < 500 && !model->CountIsExact(); ++i) Settle();
    EXPECT_EQ(model->rowCount(), 2000);
    EXPECT_EQ(counter->text(), QStringLiteral("Record 1 of 2000"));
    window->DataView()->SetCurrentCell(1999, 1);
    EXPECT_EQ(counter->text(), QStringLiteral("Record 2000 of 2000"));
    EXPECT_EQ(model->data(model->index(1999, 1)).toString(), QStringLiteral("row 2000"));

    ASSERT_TRUE(Tree()->SelectObject(QStringLiteral("rows"), QStringLiteral("small")));
    Settle();
    EXPECT_EQ(model->rowCount(), 3);
    // The database node has no rows of its own.
    Tree()->SelectDatabase(QStringLiteral("rows"));
    Settle();
    EXPECT_EQ(model->columnCount(), 0);

    // Edits go to the file at once.
    ASSERT_TRUE(Tree()->SelectObject(QStringLiteral("rows"), QStringLiteral("big")));
    Settle();
    EXPECT_TRUE(model->setData(model->index(0, 1), QStringLiteral("first")));
    EXPECT_EQ(window->CurrentDatabase()->GetStringValue(QStringLiteral("select s from big where i = 1")),
              QStringLiteral("first"));
    window->CloseDatabase(window->CurrentDatabase());
    EXPECT_EQ(model->rowCount(), 0);
}

// The tree comes back at the width it was left at, start after start, and
// keeps it while the window is resized.
TEST_F(MainWindowTest, TreeKeepsItsWidthAcrossStarts) {
    auto splitter = [this] { return window->findChild<QSplitter*>(QStringLiteral("DBTree")); };
    ASSERT_NE(splitter(), nullptr);
    const int total = splitter()->sizes().value(0) + splitter()->sizes().value(1);
    splitter()->setSizes({700, total - 700});
    ASSERT_EQ(splitter()->sizes().value(0), 700);
    for (int start = 0; start < 3; ++start) {
        EXPECT_TRUE(window->close());
        Stop();
        EXPECT_EQ(Settings().value(QStringLiteral("Layout/DBTree.Width")).toInt(), 700) << "start " << start;
        Start();
        EXPECT_EQ(splitter()->sizes().value(0), 700) << "start " << start;
    }
    window->resize(window->width() + 200, window->height());
    Settle();
    EXPECT_EQ(splitter()->sizes().value(0), 700);
}

// What the screenshot script asks for by name: an object of the current
// database and a page by its tab's caption; a stale name says what is there.
TEST_F(MainWindowTest, ObjectAndPageChosenByName) {
    EXPECT_EQ(window->ShowByName(QStringLiteral("orders"), QString()),
              QStringLiteral("No database is open to show orders of."));
    window->ProcessParams({GetDemoDatabasePath()});
    Settle();
    // The design page, hidden while the database node was current.
    EXPECT_EQ(window->ShowByName(QStringLiteral("orders"), QStringLiteral("Design")), QString());
    EXPECT_EQ(window->Pages()->tabText(window->Pages()->currentIndex()), QStringLiteral("Design"));
    EXPECT_EQ(window->ShowByName(QStringLiteral("ORDERS"), QStringLiteral("data")), QString());
    Settle();
    EXPECT_EQ(GlobalData->CurrentItemName(), QStringLiteral("main.orders"));
    EXPECT_EQ(window->Pages()->currentWidget(), window->DataView());
    EXPECT_GT(window->DataModel()->rowCount(), 0);

    EXPECT_EQ(window->ShowByName(QString(), QStringLiteral("Nope")),
              QStringLiteral("No page Nope; the pages shown are Database, SQL, Data, Design, DDL."));
    EXPECT_EQ(window->ShowByName(QStringLiteral("nothing"), QString()),
              QStringLiteral("Database dbdemos shows no object nothing."));
}

TEST_F(MainWindowTest, OptionsTakeEffectOnOKOnly) {
    const QString path = MakeDatabase(QStringLiteral("opt.db"),
                                      QStringLiteral("create table t(a); insert into t values (1), (2)"));
    window->ProcessParams({path});
    Settle();
    auto options = [](QWidget* w) {
        auto* dialog = qobject_cast<TfrmOptions*>(w);
        EXPECT_NE(dialog, nullptr);
        return dialog;
    };
    // Cancel changes nothing but the page to start on next time.
    {
        TDialogDriver driver({[&](QWidget* w) {
            TfrmOptions* o = options(w);
            o->cbShowRecordCount->setChecked(true);
            o->SetCurrentPage(5);
            o->reject();
        }});
        window->acOptions->trigger();
    }
    EXPECT_FALSE(Tree()->ShowRecordCounts());
    EXPECT_EQ(window->ProgramSettings().LastOptionsPage, 5);

    // A mapping that names no type keeps the dialog open with a message.
    QString box;
    int row = 0;
    {
        TDialogDriver driver(
            {[&](QWidget* w) {
                 TfrmOptions* o = options(w);
                 EXPECT_EQ(o->CurrentPage(), 5);
                 o->cbShowRecordCount->setChecked(true);
                 for (int i = 0; i < o->lbLibraries->count(); ++i)
                     if (o->lbLibraries->item(i)->text().startsWith(QStringLiteral("libsqlcipher")))
                         o->lbLibraries->setCurrentRow(i);
                 row = o->grdTypeMappings->rowCount();
                 o->grdTypeMappings->insertRow(row);
                 o->grdTypeMappings->setItem(row, 0, new QTableWidgetItem(QStringLiteral("ODD")));
                 o->grdTypeMappings->setItem(row, 1, new QTableWidgetItem(QStringLiteral("Nothing")));
                 o->accept();
             },
             [&](QWidget* w) {
                 auto* message = qobject_cast<QMessageBox*>(w);
                 ASSERT_NE(message, nullptr);
                 box = message->text();
                 message->accept();
             },
             [&](QWidget* w) {
                 TfrmOptions* o = options(w);
                 o->grdTypeMappings->item(row, 1)->setText(QStringLiteral("Currency"));
                 o->accept();
             }});
        window->acOptions->trigger();
        EXPECT_TRUE(driver.Done());
    }
    EXPECT_EQ(box, QStringLiteral("Invalid type mapping: ODD -> Nothing"));
    Settle();
    EXPECT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_TRUE(Tree()->ShowRecordCounts());
    ASSERT_NE(DefaultTypeMappings().FindDeclaredType(QStringLiteral("ODD")), nullptr);
    EXPECT_EQ(DefaultTypeMappings().FindDeclaredType(QStringLiteral("ODD"))->DataType(), ftCurrency);
    // Another library: the databases are open on it again.
    EXPECT_EQ(SQLite3Driver->sqlite3drv_filename(), QStringLiteral("libsqlcipher.so.0"));
    TDLSQLiteDatabase* db = List().FindDatabaseByAliasName(QStringLiteral("opt"));
    ASSERT_NE(db, nullptr);
    EXPECT_TRUE(db->Connected());
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select count(*) from t")), QStringLiteral("2"));
    ASSERT_NE(Node(QStringLiteral("opt")), nullptr);
    // The count arrives from the background connections.
    for (int i = 0; i < 200 && ChildTexts(Node(QStringLiteral("opt"))) != QStringList{"t (2)"}; ++i) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    EXPECT_EQ(ChildTexts(Node(QStringLiteral("opt"))), QStringList{"t (2)"});

    // The choices are what the next save stores.
    EXPECT_TRUE(window->close());
    EXPECT_EQ(Settings().value(QStringLiteral("Settings/LibraryFileName")).toString(),
              QStringLiteral("libsqlcipher.so.0"));
    EXPECT_EQ(Settings().value(QStringLiteral("Persistent/ShowRecordCounts")).toString(),
              QStringLiteral("1"));
    EXPECT_EQ(Settings().value(QStringLiteral("Persistent/LastOptionsPage")).toInt(), 5);
    Stop();
    ResetTypeMappings(DefaultTypeMappings());
    ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
}

TEST_F(MainWindowTest, OnlyTheOldFixedFontNamesAreKept) {
    const QString defaultFamily = window->DDLView()->font().family();
    Stop();
    Settings().setValue(QStringLiteral("Settings/FixedFont.Name"), QStringLiteral("Courier New"));
    Settings().setValue(QStringLiteral("Settings/FixedFont.Size"), 14);
    Start();
    EXPECT_EQ(window->DDLView()->font().family(), defaultFamily);
    Stop();
    Settings().setValue(QStringLiteral("Settings/FixedFont.Name"), QStringLiteral("Consolas"));
    Start();
    EXPECT_EQ(window->DDLView()->font().family(), QStringLiteral("Consolas"));
    EXPECT_EQ(window->DDLView()->font().pointSize(), 14);
    // The editor font, where stored, goes over it.
    Stop();
    Settings().setValue(QStringLiteral("Settings/EditorFont.Name"), QStringLiteral("Mono Sans"));
    Settings().setValue(QStringLiteral("Settings/EditorFont.Size"), 9);
    Start();
    EXPECT_EQ(window->DDLView()->font().family(), QStringLiteral("Mono Sans"));
    EXPECT_EQ(window->DDLView()->font().pointSize(), 9);
}

}  // namespace

// The Data tab's commands through the window: set cells over a selection of
// a table named with keywords, a refused value rolling all of them back,
// the counter over a filtered result, and a delete of the selected rows.
TEST_F(MainWindowTest, DataCommandsReachExactlyTheSelectedRows) {
    const QString path = MakeDatabase(
        QStringLiteral("cmds.db"),
        QStringLiteral("create table \"order\"(\"key\" integer primary key, total text check(total <> 'bad'), "
                       "\"match\" real);"
                       "with recursive c(x) as (select 1 union all select x + 1 from c where x < 12) "
                       "insert into \"order\" select x, 't' || x, x + 0.1 from c"));
    window->ProcessParams({path});
    window->Pages()->setCurrentWidget(window->DataView());
    ASSERT_TRUE(Tree()->SelectObject(QStringLiteral("cmds"), QStringLiteral("order")));
    Settle();
    TBrindleDBGrid* grid = window->DataView();
    TDLSQLiteDatabase* db = window->CurrentDatabase();
    const auto value = [db](const char* SQL) { return db->GetStringValue(QLatin1String(SQL)); };
    QStringList typed{QStringLiteral("007"), QStringLiteral("bad")};
    window->FOnInputQuery = [&typed](const QString&, const QString&, QString& Value) {
        Value = typed.takeFirst();
        return true;
    };

    // A value the column refuses stays in its cell with the engine's
    // message until Esc drops it; the file never sees it.
    TDataSetModel* model = window->DataModel();
    EXPECT_FALSE(model->setData(model->index(1, 1), QStringLiteral("bad")));
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.takeFirst().contains(QLatin1String("CHECK constraint failed")));
    EXPECT_EQ(grid->CellText(1, 1), QStringLiteral("bad"));
    for (QShortcut* key : grid->View()->findChildren<QShortcut*>())
        if (key->key() == QKeySequence(Qt::Key_Escape)) emit key->activated();
    EXPECT_EQ(grid->CellText(1, 1), QStringLiteral("t2"));
    EXPECT_EQ(value("select total from \"order\" where \"key\" = 2"), QStringLiteral("t2"));

    window->acCellSelect->trigger();  // to cells
    grid->SelectCells(2, 4, 1, 1);  // keys 3..5, column total
    grid->View()->setFocus();
    window->UpdateControls();
    window->acSetCellsToValue->trigger();
    Settle();
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(value("select group_concat(\"key\" || ':' || total || ':' || typeof(total), ',') from \"order\" "
                    "where total not like 't%'"),
              QStringLiteral("3:007:text,4:007:text,5:007:text"));
    EXPECT_EQ(value("select typeof(\"match\") || \"match\" from \"order\" where \"key\" = 4"),
              QStringLiteral("real4.1"));

    // One row refuses: none of them changes, and the engine says why.
    grid->SelectCells(0, 5, 1, 1);
    window->UpdateControls();
    window->acSetCellsToValue->trigger();
    Settle();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.first().contains(QLatin1String("CHECK constraint failed"))) << errors.first().toStdString();
    errors.clear();
    EXPECT_EQ(value("select count(*) from \"order\" where total = '007'"), QStringLiteral("3"));
    EXPECT_EQ(value("select count(*) from \"order\" where total = 'bad'"), QStringLiteral("0"));

    // The counter follows a filter row.
    window->acShowFilterRows->setChecked(true);
    grid->FilterEditor(1)->setText(QStringLiteral("007"));
    grid->ApplyFilterRow();
    Settle();
    auto* counter = window->findChild<QLabel*>(QStringLiteral("spRecordCount"));
    for (int i = 0; i < 500 && !window->DataModel()->CountIsExact(); ++i) Settle();
    EXPECT_EQ(counter->text(), QStringLiteral("Record 1 of 3"));

    // Delete the two last of the filtered rows; the rest stay.
    window->acCellSelect->trigger();  // back to rows
    grid->SelectCells(1, 2, 0, 0);
    grid->View()->setFocus();
    window->UpdateControls();
    window->acDeleteRecords->trigger();
    Settle();
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(value("select group_concat(\"key\") from \"order\" where total = '007'"), QStringLiteral("3"));
    EXPECT_EQ(value("select count(*) from \"order\""), QStringLiteral("10"));
}

// Without images in cells a BLOB is read only when it is opened: a window
// over a row of 200 MB stays light, the hex editor opens it at once, and it
// saves to a file whole.
TEST_F(MainWindowTest, AHugeBlobOpensInTheHexEditorAndSaves) {
    Stop();
    Settings().setValue(QStringLiteral("Settings/ShowImages"), false);
    Start();
    const qint64 size = 200LL * 1024 * 1024;
    const QString path = MakeDatabase(
        QStringLiteral("huge.db"),
        QStringLiteral("create table blobs(id integer primary key, b blob);"
                       "insert into blobs values (1, x'89504e470d0a1a0aff'), (2, randomblob(%1))")
            .arg(size));
    window->ProcessParams({path});
    window->Pages()->setCurrentWidget(window->DataView());
    ASSERT_TRUE(Tree()->SelectObject(QStringLiteral("huge"), QStringLiteral("blobs")));
    Settle();
    TBrindleDBGrid* grid = window->DataView();
    // A PNG signature over broken bytes is no image either way.
    EXPECT_EQ(grid->CellText(0, 1), QStringLiteral("(BLOB)"));
    EXPECT_EQ(grid->CellText(1, 1), QStringLiteral("(BLOB)"));

    const QString saved = dir.file(QStringLiteral("saved.bin"));
    qint64 shownAfter = -1, viewSize = -1;
    QElapsedTimer clock;
    TDialogDriver driver({[&](QWidget* W) {
        shownAfter = clock.elapsed();
        auto* form = qobject_cast<TfrmBlobView*>(W);
        if (form) {
            viewSize = form->hvData->Data().size();
            form->SaveFile(saved);
        }
        W->close();
    }});
    grid->SetCurrentCell(1, 1);
    grid->View()->setFocus();
    window->UpdateControls();
    ASSERT_TRUE(window->acHexEditor->isEnabled());
    clock.start();
    window->acHexEditor->trigger();
    ASSERT_TRUE(driver.Done());
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(viewSize, size);
    EXPECT_GE(shownAfter, 0);
    EXPECT_LT(shownAfter, 5000) << "the hex editor took " << shownAfter << " ms to come up";
    QFile file(saved);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.size(), size);
    const QByteArray head = file.read(1024);
    file.seek(size - 1024);
    const QByteArray tail = file.read(1024);
    TDLSQLiteDatabase* db = window->CurrentDatabase();
    EXPECT_EQ(QString::fromLatin1(head.toHex()).toUpper(),
              db->GetStringValue(QStringLiteral("select hex(substr(b, 1, 1024)) from blobs where id = 2")));
    EXPECT_EQ(QString::fromLatin1(tail.toHex()).toUpper(),
              db->GetStringValue(QStringLiteral("select hex(substr(b, -1024)) from blobs where id = 2")));
}

// A file imported through the Data menu shows in the Data tab at once.
TEST_F(MainWindowTest, AnImportedFileShowsInTheDataTab) {
    const QString path = MakeDatabase(QStringLiteral("imports.db"));
    const QString csv = dir.file(QStringLiteral("sales.csv"));
    {
        QFile f(csv);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("region,total\nnorth,10\nsouth,20\n");
    }
    window->ProcessParams({path});
    Settle();
    window->UpdateControls();
    ASSERT_TRUE(window->acImportTextFile->isEnabled());
    TDialogDriver driver({[&](QWidget* W) {
        auto* form = qobject_cast<TfrmTextImport*>(W);
        if (form) {
            form->SetFileName(csv);
            form->ProcessImport();
        }
        W->close();
    }});
    window->acImportTextFile->trigger();
    ASSERT_TRUE(driver.Done());
    Settle();
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(window->Pages()->currentWidget(), window->DataView());
    TDataSetModel* model = window->DataModel();
    ASSERT_EQ(model->rowCount(), 2);
    EXPECT_EQ(model->data(model->index(1, 0)).toString(), QStringLiteral("south"));
    EXPECT_EQ(window->CurrentDatabase()->GetStringValue(QStringLiteral("select typeof(total) from sales limit 1")),
              QStringLiteral("integer"));
}
