// The SQL page on the offscreen platform: a run from the editor to the grid,
// a stop from the stop button while every other input is held off, tabs and
// history across a restart, files in their encodings, completion and
// replace in the editor.
#include "ShellTestSupport.h"
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLSQLiteDatabase.h"
#include "shell/FrameSQL.h"
#include "shell/Globals.h"
#include "shell/RegSettings.h"
#include "shell/SCMain.h"
#include "shell/SCPaths.h"
#include "shell/SQLPage.h"
#include "widgets/DBTree.h"
#include "widgets/DataSetModel.h"
#include "widgets/SQLEditor.h"
#include "workbench/Caches.h"
#include "workbench/TextSearch.h"

#include <gtest/gtest.h>
#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QStatusBar>
#include <QTabWidget>
#include <QTableView>
#include <QSettings>
#include <QTabBar>
#include <QTimer>

using namespace brindle;
using brindle::test::Settle;

namespace {

// A press and release as the window system would deliver them, through the
// application's event filters.
void Click(QWidget* Widget) {
    const QPointF at(Widget->width() / 2.0, Widget->height() / 2.0);
    QMouseEvent press(QEvent::MouseButtonPress, at, Widget->mapToGlobal(at), Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    QMouseEvent release(QEvent::MouseButtonRelease, at, Widget->mapToGlobal(at), Qt::LeftButton, Qt::NoButton,
                        Qt::NoModifier);
    QApplication::sendEvent(Widget, &press);
    QApplication::sendEvent(Widget, &release);
}

class SQLPageTest : public ::testing::Test {
protected:
    SQLPageTest() {
        Settings().clear();
        Start();
    }
    ~SQLPageTest() override { Stop(); }

    void Start() {
        global = std::make_unique<TGlobalData>();
        window = std::make_unique<TfrmSCMain>();
        window->FOnError = [this](const QString& m) { errors << m; };
        window->FOnConfirm = [this](const QString& q) {
            questions << q;
            return true;
        };
        window->Start({});
        window->show();
        Settle();
    }
    void Stop() {
        window.reset();
        global.reset();
    }
    void OpenDatabase(const QString& SQL) {
        const QString path = dir.file(QStringLiteral("w.db"));
        if (!QFile::exists(path)) {
            TDLSQLiteDatabase db;
            db.SetFileName(path);
            db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
            db.Execute(SQL);
        }
        window->ProcessParams({path});
        window->Pages()->setCurrentWidget(Page());
        Settle();
    }
    TSQLPage* Page() { return window->SQLPage(); }
    TfrmSQL* Frame() { return Page()->GetSQLFrame(); }
    QString StatusText() {
        for (QLabel* l : window->statusBar()->findChildren<QLabel*>())
            if (l->text().startsWith(QLatin1String("Query "))) return l->text();
        return QString();
    }
    void Run(const QString& Text) {
        Frame()->mmoSQL->setText(Text);
        Settle();
        ASSERT_TRUE(Page()->acExecuteSQL->isEnabled());
        Page()->acExecuteSQL->trigger();
        Settle();
    }

    test::TempDir dir;
    std::unique_ptr<TGlobalData> global;
    std::unique_ptr<TfrmSCMain> window;
    QStringList errors, questions;
};

TEST_F(SQLPageTest, RunFillsTheGridLabelsStatusAndHistoryAndTheResultCanBeEdited) {
    OpenDatabase(QStringLiteral("create table t(\"key\" integer primary key, total text);"
                                "insert into t(total) values ('a'), ('b')"));
    Run(QStringLiteral("select * from t order by \"key\""));
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    TDataSetModel* model = Frame()->dsSQL;
    EXPECT_EQ(model->rowCount(), 2);
    EXPECT_EQ(Frame()->lblEditable->text(), QStringLiteral("Editable, using key field: rowid"));
    EXPECT_TRUE(StatusText().startsWith(QLatin1String("Query executed in "))) << StatusText().toStdString();
    const TDBCache::TDBItem* item = window->DBCache().GetItem(QStringLiteral("w"));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->SQLHistory.value(0), QStringLiteral("select * from t order by \"key\""));

    // An edit in the grid reaches exactly its row.
    ASSERT_TRUE(model->setData(model->index(1, 1), QStringLiteral("changed")));
    Run(QStringLiteral("select group_concat(total, '/') from t"));
    EXPECT_EQ(model->data(model->index(0, 0)).toString(), QStringLiteral("a/changed"));

    // A failing statement: its message, the statements before it kept,
    // nothing in the history, the editor's text as it was.
    const QString failing = QStringLiteral("insert into t(total) values ('c');\ninsert into nowhere values (1)");
    Run(failing);
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors[0].contains(QLatin1String("no such table: nowhere")));
    EXPECT_EQ(Frame()->mmoSQL->text(), failing);
    EXPECT_NE(window->DBCache().GetItem(QStringLiteral("w"))->SQLHistory.value(0), failing);
    Run(QStringLiteral("select count(*) from t"));
    EXPECT_EQ(model->data(model->index(0, 0)).toString(), QStringLiteral("3"));
}

// While a statement runs only the stop button takes input; a click on it
// stops the run soon after, and nothing behind the statement runs.
TEST_F(SQLPageTest, StopButtonStopsALongRunAndNothingElseTakesInput) {
    OpenDatabase(QStringLiteral("create table t(a); insert into t values (1)"));
    Frame()->mmoSQL->setText(QStringLiteral(
        "update t set a = (with recursive c(x) as (select 1 union all select x + 1 from c) select count(*) "
        "from c);\ninsert into t values (2)"));
    Settle();
    QElapsedTimer clock;
    qint64 clicked = -1;
    int runsDuring = 0;
    bool stopEnabled = false, executeEnabled = true;
    QTimer::singleShot(300, [&] {
        stopEnabled = Page()->acStopQuery->isEnabled();
        executeEnabled = Page()->acExecuteSQL->isEnabled();
        // Held off: a click in the tree and F5 in the editor.
        Click(window->Tree()->viewport());
        QKeyEvent f5(QEvent::KeyPress, Qt::Key_F5, Qt::NoModifier);
        QApplication::sendEvent(Frame()->mmoSQL, &f5);
        runsDuring = Page()->Running() ? 1 : 0;
        clicked = clock.elapsed();
        Click(Frame()->btnStopQuery);
    });
    clock.start();
    Page()->acExecuteSQL->trigger();
    const qint64 ended = clock.elapsed();
    Settle();
    ASSERT_GE(clicked, 0);
    EXPECT_TRUE(stopEnabled);
    EXPECT_FALSE(executeEnabled);
    EXPECT_EQ(runsDuring, 1);
    EXPECT_LT(ended - clicked, 200);
    EXPECT_EQ(questions, QStringList{QStringLiteral("Stop query execution?")});
    EXPECT_TRUE(StatusText().startsWith(QLatin1String("Query aborted after "))) << StatusText().toStdString();
    EXPECT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    Run(QStringLiteral("select group_concat(a) from t"));
    EXPECT_EQ(Frame()->dsSQL->data(Frame()->dsSQL->index(0, 0)).toString(), QStringLiteral("1"));
    EXPECT_FALSE(Page()->Running());
}

TEST_F(SQLPageTest, TabsAndHistorySurviveARestart) {
    OpenDatabase(QStringLiteral("create table t(a)"));
    EXPECT_FALSE(Page()->pcSQL->tabBar()->isVisible());
    Run(QStringLiteral("select 1;\nselect 2"));
    Page()->NewSQLTab()->mmoSQL->setText(QStringLiteral("-- second"));
    Page()->NewSQLTab()->mmoSQL->setText(QStringLiteral("select 'third'"));
    Settle();
    EXPECT_TRUE(Page()->pcSQL->tabBar()->isVisible());
    EXPECT_EQ(Page()->pcSQL->tabText(2), QStringLiteral("SQL 3"));
    Page()->pcSQL->setCurrentIndex(1);
    Page()->acCloseSQLTab->trigger();
    Settle();
    ASSERT_EQ(Page()->TabCount(), 2);
    EXPECT_EQ(Page()->pcSQL->tabText(1), QStringLiteral("SQL 2"));
    window->SaveSettings();
    Stop();
    Start();
    ASSERT_EQ(Page()->TabCount(), 2);
    EXPECT_EQ(Page()->Frame(0)->mmoSQL->text(), QStringLiteral("select 1;\nselect 2"));
    EXPECT_EQ(Page()->Frame(1)->mmoSQL->text(), QStringLiteral("select 'third'"));
    window->ProcessParams({dir.file(QStringLiteral("w.db"))});
    window->Pages()->setCurrentWidget(Page());
    Settle();
    const TDBCache::TDBItem* item = window->DBCache().GetItem(QStringLiteral("w"));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->SQLHistory.value(0).remove(u'\r'), QStringLiteral("select 1;\nselect 2"));
    EXPECT_TRUE(Page()->acSQLHistory->isEnabled());
}

TEST_F(SQLPageTest, FilesLoadInTheirEncodingAndSaveInTheChosenOne) {
    const QString text = QStringLiteral("select 'Crème brûlée à la française, déjà vu, Größe' as dessert;");
    struct {
        const char* name;
        QByteArray bytes;
    } const files[] = {
        {"utf8.sql", text.toUtf8()},
        {"bom.sql", QByteArray("\xEF\xBB\xBF") + text.toUtf8()},
        {"le.sql", QByteArray("\xFF\xFE") + QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2)},
        {"1252.sql", text.toLatin1()},
    };
    for (const auto& f : files) {
        SCOPED_TRACE(f.name);
        Page()->LoadSQLFile(dir.write(QLatin1String(f.name), f.bytes));
        EXPECT_EQ(Frame()->mmoSQL->text(), text);
    }
    for (const char* encoding : {"UTF-8", "UTF-16be", "UTF-16le"}) {
        SCOPED_TRACE(encoding);
        const QString path = dir.file(QStringLiteral("out.sql"));
        Page()->SaveSQLFile(path, QLatin1String(encoding));
        Frame()->mmoSQL->clear();
        Page()->LoadSQLFile(path);
        EXPECT_EQ(Frame()->mmoSQL->text().trimmed(), text);
    }
    EXPECT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    // A file nothing can read: its message, and the editor keeps its text.
    Page()->LoadSQLFile(dir.write(QStringLiteral("bad.sql"), QByteArray("\xff\xfes\x00\x00\xd8 \x00", 8)));
    EXPECT_EQ(errors.size(), 1);
    EXPECT_EQ(Frame()->mmoSQL->text().trimmed(), text);
}

TEST_F(SQLPageTest, CompletionAndReplaceInTheEditor) {
    OpenDatabase(QStringLiteral("create table orders(id integer primary key, \"order\" text, total real)"));
    TSQLEditor* e = Frame()->mmoSQL;
    e->setText(QStringLiteral("select o. from orders o"));
    e->setCursorPosition(0, 9);
    e->ShowCompletion();
    QStringList inserts;
    for (const TEditorProposal& p : e->ShownProposals()) inserts << p.Insert;
    EXPECT_TRUE(inserts.contains(QStringLiteral("[order]"))) << inserts.join(u' ').toStdString();
    EXPECT_TRUE(inserts.contains(QStringLiteral("total")));
    e->InsertProposal({QString(), QStringLiteral("total")});
    EXPECT_EQ(e->text(), QStringLiteral("select o.total from orders o"));

    // Replace: one hit skipped, the next replaced, then the rest.
    e->setText(QStringLiteral("a1 a2 a3 a4"));
    e->setFocus();
    TSynSearch& s = Page()->SearchOptions();
    Page()->FOnSearchDialog = [&s](bool) {
        s.gsSearchText = QStringLiteral("a(\\d)");
        s.gsReplaceText = QStringLiteral("b\\1");
        s.gbSearchRegex = true;
        return true;
    };
    QList<int> answers{1, 0, 2};
    Page()->FOnConfirmReplace = [&answers](const QString&) { return answers.takeFirst(); };
    Page()->ShowSearchReplaceDialog(true);
    EXPECT_EQ(e->text(), QStringLiteral("a1 b2 b3 b4"));
    e->undo();
    EXPECT_EQ(e->text(), QStringLiteral("a1 a2 a3 a4"));
}

}  // namespace
