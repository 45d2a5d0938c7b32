#include "CSVWriter.h"

#include "data/DLRecData.h"
#include "engine/Exceptions.h"

#include <QIODevice>
#include <charconv>
#include <cmath>

namespace brindle {

namespace {

// Text is encoded and written once this much is gathered.
constexpr qsizetype kFlushChars = 1 << 16;

void AppendLatin1(QString& Text, const char* First, const char* Last) {
    const qsizetype at = Text.size();
    Text.resize(at + (Last - First));
    QChar* out = Text.data() + at;
    for (const char* p = First; p != Last; ++p) *out++ = QLatin1Char(*p);
}

}  // namespace

QString FloatToText(double Value) {
    if (std::isinf(Value)) return Value > 0 ? QStringLiteral("9.0e+999") : QStringLiteral("-9.0e+999");
    if (std::isnan(Value)) return QString();  // the engine keeps none: it stores NULL
    char text[40];
    char* end = std::to_chars(text, text + 32, Value).ptr;
    // "1" would read back as an integer: a REAL keeps a point.
    char* exponent = std::find(text, end, 'e');
    if (std::find(text, exponent, '.') == exponent) {
        std::move_backward(exponent, end, end + 2);
        exponent[0] = '.';
        exponent[1] = '0';
        end += 2;
    }
    return QString::fromLatin1(text, end - text);
}

bool NeedsQuotes(QStringView Text, char16_t Delimiter) {
    if (Text.isEmpty()) return true;  // so that it reads back as text, not NULL
    const auto blank = [](QChar c) { return c == u' ' || c == u'\t'; };
    if (blank(Text.front()) || blank(Text.back())) return true;
    for (const QChar c : Text) {
        const char16_t u = c.unicode();
        if (u == Delimiter || u == u'"' || u == u'\n' || u == u'\r' || u == 0) return true;
    }
    // Unquoted, x'..' would read back as the bytes it spells.
    return Text.size() >= 2 && (Text[0] == u'x' || Text[0] == u'X') && Text[1] == u'\'' &&
           Text.back() == u'\'';
}

TCSVWriter::TCSVWriter(QIODevice& Device, const TEncoding& Encoding, char16_t Delimiter,
                       QStringView LineBreak, TBlobStyle BlobStyle)
    : FDevice(Device),
      FEncoding(Encoding),
      FUtf8(Encoding.CodePage() == 65001),
      FDelimiter(Delimiter),
      FLineBreak(LineBreak.toString()),
      FBlobStyle(BlobStyle) {
    FText.reserve(kFlushChars + 4096);
}

TCSVWriter::~TCSVWriter() = default;

void TCSVWriter::WritePreamble() {
    Flush();
    const QByteArray preamble = FEncoding.GetPreamble();
    if (!preamble.isEmpty() && FDevice.write(preamble) != preamble.size())
        throw ECustomException(QStringLiteral("Cannot write the text: %1").arg(FDevice.errorString()));
}

void TCSVWriter::Text(QStringView Value) {
    if (!NeedsQuotes(Value, FDelimiter)) {
        FText.append(Value);
        return;
    }
    Put(u'"');
    for (qsizetype from = 0;;) {
        const qsizetype quote = Value.indexOf(u'"', from);
        FText.append(Value.sliced(from, (quote < 0 ? Value.size() : quote) - from));
        if (quote < 0) break;
        FText.append(QLatin1String("\"\""));
        from = quote + 1;
    }
    Put(u'"');
}

void TCSVWriter::Integer(qint64 Value) {
    char text[24];
    AppendLatin1(FText, text, std::to_chars(text, text + sizeof text, Value).ptr);
}

void TCSVWriter::Float(double Value) {
    FText.append(FloatToText(Value));
}

void TCSVWriter::Bytes(const QByteArray& Value) {
    static const char upper[] = "0123456789ABCDEF";
    static const char lower[] = "0123456789abcdef";
    const char* digits = FBlobStyle == bsLiteral ? upper : lower;
    if (FBlobStyle == bsLiteral) FText.append(QLatin1String("x'"));
    const qsizetype at = FText.size();
    FText.resize(at + 2 * Value.size());
    QChar* out = FText.data() + at;
    for (const char b : Value) {
        *out++ = QLatin1Char(digits[static_cast<unsigned char>(b) >> 4]);
        *out++ = QLatin1Char(digits[static_cast<unsigned char>(b) & 15]);
    }
    if (FBlobStyle == bsLiteral) Put(u'\'');
}

void TCSVWriter::StoredValue(const TDLSQLiteRecData& Rec, int Index) {
    const QByteArray& raw = Rec.GetRawData(Index);
    switch (Rec.GetStorageClass(Index)) {
        case scInteger:
            Integer(RawToInt64(raw));
            break;
        case scFloat:
            Float(RawToFloat(raw));
            break;
        case scText:
            Text(QStringView(reinterpret_cast<const char16_t*>(raw.constData()), raw.size() / 2));
            break;
        case scBlob:
            Bytes(raw);
            break;
        case scBlobText:
            Text(QString::fromUtf8(raw));
            break;
        default:
            break;  // NULL: nothing between the delimiters
    }
}

void TCSVWriter::EndLine() {
    FText.append(FLineBreak);
    if (FText.size() >= kFlushChars) Flush();
}

void TCSVWriter::Flush() {
    if (FText.isEmpty()) return;
    if (FUtf8) {
        FBytes.resize(FUtf8Encoder.requiredSpace(FText.size()));
        FBytes.resize(FUtf8Encoder.appendToBuffer(FBytes.data(), FText) - FBytes.constData());
    } else {
        try {
            FBytes = FEncoding.GetBytesStrict(FText);
        } catch (const ECustomException& e) {
            const qsizetype at = e.GetParam(QStringLiteral("Offset")).toLongLong();
            const char32_t code = at < FText.size() ? FText.at(at).unicode() : 0;
            throw ECustomException(
                QStringLiteral("The character U+%1 has no form in %2: choose another encoding.")
                    .arg(QString::number(code, 16).toUpper().rightJustified(4, u'0'), FEncoding.Name()),
                QStringLiteral("Encoding"), FEncoding.Name());
        }
    }
    FText.resize(0);
    if (FDevice.write(FBytes) != FBytes.size())
        throw ECustomException(QStringLiteral("Cannot write the text: %1").arg(FDevice.errorString()));
}

}  // namespace brindle
