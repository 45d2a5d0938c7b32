// Transactions as the engine sees them, the savepoints a script leaves open,
// and every option of the pragma table read and written on a real file.
#include "EngineTestSupport.h"
#include "TempDir.h"

#include "engine/DLPragmaOptions.h"
#include "engine/Exceptions.h"

#include <gtest/gtest.h>
#include <QSet>

using namespace brindle;
using namespace brindle::test;

namespace {

class TransactionsAndPragmasTest : public ::testing::Test {
protected:
    void SetUp() override { db = createDatabase(dir.file(QStringLiteral("main.db"))); }

    QStringList savepoints() const {
        QStringList list;
        for (int i = 0; i < db->SavepointCount(); ++i) list.append(db->Savepoints(i));
        return list;
    }
    static QString messageOf(const std::function<void()>& call) {
        try {
            call();
        } catch (const ECustomException& e) {
            return e.message();
        }
        return QStringLiteral("(nothing raised)");
    }
    QString value(const char* name, const QString& database = QStringLiteral("main")) const {
        return db->PragmaByName(QString::fromLatin1(name))->GetValue(database);
    }

    TempDir dir;
    std::unique_ptr<TDLSQLiteDatabase> db;
};

TEST_F(TransactionsAndPragmasTest, TransactionsAndSavepointsFollowTheEngine) {
    db->Execute(QStringLiteral("create table t(a); begin"));
    EXPECT_EQ(messageOf([&] { db->BeginTransaction(); }), QStringLiteral("Transaction already open"));
    db->Rollback();
    EXPECT_EQ(messageOf([&] { db->Commit(); }), QStringLiteral("No open transaction"));
    EXPECT_EQ(messageOf([&] { db->Rollback(); }), QStringLiteral("No open transaction"));

    // A name used twice: RELEASE takes the later one and all after it.
    db->Execute(QStringLiteral("savepoint a; savepoint b; savepoint A; savepoint c; release a"));
    EXPECT_EQ(savepoints(), (QStringList{"a", "b"}));
    db->Execute(QStringLiteral("savepoint d; rollback transaction to savepoint a"));
    EXPECT_EQ(savepoints(), QStringList{"a"});
    // Releasing the outermost one ends the transaction it opened...
    db->Execute(QStringLiteral("release savepoint a"));
    EXPECT_FALSE(db->GetInTransaction());
    // ...but not one that was open before it.
    db->Execute(QStringLiteral("begin; savepoint x; savepoint y; release x"));
    EXPECT_TRUE(savepoints().isEmpty());
    EXPECT_TRUE(db->GetInTransaction());
    db->Execute(QStringLiteral("savepoint z; insert into t values (2); rollback to z"));
    EXPECT_EQ(savepoints(), QStringList{"z"});
    db->Execute(QStringLiteral("savepoint w; rollback"));
    EXPECT_TRUE(savepoints().isEmpty());
    EXPECT_FALSE(db->GetInTransaction());
}

TEST_F(TransactionsAndPragmasTest, EveryWritableOptionReadsBackWhatWasWritten) {
    struct Case {
        const char* name;
        const char* written;
        const char* read;
    };
    // In this order: encoding, page size and auto-vacuum only change while
    // the file is empty, and a journal mode other than delete fills it.
    const Case cases[] = {
        {"encoding", "UTF-16le", "UTF-16le"},
        {"page_size", "8192", "8192"},
        {"auto_vacuum", "incremental", "incremental"},
        {"application_id", "42", "42"},
        {"automatic_index", "off", "off"},
        {"busy_timeout", "1234", "1234"},
        {"cache_size", "-500", "-500"},
        {"case_sensitive_like", "on", "on"},
        {"checkpoint_fullfsync", "on", "on"},
        {"foreign_keys", "off", "off"},
        {"fullfsync", "on", "on"},
        {"ignore_check_constraints", "on", "on"},
        {"journal_size_limit", "4096", "4096"},
        {"locking_mode", "exclusive", "exclusive"},
        {"locking_mode", "normal", "normal"},
        {"max_page_count", "5000", "5000"},
        {"mmap_size", "65536", "65536"},
        {"read_uncommitted", "on", "on"},
        {"recursive_triggers", "on", "on"},
        {"reverse_unordered_selects", "on", "on"},
        {"schema_version", "77", "77"},
        {"secure_delete", "off", "off"},
        // Numeric answers read as the option's words, unless out of range.
        {"synchronous", "normal", "normal"},
        {"synchronous", "extra", "3"},
        {"temp_store", "memory", "memory"},
        {"user_version", "7", "7"},
        {"wal_autocheckpoint", "500", "500"},
        {"writable_schema", "on", "on"},
        {"writable_schema", "off", "off"},
        {"journal_mode", "persist", "persist"},
        {"journal_mode", "truncate", "truncate"},
        {"journal_mode", "memory", "memory"},
        {"journal_mode", "off", "off"},
        {"journal_mode", "wal", "wal"},
        {"journal_mode", "delete", "delete"},
        // The linked engine dropped these; they read as nothing and take
        // any value without complaint.
        {"legacy_file_format", "on", ""},
        {"parser_trace", "on", ""},
        {"vdbe_addoptrace", "on", ""},
        {"vdbe_listing", "on", ""},
        {"vdbe_trace", "on", ""},
    };
    QSet<QString> covered;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TSQLitePragmaOption* option = db->PragmaByName(QString::fromLatin1(c.name));
        ASSERT_NE(option, nullptr);
        EXPECT_TRUE(option->Flags() & pfWrite);
        option->SetValue(QStringLiteral("main"), QString::fromLatin1(c.written));
        EXPECT_EQ(option->GetValue(QStringLiteral("main")), QString::fromLatin1(c.read));
        covered.insert(option->Name());
    }
    QSet<QString> writable;
    for (int i = 0; i < db->PragmaCount(); ++i)
        if (db->Pragma(i)->Flags() & pfWrite) writable.insert(db->Pragma(i)->Name());
    EXPECT_EQ(covered, writable);
    EXPECT_EQ(db->PragmaCount() - writable.size(), 4);
}

TEST_F(TransactionsAndPragmasTest, ReadOnlyListsCountsAndQualifiedNames) {
    db->Execute(QStringLiteral("create table t(a)"));
    EXPECT_TRUE(value("collation_list").contains(QStringLiteral("[NOCASE], ")));
    EXPECT_TRUE(value("compile_options").contains(QStringLiteral("[THREADSAFE=1]")));
    EXPECT_EQ(value("freelist_count"), QStringLiteral("0"));
    EXPECT_EQ(value("page_count"), QStringLiteral("2"));
    // The engine answers 0 and 1; the options show their words.
    EXPECT_EQ(value("case_sensitive_like"), QStringLiteral("off"));
    EXPECT_EQ(value("foreign_keys", QString()), QStringLiteral("on"));
    EXPECT_EQ(db->PragmaByName(QStringLiteral("Page_Size")), db->PragmaByName(QStringLiteral("page_size")));
    EXPECT_EQ(db->PragmaByName(QStringLiteral("no_such_pragma")), nullptr);

    const QString other = dir.file(QStringLiteral("other.db"));
    createDatabase(other, QStringLiteral("create table u(b); pragma user_version = 5"));
    db->Attach(other, QStringLiteral("aux 1"));
    db->PragmaByName(QStringLiteral("user_version"))->SetValue(QStringLiteral("main"), QStringLiteral("9"));
    EXPECT_EQ(value("user_version", QStringLiteral("aux 1")), QStringLiteral("5"));
    EXPECT_EQ(value("user_version"), QStringLiteral("9"));

    // One schema version per database, in database order.
    const QString before = db->SchemaVersion();
    EXPECT_EQ(before, value("schema_version") + u',' + value("schema_version", QStringLiteral("aux 1")));
    db->Execute(QStringLiteral("create table [aux 1].v(c)"));
    EXPECT_NE(db->SchemaVersion(), before);

    EXPECT_EQ(db->IntegrityCheck(), QStringLiteral("ok"));
    db->SetConnected(false);
    EXPECT_EQ(messageOf([&] { db->IntegrityCheck(); }), QStringLiteral("Database not connected."));
}

}  // namespace
