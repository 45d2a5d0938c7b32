// Every table, virtual table and view of the demo database reads through
// the dataset the Data page uses: every row, every value, and the same
// count SQLite gives.
#include "TempDir.h"

#include "data/DLTable.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteParser.h"

#include <QFile>
#include <gtest/gtest.h>

using namespace brindle;

TEST(DemoData, EveryObjectWithRowsReadsWhole) {
    ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
    InstallSQLParserServices();
    // A copy: reading must not depend on, or touch, the built file.
    brindle::test::TempDir dir;
    const QString path = dir.file(QStringLiteral("demo.db3"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(DEMO_DB), path));
    TDLSQLiteDatabase db;
    db.FShowWaitCursor = false;
    db.SetFileName(path);
    db.SetConnected(true);
    QStringList names;
    db.GetTableNames(names, false);
    db.GetViewNames(names);
    ASSERT_GT(names.size(), 20);
    for (const QString& name : names) {
        SCOPED_TRACE(name.toStdString());
        TDLTable t;
        t.SetDatabase(&db);
        t.SetTableName(name);
        t.Open();
        int rows = 0;
        for (t.First(); !t.Eof(); t.Next(), ++rows)
            for (int i = 0; i < t.Fields().Count(); ++i) (void)t.Fields()[i].Value();
        EXPECT_EQ(rows, db.GetStringValue(QStringLiteral("select count(*) from ") + QuoteObject(name)).toInt());
        EXPECT_EQ(t.GetRecordCount(), rows);
    }
}
