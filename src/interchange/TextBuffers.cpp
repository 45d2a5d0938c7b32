#include "TextBuffers.h"

#include <QIODevice>
#include <algorithm>
#include <iterator>

namespace brindle {

namespace {

struct TByteOrderMark {
    const char* Bytes;
    int Size;
    const char* Name;
};

// The UTF-32 little-endian mark begins with the UTF-16 one: it comes first.
constexpr TByteOrderMark kMarks[] = {
    {"\xEF\xBB\xBF", 3, "UTF-8"}, {"\xFF\xFE\x00\x00", 4, "UTF-32LE"}, {"\x00\x00\xFE\xFF", 4, "UTF-32BE"},
    {"\xFF\xFE", 2, "UTF-16LE"},  {"\xFE\xFF", 2, "UTF-16BE"},
};

}  // namespace

TBuffer::TBuffer(QIODevice& Stream, const TEncoding& Encoding)
    : FStream(Stream),
      FEncoding(Encoding),
      FDecoder(Encoding),
      FAtStart(Stream.pos() == 0),
      FBase(Stream.pos()) {
    FBytes.resize(BLOCK_SIZE);
}

TBuffer::~TBuffer() = default;

// The encoding's own mark is skipped; the mark of another encoding means
// the text was written in that one, and reading on would garble it.
void TBuffer::CheckByteOrderMark() {
    const QByteArray head = FStream.peek(4);
    const QByteArray own = FEncoding.GetPreamble();
    if (!own.isEmpty() && head.startsWith(own)) {
        FStream.skip(own.size());
        FBase += own.size();
        return;
    }
    for (const TByteOrderMark& mark : kMarks) {
        if (!head.startsWith(QByteArray::fromRawData(mark.Bytes, mark.Size))) continue;
        ETextDecodeError e(
            QStringLiteral("The text begins with the byte order mark of %1, but is read as %2.")
                .arg(QLatin1String(mark.Name), FEncoding.Name()),
            QStringLiteral("Encoding"), FEncoding.Name());
        e.SetParam(QStringLiteral("Offset"), QStringLiteral("0"));
        throw e;
    }
}

// A character torn at the end of a block stays in the decoder until the
// next block completes it; a block that gives no character (a lone byte of
// a wider one) is followed by the next at once.
bool TBuffer::NextBlock() {
    if (FInvalid) ThrowDecodeError();
    FLinesBefore += std::count(FData, FData + FCount, u'\n');
    FChars.resize(0);
    FData = nullptr;
    FCount = FCurrent = 0;
    if (FAtStart) {
        FAtStart = false;
        CheckByteOrderMark();
    }
    while (FChars.isEmpty() && !FAtEnd) {
        const qint64 read = FStream.read(FBytes.data(), BLOCK_SIZE);
        if (read < 0)
            throw ECustomException(QStringLiteral("Cannot read the text: %1").arg(FStream.errorString()));
        FAtEnd = read == 0;
        if (!FDecoder.Decode(FBytes.constData(), read, FAtEnd, FChars)) {
            // The characters before the bad bytes are handed out first.
            FInvalid = true;
            break;
        }
    }
    FData = reinterpret_cast<const char16_t*>(FChars.constData());
    FCount = FChars.size();
    if (FCount == 0 && FInvalid) ThrowDecodeError();
    return FCount > 0;
}

void TBuffer::ThrowDecodeError() {
    const qint64 line = FLinesBefore + std::count(FData, FData + FCount, u'\n') + 1;
    const QString offset = QString::number(FBase + FDecoder.ErrorOffset());
    ETextDecodeError e(QStringLiteral("The text is not valid %1: invalid bytes at byte offset %2 (line %3).")
                           .arg(FEncoding.Name(), offset)
                           .arg(line),
                       QStringLiteral("Encoding"), FEncoding.Name());
    e.SetParam(QStringLiteral("Offset"), offset);
    e.SetParam(QStringLiteral("Line"), QString::number(line));
    throw e;
}

}  // namespace brindle
