#include "Encodings.h"

#include "engine/Exceptions.h"

#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>

#include <uchardet/uchardet.h>

#include <algorithm>
#include <memory>
#include <type_traits>

namespace brindle {

namespace {

// The first rows are the ones this unit reports without the detector; the
// others are the detector's own names.
constexpr TKnownCharset kKnownCharsets[] = {
    {"ASCII", 0, ""},
    {"UTF-16LE", 1200, ""},
    {"UTF-8", 65001, ""},
    {"UTF-16BE", 1201, ""},
    {"UTF-32LE", 12000, ""},
    {"UTF-32BE", 12001, ""},
    {"ISO-2022-JP", 50220, "Japanese"},
    {"ISO-2022-KR", 50225, "Korean"},
    {"ISO-2022-CN", 50227, "Chinese"},
    {"HZ-GB-2312", 52936, "Chinese"},
    {"SHIFT_JIS", 932, "Japanese"},
    {"EUC-JP", 51932, "Japanese"},
    {"GB18030", 54936, "Chinese"},
    {"EUC-KR", 51949, "Korean"},
    {"EUC-TW", 51950, "Chinese"},
    {"BIG5", 950, "Chinese"},
    {"WINDOWS-1250", 1250, ""},
    {"WINDOWS-1251", 1251, ""},
    {"WINDOWS-1252", 1252, ""},
    {"WINDOWS-1253", 1253, "Greek"},
    {"WINDOWS-1254", 1254, "Turkish"},
    {"WINDOWS-1255", 1255, "Hebrew"},
    {"WINDOWS-1256", 1256, "Arabic"},
    {"WINDOWS-1257", 1257, ""},
    {"WINDOWS-1258", 1258, "Vietnamese"},
    {"WINDOWS-874", 874, "Thai"},
    {"ISO-8859-1", 28591, ""},
    {"ISO-8859-2", 28592, ""},
    {"ISO-8859-3", 28593, ""},
    {"ISO-8859-4", 28594, ""},
    {"ISO-8859-5", 28595, ""},
    {"ISO-8859-6", 28596, "Arabic"},
    {"ISO-8859-7", 28597, "Greek"},
    {"ISO-8859-8", 28598, "Hebrew"},
    {"ISO-8859-9", 28599, "Turkish"},
    {"ISO-8859-11", 874, "Thai"},
    {"TIS-620", 874, "Thai"},
    {"ISO-8859-13", 28603, ""},
    {"ISO-8859-15", 28605, ""},
    {"KOI8-R", 20866, "Russian"},
    {"MAC-CYRILLIC", 10007, ""},
    {"MAC-CENTRALEUROPE", 10029, ""},
    {"IBM852", 852, ""},
    {"IBM855", 855, ""},
    {"IBM866", 866, ""},
};

static_assert(kKnownCharsets[DEFAULT_CHARSET].CodePage == 65001);

enum : int { kAsciiRow = 0, kUtf16LERow = 1, kUtf16BERow = 3, kUtf32LERow = 4, kUtf32BERow = 5 };

rCharsetInfo Info(int Row) {
    const TKnownCharset& row = kKnownCharsets[Row];
    return {QLatin1String(row.Name), row.CodePage, QLatin1String(row.Language)};
}

int FindRow(const QByteArray& DetectorName) {
    if (DetectorName.isEmpty()) return -1;
    const QLatin1String name(DetectorName);
    for (int i = 0; i < static_cast<int>(std::size(kKnownCharsets)); ++i)
        if (name.compare(QLatin1String(kKnownCharsets[i].Name), Qt::CaseInsensitive) == 0) return i;
    return -1;
}

// Seven-bit charsets that switch sets by escape sequences: text in them has
// no byte above 0x7F and yet isn't ASCII.
bool IsEscapeCharset(int CodePage) {
    return CodePage == 50220 || CodePage == 50225 || CodePage == 50227 || CodePage == 52936;
}

int RowOfByteOrderMark(const unsigned char* P, qint64 Size) {
    if (Size >= 3 && P[0] == 0xEF && P[1] == 0xBB && P[2] == 0xBF) return DEFAULT_CHARSET;
    // The UTF-32 little-endian mark begins with the UTF-16 one: test it first.
    if (Size >= 4 && P[0] == 0xFF && P[1] == 0xFE && P[2] == 0 && P[3] == 0) return kUtf32LERow;
    if (Size >= 4 && P[0] == 0 && P[1] == 0 && P[2] == 0xFE && P[3] == 0xFF) return kUtf32BERow;
    if (Size >= 2 && P[0] == 0xFF && P[1] == 0xFE) return kUtf16LERow;
    if (Size >= 2 && P[0] == 0xFE && P[1] == 0xFF) return kUtf16BERow;
    return -1;
}

// The detector knows UTF-16 only by its mark, and takes marked-less UTF-16
// for a single-byte charset. Yet text mostly of Latin letters in UTF-16 has
// a zero in every other byte and hardly any in the others, which no 8-bit
// text has; the zeros' side gives the byte order. A look at the head
// suffices, and the head must then hold no broken surrogate pair.
int RowOfUtf16WithoutMark(const unsigned char* P, qint64 Size) {
    const qint64 sample = std::min<qint64>(Size, 4096) & ~qint64(1);
    const qint64 units = sample / 2;
    if (units == 0) return -1;
    qint64 evenZeros = 0, oddZeros = 0;
    for (qint64 i = 0; i < sample; i += 2) {
        if (P[i] == 0) ++evenZeros;
        if (P[i + 1] == 0) ++oddZeros;
    }
    bool littleEndian;
    if (oddZeros * 4 >= units && evenZeros * 10 <= oddZeros)
        littleEndian = true;
    else if (evenZeros * 4 >= units && oddZeros * 10 <= evenZeros)
        littleEndian = false;
    else
        return -1;
    bool expectLow = false;
    for (qint64 i = 0; i < sample; i += 2) {
        const unsigned unit = littleEndian ? P[i] | (P[i + 1] << 8) : (P[i] << 8) | P[i + 1];
        const bool high = unit >= 0xD800 && unit <= 0xDBFF, low = unit >= 0xDC00 && unit <= 0xDFFF;
        if (expectLow != low) return -1;
        expectLow = high;
    }
    return littleEndian ? kUtf16LERow : kUtf16BERow;
}

struct TDetectorDeleter {
    void operator()(uchardet_t Detector) const { uchardet_delete(Detector); }
};
using TDetector = std::unique_ptr<std::remove_pointer_t<uchardet_t>, TDetectorDeleter>;

// The detector's charset name; empty when it has none. A copy: the text
// belongs to the detector.
QByteArray AskDetector(const char* Buffer, qint64 Size) {
    TDetector detector(uchardet_new());
    if (!detector) return {};
    if (uchardet_handle_data(detector.get(), Buffer, static_cast<size_t>(Size)) != 0) return {};
    uchardet_data_end(detector.get());
    const char* name = uchardet_get_charset(detector.get());
    return QByteArray(name ? name : "");
}

TEncoding EncodingOfCodePage(int CodePage) {
    return CodePage == 0 ? TEncoding::UTF8() : TEncoding::GetEncoding(CodePage);
}

QString Quoted(const QString& FileName) {
    return QStringLiteral("\"%1\"").arg(FileName);
}

// As a string list reads a text: a final line break ends the last line, it
// opens no new one.
QStringList Lines(const QString& Text) {
    if (Text.isEmpty()) return {};
    static const QRegularExpression breaks(QStringLiteral("\r\n|\r|\n"));
    QStringList lines = Text.split(breaks);
    if (lines.last().isEmpty()) lines.removeLast();
    return lines;
}

}  // namespace

const std::span<const TKnownCharset> KNOWN_CHARSETS(kKnownCharsets);

rCharsetInfo DetectCharsetInfo(const char* Buffer, qint64 Size) {
    if (!Buffer || Size <= 0) return Info(DEFAULT_CHARSET);
    const auto* bytes = reinterpret_cast<const unsigned char*>(Buffer);
    int row = RowOfByteOrderMark(bytes, Size);
    if (row < 0) row = RowOfUtf16WithoutMark(bytes, Size);
    if (row >= 0) return Info(row);

    const bool sevenBit = std::none_of(bytes, bytes + Size, [](unsigned char b) { return b >= 0x80; });
    row = FindRow(AskDetector(Buffer, Size));
    // Seven bits are pure ASCII, code page 0, whatever the detector makes
    // of them; unless it found a charset that is seven-bit by design.
    if (sevenBit && (row < 0 || !IsEscapeCharset(kKnownCharsets[row].CodePage))) return Info(kAsciiRow);
    // A name the table lacks has no code page to read it with.
    return Info(row >= 0 ? row : DEFAULT_CHARSET);
}

rCharsetInfo DetectCharsetInfo(const QString& FileName) {
    QFile file(FileName);
    if (!file.open(QIODevice::ReadOnly)) return Info(DEFAULT_CHARSET);
    const QByteArray head = file.read(DETECTION_SIZE);
    return DetectCharsetInfo(head.constData(), head.size());
}

TEncoding GetFileEncoding(const QString& FileName) {
    return EncodingOfCodePage(DetectCharsetInfo(FileName).CodePage);
}

QString LoadStrings(const QString& FileName) {
    QFile file(FileName);
    if (!file.open(QIODevice::ReadOnly))
        throw ECustomException(
            QStringLiteral("Cannot open the file %1: %2").arg(Quoted(FileName), file.errorString()),
            QStringLiteral("FileName"), FileName);
    const QByteArray data = file.readAll();
    if (file.error() != QFileDevice::NoError)
        throw ECustomException(
            QStringLiteral("Cannot read the file %1: %2").arg(Quoted(FileName), file.errorString()),
            QStringLiteral("FileName"), FileName);
    return DecodeText(data, FileName);
}

QString DecodeText(const QByteArray& data, const QString& FileName) {
    const TEncoding encoding = EncodingOfCodePage(
        DetectCharsetInfo(data.constData(), std::min<qint64>(data.size(), DETECTION_SIZE)).CodePage);
    const QByteArray preamble = encoding.GetPreamble();
    const qsizetype skip = !preamble.isEmpty() && data.startsWith(preamble) ? preamble.size() : 0;
    try {
        return encoding.GetCharsStrict(data.constData() + skip, data.size() - skip);
    } catch (const ECustomException& e) {
        const QString offset = QString::number(e.GetParam(QStringLiteral("Offset")).toLongLong() + skip);
        ECustomException failure(
            QStringLiteral("The file %1 is not valid %2 text: invalid bytes at offset %3.")
                .arg(Quoted(FileName), encoding.Name(), offset),
            QStringLiteral("FileName"), FileName);
        failure.SetParam(QStringLiteral("Encoding"), encoding.Name());
        failure.SetParam(QStringLiteral("Offset"), offset);
        throw failure;
    }
}

void SaveStrings(const QString& FileName, const QString& Text, const TEncoding& Encoding, bool WithPreamble) {
    const QStringList lines = Lines(Text);
    QString body = lines.join(QStringLiteral("\r\n"));
    if (!lines.isEmpty()) body += QStringLiteral("\r\n");
    QByteArray bytes = WithPreamble ? Encoding.GetPreamble() : QByteArray();
    try {
        bytes += Encoding.GetBytesStrict(body);
    } catch (const ECustomException& e) {
        ECustomException failure(
            QStringLiteral("Cannot save the file %1: %2").arg(Quoted(FileName), e.message()),
            QStringLiteral("FileName"), FileName);
        failure.SetParam(QStringLiteral("Encoding"), Encoding.Name());
        throw failure;
    }

    // QSaveFile writes beside the target and renames over it on commit.
    QSaveFile file(FileName);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        throw ECustomException(
            QStringLiteral("Cannot save the file %1: %2").arg(Quoted(FileName), file.errorString()),
            QStringLiteral("FileName"), FileName);
}

TEncodingChoice ChooseSaveEncoding(const QString& Text) {
    const TEncoding& ansi = TEncoding::Default();
    if (ansi.GetChars(ansi.GetBytes(Text)) == Text) return {ansi, false};
    return {TEncoding::UTF8(), true};
}

QStringList SelectEncodingEntries() {
    return {QStringLiteral("UTF-8"), QStringLiteral("UTF-16"), QStringLiteral("UTF-16le"),
            QStringLiteral("UTF-16be")};
}

TEncodingChoice SelectedEncoding(const QString& Entry) {
    const QStringList entries = SelectEncodingEntries();
    qsizetype index = 0;
    while (index < entries.size() && entries[index].compare(Entry, Qt::CaseInsensitive) != 0) ++index;
    switch (index) {
        case 0:
            return {TEncoding::UTF8(), false};
        case 1:
            return {TEncoding::Unicode(), true};
        case 2:
            return {TEncoding::Unicode(), false};
        case 3:
            return {TEncoding::BigEndianUnicode(), false};
        default:
            throw ECustomException(QStringLiteral("Unknown encoding: %1.").arg(Entry),
                                   QStringLiteral("Encoding"), Entry);
    }
}

}  // namespace brindle
