// The grammar runtime base, and LIKE.
#include "data/CocoRGrammar.h"
#include "data/DLLike.h"

#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <QStringList>

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
// LIKE

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

    EXPECT_LT(timer.elapsed(), 2000);
}
