// Datasets out as delimited text: the exact CSV form, the lossy TSV form,
// chosen records, files written whole or not at all, and round trips of
// every storage class through the exporter, the parser and the importer.
#include "InterchangeTestSupport.h"
#include "QtPrinters.h"

#include "data/DLMemDataSet.h"
#include "data/DLQuery.h"
#include "engine/Exceptions.h"
#include "interchange/CSVParser.h"
#include "interchange/CSVWriter.h"
#include "interchange/TextExport.h"
#include "interchange/TextImport.h"

#include <cmath>
#include <limits>

using namespace brindle;
using namespace brindle::test;

namespace {

// name, n, f, b: a row of each kind of awkward value.
class TextExportMem : public ::testing::Test {
protected:
    void SetUp() override {
        m.FieldDefs().Add(QStringLiteral("name"), ftWideString, 20);
        m.FieldDefs().Add(QStringLiteral("n"), ftLargeint);
        m.FieldDefs().Add(QStringLiteral("f"), ftFloat);
        m.FieldDefs().Add(QStringLiteral("b"), ftBlob);
        m.CreateDataSet();
        Add(QStringLiteral("a\"b"), 1, 2.5, QByteArray("\x00\xFF", 2));
        Add(QVariant(), QVariant(), QVariant(), QVariant());
        Add(QStringLiteral(""), -3, 5.0, QVariant());
        Add(QStringLiteral("x;y"), 4, 0.1, QVariant());
    }

    void Add(const QVariant& Name, const QVariant& N, const QVariant& F, const QVariant& B) {
        m.Append();
        m.FieldByName(QStringLiteral("name")).SetValue(Name);
        m.FieldByName(QStringLiteral("n")).SetValue(N);
        m.FieldByName(QStringLiteral("f")).SetValue(F);
        m.FieldByName(QStringLiteral("b")).SetValue(B);
        m.Post();
    }

    TDLMemDataSet m;
};

}  // namespace

TEST_F(TextExportMem, CSVKeepsNullAndEmptyApartAndQuotesWhatItMust) {
    TCSVExporter csv(&m);
    QByteArray bytes;
    csv.Export(bytes);
    EXPECT_EQ(bytes, QByteArray("name,n,f,b\r\n"
                                "\"a\"\"b\",1,2.5,x'00FF'\r\n"
                                ",,,\r\n"
                                "\"\",-3,5.0,\r\n"
                                "x;y,4,0.1,\r\n"));
    // A semicolon is quoted when it delimits; BLOBs may be left out.
    csv.FDelimiter = u';';
    csv.FIncludeBlobs = false;
    const QStringList fields{QStringLiteral("b"), QStringLiteral("name")};
    csv.SetFieldNames(&fields);
    csv.Export(bytes);
    EXPECT_EQ(bytes, QByteArray("b;name\r\n(BLOB);\"a\"\"b\"\r\n;\r\n;\"\"\r\n;\"x;y\"\r\n"));
}

TEST_F(TextExportMem, TSVIsLossyAndSaysSo) {
    Add(QStringLiteral("tab\there"), 5, 1.0, QVariant());
    QStringList log;
    TTSVExporter tsv(&m);
    tsv.FErrorLog = &log;
    QByteArray bytes;
    tsv.Export(bytes);
    EXPECT_EQ(bytes, QByteArray("name\tn\tf\tb\r\n"
                                "a\"b\t1\t2.5\t[BLOB_DATA]\r\n"
                                "\t\t\t[BLOB_DATA]\r\n"
                                "\t-3\t5.0\t[BLOB_DATA]\r\n"
                                "x;y\t4\t0.1\t[BLOB_DATA]\r\n"
                                "[INVALID_DATA]\t5\t1.0\t[BLOB_DATA]\r\n"));
    EXPECT_EQ(log,
              QStringList({"Columns containing TAB, CR or LF characters have been saved as [INVALID_DATA]",
                           "Columns containing BLOB data have been saved as [BLOB_DATA]"}));
}

TEST_F(TextExportMem, ChosenRecordsByNumberOrBookmarkAndProgress) {
    TCSVExporter csv(&m);
    const QStringList fields{QStringLiteral("n")};
    csv.SetFieldNames(&fields);
    csv.FRecordNumbers = {4, 1, 2};
    QByteArray bytes;
    csv.Export(bytes);
    EXPECT_EQ(bytes, QByteArray("n\r\n4\r\n1\r\n\r\n"));

    csv.FRecordNumbers.clear();
    m.First();
    m.Next();
    m.Next();
    const QByteArray third = m.GetBookmark();
    m.First();
    csv.FBookmarks = {third, m.GetBookmark()};
    std::vector<int> progress;
    csv.FOnProgress = [&](int Count) { progress.push_back(Count); };
    csv.Export(bytes);
    EXPECT_EQ(bytes, QByteArray("n\r\n-3\r\n1\r\n"));
    EXPECT_EQ(progress, std::vector<int>({2}));
}

TEST_F(TextExportMem, AFileIsReplacedOnlyWhenTheExportIsComplete) {
    TempDir dir;
    const QString path = dir.write(QStringLiteral("out.csv"), "old contents\n");
    for (int i = 0; i < 200; ++i) Add(QStringLiteral("row %1").arg(i), i, i / 4.0, QVariant());

    TCSVExporter stopped(&m);
    stopped.FOnProgress = [&](int) { stopped.Cancel(); };
    stopped.Export(path);
    EXPECT_TRUE(stopped.Canceled());
    EXPECT_EQ(readFile(path), QByteArray("old contents\n"));

    Add(QStringLiteral("世界"), 0, 0.0, QVariant());
    TCSVExporter ansi(&m);
    ansi.FEncoding = TEncoding::GetEncoding(1252);
    try {
        ansi.Export(path);
        ADD_FAILURE() << "no exception";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.message(),
                  QStringLiteral("The character U+4E16 has no form in windows-1252: choose another "
                                 "encoding."));
    }
    EXPECT_EQ(readFile(path), QByteArray("old contents\n"));

    TCSVExporter utf16(&m);
    utf16.FEncoding = TEncoding::Unicode();
    utf16.FWriteEncodingPreamble = true;
    utf16.Export(path);
    const QByteArray written = readFile(path);
    EXPECT_TRUE(written.startsWith("\xFF\xFEn\0a\0m\0e\0"));
    EXPECT_TRUE(TEncoding::Unicode().GetChars(written.mid(2)).endsWith(QStringLiteral("世界,0,0.0,\r\n")));
}

TEST(CSVWriter, RealsReadBackToTheSameDouble) {
    const double values[] = {0.1,
                             0.1 + 0.2,
                             1e300,
                             -5.0,
                             1e-300,
                             5e-324,
                             std::numeric_limits<double>::max(),
                             123456789012345678.0,
                             -0.0,
                             1e16,
                             100.0};
    for (const double v : values) {
        const QString text = FloatToText(v);
        EXPECT_TRUE(text.contains(u'.')) << text.toStdString();
        bool ok = false;
        EXPECT_EQ(text.toDouble(&ok), v) << text.toStdString();
        EXPECT_TRUE(ok);
    }
    EXPECT_EQ(FloatToText(1e16), QStringLiteral("1.0e+16"));
    EXPECT_EQ(FloatToText(std::numeric_limits<double>::infinity()), QStringLiteral("9.0e+999"));
}

namespace {

class TextRoundTrip : public DatabaseTest {
protected:
    QByteArray ExportQuery(const QString& SQL) {
        TDLQuery q;
        q.FAllowPreprocess = false;
        q.SetDatabase(&db);
        q.SetSQL(SQL);
        q.Open();
        TCSVExporter csv(&q);
        QByteArray bytes;
        csv.Export(bytes);
        return bytes;
    }
};

}  // namespace

// Every storage class through CSV and back into a table of the same
// declared types: the same values, the same classes, REALs to the bit, and
// text in the column declared BLOB still text.
TEST_F(TextRoundTrip, EveryStorageClassComesBackAsItWas) {
    db.Execute(QStringLiteral("create table t(i integer, r real, s text, b blob)"));
    db.Execute(
        QStringLiteral("insert into t values "
                       "(0, 0.1, '', x''),"
                       "(-1, 0.30000000000000004, 'a\"b', x'00ff'),"
                       "(9223372036854775807, 1e300, 'x,y', 'x''00'''),"
                       "(-9223372036854775808, -5.0, 'line1' || char(13, 10) || 'line2', 'plain text'),"
                       "(null, 5e-324, ' lead', null),"
                       "(42, 1.7976931348623157e308, 'trail ', x'0d0a22'),"
                       "(7, null, char(9) || 'tab', ''),"
                       "(8, 123456789.125, '007', null),"
                       "(9, -0.0, 'Grüße 世界 𝄞', null),"
                       "(10, 3.0, 'a' || char(0) || 'b', null),"
                       "(11, 2.5, null, null),"
                       "(12, 1e16, 'lf' || char(10) || 'only', null)"));
    const QByteArray bytes = ExportQuery(QStringLiteral("select * from t"));

    // The parser reads the text column back value for value, NULL and the
    // empty string apart.
    auto stream = Stream(bytes);
    TCSVParser parser(*stream, TEncoding::UTF8());
    parser.ReadValues();  // the header
    QStringList texts;
    db.GetValues(QStringLiteral("select coalesce(s, '<NULL>') from t order by rowid"), texts);
    texts[9] = QString::fromUtf16(u"a\0b", 3);  // what the engine's own text stops at
    for (const QString& expected : texts) {
        const TValues row = parser.ReadValues();
        ASSERT_EQ(row.size(), 4u);
        EXPECT_EQ(row[2].isValid() ? row[2].toString() : QStringLiteral("<NULL>"), expected);
    }
    EXPECT_TRUE(parser.ReadValues().empty());

    db.Execute(QStringLiteral("create table back(i integer, r real, s text, b blob)"));
    TTextImporter importer;
    TTextImportTarget target;
    target.TableName = QStringLiteral("back");
    importer.ImportIntoTable(db, *Stream(bytes), target, u',', TEncoding::UTF8(), true);
    EXPECT_EQ(Values(QStringLiteral("select count(*) from back")), QStringList({"12"}));
    EXPECT_EQ(
        Values(QStringLiteral(
            "select count(*) from t join back on t.rowid = back.rowid where t.i is not back.i or "
            "t.r is not back.r or t.s is not back.s or t.b is not back.b or typeof(t.i) <> typeof(back.i) or "
            "typeof(t.r) <> typeof(back.r) or typeof(t.s) <> typeof(back.s) or typeof(t.b) <> "
            "typeof(back.b)")),
        QStringList({"0"}));
}

// Text that looks like numbers or binary literals keeps its class through
// a new table as well: a column with a code of leading zeros stays text.
TEST_F(TextRoundTrip, ANewTableFromAnExportKeepsCodesAsText) {
    db.Execute(QStringLiteral("create table codes(code text, n integer)"));
    db.Execute(QStringLiteral("insert into codes values ('007', 1), ('x''00''', 2), ('12', 3)"));
    const QByteArray bytes = ExportQuery(QStringLiteral("select * from codes"));
    EXPECT_EQ(bytes, QByteArray("code,n\r\n007,1\r\n\"x'00'\",2\r\n12,3\r\n"));
    TTextImporter importer;
    TTextImportTarget target;
    target.TableName = QStringLiteral("copy");
    target.NewTable = true;
    importer.ImportIntoTable(db, *Stream(bytes), target, u',', TEncoding::UTF8(), true);
    EXPECT_EQ(Values(QStringLiteral("select typeof(code) || ':' || code || ':' || typeof(n) from copy")),
              QStringList({"text:007:integer", "text:x'00':integer", "text:12:integer"}));
}
