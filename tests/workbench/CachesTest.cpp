// The per-alias containers: the open databases, the column choices with
// their stored form, the SQL history, the stack.
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteMetadata.h"
#include "schema/DLSQLiteParser.h"
#include "workbench/Caches.h"

#include <QSettings>
#include <gtest/gtest.h>

using namespace brindle;

TEST(MetaList, DatabasesAndTheirMetadataGoTogether) {
    ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
    InstallSQLParserServices();
    test::TempDir dir;
    TMetaList list;
    QStringList events;
    list.OnAdded = [&](TDLSQLiteDatabase& d) { events << QStringLiteral("added ") + d.AliasName(); };
    list.OnDeleting = [&](TDLSQLiteDatabase& d) { events << QStringLiteral("deleting ") + d.AliasName(); };
    list.OnRefreshMetadata = [&](const QString& alias) { events << QStringLiteral("refreshed ") + alias; };
    for (const char* alias : {"one", "Two"}) {
        auto db = std::make_unique<TDLSQLiteDatabase>();
        db->FShowWaitCursor = false;
        db->SetFileName(dir.file(QLatin1String(alias) + QStringLiteral(".db")));
        db->CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db->SetAliasName(QLatin1String(alias));
        auto md = std::make_unique<TDLSQLiteMetadata>(db.get());
        list.AddDatabase(std::move(db), std::move(md));
    }
    ASSERT_EQ(list.GetMetadataCount(), 2);
    EXPECT_EQ(list.FindMetadataByAliasName(QStringLiteral("Two")), &list.GetMetadata(1));
    EXPECT_EQ(list.FindDatabaseByAliasName(QStringLiteral("two")), nullptr);  // exact
    EXPECT_EQ(list.FindDatabaseByFileName(dir.file(QStringLiteral("one.db"))), &list.GetDatabase(0));
    EXPECT_EQ(list.FindDatabaseByFileName(dir.file(QStringLiteral("ONE.db"))), nullptr);

    list.GetDatabase(0).Execute(QStringLiteral("create table t(a)"));
    list.RefreshMetadata(QStringLiteral("one"));
    EXPECT_NE(list.GetMetadata(0).FindTable(QStringLiteral("t")), nullptr);
    list.DeleteDatabase(QStringLiteral("one"));
    list.DeleteDatabase(QStringLiteral("nobody"));
    EXPECT_EQ(list.GetMetadataCount(), 1);
    EXPECT_EQ(list.GetDatabase(0).AliasName(), QStringLiteral("Two"));
    EXPECT_EQ(events, QStringList({"added one", "added Two", "refreshed one", "deleting one"}));
}

TEST(ColumnsCache, ChoicesPerTableAndTheirStoredForm) {
    TColumnsCache cache;
    cache.SetColumns(QStringLiteral("db"), QStringLiteral("t"), {});
    EXPECT_EQ(cache.Count(), 0);  // nothing chosen, nothing kept
    cache.SetColumns(QStringLiteral("db"), QStringLiteral("t"), {QStringLiteral("a"), QStringLiteral("b")});
    cache.SetColumns(QStringLiteral("db"), QStringLiteral("u"), {QStringLiteral("x")});
    cache.SetColumns(QStringLiteral("other"), QStringLiteral("t"), {QStringLiteral("c")});
    // A rename in case only moves the choice: names match exactly.
    cache.RenameTable(QStringLiteral("db"), QStringLiteral("t"), QStringLiteral("T"));
    EXPECT_EQ(cache.Find(QStringLiteral("db"), QStringLiteral("t")), nullptr);
    ASSERT_NE(cache.Find(QStringLiteral("db"), QStringLiteral("T")), nullptr);
    cache.SetColumns(QStringLiteral("db"), QStringLiteral("u"), {});
    EXPECT_EQ(cache.Find(QStringLiteral("db"), QStringLiteral("u")), nullptr);

    test::TempDir dir;
    {
        QSettings ini(dir.file(QStringLiteral("s.ini")), QSettings::IniFormat);
        ini.setValue(QStringLiteral("Columns/Item_9_Alias"), QStringLiteral("stale"));
        cache.SaveToIniFile(ini, QStringLiteral("Columns"));
    }
    QSettings ini(dir.file(QStringLiteral("s.ini")), QSettings::IniFormat);
    EXPECT_EQ(ini.value(QStringLiteral("Columns/Count")).toInt(), 2);
    EXPECT_EQ(ini.value(QStringLiteral("Columns/Item_0_1")).toString(), QStringLiteral("b"));
    EXPECT_FALSE(ini.contains(QStringLiteral("Columns/Item_9_Alias")));  // the section was erased
    TColumnsCache loaded;
    loaded.LoadFromIniFile(ini, QStringLiteral("Columns"));
    ASSERT_NE(loaded.Find(QStringLiteral("db"), QStringLiteral("T")), nullptr);
    EXPECT_EQ(loaded.Find(QStringLiteral("db"), QStringLiteral("T"))->Columns, QStringList({"a", "b"}));
    loaded.RenameAlias(QStringLiteral("db"), QStringLiteral("db2"));
    loaded.ClearAlias(QStringLiteral("other"));
    EXPECT_EQ(loaded.Count(), 1);
    EXPECT_NE(loaded.Find(QStringLiteral("db2"), QStringLiteral("T")), nullptr);
}

TEST(DBCache, HistoryKeepsTwentyDifferentTextsNewestFirst) {
    TDBCache cache;
    EXPECT_TRUE(cache.GetValue(QStringLiteral("a")).isEmpty());
    EXPECT_EQ(cache.Count(), 0);  // asking creates nothing
    for (int i = 1; i <= 21; ++i) cache.AddSQL(QStringLiteral("a"), QStringLiteral("select %1").arg(i));
    TDBCache::TDBItem* item = cache.GetItem(QStringLiteral("a"));
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->SQLHistory.size(), TDBCache::MaxHistory);
    EXPECT_EQ(item->SQLHistory.first(), QStringLiteral("select 21"));
    EXPECT_FALSE(item->SQLHistory.contains(QStringLiteral("select 1")));
    cache.AddSQL(QStringLiteral("a"), QStringLiteral("select 5"));  // a repeat moves up
    EXPECT_EQ(item->SQLHistory.size(), TDBCache::MaxHistory);
    EXPECT_EQ(item->SQLHistory.first(), QStringLiteral("select 5"));
    EXPECT_EQ(item->SQLHistory.count(QStringLiteral("select 5")), 1);
    cache.AddSQL(QStringLiteral("a"), QStringLiteral("  \n"));
    cache.Compact();
    EXPECT_EQ(item->SQLHistory.first(), QStringLiteral("select 5"));
    cache.SetValue(QStringLiteral("b"), QStringLiteral("v"));
    cache.RenameAlias(QStringLiteral("b"), QStringLiteral("c"));
    EXPECT_EQ(cache.GetValue(QStringLiteral("c")), QStringLiteral("v"));
    cache.ClearAlias(QStringLiteral("a"));
    EXPECT_EQ(cache.Count(), 1);
}

TEST(LIFO, LastInFirstOutAndOwnership) {
    static int alive = 0;
    struct Counted {
        Counted() { ++alive; }
        ~Counted() { --alive; }
    };
    {
        TLIFO<Counted> owning(true);
        owning.Push(new Counted);
        owning.Push(new Counted);
        EXPECT_EQ(owning.Count(), 2);
    }
    EXPECT_EQ(alive, 0);
    TLIFO<int> stack;
    int a = 1, b = 2;
    EXPECT_EQ(stack.Pop(), nullptr);
    stack.Push(&a);
    stack.Push(&b);
    EXPECT_EQ(stack.Peek(), &b);
    EXPECT_EQ(stack.Pop(), &b);
    EXPECT_EQ(stack.Pop(), &a);
    EXPECT_TRUE(stack.Empty());
}
