// The scanner's tokens, the keyword table, the statement splitters, and
// survival on any text.
#include "SQLCases.h"

#include "ExerciseParser.h"
#include "engine/SQLScanner.h"
#include "schema/DLSQLiteParser.h"

#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <random>

using namespace brindle;
using namespace brindle::test;

namespace {

// A token as "w word", "q quoted", "l literal", "n number", "p predicate",
// "$ param", and punctuation as itself.
QStringList Describe(TTokenizer& t) {
    QStringList out;
    for (int i = 0; i < t.GetTokenCount(); ++i) {
        const TToken* k = t.GetTokens(i);
        const char* kind = nullptr;
        switch (k->FTokenType) {
            case ttUnknown:
                kind = k->FIsIdent ? "q" : "w";
                break;
            case ttLiteral:
                kind = "l";
                break;
            case ttNumber:
                kind = "n";
                break;
            case ttPredicate:
                kind = "p";
                break;
            case ttParam:
                kind = "$";
                break;
            default:
                break;
        }
        out << (kind ? QString::fromLatin1(kind) + u' ' + k->FValue : k->FValue);
    }
    return out;
}

QStringList Tokens(const QString& text) {
    TTokenizer t;
    t.SetText(text);
    return Describe(t);
}

QStringList List(std::initializer_list<const char*> items) {
    QStringList out;
    for (const char* s : items) out << QString::fromUtf8(s);
    return out;
}

}  // namespace

TEST(SQLScanner, TokensFollowTheCharacterRules) {
    const struct {
        const char* text;
        QStringList tokens;
    } cases[] = {
        {"select \"a\"\"b\"", List({"w select", "q \"a\"\"b\""})},
        {"select 'abc", List({"w select", "w 'abc"})},  // unterminated: a plain word
        {"[a]] [x y]", List({"q [a]", "w ]", "q [x y]"})},
        {"\"open [[x", List({"w \"open", "w [", "w [x"})},
        {"a.b.c", List({"w a", ".", "w b", ".", "w c"})},
        {"@p1 :p1 $p1 ?1 ? a@b :a=1",
         List({"$ @p1", "$ :p1", "$ $p1", "$ ?1", "$ ?", "w a@b", "$ :a", "p =", "n 1"})},
        {"5.5.5 1e5 1-2 -5", List({"n 5.5.5", "n 1", "w e5", "n 1", "w -2", "w -5"})},
        {"a+b a*b * != x<=y", List({"w a+b", "w a*b", "w *", "w !", "p =", "w x", "p <=", "w y"})},
        {"f(a,b);", List({"w f", "(", "w a", ",", "w b", ")", ";"})},
        {"'it''s' `b` x'0A'", List({"l 'it''s'", "w `b`", "w x", "l '0A'"})},
        // Comments leave no token; one glued to a word takes the word along.
        {"x--comment\ny", List({"w x", "w y"})},
        {"x/*c*/y z", List({"w y", "w z"})},
        {"a//c\td e", List({"w d", "w e"})},
        {"a /* open", List({"w a"})},
    };
    for (const auto& c : cases) EXPECT_EQ(Tokens(QString::fromUtf8(c.text)), c.tokens) << c.text;
}

TEST(SQLScanner, TokensKnowWhereTheyStand) {
    TTokenizer t;
    const QString text = QStringLiteral("  select\t\"x\" -- c\n ,y");
    t.SetText(text);
    ASSERT_EQ(t.GetTokenCount(), 4);
    const int starts[] = {3, 10, 20, 21};
    for (int i = 0; i < 4; ++i) {
        const TToken* k = t.GetTokens(i);
        EXPECT_EQ(k->FStartPos, starts[i]);
        EXPECT_EQ(text.mid(k->StartIndex(), k->FSize), k->FValue);
    }

    // Scanning stops at a NUL character.
    t.SetText(QStringLiteral("a b") + QChar(0) + QStringLiteral("c"));
    EXPECT_EQ(Describe(t), List({"w a", "w b"}));

    // Lazy, and only once per text.
    t.SetText(QStringLiteral("a b"));
    TToken* first = t.GetTokens(0);
    t.SetText(QStringLiteral("a b"));
    EXPECT_EQ(t.GetTokens(0), first);
    t.Delete(0);
    EXPECT_EQ(Describe(t), List({"w b"}));
    t.SetText(QString());
    EXPECT_EQ(t.GetTokenCount(), 0);
}

TEST(SQLScanner, KeywordRowsAreTriedPairsFirstAndFoldOnlyASCII) {
    QStringList order;
    for (const TSQLKeyword* k : KeywordCandidates(u"not")) order << SQLTokenTypeName(k->Type);
    EXPECT_EQ(order, List({"stNotDeferrable", "stNotIndexed", "stNotNull", "stNot"}));
    ASSERT_EQ(KeywordCandidates(u"SeLeCt").size(), 1u);
    EXPECT_EQ(KeywordCandidates(u"load_extension").front()->Type, stLoadExtension);
    EXPECT_EQ(KeywordCandidates(u"||").front()->Type, stOperator);
    EXPECT_EQ(KeywordCandidates(u"*").front()->Type, stAllFields);
    // Letters that fold to ASCII under Unicode rules are no keywords.
    EXPECT_TRUE(KeywordCandidates(u"\u017Felect").empty());  // long s
    EXPECT_TRUE(KeywordCandidates(u"\u212Aey").empty());     // Kelvin sign
    EXPECT_TRUE(KeywordCandidates(u"selects").empty());
    EXPECT_TRUE(SameKeyword(u"Trigger", "TRIGGER"));
    EXPECT_FALSE(SameKeyword(u"TR\u0130GGER", "TRIGGER"));
}

TEST(SQLScanner, SplittersFollowTheFixtures) {
    const std::vector<TSQLCase> cases = ReadSQLCases(QStringLiteral("split.txt"));
    ASSERT_GT(cases.size(), 15u);
    using TSplitter = void (*)(const QString&, QStringList&, bool);
    for (const TSQLCase& c : cases) {
        SCOPED_TRACE(QStringLiteral("split.txt:%1 %2").arg(c.Line).arg(c.Name).toStdString());
        QStringList expected;
        QString piece;
        for (const QString& line : c.Expected) {
            if (line == QLatin1String("~~~")) {
                expected << piece.trimmed();
                piece.clear();
            } else {
                piece += line + u'\n';
            }
        }
        expected << piece.trimmed();

        std::vector<std::pair<const char*, TSplitter>> splitters{{"SplitSQL", SplitSQL}};
        if (!c.Tags.contains(QLatin1String("safe"))) splitters.emplace_back("FastParseSQL", FastParseSQL);
        if (!c.Tags.contains(QLatin1String("fast"))) splitters.emplace_back("SafeParseSQL", SafeParseSQL);
        for (const auto& [name, split] : splitters) {
            QStringList pieces;
            split(c.Input, pieces, false);
            QStringList trimmed;
            QStringList stripped;
            for (const QString& p : pieces) {
                trimmed << p.trimmed();
                const QString s = p.endsWith(u';') ? p.chopped(1) : p;
                if (!s.isEmpty()) stripped << s;
            }
            EXPECT_EQ(trimmed, expected) << name;
            EXPECT_EQ(pieces.join(QString()), c.Input) << name << ": text lost or repeated";
            QStringList strippedActual;
            split(c.Input, strippedActual, true);
            EXPECT_EQ(strippedActual, stripped) << name;
        }
    }
}

TEST(SQLScanner, OneStatementKeepsItsText) {
    const QString sql = QStringLiteral("select 1");
    QStringList list;
    SplitSQL(sql, list, true);
    ASSERT_EQ(list.size(), 1);
    EXPECT_TRUE(list[0].isSharedWith(sql));
    list.clear();
    SplitSQL(QString(), list, true);
    EXPECT_TRUE(list.isEmpty());
}

// ---------------------------------------------------------------------------
// Any text: no crash, no hang, every token inside the text.

namespace {

void CheckAnyText(const QString& text) {
    TSQLParser p;
    p.SetText(text);
    const int n = p.GetTokenCount();
    int end = 0;
    for (int i = 0; i < n; ++i) {
        const TSQLToken* t = p.SQLTokens(i);
        ASSERT_GE(t->StartIndex(), end) << "token " << i << " overlaps the one before";
        ASSERT_GT(t->FSize, 0);
        ASSERT_LE(t->EndIndex(), text.size());
        end = t->EndIndex();
        // A merged phrase holds its words joined by single blanks.
        const QString source = text.mid(t->StartIndex(), t->FSize);
        ASSERT_TRUE(source == t->FValue || (t->FValue.contains(u' ') && t->FValue.size() <= t->FSize))
            << "token " << i;
        if (t->FTokenType == ttOpenParen) {
            const int close = p.ClosingParen(i);
            ASSERT_TRUE(close == -1 || (close > i && p.GetTokens(close)->FTokenType == ttCloseParen));
        }
    }
    AskEveryQuestion(p);

    for (auto split : {FastParseSQL, SafeParseSQL}) {
        QStringList pieces;
        split(text, pieces, false);
        ASSERT_EQ(pieces.join(QString()), text);
        pieces.clear();
        split(text, pieces, true);
    }
}

// Each huge text must be through long before anyone would call it a hang.
void CheckHugeText(const char* what, const QString& text) {
    SCOPED_TRACE(what);
    QElapsedTimer timer;
    timer.start();
    CheckAnyText(text);
    EXPECT_LT(timer.elapsed(), 20000) << what;
}

const char* const Soup[] = {
    "CREATE",     "TEMP",
    "TRIGGER",    "BEGIN",
    "END",        "CASE",
    "WHEN",       "SELECT",
    "FROM",       "TABLE",
    "INDEX",      "NOT",
    "NULL",       "PRIMARY",
    "KEY",        "ON",
    "CONFLICT",   "IF",
    "EXISTS",     "ORDER",
    "BY",         "LIMIT",
    "UNION",      "INSERT",
    "INTO",       "VALUES",
    "UPDATE",     "SET",
    "DELETE",     "ATTACH",
    "AS",         "CHECK",
    "REFERENCES", "SAVEPOINT",
    "RELEASE",    "ROLLBACK",
    "TO",         "load_extension",
    "USING",      "VIRTUAL",
    "WITHOUT",    "ROWID",
    "DEFAULT",    "COLLATE",
    "UNIQUE",     "FOREIGN",
    "CONSTRAINT", "JOIN",
    "WHERE",      "x",
    "main",       "t",
    "\"id\"",     "[a b]",
    "'s''t'",     "'",
    "\"",         "[",
    "]",          "/*",
    "*/",         "--",
    "//",         "\n",
    ";",          "(",
    ")",          ",",
    ".",          "*",
    "=",          "<>",
    ":p",         "?",
    "@v",         "12.5",
    "-3",         "||",
    "\t",         "TRUE",
    "db.t.c",     "PRIMARY KEY",
    "AUTOINCREMENT", "DESC",
    "NOT NULL",   "GENERATED ALWAYS",
    "STRICT",     "INSTEAD OF",
    "FOR EACH ROW", "WHEN",
    "END",        "ON DELETE SET NULL",
    "DEFERRABLE", "INITIALLY DEFERRED",
    "MATCH",      "VIEW",
    "TABLE",      "INDEX",
};

QString RandomSoup(std::mt19937& rng, int fragments) {
    std::uniform_int_distribution<size_t> pick(0, std::size(Soup) - 1);
    std::uniform_int_distribution<int> gap(0, 3);
    QString s;
    for (int i = 0; i < fragments; ++i) {
        s += QString::fromUtf8(Soup[pick(rng)]);
        const int g = gap(rng);
        if (g == 1) s += u' ';
        if (g == 2) s += u'\n';
    }
    return s;
}

QString RandomUnits(std::mt19937& rng, int length) {
    static const char16_t Interesting[] = u"'\"[]-/*;(),.0123456789 \t\r\n=<>$:?@abcXYZ";
    std::uniform_int_distribution<int> kind(0, 9);
    std::uniform_int_distribution<size_t> interesting(0, std::size(Interesting) - 2);
    std::uniform_int_distribution<int> ascii(0, 127);
    std::uniform_int_distribution<int> unit(0, 0xFFFF);
    QString s;
    s.reserve(length);
    for (int i = 0; i < length; ++i) {
        const int k = kind(rng);
        const char16_t c = k < 5   ? Interesting[interesting(rng)]
                           : k < 8 ? char16_t(ascii(rng))
                                   : char16_t(unit(rng));
        s += QChar(c);  // NUL, lone surrogates and all
    }
    return s;
}

QString Repeat(const char* piece, int times) {
    return QString::fromUtf8(piece).repeated(times);
}

}  // namespace

TEST(SQLScannerRobustness, RandomUnitsAndTokenSoup) {
    std::mt19937 rng(20261122);
    std::uniform_int_distribution<int> length(0, 400);
    for (int i = 0; i < 400; ++i) {
        const QString text = RandomUnits(rng, length(rng));
        ASSERT_NO_FATAL_FAILURE(CheckAnyText(text)) << "random units #" << i;
    }
    for (int i = 0; i < 400; ++i) {
        const QString text = RandomSoup(rng, length(rng) / 2);
        ASSERT_NO_FATAL_FAILURE(CheckAnyText(text)) << "token soup #" << i << ": " << text.toStdString();
    }
}

TEST(SQLScannerRobustness, HugeSingleLines) {
    std::mt19937 rng(7);
    CheckHugeText("open brackets", Repeat("[", 2000000));
    CheckHugeText("open quotes", Repeat("\"'", 1000000));
    CheckHugeText("doubled quotes", u'\'' + Repeat("''", 1000000));
    CheckHugeText("open comment", QStringLiteral("/*") + Repeat("x", 2000000));
    CheckHugeText("merged phrases", Repeat("NOT NULL IF NOT EXISTS ", 100000));
    CheckHugeText("dotted names", Repeat("a.", 500000));
    CheckHugeText("CASE without end", QStringLiteral("CREATE TRIGGER t BEGIN ") + Repeat("CASE ", 300000) +
                                          QStringLiteral("END;"));
    QString soup = RandomSoup(rng, 600000);
    soup.replace(u'\n', u' ');
    CheckHugeText("token soup", soup);
}

TEST(SQLScanner, EndStatementFollowsTheFixtures) {
    const std::vector<TSQLCase> cases = ReadSQLCases(QStringLiteral("end.txt"));
    ASSERT_GT(cases.size(), 5u);
    for (const TSQLCase& c : cases)
        EXPECT_EQ(EndStatement(c.Input).toStdString(), c.Expected.join(u'\n').trimmed().toStdString())
            << "end.txt:" << c.Line << " " << c.Name.toStdString();
}
