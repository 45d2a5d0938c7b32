// What encoding a text has, and reading and writing text files in it. The
// detector is libuchardet; around it this unit decides what the program
// relies on: byte order marks first, pure ASCII as code page 0, UTF-16
// without a mark, and UTF-8 when nothing can be said.
#pragma once

#include "engine/Encoding.h"

#include <QString>
#include <QStringList>
#include <span>

namespace brindle {

// A record made without values is the default row.
struct rCharsetInfo {
    QString Name = QStringLiteral("UTF-8");
    int CodePage = 65001;
    QString Language;  // empty where the charset serves many languages
};

// A prober's confidence must reach this before the detector names its
// charset. The library applies the threshold itself; below it, it names
// none and the default row stands.
constexpr double MINIMUM_THRESHOLD = 0.2;

struct TKnownCharset {
    const char* Name;  // as the detector names it
    int CodePage;
    const char* Language;
};

// The detector's charset names and their code pages. Row DEFAULT_CHARSET,
// UTF-8, is the answer when nothing better is known.
extern const std::span<const TKnownCharset> KNOWN_CHARSETS;
constexpr int DEFAULT_CHARSET = 2;

// At most this many bytes of a file are judged; the head speaks for the rest.
constexpr qint64 DETECTION_SIZE = 1000000;

// The charset of Size bytes at Buffer. Null or empty gives the default row.
// Code page 0 means no byte above 0x7F and no mark: pure ASCII.
rCharsetInfo DetectCharsetInfo(const char* Buffer, qint64 Size);
// The charset of a file's first DETECTION_SIZE bytes; a missing, unreadable
// or empty file gives the default row.
rCharsetInfo DetectCharsetInfo(const QString& FileName);

// The encoding to read a file with. Code page 0 gives UTF-8: it reads ASCII
// alike, and the part of the file beyond the detected head may hold more.
TEncoding GetFileEncoding(const QString& FileName);

// The whole text of a file in its detected encoding, without a byte order
// mark. Throws ECustomException naming the file when it can't be read, and
// the byte offset (counted from the file's start) of the first sequence
// that is invalid in that encoding.
QString LoadStrings(const QString& FileName);
// The same for bytes read elsewhere (standard input); FileName names them
// in the message.
QString DecodeText(const QByteArray& Data, const QString& FileName);

// Writes Text as lines, each ended by CR LF as the program's text files
// are, in Encoding, with its byte order mark if WithPreamble. The file is
// replaced only once all of it is written, so a failure leaves the old one
// whole. Throws ECustomException for a character the encoding can't hold
// and for a failed write.
void SaveStrings(const QString& FileName, const QString& Text, const TEncoding& Encoding, bool WithPreamble);

struct TEncodingChoice {
    TEncoding Encoding;
    bool WithPreamble;
};

// How the SQL editor saves: in the ANSI code page when the text survives the
// round trip through it, else UTF-8 with a byte order mark.
TEncodingChoice ChooseSaveEncoding(const QString& Text);

// The entries of "Select Encoding", in order.
QStringList SelectEncodingEntries();
// What an entry means: "UTF-16" is little-endian with a byte order mark,
// the others have none. Throws ECustomException for another text.
TEncodingChoice SelectedEncoding(const QString& Entry);

}  // namespace brindle
