// Editing query results in place: which SELECTs can be edited and by what
// key (the cases live in a fixture), and that every edit reaches exactly
// the one row it was made on, whatever else the table holds.
#include "QtPrinters.h"
#include "TempDir.h"

#include "data/DLQuery.h"
#include "data/DLSQLiteEdit.h"
#include "engine/DLQuoteTools.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteParser.h"

#include <QFile>
#include <QUuid>
#include <gtest/gtest.h>

using namespace brindle;
using namespace brindle::test;

namespace {

class EditTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
        InstallSQLParserServices();
    }

    void SetUp() override {
        db.FShowWaitCursor = false;
        db.SetFileName(dir.file(QStringLiteral("e.db")));
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
    }

    std::unique_ptr<TDLQuery> Open(const QString& sql) {
        auto q = std::make_unique<TDLQuery>();
        q->SetDatabase(&db);
        q->SetSQL(sql);
        q->Open();
        return q;
    }

    QString Value(const QString& sql) { return db.GetStringValue(sql); }

    TempDir dir;
    TDLSQLiteDatabase db;
};

QString Unquoted(const QString& names) {
    QStringList parts = names.split(u';', Qt::SkipEmptyParts);
    for (QString& p : parts) p = UnQuoteIdentifier(p.trimmed());
    return parts.join(u';');
}

}  // namespace

TEST_F(EditTest, EditabilityOfSelects) {
    QFile file(QStringLiteral(BRINDLE_TEST_DATA "/edit/selects.txt"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly | QIODevice::Text));
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    QString schema;
    bool inSchema = false;
    int cases = 0;
    db.Execute(QStringLiteral("attach %1 as aux").arg(QuotedStr(dir.file(QStringLiteral("aux.db")))));
    for (const QString& raw : lines) {
        const QString line = raw.trimmed();
        if (line == QLatin1String("@schema")) {
            inSchema = true;
            continue;
        }
        if (line == QLatin1String("@end")) {
            inSchema = false;
            db.Execute(schema);
            continue;
        }
        if (inSchema) {
            schema += raw + u'\n';
            continue;
        }
        if (line.isEmpty() || line.startsWith(u'#')) continue;
        const QStringList parts = line.split(u'|');
        const QString sql = parts[0].trimmed();
        SCOPED_TRACE(sql.toStdString());
        ++cases;
        std::unique_ptr<TDLQuery> q;
        ASSERT_NO_THROW(q = Open(sql));
        if (parts.size() == 2) {
            EXPECT_EQ(parts[1].trimmed(), QStringLiteral("read-only"));
            EXPECT_FALSE(q->GetCanModify());
            continue;
        }
        ASSERT_EQ(parts.size(), 4);
        EXPECT_TRUE(q->GetCanModify());
        EXPECT_EQ(Unquoted(q->FKeyFieldNames), parts[1].trimmed());
        EXPECT_EQ(Unquoted(q->FOriginKeyFieldNames), parts[2].trimmed());
        EXPECT_EQ(q->InternalTableName(), parts[3].trimmed());
        // Hidden columns are kept from view, and every shown one has its
        // table column as origin.
        for (int i = 0; i < q->Fields().Count(); ++i)
            EXPECT_EQ(q->Fields()[i].FVisible, !q->Fields()[i].FieldName().startsWith(QLatin1String("brindle_")));
    }
    EXPECT_GE(cases, 35);
}

TEST_F(EditTest, EachEditReachesExactlyOneRow) {
    // Twin rows: nothing visible tells them apart.
    db.Execute(QStringLiteral("create table t(a integer, b text);"
                              "insert into t values (1, 'x'), (1, 'x'), (2, 'y')"));
    auto q = Open(QStringLiteral("select a, b from t"));
    ASSERT_TRUE(q->GetCanModify());
    q->Next();  // the second twin
    q->Edit();
    q->FieldByName(QStringLiteral("b")).SetValue(QStringLiteral("changed"));
    q->Post();
    EXPECT_EQ(Value(QStringLiteral("select group_concat(b, ',') from (select b from t order by rowid)")),
              QStringLiteral("x,changed,y"));
    EXPECT_EQ(q->FieldByName(QStringLiteral("b")).AsString(), QStringLiteral("changed"));
    EXPECT_EQ(q->GetRecNo(), 2);

    q->First();
    q->Delete();
    EXPECT_EQ(Value(QStringLiteral("select group_concat(rowid || b, ',') from t")), QStringLiteral("2changed,3y"));
    EXPECT_EQ(q->FieldByName(QStringLiteral("b")).AsString(), QStringLiteral("changed"));
    EXPECT_EQ(q->GetRecordCount(), 2);

    q->Append();
    q->FieldByName(QStringLiteral("a")).SetValue(3);
    q->Post();
    EXPECT_EQ(Value(QStringLiteral("select count(*) from t where a = 3")), QStringLiteral("1"));
    EXPECT_EQ(q->GetRecordCount(), 3);

    // An aliased or repeated column writes to the column it came from.
    auto r = Open(QStringLiteral("select a as n, a from t where b = 'y'"));
    r->Edit();
    r->FieldByName(QStringLiteral("n")).SetValue(20);
    r->Post();
    EXPECT_EQ(Value(QStringLiteral("select a from t where b = 'y'")), QStringLiteral("20"));
    auto twice = Open(QStringLiteral("select a, a from t where b = 'y'"));
    twice->Edit();
    twice->FieldByName(QStringLiteral("a_1")).SetValue(21);
    twice->Post();
    EXPECT_EQ(Value(QStringLiteral("select a from t where b = 'y'")), QStringLiteral("21"));
}

TEST_F(EditTest, UntouchedValuesStayAsStored) {
    db.Execute(QStringLiteral(
        "create table k(id integer primary key, e text, n text, i text, bl blob, x);"
        "insert into k values (1, '', null, 42, x'00ff00', 'other');"
        "insert into k values (2, cast(x'41ff42' as text), 'n', 7, null, 1.5)"));
    const QString before = Value(QStringLiteral(
        "select group_concat(quote(e) || typeof(i) || quote(i) || quote(bl) || quote(n), '|') from k"));
    auto q = Open(QStringLiteral("select * from k"));
    for (q->First(); !q->Eof(); q->Next()) {
        q->Edit();
        q->FieldByName(QStringLiteral("x")).SetValue(QStringLiteral("edited"));
        q->Post();
    }
    EXPECT_EQ(Value(QStringLiteral(
                  "select group_concat(quote(e) || typeof(i) || quote(i) || quote(bl) || quote(n), '|') from k")),
              before);
    EXPECT_EQ(Value(QStringLiteral("select count(*) from k where x = 'edited'")), QStringLiteral("2"));
    // The bytes that are no UTF-8 were never written back.
    EXPECT_EQ(Value(QStringLiteral("select hex(e) from k where id = 2")), QStringLiteral("41FF42"));

    // A BLOB and a null written through the fields.
    q->First();
    q->Edit();
    q->FieldByName(QStringLiteral("bl")).SetValue(QByteArray("\x01\x02", 2));
    q->FieldByName(QStringLiteral("e")).SetValue(QVariant());
    q->Post();
    EXPECT_EQ(Value(QStringLiteral("select hex(bl) || typeof(e) from k where id = 1")), QStringLiteral("0102null"));
}

TEST_F(EditTest, KeysWithoutRowidAndInserts) {
    db.Execute(QStringLiteral(
        "create table w(x text, y integer, z, primary key (x, y)) without rowid;"
        "insert into w values ('a', 1, 'one'), ('a', 2, 'two'), ('1', 1, 'text one');"
        "create table ai(id integer primary key autoincrement, v text default 'dflt');"
        "insert into ai(v) values ('first'); delete from ai"));
    // A text key that looks like a number is compared as the text it is.
    auto w = Open(QStringLiteral("select x, y, z from w order by z"));
    ASSERT_TRUE(w->Locate(QStringLiteral("z"), {QStringLiteral("text one")}));
    w->Edit();
    w->FieldByName(QStringLiteral("z")).SetValue(QStringLiteral("changed"));
    w->Post();
    EXPECT_EQ(Value(QStringLiteral("select group_concat(z, ',') from (select z from w order by x, y)")),
              QStringLiteral("changed,one,two"));
    // The key may change: the row is found again by its new values.
    w->Edit();
    w->FieldByName(QStringLiteral("y")).SetValue(9);
    w->Post();
    EXPECT_EQ(w->FieldByName(QStringLiteral("y")).Value().toLongLong(), 9);
    EXPECT_EQ(Value(QStringLiteral("select y from w where x = '1'")), QStringLiteral("9"));

    // An insert reads the row back: the new number, the default.
    auto ai = Open(QStringLiteral("select * from ai"));
    ai->Append();
    try {
        ai->Post();
        FAIL() << "posted an empty row";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("Could not insert empty record"));
    }
    ai->FieldByName(QStringLiteral("id")).SetValue(QVariant());
    ai->FInsertNulls = true;
    ai->Post();
    EXPECT_EQ(ai->FieldByName(QStringLiteral("id")).Value().toLongLong(), 2);
    EXPECT_EQ(ai->FieldByName(QStringLiteral("v")).Value(), QVariant());
    ai->FInsertNulls = false;
    ai->Append();
    ai->FieldByName(QStringLiteral("id")).SetValue(QVariant());
    ai->Cancel();
    ai->Insert();
    ai->FieldByName(QStringLiteral("id")).SetValue(10);
    ai->Post();
    EXPECT_EQ(ai->FieldByName(QStringLiteral("v")).AsString(), QStringLiteral("dflt"));
    EXPECT_EQ(Value(QStringLiteral("select group_concat(id, ',') from ai")), QStringLiteral("2,10"));
}

TEST_F(EditTest, RowsChangedElsewhereAndViews) {
    db.Execute(QStringLiteral(
        "create table t(a, b); insert into t values (1, 'x'), (2, 'y');"
        "create view v as select a, b from t;"
        "create view vt as select a, b from t;"
        "create trigger vt_upd instead of update on vt begin update t set b = new.b where a = old.a; end"));
    auto q = Open(QStringLiteral("select * from t"));
    // Another connection deletes the first row and changes the second.
    TDLSQLiteDatabase other;
    other.FShowWaitCursor = false;
    other.SetFileName(db.FileName());
    other.SetConnected(true);
    other.Execute(QStringLiteral("delete from t where a = 1; update t set a = 5 where b = 'y'"));
    q->Edit();
    q->FieldByName(QStringLiteral("b")).SetValue(QStringLiteral("gone"));
    q->Post();  // its row is gone: nothing changes, nothing fails
    q->Next();
    q->Edit();
    q->FieldByName(QStringLiteral("b")).SetValue(QStringLiteral("mine"));
    q->Post();  // only the edited column is written
    EXPECT_EQ(Value(QStringLiteral("select group_concat(a || b, ',') from t")), QStringLiteral("5mine"));
    other.SetConnected(false);

    // A view takes an edit when a trigger does it.
    db.Execute(QStringLiteral("insert into t values (6, 'z')"));
    auto vt = Open(QStringLiteral("select a, b from vt order by a"));
    const TBookmark first = vt->GetBookmark();
    vt->Next();
    EXPECT_NE(vt->GetBookmark(), first);  // every column is the key, also of a bookmark
    vt->First();
    vt->Edit();
    vt->FieldByName(QStringLiteral("b")).SetValue(QStringLiteral("through the trigger"));
    vt->Post();
    EXPECT_EQ(Value(QStringLiteral("select b from t where a = 5")), QStringLiteral("through the trigger"));
    auto v = Open(QStringLiteral("select * from v"));
    v->Edit();
    v->FieldByName(QStringLiteral("b")).SetValue(QStringLiteral("refused"));
    try {
        v->Post();
        FAIL() << "a view without trigger took an update";
    } catch (const ECustomException& e) {
        EXPECT_TRUE(e.message().contains(QLatin1String("cannot modify v"))) << e.message().toStdString();
    }
    v->Cancel();
    EXPECT_EQ(Value(QStringLiteral("select group_concat(b) from t")), QStringLiteral("through the trigger,z"));
}

TEST_F(EditTest, BlobsReadWhenShown) {
    db.Execute(QStringLiteral("create table b(n text, data blob);"
                              "insert into b values ('one', x'0102'), ('none', null), ('empty', x'')"));
    auto q = std::make_unique<TDLQuery>();
    q->SetDatabase(&db);
    q->FCacheBlobs = false;
    q->SetSQL(QStringLiteral("select n, data from b"));
    q->Open();
    const TField& data = q->FieldByName(QStringLiteral("data"));
    const TDLRecData* first = q->RecordAt(0);
    ASSERT_TRUE(first);
    EXPECT_TRUE(first->GetHasData(data.Index()));
    EXPECT_FALSE(first->GetFullData(data.Index()));  // left out of the row
    EXPECT_EQ(data.Value().toByteArray(), QByteArray("\x01\x02", 2));
    EXPECT_TRUE(q->ActiveRecData()->GetFullData(data.Index()));
    q->Next();
    EXPECT_TRUE(data.IsNull());
    q->Next();
    EXPECT_FALSE(data.IsNull());
    EXPECT_TRUE(data.Value().toByteArray().isEmpty());

    // Bytes given up to bound memory come back when read; an edit in
    // progress and a result that cannot read them again keep theirs.
    q->First();
    const_cast<TDLRecData*>(q->RecordAt(0))->DiscardBlobs();
    EXPECT_FALSE(q->RecordAt(0)->GetFullData(data.Index()));
    EXPECT_EQ(GetFieldVariant(*q->RecordAt(0), data).toByteArray(), QByteArray("\x01\x02", 2));
    q->Edit();
    data.DataSet()->SetFieldValue(data, QByteArray("\x09", 1));
    q->ActiveRecData()->DiscardBlobs();
    EXPECT_EQ(data.Value().toByteArray(), QByteArray("\x09", 1));
    q->Post();
    EXPECT_EQ(Value(QStringLiteral("select hex(data) from b where n = 'one'")), QStringLiteral("09"));

    auto e = Open(QStringLiteral("select distinct data as d from b where n = 'one'"));
    const TField& d = e->FieldByName(QStringLiteral("d"));
    ASSERT_EQ(d.DataType(), ftBlob);
    e->ActiveRecData()->DiscardBlobs();
    EXPECT_TRUE(e->ActiveRecData()->GetFullData(d.Index()));
}

TEST_F(EditTest, BookmarksFollowTheirRowThroughEdits) {
    db.Execute(QStringLiteral("create table t(a integer, b text);"
                              "with recursive c(x) as (select 1 union all select x + 1 from c where x < 2000) "
                              "insert into t select x, 'r' || x from c"));
    auto q = Open(QStringLiteral("select a, b from t"));
    q->SetRecNo(1500);
    const TBookmark mark = q->GetBookmark();
    // Rows before it go and change; the window moves away and back.
    q->First();
    q->Delete();
    q->Edit();
    q->FieldByName(QStringLiteral("b")).SetValue(QStringLiteral("edited"));
    q->Post();
    q->Last();
    ASSERT_TRUE(q->BookmarkValid(mark));
    q->GotoBookmark(mark);
    EXPECT_EQ(q->FieldByName(QStringLiteral("a")).Value().toLongLong(), 1500);
    EXPECT_EQ(q->GetRecNo(), 1499);
    // A row deleted behind the dataset's back is not found again.
    q->SetRecNo(1699);
    ASSERT_EQ(q->FieldByName(QStringLiteral("a")).Value().toLongLong(), 1700);
    const TBookmark gone = q->GetBookmark();
    db.Execute(QStringLiteral("delete from t where a = 1700"));
    q->Refresh();
    EXPECT_EQ(q->FieldByName(QStringLiteral("a")).Value().toLongLong(), 1701);  // its place, the next row
    EXPECT_THROW(q->GotoBookmark(gone), ECustomException);
}

TEST_F(EditTest, ChangedKeysLeaveTheRowFoundByItsNewKey) {
    // The INTEGER PRIMARY KEY is the rowid: changing it renumbers the row.
    db.Execute(QStringLiteral("create table t(id integer primary key, v text);"
                              "insert into t values (1, 'one'), (2, 'two')"));
    for (const QString& sql : {QStringLiteral("select * from t"), QStringLiteral("select v, id from t"),
                               QStringLiteral("select rowid, id, v from t")}) {
        SCOPED_TRACE(sql.toStdString());
        auto q = Open(sql);
        ASSERT_TRUE(q->GetCanModify());
        q->Edit();
        q->FieldByName(QStringLiteral("id")).SetValue(50);
        q->Post();
        // Another row takes the old number; edits stay on the moved row.
        db.Execute(QStringLiteral("insert into t values (1, 'newcomer')"));
        q->Edit();
        q->FieldByName(QStringLiteral("v")).SetValue(QStringLiteral("moved"));
        q->Post();
        EXPECT_EQ(Value(QStringLiteral("select group_concat(id || v, ',') from (select * from t order by id)")),
                  QStringLiteral("1newcomer,2two,50moved"));
        q->Delete();
        EXPECT_EQ(Value(QStringLiteral("select group_concat(id, ',') from t")), QStringLiteral("1,2"));
        db.Execute(QStringLiteral("update t set v = 'one' where id = 1"));
    }
    // DESC makes the key an ordinary column beside the rowid.
    db.Execute(QStringLiteral("create table d(id integer primary key desc, v text);"
                              "insert into d values (7, 'seven'), (8, 'eight')"));
    auto d = Open(QStringLiteral("select id, v from d"));
    d->Edit();
    d->FieldByName(QStringLiteral("id")).SetValue(70);
    d->Post();
    d->Edit();
    d->FieldByName(QStringLiteral("v")).SetValue(QStringLiteral("seventy"));
    d->Post();
    EXPECT_EQ(Value(QStringLiteral("select group_concat(id || v, ',') from d")), QStringLiteral("70seventy,8eight"));

    // A key of a table without rowid, changed twice in a row.
    db.Execute(QStringLiteral("create table w(k text primary key, v) without rowid;"
                              "insert into w values ('a', 1), ('b', 2)"));
    auto w = Open(QStringLiteral("select k, v from w"));
    for (const char* key : {"c", "d"}) {
        w->Edit();
        w->FieldByName(QStringLiteral("k")).SetValue(QLatin1String(key));
        w->Post();
    }
    w->Edit();
    w->FieldByName(QStringLiteral("v")).SetValue(10);
    w->Post();
    EXPECT_EQ(Value(QStringLiteral("select group_concat(k || v, ',') from w")), QStringLiteral("b2,d10"));
}

TEST_F(EditTest, TypedKeysAndMoneyKeepTheirValues) {
    // 13.25 is 13.25 on every road: update, insert, read back, literal.
    db.Execute(QStringLiteral("create table m(id integer primary key, price money, small smallmoney);"
                              "insert into m values (1, 1.5, 2)"));
    auto m = Open(QStringLiteral("select * from m"));
    const TField& price = m->FieldByName(QStringLiteral("price"));
    ASSERT_EQ(price.DataType(), ftCurrency);
    EXPECT_DOUBLE_EQ(price.Value().toDouble(), 1.5);
    m->Edit();
    price.DataSet()->SetFieldValue(price, 13.25);
    m->Post();
    EXPECT_EQ(Value(QStringLiteral("select quote(price) from m where id = 1")), QStringLiteral("13.25"));
    QString literal;
    ASSERT_TRUE(FieldToSQLStr(price, literal));
    EXPECT_EQ(literal, QStringLiteral("13.25"));
    m->Append();
    m->FieldByName(QStringLiteral("small")).SetValue(0.01);
    m->Post();
    EXPECT_EQ(Value(QStringLiteral("select quote(small) from m where id = 2")), QStringLiteral("0.01"));
    EXPECT_DOUBLE_EQ(m->FieldByName(QStringLiteral("small")).Value().toDouble(), 0.01);

    // Keys of a declared type: a row inserted is found again and shown.
    db.Execute(QStringLiteral("create table kd(d date primary key, v) without rowid;"
                              "create table kg(g guid primary key, v) without rowid;"
                              "create table km(c money primary key, v) without rowid"));
    struct Case {
        const char* table;
        QVariant key;
    };
    for (const Case& c : {Case{"kd", QVariant(45000.0)},
                          Case{"kg", QVariant::fromValue(QUuid(QStringLiteral("{6f9619ff-8b86-d011-b42d-00c04fc964ff}")))},
                          Case{"km", QVariant(99.95)}}) {
        SCOPED_TRACE(c.table);
        auto q = Open(QStringLiteral("select * from %1").arg(QLatin1String(c.table)));
        ASSERT_TRUE(q->GetCanModify());
        q->Append();
        q->Fields()[0].SetValue(c.key);
        q->FieldByName(QStringLiteral("v")).SetValue(QStringLiteral("new"));
        q->Post();
        EXPECT_EQ(q->GetRecordCount(), 1);
        EXPECT_EQ(q->FieldByName(QStringLiteral("v")).AsString(), QStringLiteral("new"));
        q->Edit();
        q->FieldByName(QStringLiteral("v")).SetValue(QStringLiteral("edited"));
        q->Post();
        EXPECT_EQ(Value(QStringLiteral("select group_concat(v) from %1").arg(QLatin1String(c.table))),
                  QStringLiteral("edited"));
    }
}
