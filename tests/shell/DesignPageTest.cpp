// The design pages through the main window on the offscreen platform: a
// real file opened, a table selected, rows of its design edited through
// the commands and their dialogs, and the apply, its failure and cancel
// seen in the file, the tree and the page.
#include "ShellTestSupport.h"
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLSQLiteDatabase.h"
#include "schema/DMBrindle.h"
#include "shell/ClipboardFormats.h"
#include "shell/DesignDialogs.h"
#include "shell/Globals.h"
#include "shell/RegSettings.h"
#include "shell/SCMain.h"
#include "shell/TableDesignPage.h"
#include "shell/ViewDesignPage.h"
#include "widgets/DBTree.h"
#include "widgets/SQLEditor.h"

#include <gtest/gtest.h>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QSettings>
#include <QStackedWidget>
#include <QTabWidget>
#include <QTableWidget>
#include <QTimer>

using namespace brindle;
using brindle::test::Settle;
using brindle::test::TDialogDriver;

namespace {

template <typename T>
T* As(QWidget* Dialog) {
    auto* d = qobject_cast<T*>(Dialog);
    EXPECT_NE(d, nullptr) << Dialog->metaObject()->className();
    return d;
}

QStringList Column(const QTableWidget* Grid, int Column) {
    QStringList texts;
    for (int r = 0; r < Grid->rowCount(); ++r) texts << Grid->item(r, Column)->text();
    return texts;
}

void SelectRows(QTableWidget* Grid, const QList<int>& Rows) {
    Grid->clearSelection();
    Grid->setCurrentCell(Rows.front(), 0);
    for (const int r : Rows)
        Grid->selectionModel()->select(Grid->model()->index(r, 0),
                                       QItemSelectionModel::Select | QItemSelectionModel::Rows);
}

class DesignPageTest : public ::testing::Test {
protected:
    DesignPageTest() {
        Settings().clear();
        global = std::make_unique<TGlobalData>();
        window = std::make_unique<TfrmSCMain>();
        window->FOnError = [this](const QString& m) { errors << m; };
        window->FOnConfirm = [this](const QString& q) {
            prompts << q;
            return answers.isEmpty() ? true : answers.takeFirst();
        };
        window->Start({});
        window->show();
        Settle();
    }
    ~DesignPageTest() override {
        window.reset();
        global.reset();
    }

    // Opens a new file made by the script and selects the table in it.
    TDLSQLiteDatabase* OpenTable(const QString& SQL, const QString& Table) {
        const QString path = dir.file(QStringLiteral("design.db"));
        {
            TDLSQLiteDatabase db;
            db.SetFileName(path);
            db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
            db.Execute(SQL);
        }
        window->ProcessParams({path});
        Settle();
        EXPECT_TRUE(window->Tree()->SelectObject(QStringLiteral("design"), Table));
        Settle();
        window->Pages()->setCurrentWidget(window->DesignBook());
        return window->CurrentDatabase();
    }
    TTableDesignPage& Page() { return *window->TableDesignPage(); }
    TdmBrindle& DM() { return window->dmBrindle(); }
    QString Value(const QString& SQL) { return window->CurrentDatabase()->GetStringValue(SQL); }

    test::TempDir dir;
    std::unique_ptr<TGlobalData> global;
    std::unique_ptr<TfrmSCMain> window;
    QStringList errors, prompts;
    QList<bool> answers;
};

// Rename, add, delete a field and add an index; one apply rebuilds the
// table with its rows, and the tree and the page show the new table.
TEST_F(DesignPageTest, EditsApplyAndTheRowsStay) {
    OpenTable(QStringLiteral("create table t(id integer primary key, name text, gone blob, kept);"
                             "insert into t values (1, 'one', x'00', 'a'), (2, 'two', null, 'b');"
                             "create table other(x)"),
              QStringLiteral("t"));
    EXPECT_EQ(window->DesignBook()->currentWidget(), window->TableDesignPage());
    EXPECT_EQ(Page().edTableName->text(), QStringLiteral("main.t"));
    EXPECT_TRUE(Page().edTableName->isReadOnly());
    EXPECT_EQ(Column(Page().grdFields, 1), (QStringList{"id", "name", "gone", "kept"}));
    EXPECT_EQ(Column(Page().grdIndexes, 1), QStringList{"Primary"});
    EXPECT_FALSE(Page().acApplyTableDesign->isEnabled());
    EXPECT_TRUE(window->Tree()->isEnabled());

    Page().grdFields->setCurrentCell(1, 0);
    {
        TDialogDriver driver({[](QWidget* d) {
            auto* field = As<TfrmFieldEditor>(d);
            EXPECT_EQ(field->edName->text(), QStringLiteral("name"));
            EXPECT_FALSE(field->edName->isReadOnly());
            field->edName->setText(QStringLiteral("title"));
            field->accept();
        }});
        Page().acModifyField->trigger();
        EXPECT_TRUE(driver.Done());
    }
    // Pending now: the tree waits, the design's commands do not.
    EXPECT_FALSE(window->Tree()->isEnabled());
    EXPECT_TRUE(window->EditingTable());
    EXPECT_TRUE(Page().acApplyTableDesign->isEnabled());
    EXPECT_FALSE(window->acRefreshDatabase->isEnabled());
    EXPECT_EQ(Page().grdFields->currentRow(), 1);

    {
        TDialogDriver driver({[](QWidget* d) {
            auto* field = As<TfrmFieldEditor>(d);
            field->edName->setText(QStringLiteral("added"));
            field->cbType->setEditText(QStringLiteral("TEXT"));
            field->edDefault->setText(QStringLiteral("'new'"));
            field->accept();
        }});
        Page().acAddField->trigger();
    }
    Page().grdFields->setCurrentCell(2, 0);
    Page().acDeleteField->trigger();
    EXPECT_EQ(prompts, QStringList{"Delete selected field?"});
    EXPECT_EQ(Column(Page().grdFields, 1), (QStringList{"id", "title", "kept", "added"}));
    EXPECT_EQ(Column(Page().grdFields, 0), (QStringList{"1", "2", "3", "4"}));

    {
        TDialogDriver driver({[](QWidget* d) {
            auto* index = As<TfrmIndexEditor>(d);
            index->edName->setText(QStringLiteral("t_title"));
            index->AddColumn({QStringLiteral("title"), {}, QStringLiteral("DESC"), false});
            index->accept();
        }});
        Page().acAddIndex->trigger();
    }
    EXPECT_EQ(Column(Page().grdIndexes, 0).last(), QStringLiteral("t_title"));
    EXPECT_EQ(Page().grdIndexes->item(1, 2)->text(), QStringLiteral("title DESC"));

    Page().acApplyTableDesign->trigger();
    Settle();
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(Value(QStringLiteral("select group_concat(name, ',') from pragma_table_info('t')")),
              QStringLiteral("id,title,kept,added"));
    EXPECT_EQ(Value(QStringLiteral("select group_concat(id || title || kept || added, ';') from t")),
              QStringLiteral("1oneanew;2twobnew"));
    EXPECT_EQ(Value(QStringLiteral("select count(*) from sqlite_master where name = 't_title'")), QStringLiteral("1"));
    // The catalogue as the program reads it, and the page loaded from it.
    EXPECT_EQ(GlobalData->CurrentItemName(), QStringLiteral("main.t"));
    EXPECT_TRUE(window->Tree()->isEnabled());
    EXPECT_FALSE(window->EditingTable());
    EXPECT_EQ(Column(Page().grdFields, 1), (QStringList{"id", "title", "kept", "added"}));
    EXPECT_TRUE(window->DDLView()->toPlainText().contains(QStringLiteral("t_title")));
}

// A rebuild that the rows refuse: the message, the file as it was, and the
// design still pending until Cancel loads the table again.
TEST_F(DesignPageTest, AFailedApplyKeepsTheDesignUntilCancel) {
    OpenTable(QStringLiteral("create table t(a); insert into t values (1), (5)"), QStringLiteral("t"));
    {
        TDialogDriver driver({[](QWidget* d) {
            auto* check = As<TfrmCheckConstraintEditor>(d);
            check->edName->setText(QStringLiteral("small"));
            check->mmoExpression->setPlainText(QStringLiteral("a < 3"));
            check->accept();
        }});
        Page().acAddCheckConstraint->trigger();
    }
    EXPECT_EQ(Column(Page().grdCheckConstraints, 1), QStringList{"a < 3"});
    Page().acApplyTableDesign->trigger();
    Settle();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.front().contains(QStringLiteral("CHECK constraint failed"))) << errors.front().toStdString();
    EXPECT_EQ(Value(QStringLiteral("select sql from sqlite_master where name = 't'")),
              QStringLiteral("CREATE TABLE t(a)"));
    EXPECT_EQ(Value(QStringLiteral("select count(*) from t")), QStringLiteral("2"));
    EXPECT_FALSE(window->CurrentDatabase()->GetInTransaction());
    EXPECT_TRUE(window->EditingTable());
    EXPECT_FALSE(window->Tree()->isEnabled());
    EXPECT_EQ(Page().grdCheckConstraints->rowCount(), 1);

    Page().acCancelTableDesign->trigger();
    Settle();
    EXPECT_FALSE(window->EditingTable());
    EXPECT_TRUE(window->Tree()->isEnabled());
    EXPECT_EQ(Page().grdCheckConstraints->rowCount(), 0);
    EXPECT_EQ(Column(Page().grdFields, 1), QStringList{"a"});
}

// Every family asks before it deletes, in the singular for one row and the
// plural for more, and deletes nothing on No.
TEST_F(DesignPageTest, DeletePromptsCountTheRows) {
    OpenTable(QStringLiteral(
                  "create table p(x integer primary key, y unique);"
                  "create table t(a, b, constraint u1 unique(a), constraint u2 unique(b), constraint c1 check(a > 0), "
                  "constraint c2 check(b > 0), constraint f1 foreign key(a) references p(x), "
                  "constraint f2 foreign key(b) references p(y));"
                  "create index i1 on t(a); create index i2 on t(b);"
                  "create trigger tr1 after insert on t begin select 1; end;"
                  "create trigger tr2 after delete on t begin select 2; end"),
              QStringLiteral("t"));
    struct TFamily {
        QTableWidget* Grid;
        QAction* Delete;
        QString One, Many;
    };
    const TFamily families[] = {
        {Page().grdFields, Page().acDeleteField, "Delete selected field?", "Delete selected fields?"},
        {Page().grdIndexes, Page().acDeleteIndex, "Delete selected index?", "Delete selected indexes?"},
        {Page().grdForeignKeys, Page().acDeleteForeignKey, "Delete selected foreign key?",
         "Delete selected foreign keys?"},
        {Page().grdUniqueConstraints, Page().acDeleteUniqueConstraint, "Delete selected unique constraint?",
         "Delete selected unique constraints?"},
        {Page().grdCheckConstraints, Page().acDeleteCheckConstraint, "Delete selected check constraint?",
         "Delete selected check constraints?"},
        {Page().grdTableTriggers, Page().acDeleteTableTrigger, "Delete selected trigger?",
         "Delete selected triggers?"},
    };
    for (const TFamily& f : families) {
        ASSERT_EQ(f.Grid->rowCount(), 2) << f.One.toStdString();
        prompts.clear();
        answers = {false, false};
        SelectRows(f.Grid, {1});
        window->UpdateControls();
        f.Delete->trigger();
        SelectRows(f.Grid, {0, 1});
        window->UpdateControls();
        f.Delete->trigger();
        EXPECT_EQ(prompts, (QStringList{f.One, f.Many}));
        EXPECT_EQ(f.Grid->rowCount(), 2);
    }
    EXPECT_FALSE(window->EditingTable());

    // The trigger view follows the row, under the editor's table name.
    Page().grdTableTriggers->setCurrentCell(1, 0);
    EXPECT_EQ(Page().mmoTableTrigger->text(),
              QStringLiteral("CREATE TRIGGER [tr2]\r\nafter delete\r\nON [t]\r\nbegin select 2; end"));

    answers = {true};
    SelectRows(Page().grdTableTriggers, {0, 1});
    Page().acDeleteTableTrigger->trigger();
    EXPECT_EQ(Page().grdTableTriggers->rowCount(), 0);
    EXPECT_TRUE(Page().mmoTableTrigger->text().isEmpty());
    EXPECT_TRUE(DM().FTableTriggersModified);
    EXPECT_FALSE(DM().FFieldsModified);
}

// Selected fields move together and keep their order and selection; the
// commands stop at the edges.
TEST_F(DesignPageTest, SelectedFieldsMoveTogether) {
    OpenTable(QStringLiteral("create table t(a, b, c, d)"), QStringLiteral("t"));
    SelectRows(Page().grdFields, {1, 2});
    window->UpdateControls();
    Page().acMoveUpField->trigger();
    EXPECT_EQ(Column(Page().grdFields, 1), (QStringList{"b", "c", "a", "d"}));
    EXPECT_EQ(TTableDesignPage::SelectedRowIDs(Page().grdFields).size(), 2);
    EXPECT_FALSE(Page().acMoveUpField->isEnabled());
    Page().acMoveDownField->trigger();
    Page().acMoveDownField->trigger();
    EXPECT_EQ(Column(Page().grdFields, 1), (QStringList{"a", "d", "b", "c"}));
    EXPECT_FALSE(Page().acMoveDownField->isEnabled());
    EXPECT_TRUE(Page().acMoveUpField->isEnabled());
    EXPECT_TRUE(DM().FFieldsModified);
}

// Copied fields paste under free names, after the question that the option
// asks for; the clipboard holds the program's text and plain rows.
TEST_F(DesignPageTest, APastedFieldTakesTheNextFreeName) {
    OpenTable(QStringLiteral("create table t(a integer not null, a_1)"), QStringLiteral("t"));
    Page().grdFields->setCurrentCell(0, 0);
    Page().acCopyFields->trigger();
    const QMimeData* data = QGuiApplication::clipboard()->mimeData();
    ASSERT_NE(data, nullptr);
    EXPECT_TRUE(data->data(QStringLiteral("application/x-brindle-field")).startsWith("object TClipFields\r\n"));
    EXPECT_TRUE(data->text().startsWith(QStringLiteral("#\tName\tDeclared Type")));
    Settle();
    EXPECT_TRUE(Page().acPasteFields->isEnabled());

    answers = {false};
    Page().acPasteFields->trigger();
    EXPECT_EQ(prompts, QStringList{"Paste fields from clipboard?"});
    EXPECT_EQ(Page().grdFields->rowCount(), 2);
    Page().acPasteFields->trigger();
    EXPECT_EQ(Column(Page().grdFields, 1), (QStringList{"a", "a_1", "a_2"}));
    EXPECT_EQ(Page().grdFields->item(2, 2)->text(), QStringLiteral("INTEGER"));
    EXPECT_EQ(Page().grdFields->item(2, 3)->text(), QStringLiteral("True"));
    EXPECT_TRUE(DM().FFieldsModified);

    // Plain text is no fields.
    QGuiApplication::clipboard()->setText(QStringLiteral("a"));
    Settle();
    EXPECT_FALSE(Page().acPasteFields->isEnabled());
}

// The rules of the field and index editors hold on the page too.
TEST_F(DesignPageTest, ReferencedFieldsAndEngineIndexNamesAreRefused) {
    OpenTable(QStringLiteral("create table p(id integer primary key, n text);"
                             "create table c(pid references p(id))"),
              QStringLiteral("p"));
    EXPECT_EQ(Page().lblReferences->text(), QStringLiteral("Foreign key references: 1"));
    Page().grdFields->setCurrentCell(0, 0);
    window->UpdateControls();
    EXPECT_FALSE(Page().acDeleteField->isEnabled());
    EXPECT_TRUE(Page().acModifyField->isEnabled());
    {
        TDialogDriver driver({[](QWidget* d) {
            auto* field = As<TfrmFieldEditor>(d);
            EXPECT_TRUE(field->edName->isReadOnly());
            EXPECT_TRUE(field->lblReferenced->isVisible());
            field->reject();
        }});
        Page().acModifyField->trigger();
        EXPECT_TRUE(driver.Done());
    }
    Page().grdFields->setCurrentCell(1, 0);
    window->UpdateControls();
    EXPECT_TRUE(Page().acDeleteField->isEnabled());

    // A refused name keeps the dialog open until it is mended.
    QString refusal;
    {
        TDialogDriver driver({[&](QWidget* d) {
                                  auto* index = As<TfrmIndexEditor>(d);
                                  index->edName->setText(QStringLiteral("sqlite_n"));
                                  index->AddColumn({QStringLiteral("n"), {}, {}, false});
                                  index->accept();
                              },
                              [&](QWidget* d) {
                                  refusal = As<QMessageBox>(d)->text();
                                  As<QMessageBox>(d)->accept();
                              },
                              [&](QWidget* d) {
                                  auto* index = As<TfrmIndexEditor>(d);
                                  index->edName->setText(QStringLiteral("p_n"));
                                  index->accept();
                              }});
        Page().acAddIndex->trigger();
        EXPECT_TRUE(driver.Done());
    }
    EXPECT_EQ(refusal, QStringLiteral("Index names beginning with 'sqlite_' are reserved for use by SQLite."));
    EXPECT_EQ(Column(Page().grdIndexes, 0).last(), QStringLiteral("p_n"));
    EXPECT_TRUE(errors.isEmpty());
}

// A new table: the name is typed, fields added, and the apply creates it
// and selects it in the tree. Renaming it afterwards goes by the input box.
TEST_F(DesignPageTest, NewTableIsCreatedThenRenamed) {
    OpenTable(QStringLiteral("create table t(a)"), QString());
    EXPECT_TRUE(Page().acNewTable->isEnabled());
    Page().acNewTable->trigger();
    EXPECT_TRUE(window->EditingTable());
    EXPECT_FALSE(window->Tree()->isEnabled());
    EXPECT_EQ(window->Pages()->currentWidget(), window->DesignBook());
    EXPECT_FALSE(Page().edTableName->isReadOnly());
    EXPECT_FALSE(Page().acApplyTableDesign->isEnabled());  // no name, no field
    Page().edTableName->insert(QStringLiteral("fresh"));
    {
        TDialogDriver driver({[](QWidget* d) {
            auto* field = As<TfrmFieldEditor>(d);
            field->edName->setText(QStringLiteral("id"));
            field->cbType->setEditText(QStringLiteral("INTEGER"));
            field->accept();
        }});
        Page().acAddField->trigger();
    }
    EXPECT_TRUE(Page().acApplyTableDesign->isEnabled());
    Page().acApplyTableDesign->trigger();
    Settle();
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(GlobalData->CurrentItemName(), QStringLiteral("main.fresh"));
    EXPECT_FALSE(window->EditingTable());
    EXPECT_EQ(Page().edTableName->text(), QStringLiteral("main.fresh"));

    {
        TDialogDriver driver({[](QWidget* d) {
            auto* input = As<QInputDialog>(d);
            EXPECT_EQ(input->windowTitle(), QStringLiteral("Rename table main.fresh"));
            EXPECT_EQ(input->labelText(), QStringLiteral("New name: "));
            EXPECT_EQ(input->textValue(), QStringLiteral("fresh"));
            input->setTextValue(QStringLiteral("Renamed"));
            input->accept();
        }});
        window->acRenameTable->trigger();
        EXPECT_TRUE(driver.Done());
    }
    Settle();
    EXPECT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(GlobalData->CurrentItemName(), QStringLiteral("main.Renamed"));
    EXPECT_EQ(Value(QStringLiteral("select count(*) from sqlite_master where name = 'Renamed'")), QStringLiteral("1"));

    // Closing with a design pending asks first.
    Page().cbWithoutRowID->setChecked(true);
    prompts.clear();
    answers = {false};
    EXPECT_FALSE(window->close());
    EXPECT_EQ(prompts, QStringList{"Exit without applying changes?"});
}

// A view renamed on its page takes its triggers along; a virtual table
// rebuilt with rows asks for the mapping of its columns.
TEST_F(DesignPageTest, ViewsAndVirtualTablesApply) {
    OpenTable(QStringLiteral("create table t(a); insert into t values (1);"
                             "create view v as select a from t;"
                             "create trigger vt instead of insert on v begin insert into t values (new.a); end;"
                             "create virtual table f using fts4(body);"
                             "insert into f(docid, body) values (7, 'hello')"),
              QStringLiteral("v"));
    TViewDesignPage& view = *window->ViewDesignPage();
    EXPECT_EQ(window->DesignBook()->currentWidget(), &view);
    EXPECT_EQ(view.AsClause(), QStringLiteral("select a from t"));
    EXPECT_EQ(Column(view.grdViewTriggers, 0), QStringList{"vt"});
    view.edViewName->setText(QString());
    view.edViewName->insert(QStringLiteral("w"));
    EXPECT_TRUE(window->EditingView());
    view.acApplyViewDesign->trigger();
    Settle();
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(Value(QStringLiteral("select group_concat(name, ',') from sqlite_master where type in ('view', 'trigger')")),
              QStringLiteral("w,vt"));
    EXPECT_EQ(GlobalData->CurrentItemName(), QStringLiteral("main.w"));

    ASSERT_TRUE(window->Tree()->SelectObject(QStringLiteral("design"), QStringLiteral("f")));
    Settle();
    TVirtualTableDesignPage& virtualTable = *window->VirtualTableDesignPage();
    EXPECT_EQ(window->DesignBook()->currentWidget(), &virtualTable);
    EXPECT_EQ(virtualTable.ModuleName(), QStringLiteral("fts4"));
    EXPECT_TRUE(virtualTable.cbModule->findText(QStringLiteral("rtree")) >= 0);
    QStringList offered;
    window->FOnFieldMapping = [&](const QStringList& Source, const QStringList& Dest, QStringList& MappedSource,
                                  QStringList& MappedDest) {
        offered = Source + Dest;
        MappedSource = {QStringLiteral("docid"), QStringLiteral("body")};
        MappedDest = {QStringLiteral("docid"), QStringLiteral("text")};
        return true;
    };
    virtualTable.mmoModuleArguments->setPlainText(QStringLiteral("text, extra"));
    EXPECT_TRUE(window->EditingVirtualTable());
    virtualTable.acApplyVirtualTableDesign->trigger();
    Settle();
    ASSERT_TRUE(errors.isEmpty()) << errors.join(u'\n').toStdString();
    EXPECT_EQ(offered, (QStringList{"docid", "body", "docid", "text", "extra"}));
    EXPECT_EQ(Value(QStringLiteral("select docid || text from f")), QStringLiteral("7hello"));

    // Refused mapping: the old table stays as it was.
    window->FOnFieldMapping = [](const QStringList&, const QStringList&, QStringList&, QStringList&) { return false; };
    virtualTable.mmoModuleArguments->setPlainText(QStringLiteral("other"));
    virtualTable.acApplyVirtualTableDesign->trigger();
    Settle();
    EXPECT_EQ(errors, QStringList{"Virtual Table creation canceled."});
    EXPECT_EQ(Value(QStringLiteral("select text from f")), QStringLiteral("hello"));
}

}  // namespace
