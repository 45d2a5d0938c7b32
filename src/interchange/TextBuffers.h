// A character source over a byte stream: the stream is read in blocks of
// 65536 bytes and each block decoded through a TEncoding, so that a file of
// any size reads in constant memory.
//
// Ownership: the stream stays the caller's and must outlive the buffer.
// One thread at a time.
#pragma once

#include "engine/Encoding.h"
#include "engine/Exceptions.h"

#include <QByteArray>
#include <QString>

class QIODevice;

namespace brindle {

// The bytes are not text in the chosen encoding: a sequence that is invalid
// in it, or a byte order mark of another encoding. Never ignored: what
// follows cannot be trusted. The message names the byte offset and line.
class ETextDecodeError : public ECustomException {
public:
    using ECustomException::ECustomException;
};

class TBuffer {
public:
    static constexpr qsizetype BLOCK_SIZE = 65536;

    // Reads from the stream's present position; at position 0 a byte order
    // mark of Encoding is skipped, and one of another encoding refused.
    TBuffer(QIODevice& Stream, const TEncoding& Encoding);
    ~TBuffer();
    TBuffer(const TBuffer&) = delete;
    TBuffer& operator=(const TBuffer&) = delete;

    // The next character; false when no further character can be had.
    // Throws ETextDecodeError on reaching bytes invalid in the encoding,
    // and ECustomException when the stream fails.
    bool GetChar(char16_t& C) {
        if (FCurrent == FCount && !NextBlock()) return false;
        C = FData[FCurrent++];
        return true;
    }

    // The characters of the current block not yet handed out, for a reader
    // that takes a run of them at once; Skip hands them out. Empty when the
    // block is used up: GetChar then reads the next.
    const char16_t* Current() const { return FData + FCurrent; }
    qsizetype Available() const { return FCount - FCurrent; }
    void Skip(qsizetype Count) { FCurrent += Count; }

    const TEncoding& Encoding() const { return FEncoding; }

private:
    // Decodes blocks until one gives characters; false at the end.
    bool NextBlock();
    void CheckByteOrderMark();
    [[noreturn]] void ThrowDecodeError();

    QIODevice& FStream;
    TEncoding FEncoding;
    TDecoder FDecoder;
    QByteArray FBytes;
    QString FChars;                   // the decoded current block
    const char16_t* FData = nullptr;  // FChars' characters
    qsizetype FCount = 0;
    qsizetype FCurrent = 0;
    bool FAtStart;
    bool FAtEnd = false;
    bool FInvalid = false;    // the decoder stopped at the end of FChars
    qint64 FLinesBefore = 0;  // line feeds in the blocks handed out before
    qint64 FBase;             // the stream's offset of the first byte decoded
};

}  // namespace brindle
