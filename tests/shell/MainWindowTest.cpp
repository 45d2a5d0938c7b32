// The first window on the offscreen platform: what it opens and what the
// tree shows.
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"
#include "shell/SCMain.h"
#include "shell/SCPaths.h"
#include "widgets/DataSetModel.h"

#include <QAction>
#include <QApplication>
#include <QPlainTextEdit>
#include <QTreeWidget>
#include <gtest/gtest.h>

using namespace brindle;

namespace {

class ShellEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "brindle_shell_tests";
        static char* argv[] = {name, nullptr};
        app = std::make_unique<QApplication>(argc, argv);
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();  // as the program does at start
    }
    void TearDown() override { app.reset(); }
    std::unique_ptr<QApplication> app;
};
[[maybe_unused]] ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new ShellEnvironment);

// The captions of the tree's group nodes below the database node.
QStringList groups(QTreeWidget* tree) {
    QStringList result;
    if (tree->topLevelItemCount() == 0) return result;
    QTreeWidgetItem* root = tree->topLevelItem(0);
    for (int i = 0; i < root->childCount(); ++i) result << root->child(i)->text(0);
    return result;
}

class MainWindowTest : public ::testing::Test {
protected:
    MainWindowTest() {
        window.FOnError = [this](const QString& m) { errors << m; };
    }
    test::TempDir dir;
    TfrmSCMain window;
    QStringList errors;
};

TEST_F(MainWindowTest, TitleNamesProductAndLibrary) {
    EXPECT_TRUE(window.windowTitle().startsWith(QStringLiteral("Brindle ")));
    EXPECT_TRUE(window.windowTitle().endsWith(QStringLiteral(" - SQLite ") + SQLite3Driver->sqlite3drv_libversion()));
}

TEST_F(MainWindowTest, CommandLineOpensOnlyASingleExistingFile) {
    const QString demo = GetDemoDatabasePath();
    window.ProcessParams({});
    window.ProcessParams({demo, demo});
    window.ProcessParams({dir.file(QStringLiteral("missing.db"))});
    EXPECT_EQ(window.CurrentDatabase(), nullptr);
    EXPECT_TRUE(errors.isEmpty());

    window.ProcessParams({demo});
    ASSERT_NE(window.CurrentDatabase(), nullptr);
    EXPECT_TRUE(window.CurrentDatabase()->Connected());
    const QStringList g = groups(window.Tree());
    ASSERT_EQ(g.size(), 5);
    EXPECT_TRUE(g[0].startsWith(QStringLiteral("Tables (")));
    EXPECT_TRUE(g[1].startsWith(QStringLiteral("Virtual Tables (2)")));
    EXPECT_TRUE(g[2].startsWith(QStringLiteral("Views (")));
    EXPECT_TRUE(g[3].startsWith(QStringLiteral("Indexes (")));
    EXPECT_TRUE(g[4].startsWith(QStringLiteral("Triggers (")));
}

TEST_F(MainWindowTest, BadFileShowsTheMessageAndKeepsWhatWasOpen) {
    window.acOpenDemoDatabase->trigger();
    ASSERT_NE(window.CurrentDatabase(), nullptr);
    TDLSQLiteDatabase* before = window.CurrentDatabase();
    window.ProcessParams({dir.write(QStringLiteral("bad.db3"), QByteArray(1024, 'b'))});
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors[0].startsWith(QStringLiteral("file is not a database")));
    EXPECT_EQ(window.CurrentDatabase(), before);

    window.acCloseDatabase->trigger();
    EXPECT_EQ(window.CurrentDatabase(), nullptr);
    EXPECT_EQ(window.Tree()->topLevelItemCount(), 0);
}

TEST_F(MainWindowTest, RefreshShowsObjectsMadeMeanwhile) {
    const QString path = dir.file(QStringLiteral("grow.db"));
    {
        TDLSQLiteDatabase db;
        db.SetFileName(path);
        db.CreateDatabase(0, 4096, QString(), QString());
        db.Execute(QStringLiteral("create table t(a)"));
    }
    window.OpenDatabase(path);
    EXPECT_EQ(groups(window.Tree()), QStringList{"Tables (1)"});
    window.CurrentDatabase()->Execute(QStringLiteral("create view v as select * from t; create index i on t(a)"));
    window.acRefresh->trigger();
    EXPECT_EQ(groups(window.Tree()), (QStringList{"Tables (1)", "Views (1)", "Indexes (1)"}));
    // Selecting an object shows its stored text.
    QTreeWidgetItem* view = window.Tree()->topLevelItem(0)->child(1)->child(0);
    window.Tree()->setCurrentItem(view);
    EXPECT_EQ(window.DDLView()->toPlainText(), QStringLiteral("CREATE VIEW v as select * from t"));
}

}  // namespace

namespace {

QTreeWidgetItem* findNode(QTreeWidget* tree, const QString& name) {
    const auto found = tree->findItems(name, Qt::MatchExactly | Qt::MatchRecursive);
    return found.isEmpty() ? nullptr : found.first();
}

}  // namespace

// Selecting a table or view shows its rows; the grid grows as it is
// scrolled, a row at a time window, until the end is known.
TEST_F(MainWindowTest, DataPageShowsTheRowsOfTheSelection) {
    const QString path = dir.file(QStringLiteral("rows.db"));
    {
        TDLSQLiteDatabase db;
        db.SetFileName(path);
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db.Execute(QStringLiteral(
            "create table big(i integer primary key, s text, n);"
            "with recursive c(x) as (select 1 union all select x + 1 from c where x < 2000) "
            "insert into big select x, 'row ' || x, case when x % 2 then null else x end from c;"
            "create view small as select i from big where i <= 3; create index big_s on big(s)"));
    }
    window.OpenDatabase(path);
    TDataSetModel* model = window.DataModel();

    window.Tree()->setCurrentItem(findNode(window.Tree(), QStringLiteral("big")));
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(model->columnCount(), 3);
    EXPECT_EQ(model->headerData(1, Qt::Horizontal).toString(), QStringLiteral("s"));
    EXPECT_EQ(model->rowCount(), 512);
    EXPECT_FALSE(model->CountIsExact());
    EXPECT_EQ(model->data(model->index(0, 1)).toString(), QStringLiteral("row 1"));
    EXPECT_EQ(model->data(model->index(0, 2)).toString(), QStringLiteral("NULL"));
    EXPECT_TRUE(model->data(model->index(0, 2), Qt::ForegroundRole).isValid());
    EXPECT_EQ(model->data(model->index(1, 2)).toString(), QStringLiteral("2"));
    while (model->canFetchMore(QModelIndex())) model->fetchMore(QModelIndex());
    EXPECT_EQ(model->rowCount(), 2000);
    EXPECT_TRUE(model->CountIsExact());
    // Back to the top after the window moved to the end.
    EXPECT_EQ(model->data(model->index(1999, 1)).toString(), QStringLiteral("row 2000"));
    EXPECT_EQ(model->data(model->index(3, 1)).toString(), QStringLiteral("row 4"));

    window.Tree()->setCurrentItem(findNode(window.Tree(), QStringLiteral("small")));
    EXPECT_EQ(model->rowCount(), 3);
    // An index has no rows of its own.
    window.Tree()->setCurrentItem(findNode(window.Tree(), QStringLiteral("big_s")));
    EXPECT_EQ(model->rowCount(), 0);
    EXPECT_EQ(model->columnCount(), 0);
    window.Tree()->setCurrentItem(findNode(window.Tree(), QStringLiteral("big")));
    EXPECT_FALSE(model->CountIsExact());
    model->FetchAll();  // a jump to the end knows every row at once
    EXPECT_EQ(model->rowCount(), 2000);
    EXPECT_EQ(model->data(model->index(1000, 0)).toString(), QStringLiteral("1001"));
    window.CloseDatabase();
    EXPECT_EQ(model->rowCount(), 0);
}

// Cells of a table are edited in place; each edit is in the file at once,
// and one the engine refuses stays on screen until it is dropped.
TEST_F(MainWindowTest, DataPageEditsCellByCell) {
    const QString path = dir.file(QStringLiteral("edit.db"));
    {
        TDLSQLiteDatabase db;
        db.SetFileName(path);
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db.Execute(QStringLiteral("create table p(name text, qty integer check (qty >= 0), d date);"
                                  "insert into p values ('nut', 5, '2024-01-02'), ('bolt', 7, null)"));
    }
    window.OpenDatabase(path);
    window.Tree()->setCurrentItem(findNode(window.Tree(), QStringLiteral("p")));
    TDataSetModel* model = window.DataModel();
    ASSERT_EQ(model->columnCount(), 3);
    EXPECT_TRUE(model->flags(model->index(0, 1)) & Qt::ItemIsEditable);
    EXPECT_EQ(model->data(model->index(0, 2)).toString(), QStringLiteral("2024-01-02"));

    TDLSQLiteDatabase other;  // what any other program sees
    other.SetFileName(path);
    other.SetConnected(true);
    EXPECT_TRUE(model->setData(model->index(1, 1), QStringLiteral("70"))) << errors.join(u'\n').toStdString();
    EXPECT_EQ(other.GetStringValue(QStringLiteral("select qty from p where name = 'bolt'")), QStringLiteral("70"));
    EXPECT_TRUE(model->setData(model->index(1, 2), QStringLiteral("2025-03-04")));
    EXPECT_EQ(other.GetStringValue(QStringLiteral("select d from p where name = 'bolt'")), QStringLiteral("2025-03-04"));
    EXPECT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();

    // Refused by the engine: the message, the typed value kept, the row kept.
    EXPECT_FALSE(model->setData(model->index(0, 1), QStringLiteral("-1")));
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors[0].contains(QLatin1String("CHECK constraint failed"))) << errors[0].toStdString();
    EXPECT_EQ(model->data(model->index(0, 1)).toString(), QStringLiteral("-1"));
    EXPECT_TRUE(model->Editing());
    EXPECT_EQ(other.GetStringValue(QStringLiteral("select qty from p where name = 'nut'")), QStringLiteral("5"));
    model->CancelEdit();
    EXPECT_EQ(model->data(model->index(0, 1)).toString(), QStringLiteral("5"));
    // Not a number at all: refused before anything is written.
    EXPECT_FALSE(model->setData(model->index(0, 1), QStringLiteral("many")));
    EXPECT_EQ(errors.last(), QStringLiteral("'many' is not a valid integer value"));
    EXPECT_FALSE(model->Editing());
    other.SetConnected(false);
    window.CloseDatabase();
}
