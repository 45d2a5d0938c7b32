// The grammar runtime base, the filter language over it, and LIKE.
#include "data/CocoRGrammar.h"
#include "data/DLExpr.h"
#include "data/DLLike.h"

#include <gtest/gtest.h>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QPoint>
#include <QStringList>
#include <random>

using namespace brindle;

// ---------------------------------------------------------------------------
// The grammar runtime, through a grammar of sums: number { "+" number }.

namespace {

enum { symEnd, symNumber, symPlus, symOther };

class TSumScanner : public TCocoRScanner {
protected:
    int ReadSymbol() override {
        while (FCurrInputCh == u' ' || FCurrInputCh == u'\n') NextCh();
        StartSymbol();
        int symbol = symOther;
        if (FCurrInputCh == EndOfInput) {
            symbol = symEnd;
        } else if (FCurrInputCh >= u'0' && FCurrInputCh <= u'9') {
            while (FCurrInputCh >= u'0' && FCurrInputCh <= u'9') NextCh();
            symbol = symNumber;
        } else {
            symbol = FCurrInputCh == u'+' ? symPlus : symOther;
            NextCh();
        }
        EndSymbol();
        return symbol;
    }
};

class TSumGrammar : public TCocoRGrammar {
public:
    TSumGrammar() : TCocoRGrammar(std::make_unique<TSumScanner>()) {}
    void Run(const QString& text) {
        Scanner().SetSource(text);
        Execute();
    }
    // Reading by hand, for bookmarks.
    void Start(const QString& text) {
        Scanner().SetSource(text);
        Get();
    }
    int Next() {
        Get();
        return FCurrentInputSymbol;
    }
    int FTotal = 0;

protected:
    void Parse() override {
        FTotal = 0;
        Number();
        while (FCurrentInputSymbol == symPlus) {
            Get();
            Number();
        }
        Expect(symEnd);
    }
    void Number() {
        if (FCurrentInputSymbol != symNumber) return SynError(symNumber);
        Get();
        FTotal += Scanner().GetSymbolText(Scanner().CurrentSymbol()).toInt();
    }
};

}  // namespace

TEST(CocoRGrammar, ErrorsArePlacedAndFollowUpsSuppressed) {
    TSumGrammar g;
    QStringList hooks;
    g.FOnBeforeParse = [&] { hooks << QStringLiteral("before"); };
    g.FOnAfterParse = [&] { hooks << QStringLiteral("after"); };
    g.Run(QStringLiteral("1 + 22+3"));
    EXPECT_TRUE(g.GetSuccessful());
    EXPECT_EQ(g.FTotal, 26);
    EXPECT_EQ(hooks, (QStringList{QStringLiteral("before"), QStringLiteral("after")}));

    // Three misplaced "+" in a row give one error, not three.
    g.Run(QStringLiteral("1 + + + 2"));
    ASSERT_EQ(g.ErrorList().size(), 1u);
    EXPECT_EQ(g.ErrorList()[0].FErrorCode, symNumber);
    EXPECT_EQ(g.ErrorList()[0].FCol, 5);
    EXPECT_EQ(g.FTotal, 3);

    g.Run(QStringLiteral("1 +\n  2 #"));
    ASSERT_EQ(g.ErrorList().size(), 1u);
    const TCocoError& e = g.ErrorList()[0];
    EXPECT_EQ(e.FErrorCode, symEnd);
    EXPECT_EQ(e.FLine, 2);
    EXPECT_EQ(e.FCol, 5);
    EXPECT_EQ(e.FData, QStringLiteral("#"));
    EXPECT_EQ(e.FErrorType, etSyntax);

    // A run starts with a clean list.
    g.Run(QStringLiteral("4"));
    EXPECT_TRUE(g.GetSuccessful());
    EXPECT_EQ(g.Scanner().CharAt(1), TCocoRScanner::EndOfInput);
}

TEST(CocoRGrammar, BookmarksReturnToAReadingPosition) {
    TSumGrammar g;
    g.Start(QStringLiteral("10 + 20\n+ 30"));
    g.Next();  // "+"
    const QString mark = g.Bookmark();
    const TSymbolPosition at = g.Scanner().NextSymbol();
    EXPECT_EQ(g.Next(), symNumber);
    EXPECT_EQ(g.Next(), symPlus);
    g.GotoBookmark(mark);
    EXPECT_EQ(g.Scanner().NextSymbol().Pos, at.Pos);
    EXPECT_EQ(g.Next(), symNumber);
    EXPECT_EQ(g.Next(), symPlus);
    EXPECT_EQ(g.Scanner().NextSymbol().Line, 2);
    EXPECT_EQ(g.Next(), symNumber);
    EXPECT_EQ(g.Scanner().GetSymbolText(g.Scanner().NextSymbol()), QStringLiteral("30"));

    for (const char* bad :
         {"", "1 2 3", "x 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1", "999 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1"})
        EXPECT_THROW(g.GotoBookmark(QString::fromLatin1(bad)), ECocoBookmark) << bad;
}

// ---------------------------------------------------------------------------
// The filter language, through the cases in tests/fixtures/expr/filters.txt.

namespace {

struct TFilterCase {
    int Line = 0;
    QString Expression, Identifiers, Expected;
};

std::vector<TFilterCase> ReadFilterCases() {
    std::vector<TFilterCase> cases;
    QFile file(QStringLiteral(BRINDLE_TEST_DATA "/expr/filters.txt"));
    if (!file.open(QIODevice::ReadOnly)) return cases;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (int i = 0; i < lines.size(); ++i) {
        const QString& line = lines[i];
        const qsizetype second = line.lastIndexOf(u'|');
        const qsizetype first = second > 0 ? line.lastIndexOf(u'|', second - 1) : -1;
        if (line.startsWith(u'#') || first < 0) continue;
        cases.push_back({i + 1, line.left(first).trimmed(), line.mid(first + 1, second - first - 1).trimmed(),
                         line.mid(second + 1).trimmed()});
    }
    return cases;
}

const QString DateNotation = QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz");

QVariant ReadValue(const QString& text) {
    if (text == QLatin1String("null")) return {};
    if (text == QLatin1String("true") || text == QLatin1String("false")) return text == QLatin1String("true");
    if (text.startsWith(u'\''))
        return text.mid(1, text.size() - 2).replace(QLatin1String("''"), QLatin1String("'"));
    if (text.startsWith(u'#')) {
        const QDateTime d = QDateTime::fromString(text.mid(1, text.size() - 2), DateNotation);
        return QDateTime(d.date(), d.time(), Qt::UTC);
    }
    if (text.contains(u'.') || text.contains(u'e')) return text.toDouble();
    return text.toLongLong();
}

QString WriteValue(const QVariant& v) {
    switch (v.typeId()) {
        case QMetaType::UnknownType:
            return QStringLiteral("null");
        case QMetaType::Bool:
            return v.toBool() ? QStringLiteral("true") : QStringLiteral("false");
        case QMetaType::LongLong:
            return QString::number(v.toLongLong());
        case QMetaType::Double: {
            const QString t = QString::number(v.toDouble(), 'g', 15);
            return t.contains(u'.') || t.contains(u'e') ? t : t + QLatin1String(".0");
        }
        case QMetaType::QString:
            return u'\'' + v.toString().replace(u'\'', QLatin1String("''")) + u'\'';
        case QMetaType::QDateTime:
            return u'#' + v.toDateTime().toString(DateNotation) + u'#';
        default:
            return QStringLiteral("? ") + QString::fromLatin1(v.typeName());
    }
}

// The value, or "!" and the errors.
QString Evaluate(TDLExpr& e) {
    e.Execute();
    if (e.Successful()) return WriteValue(e.GetValue());
    return u'!' + e.ErrorMessages().join(QLatin1String(" / ")) +
           (e.GetValue().isValid() ? QStringLiteral(" [value not null]") : QString());
}

}  // namespace

TEST(FilterExpression, CasesGiveTheirValuesOrErrors) {
    const std::vector<TFilterCase> cases = ReadFilterCases();
    ASSERT_GT(cases.size(), 80u) << "fixture not found or damaged";
    for (const TFilterCase& c : cases) {
        TDLExpr e;
        QHash<QString, QVariant> values;
        for (const QString& item : c.Identifiers.split(u';', Qt::SkipEmptyParts)) {
            const QString t = item.trimmed();
            if (t == QLatin1String("@ci"))
                e.SetCaseInsensitive(true);
            else if (t.startsWith(QLatin1String("@format=")))
                e.SetDateFormat(t.mid(8));
            else
                values.insert(t.section(u'=', 0, 0), ReadValue(t.section(u'=', 1)));
        }
        e.FOnGetIdentifier = [&](const QString& name, QVariant& value) { value = values.value(name); };
        e.SetExpression(c.Expression);
        const QString got = Evaluate(e);
        EXPECT_EQ(got.toStdString(), c.Expected.toStdString())
            << "line " << c.Line << ": " << c.Expression.toStdString();
        // A second run over the same object starts from nothing.
        EXPECT_EQ(Evaluate(e).toStdString(), got.toStdString()) << "line " << c.Line;
    }
}

TEST(FilterExpression, IdentifierValuesOfOtherTypesAreBroughtToTheSameKinds) {
    TDLExpr e;
    QVariant given;
    e.FOnGetIdentifier = [&](const QString&, QVariant& value) { value = given; };
    const auto run = [&](const QVariant& value, const char* text) {
        given = value;
        e.SetExpression(QString::fromUtf8(text));
        return Evaluate(e).toStdString();
    };
    EXPECT_EQ(run(int(3), "x * 2"), "6");
    EXPECT_EQ(run(uint(3), "x = 3"), "true");
    EXPECT_EQ(run(float(0.5), "x"), "0.5");
    EXPECT_EQ(run(QByteArray("abc"), "x LIKE 'a%'"), "true");
    EXPECT_EQ(run(QDate(2024, 1, 5), "x = '2024-01-05'"), "true");
    EXPECT_EQ(run(QDateTime(), "x IS NULL"), "true");
    EXPECT_EQ(run(QPoint(1, 2), "x = 1"), "!Error: type mismatch (line 1, column 3)");
}

TEST(FilterExpression, CustomLikeDecidesExceptForANullText) {
    TDLExpr e;
    int calls = 0;
    e.FOnGetIdentifier = [](const QString& name, QVariant& value) {
        if (name == QLatin1String("s")) value = QStringLiteral("abc");
    };
    e.FOnCustomLike = [&](const QVariant& source, const QVariant& pattern, bool& result) {
        ++calls;
        result = source.toString().size() == pattern.toLongLong();
    };
    e.SetExpression(QStringLiteral("s LIKE 3"));
    EXPECT_EQ(Evaluate(e), QStringLiteral("true"));
    e.SetExpression(QStringLiteral("s NOT LIKE 'abc'"));
    EXPECT_EQ(Evaluate(e), QStringLiteral("true"));
    e.SetExpression(QStringLiteral("missing LIKE 0"));
    EXPECT_EQ(Evaluate(e), QStringLiteral("false"));
    EXPECT_EQ(calls, 2);
}

TEST(FilterExpression, DateSeparatorIsTheFirstCharacterOtherThanLowerCaseLetters) {
    TDLExpr e;
    e.SetDateFormat(QStringLiteral("dd.mm.yyyy"));
    EXPECT_EQ(e.DateSeparator(), u'.');
    e.SetDateFormat(QStringLiteral("yyyymmdd"));
    EXPECT_EQ(e.DateSeparator(), u'.');
    e.SetDateFormat(QStringLiteral("yyyy/mm/dd"));
    EXPECT_EQ(e.DateSeparator(), u'/');
}

TEST(Like, EscapeMakesTheNextCharacterLiteral) {
    const auto like = [](const char* text, const char* pattern) {
        const QString t = QString::fromUtf8(text), p = QString::fromUtf8(pattern);
        return Like(t.constData(), t.size(), p.constData(), p.size(), u'%', u'_', u'\\');
    };
    EXPECT_TRUE(like("50%", "50\\%"));
    EXPECT_FALSE(like("500", "50\\%"));
    EXPECT_TRUE(like("a_b", "a\\_b"));
    EXPECT_FALSE(like("axb", "a\\_b"));
    EXPECT_TRUE(like("x\\", "x\\"));  // a trailing escape stands for itself
    EXPECT_TRUE(like("%", "%\\%"));
    EXPECT_FALSE(like("", "%\\%"));
}

TEST(Like, ManyPercentSignsFinishQuickly) {
    QElapsedTimer timer;
    timer.start();
    const QString text(5000, u'a');
    const QString failing = QStringLiteral("%a").repeated(60) + u'b';
    EXPECT_FALSE(LikeStr(text, failing, u'%', u'_'));
    EXPECT_TRUE(LikeStr(text, QStringLiteral("%_%").repeated(60) + u'a', u'%', u'_'));
    EXPECT_FALSE(LikeStr(text, QString(10000, u'%') + u'b', u'%', u'_'));

    TDLExpr e;
    e.FOnGetIdentifier = [&](const QString&, QVariant& value) { value = text; };
    e.SetExpression(QStringLiteral("x LIKE '") + failing + u'\'');
    EXPECT_EQ(Evaluate(e), QStringLiteral("false"));
    EXPECT_LT(timer.elapsed(), 2000);
}

TEST(FilterExpression, RandomAndHostileTextIsListedNeverFatal) {
    static const char* const pieces[] = {
        "a",    "[b c]", "\"d\"", "1",     "2.5", "1e3", "'s'", "'o''k'", "'",   "[",  "\"",  "(",  ")",
        "=",    "<>",    "<=",    ">",     "+",   "-",   "*",   "/",      "AND", "or", "NOT", "IS", "NULL",
        "LIKE", "'%'",   "TRUE",  "false", "#",   "|",   "ä",   "\x1a",   " ",   "\n", "0",   ".",  "e",
    };
    std::mt19937 rng(20240105);
    std::uniform_int_distribution<int> piece(0, std::size(pieces) - 1), length(0, 24);
    TDLExpr e;
    e.FOnGetIdentifier = [](const QString& name, QVariant& value) {
        if (name == QLatin1String("a")) value = qint64(3);
        if (name == QLatin1String("d")) value = QStringLiteral("text");
    };
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < 4000; ++i) {
        QString text;
        for (int n = length(rng); n > 0; --n) text += QString::fromUtf8(pieces[piece(rng)]);
        e.SetExpression(text);
        e.Execute();
        if (!e.Successful()) {
            EXPECT_FALSE(e.GetValue().isValid()) << text.toStdString();
            for (const TCocoError& error : e.ErrorList())
                EXPECT_TRUE(error.FErrorCode >= 0 && error.FErrorCode <= exprDateOutOfRange)
                    << text.toStdString();
        }
    }
    EXPECT_LT(timer.elapsed(), 20000);

    // Nesting deep enough to exhaust the stack is refused.
    e.SetExpression(QString(200000, u'(') + u'1' + QString(200000, u')'));
    EXPECT_EQ(Evaluate(e), QStringLiteral("!Error: nested too deeply (line 1, column 201)"));
    e.SetExpression(QStringLiteral("(").repeated(50) + u'1' + QStringLiteral(")").repeated(50));
    EXPECT_EQ(Evaluate(e), QStringLiteral("1"));
}
