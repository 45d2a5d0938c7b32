// SQL scripts written and run: the exact layout of a script, every value
// written so that it reads back as stored, round trips through our loader
// and through the sqlite3 shell both ways, scripts of any size read in
// slices, and what a failure, a wrong encoding or an abort leave behind.
#include "TransferTestSupport.h"

#include "interchange/DataTransfer.h"
#include "interchange/ScriptExport.h"
#include "interchange/ScriptLoad.h"

#include <QBuffer>
#include <QProcess>

using namespace brindle;
using namespace brindle::test;

namespace {

class ScriptTest : public TransferTest {
protected:
    // The whole of Source as a script, as brindle-cli writes it.
    QByteArray Dump(TDLSQLiteDatabase& Source, const std::function<void(TSQLiteToScript&)>& Set = {}) {
        auto md = Metadata(Source);
        TSQLiteToScript script;
        script.FFileName = QStringLiteral("a.sql");
        script.FSourceMetadata = md.get();
        script.FSourceDatabase = &Source;
        script.FEncoding = TEncoding::UTF8();
        script.FWriteEncodingPreamble = false;
        script.FUseTransaction = true;
        AddTransferObjects(script.FObjects, *md, {}, true);
        if (Set) Set(script);
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        script.SQLiteToScript(buffer, SortObjectsByDependencies(script.FObjects));
        return buffer.data();
    }

    // Runs a script file; the failure, empty without one.
    QString Load(TDLSQLiteDatabase& Dest, const QString& File, const TEncoding& Encoding = TEncoding::UTF8(),
                 const std::function<void(TScriptToSQLite&)>& Set = {}) {
        TScriptToSQLite load;
        load.FFileName = File;
        load.FDestDatabase = &Dest;
        load.FEncoding = Encoding;
        if (Set) Set(load);
        load.Execute();
        return load.ErrorMessage();
    }

    // The progress maximum of a run: 1000 when read in slices, the count of
    // statements when read whole.
    int ProgressMax(TDLSQLiteDatabase& Dest, const QString& File) {
        int max = -1;
        EXPECT_EQ(Load(Dest, File, TEncoding::UTF8(),
                       [&max](TScriptToSQLite& L) {
                           L.FOnProgress = [&max](TDataTransfer&, int, int Max) { max = Max; };
                       }),
                  QString());
        return max;
    }

    // The sqlite3 shell of the system, as a user runs it.
    static bool Shell(const QString& Database, const QString& Command, QByteArray* Out = nullptr) {
        QProcess p;
        p.start(QStringLiteral("sqlite3"), {Database, Command});
        if (!p.waitForFinished(60000) || p.exitCode() != 0) {
            ADD_FAILURE() << p.readAllStandardError().toStdString();
            return false;
        }
        if (Out) *Out = p.readAllStandardOutput();
        return true;
    }
};

}  // namespace

TEST_F(ScriptTest, TheLayoutOfAScript) {
    auto db = Open(QStringLiteral("small.db"));
    db->Execute(
        QStringLiteral("create table t(a integer primary key, b text not null);"
                       "insert into t values (1, 'x');"
                       "create view v as select b from t;"
                       "create trigger tr after insert on t begin select 1; end;"));
    db->SetAliasName(QStringLiteral("small"));
    EXPECT_EQ(QString::fromUtf8(Dump(*db, [](TSQLiteToScript& S) { S.FIncludeDBProperties = true; })),
              QStringLiteral("/*********/\r\n"
                             "/*       */\r\n"
                             "/* a.sql */\r\n"
                             "/*       */\r\n"
                             "/*********/\r\n"
                             "\r\n"
                             "/* Disable Foreign Keys */\r\n"
                             "pragma foreign_keys = off;\r\n"
                             "/* Begin Transaction */\r\n"
                             "begin transaction;\r\n"
                             "\r\n"
                             "/* Database [small] */\r\n"
                             "pragma page_size=4096;\r\n"
                             "pragma auto_vacuum=0;\r\n"
                             "pragma encoding='UTF-8';\r\n"
                             "\r\n"
                             "/* Table structure [t] */\r\n"
                             "CREATE TABLE [t] (\r\n"
                             "  [a] INTEGER PRIMARY KEY, \r\n"
                             "  [b] TEXT NOT NULL);\r\n"
                             "\r\n"
                             "/* Data [t] */\r\n"
                             "insert into [t] values(1, 'x');\r\n"
                             "\r\n"
                             "\r\n"
                             "/* View [v] */\r\n"
                             "CREATE VIEW [v] AS \r\n"
                             "select b from t;\r\n"
                             "\r\n"
                             "/* Triggers for table [t] */\r\n"
                             "CREATE TRIGGER [tr]\r\n"
                             "after insert\r\n"
                             "ON [t]\r\n"
                             "begin select 1; end;\r\n"
                             "\r\n"
                             "/* Commit Transaction */\r\n"
                             "commit transaction;\r\n"
                             "\r\n"
                             "/* Enable Foreign Keys */\r\n"
                             "pragma foreign_keys = on;\r\n"));
    // Without comments three stay: they say what the script does to the
    // connection that runs it.
    EXPECT_EQ(QString::fromUtf8(Dump(*db,
                                     [](TSQLiteToScript& S) {
                                         S.FIncludeComments = false;
                                         S.FUseTransaction = false;
                                     })),
              QStringLiteral("/* Disable Foreign Keys */\r\n"
                             "pragma foreign_keys = off;\r\n"
                             "CREATE TABLE [t] (\r\n"
                             "  [a] INTEGER PRIMARY KEY, \r\n"
                             "  [b] TEXT NOT NULL);\r\n"
                             "\r\n"
                             "insert into [t] values(1, 'x');\r\n"
                             "\r\n"
                             "\r\n"
                             "CREATE VIEW [v] AS \r\n"
                             "select b from t;\r\n"
                             "\r\n"
                             "CREATE TRIGGER [tr]\r\n"
                             "after insert\r\n"
                             "ON [t]\r\n"
                             "begin select 1; end;\r\n"
                             "\r\n"
                             "/* Enable Foreign Keys */\r\n"
                             "pragma foreign_keys = on;\r\n"));
}

// Each value as the shortest text that reads back as stored: whatever the
// declared type, a REAL to the last bit, an integer in full, text as text.
TEST_F(ScriptTest, ValuesAreWrittenAsStored) {
    auto db = Open(QStringLiteral("values.db"));
    db->Execute(QStringLiteral(
        "create table v(n integer primary key, x, d DATE);"
        "insert into v(x, d) values (9007199254740993, 'not a date'), (-9223372036854775808, '2024-02-29 "
        "13:45'),"
        "  (0.1 + 0.2, 2.5), (1.0 / 3, 20240229), (1e300, null), (1.0, x''), (9e999, x'00ff'), ('007', "
        "-9e999),"
        "  ('it''s', 'a' || char(13, 10) || 'b'), (cast(x'80' as text), cast(x'610062' as text));"));
    const QString text = QString::fromUtf8(Dump(*db));
    for (const char* line :
         {"insert into [v] values(1, 9007199254740993, 'not a date');",
          "insert into [v] values(2, -9223372036854775808, '2024-02-29 13:45');",
          "insert into [v] values(3, 0.30000000000000004, 2.5);",
          "insert into [v] values(4, 0.3333333333333333, 20240229);",
          "insert into [v] values(5, 1e+300, null);", "insert into [v] values(6, 1.0, x'');",
          "insert into [v] values(7, 9.0e+999, x'00FF');", "insert into [v] values(8, '007', -9.0e+999);",
          "insert into [v] values(9, 'it''s', ('a' || char(13) || '\nb'));",
          "insert into [v] values(10, cast(x'80' as text), cast(x'610062' as text));"})
        EXPECT_TRUE(text.contains(QString::fromUtf8(line))) << line;
    const QString file = dir.write(QStringLiteral("values.sql"), text.toUtf8());
    auto back = Open(QStringLiteral("back.db"));
    EXPECT_EQ(Load(*back, file), QString());
    EXPECT_EQ(Differences(*db, *back), QStringList());
}

// The fixture through a script and back, in UTF-8 with its mark and in
// UTF-16; and through the sqlite3 shell, which must read it alike.
TEST_F(ScriptTest, EverythingComesBackThroughAScript) {
    auto source = Fixture();
    for (const TEncoding& encoding : {TEncoding::UTF8(), TEncoding::Unicode()}) {
        SCOPED_TRACE(encoding.Name().toStdString());
        const QString file =
            dir.write(encoding.Name() + QStringLiteral(".sql"), Dump(*source, [&](TSQLiteToScript& S) {
                          S.FEncoding = encoding;
                          S.FWriteEncodingPreamble = true;
                          S.FIncludeDBProperties = true;
                      }));
        auto back = Open(encoding.Name() + QStringLiteral(".db"));
        EXPECT_EQ(Load(*back, file, encoding), QString());
        EXPECT_EQ(Differences(*source, *back), QStringList());
    }
    const QString file = dir.file(QStringLiteral("UTF-8.sql"));
    ASSERT_TRUE(Shell(dir.file(QStringLiteral("shell.db")), QStringLiteral(".read ") + file));
    auto shell = Open(QStringLiteral("shell.db"));
    EXPECT_EQ(Differences(*source, *shell), QStringList());
}

// A dump of the sqlite3 shell runs here as the shell itself runs it. Its
// text that is no UTF-8 it writes as raw bytes, which no text file holds,
// so that row goes first.
TEST_F(ScriptTest, AShellDumpLoadsAsTheShellLoadsIt) {
    Fixture()->Execute(QStringLiteral("delete from typed where n = 36"));
    QByteArray dump;
    ASSERT_TRUE(Shell(dir.file(QStringLiteral("source.db")), QStringLiteral(".dump"), &dump));
    const QString file = dir.write(QStringLiteral("shell.sql"), dump);
    ASSERT_TRUE(Shell(dir.file(QStringLiteral("shell.db")), QStringLiteral(".read ") + file));
    auto shell = Open(QStringLiteral("shell.db"));
    EXPECT_EQ(Load(*Open(QStringLiteral("ours.db")), file), QString());
    // The shell writes virtual tables straight into the catalogue, which
    // the connection that ran it reads again only when it opens anew.
    auto ours = Open(QStringLiteral("ours.db"));
    EXPECT_EQ(Differences(*shell, *ours), QStringList());
}

// A script of 10 MiB or more is read in slices of 262144 characters; a
// statement across the edge of a slice (one longer than a slice, a trigger
// whose body the edge cuts) runs once and whole, and the last one needs no
// semicolon. Below the line the script is read whole.
TEST_F(ScriptTest, LargeScriptsAreReadInSlices) {
    QByteArray script = "begin;\ncreate table s(v text);\ncreate table log(n);\n";
    script += "insert into s values('" + QByteArray(600000, 'x') + "');\n";
    script += QByteArray(TScriptToSQLite::SLICE_SIZE * 3 - 40 - script.size(), ' ');
    script += "create trigger s_log after insert on s begin insert into log values (new.v); end;\n";
    while (script.size() < TScriptToSQLite::LARGE_SCRIPT_SIZE + 1000)
        script += "insert into s values('a row; with -- a semicolon /* and */ more');\n";
    script += "insert into s values('end');\ncommit";
    auto db = Open(QStringLiteral("large.db"));
    EXPECT_EQ(ProgressMax(*db, dir.write(QStringLiteral("large.sql"), script)), 1000);
    EXPECT_EQ(Values(*db, QStringLiteral("select length(v) from s where rowid = 1")), QStringList{"600000"});
    const QString rows = QString::number(script.count("insert into s values") - 1);
    EXPECT_EQ(Values(*db, QStringLiteral("select count(*) - 1 from s")), QStringList{rows});
    EXPECT_EQ(Values(*db, QStringLiteral("select count(*) from log")),
              Values(*db, QStringLiteral("select count(*) - 1 from s")));
    EXPECT_EQ(Values(*db, QStringLiteral("select v from s order by rowid desc limit 1")), QStringList{"end"});

    // The line: at exactly 10 MiB the script is large.
    for (const qint64 size : {TScriptToSQLite::LARGE_SCRIPT_SIZE, TScriptToSQLite::LARGE_SCRIPT_SIZE - 1}) {
        QByteArray exact = "create table e(i);\ninsert into e values(1);\n/*";
        exact += QByteArray(size - exact.size() - 2, '.') + "*/";
        auto e = Open(QStringLiteral("e%1.db").arg(size));
        EXPECT_EQ(ProgressMax(*e, dir.write(QStringLiteral("e%1.sql").arg(size), exact)),
                  size == TScriptToSQLite::LARGE_SCRIPT_SIZE ? 1000 : 3);
        EXPECT_EQ(Values(*e, QStringLiteral("select count(*) from e")), QStringList{"1"});
    }
}

// The failing statement by its number and line; nothing after it runs, and
// the transaction the script opened is still open, to be rolled back.
TEST_F(ScriptTest, AFailureNamesTheStatementAndItsLine) {
    QByteArray script = "begin transaction;\n/* rows */\ncreate table e(i, t);\n";
    for (int i = 3; i < 50000; ++i)
        script += "insert into e values(" + QByteArray::number(i) + ", '" + QByteArray(200, 'r') + "');\n";
    script += "insert into e valuez(0);\ninsert into e values(-1, 'never');\ncommit;\n";
    ASSERT_GE(script.size(), TScriptToSQLite::LARGE_SCRIPT_SIZE);
    auto db = Open(QStringLiteral("failing.db"));
    db->Execute(QStringLiteral("create table kept(x)"));
    bool complete = false;
    QString reported;
    const QString message = Load(
        *db, dir.write(QStringLiteral("failing.sql"), script), TEncoding::UTF8(), [&](TScriptToSQLite& L) {
            L.FOnTransferComplete = [&complete](TDataTransfer&) { complete = true; };
            L.FOnTransferError = [&reported](TDataTransfer&, const QString& E) { reported = E; };
        });
    EXPECT_TRUE(
        message.startsWith(QLatin1String("Statement 50000 (line 50001): near \"valuez\": syntax error")))
        << message.toStdString();
    EXPECT_EQ(reported, message);
    EXPECT_FALSE(complete);
    ASSERT_TRUE(db->GetInTransaction());
    db->Rollback();
    EXPECT_EQ(Values(*db, QStringLiteral("select group_concat(name) from sqlite_master")),
              QStringList{"kept"});

    // Read whole, the same.
    EXPECT_TRUE(
        Load(*db, dir.write(QStringLiteral("short.sql"), "create table f(i);\n\n-- two\nselect missing;"))
            .startsWith(QLatin1String("Statement 2 (line 4): no such column: missing")));
}

TEST_F(ScriptTest, AWrongEncodingIsToldNotLoaded) {
    auto db = Open(QStringLiteral("enc.db"));
    const QString text = QStringLiteral("create table t(a);\r\ninsert into t values ('Grüße');\r\n");
    // UTF-16 without its mark, taken for UTF-8.
    const QByteArray utf16(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
    const QString message = Load(*db, dir.write(QStringLiteral("u16.sql"), utf16));
    EXPECT_EQ(message,
              QStringLiteral("The script is not text in UTF-8: it looks like UTF-16 without a byte order "
                             "mark, and must be read as UTF-16"));
    // A code 0 further on tells the same.
    const QString late = Load(*db, dir.write(QStringLiteral("late.sql"),
                                             QByteArray(2000, ' ') + QByteArray("\n\nselect 1;\0x", 13)));
    EXPECT_TRUE(late.startsWith(QLatin1String("The script holds a character of code 0 near line 3")))
        << late.toStdString();
    EXPECT_EQ(Values(*db, QStringLiteral("select count(*) from sqlite_master")), QStringList{"0"});
    // Read as what it is, it loads.
    EXPECT_EQ(Load(*db, dir.file(QStringLiteral("u16.sql")), TEncoding::Unicode()), QString());
    EXPECT_EQ(Values(*db, QStringLiteral("select a from t")), QStringList{QStringLiteral("Grüße")});
    // A character the script's encoding has no form for is refused.
    db->Execute(QStringLiteral("insert into t values ('世界')"));
    const QString written =
        Failure([&] { Dump(*db, [](TSQLiteToScript& S) { S.FEncoding = TEncoding::GetEncoding(1252); }); });
    EXPECT_TRUE(written.contains(QLatin1String("U+4E16")) && written.contains(QLatin1String("table [t]")))
        << written.toStdString();
    EXPECT_EQ(Failure([&] { Dump(*db, [](TSQLiteToScript& S) { S.FEncoding.reset(); }); }),
              QStringLiteral("Encoding not specified in export to script."));
}

// An aborted script is complete and loads what it has; an aborted load
// stops after the statement that runs.
TEST_F(ScriptTest, AbortsLeaveAWholeScriptAndStopALoad) {
    auto source = Fixture();
    const QByteArray script = Dump(*source, [](TSQLiteToScript& S) {
        S.FOnCheckAbort = [](TDataTransfer& T, bool& Aborted) {
            Aborted = static_cast<TSQLiteToScript&>(T).FObjects.size() > 0;
        };
    });
    EXPECT_TRUE(script.endsWith(
        "commit transaction;\r\n\r\n/* Enable Foreign Keys */\r\npragma foreign_keys = on;\r\n"));
    EXPECT_FALSE(script.contains("insert into"));
    const QString file = dir.write(QStringLiteral("rows.sql"),
                                   "create table r(i);\ninsert into r values(1);\n"
                                   "insert into r values(2);\ninsert into r values(3);\n");
    auto db = Open(QStringLiteral("abort.db"));
    bool complete = false;
    qint64 statements = 0;
    EXPECT_EQ(Load(*db, file, TEncoding::UTF8(),
                   [&](TScriptToSQLite& L) {
                       L.FOnCheckAbort = [&L](TDataTransfer&, bool& Aborted) {
                           Aborted = L.StatementCount() >= 2;
                       };
                       L.FOnTransferComplete = [&](TDataTransfer&) {
                           complete = true;
                           statements = L.StatementCount();
                       };
                   }),
              QString());
    EXPECT_TRUE(complete);
    EXPECT_EQ(statements, 2);
    EXPECT_EQ(Values(*db, QStringLiteral("select count(*) from r")), QStringList{"1"});
}
