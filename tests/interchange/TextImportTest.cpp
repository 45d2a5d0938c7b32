// Delimited text into datasets and tables: type detection by the cases of
// tests/fixtures/csv/types.txt, the memory dataset of a paste, and imports
// into new and existing tables that a failure or a stop leaves as they were.
#include "InterchangeTestSupport.h"
#include "QtPrinters.h"

#include "data/DLMemDataSet.h"
#include "engine/Exceptions.h"
#include "interchange/TextImport.h"

#include <QFile>

using namespace brindle;
using namespace brindle::test;

namespace {

QString TypeText(const TImportField& F) {
    static const std::pair<TFieldType, const char*> names[] = {
        {ftWideString, "WideString"}, {ftBoolean, "Boolean"}, {ftLargeint, "Largeint"},
        {ftFloat, "Float"},           {ftBlob, "Blob"},       {ftWideMemo, "WideMemo"}};
    QString text = QStringLiteral("?");
    for (const auto& [type, name] : names)
        if (type == F.DataType) text = QLatin1String(name);
    if (F.DataType == ftWideString) text += QStringLiteral("(%1)").arg(F.Size);
    return text;
}

QString Unescape(QString Value) {
    if (Value == u"<empty>") return QString();
    Value.replace(QStringLiteral("\\n"), QStringLiteral("\n"));
    Value.replace(QStringLiteral("\\r"), QStringLiteral("\r"));
    Value.replace(QStringLiteral("\\0"), QString(QChar(0)));
    return Value;
}

QString Failure(const std::function<void()>& Work) {
    try {
        Work();
    } catch (const ECustomException& e) {
        return e.message();
    }
    return QStringLiteral("no exception");
}

}  // namespace

TEST(TextImportTypes, EachCaseOfTheFixture) {
    QFile file(QStringLiteral(BRINDLE_TEST_DATA "/csv/types.txt"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly | QIODevice::Text));
    int cases = 0;
    for (const QString& line : QString::fromUtf8(file.readAll()).split(u'\n')) {
        if (line.isEmpty() || line.startsWith(u'#')) continue;
        const QStringList parts = line.split(u'\t');
        TFieldInfo info{QStringLiteral("c"), {ftBoolean, ftFloat, ftWideString, ftLargeint, ftWideMemo}, 0};
        for (QString value : parts.mid(1)) {
            const bool quoted = value.startsWith(QLatin1String("q:"));
            if (quoted) value.remove(0, 2);
            TTextImporter::TestDataType(Unescape(value), info, quoted);
        }
        EXPECT_EQ(TypeText(TTextImporter::ChooseField(info)), parts[0]) << line.toStdString();
        ++cases;
    }
    EXPECT_GT(cases, 30);
}

TEST(TextImportDataSet, PasteMakesFieldsFromTheHeaderAndLoadsEveryRow) {
    TDLMemDataSet m;
    auto text = Stream(
        "code,qty,price,note,data\r\n"
        "007,1,2.5,,x'00FF'\r\n"
        "\r\n"
        "010,2,3,\"\",\r\n"
        "011,3\r\n");
    TextStreamToMemDataSet(m, *text, TEncoding::UTF8(), u',');
    ASSERT_EQ(m.Fields().Count(), 5);
    EXPECT_EQ(m.FieldByName(QStringLiteral("code")).DataType(), ftWideString);
    EXPECT_EQ(m.FieldByName(QStringLiteral("code")).Size(), 3);
    EXPECT_EQ(m.FieldByName(QStringLiteral("qty")).DataType(), ftLargeint);
    EXPECT_EQ(m.FieldByName(QStringLiteral("price")).DataType(), ftFloat);
    EXPECT_EQ(m.FieldByName(QStringLiteral("data")).DataType(), ftBlob);
    // The blank line is no row; the short row leaves the rest null.
    EXPECT_EQ(m.GetRecordCount(), 3);
    EXPECT_EQ(m.FieldByName(QStringLiteral("code")).AsString(), QStringLiteral("007"));
    EXPECT_EQ(m.FieldByName(QStringLiteral("price")).Value().toDouble(), 2.5);
    EXPECT_TRUE(m.FieldByName(QStringLiteral("note")).IsNull());
    EXPECT_EQ(m.FieldByName(QStringLiteral("data")).Value().toByteArray(), QByteArray("\x00\xFF", 2));
    m.Next();
    EXPECT_FALSE(m.FieldByName(QStringLiteral("note")).IsNull());
    EXPECT_TRUE(m.FieldByName(QStringLiteral("data")).IsNull());
    m.Next();
    EXPECT_TRUE(m.FieldByName(QStringLiteral("price")).IsNull());

    // A header naming a column twice, whatever the case.
    EXPECT_EQ(Failure([&] { TextStreamToMemDataSet(m, *Stream("A,b,a\n1,2,3\n"), TEncoding::UTF8(), u','); }),
              QStringLiteral("Error: duplicate field name: 'a'"));
    // Nothing at all gives no fields, and a paste of it an empty set.
    TextStreamToMemDataSet(m, *Stream(""), TEncoding::UTF8(), u',');
    EXPECT_EQ(m.Fields().Count(), 0);
    EXPECT_EQ(m.GetRecordCount(), 0);
    TTextImporter importer;
    TDLMemDataSet empty;
    importer.DetectFields(empty, *Stream(""), true, u',', TEncoding::UTF8(), true);
    EXPECT_EQ(empty.Fields().Count(), 0);
}

TEST(TextImportDataSet, WithoutDetectionOrHeaderAndWithSkippedLines) {
    TTextImporter importer;
    importer.FSkipLines = 2;
    auto text = Stream("exported by hand\nsecond line, \"with a quote\n1,2\n3,4\n");
    TDLMemDataSet m;
    importer.DetectFields(m, *text, false, u',', TEncoding::UTF8(), false);
    ASSERT_EQ(m.Fields().Count(), 2);
    EXPECT_EQ(m.Fields()[0].FieldName(), QStringLiteral("Field_1"));
    EXPECT_EQ(m.Fields()[1].DataType(), ftWideMemo);
    m.Open();
    importer.LoadDataSet(m, *text, u',', TEncoding::UTF8(), false);
    EXPECT_EQ(m.GetRecordCount(), 2);
    m.First();
    EXPECT_EQ(m.Fields()[0].AsString(), QStringLiteral("1"));
}

TEST(TextImportSQL, EachRowIsAnInsertWithParameters) {
    TTextImporter importer;
    QStringList statements;
    QList<QVariantList> rows;
    importer.FOnSQLCallback = [&](const QString& SQL, TParams& Params) {
        statements << SQL;
        QVariantList values;
        for (int i = 0; i < Params.Count(); ++i) values << Params[i].Value;
        rows << values;
    };
    TDLMemDataSet target;
    importer.SQLImport(target, *Stream("a,b\n1,x'01'\n\"x'01'\"\n"), QStringLiteral("t"), u',',
                       TEncoding::UTF8(), true);
    ASSERT_EQ(statements.size(), 2);
    EXPECT_EQ(statements[0], QStringLiteral("insert into [t]([a], [b]) values(?, ?)"));
    EXPECT_EQ(rows[0], QVariantList({QStringLiteral("1"), QByteArray("\x01")}));
    EXPECT_EQ(rows[1][0], QVariant(QStringLiteral("x'01'")));  // quoted: text
    EXPECT_FALSE(rows[1][1].isValid());                        // short row: null
}

class TextImportTable : public DatabaseTest {
protected:
    TTextImportResult Import(const QByteArray& Bytes, const QString& Table, bool NewTable,
                             bool Delete = false, bool HasHeader = true) {
        auto text = Stream(Bytes);
        TTextImportTarget target;
        target.TableName = Table;
        target.NewTable = NewTable;
        target.DeleteExistingData = Delete;
        return importer.ImportIntoTable(db, *text, target, u',', TEncoding::UTF8(), HasHeader);
    }

    QString Rows(const QString& Table) {
        return Values(QStringLiteral(
                          "select group_concat(r, ' | ') from (select quote(a) || ',' || quote(b) as r "
                          "from %1 order by rowid)")
                          .arg(Table))
            .value(0);
    }

    TTextImporter importer;
};

TEST_F(TextImportTable, ANewTableTakesTheDetectedTypes) {
    const TTextImportResult r = Import(
        "id,code,amount,flag,note,data\n"
        "1,007,2.5,true,,x'CAFE'\n"
        "2,010,3,FALSE,\"\",\n"
        "3,12,-1e3,true,\"two\nlines\",x'00'\n",
        QStringLiteral("new one"), true);
    EXPECT_TRUE(r.TableCreated);
    EXPECT_EQ(r.RowsImported, 3);
    EXPECT_EQ(db.GetObjectDDL(QString(), QStringLiteral("new one")),
              QStringLiteral(
                  "CREATE TABLE [new one] (\r\n  [id] INTEGER, \r\n  [code] CHAR(3), \r\n  [amount] FLOAT, "
                  "\r\n  [flag] BOOLEAN, \r\n  [note] CHAR, \r\n  [data] BLOB)"));
    EXPECT_EQ(
        Values(QStringLiteral("select typeof(id) || ' ' || quote(code) || ' ' || quote(amount) || ' ' || "
                              "quote(flag) || ' ' || quote(note) || ' ' || quote(data) from [new one]")),
        QStringList({"integer '007' 2.5 'true' NULL X'CAFE'", "integer '010' 3.0 'FALSE' '' NULL",
                     "integer '12' -1000.0 'true' 'two\nlines' X'00'"}));
}

TEST_F(TextImportTable, AnExistingTableTakesRowsByHeaderNames) {
    db.Execute(QStringLiteral("create table t(a text, b integer, c)"));
    db.Execute(QStringLiteral("insert into t values ('old', 0, null)"));
    // Names in another order and case; a column the file lacks stays null.
    Import("B,A\n1,x\n2,\n", QStringLiteral("t"), false);
    EXPECT_EQ(Rows(QStringLiteral("t")), QStringLiteral("'old',0 | 'x',1 | NULL,2"));
    // Replacing the rows, under the same savepoint.
    Import("b,a\n5,y\n", QStringLiteral("T"), false, true);
    EXPECT_EQ(Rows(QStringLiteral("t")), QStringLiteral("'y',5"));
    // No header: the first columns in order.
    Import("z,7\n", QStringLiteral("t"), false, false, false);
    EXPECT_EQ(Rows(QStringLiteral("t")), QStringLiteral("'y',5 | 'z',7"));
}

TEST_F(TextImportTable, RefusalsLeaveTheTableAsItWas) {
    db.Execute(QStringLiteral("create table t(a text, b integer unique)"));
    db.Execute(QStringLiteral("insert into t values ('kept', 1)"));
    const QString before = Rows(QStringLiteral("t"));
    const auto refused = [&](const QByteArray& Bytes, bool NewTable = false, bool Delete = true) {
        return Failure([&] { Import(Bytes, QStringLiteral("t"), NewTable, Delete); });
    };
    EXPECT_EQ(refused("a,x\n1,2\n"),
              QStringLiteral(
                  "The table t has no column named \"x\" for the file's column 2; its columns are: a, b."));
    EXPECT_EQ(refused("a,b\n1,2\n", true), QStringLiteral("A table named t exists already."));
    EXPECT_EQ(refused(""), QStringLiteral("The file holds no rows to import."));
    // A row wider than the header would lose values; a trailing empty one not.
    EXPECT_EQ(refused("a,b\nx,2,\ny,3,extra\n"),
              QStringLiteral("Line 3: The row has 3 values, but there are 2 columns."));
    EXPECT_EQ(
        refused("a,b\nx,5\n\"open,6\n"),
        QStringLiteral("Line 3: CSV parser error: the quoted value that begins on line 3 is never closed."));
    EXPECT_EQ(refused("a,b\nx,5\ny,\xFF\n"),
              QStringLiteral("The text is not valid UTF-8: invalid bytes at byte offset 10 (line 3)."));
    EXPECT_TRUE(
        refused("a,b\nx,5\ny,5\n").startsWith(QLatin1String("Line 3: UNIQUE constraint failed: t.b")));
    EXPECT_EQ(Rows(QStringLiteral("t")), before);
    EXPECT_EQ(Failure([&] { Import("a\n1\n", QStringLiteral("missing"), false); }),
              QStringLiteral("No table named missing"));
    EXPECT_FALSE(db.GetInTransaction());

    // Inside the caller's transaction only the import is undone.
    db.BeginTransaction();
    db.Execute(QStringLiteral("insert into t values ('mine', 2)"));
    EXPECT_NE(refused("a,b\nx,3\ny,1\n", false, false), QStringLiteral("no exception"));
    EXPECT_TRUE(db.GetInTransaction());
    db.Commit();
    EXPECT_EQ(Rows(QStringLiteral("t")), QStringLiteral("'kept',1 | 'mine',2"));
}

TEST_F(TextImportTable, ShortRowsHeaderOnlyAndIgnoredErrorsAreNoted) {
    db.Execute(QStringLiteral("create table t(a, b)"));
    TTextImportResult r = Import("a,b\n1\n2,x\n3\n", QStringLiteral("t"), false);
    EXPECT_EQ(r.ShortRows, 2);
    EXPECT_EQ(importer.FErrors,
              QStringList({"2 rows had fewer values than columns, the first on line 2; their other "
                           "columns are NULL."}));
    EXPECT_EQ(Rows(QStringLiteral("t")), QStringLiteral("'1',NULL | '2','x' | '3',NULL"));

    importer.FErrors.clear();
    r = Import("a,b\n", QStringLiteral("header only"), true);
    EXPECT_TRUE(r.TableCreated);
    EXPECT_EQ(importer.FErrors, QStringList({"No rows imported: the file holds only its header line."}));

    importer.FErrors.clear();
    importer.FIgnoreErrors = true;
    r = Import("a,b\n4,5\nba\"d,6\n7,8,9\n10,11\n", QStringLiteral("t"), false, true);
    EXPECT_EQ(r.RowsImported, 2);
    EXPECT_EQ(r.RowsSkipped, 2);
    EXPECT_EQ(importer.FErrors, QStringList({"Line 3: CSV parser error: unexpected double-quote character.",
                                             "Line 4: The row has 3 values, but there are 2 columns."}));
    EXPECT_EQ(Rows(QStringLiteral("t")), QStringLiteral("'4','5' | '10','11'"));
}

TEST_F(TextImportTable, AStopHalfWayLeavesTheTableUnchanged) {
    db.Execute(QStringLiteral("create table t(a, b)"));
    db.Execute(QStringLiteral("insert into t values ('before', 0)"));
    QByteArray text = "a,b\n";
    for (int i = 0; i < 5000; ++i) text += QByteArray::number(i) + ",row\n";
    QStringList messages;
    importer.FOnProgress = [&](const QString& Message, bool& Canceled) {
        messages << Message;
        if (messages.size() == 2) Canceled = true;
    };
    TTextImportResult r = Import(text, QStringLiteral("t"), false, true);
    EXPECT_TRUE(r.Canceled);
    EXPECT_EQ(messages,
              QStringList({"1024 rows imported, 0 rows skipped", "2048 rows imported, 0 rows skipped"}));
    EXPECT_EQ(Rows(QStringLiteral("t")), QStringLiteral("'before',0"));
    EXPECT_FALSE(db.GetInTransaction());

    // A stop from outside, as Ctrl+C gives, while a new table fills: no table.
    TTextImporter other;
    other.FOnProgress = [&](const QString&, bool&) { other.Cancel(); };
    TTextImportTarget target;
    target.TableName = QStringLiteral("fresh");
    target.NewTable = true;
    target.Fields = {{QStringLiteral("a"), ftLargeint, 0}, {QStringLiteral("b"), ftWideString, 10}};
    r = other.ImportIntoTable(db, *Stream(text), target, u',', TEncoding::UTF8(), true);
    EXPECT_TRUE(r.Canceled);
    EXPECT_FALSE(r.TableCreated);
    EXPECT_FALSE(db.TableExists(QStringLiteral("fresh")));
}

TEST(TextImportGuesses, TableAndFirstLine) {
    const QStringList tables{QStringLiteral("Orders"), QStringLiteral("lines")};
    EXPECT_EQ(GuessTable(QStringLiteral("/tmp/x/orders.csv"), tables).TableName, QStringLiteral("Orders"));
    EXPECT_TRUE(GuessTable(QStringLiteral("/tmp/x/orders.csv"), tables).Exists);
    EXPECT_EQ(GuessTable(QStringLiteral("/tmp/x/new.data.csv"), tables).TableName,
              QStringLiteral("new_data"));
    EXPECT_FALSE(GuessTable(QStringLiteral("new.data.csv"), tables).Exists);

    TempDir dir;
    const auto firstLine = [&](const QByteArray& Bytes) {
        return DetectFirstLine(dir.write(QStringLiteral("f.csv"), Bytes), TEncoding::UTF8(), u',');
    };
    EXPECT_TRUE(firstLine("id,price\n1,2.5\n2,3\n"));
    EXPECT_FALSE(firstLine("1,2.5\n2,3\n"));
    EXPECT_TRUE(firstLine("name,city\nann,paris\nbob,rome\n"));
    EXPECT_FALSE(firstLine("ann,ann\nbob,rome\n"));
    EXPECT_TRUE(firstLine("a,b\n1,2\n\xFF,3\n"));  // what it could read, and no more
    EXPECT_EQ(DetectDelimiter(dir.write(QStringLiteral("g.csv"), "a;b\n1;2\n"), TEncoding::UTF8()), u';');
}
