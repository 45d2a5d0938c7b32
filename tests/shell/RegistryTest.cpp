// The open databases as the registry keeps them: aliases and files that
// stay unique, the recent list, the word about an open transaction, the set
// of databases remembered between runs, and what counts as related.
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/DLSQLiteDatabase.h"
#include "schema/DLSQLiteMetadata.h"
#include "shell/DBRegistry.h"
#include "workbench/Caches.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QSettings>

using namespace brindle;

namespace {

// Answers as a person would, and notes what the registry asked for.
struct TTestHost : IRegistryHost {
    QStringList Errors, Selected, Prompts;
    QList<int> Answers;      // transaction answers, in turn; then cancel
    QString EncodingAnswer;  // empty: cancel
    QMap<QString, bool> Expanded;
    TDLSQLiteDatabase* Current = nullptr;
    bool NodeCurrent = false;  // the current node is a database's own

    void ShowError(const QString& Message) override { Errors << Message; }
    void SelectDatabase(const QString& AliasName) override { Selected << AliasName; }
    int AskTransaction(const QString& Text) override {
        Prompts << Text;
        return Answers.isEmpty() ? taCancel : Answers.takeFirst();
    }
    bool SelectEncoding(const QString& Caption, QString& Encoding) override {
        Prompts << Caption + QStringLiteral(" [") + Encoding + u']';
        if (EncodingAnswer.isEmpty()) return false;
        Encoding = EncodingAnswer;
        return true;
    }
    bool GetExpanded(const QString& AliasName) override { return Expanded.value(AliasName, false); }
    void SetExpanded(const QString& AliasName, bool Value) override { Expanded[AliasName] = Value; }
    TDLSQLiteDatabase* CurrentDatabase() override { return Current; }
    bool DatabaseNodeIsCurrent() override { return NodeCurrent && Current; }
};

class RegistryTest : public ::testing::Test {
protected:
    // A database file with one table and the given rows.
    QString MakeDatabase(const QString& Name, int Rows = 0) {
        const QString path = dir.file(Name);
        TDLSQLiteDatabase db;
        db.FShowWaitCursor = false;
        db.SetFileName(path);
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
        db.Execute(QStringLiteral("create table t(a)"));
        for (int i = 0; i < Rows; ++i) db.Execute(QStringLiteral("insert into t values (%1)").arg(i));
        return path;
    }
    int Rows(const QString& File) {
        TDLSQLiteDatabase db;
        db.SetFileName(File);
        db.SetConnected(true);
        return db.GetStringValue(QStringLiteral("select count(*) from t")).toInt();
    }

    test::TempDir dir;
    TMetaList list;
    TDBCache cache;
    TColumnsCache columns;
    TTestHost host;
    TDatabaseRegistry registry{list, cache, columns, host};
};

TEST_F(RegistryTest, AliasesAndFilesStayUnique) {
    QDir().mkpath(dir.file(QStringLiteral("other")));
    const QString a = MakeDatabase(QStringLiteral("a.db"));
    const QString a2 = MakeDatabase(QStringLiteral("other/a.db"));
    const QString a3 = MakeDatabase(QStringLiteral("a.sqlite"));
    TDLSQLiteDatabase* first = registry.OpenDatabase(a);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->AliasName(), QStringLiteral("a"));
    EXPECT_EQ(registry.OpenDatabase(a2)->AliasName(), QStringLiteral("a(1)"));
    EXPECT_EQ(registry.PickAlias(a3), QStringLiteral("a(2)"));
    EXPECT_EQ(registry.PickAlias(QStringLiteral("/x/archive.2024.db")), QStringLiteral("archive.2024"));

    // The same file by another spelling of its path, under another alias:
    // the open one is selected and keeps its alias.
    const QString roundabout = dir.file(QStringLiteral("other/../a.db"));
    EXPECT_EQ(registry.OpenDatabase(roundabout, QStringLiteral("again")), first);
    EXPECT_EQ(host.Selected, QStringList{"a"});
    EXPECT_EQ(list.GetMetadataCount(), 2);

    EXPECT_EQ(registry.OpenDatabase(a3, QStringLiteral("a(1)")), nullptr);
    EXPECT_EQ(host.Errors, QStringList{"Alias a(1) is already in use."});
    EXPECT_EQ(list.GetMetadataCount(), 2);

    // Aliases of attachments compare without case, with main and temp too.
    first->SetConnected(true);
    first->Attach(a3, QStringLiteral("A"));
    EXPECT_EQ(registry.PickInternalAlias(a, *first), QStringLiteral("a(1)"));
    EXPECT_EQ(registry.PickInternalAlias(QStringLiteral("/x/Main.db"), *first), QStringLiteral("Main(1)"));
    EXPECT_EQ(registry.PickInternalAlias(QStringLiteral("/x/b.db"), *first), QStringLiteral("b"));

    // Renaming: the caches follow, a taken alias is refused.
    cache.AddSQL(QStringLiteral("a"), QStringLiteral("select 1"));
    columns.SetColumns(QStringLiteral("a"), QStringLiteral("t"), {QStringLiteral("a")});
    registry.RenameAlias(QStringLiteral("a"), QStringLiteral("a(1)"));
    EXPECT_EQ(host.Errors.last(), QStringLiteral("Alias a(1) is already in use."));
    registry.RenameAlias(QStringLiteral("a"), QStringLiteral("first"));
    EXPECT_EQ(first->AliasName(), QStringLiteral("first"));
    EXPECT_EQ(cache.GetItem(QStringLiteral("first"))->SQLHistory, QStringList{"select 1"});
    EXPECT_NE(columns.Find(QStringLiteral("first"), QStringLiteral("t")), nullptr);

    // Creating: the file and the alias must both be new.
    EXPECT_THROW(
        registry.CreateDatabase(a3, QStringLiteral("new"), QString(), QString(), QString(), QString()),
        ECustomException);
    try {
        registry.CreateDatabase(dir.file(QStringLiteral("n.db")), QStringLiteral("first"), QString(),
                                QString(), QString(), QString());
        FAIL();
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("Alias first already exists."));
    }
    TDLSQLiteDatabase* made = registry.CreateDatabase(dir.file(QStringLiteral("n.db")), QStringLiteral("n"),
                                                      QStringLiteral("UTF-16le"), QString(),
                                                      QStringLiteral("2048"), QStringLiteral("lots"));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->DatabaseParams().PageSize(), 2048);
    EXPECT_EQ(made->DatabaseParams().Encoding(), QStringLiteral("UTF-16le"));
    EXPECT_EQ(registry.FLastDatabaseDirectory, dir.path());
}

TEST_F(RegistryTest, RecentListHoldsWhatIsClosed) {
    const QString a = MakeDatabase(QStringLiteral("a.db")), b = MakeDatabase(QStringLiteral("b.db"));
    registry.FRecentDatabases = {b};
    TDLSQLiteDatabase* dbA = registry.OpenDatabase(a);
    TDLSQLiteDatabase* dbB = registry.OpenDatabase(b);
    EXPECT_TRUE(registry.FRecentDatabases.isEmpty());  // opening takes it off
    EXPECT_TRUE(registry.CloseDatabase(dbA));
    EXPECT_TRUE(registry.CloseDatabase(dbB));
    EXPECT_EQ(registry.FRecentDatabases, (QStringList{b, a}));
    EXPECT_EQ(list.GetMetadataCount(), 0);

    // A memory database reaches the list too.
    TDLSQLiteDatabase* memory = registry.OpenDatabase(QStringLiteral(":memory:"));
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(memory->AliasName(), QStringLiteral(":memory:"));
    registry.CloseDatabase(memory);
    EXPECT_EQ(registry.FRecentDatabases.first(), QStringLiteral(":memory:"));

    for (int i = 0; i < 9; ++i) registry.FRecentDatabases << QStringLiteral("/f%1.db").arg(i);
    EXPECT_EQ(registry.FRecentDatabases.size(), 12);
    registry.CleanupRecentDatabases();
    EXPECT_EQ(registry.FRecentDatabases.size(), 10);
    EXPECT_EQ(registry.FRecentDatabases.last(), QStringLiteral("/f6.db"));
}

TEST_F(RegistryTest, OpenTransactionIsAskedAbout) {
    const QString file = MakeDatabase(QStringLiteral("tx.db"), 1);
    TDLSQLiteDatabase* db = registry.OpenDatabase(file);
    db->SetConnected(true);
    host.Current = db;
    db->BeginTransaction();
    db->Execute(QStringLiteral("insert into t values (10)"));

    // Cancel keeps the database, open and in its transaction.
    EXPECT_FALSE(registry.CloseDatabase(db));
    ASSERT_EQ(host.Prompts.size(), 1);
    EXPECT_EQ(
        host.Prompts[0],
        QStringLiteral(
            "There is an active transaction on the database tx.\r\nWould you like to Commit or Rollback?"));
    EXPECT_EQ(list.GetMetadataCount(), 1);
    EXPECT_TRUE(db->GetInTransaction());

    // Rollback: the row is gone, the database closed.
    host.Answers = {taRollback};
    EXPECT_TRUE(registry.CloseDatabase(db));
    EXPECT_EQ(list.GetMetadataCount(), 0);
    EXPECT_EQ(Rows(file), 1);

    // Close all asks again after a cancel, until the answer is Commit.
    db = registry.OpenDatabase(file);
    db->SetConnected(true);
    host.Current = nullptr;  // no node selected: the list's first
    db->BeginTransaction();
    db->Execute(QStringLiteral("insert into t values (11)"));
    host.Prompts.clear();
    host.Answers = {taCancel, taCancel, taCommit};
    registry.CloseAllDatabases();
    EXPECT_EQ(host.Prompts.size(), 3);
    EXPECT_EQ(list.GetMetadataCount(), 0);
    EXPECT_EQ(Rows(file), 2);
}

TEST_F(RegistryTest, EmptyFileAsksForItsEncodingOnce) {
    // As the tree does: a new database's node becomes the current one.
    list.OnAdded = [this](TDLSQLiteDatabase& db) { host.Current = &db; };
    list.OnDeleting = [this](TDLSQLiteDatabase& db) {
        if (host.Current == &db) host.Current = nullptr;
    };
    host.NodeCurrent = true;
    const QString empty = dir.write(QStringLiteral("empty.db"), QByteArray());
    host.EncodingAnswer = QStringLiteral("UTF-16le");
    TDLSQLiteDatabase* db = registry.OpenDatabase(empty);
    ASSERT_NE(db, nullptr);
    EXPECT_TRUE(db->Connected());
    EXPECT_EQ(host.Prompts, QStringList{"Select encoding for empty.db [UTF-8]"});
    EXPECT_EQ(registry.FLastEncoding, QStringLiteral("UTF-16le"));
    EXPECT_EQ(db->DatabaseParams().Encoding(), QStringLiteral("UTF-16le"));
    registry.CloseDatabase(db);

    // Still empty: asked again, from the remembered choice; Cancel leaves
    // the engine's own default.
    host.Prompts.clear();
    host.EncodingAnswer.clear();
    db = registry.OpenDatabase(empty);
    EXPECT_EQ(host.Prompts, QStringList{"Select encoding for empty.db [UTF-16le]"});
    EXPECT_EQ(db->DatabaseParams().Encoding(), QStringLiteral("UTF-8"));
    registry.CloseDatabase(db);
    // An encoding given by the caller is taken without a question, and a
    // file with content is never asked about.
    host.Prompts.clear();
    db = registry.OpenDatabase(empty, QString(), QString(), QStringLiteral("UTF-16be"));
    EXPECT_EQ(db->DatabaseParams().Encoding(), QStringLiteral("UTF-16be"));
    registry.OpenDatabase(MakeDatabase(QStringLiteral("full.db")));
    EXPECT_TRUE(host.Prompts.isEmpty());
}

TEST_F(RegistryTest, RememberedDatabasesComeBack) {
    const QString a = MakeDatabase(QStringLiteral("a.db")), b = MakeDatabase(QStringLiteral("b.db"));
    const QString aux = MakeDatabase(QStringLiteral("aux.db")),
                  gone = MakeDatabase(QStringLiteral("gone.db"));
    TDLSQLiteDatabase* dbA = registry.OpenDatabase(a, QStringLiteral("Alpha"));
    registry.OpenDatabase(b);
    dbA->SetConnected(true);
    dbA->Attach(aux, QStringLiteral("extra"));
    dbA->Attach(gone, QStringLiteral("lost"));
    host.Expanded = {{QStringLiteral("Alpha"), true}, {QStringLiteral("b"), false}};

    const QString ini = dir.file(QStringLiteral("store.ini"));
    {
        QSettings store(ini, QSettings::IniFormat);
        store.setValue(QStringLiteral("DB/DB_7_FileName"), QStringLiteral("stale"));
        registry.SaveDatabases(store);
    }
    QSettings store(ini, QSettings::IniFormat);
    EXPECT_EQ(store.value(QStringLiteral("Persistent/DBCount")).toInt(), 2);
    EXPECT_FALSE(store.contains(QStringLiteral("DB/DB_7_FileName")));  // the section starts anew
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_FileName")).toString(), a);
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_AliasName")).toString(), QStringLiteral("Alpha"));
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_Encoding")).toString(), QStringLiteral("UTF-8"));
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_DBCount")).toInt(), 2);
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_0_DatabaseName")).toString(), QStringLiteral("extra"));
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_0_FileName")).toString(), aux);
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_ExtensionCount")).toInt(), 0);
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_Expanded")).toString(), QStringLiteral("1"));
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_1_Expanded")).toString(), QStringLiteral("0"));
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_1_DBCount")).toInt(), 0);  // not connected: none
    EXPECT_FALSE(store.contains(QStringLiteral("DB/DB_0_Key")));

    // A new run: the attachment whose file went, and a database whose file
    // went, are passed over without a word.
    ASSERT_TRUE(QFile::remove(gone));
    store.setValue(QStringLiteral("Persistent/DBCount"), 3);
    store.setValue(QStringLiteral("DB/DB_2_FileName"), dir.file(QStringLiteral("missing.db")));
    store.setValue(QStringLiteral("DB/DB_2_AliasName"), QStringLiteral("missing"));
    TMetaList list2;
    TTestHost host2;
    TDatabaseRegistry registry2(list2, cache, columns, host2);
    registry2.LoadDatabases(store);
    EXPECT_TRUE(host2.Errors.isEmpty());
    ASSERT_EQ(list2.GetMetadataCount(), 2);
    TDLSQLiteDatabase& reopened = list2.GetDatabase(0);
    EXPECT_EQ(reopened.AliasName(), QStringLiteral("Alpha"));
    EXPECT_EQ(reopened.FileName(), a);
    EXPECT_EQ(reopened.AttachedDatabaseCount(), 1);
    EXPECT_EQ(reopened.GetAttachedFileName(QStringLiteral("extra")), aux);
    EXPECT_EQ(list2.GetDatabase(1).AliasName(), QStringLiteral("b"));
    EXPECT_EQ(host2.Expanded.value(QStringLiteral("Alpha")), true);
    EXPECT_EQ(host2.Expanded.value(QStringLiteral("b")), false);
    EXPECT_FALSE(QFile::exists(dir.file(QStringLiteral("missing.db"))));  // nothing made in its place
    EXPECT_FALSE(QFile::exists(gone));
    // The next save writes what is open now.
    registry2.SaveDatabases(store);
    EXPECT_EQ(store.value(QStringLiteral("DB/DB_0_DBCount")).toInt(), 1);
    EXPECT_EQ(store.value(QStringLiteral("Persistent/DBCount")).toInt(), 2);
}

TEST_F(RegistryTest, RegistrationAndRelatedDatabases) {
    const QString a = MakeDatabase(QStringLiteral("a.db")), b = MakeDatabase(QStringLiteral("b.db"));
    TDLSQLiteDatabase* dbA = registry.OpenDatabase(a);
    TDLSQLiteDatabase* dbB = registry.OpenDatabase(b);
    EXPECT_TRUE(TDatabaseRegistry::Related(dbA, dbA));
    EXPECT_FALSE(TDatabaseRegistry::Related(dbA, dbB));
    dbA->SetConnected(true);
    dbA->Attach(b, QStringLiteral("bee"));
    EXPECT_TRUE(TDatabaseRegistry::Related(dbA, dbB));
    EXPECT_TRUE(TDatabaseRegistry::Related(dbB, dbA));
    TDLSQLiteDatabase* m1 = registry.OpenDatabase(QStringLiteral(":memory:"));
    m1->SetConnected(true);
    m1->Attach(QStringLiteral(":memory:"), QStringLiteral("scratch"));
    EXPECT_FALSE(TDatabaseRegistry::Related(m1, dbA));

    // Another file under a new alias: the old caches go.
    const QString c = MakeDatabase(QStringLiteral("c.db"));
    cache.AddSQL(QStringLiteral("b"), QStringLiteral("select 2"));
    registry.EditRegistration(QStringLiteral("b"), c, QStringLiteral("sea"));
    ASSERT_NE(list.FindDatabaseByAliasName(QStringLiteral("sea")), nullptr);
    EXPECT_EQ(list.FindDatabaseByAliasName(QStringLiteral("sea"))->FileName(), c);
    EXPECT_EQ(list.FindDatabaseByAliasName(QStringLiteral("b")), nullptr);
    EXPECT_EQ(cache.GetItem(QStringLiteral("b")), nullptr);
    // The same file: only the alias changes. A file that is not there, or
    // a blank alias, changes nothing.
    registry.EditRegistration(QStringLiteral("sea"), c, QStringLiteral("C"));
    EXPECT_EQ(list.FindDatabaseByFileName(c)->AliasName(), QStringLiteral("C"));
    registry.EditRegistration(QStringLiteral("C"), dir.file(QStringLiteral("nope.db")), QStringLiteral("x"));
    registry.EditRegistration(QStringLiteral("C"), a, QStringLiteral("  "));
    EXPECT_EQ(list.FindDatabaseByFileName(c)->AliasName(), QStringLiteral("C"));

    EXPECT_TRUE(TDatabaseRegistry::IsValidDatabase(a));
    EXPECT_TRUE(TDatabaseRegistry::IsValidDatabase(dir.write(QStringLiteral("zero.db"), QByteArray())));
    EXPECT_FALSE(TDatabaseRegistry::IsValidDatabase(dir.write(QStringLiteral("text.db"), "hello, world\n")));
    EXPECT_FALSE(TDatabaseRegistry::IsValidDatabase(dir.file(QStringLiteral("none.db"))));
}

TEST(Registry, FilterAndStatementsThatChangeProperties) {
    EXPECT_EQ(
        TDatabaseRegistry::GetDefaultDBFilter(),
        QStringLiteral("Database Files (*.db, *.db3, *.sqlite)|*.db;*.db3;*.sqlite|Any File (*.*)|*.*"));
    EXPECT_EQ(
        TDatabaseRegistry::GetDefaultDBFilter({QStringLiteral("*.abc"), QStringLiteral("*.DB")}),
        QStringLiteral(
            "Database Files (*.abc, *.db, *.db3, *.sqlite)|*.abc;*.db;*.db3;*.sqlite|Any File (*.*)|*.*"));
    for (const char* sql :
         {"create table x(a)", "  insert into t values (1)", "DROP VIEW v", "pragma user_version = 3",
          "vacuum", "attach 'x' as y", "create virtual table v using fts4(a)", "release s"})
        EXPECT_TRUE(TDatabaseRegistry::ChangesDatabaseProperties(QLatin1String(sql))) << sql;
    for (const char* sql :
         {"select * from t", "pragma user_version", "savepoint s", "begin", "explain select 1"})
        EXPECT_FALSE(TDatabaseRegistry::ChangesDatabaseProperties(QLatin1String(sql))) << sql;
}

}  // namespace
