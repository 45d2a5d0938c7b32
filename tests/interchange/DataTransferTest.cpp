// Copies from one SQLite database into another: everything kept on each of
// the three roads (inside the engine, row by row, through datasets as a
// foreign source goes), the order of the objects, the switches, and what a
// failure, an abort or an open transaction leave behind.
#include "TransferTestSupport.h"

#include "interchange/DataTransfer.h"
#include "schema/DLSQLiteMetadata.h"

#include <QRegularExpression>

using namespace brindle;
using namespace brindle::test;

namespace {

enum class TRoad { InEngine, Rows, DataSets };

std::unique_ptr<TDBToSQLite> MakeTransfer(TRoad Road) {
    if (Road == TRoad::DataSets) return std::make_unique<TDBToSQLite>();
    auto transfer = std::make_unique<TSQLiteToSQLite>();
    transfer->FAttachSource = Road == TRoad::InEngine;
    return transfer;
}

class TransferRoads : public TransferTest, public ::testing::WithParamInterface<TRoad> {
protected:
    // Source and destination set, every switch as brindle-cli sets it.
    std::unique_ptr<TDBToSQLite> Transfer(TDLSQLiteDatabase& Source, TDLSQLiteDatabase& Dest) {
        auto t = MakeTransfer(GetParam());
        t->FSourceDatabase = &Source;
        t->FDestDatabase = &Dest;
        t->FUseTransaction = true;
        t->FHideExceptions = false;
        return t;
    }
};

QStringList Names(const TTransferObjects& Objects) {
    QStringList names;
    for (const auto& rec : Objects) names << TDBToDB::DestObjectName(rec->GetMetadataBaseItem()->GetName());
    return names;
}

}  // namespace

TEST_P(TransferRoads, EverythingArrivesAsItIsStored) {
    auto source = Fixture();
    auto md = Metadata(*source);
    auto dest = Open(QStringLiteral("dest.db"));
    auto t = Transfer(*source, *dest);
    AddTransferObjects(t->FObjects, *md, {}, true);
    QStringList log;
    t->FOnLog = [&log](TDataTransfer&, const QString& Msg) { log << Msg; };
    bool complete = false;
    t->FOnTransferComplete = [&complete](TDataTransfer&) { complete = true; };
    t->Execute();
    EXPECT_TRUE(complete);
    EXPECT_TRUE(log.contains(QStringLiteral("Copying table: [typed]"))) << log.join(u'\n').toStdString();
    if (GetParam() == TRoad::DataSets) {
        // A dataset holds text as UTF-16 and reads a number in a column
        // declared BLOB as the bytes of its text: the text that is no UTF-8
        // and the numbers of c_blob are the record layer's to change; and a
        // foreign source has no rowids to keep. All else arrives exact.
        const QString kept = QStringLiteral(
            "create view typed_kept as select n, c_integer, c_int, c_bigint, c_text, c_varchar, c_real, "
            "c_double, "
            "c_float, c_numeric, c_decimal, c_boolean, c_date, c_datetime, c_time, c_none, c_guid, c_money "
            "from typed where n <> 36");
        source->Execute(kept);
        dest->Execute(kept);
        QStringList differences;
        for (const QString& line : Differences(*source, *dest))
            if (!QRegularExpression(QStringLiteral("^[-+] (typed|gaps|docs): ")).match(line).hasMatch())
                differences << line;
        EXPECT_EQ(differences, QStringList());
        // Text in the BLOB column stays text.
        const QString texts = QStringLiteral(
            "select group_concat(n || ':' || hex(c_blob) || ':' || typeof(c_blob)) from (select n, c_blob "
            "from typed where typeof(c_blob) = 'text' and n <> 36 order by n)");
        EXPECT_FALSE(Values(*source, texts).value(0).isEmpty());
        EXPECT_EQ(Values(*dest, texts), Values(*source, texts));
        EXPECT_EQ(Values(*dest, QStringLiteral("select group_concat(a) from gaps")),
                  QStringList{QStringLiteral("one,three")});
    } else {
        EXPECT_EQ(Differences(*source, *dest), QStringList());
    }
    // The triggers came after the rows, and work.
    dest->Execute(QStringLiteral("insert into indexed(name) values ('new')"));
    EXPECT_EQ(Values(*dest, QStringLiteral("select group_concat(what, '/') from log")),
              QStringList{QStringLiteral("before the copy/added new")});
    EXPECT_EQ(Values(*dest, QStringLiteral("pragma foreign_keys")), QStringList{QStringLiteral("1")});
    EXPECT_EQ(Values(*dest, QStringLiteral("pragma integrity_check")), QStringList{QStringLiteral("ok")});
}

// An abort stops at the next row; the rows so far stay without a
// transaction and go with one, and the run is complete either way.
TEST_P(TransferRoads, AnAbortStopsAtTheNextRow) {
    auto source = Open(QStringLiteral("source.db"));
    source->Execute(
        QStringLiteral("create table many(i integer primary key, t text);"
                       "with recursive n(i) as (select 1 union all select i + 1 from n where i < 1050) "
                       "insert into many select i, 'row ' || i from n;"));
    auto md = Metadata(*source);
    for (const bool useTransaction : {false, true}) {
        SCOPED_TRACE(useTransaction ? "with a transaction" : "without");
        auto dest = Open(useTransaction ? QStringLiteral("with.db") : QStringLiteral("without.db"));
        auto t = Transfer(*source, *dest);
        t->FUseTransaction = useTransaction;
        AddTransferObjects(t->FObjects, *md, {}, true);
        std::vector<qint64> progress;
        bool stop = false, complete = false;
        t->FOnTableProgress = [&](TDataTransfer&, const QString&, qint64 Records) {
            progress.push_back(Records);
            stop = Records >= 500;
        };
        t->FOnCheckAbort = [&stop](TDataTransfer&, bool& Aborted) { Aborted = stop; };
        t->FOnTransferComplete = [&complete](TDataTransfer&) { complete = true; };
        t->Execute();
        EXPECT_TRUE(t->Aborted());
        EXPECT_TRUE(complete);
        EXPECT_EQ(progress, (std::vector<qint64>{100, 200, 300, 400, 500, 500}));
        EXPECT_EQ(Values(*dest, QStringLiteral("select count(*) from sqlite_master where name = 'many'")),
                  QStringList{useTransaction ? QStringLiteral("0") : QStringLiteral("1")});
        if (!useTransaction) {
            EXPECT_EQ(Values(*dest, QStringLiteral("select count(*) || ' ' || max(i) from many")),
                      QStringList{QStringLiteral("500 500")});
        }
    }
}

// A table that another connection dropped after the metadata was read: the
// engine's message names it, and the destination stays as it was.
TEST_P(TransferRoads, ASourceTableGoneMeanwhileUndoesTheRun) {
    auto source = Fixture();
    auto md = Metadata(*source);
    Open(QStringLiteral("source.db"))->Execute(QStringLiteral("drop table log"));
    auto dest = Open(QStringLiteral("dest.db"));
    dest->Execute(QStringLiteral("create table kept(x); insert into kept values (1)"));
    auto t = Transfer(*source, *dest);
    AddTransferObjects(t->FObjects, *md, {}, true);
    QString reported;
    t->FOnTransferError = [&reported](TDataTransfer&, const QString& Error) { reported = Error; };
    const QString message = Failure([&] { t->Execute(); });
    EXPECT_TRUE(message.contains(QLatin1String("no such table")) && message.contains(QLatin1String("log")))
        << message.toStdString();
    EXPECT_EQ(reported, message);
    EXPECT_EQ(Values(*dest, QStringLiteral("select group_concat(name) from sqlite_master")),
              QStringList{QStringLiteral("kept")});
    EXPECT_FALSE(dest->GetInTransaction());
}

INSTANTIATE_TEST_SUITE_P(AllRoads, TransferRoads,
                         ::testing::Values(TRoad::InEngine, TRoad::Rows, TRoad::DataSets),
                         [](const ::testing::TestParamInfo<TRoad>& Info) {
                             switch (Info.param) {
                                 case TRoad::InEngine:
                                     return std::string("InEngine");
                                 case TRoad::Rows:
                                     return std::string("Rows");
                                 default:
                                     return std::string("DataSets");
                             }
                         });

TEST_F(TransferTest, ObjectsComeAfterWhatTheyDependOn) {
    auto source = Fixture();
    auto md = Metadata(*source);
    TTransferObjects objects;
    AddTransferObjects(objects, *md,
                       {QStringLiteral("a_top"), QStringLiteral("counted"), QStringLiteral("b_middle"),
                        QStringLiteral("c_base"), QStringLiteral("order")},
                       true);
    EXPECT_TRUE(SortObjectsByDependencies(objects));
    EXPECT_EQ(Names(objects), QStringList({QStringLiteral("[order]"), QStringLiteral("[c_base]"),
                                           QStringLiteral("[b_middle]"), QStringLiteral("[a_top]"),
                                           QStringLiteral("[counted]")}));
    // A cycle of foreign keys: every object is still there.
    objects.clear();
    AddTransferObjects(objects, *md, {QStringLiteral("child"), QStringLiteral("parent")}, true);
    EXPECT_FALSE(SortObjectsByDependencies(objects));
    EXPECT_EQ(objects.size(), 2u);

    EXPECT_EQ(Failure([&] { AddTransferObjects(objects, *md, {QStringLiteral("missing")}, true); }),
              QStringLiteral("No table or view named missing"));
    EXPECT_TRUE(Failure([&] {
                    AddTransferObjects(objects, *md, {QStringLiteral("docs_data")}, true);
                }).startsWith(QLatin1String("Table docs_data holds the data of a virtual table")));
}

// Views named against their order, copied in dependency order, and the
// tables they stand on.
TEST_F(TransferTest, APartCopiedInOrderGivesTheSameRows) {
    auto source = Fixture();
    auto md = Metadata(*source);
    auto dest = Open(QStringLiteral("dest.db"));
    TSQLiteToSQLite t;
    t.FSourceDatabase = source.get();
    t.FDestDatabase = dest.get();
    t.FHideExceptions = false;
    AddTransferObjects(t.FObjects, *md,
                       {QStringLiteral("counted"), QStringLiteral("a_top"), QStringLiteral("b_middle"),
                        QStringLiteral("c_base"), QStringLiteral("order")},
                       true);
    t.Execute();
    for (const char* view : {"a_top", "b_middle", "c_base", "counted"}) {
        const QString sql = QStringLiteral("select * from ") + QLatin1String(view);
        EXPECT_EQ(Values(*dest, sql), Values(*source, sql)) << view;
    }
    // The view's trigger came with it.
    dest->Execute(QStringLiteral("insert into a_top values (3, 'via view')"));
    EXPECT_EQ(Values(*dest, QStringLiteral("select \"select\" from \"order\" where \"key\" = 3")),
              QStringList{QStringLiteral("via view")});
}

TEST_F(TransferTest, IndexesRenamedAndASecondPrimaryKeyMadePlain) {
    auto source = Fixture();
    auto md = Metadata(*source);
    // A foreign source may claim two keys; only the first stays one.
    TBaseTableInfo* indexed = md->FindTable(QStringLiteral("main.indexed"));
    ASSERT_TRUE(indexed);
    indexed->FindIndex(QStringLiteral("indexed_code"))->FOptions |= ixPrimary;
    auto dest = Open(QStringLiteral("dest.db"));
    TSQLiteToSQLite t;
    t.FSourceDatabase = source.get();
    t.FDestDatabase = dest.get();
    t.FRenameIndexes = true;
    t.FHideExceptions = false;
    AddTransferObjects(t.FObjects, *md, {QStringLiteral("indexed"), QStringLiteral("keyed")}, true);
    t.Execute();
    EXPECT_EQ(
        Values(*dest, QStringLiteral("select name from sqlite_master where type = 'index' order by name")),
        QStringList({QStringLiteral("indexed_indexed_code"), QStringLiteral("indexed_indexed_collated"),
                     QStringLiteral("indexed_indexed_expression"), QStringLiteral("indexed_indexed_partial"),
                     QStringLiteral("sqlite_autoindex_keyed_1"),
                     QStringLiteral("sqlite_autoindex_keyed_2")}));
    EXPECT_EQ(
        Values(*dest, QStringLiteral("select group_concat(name) from pragma_table_info('indexed') where pk")),
        QStringList{QStringLiteral("id")});
    EXPECT_EQ(Values(*dest, QStringLiteral("select \"unique\" || origin from pragma_index_list('indexed') "
                                           "where name = 'indexed_indexed_code'")),
              QStringList{QStringLiteral("1c")});
}

// Rows into a table the destination has: appended; into one it lacks: the
// engine's message.
TEST_F(TransferTest, DataWithoutStructureGoesIntoTheTableThatIsThere) {
    auto source = Fixture();
    auto md = Metadata(*source);
    auto dest = Open(QStringLiteral("dest.db"));
    auto copyLog = [&] {
        TSQLiteToSQLite t;
        t.FSourceDatabase = source.get();
        t.FDestDatabase = dest.get();
        t.FHideExceptions = false;
        auto rec = std::make_unique<TTableRec>(md->FindTable(QStringLiteral("main.log")));
        rec->FIncludeData = true;
        t.FObjects.push_back(std::move(rec));
        t.Execute();
    };
    const QString message = Failure(copyLog);
    EXPECT_TRUE(message.contains(QLatin1String("no such table"))) << message.toStdString();
    dest->Execute(
        QStringLiteral("create table log(id integer primary key, what text, extra default 'x');"
                       "insert into log values (100, 'mine', 'y')"));
    copyLog();
    EXPECT_EQ(Values(*dest, QStringLiteral("select group_concat(id || what || extra, '/') from log")),
              QStringList{QStringLiteral("1before the copyx/100miney")});
}

// With the keys off, an open transaction is joined by a savepoint, and a
// failure undoes the transfer alone.
TEST_F(TransferTest, AnOpenTransactionIsJoinedAndKeepsItsOwnWork) {
    auto source = Fixture();
    auto md = Metadata(*source);
    auto dest = Open(QStringLiteral("dest.db"));
    dest->Execute(QStringLiteral("pragma foreign_keys = off"));
    dest->Execute(QStringLiteral("begin; create table mine(x); insert into mine values (1)"));
    TSQLiteToSQLite t;
    t.FSourceDatabase = source.get();
    t.FDestDatabase = dest.get();
    t.FUseTransaction = true;
    t.FHideExceptions = false;
    AddTransferObjects(t.FObjects, *md, {QStringLiteral("order")}, true);
    // Rows for a table the destination lacks make it fail after [order].
    auto rec = std::make_unique<TTableRec>(md->FindTable(QStringLiteral("main.log")));
    rec->FIncludeData = true;
    t.FObjects.push_back(std::move(rec));
    EXPECT_TRUE(Failure([&] { t.Execute(); }).contains(QLatin1String("no such table")));
    ASSERT_TRUE(dest->GetInTransaction());
    dest->Execute(QStringLiteral("commit"));
    EXPECT_EQ(Values(*dest, QStringLiteral("select group_concat(name) from sqlite_master")),
              QStringList{QStringLiteral("mine")});
    EXPECT_EQ(Values(*dest, QStringLiteral("select count(*) from mine")), QStringList{QStringLiteral("1")});
}

TEST_F(TransferTest, KeysOnInsideATransactionAreRefused) {
    auto source = Fixture();
    auto md = Metadata(*source);
    auto dest = Open(QStringLiteral("dest.db"));
    dest->Execute(QStringLiteral("pragma foreign_keys = on"));
    dest->Execute(QStringLiteral("begin; create table mine(x)"));
    TSQLiteToSQLite t;
    t.FSourceDatabase = source.get();
    t.FDestDatabase = dest.get();
    t.FUseTransaction = true;
    AddTransferObjects(t.FObjects, *md, {}, true);
    QString reported;
    t.FOnTransferError = [&reported](TDataTransfer&, const QString& Error) { reported = Error; };
    t.Execute();  // errors go to the event alone
    EXPECT_EQ(reported, QStringLiteral("Active transaction on destination database, transfer aborted"));
    EXPECT_EQ(Values(*dest, QStringLiteral("select group_concat(name) from sqlite_master")),
              QStringList{QStringLiteral("mine")});
    EXPECT_EQ(Values(*dest, QStringLiteral("pragma foreign_keys")), QStringList{QStringLiteral("1")});
}

TEST_F(TransferTest, AReadOnlyOrLockedDestinationStaysAsItWas) {
    auto source = Fixture();
    auto md = Metadata(*source);
    Open(QStringLiteral("dest.db"))->Execute(QStringLiteral("create table kept(x)"));
    auto run = [&](TDLSQLiteDatabase& Dest) {
        TSQLiteToSQLite t;
        t.FSourceDatabase = source.get();
        t.FDestDatabase = &Dest;
        t.FUseTransaction = true;
        t.FHideExceptions = false;
        AddTransferObjects(t.FObjects, *md, {}, true);
        return Failure([&] { t.Execute(); });
    };
    {
        TDLSQLiteDatabase dest;
        dest.FShowWaitCursor = false;
        dest.SetFileName(dir.file(QStringLiteral("dest.db")));
        dest.SetReadOnly(true);
        dest.SetConnected(true);
        EXPECT_TRUE(run(dest).contains(QLatin1String("readonly"))) << run(dest).toStdString();
    }
    auto dest = Open(QStringLiteral("dest.db"));
    SQLite3Driver->sqlite3_busy_timeout(dest->Handle(), 50);
    auto holder = Open(QStringLiteral("dest.db"));
    holder->Execute(QStringLiteral("begin exclusive"));
    EXPECT_TRUE(run(*dest).contains(QLatin1String("locked")));
    holder->Execute(QStringLiteral("rollback"));
    EXPECT_EQ(Values(*dest, QStringLiteral("select group_concat(name) from sqlite_master")),
              QStringList{QStringLiteral("kept")});
}
