#include "DLTools.h"

#include "Exceptions.h"

#include <QMetaType>
#include <cstring>

namespace brindle {

const QUuid NullGUID{};

namespace {

constexpr char HexDigits[] = "0123456789ABCDEF";

[[noreturn]] void ConversionError() {
    throw ECustomException(QStringLiteral("Conversion error hex to string"));
}

int HexValue(QChar c) {
    const char16_t u = c.unicode();
    if (u >= u'0' && u <= u'9') return u - u'0';
    if (u >= u'A' && u <= u'F') return u - u'A' + 10;
    if (u >= u'a' && u <= u'f') return u - u'a' + 10;
    return -1;
}

template <typename T>
int ThreeWay(T a, T b) {
    return a < b ? -1 : (b < a ? 1 : 0);
}

bool IsHex(QChar c) {
    return HexValue(c) >= 0;
}

// "{8-4-4-4-12}" with hex digits in either case.
bool IsGUIDText(const QString& value) {
    if (value.size() != 38 || value.front() != u'{' || value.back() != u'}') return false;
    for (qsizetype i = 1; i < 37; ++i) {
        const bool dash = i == 9 || i == 14 || i == 19 || i == 24;
        if (dash ? value.at(i) != u'-' : !IsHex(value.at(i))) return false;
    }
    return true;
}

}  // namespace

QString BytesToHex(const QByteArray& value) {
    QString result;
    result.reserve(value.size() * 2);
    for (const char byte : value) {
        const auto b = static_cast<unsigned char>(byte);
        result += QLatin1Char(HexDigits[b >> 4]);
        result += QLatin1Char(HexDigits[b & 0x0F]);
    }
    return result;
}

QByteArray HexBytesToBytes(const QString& value) {
    // The empty text fails as well: a pair is read before the end is tested.
    if (value.isEmpty() || value.size() % 2 != 0) ConversionError();
    QByteArray result(value.size() / 2, Qt::Uninitialized);
    for (qsizetype i = 0; i < result.size(); ++i) {
        const int high = HexValue(value.at(2 * i));
        const int low = HexValue(value.at(2 * i + 1));
        if (high < 0 || low < 0) ConversionError();
        result[i] = static_cast<char>((high << 4) | low);
    }
    return result;
}

QString EncodeBinary(const QByteArray& value) {
    return QStringLiteral("x'") + BytesToHex(value) + u'\'';
}

QString EncodeBinary(const QUuid& value) {
    return EncodeBinary(GUIDToBytes(value));
}

QByteArray DecodeBinary(const QString& value) {
    if (value.size() < 3 || (value.at(0) != u'x' && value.at(0) != u'X') || value.at(1) != u'\'' ||
        value.back() != u'\'')
        ConversionError();
    return HexBytesToBytes(value.mid(2, value.size() - 3));
}

bool IsBinaryEncoded(const QString& value) {
    return value.startsWith(QStringLiteral("x'"), Qt::CaseInsensitive) && value.endsWith(u'\'');
}

int CompareCardinal(uint32_t a, uint32_t b) {
    return ThreeWay(a, b);
}

int CompareBool(bool a, bool b) {
    return (static_cast<int>(a) & 127) - (static_cast<int>(b) & 127);
}

int CompareInt64(int64_t a, int64_t b) {
    return ThreeWay(a, b);
}

int CompareFloat(double a, double b) {
    return ThreeWay(a, b);
}

int CompareCurrency(int64_t a, int64_t b) {
    return ThreeWay(a, b);
}

int CompareDateTime(double a, double b) {
    return ThreeWay(a, b);
}

int CompareBytes(const QByteArray& a, const QByteArray& b) {
    // Empty sorts last, unlike a plain byte order.
    if (a.isEmpty()) return b.isEmpty() ? 0 : 1;
    if (b.isEmpty()) return -1;
    const int r = MemCmp(a.constData(), b.constData(), static_cast<std::size_t>(qMin(a.size(), b.size())));
    if (r != 0) return r;
    return static_cast<int>(a.size() - b.size());
}

int MemCmp(const void* p1, const void* p2, std::size_t length) {
    if (length == 0) return 0;
    const int r = std::memcmp(p1, p2, length);
    return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

QVariantList VariantToVariantArray(const QVariant& value) {
    if (value.isNull()) return {};
    if (value.metaType() != QMetaType::fromType<QVariantList>()) return {value};
    // The high bound is taken as the length, so the last element is left out.
    const QVariantList list = value.toList();
    return list.isEmpty() ? QVariantList() : list.first(list.size() - 1);
}

QByteArray GUIDToBytes(const QUuid& value) {
    QByteArray result(16, Qt::Uninitialized);
    for (int i = 0; i < 4; ++i) result[i] = static_cast<char>((value.data1 >> (8 * i)) & 0xFF);
    for (int i = 0; i < 2; ++i) {
        result[4 + i] = static_cast<char>((value.data2 >> (8 * i)) & 0xFF);
        result[6 + i] = static_cast<char>((value.data3 >> (8 * i)) & 0xFF);
    }
    for (int i = 0; i < 8; ++i) result[8 + i] = static_cast<char>(value.data4[i]);
    return result;
}

QUuid BytesToGUID(const QByteArray& bytes) {
    if (bytes.size() != 16) throw ECustomException(QStringLiteral("Invalid GUID size"));
    const auto byte = [&bytes](int i) { return static_cast<uint>(static_cast<unsigned char>(bytes.at(i))); };
    QUuid result;
    result.data1 = byte(0) | byte(1) << 8 | byte(2) << 16 | byte(3) << 24;
    result.data2 = static_cast<ushort>(byte(4) | byte(5) << 8);
    result.data3 = static_cast<ushort>(byte(6) | byte(7) << 8);
    for (int i = 0; i < 8; ++i) result.data4[i] = static_cast<uchar>(byte(8 + i));
    return result;
}

QString GUIDToString(const QUuid& value) {
    return value.toString(QUuid::WithBraces).toUpper();
}

QUuid StringToGUID(const QString& value) {
    if (!IsGUIDText(value))
        throw ECustomException(QStringLiteral("'%1' is not a valid GUID value").arg(value));
    return QUuid::fromString(value);
}

int CompareGUIDVariants(const QVariant& a, const QVariant& b) {
    const QMetaType guidType = QMetaType::fromType<QUuid>();
    if (a.metaType() != guidType || b.metaType() != guidType)
        throw ECustomException(QStringLiteral("Invalid variant operation"));
    const QByteArray bytesA = GUIDToBytes(a.value<QUuid>());
    const QByteArray bytesB = GUIDToBytes(b.value<QUuid>());
    return MemCmp(bytesA.constData(), bytesB.constData(), 16);
}

}  // namespace brindle
