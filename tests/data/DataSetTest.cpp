// Queries over real SQLite files: paging through windows, counts known and
// estimated, bookmarks, scripts, parameters and stored values.
#include "QtPrinters.h"
#include "TempDir.h"

#include "data/DLQuery.h"
#include "data/DLTable.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteParser.h"

#include <gtest/gtest.h>

using namespace brindle;
using namespace brindle::test;

namespace {

class DataSetTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();
    }

    void SetUp() override { db = Create(QStringLiteral("data.db"), QStringLiteral("UTF-8")); }

    std::unique_ptr<TDLSQLiteDatabase> Create(const QString& name, const QString& encoding) {
        auto d = std::make_unique<TDLSQLiteDatabase>();
        d->FShowWaitCursor = false;
        d->SetFileName(dir.file(name));
        d->CreateDatabase(0, 4096, encoding, QString());
        return d;
    }

    // Rows 1..n in t(i, s), s being "row <i>".
    void Fill(int n) {
        db->Execute(QStringLiteral("create table t(i integer primary key, s text);"
                                   "with recursive c(x) as (select 1 union all select x + 1 from c where x < %1) "
                                   "insert into t select x, 'row ' || x from c")
                        .arg(n));
    }

    std::unique_ptr<TDLQuery> Query(const QString& sql) {
        auto q = std::make_unique<TDLQuery>();
        q->SetDatabase(db.get());
        q->SetSQL(sql);
        return q;
    }

    TempDir dir;
    std::unique_ptr<TDLSQLiteDatabase> db;
};

}  // namespace

TEST_F(DataSetTest, SmallResultKnowsItsCountAtOnce) {
    Fill(10);
    auto q = Query(QStringLiteral("select * from t"));
    q->Open();
    EXPECT_TRUE(q->EofReached());
    EXPECT_EQ(q->GetRecordCount(), 10);
    EXPECT_TRUE(q->Bof());
    EXPECT_EQ(q->FieldByName(QStringLiteral("s")).AsString(), QStringLiteral("row 1"));
    int seen = 0;
    for (q->First(); !q->Eof(); q->Next()) ++seen;
    EXPECT_EQ(seen, 10);
    EXPECT_EQ(q->GetRecNo(), 10);
    q->Prior();
    EXPECT_EQ(q->FieldByName(QStringLiteral("i")).Value().toLongLong(), 9);
    q->Last();
    EXPECT_TRUE(q->Eof());
    EXPECT_EQ(q->FieldByName(QStringLiteral("i")).Value().toLongLong(), 10);

    auto empty = Query(QStringLiteral("select * from t where 0"));
    empty->Open();
    EXPECT_TRUE(empty->IsEmpty());
    EXPECT_EQ(empty->GetRecordCount(), 0);
    EXPECT_FALSE(empty->FieldByName(QStringLiteral("s")).Value().isValid());
}

TEST_F(DataSetTest, LargeResultPagesThroughWindows) {
    Fill(10000);
    auto q = Query(QStringLiteral("select i, s from t order by i"));
    q->Open();
    // One window read; the count stays ahead of the cursor until the end.
    EXPECT_FALSE(q->EofReached());
    EXPECT_EQ(q->GetLastRecNo(), 512);
    EXPECT_EQ(q->GetRecordCount(), 1024);

    qint64 sum = 0;
    int rows = 0;
    for (q->First(); !q->Eof(); q->Next()) {
        sum += q->FieldByName(QStringLiteral("i")).Value().toLongLong();
        ++rows;
    }
    EXPECT_EQ(rows, 10000);
    EXPECT_EQ(sum, 10000LL * 10001 / 2);
    EXPECT_EQ(q->GetRecordCount(), 10000);
    for (rows = 0; !q->Bof(); q->Prior()) ++rows;
    EXPECT_EQ(rows, 10000);
    EXPECT_EQ(q->FieldByName(QStringLiteral("i")).Value().toLongLong(), 1);

    // Jumps by record number move the window either way.
    for (int recNo : {9000, 10, 5000, 10000, 1}) {
        q->SetRecNo(recNo);
        EXPECT_EQ(q->FieldByName(QStringLiteral("i")).Value().toLongLong(), recNo);
        EXPECT_EQ(q->GetRecNo(), recNo);
    }
    // A view reads rows by index without moving the cursor.
    const TField& s = q->FieldByName(QStringLiteral("s"));
    QVariant v;
    ASSERT_TRUE(q->RecordAt(7654) && q->RecordAt(7654)->GetField(s, &v));
    EXPECT_EQ(v.toString(), QStringLiteral("row 7655"));
    EXPECT_EQ(q->RecordAt(10000), nullptr);
    EXPECT_EQ(q->GetRecNo(), 1);
}

TEST_F(DataSetTest, LastOnAnUnknownCountFindsTheEnd) {
    Fill(3000);
    auto q = Query(QStringLiteral("select * from t"));
    q->Open();
    q->Last();
    EXPECT_TRUE(q->EofReached());
    EXPECT_EQ(q->GetRecordCount(), 3000);
    EXPECT_EQ(q->GetRecNo(), 3000);
    EXPECT_EQ(q->FieldByName(QStringLiteral("s")).AsString(), QStringLiteral("row 3000"));
    EXPECT_FALSE(q->Bof());
}

TEST_F(DataSetTest, BookmarksSurviveAMovedWindow) {
    Fill(5000);
    auto q = Query(QStringLiteral("select * from t"));
    q->Open();
    q->SetRecNo(700);
    const TBookmark mark = q->GetBookmark();
    ASSERT_FALSE(mark.isEmpty());
    EXPECT_TRUE(q->BookmarkValid(mark));
    q->SetRecNo(4900);
    const TBookmark later = q->GetBookmark();
    EXPECT_LT(q->CompareBookmarks(mark, later), 0);
    q->GotoBookmark(mark);
    EXPECT_EQ(q->GetRecNo(), 700);
    EXPECT_EQ(q->FieldByName(QStringLiteral("i")).Value().toLongLong(), 700);
}

TEST_F(DataSetTest, ScriptsRunEachStatementAndShowTheLast) {
    auto q = Query(QStringLiteral("create table x(a); insert into x values (1), (2); select a * 10 as b from x"));
    q->Open();
    EXPECT_EQ(q->GetRecordCount(), 2);
    EXPECT_EQ(q->FieldByName(QStringLiteral("b")).Value().toLongLong(), 10);

    // A syntax error in the third of five statements: the first two ran.
    auto bad = Query(QStringLiteral("create table y(a);\ninsert into y values (1);\nselec * frm y;\n"
                                    "insert into y values (2);\nselect * from y"));
    try {
        bad->Open();
        FAIL() << "no error";
    } catch (const ECustomException& e) {
        EXPECT_TRUE(e.message().contains(QLatin1String("syntax error"))) << e.message().toStdString();
        EXPECT_TRUE(e.message().contains(QLatin1String("selec * frm y"))) << e.message().toStdString();
    }
    EXPECT_FALSE(bad->Active());
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select group_concat(a) from y")), QStringLiteral("1"));
}

TEST_F(DataSetTest, ParametersByNameAndPosition) {
    Fill(20);
    auto q = Query(QStringLiteral("select s from t where i = :id or i = ?"));
    ASSERT_EQ(q->Params().Count(), 2);
    q->ParamByName(QStringLiteral("id")).SetValue(4);
    q->Params()[1].SetValue(7);
    q->Open();
    EXPECT_EQ(q->GetRecordCount(), 2);
    EXPECT_EQ(q->FieldByName(QStringLiteral("s")).AsString(), QStringLiteral("row 4"));

    auto missing = Query(QStringLiteral("select * from t where i = :wanted"));
    try {
        missing->Open();
        FAIL() << "no error";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("Required param not set: :wanted"));
    }
    EXPECT_THROW(missing->ParamByName(QStringLiteral("nope")), ECustomException);
}

TEST_F(DataSetTest, StoredValuesComeBackAsStored) {
    db->Execute(QStringLiteral(
        "create table v(n, t text, i integer, r real, b blob, d);"
        "insert into v values (null, '', 42, 1.5, x'00ff', 'text in an untyped column');"
        "insert into v values (1, null, 'not a number', null, null, 7)"));
    auto q = Query(QStringLiteral("select * from v"));
    q->Open();
    auto value = [&](const char* name) { return q->FieldByName(QString::fromLatin1(name)).Value(); };
    EXPECT_FALSE(value("n").isValid());
    EXPECT_TRUE(value("t").isValid());
    EXPECT_EQ(value("t").toString(), QString());
    EXPECT_EQ(value("i").toLongLong(), 42);
    EXPECT_DOUBLE_EQ(value("r").toDouble(), 1.5);
    EXPECT_EQ(value("b").toByteArray(), QByteArray::fromHex("00ff"));
    EXPECT_EQ(value("d").toString(), QStringLiteral("text in an untyped column"));
    q->Next();
    EXPECT_FALSE(value("t").isValid());
    EXPECT_EQ(value("d").toString(), QStringLiteral("7"));
    // The raw value stays the text the column holds.
    const auto& rec = static_cast<const TDLSQLiteRecData&>(*q->RecordAt(1));
    const int i = q->FieldByName(QStringLiteral("i")).Index();
    EXPECT_EQ(rec.GetStorageClass(i), scText);
    EXPECT_EQ(RawToString(rec.GetRawData(i)), QStringLiteral("not a number"));
}

TEST_F(DataSetTest, TextOfEveryFileEncodingAndBrokenUtf8) {
    const QString text = QStringLiteral("Grüße, 世界 \U0001F600");
    for (const char* encoding : {"UTF-16le", "UTF-16be", "UTF-8"}) {
        auto d = Create(QStringLiteral("enc-%1.db").arg(QLatin1String(encoding)), QLatin1String(encoding));
        d->Execute(QStringLiteral("create table e(s text)"));
        TParams params;
        params.Add(QStringLiteral(":s"), ftWideString, text);
        d->Execute(QStringLiteral("insert into e values (:s)"), &params);
        TDLQuery q;
        q.SetDatabase(d.get());
        q.SetSQL(QStringLiteral("select s from e"));
        q.Open();
        EXPECT_EQ(q.FieldByName(QStringLiteral("s")).AsString(), text) << encoding;
        q.Close();
    }
    // Bytes that are no UTF-8, stored as text, read as replacement characters.
    db->Execute(QStringLiteral("create table bad(s text); insert into bad values (cast(x'41ff42' as text))"));
    auto q = Query(QStringLiteral("select s from bad"));
    q->Open();
    const QString s = q->FieldByName(QStringLiteral("s")).AsString();
    EXPECT_TRUE(s.startsWith(u'A') && s.endsWith(u'B') && s.contains(QChar(0xFFFD))) << s.toStdString();
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select hex(s) from bad")), QStringLiteral("41FF42"));
}

TEST_F(DataSetTest, ReadOnlyResultRefusesEdits) {
    Fill(3);
    auto q = Query(QStringLiteral("select s || '' as s from t"));  // an expression: read-only
    q->Open();
    q->Edit();
    q->FieldByName(QStringLiteral("s")).SetValue(QStringLiteral("changed"));
    try {
        q->Post();
        FAIL() << "posted";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("Can not edit"));
    }
    q->Cancel();
    EXPECT_EQ(q->FieldByName(QStringLiteral("s")).AsString(), QStringLiteral("row 1"));
    EXPECT_EQ(db->GetStringValue(QStringLiteral("select s from t where i = 1")), QStringLiteral("row 1"));

    TDLQuery noDatabase;
    noDatabase.SetSQL(QStringLiteral("select 1"));
    try {
        noDatabase.Open();
        FAIL() << "opened";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("Database not assigned."));
    }
}

TEST_F(DataSetTest, LongValuesReadWhole) {
    // 100 MB in one BLOB, and text longer than its declared size.
    db->Execute(QStringLiteral("create table l(b blob, s varchar(5));"
                               "insert into l values (zeroblob(104857600), 'longer than five');"
                               "update l set b = cast(x'ff' as blob) || substr(b, 2)"));
    auto q = Query(QStringLiteral("select b, s from l"));
    q->Open();
    const QByteArray b = q->FieldByName(QStringLiteral("b")).Value().toByteArray();
    ASSERT_EQ(b.size(), 104857600);
    EXPECT_EQ(static_cast<unsigned char>(b.at(0)), 0xff);
    EXPECT_EQ(b.at(b.size() - 1), '\0');
    EXPECT_EQ(q->FieldByName(QStringLiteral("s")).AsString(), QStringLiteral("longer than five"));
}

TEST_F(DataSetTest, OrdersAndFiltersOfAQuery) {
    Fill(3000);
    auto q = Query(QStringLiteral("select * from t;"));
    EXPECT_TRUE(q->CanServerFilter());  // a semicolon at the end only
    q->SetFilterText(QStringLiteral("i >= 2990 or i = 5"));
    q->SetFiltered(true);
    q->Open();
    EXPECT_EQ(q->GetRecordCount(), 12);
    q->SetOrderClause(QStringLiteral("order by i desc"));
    EXPECT_EQ(q->FieldByName(QStringLiteral("i")).Value().toLongLong(), 3000);
    q->Close();

    // Two statements: the filter stays in memory, and its count waits for
    // every row.
    EXPECT_FALSE(Query(QStringLiteral("select i from t union select 5000"))->CanServerFilter());
    auto u = Query(QStringLiteral("select 0 as i; select i, s from t"));
    EXPECT_FALSE(u->CanServerFilter());
    u->SetFilterText(QStringLiteral("i > 2500"));
    u->SetFiltered(true);
    u->Open();
    EXPECT_EQ(u->FieldByName(QStringLiteral("i")).Value().toLongLong(), 2501);
    EXPECT_EQ(u->GetFilteredCount(), -1);
    // Locate finds a row outside the window and moves it.
    u->SetFiltered(false);
    EXPECT_TRUE(u->Locate(QStringLiteral("s"), {QStringLiteral("row 2999")}));
    EXPECT_EQ(u->GetRecNo(), 2999);
}

TEST_F(DataSetTest, DetailQueryTakesParametersFromItsMaster) {
    Fill(5);
    auto master = Query(QStringLiteral("select i as id from t where i in (2, 4) order by i"));
    master->Open();
    auto detail = Query(QStringLiteral("select s from t where i = :id"));
    detail->SetDataSource(master.get());
    detail->Open();
    EXPECT_EQ(detail->FieldByName(QStringLiteral("s")).AsString(), QStringLiteral("row 2"));
    master->Next();
    EXPECT_EQ(detail->FieldByName(QStringLiteral("s")).AsString(), QStringLiteral("row 4"));
    EXPECT_FALSE(detail->Params()[0].Bound);
    EXPECT_THROW(master->SetDataSource(detail.get()), ECustomException);
}

TEST_F(DataSetTest, TextWithoutStatementsOpensEmpty) {
    for (const QString& sql : {QString(), QStringLiteral("-- only a comment"), QStringLiteral("/* a */ ; ;\n-- b")}) {
        SCOPED_TRACE(sql.toStdString());
        auto q = Query(sql);
        ASSERT_NO_THROW(q->Open());
        EXPECT_TRUE(q->Active());
        EXPECT_TRUE(q->IsEmpty());
        EXPECT_EQ(q->GetRecordCount(), 0);
        EXPECT_EQ(q->Fields().Count(), 0);
        q->First();
        q->Last();
        EXPECT_TRUE(q->Eof());
    }
}

TEST_F(DataSetTest, AStoppedLoadIsCutWhereItStopped) {
    Fill(3000);
    auto q = Query(QStringLiteral("select * from t"));
    q->Open();
    // Stopped while the second window comes in.
    int calls = 0;
    db->FOnProgress = [&](bool& Continue) { Continue = ++calls < 60; };
    int seen = 0;
    for (q->First(); !q->Eof(); q->Next()) ++seen;
    db->FOnProgress = nullptr;
    const int count = q->GetRecordCount();
    EXPECT_GT(count, 512);
    EXPECT_LT(count, 3000);
    EXPECT_EQ(seen, count);
    // Reading again, in either direction, gives the same rows and no more.
    seen = 0;
    for (q->Last(); !q->Bof(); q->Prior()) ++seen;
    EXPECT_EQ(seen, count);
    q->SetRecNo(count);
    EXPECT_EQ(q->FieldByName(QStringLiteral("i")).Value().toInt(), count);
    EXPECT_EQ(q->GetRecordCount(), count);
    // A new run reads everything.
    q->Close();
    q->Open();
    q->Last();
    EXPECT_EQ(q->GetRecordCount(), 3000);
}

TEST_F(DataSetTest, ServerFilterBehindACommentAndOnRenamedColumns) {
    Fill(20);
    // The condition goes on a line of its own, not into the comment.
    auto q = Query(QStringLiteral("select * from t -- all rows"));
    q->SetFilterText(QStringLiteral("i < 3"));
    q->SetFiltered(true);
    q->Open();
    EXPECT_EQ(q->GetRecordCount(), 2);
    // A column renamed in the result has no name the statement knows: the
    // filter stays in memory.
    auto r = Query(QStringLiteral("select i, i * 2 as i from t"));
    r->SetFilterText(QStringLiteral("i_1 = 10"));
    r->SetFiltered(true);
    ASSERT_NO_THROW(r->Open());
    int rows = 0;
    for (r->First(); !r->Eof(); r->Next()) ++rows;
    EXPECT_EQ(rows, 1);
    EXPECT_EQ(r->FieldByName(QStringLiteral("i")).Value().toInt(), 5);
}

TEST_F(DataSetTest, SmallerContracts) {
    Fill(5);
    // A parameter named "?" and then no number cannot be bound anywhere.
    TParams params;
    params.Add(QStringLiteral("?x"), ftInteger, 1);
    EXPECT_THROW(db->Execute(QStringLiteral("select * from t where i = ?"), &params), ECustomException);

    // An order that does not run is left aside; the rows stay as they were.
    auto q = Query(QStringLiteral("select * from t"));
    q->Open();
    q->SetOrderClause(QStringLiteral("order by i desc"));
    EXPECT_EQ(q->FieldByName(QStringLiteral("i")).Value().toInt(), 5);
    ASSERT_NO_THROW(q->SetOrderClause(QStringLiteral("order by no_such_column")));
    EXPECT_EQ(q->FieldByName(QStringLiteral("i")).Value().toInt(), 5);
    EXPECT_EQ(q->GetRecordCount(), 5);
    EXPECT_EQ(GetFieldValues(*q, QStringLiteral("i;s")), QVariantList({qint64(5), QStringLiteral("row 5")}));

    // A read-only result refuses a delete by its path's words.
    auto ro = Query(QStringLiteral("select s || '' as s from t"));
    ro->Open();
    try {
        ro->Delete();
        FAIL() << "deleted";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("Cannot update a read-only dataset"));
    }

    // The definitions say what the statement's columns are.
    db->Execute(QStringLiteral("create table d(a varchar(10) not null default 'x', b money)"));
    auto d = Query(QStringLiteral("select a, b, a from d"));
    d->Open();
    ASSERT_GE(d->FieldDefs().Count(), 3);
    const TFieldDef& a = d->FieldDefs().Items(0);
    EXPECT_EQ(a.FullSQLType, QStringLiteral("varchar(10)"));
    EXPECT_EQ(a.SQLType.toUpper(), QStringLiteral("VARCHAR"));
    EXPECT_EQ(a.Size, 10);
    EXPECT_EQ(d->FieldDefs().Items(2).Name, QStringLiteral("a_1"));
    EXPECT_EQ(d->FieldDefs().Items(2).OriginalFieldName, QStringLiteral("a"));
    TDLTable table;
    table.SetDatabase(db.get());
    table.SetTableName(QStringLiteral("main.d"));
    table.Open();
    const TFieldDef& required = table.FieldDefs().Items(table.FieldDefs().IndexOf(QStringLiteral("a")));
    EXPECT_TRUE(required.Required);
    EXPECT_EQ(required.DefaultValue, QStringLiteral("'x'"));
    EXPECT_FALSE(table.FieldDefs().Items(table.FieldDefs().IndexOf(QStringLiteral("b"))).Required);

    // Closing the connection closes what reads through it.
    db->SetConnected(false);
    EXPECT_FALSE(q->Active());
    EXPECT_FALSE(table.Active());
}
