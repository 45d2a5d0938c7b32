#include "CsvOut.h"

#include "data/DLRecData.h"

#include <QIODevice>
#include <QTextStream>
#include <charconv>

namespace brindle::cli {

namespace {

constexpr qsizetype kFlushSize = 1 << 16;

}  // namespace

TCsvOut::TCsvOut(QTextStream& Out) : FOut(Out) {
    FOut.flush();  // what was written before comes first
    FBuffer.reserve(2 * kFlushSize);
}

TCsvOut::~TCsvOut() {
    Flush();
}

void TCsvOut::Flush() {
    if (FBuffer.isEmpty()) return;
    if (QIODevice* device = FOut.device())
        device->write(FBuffer);
    else
        FOut << QString::fromUtf8(FBuffer);
    FBuffer.resize(0);
}

void TCsvOut::EndLine() {
    FBuffer += '\n';
    if (FBuffer.size() >= kFlushSize) Flush();
}

void TCsvOut::AppendUtf8(QStringView Value) {
    const qsizetype at = FBuffer.size();
    FBuffer.resize(at + FEncoder.requiredSpace(Value.size()));
    char* end = FEncoder.appendToBuffer(FBuffer.data() + at, Value);
    FBuffer.resize(end - FBuffer.constData());
}

void TCsvOut::AppendText(QStringView Value, bool EmptyIsText) {
    bool quote = Value.isEmpty() ? EmptyIsText : Value.front() == u' ' || Value.back() == u' ';
    for (qsizetype i = 0; i < Value.size() && !quote; ++i) {
        const char16_t c = Value[i].unicode();
        quote = c == u',' || c == u'"' || c == u'\n' || c == u'\r';
    }
    if (!quote) return AppendUtf8(Value);
    FBuffer += '"';
    for (qsizetype from = 0;;) {
        const qsizetype q = Value.indexOf(u'"', from);
        AppendUtf8(Value.sliced(from, (q < 0 ? Value.size() : q) - from));
        if (q < 0) break;
        FBuffer += "\"\"";
        from = q + 1;
    }
    FBuffer += '"';
}

void TCsvOut::Text(QStringView Value, bool First) {
    if (!First) FBuffer += ',';
    AppendText(Value, true);
}

void TCsvOut::Value(const TDLSQLiteRecData& Rec, int Index, bool First) {
    if (!First) FBuffer += ',';
    const QByteArray& raw = Rec.GetRawData(Index);
    char number[32];
    switch (Rec.GetStorageClass(Index)) {
        case scInteger: {
            const auto r = std::to_chars(number, number + sizeof number, RawToInt64(raw));
            FBuffer.append(number, r.ptr - number);
            break;
        }
        case scFloat: {
            // The shortest text that reads back to the same double.
            const auto r = std::to_chars(number, number + sizeof number, RawToFloat(raw), std::chars_format::general);
            FBuffer.append(number, r.ptr - number);
            break;
        }
        case scText:
            AppendText(QStringView(reinterpret_cast<const char16_t*>(raw.constData()), raw.size() / 2), true);
            break;
        case scBlob: {
            static const char digits[] = "0123456789abcdef";
            const qsizetype at = FBuffer.size();
            FBuffer.resize(at + 2 * raw.size());
            char* out = FBuffer.data() + at;
            for (const char b : raw) {
                *out++ = digits[static_cast<unsigned char>(b) >> 4];
                *out++ = digits[static_cast<unsigned char>(b) & 15];
            }
            break;
        }
        default:
            break;  // NULL: nothing between the separators
    }
}

}  // namespace brindle::cli
