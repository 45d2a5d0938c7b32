// The import and export windows over real files and a real database: the
// guesses a file fills the window with, an import whose rows keep their
// text, a stop and a broken file that leave the table as it was, and an
// export of all rows or the chosen ones that reads back the same.
#include "QtPrinters.h"
#include "ShellTestSupport.h"
#include "TempDir.h"

#include "data/DLTable.h"
#include "engine/DLSQLiteDatabase.h"
#include "shell/TextDialogs.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTimer>

using namespace brindle;
using namespace brindle::test;

namespace {

class TextDialogsTest : public ::testing::Test {
protected:
    void SetUp() override {
        db.FShowWaitCursor = false;
        db.SetFileName(dir.file(QStringLiteral("text.db")));
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        // Any error box is noted and closed, so that a failure cannot hang.
        QObject::connect(&boxWatch, &QTimer::timeout, [this] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                boxes << box->text();
                box->close();
            }
        });
        boxWatch.start(10);
    }
    QString WriteFile(const QString& Name, const QByteArray& Bytes) {
        const QString path = dir.file(Name);
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(Bytes);
        return path;
    }
    QString Value(const QString& SQL) { return db.GetStringValue(SQL); }
    // The rows of a table as "typeof:quote" cells, in rowid order.
    QString Rows(const QString& Table) {
        QStringList columns;
        QStringList names;
        db.GetValues(QStringLiteral("select name from pragma_table_info('%1')").arg(Table), names);
        for (const QString& n : names)
            columns << QStringLiteral("typeof(\"%1\") || ':' || quote(\"%1\")").arg(n);
        return Value(
            QStringLiteral("select group_concat(r, ' | ') from (select %1 as r from \"%2\" order by rowid)")
                .arg(columns.join(QStringLiteral(" || ',' || ")), Table));
    }

    TempDir dir;
    TDLSQLiteDatabase db;
    QTimer boxWatch;
    QStringList boxes;
};

}  // namespace

TEST_F(TextDialogsTest, AFileFillsTheWindowAndImportsWithItsValuesKept) {
    db.Execute(QStringLiteral("create table other(x)"));
    const QString path = WriteFile(QStringLiteral("people.csv"),
                                   "\xEF\xBB\xBF"
                                   "id;code;name;amount\r\n"
                                   "1;007;\"Smith; John\";12.5\r\n"
                                   "2;;\"two\nlines\";-3\r\n"
                                   "3;010;\"\xC3\xA9t\xC3\xA9\";\r\n");
    TfrmTextImport form(db);
    form.SetFileName(path);
    EXPECT_TRUE(form.rbNewTable->isChecked());
    EXPECT_EQ(form.edNewTable->text(), QStringLiteral("people"));
    EXPECT_EQ(form.GetDelimiter(), u';');
    EXPECT_EQ(form.GetEncoding().CodePage(), 65001);
    EXPECT_TRUE(form.cbFieldNames->isChecked());

    form.ProcessImport();
    EXPECT_TRUE(boxes.isEmpty()) << boxes.join(u'\n').toStdString();
    EXPECT_EQ(form.ImportedTable(), QStringLiteral("people"));
    EXPECT_TRUE(form.mmoLog->toPlainText().contains(QLatin1String("Done: 3 rows imported")))
        << form.mmoLog->toPlainText().toStdString();
    // Codes stay text with their zeros; a column of numbers with a fraction
    // is REAL throughout; an empty unquoted value is NULL; text keeps its
    // line break and accents.
    EXPECT_EQ(Rows(QStringLiteral("people")),
              QStringLiteral("integer:1,text:'007',text:'Smith; John',real:12.5 | "
                             "integer:2,null:NULL,text:'two\nlines',real:-3.0 | "
                             "integer:3,text:'010',text:'\u00E9t\u00E9',null:NULL"));

    // The same file again, into the table it made, after emptying it.
    form.SetFileName(path);
    EXPECT_TRUE(form.rbExistingTable->isChecked());
    EXPECT_EQ(form.cbTables->currentText(), QStringLiteral("people"));
    form.cbDeleteData->setChecked(true);
    form.ProcessImport();
    EXPECT_TRUE(boxes.isEmpty()) << boxes.join(u'\n').toStdString();
    EXPECT_EQ(Value(QStringLiteral("select count(*) from people")), QStringLiteral("3"));
}

TEST_F(TextDialogsTest, AStopOrABrokenFileLeavesTheTableAsItWas) {
    db.Execute(QStringLiteral("create table t(a, b); insert into t values (1, 'kept'), (2, 'kept')"));
    QByteArray big = "a,b\n";
    for (int i = 0; i < 200000; ++i) big += QByteArray::number(i) + ",row\n";
    const QString bigFile = WriteFile(QStringLiteral("t.csv"), big);
    const QString before = Rows(QStringLiteral("t"));

    TfrmTextImport form(db);
    form.SetFileName(bigFile);
    ASSERT_TRUE(form.rbExistingTable->isChecked());
    form.cbDeleteData->setChecked(true);
    // Stop is clicked as soon as the window gets a turn, half-way in.
    QTimer::singleShot(0, form.btnStart, [&form] {
        EXPECT_TRUE(form.Importing());
        EXPECT_EQ(form.btnStart->text(), QStringLiteral("Stop"));
        form.btnStart->click();
    });
    form.ProcessImport();
    EXPECT_FALSE(form.Importing());
    EXPECT_EQ(form.btnStart->text(), QStringLiteral("Start"));
    EXPECT_TRUE(form.mmoLog->toPlainText().contains(QLatin1String("Import stopped")))
        << form.mmoLog->toPlainText().toStdString();
    EXPECT_TRUE(form.ImportedTable().isEmpty());
    EXPECT_EQ(Rows(QStringLiteral("t")), before);

    // A quote that never closes: the error names the line it began on, and
    // nothing of the rows before it stays.
    const QString broken = WriteFile(QStringLiteral("t2.csv"), "a,b\n1,x\n2,\"open\n3,y\n");
    form.SetFileName(broken);
    form.rbExistingTable->setChecked(true);
    form.cbTables->setCurrentText(QStringLiteral("t"));
    form.cbDeleteData->setChecked(true);
    form.ProcessImport();
    ASSERT_EQ(boxes.size(), 1);
    EXPECT_TRUE(boxes.first().contains(QLatin1String("3"))) << boxes.first().toStdString();
    EXPECT_EQ(Rows(QStringLiteral("t")), before);
    EXPECT_TRUE(form.mmoLog->toPlainText().contains(QLatin1String("the table is as it was")));
}

TEST_F(TextDialogsTest, ExportOfAllOrChosenRowsReadsBackTheSame) {
    db.Execute(QStringLiteral(
        "create table src(id integer primary key, t text, r real, b blob);"
        "insert into src values (1, null, 0.1, x'00ff'), (2, '', 1e300, null), (3, 'a\"b,c', -2.5, null),"
        "(4, ' lead', 3.0, null)"));
    TDLTable table;
    table.SetDatabase(&db);
    table.SetTableName(QStringLiteral("src"));
    table.Open();

    const QString all = dir.file(QStringLiteral("all.csv"));
    {
        TfrmTextExport form(table, QStringLiteral("src"), {2, 4});
        EXPECT_EQ(form.edFileName->text(), QStringLiteral("src.csv"));
        EXPECT_TRUE(form.cbSelectedOnly->isChecked());
        form.cbSelectedOnly->setChecked(false);
        form.cbWritePreamble->setChecked(false);
        form.SetTextFileName(all);
        form.ProcessExport();
        EXPECT_TRUE(form.mmoLog->toPlainText().contains(QLatin1String("Done: 4 records exported")))
            << form.mmoLog->toPlainText().toStdString();
    }
    {
        TfrmTextExport form(table, QStringLiteral("src"), {2, 4});
        form.SetTextFileName(dir.file(QStringLiteral("chosen.tsv")));
        form.SetDelimiter(u'\t');
        form.cbWritePreamble->setChecked(false);
        form.ProcessExport();
    }
    QFile chosen(dir.file(QStringLiteral("chosen.tsv")));
    ASSERT_TRUE(chosen.open(QIODevice::ReadOnly));
    EXPECT_EQ(chosen.readAll(),
              QByteArray("id\tt\tr\tb\r\n2\t\t1.0e+300\t[BLOB_DATA]\r\n4\t lead\t3.0\t[BLOB_DATA]\r\n"));

    // What was written comes back through the import as it was stored.
    db.Execute(QStringLiteral("create table back(id integer primary key, t text, r real, b blob)"));
    TfrmTextImport import(db);
    import.SetFileName(all);
    import.rbExistingTable->setChecked(true);
    import.cbTables->setCurrentText(QStringLiteral("back"));
    import.ProcessImport();
    EXPECT_TRUE(boxes.isEmpty()) << boxes.join(u'\n').toStdString();
    EXPECT_EQ(Rows(QStringLiteral("back")), Rows(QStringLiteral("src")));
}
