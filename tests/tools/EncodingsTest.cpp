// Encodings by code page, charset detection, and text files read and
// written through them. The fixtures are made by
// tests/fixtures/encodings/make.sh.
#include "QtPrinters.h"
#include "TempDir.h"

#include "engine/Encoding.h"
#include "engine/Exceptions.h"
#include "tools/Encodings.h"

#include <gtest/gtest.h>

using namespace brindle;

namespace {

QString Fixture(const char* Name) {
    return QStringLiteral(BRINDLE_TEST_DATA "/encodings/") + QLatin1String(Name);
}

// The exception's parameter, or "no exception".
QString FailureParam(const std::function<void()>& Work, const char* Param) {
    try {
        Work();
    } catch (const ECustomException& e) {
        return e.GetParam(QLatin1String(Param));
    }
    return QStringLiteral("no exception");
}

}  // namespace

TEST(Encoding, ConvertsEachKindOfCodePage) {
    const std::tuple<int, const char*, QString, QByteArray> cases[] = {
        {65001, "UTF-8", "Grüß €", "Gr\xC3\xBC\xC3\x9F \xE2\x82\xAC"},
        {1200, "UTF-16LE", "a€", QByteArray("a\0\xAC\x20", 4)},
        {1201, "UTF-16BE", "a€", QByteArray("\0a\x20\xAC", 4)},
        {1252, "windows-1252", "café €œ", "caf\xE9 \x80\x9C"},
        {28591, "ISO-8859-1", "café", "caf\xE9"},
        {932, "Shift_JIS", "日本", "\x93\xFA\x96\x7B"},
        {20127, "us-ascii", "plain", "plain"},
    };
    for (const auto& [codePage, name, text, bytes] : cases) {
        SCOPED_TRACE(name);
        const TEncoding encoding = TEncoding::GetEncoding(codePage);
        EXPECT_EQ(encoding.CodePage(), codePage);
        EXPECT_EQ(encoding.Name(), QLatin1String(name));
        EXPECT_EQ(encoding.GetBytes(text), bytes);
        EXPECT_EQ(encoding.GetByteCount(text), bytes.size());
        EXPECT_EQ(encoding.GetCharsStrict(bytes), text);
    }
}

TEST(Encoding, PresetsNamesAndPreambles) {
    EXPECT_EQ(TEncoding::GetEncoding(0), TEncoding::Default());
    EXPECT_EQ(TEncoding::Default().CodePage(), 1252);
    EXPECT_EQ(TEncoding::UTF8().GetPreamble(), QByteArray("\xEF\xBB\xBF"));
    EXPECT_EQ(TEncoding::Unicode().GetPreamble(), QByteArray("\xFF\xFE"));
    EXPECT_EQ(TEncoding::BigEndianUnicode().GetPreamble(), QByteArray("\xFE\xFF"));
    EXPECT_TRUE(TEncoding::Default().GetPreamble().isEmpty() && TEncoding::ASCII().GetPreamble().isEmpty());

    const std::pair<const char*, int> names[] = {
        {"utf8", 65001},        {"UTF-16", 1200},       {"UTF-16le", 1200}, {"utf-16BE", 1201},
        {"Windows-1252", 1252}, {"latin1", 28591},      {"Latin-1", 28591}, {"shift_jis", 932},
        {"Shift-JIS", 932},     {"CP932", 932},         {"ascii", 20127},   {" 1251 ", 1251},
        {"big5", 950},          {"iso-8859-15", 28605},
    };
    for (const auto& [name, codePage] : names)
        EXPECT_EQ(TEncoding::GetEncodingByName(QLatin1String(name)).CodePage(), codePage) << name;
    EXPECT_EQ(FailureParam([] { TEncoding::GetEncodingByName("klingon"); }, "Encoding"), "klingon");
    EXPECT_EQ(FailureParam([] { TEncoding::GetEncoding(4242); }, "CodePage"), "4242");
}

// Every code page the detector can report must be one this program reads.
TEST(Encoding, EveryDetectableCodePageConverts) {
    for (const TKnownCharset& row : KNOWN_CHARSETS) {
        const TEncoding encoding = TEncoding::GetEncoding(row.CodePage);
        EXPECT_EQ(encoding.GetChars(encoding.GetBytes("Hello")), "Hello") << row.Name;
    }
}

TEST(Encoding, InvalidBytesAreReplacedOrReportedByOffset) {
    const std::tuple<const char*, const TEncoding&, QByteArray, int> cases[] = {
        {"stray byte", TEncoding::UTF8(), "ab\xFFxy", 2},
        {"overlong form", TEncoding::UTF8(), "a\xC0\xAFz", 1},
        {"cut at the end", TEncoding::UTF8(), "ab\xC3", 2},
        {"encoded surrogate", TEncoding::UTF8(), "x\xED\xA0\x80", 1},
        {"odd length", TEncoding::Unicode(), QByteArray("a\0b", 3), 2},
        {"lone low surrogate", TEncoding::Unicode(), QByteArray("a\0\0\xDCz\0", 6), 2},
        {"eighth bit", TEncoding::ASCII(), "ab\x80", 2},
    };
    for (const auto& [why, encoding, bytes, offset] : cases) {
        SCOPED_TRACE(why);
        EXPECT_EQ(FailureParam([&] { encoding.GetCharsStrict(bytes); }, "Offset"), QString::number(offset));
        EXPECT_TRUE(encoding.GetChars(bytes).contains(QChar(0xFFFD)));
    }
    EXPECT_EQ(TEncoding::UTF8().GetChars("ab\xFFxy"), QStringLiteral("ab\uFFFDxy"));

    // Characters a code page lacks: '?' leniently, their position strictly.
    EXPECT_EQ(TEncoding::Default().GetBytes("Győr"), QByteArray("Gy?r"));
    EXPECT_EQ(FailureParam([] { TEncoding::Default().GetBytesStrict("Győr"); }, "Offset"), "2");
    EXPECT_EQ(FailureParam([] { TEncoding::ASCII().GetBytesStrict("ab😀"); }, "Offset"), "2");
}

TEST(DetectCharsetInfo, FixtureFiles) {
    const std::tuple<const char*, int, const char*> cases[] = {
        {"ascii.sql", 0, "ASCII"},
        {"utf8.sql", 65001, "UTF-8"},
        {"utf8-bom.sql", 65001, "UTF-8"},
        {"utf16le-bom.sql", 1200, "UTF-16LE"},
        {"utf16be-bom.sql", 1201, "UTF-16BE"},
        {"utf16le.sql", 1200, "UTF-16LE"},
        {"windows-1252.sql", 1252, "WINDOWS-1252"},
        {"latin1.sql", 28591, "ISO-8859-1"},
        {"shift-jis.sql", 932, "SHIFT_JIS"},
    };
    for (const auto& [file, codePage, name] : cases) {
        const rCharsetInfo info = DetectCharsetInfo(Fixture(file));
        EXPECT_EQ(info.CodePage, codePage) << file;
        EXPECT_EQ(info.Name, QLatin1String(name)) << file;
    }
    EXPECT_EQ(DetectCharsetInfo(Fixture("shift-jis.sql")).Language, "Japanese");
    EXPECT_EQ(GetFileEncoding(Fixture("ascii.sql")), TEncoding::UTF8());  // reads ASCII alike
    EXPECT_EQ(GetFileEncoding(Fixture("latin1.sql")).CodePage(), 28591);
}

TEST(DetectCharsetInfo, EdgesOfTheInput) {
    EXPECT_EQ(DetectCharsetInfo(nullptr, 10).CodePage, 65001);
    EXPECT_EQ(DetectCharsetInfo("abc", 0).CodePage, 65001);
    // The mark decides, whatever follows it.
    EXPECT_EQ(DetectCharsetInfo("\xFF\xFE\xE9t\xE9 \xE0 Z\xFCrich", 14).CodePage, 1200);
    EXPECT_EQ(DetectCharsetInfo("\xFF\xFE\0\0a\0\0\0", 8).CodePage, 12000);
    EXPECT_EQ(DetectCharsetInfo("\0\0\xFE\xFF", 4).CodePage, 12001);
    // UTF-16 without a mark, by its zeros; not a binary full of them.
    const QByteArray be = TEncoding::BigEndianUnicode().GetBytes("select * from t;\r\n");
    EXPECT_EQ(DetectCharsetInfo(be.constData(), be.size()).CodePage, 1201);
    EXPECT_NE(DetectCharsetInfo("\0\0\0\x01\0\0\0\x02\0\0\0\x03", 12).CodePage, 1200);
    // Seven bits with escape sequences are Japanese, not ASCII.
    const char jis[] = "\x1B$B$3$s$K$A$O\x1B(B";
    EXPECT_EQ(DetectCharsetInfo(jis, sizeof jis - 1).CodePage, 50220);

    test::TempDir dir;
    EXPECT_EQ(DetectCharsetInfo(dir.file("missing.sql")).CodePage, 65001);
    EXPECT_EQ(DetectCharsetInfo(dir.write("empty.sql", QByteArray())).CodePage, 65001);
}

// Only the first million bytes are judged: a Latin-1 letter behind them
// goes unseen, and reading then fails where it stands.
TEST(DetectCharsetInfo, ALargeFileIsJudgedByItsHead) {
    test::TempDir dir;
    const QString file = dir.write("large.sql", QByteArray(DETECTION_SIZE, 'a') + "caf\xE9\n");
    EXPECT_EQ(DetectCharsetInfo(file).CodePage, 0);
    EXPECT_EQ(FailureParam([&] { LoadStrings(file); }, "Offset"), QString::number(DETECTION_SIZE + 3));
}

TEST(LoadStrings, DecodesEachFixtureWithoutItsMark) {
    const QString mixed = LoadStrings(Fixture("utf8.sql"));
    EXPECT_TRUE(mixed.startsWith("-- Grüße, привет, γειά σου, 你好"));
    for (const char* file : {"utf8-bom.sql", "utf16le-bom.sql", "utf16be-bom.sql"})
        EXPECT_EQ(LoadStrings(Fixture(file)), mixed) << file;
    const QString prose = LoadStrings(Fixture("latin1.sql"));
    EXPECT_TRUE(prose.contains("Élodie") && prose.contains("Schluß"));
    EXPECT_EQ(LoadStrings(Fixture("utf16le.sql")), prose);
    const QString windows = LoadStrings(Fixture("windows-1252.sql"));
    EXPECT_TRUE(windows.startsWith(prose) && windows.contains("« Le cœur a ses raisons »") &&
                windows.contains("€"));
    EXPECT_TRUE(LoadStrings(Fixture("shift-jis.sql")).contains("顧客テーブル"));
}

TEST(LoadStrings, FailuresNameTheFileAndTheOffset) {
    const QString file = Fixture("bad-utf8-bom.sql");
    try {
        LoadStrings(file);
        FAIL() << "no exception";
    } catch (const ECustomException& e) {
        EXPECT_EQ(e.GetParam("Offset"), "131");  // counted with the mark
        EXPECT_TRUE(e.message().contains(file) && e.message().contains("offset 131")) << e.what();
    }
    test::TempDir dir;
    EXPECT_EQ(FailureParam([&] { LoadStrings(dir.file("missing.sql")); }, "FileName"),
              dir.file("missing.sql"));
}

TEST(SaveStrings, RoundTripsThroughEachEncoding) {
    const QString mixed = "select 'Grüße, привет';\r\nselect 2;\r\n";
    // Long enough for the detector to tell Windows-1252 from its neighbours.
    QString prose = LoadStrings(Fixture("windows-1252.sql"));
    prose.replace(u'\n', "\r\n");
    const std::tuple<const char*, const TEncoding&, bool, QString, int> cases[] = {
        {"UTF-8", TEncoding::UTF8(), false, mixed, 65001},
        {"UTF-8 with mark", TEncoding::UTF8(), true, mixed, 65001},
        {"UTF-16LE with mark", TEncoding::Unicode(), true, mixed, 1200},
        {"UTF-16BE with mark", TEncoding::BigEndianUnicode(), true, mixed, 1201},
        {"UTF-16LE without mark", TEncoding::Unicode(), false, prose, 1200},
        {"Windows-1252", TEncoding::Default(), false, prose, 1252},
    };
    test::TempDir dir;
    const QString file = dir.file("saved.sql");
    for (const auto& [why, encoding, withPreamble, text, detected] : cases) {
        SCOPED_TRACE(why);
        SaveStrings(file, text, encoding, withPreamble);
        const QByteArray mark = encoding.GetPreamble();
        EXPECT_EQ(!mark.isEmpty() && test::readFile(file).startsWith(mark), withPreamble);
        EXPECT_EQ(DetectCharsetInfo(file).CodePage, detected);
        EXPECT_EQ(LoadStrings(file), text);
    }
}

TEST(SaveStrings, WritesLinesEndedByCrLf) {
    test::TempDir dir;
    const QString file = dir.file("lines.sql");
    SaveStrings(file, "a\nb\rc\r\nd", TEncoding::UTF8(), false);
    EXPECT_EQ(test::readFile(file), QByteArray("a\r\nb\r\nc\r\nd\r\n"));
    SaveStrings(file, QString(), TEncoding::UTF8(), true);
    EXPECT_EQ(test::readFile(file), QByteArray("\xEF\xBB\xBF"));
}

TEST(SaveStrings, AFailedSaveKeepsTheOldFile) {
    test::TempDir dir;
    const QString file = dir.write("keep.sql", "old\r\n");
    EXPECT_EQ(FailureParam([&] { SaveStrings(file, "Győr", TEncoding::Default(), false); }, "FileName"),
              file);
    EXPECT_EQ(test::readFile(file), QByteArray("old\r\n"));
    const QString nowhere = dir.file("no/such/folder.sql");
    EXPECT_EQ(FailureParam([&] { SaveStrings(nowhere, "x", TEncoding::UTF8(), false); }, "FileName"),
              nowhere);
}

TEST(ChooseSaveEncoding, AnsiWhenTheTextSurvivesElseUtf8WithMark) {
    const std::pair<const char*, bool> cases[] = {{"select 1;", true},
                                                  {"select 'café', '€ œ „“';", true},
                                                  {"select 'Győr';", false},
                                                  {"select '日本';", false}};
    for (const auto& [text, ansi] : cases) {
        const TEncodingChoice choice = ChooseSaveEncoding(QString::fromUtf8(text));
        EXPECT_EQ(choice.Encoding.CodePage(), ansi ? 1252 : 65001) << text;
        EXPECT_EQ(choice.WithPreamble, !ansi) << text;
    }
}

TEST(SelectedEncoding, OnlyPlainUtf16HasAMark) {
    for (const QString& entry : SelectEncodingEntries())
        EXPECT_EQ(SelectedEncoding(entry).WithPreamble, entry == "UTF-16") << entry.toStdString();
    EXPECT_EQ(SelectedEncoding("UTF-16").Encoding, TEncoding::Unicode());
    EXPECT_EQ(SelectedEncoding("utf-16be").Encoding, TEncoding::BigEndianUnicode());
    EXPECT_EQ(FailureParam([] { SelectedEncoding("EBCDIC"); }, "Encoding"), "EBCDIC");
}
