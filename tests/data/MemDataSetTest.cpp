// Rows in memory and what every dataset does over its rows: bookmarks that
// outlive sorts and deletes, locating, filters by text and by handler,
// copying rows between datasets.
#include "TempDir.h"

#include "data/DLBlobs.h"
#include "data/DLMemDataSet.h"
#include "data/DLQuery.h"
#include "engine/DLDateTime.h"
#include "engine/DLSQLite3API.h"
#include "engine/DLSQLiteDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteParser.h"

#include <gtest/gtest.h>

using namespace brindle;
using namespace brindle::test;

namespace {

class MemDataSetTest : public ::testing::Test {
protected:
    void SetUp() override {
        m.FieldDefs().Add(QStringLiteral("name"), ftWideString, 20);
        m.FieldDefs().Add(QStringLiteral("qty"), ftLargeint);
        m.FieldDefs().Add(QStringLiteral("price"), ftFloat);
        m.CreateDataSet();
        const struct {
            const char* name;
            QVariant qty;
            double price;
        } rows[] = {{"pear", 3, 1.5}, {"apple", QVariant(), 0.5}, {"Plum", 12, 2.0}, {"fig", 7, 3.25}};
        for (const auto& r : rows) {
            m.Append();
            m.FieldByName(QStringLiteral("name")).SetValue(QString::fromLatin1(r.name));
            m.FieldByName(QStringLiteral("qty")).SetValue(r.qty);
            m.FieldByName(QStringLiteral("price")).SetValue(r.price);
            m.Post();
        }
    }

    QStringList Names() {
        QStringList names;
        for (m.First(); !m.Eof(); m.Next()) names << m.FieldByName(QStringLiteral("name")).AsString();
        return names;
    }

    TDLMemDataSet m;
};

}  // namespace

TEST_F(MemDataSetTest, BookmarksOutliveSortsAndDeletes) {
    EXPECT_EQ(m.GetRecordCount(), 4);
    EXPECT_TRUE(m.Sortable());
    m.Locate(QStringLiteral("name"), {QStringLiteral("fig")});
    const TBookmark fig = m.GetBookmark();
    m.Sort(m.FieldByName(QStringLiteral("qty")), false);
    // Descending puts null last.
    EXPECT_EQ(Names(), QStringList({"Plum", "fig", "pear", "apple"}));
    m.GotoBookmark(fig);
    EXPECT_EQ(m.FieldByName(QStringLiteral("name")).AsString(), QStringLiteral("fig"));
    EXPECT_EQ(m.GetRecNo(), 2);

    m.Delete();
    EXPECT_FALSE(m.BookmarkValid(fig));
    EXPECT_THROW(m.GotoBookmark(fig), ECustomException);
    // A new row gets a new number, never the deleted one's.
    m.Append();
    m.FieldByName(QStringLiteral("name")).SetValue(QStringLiteral("kiwi"));
    m.Post();
    EXPECT_NE(m.GetBookmark(), fig);
    EXPECT_FALSE(m.BookmarkValid(fig));
    EXPECT_EQ(m.GetRecordCount(), 4);
}

TEST_F(MemDataSetTest, LocateAndLookup) {
    m.Last();
    EXPECT_TRUE(m.Locate(QStringLiteral("name"), {QStringLiteral("PLUM  ")}, loCaseInsensitive));
    EXPECT_EQ(m.GetRecNo(), 3);
    EXPECT_FALSE(m.Locate(QStringLiteral("name"), {QStringLiteral("plum")}));
    EXPECT_EQ(m.GetRecNo(), 3);  // stays where it was
    EXPECT_TRUE(m.Locate(QStringLiteral("name"), {QStringLiteral("ap")}, loPartialKey));
    EXPECT_EQ(m.GetRecNo(), 2);
    // Null matches null only; numbers compare whatever their variant type.
    EXPECT_TRUE(m.Locate(QStringLiteral("qty"), {QVariant()}));
    EXPECT_EQ(m.FieldByName(QStringLiteral("name")).AsString(), QStringLiteral("apple"));
    EXPECT_TRUE(m.Locate(QStringLiteral("qty;price"), {7, 3.25}));
    EXPECT_EQ(m.FieldByName(QStringLiteral("name")).AsString(), QStringLiteral("fig"));
    m.First();
    EXPECT_EQ(m.Lookup(QStringLiteral("qty"), {12}, QStringLiteral("name;price")),
              QVariantList({QStringLiteral("Plum"), 2.0}));
    EXPECT_EQ(m.GetRecNo(), 1);
    EXPECT_TRUE(m.Lookup(QStringLiteral("qty"), {99}, QStringLiteral("name")).isEmpty());
}

TEST_F(MemDataSetTest, FiltersByTextAndByHandler) {
    m.SetFilterText(QStringLiteral("qty > 5"));
    m.SetFiltered(true);
    EXPECT_EQ(Names(), QStringList({"Plum", "fig"}));
    EXPECT_EQ(m.GetFilteredCount(), 2);
    m.Last();
    EXPECT_EQ(m.GetFilteredRecNo(), 2);

    // Equal rank, left to right: this is ((qty > 5) or name) = 'pear'.
    m.SetFilterText(QStringLiteral("qty > 5 or name = 'pear'"));
    EXPECT_TRUE(Names().isEmpty());
    m.SetFilterText(QStringLiteral("(qty > 5) or (name = 'pear')"));
    EXPECT_EQ(Names(), QStringList({"pear", "Plum", "fig"}));
    m.SetFilterText(QStringLiteral("name not like 'p%'"));
    EXPECT_EQ(Names(), QStringList({"apple", "fig"}));  // ASCII letters fold

    // A handler has the last word on the text's verdict.
    m.OnFilterRecord = [](TDataSet& DataSet, bool& Accept) {
        Accept = Accept && DataSet.FieldByName(QStringLiteral("price")).Value().toDouble() > 1;
    };
    EXPECT_EQ(Names(), QStringList({"fig"}));
    m.SetFilterText(QString());
    EXPECT_EQ(Names(), QStringList({"pear", "Plum", "fig"}));
    m.SetFiltered(false);
    EXPECT_EQ(Names().size(), 4);
}

TEST_F(MemDataSetTest, CopiesRowsFromAQuery) {
    ASSERT_TRUE(SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB));
    InstallSQLParserServices();
    TempDir dir;
    TDLSQLiteDatabase db;
    db.FShowWaitCursor = false;
    db.SetFileName(dir.file(QStringLiteral("c.db")));
    db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
    TDLQuery q;
    q.SetDatabase(&db);
    q.SetSQL(QStringLiteral("select 'melon' as name, 2 as qty, 'x' as other union all select 'lime', null, 'y'"));
    q.Open();
    m.CopyRecs(q);
    EXPECT_EQ(m.GetRecordCount(), 6);
    EXPECT_EQ(m.FieldByName(QStringLiteral("name")).AsString(), QStringLiteral("lime"));
    EXPECT_TRUE(m.FieldByName(QStringLiteral("qty")).IsNull());
    q.Close();
    EXPECT_THROW(m.CopyRecord(q), ECustomException);
    EXPECT_EQ(m.GetRecordCount(), 6);
}

TEST(BlobStream, WritesIntoTheEditedRowOnly) {
    TDLMemDataSet m;
    m.FieldDefs().Add(QStringLiteral("b"), ftBlob);
    m.FieldDefs().Add(QStringLiteral("w"), ftWideMemo);
    m.CreateDataSet();
    m.Append();
    m.Post();
    const TField& b = m.FieldByName(QStringLiteral("b"));
    EXPECT_TRUE(b.IsNull());
    try {
        TDLBlobStream s(m, b, bmWrite);
        FAIL() << "wrote outside edit";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(), QStringLiteral("Not editing "));
    }

    m.Edit();
    { TDLBlobStream s(m, b, bmWrite); }  // nothing written: empty, not null
    m.Post();
    EXPECT_FALSE(b.IsNull());
    EXPECT_TRUE(b.Value().toByteArray().isEmpty());

    m.Edit();
    {
        TDLBlobStream s(m, b, bmReadWrite);
        s.write("\x01\x02\x03\x04", 4);
        s.seek(2);
        s.Truncate();
    }
    m.Post();
    EXPECT_EQ(b.Value().toByteArray(), QByteArray("\x01\x02", 2));
    TDLBlobStream r(m, b, bmRead);
    EXPECT_EQ(r.readAll(), QByteArray("\x01\x02", 2));

    // Variant comparison looks at the shorter length only, on purpose.
    EXPECT_EQ(CompareBlobValues(QByteArray("\x01\x02", 2), QByteArray("\x01\x02\x03", 3)), 0);
    EXPECT_LT(CompareBlobValues(QByteArray(), QByteArray("\x00", 1)), 0);
    EXPECT_EQ(BlobAsWideString(QByteArray("a\0b\0c", 5)), QStringLiteral("ab"));
}

TEST(MemDataSetFilter, DatesCompareWithDateText) {
    TDLMemDataSet m;
    m.FieldDefs().Add(QStringLiteral("d"), ftDateTime);
    m.CreateDataSet();
    for (int day : {10, 20}) {
        double value = 0;
        ASSERT_TRUE(TryEncodeDate(2024, 1, day, value));
        m.Append();
        m.FieldByName(QStringLiteral("d")).SetValue(value + 0.5);  // noon
        m.Post();
    }
    m.SetFilterText(QStringLiteral("d > '2024-01-15'"));
    m.SetFiltered(true);
    m.First();
    EXPECT_EQ(m.GetFilteredCount(), 1);
    EXPECT_EQ(DateTimeToString(m.FieldByName(QStringLiteral("d")).Value().toDouble()),
              QStringLiteral("2024-01-20 12:00:00.000"));
    m.SetFilterDateFormat(QStringLiteral("dd.mm.yyyy"));
    m.SetFilterText(QStringLiteral("d < '15.01.2024'"));
    EXPECT_EQ(m.GetFilteredCount(), 1);
    EXPECT_EQ(DateTimeToString(m.FieldByName(QStringLiteral("d")).Value().toDouble()),
              QStringLiteral("2024-01-10 12:00:00.000"));
}
