#include "engine/DLQuoteTools.h"

#include <gtest/gtest.h>

namespace brindle {
namespace {

struct Pair {
    QString in, out;
};

class QuoteTools : public ::testing::Test {
protected:
    void TearDown() override { SetQuoteChars(QStringLiteral("[]")); }
};

TEST_F(QuoteTools, QuoteIdentifierFollowsQuoteChars) {
    for (const QString valid : {"", "abc_1", "_", "a1", "\u00e4", "\u0080x"})
        EXPECT_TRUE(IsValidIdentifier(valid)) << valid.toStdString();
    for (const QString invalid : {"1abc", "a b", "a$", "a^", "a`", "a~", "a.b"})
        EXPECT_FALSE(IsValidIdentifier(invalid)) << invalid.toStdString();
    const struct {
        QString chars, text, quoted;
    } cases[] = {
        {"[]", "a b", "[a b]"},         {"[]", "\"x y\"", "\"x y\""}, {"[]", "a]b", "[a]b]"},
        {"\"\"", "a\"b", "\"a\"\"b\""}, {"''", "it's", "'it''s'"},    {"[", "a b", "a b"},
    };
    for (const auto& c : cases) {
        SetQuoteChars(c.chars);
        EXPECT_EQ(QuoteIdentifier(c.text), c.quoted) << c.text.toStdString();
    }
}

TEST_F(QuoteTools, UnquoteAndQuoteIfNeeded) {
    const Pair unquote[] = {{"\"a\"\"b\"", "a\"b"}, {"`x`", "x"},    {"[a]]b]", "a]]b"}, {"\"", ""},
                            {"[a", "[a"},           {"\"x'", "\"x'"}};
    for (const auto& c : unquote) EXPECT_EQ(UnQuoteIdentifier(c.in), c.out) << c.in.toStdString();
    const Pair ifNeeded[] = {{"\"abc\"", "abc"},   {"1abc", "[1abc]"}, {"a$b", "[a$b]"},
                             {"select", "select"}, {"", ""},           {"\"a b\"", "[a b]"}};
    for (const auto& c : ifNeeded) EXPECT_EQ(QuoteIdentifierIfNeeded(c.in), c.out) << c.in.toStdString();
    const Pair types[] = {{"NUMERIC(10,2)", "NUMERIC(10,2)"},
                          {"DOUBLE PRECISION", "[DOUBLE PRECISION]"},
                          {"[my type](10)", "[my type](10)"},
                          {"VARCHAR (50)", "VARCHAR (50)"},
                          {"a)(b", "[a)(b]"}};
    for (const auto& c : types) EXPECT_EQ(QuoteDeclaredTypeIfNeeded(c.in), c.out) << c.in.toStdString();
}

TEST_F(QuoteTools, ParseQualifiedNames) {
    const Pair two[] = {{"a.b.c", "a|b"},
                        {"x", "|x"},
                        {"[my db].\"t.x\"", "my db|t.x"},
                        {" main . [ x ] ", "main|x"},
                        {"'a.b'.`c.d`", "a.b|c.d"}};
    for (const auto& c : two) {
        QString db = "stale", object = "stale";
        ParseObject(c.in, db, object);
        EXPECT_EQ(db + '|' + object, c.out) << c.in.toStdString();
    }
    const Pair three[] = {{"f", "||f"}, {"t.f", "|t|f"}, {"d.t.f", "d|t|f"}, {"d.t.f.g", "d|t|f"}};
    for (const auto& c : three) {
        QString db, table, field;
        ParseObject(c.in, db, table, field);
        EXPECT_EQ(db + '|' + table + '|' + field, c.out) << c.in.toStdString();
    }
    EXPECT_FALSE(IsQualified("x"));
    EXPECT_TRUE(IsQualified("main.x"));
}

TEST_F(QuoteTools, ObjectsAreRequotedInCurrentChars) {
    EXPECT_EQ(QuoteObject("", "t"), "[t]");
    EXPECT_EQ(QuoteObject("db", "t", "f"), "[db].[t].[f]");
    SetQuoteChars("\"\"");
    EXPECT_EQ(QuoteObject("[a].[b c]"), "\"a\".\"b c\"");
    EXPECT_EQ(QuoteObjectIfNeeded("[a].[b c]"), "a.\"b c\"");
    SetQuoteChars("[]");
    EXPECT_EQ(QualifyObjectName("x"), "main.x");
    EXPECT_EQ(UnqualifyObjectName("[MAIN].\"a b\""), "[a b]");
    EXPECT_EQ(UnqualifyObjectName("temp.x"), "temp.x");
    for (const Pair& c : {Pair{"[main].x", "main.x"}, {"[a b]", "\"a b\""}, {"ABC", "abc"}})
        EXPECT_TRUE(SameObject(c.in, c.out)) << c.in.toStdString();
    for (const Pair& c : {Pair{"main.x", "x"}, {"a.b", "a.c"}})
        EXPECT_FALSE(SameObject(c.in, c.out)) << c.in.toStdString();
}

TEST_F(QuoteTools, FieldLists) {
    // Single quotes mean nothing to the field scanner; brackets and double quotes nest.
    const Pair cases[] = {{"a;b;", "a|b"},    {"\"a;b\";c", "a;b|c"}, {"[a;b];c", "a;b|c"},
                          {"'a;b'", "'a|b'"}, {"a;;b", "a||b"},       {" [a b] ; c", "a b|c"}};
    QStringList list{"stale"};
    for (const auto& c : cases) {
        FieldsToList(c.in, list);
        EXPECT_EQ(list.join('|'), c.out) << c.in.toStdString();
    }
    FieldsToList("a,b;c", list, ',');
    EXPECT_EQ(list, QStringList({"a", "b;c"}));
    int pos = 0;
    QString name;
    ExtractObject("'a.b'.c", pos, name);
    EXPECT_EQ(name + '@' + QString::number(pos), "a.b@6");

    EXPECT_EQ(ListToFields({"a", "b c"}, false, ","), "a, [b c]");
    EXPECT_EQ(ListToFields({"a", "[b]"}, true, ";"), "[a];[b]");
    EXPECT_EQ(IndexOfQuotedObject({"x", "[a b]"}, "\"A B\""), 1);
    EXPECT_EQ(IndexOfQuotedObject({"x", "[a b]"}, "y"), -1);
    EXPECT_TRUE(ContainsIdentifier({"[Name]"}, "name"));
}

}  // namespace
}  // namespace brindle
