// Search and replace over an editor's text. Editor states are written with
// markers: "{...}" is the selection, "|" the caret (without one, the caret
// is at the selection's end).
#include "QtPrinters.h"

#include "engine/Exceptions.h"
#include "workbench/TextSearch.h"

#include <gtest/gtest.h>

using namespace brindle;

namespace {

TEditorText State(const QString& Marked) {
    TEditorText editor;
    qsizetype caret = -1;
    for (const QChar c : Marked) {
        if (c == u'{')
            editor.Selection.Start = editor.Text.size();
        else if (c == u'}')
            editor.Selection.End = editor.Text.size();
        else if (c == u'|')
            caret = editor.Text.size();
        else
            editor.Text += c;
    }
    if (!Marked.contains(u'{')) editor.Selection = {caret, caret};
    editor.Caret = caret >= 0 ? caret : editor.Selection.End;
    return editor;
}

QString Marked(QString Text, TTextRange Selection) {
    Text.insert(Selection.End, u'}');
    Text.insert(Selection.Start, u'{');
    return Text;
}

enum Flag { Backwards = 1, CaseSensitive = 2, FromCaret = 4, SelectionOnly = 8, WholeWords = 16, Regex = 32 };

TSearchOptions Options(int F) {
    return {bool(F & Backwards),     bool(F & CaseSensitive), bool(F & FromCaret),
            bool(F & SelectionOnly), bool(F & WholeWords),    bool(F & Regex)};
}

}  // namespace

TEST(TextSearch, FindsTheNextHitOrCollapsesTheSelection) {
    struct Case {
        const char* Why;
        QString Before;
        QString Search;
        int Flags;
        QString After;  // the selection afterwards; "{}" where it collapsed
    };
    const Case cases[] = {
        {"case-blind", "|x Ab ab", "ab", 0, "x {Ab} ab"},
        {"case-sensitive", "|x Ab ab", "ab", CaseSensitive, "x Ab {ab}"},
        {"letters beyond ASCII fold", "|SELECT ÉTÉ", "été", 0, "SELECT {ÉTÉ}"},
        {"from the caret", "ab x| ab", "ab", FromCaret, "ab x {ab}"},
        {"entire scope ignores the caret", "ab x| ab", "ab", 0, "{ab} x ab"},
        {"again from the caret moves past the hit", "{ab} x ab", "ab", FromCaret, "ab x {ab}"},
        {"no further hit collapses to the start", "ab x {ab}", "ab", FromCaret, "ab x {}ab"},
        {"backwards from the caret", "ab x ab |ab", "ab", Backwards | FromCaret, "ab x {ab} ab"},
        {"backwards again moves past the hit", "ab x {ab} ab", "ab", Backwards | FromCaret, "{ab} x ab ab"},
        {"backwards without a hit collapses to the end", "{ab} x", "ab", Backwards | FromCaret, "ab{} x"},
        {"backwards finds overlapping hits", "aaa|", "aa", Backwards | FromCaret, "a{aa}"},
        {"whole words", "|tab ab abc", "ab", WholeWords, "tab {ab} abc"},
        {"underscore is part of a word", "|a_b ab", "b", WholeWords, "{}a_b ab"},
        {"regular expression", "|id1 id22", "id\\d+", Regex, "{id1} id22"},
        {"regular expression backwards", "id1 id22|", "id\\d+", Regex | Backwards | FromCaret, "id1 {id22}"},
        {"lines end in CR LF", "|select\r\nfrom t\r\n", "^from.*$", Regex, "select\r\n{from t}\r\n"},
        {"a plain text is literal", "|a.b axb", "a.b", 0, "{a.b} axb"},
        {"within the selection", "ab {x ab x} ab", "ab", SelectionOnly, "ab x {ab} x ab"},
        {"a hit running out of the selection", "{ab a}b", "ab", SelectionOnly | Backwards, "{ab} ab"},
        {"an empty match is no hit", "|abc", "x*", Regex, "{}abc"},
        {"an empty search text finds nothing", "a|b", "", 0, "a{}b"},
        {"surrogate pairs are stepped over", "😀a😀a|", "a", Backwards | FromCaret, "😀a😀{a}"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.Why);
        const TEditorText editor = State(c.Before);
        const TSearchResult result = TTextSearch(c.Search, Options(c.Flags)).Find(editor);
        EXPECT_EQ(Marked(editor.Text, result.Selection), c.After);
        EXPECT_EQ(result.Found, result.Selection.Length() > 0);
        EXPECT_EQ(result.Caret, c.Flags & Backwards ? result.Selection.Start : result.Selection.End);
    }
}

TEST(TextSearch, InvalidRegularExpressionsNameTheirOffset) {
    const std::pair<const char*, const char*> cases[] = {{"a(b", "3"}, {"ab[c", "4"}, {"x{2,1}", "5"}};
    for (const auto& [pattern, offset] : cases) {
        try {
            TTextSearch(QLatin1String(pattern), Options(Regex));
            ADD_FAILURE() << pattern;
        } catch (const ECustomException& e) {
            EXPECT_EQ(e.GetParam(QStringLiteral("Offset")), QLatin1String(offset))
                << e.message().toStdString();
            EXPECT_TRUE(e.message().startsWith(QStringLiteral("Invalid regular expression: ")));
        }
    }
    EXPECT_NO_THROW(TTextSearch(QStringLiteral("a(b"), Options(0)));  // plain text: any text goes
}

TEST(TextSearch, ReplacementsWithBackReferences) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"(\\w+), (\\w+)", "\\2, \\1", "f(b, a)"},
        {"a, b", "[\\0]", "f([a, b])"},
        {"(a), b", "\\1\\n\\t\\\\\\q\\9", "f(a\n\t\\\\q)"},
        {"a, b", "$1", "f($1)"},  // only \N names a group
    };
    for (const auto& [pattern, replace, expected] : cases) {
        const TTextSearch search(QLatin1String(pattern), Options(Regex));
        const TReplaceResult result =
            search.ReplaceAll(State(QStringLiteral("|f(a, b)")), QLatin1String(replace),
                              [](auto...) { return TReplaceAction::ReplaceAll; });
        EXPECT_EQ(result.Text, QLatin1String(expected)) << pattern;
    }
    // Without Regex the replacement is literal.
    EXPECT_EQ(TTextSearch(QStringLiteral("a"), Options(0)).Replacement(QStringLiteral("a"), {0, 1}, "\\0"),
              QStringLiteral("\\0"));
}

TEST(TextSearch, ReplaceAllAsksForEachHit) {
    using A = TReplaceAction;
    struct Case {
        const char* Why;
        QString Before;
        QString Search, Replace;
        int Flags;
        std::vector<A> Answers;
        QString After;  // the text with the final selection
        int Count;
        QStringList Asked;  // the hits shown, with their surroundings
    };
    // clang-format off
    const Case cases[] = {
        {"replace all at the first question", "|a b a b a", "a", "x", 0, {A::ReplaceAll},
         "x b x b {x}", 3, {"{a} b a b a"}},
        {"replace, skip, replace", "|a b a b a", "a", "x", 0, {A::Replace, A::Skip, A::Replace},
         "x b a b {x}", 2, {"{a} b a b a", "x b {a} b a", "x b a b {a}"}},
        {"cancel keeps what is done", "|a b a b a", "a", "x", 0, {A::Replace, A::Cancel},
         "x b {a} b a", 1, {"{a} b a b a", "x b {a} b a"}},
        {"the same text is skipped unasked", "|ab AB ab", "ab", "AB", 0, {A::ReplaceAll},
         "AB AB {AB}", 2, {"{ab} AB ab"}},
        {"nothing to change, nothing asked", "|ab ab", "ab", "ab", 0, {}, "ab {ab}", 0, {}},
        {"backwards from the caret", "a a a|", "a", "bb", Backwards | FromCaret, {A::Replace, A::ReplaceAll},
         "{bb} bb bb", 3, {"a a {a}", "a {a} bb"}},
        {"a replacement is not searched again", "|a a", "a", "aa", 0, {A::ReplaceAll}, "aa {aa}", 2, {"{a} a"}},
        {"within the selection, which grows", "a {a a} a", "a", "xyz", SelectionOnly, {A::ReplaceAll},
         "a xyz {xyz} a", 2, {"a {a} a a"}},
        {"empty replacements", "|aaaa b", "aa", "", 0, {A::ReplaceAll}, "{} b", 2, {"{aa}aa b"}},
        {"no hit collapses the selection", "ab {cd}", "x", "y", 0, {}, "ab {}cd", 0, {}},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.Why);
        size_t answered = 0;
        QStringList asked;
        const TTextSearch search(c.Search, Options(c.Flags));
        QString mirror = State(c.Before).Text;
        const TReplaceResult result = search.ReplaceAll(
            State(c.Before), c.Replace,
            [&](const QString& text, TTextRange hit, const QString&) {
                asked << Marked(text, hit);
                return answered < c.Answers.size() ? c.Answers[answered++] : A::Cancel;
            },
            [&](TTextRange hit, const QString& replacement) {
                mirror.replace(hit.Start, hit.Length(), replacement);
            });
        EXPECT_EQ(Marked(result.Text, result.Selection), c.After);
        EXPECT_EQ(result.Count, c.Count);
        EXPECT_EQ(asked, c.Asked);
        EXPECT_EQ(mirror, result.Text);  // the editor can follow each step
        EXPECT_EQ(result.Caret, c.Flags & Backwards ? result.Selection.Start : result.Selection.End);
    }
}

TEST(SearchTextHistory, NewestFirstWithoutCaseBlindDuplicates) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"b", "a\r\nB\r\nc", "b\r\na\r\nc"},
        {"x", "", "x"},
        {"A", "a", "A"},
        {"", "a\nb", "a\nb"},  // nothing searched, nothing remembered
    };
    for (const auto& [text, history, expected] : cases)
        EXPECT_EQ(GetSearchTextHistory(QLatin1String(text), QLatin1String(history)), QLatin1String(expected));
    EXPECT_EQ(SearchHistoryItems(QStringLiteral("a\r\nb\n\nc")), QStringList({"a", "b", "c"}));
}
