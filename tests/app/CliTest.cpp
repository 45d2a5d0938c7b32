// brindle-cli run as a real process, as scripts use it.
#include "TempDir.h"

#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"

#include <QProcess>
#include <gtest/gtest.h>

namespace {

struct Result {
    int code;
    QString out;
    QString err;
};

Result run(const QStringList& args) {
    QProcess p;
    p.start(QStringLiteral(BRINDLE_CLI), args);
    EXPECT_TRUE(p.waitForFinished(60000));
    return {p.exitCode(), QString::fromUtf8(p.readAllStandardOutput()), QString::fromUtf8(p.readAllStandardError())};
}

TEST(Cli, InfoDescribesLibraryAndDatabase) {
    const Result r = run({QStringLiteral("info"), QStringLiteral(DEMO_DB)});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    for (const char* line : {"SQLite library: [internal]\n", "FTS4: yes\n", "R*Tree: yes\n", "Encryption: no\n",
                             "Page size: 4096\n", "Encoding: UTF-8\n", "Journal mode: delete\n", "Virtual tables: 2\n"})
        EXPECT_TRUE(r.out.contains(QString::fromLatin1(line))) << line;
    EXPECT_TRUE(r.err.isEmpty());
}

TEST(Cli, ObjectsListsOnePerLine) {
    const Result r = run({QStringLiteral("objects"), QStringLiteral(DEMO_DB)});
    ASSERT_EQ(r.code, 0) << r.err.toStdString();
    const QStringList lines = r.out.split(u'\n', Qt::SkipEmptyParts);
    EXPECT_TRUE(lines.contains(QStringLiteral("table\torders")));
    EXPECT_TRUE(lines.contains(QStringLiteral("virtual table\tproduct_search")));
    EXPECT_TRUE(lines.contains(QStringLiteral("shadow table\tproduct_search_content")));
    EXPECT_TRUE(lines.contains(QStringLiteral("view\torder_details")));
    EXPECT_TRUE(lines.filter(QStringLiteral("trigger\t")).size() > 5);
}

TEST(Cli, FailuresGoToStderrWithTheProgramsMessage) {
    brindle::test::TempDir dir;
    const QString missing = dir.file(QStringLiteral("missing.db"));
    Result r = run({QStringLiteral("info"), missing});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.trimmed(), QStringLiteral("File %1 does not exist").arg(missing));
    EXPECT_TRUE(r.out.isEmpty());

    const QString text = dir.write(QStringLiteral("notes.txt"), QByteArray(2048, 'n'));
    r = run({QStringLiteral("objects"), text});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.startsWith(QStringLiteral("file is not a database\n"))) << r.err.toStdString();

    r = run({QStringLiteral("--library"), QStringLiteral("/nonexistent/libsqlite3.so"), QStringLiteral("info"),
             QStringLiteral(DEMO_DB)});
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(r.err.startsWith(QStringLiteral("Could not load SQLite library: /nonexistent/libsqlite3.so")));

    EXPECT_EQ(run({QStringLiteral("frobnicate")}).code, 2);
    EXPECT_EQ(run({QStringLiteral("info")}).code, 2);
}

TEST(Cli, OutsideLibraryWithKeyReadsAnEncryptedFile) {
    brindle::test::TempDir dir;
    const QString path = dir.file(QStringLiteral("secret.db"));
    ASSERT_TRUE(brindle::SQLite3Driver->sqlite3drv_load_library(QStringLiteral("libsqlcipher.so.0")));
    {
        brindle::TDLSQLiteDatabase db;
        db.SetFileName(path);
        db.CreateDatabase(0, 1024, QString(), QStringLiteral("k"));
        db.Execute(QStringLiteral("create table t(a)"));
    }
    brindle::SQLite3Driver->sqlite3drv_unload_library();

    const QStringList cipher{QStringLiteral("--library"), QStringLiteral("libsqlcipher.so.0")};
    Result r = run(cipher + QStringList{QStringLiteral("--key"), QStringLiteral("k"), QStringLiteral("objects"), path});
    EXPECT_EQ(r.code, 0) << r.err.toStdString();
    EXPECT_EQ(r.out, QStringLiteral("table\tt\n"));
    r = run(cipher + QStringList{QStringLiteral("--key"), QStringLiteral("bad"), QStringLiteral("info"), path});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.trimmed(),
              QStringLiteral("File is encrypted or not a SQLite3 database or encryption key does not match"));
    r = run({QStringLiteral("--key"), QStringLiteral("k"), QStringLiteral("info"), path});
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(r.err.trimmed(), QStringLiteral("SQLite library does not support encryption."));
}

}  // namespace
