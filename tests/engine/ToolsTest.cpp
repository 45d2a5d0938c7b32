#include "engine/DLTools.h"
#include "engine/Exceptions.h"

#include <gtest/gtest.h>
#include <algorithm>

namespace brindle {
namespace {

// The message of the exception f raises, or "" when it raises none.
template <typename F>
QString MessageOf(F f) {
    try {
        f();
    } catch (const ECustomException& e) {
        return e.message();
    }
    return {};
}

const QUuid SampleGUID{QStringLiteral("{00112233-4455-6677-8899-aabbccddeeff}")};

TEST(Tools, BinaryLiterals) {
    EXPECT_EQ(DecodeBinary("x'00ff'"), QByteArray("\x00\xff", 2));
    EXPECT_EQ(DecodeBinary("X'AbCd'"), QByteArray("\xab\xcd"));
    EXPECT_EQ(EncodeBinary(QByteArray("\x00\xff", 2)), "x'00FF'");
    EXPECT_EQ(BytesToHex(QByteArray("\x01\x9a\xf0")), "019AF0");
    for (const QString text : {"x'0'", "x''", "x'0g'", "'00'", "x'00", "y'00'", "x\"00'", "x'"})
        EXPECT_EQ(MessageOf([&] { DecodeBinary(text); }), "Conversion error hex to string")
            << text.toStdString();
    EXPECT_THROW(HexBytesToBytes(""), ECustomException);
    EXPECT_TRUE(IsBinaryEncoded("X'zz'"));  // digits are not looked at
    for (const QString text : {"x'00", "'00'", "x00'"})
        EXPECT_FALSE(IsBinaryEncoded(text)) << text.toStdString();
}

TEST(Tools, CompareBytesPutsEmptyLast) {
    const struct {
        QByteArray a, b;
        int sign;
    } cases[] = {{"", "", 0},     {"", "a", 1},        {"a", "", -1},    {"ab", "abc", -1},
                 {"b", "abc", 1}, {"\xff", "\x01", 1}, {"abc", "abc", 0}};
    for (const auto& c : cases)
        EXPECT_EQ(std::clamp(CompareBytes(c.a, c.b), -1, 1), c.sign) << c.a.toStdString();
    EXPECT_EQ(MemCmp("\x80", "\x7f", 1), 1);
    EXPECT_EQ(MemCmp("\0\x02", "\0\x09", 2), -1);  // not stopped by a zero byte
    EXPECT_GT(CompareBool(true, false), 0);
}

TEST(Tools, VariantArrayDropsTheLastListElement) {
    EXPECT_TRUE(VariantToVariantArray(QVariant()).isEmpty());
    EXPECT_EQ(VariantToVariantArray(5), QVariantList{5});
    EXPECT_EQ(VariantToVariantArray(QString("abc")), QVariantList{"abc"});
    EXPECT_EQ(VariantToVariantArray(QVariantList{1, 2, 3}), (QVariantList{1, 2}));
}

TEST(Tools, GUIDsUseMemoryOrder) {
    const QByteArray bytes = QByteArray::fromHex("33221100554477668899aabbccddeeff");
    EXPECT_EQ(GUIDToBytes(SampleGUID), bytes);
    EXPECT_EQ(BytesToGUID(bytes), SampleGUID);
    EXPECT_EQ(EncodeBinary(SampleGUID), "x'33221100554477668899AABBCCDDEEFF'");
    EXPECT_EQ(GUIDToString(SampleGUID), "{00112233-4455-6677-8899-AABBCCDDEEFF}");
    EXPECT_EQ(StringToGUID("{00112233-4455-6677-8899-aabbccddeeff}"), SampleGUID);
    const QString text = GUIDToString(SampleGUID);
    for (const QString& bad :
         {text.mid(1, 36), QString(text).replace(2, 1, 'g'), QString(text).replace(9, 1, '+'), {}})
        EXPECT_THROW(StringToGUID(bad), ECustomException) << bad.toStdString();
    EXPECT_THROW(BytesToGUID(bytes.left(15)), ECustomException);

    // Textually larger, but the little-endian first group makes it smaller.
    const QVariant a = QVariant::fromValue(QUuid(QStringLiteral("{01000000-0000-0000-0000-000000000000}")));
    const QVariant b = QVariant::fromValue(QUuid(QStringLiteral("{00000001-0000-0000-0000-000000000000}")));
    EXPECT_LT(CompareGUIDVariants(a, b), 0);
    EXPECT_EQ(CompareGUIDVariants(a, a), 0);
    EXPECT_EQ(MessageOf([&] { CompareGUIDVariants(a, QVariant(text)); }), "Invalid variant operation");
}

}  // namespace
}  // namespace brindle
