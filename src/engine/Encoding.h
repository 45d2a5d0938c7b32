// Text encodings named by Windows code page numbers, as the rest of the
// program and the files it meets name them (65001 UTF-8, 1200 UTF-16LE,
// 1252, 932 Shift-JIS, ...). Conversion is done by ICU; every call opens its
// own converter, so one TEncoding may be shared by threads.
#pragma once

#include <QByteArray>
#include <QString>
#include <memory>

struct UConverter;

namespace brindle {

struct TCodePageInfo;

// A value: cheap to copy, and two encodings of the same code page compare
// equal. The presets live for the whole process.
class TEncoding {
public:
    // The encoding of a Windows code page; 0 is the default (ANSI) code page.
    // Throws ECustomException for a code page this program doesn't know.
    static TEncoding GetEncoding(int CodePage);
    // By name, case-blind, with or without '-', '_' and blanks: "UTF-8",
    // "utf16le", "Windows-1252", "latin1", "Shift_JIS", "cp932", or a code
    // page number. "UTF-16" is little-endian. Throws ECustomException for
    // a name it doesn't know.
    static TEncoding GetEncodingByName(const QString& Name);

    // The ANSI code page. Linux has none; Windows-1252 is what the files
    // this program reads were written in when they came from an ANSI
    // program in the western world, and it is a superset of Latin-1.
    static const TEncoding& Default();
    static const TEncoding& ASCII();
    static const TEncoding& UTF8();
    static const TEncoding& Unicode();           // UTF-16 little-endian
    static const TEncoding& BigEndianUnicode();  // UTF-16 big-endian

    int CodePage() const;
    // The usual name: "UTF-8", "UTF-16LE", "windows-1252", "Shift_JIS", ...
    QString Name() const;
    // True for the UTF forms, which can hold any text.
    bool IsUnicode() const;

    // Characters the encoding can't hold become '?' (U+FFFD in the UTF
    // forms, which lack only unpaired surrogates). No preamble is written.
    QByteArray GetBytes(const QString& S) const;
    // As GetBytes, but throws ECustomException at the first character the
    // encoding can't hold; its parameter "Offset" is that character's index.
    QByteArray GetBytesStrict(const QString& S) const;
    qsizetype GetByteCount(const QString& S) const;

    // Decodes; a byte sequence that is invalid or unassigned becomes U+FFFD.
    // A preamble is not skipped: it is the caller's to strip.
    QString GetChars(const QByteArray& Bytes) const;
    QString GetChars(const char* Data, qsizetype Size) const;
    // As GetChars, but throws ECustomException at the first invalid
    // sequence; its parameter "Offset" is the sequence's byte offset.
    QString GetCharsStrict(const QByteArray& Bytes) const;
    QString GetCharsStrict(const char* Data, qsizetype Size) const;

    // The byte order mark of the UTF forms; empty for the others.
    QByteArray GetPreamble() const;

    bool operator==(const TEncoding& Other) const { return FInfo == Other.FInfo; }

private:
    explicit TEncoding(const TCodePageInfo* Info) : FInfo(Info) {}
    QString Decode(const char* Data, qsizetype Size, bool Strict) const;
    QByteArray Encode(const QString& S, bool Strict) const;

    const TCodePageInfo* FInfo;  // a row of a static table, never null
    friend class TDecoder;
};

// Decodes a stream piece by piece. A character torn at the end of one piece
// is completed by the next, and stateful encodings keep their state, so
// pieces may be cut anywhere. Strict: decoding stops at the first sequence
// that is invalid or unassigned. Owns its converter; one thread at a time.
class TDecoder {
public:
    explicit TDecoder(const TEncoding& Encoding);
    ~TDecoder();
    TDecoder(const TDecoder&) = delete;
    TDecoder& operator=(const TDecoder&) = delete;

    // Appends the characters of Size bytes to Out; Last says no bytes
    // follow, so a sequence left open is an error. False at an invalid
    // sequence: Out then ends with the characters before it, and
    // ErrorOffset counts the bytes of every piece before that sequence.
    bool Decode(const char* Data, qsizetype Size, bool Last, QString& Out);
    qint64 ErrorOffset() const { return FErrorOffset; }

private:
    struct TCloser {
        void operator()(UConverter* Converter) const;
    };
    std::unique_ptr<UConverter, TCloser> FConverter;
    qint64 FConsumed = 0;  // bytes of the pieces before the current one
    qint64 FErrorOffset = -1;
};

}  // namespace brindle
