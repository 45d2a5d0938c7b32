// Delimited text into rows: the CSV and TSV state machines, decoding in
// blocks (marks, torn characters, invalid bytes), and the guesses of a
// file's delimiter and encoding over the fixtures of tests/fixtures/csv
// (made by its make.sh).
#include "QtPrinters.h"

#include "engine/Encoding.h"
#include "interchange/CSVParser.h"
#include "interchange/TSVParser.h"
#include "interchange/TextParser.h"
#include "tools/Encodings.h"

#include <gtest/gtest.h>
#include <QBuffer>
#include <QFile>

using namespace brindle;

namespace {

const QString kNull = QStringLiteral("<NULL>");

// Every row of the bytes, Null values as <NULL>.
QList<QStringList> ReadAll(const QByteArray& Bytes, char16_t Delimiter = u',',
                           const TEncoding& Encoding = TEncoding::UTF8()) {
    QBuffer buffer;
    buffer.setData(Bytes);
    buffer.open(QIODevice::ReadOnly);
    const auto parser = CreateTextParser(buffer, Encoding, Delimiter);
    QList<QStringList> rows;
    for (;;) {
        const TValues values = parser->ReadValues();
        if (values.empty()) break;
        QStringList row;
        for (const QVariant& v : values) row << (v.isValid() ? v.toString() : kNull);
        rows << row;
    }
    EXPECT_TRUE(parser->Eof());
    return rows;
}

QString FirstFailure(const QByteArray& Bytes, const TEncoding& Encoding = TEncoding::UTF8()) {
    try {
        ReadAll(Bytes, u',', Encoding);
    } catch (const ECustomException& e) {
        return e.message();
    }
    return QStringLiteral("no exception");
}

QString Fixture(const QString& Name) {
    return QStringLiteral(BRINDLE_TEST_DATA "/csv/") + Name;
}

}  // namespace

TEST(CSVParser, NullEmptyQuotesAndDelimiters) {
    using Rows = QList<QStringList>;
    EXPECT_EQ(ReadAll("a,,b\n"), Rows({{"a", kNull, "b"}}));
    EXPECT_EQ(ReadAll("a,\"\",b\n"), Rows({{"a", "", "b"}}));
    EXPECT_EQ(ReadAll("\"a\"\"b\"\n"), Rows({{"a\"b"}}));
    // Delimiters and line ends inside quotes are kept as they stand.
    EXPECT_EQ(ReadAll("\"x,y\",\"1\r\n2\",z\r\n"), Rows({{"x,y", "1\r\n2", "z"}}));
    // A trailing delimiter is a trailing Null; blanks are kept.
    EXPECT_EQ(ReadAll("a, b ,\n"), Rows({{"a", " b ", kNull}}));
    // Text after a closing quote is dropped.
    EXPECT_EQ(ReadAll("\"ab\"cd,x"), Rows({{"ab", "x"}}));
    // A semicolon splits only when it is the delimiter.
    EXPECT_EQ(ReadAll("a;b,c\n"), Rows({{"a;b", "c"}}));
    EXPECT_EQ(ReadAll("a;b,c\n", u';'), Rows({{"a", "b,c"}}));
    // Another quote character.
    QBuffer buffer;
    buffer.setData("'it''s',\"x\"\n");
    buffer.open(QIODevice::ReadOnly);
    TCSVParser parser(buffer, TEncoding::UTF8());
    parser.SetQuoteChar(u'\'');
    const TValues values = parser.ReadValues();
    ASSERT_EQ(values.size(), 2u);
    EXPECT_EQ(values[0].toString(), QStringLiteral("it's"));
    EXPECT_EQ(values[1].toString(), QStringLiteral("\"x\""));
}

TEST(CSVParser, LineEndsAndTheEndOfInput) {
    using Rows = QList<QStringList>;
    // A blank line ended by CR LF is a row of one Null; one ended by LF alone
    // is no row at all.
    EXPECT_EQ(ReadAll("a\r\n\r\nb\r\n"), Rows({{"a"}, {kNull}, {"b"}}));
    EXPECT_EQ(ReadAll("a\n\nb\n"), Rows({{"a"}, {"b"}}));
    // Only a line feed ends a row.
    EXPECT_EQ(ReadAll("a\rb\rc"), Rows({{"a", "b", "c"}}));
    // The last row needs no line end; the next read gives nothing.
    EXPECT_EQ(ReadAll("a,b\nc,d"), Rows({{"a", "b"}, {"c", "d"}}));
    EXPECT_EQ(ReadAll(""), Rows());
    EXPECT_EQ(ReadAll("\xEF\xBB\xBF"), Rows());
    // Code 0 ends the input outside quotes, and is a character inside them.
    EXPECT_EQ(ReadAll(QByteArray("a,b\nc\0,d\ne\n", 11)), Rows({{"a", "b"}, {"c"}}));
    EXPECT_EQ(ReadAll(QByteArray("\"x\0y\",z\n", 9)), Rows({{QString::fromUtf16(u"x\0y", 3), "z"}}));
}

TEST(CSVParser, BadRowsFailWhenReadAndTheNextLineStillReads) {
    QBuffer buffer;
    buffer.setData("ab\"c,d\nnext,row\n\"open,\nand on\n");
    buffer.open(QIODevice::ReadOnly);
    TCSVParser parser(buffer, TEncoding::UTF8());
    try {
        parser.ReadValues();
        ADD_FAILURE() << "no exception";
    } catch (const ECSVParserError& e) {
        EXPECT_EQ(e.message(), QStringLiteral("CSV parser error: unexpected double-quote character."));
    }
    const TValues next = parser.ReadValues();
    ASSERT_EQ(next.size(), 2u);
    EXPECT_EQ(next[0].toString(), QStringLiteral("next"));
    // A quote that never closes swallows no rows silently: the error names
    // the line where the value began.
    try {
        parser.ReadValues();
        ADD_FAILURE() << "no exception";
    } catch (const ECSVParserError& e) {
        EXPECT_EQ(
            e.message(),
            QStringLiteral("CSV parser error: the quoted value that begins on line 3 is never closed."));
    }
    EXPECT_TRUE(parser.Eof());
    EXPECT_TRUE(parser.ReadValues().empty());
}

TEST(TSVParser, TabsOnlyAndNoQuoting) {
    using Rows = QList<QStringList>;
    EXPECT_EQ(ReadAll("a\t\tb\n", u'\t'), Rows({{"a", "", "b"}}));
    EXPECT_EQ(ReadAll("\"a,b\"\tc\r\n\r\nd\t", u'\t'), Rows({{"\"a,b\"", "c"}, {""}, {"d", ""}}));
    // A carriage return ends a value even right after another.
    EXPECT_EQ(ReadAll("a\r\r\nb\n", u'\t'), Rows({{"a", ""}, {"b"}}));
    EXPECT_EQ(ReadAll(QByteArray("a\0b\n", 4), u'\t'), Rows({{QString::fromUtf16(u"a\0b", 3)}}));
    QBuffer buffer;
    TTSVParser parser(buffer, TEncoding::UTF8());
    EXPECT_EQ(parser.Delimiter(), u'\t');
}

TEST(TextBuffer, MarksTornCharactersAndInvalidBytes) {
    // A character of each width astride the block boundary arrives whole.
    for (const char* wide : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9D\x84\x9E"}) {
        const QByteArray character(wide);
        for (int before = 1; before < character.size(); ++before) {
            QByteArray bytes(TBuffer::BLOCK_SIZE - before, 'a');
            bytes += character + ",z\n";
            const QList<QStringList> rows = ReadAll(bytes);
            ASSERT_EQ(rows.size(), 1);
            EXPECT_EQ(rows[0][0], QString(TBuffer::BLOCK_SIZE - before, u'a') + QString::fromUtf8(character));
            EXPECT_EQ(rows[0][1], QStringLiteral("z"));
        }
    }
    // UTF-16 in both orders, the mark skipped.
    const QString text = QStringLiteral("ä,€\n");
    QByteArray le("\xFF\xFE"), be("\xFE\xFF");
    le += TEncoding::Unicode().GetBytes(text);
    be += TEncoding::BigEndianUnicode().GetBytes(text);
    EXPECT_EQ(ReadAll(le, u',', TEncoding::Unicode()), QList<QStringList>({{"ä", "€"}}));
    EXPECT_EQ(ReadAll(be, u',', TEncoding::BigEndianUnicode()), QList<QStringList>({{"ä", "€"}}));

    // Bytes that are not text in the chosen encoding stop the reading, at
    // the byte and line they are on; rows before them read.
    EXPECT_EQ(FirstFailure("a,b\nc,d\ne,\xFF\n"),
              QStringLiteral("The text is not valid UTF-8: invalid bytes at byte offset 10 (line 3)."));
    EXPECT_EQ(FirstFailure(QByteArray(70000, 'x') + "\n\xC3"),
              QStringLiteral("The text is not valid UTF-8: invalid bytes at byte offset 70001 (line 2)."));
    EXPECT_EQ(FirstFailure("\xEF\xBB\xBF"
                           "a,\x81\n",
                           TEncoding::GetEncoding(932)),
              QStringLiteral("The text begins with the byte order mark of UTF-8, but is read as Shift_JIS."));
    EXPECT_EQ(FirstFailure("\xFF\xFE"
                           "a\0",
                           TEncoding::UTF8()),
              QStringLiteral("The text begins with the byte order mark of UTF-16LE, but is read as UTF-8."));
}

TEST(FindDelimiter, TakesTheConsistentSplitAndTheEarlierOnATie) {
    const auto find = [](const QByteArray& Bytes) {
        QBuffer buffer;
        buffer.setData(Bytes);
        buffer.open(QIODevice::ReadOnly);
        return FindDelimiter(buffer, TEncoding::UTF8());
    };
    EXPECT_EQ(find("one\ntwo\nthree\n"), u',');
    EXPECT_EQ(find("a;b;c;d\n1;2;3;4\n"), u';');
    EXPECT_EQ(find("a,b;c,d;e\n1,2;3,4;5\n"), u',');  // 3 columns by both: the comma first
    EXPECT_EQ(find("a\tb\tc\n1\t2\t3\n"), u'\t');
    EXPECT_EQ(find("a|b|c\n1|2|3\n"), u'|');
    // Widths 2, 5, 2 pass for a candidate (5 / 2 is not above 2); 2, 6, 2 fail.
    EXPECT_EQ(find("a|b\n1|2|3|4|5\nx|y\n"), u'|');
    EXPECT_EQ(find("a|b\n1|2|3|4|5|6\nx|y\n"), u',');
    // A quoted delimiter does not split.
    EXPECT_EQ(find("\"a;b\",c\n\"d;e\",f\n"), u',');
    EXPECT_EQ(find(""), u'\0');
}

// Each fixture as the import dialog meets it: the encoding detected, the
// delimiter guessed, and a value with letters beyond ASCII read whole.
TEST(FindDelimiter, DetectsEncodingAndDelimiterOfTheFixtures) {
    const struct {
        const char* File;
        int CodePage;  // 0: a single-byte western one, 1252 or Latin-1
        char16_t Delimiter;
        int Row, Column;
        const char* Value;
    } cases[] = {
        {"utf8.csv", 65001, u',', 5, 0, "naïve café"},
        {"utf8-bom.csv", 65001, u',', 2, 0, "привет"},
        {"utf16le-bom.csv", 1200, u',', 3, 0, "γειά σου"},
        {"utf16be-bom.csv", 1201, u',', 4, 0, "你好"},
        {"windows-1252-semicolon.csv", 0, u';', 4, 3, "à l'étranger; noté à part"},
        {"windows-1252-pipe.csv", 1252, u'|', 2, 2, "„Gänsefüßchen“ – gut"},
        {"latin1.csv", 0, u',', 1, 1, "Hohe Straße"},
        {"shift-jis-tab.csv", 932, u'\t', 2, 3, "経理部、月末に請求書を確認"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.File);
        const TEncoding encoding = GetFileEncoding(Fixture(QLatin1String(c.File)));
        if (c.CodePage)
            EXPECT_EQ(encoding.CodePage(), c.CodePage);
        else
            EXPECT_TRUE(encoding.CodePage() == 1252 || encoding.CodePage() == 28591) << encoding.CodePage();
        QFile file(Fixture(QLatin1String(c.File)));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        EXPECT_EQ(FindDelimiter(file, encoding), c.Delimiter);
        file.seek(0);
        const QList<QStringList> rows = ReadAll(file.readAll(), c.Delimiter, encoding);
        ASSERT_GT(rows.size(), c.Row);
        EXPECT_EQ(rows[c.Row].value(c.Column), QString::fromUtf8(c.Value));
        EXPECT_EQ(rows[c.Row].size(), rows[0].size());
    }
}
