#include "Encoding.h"

#include "Exceptions.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>

#include <iterator>
#include <memory>

namespace brindle {

// One known code page: its Windows number, the ICU converter that does the
// work, the name shown to people and the other names it answers to (each
// compared without case, '-', '_' and blanks).
struct TCodePageInfo {
    int CodePage;
    const char* Converter;
    const char* Name;
    const char* Aliases[5];  // unused entries are null
};

namespace {

const TCodePageInfo kCodePages[] = {
    {65001, "UTF-8", "UTF-8", {"utf8"}},
    {1200, "UTF-16LE", "UTF-16LE", {"utf16", "unicode", "ucs2"}},
    {1201, "UTF-16BE", "UTF-16BE", {"unicodefffe"}},
    {12000, "UTF-32LE", "UTF-32LE", {"utf32"}},
    {12001, "UTF-32BE", "UTF-32BE", {}},
    {20127, "US-ASCII", "us-ascii", {"ascii"}},
    {1252, "windows-1252", "windows-1252", {"cp1252", "ansi"}},
    {1250, "windows-1250", "windows-1250", {"cp1250"}},
    {1251, "windows-1251", "windows-1251", {"cp1251"}},
    {1253, "windows-1253", "windows-1253", {"cp1253"}},
    {1254, "windows-1254", "windows-1254", {"cp1254"}},
    {1255, "windows-1255", "windows-1255", {"cp1255"}},
    {1256, "windows-1256", "windows-1256", {"cp1256"}},
    {1257, "windows-1257", "windows-1257", {"cp1257"}},
    {1258, "windows-1258", "windows-1258", {"cp1258"}},
    {874, "windows-874", "windows-874", {"cp874", "tis620", "iso885911"}},
    {932, "windows-932", "Shift_JIS", {"sjis", "cp932", "windows932", "windows31j", "mskanji"}},
    {936, "windows-936", "GBK", {"gb2312", "cp936", "windows936"}},
    {949, "windows-949", "ks_c_5601-1987", {"cp949", "windows949", "uhc"}},
    {950, "windows-950", "Big5", {"cp950", "windows950"}},
    {28591, "ISO-8859-1", "ISO-8859-1", {"latin1", "l1"}},
    {28592, "ISO-8859-2", "ISO-8859-2", {"latin2", "l2"}},
    {28593, "ISO-8859-3", "ISO-8859-3", {"latin3", "l3"}},
    {28594, "ISO-8859-4", "ISO-8859-4", {"latin4", "l4"}},
    {28595, "ISO-8859-5", "ISO-8859-5", {"cyrillic"}},
    {28596, "ISO-8859-6", "ISO-8859-6", {"arabic"}},
    {28597, "ISO-8859-7", "ISO-8859-7", {"greek"}},
    {28598, "ISO-8859-8", "ISO-8859-8", {"hebrew"}},
    {28599, "ISO-8859-9", "ISO-8859-9", {"latin5", "l5"}},
    {28603, "ISO-8859-13", "ISO-8859-13", {"latin7", "l7"}},
    {28605, "ISO-8859-15", "ISO-8859-15", {"latin9", "l9"}},
    {20866, "KOI8-R", "KOI8-R", {}},
    {852, "ibm-852", "IBM852", {"cp852"}},
    {855, "ibm-855", "IBM855", {"cp855"}},
    {866, "ibm-866", "IBM866", {"cp866"}},
    {10007, "x-mac-cyrillic", "x-mac-cyrillic", {"maccyrillic"}},
    {10029, "macos-29-10.2", "x-mac-ce", {"maccentraleurope"}},
    {50220, "ISO-2022-JP", "ISO-2022-JP", {}},
    {50225, "ISO-2022-KR", "ISO-2022-KR", {}},
    {50227, "ISO-2022-CN", "ISO-2022-CN", {}},
    {52936, "HZ", "HZ-GB-2312", {"hz"}},
    {51932, "EUC-JP", "EUC-JP", {}},
    {51949, "EUC-KR", "EUC-KR", {}},
    {51950, "x-euc-tw", "EUC-TW", {}},
    {54936, "GB18030", "GB18030", {}},
};

const TCodePageInfo& Row(int CodePage) {
    for (const TCodePageInfo& row : kCodePages)
        if (row.CodePage == CodePage) return row;
    throw ECustomException(QStringLiteral("Unknown code page: %1.").arg(CodePage), QStringLiteral("CodePage"),
                           QString::number(CodePage));
}

// Names compare without case and without the separators people vary.
QString NormalName(QString Name) {
    Name = Name.toLower();
    Name.remove(u'-');
    Name.remove(u'_');
    Name.remove(u' ');
    return Name;
}

struct TConverterCloser {
    void operator()(UConverter* Converter) const { ucnv_close(Converter); }
};
using TConverter = std::unique_ptr<UConverter, TConverterCloser>;

TConverter OpenConverter(const TCodePageInfo& Info) {
    UErrorCode error = U_ZERO_ERROR;
    TConverter converter(ucnv_open(Info.Converter, &error));
    if (U_FAILURE(error) || !converter)
        throw ECustomException(QStringLiteral("The encoding %1 is not available: %2.")
                                   .arg(QLatin1String(Info.Name), QLatin1String(u_errorName(error))));
    return converter;
}

// Lenient decoding: every invalid or unassigned sequence becomes U+FFFD,
// whatever substitute the code page itself would offer (often U+001A).
void U_CALLCONV ReplaceInvalid(const void*, UConverterToUnicodeArgs* Args, const char*, int32_t,
                               UConverterCallbackReason Reason, UErrorCode* Error) {
    if (Reason > UCNV_IRREGULAR) return;  // reset, close, clone: nothing to write
    *Error = U_ZERO_ERROR;
    const UChar replacement = 0xFFFD;
    ucnv_cbToUWriteUChars(Args, &replacement, 1, 0, Error);
}

bool IsUnicodeCodePage(int CodePage) {
    return CodePage == 65001 || CodePage == 1200 || CodePage == 1201 || CodePage == 12000 ||
           CodePage == 12001;
}

}  // namespace

TEncoding TEncoding::GetEncoding(int CodePage) {
    if (CodePage == 0) return Default();
    return TEncoding(&Row(CodePage));
}

TEncoding TEncoding::GetEncodingByName(const QString& Name) {
    const QString wanted = NormalName(Name.trimmed());
    if (wanted.isEmpty()) throw ECustomException(QStringLiteral("No encoding named."));
    bool isNumber = false;
    const int number = wanted.toInt(&isNumber);
    if (isNumber) return GetEncoding(number);
    for (const TCodePageInfo& row : kCodePages) {
        if (NormalName(QLatin1String(row.Name)) == wanted ||
            NormalName(QLatin1String(row.Converter)) == wanted)
            return TEncoding(&row);
        for (const char* alias : row.Aliases)
            if (alias && NormalName(QLatin1String(alias)) == wanted) return TEncoding(&row);
    }
    throw ECustomException(QStringLiteral("Unknown encoding: %1.").arg(Name), QStringLiteral("Encoding"),
                           Name);
}

const TEncoding& TEncoding::Default() {
    static const TEncoding encoding(&Row(1252));
    return encoding;
}

const TEncoding& TEncoding::ASCII() {
    static const TEncoding encoding(&Row(20127));
    return encoding;
}

const TEncoding& TEncoding::UTF8() {
    static const TEncoding encoding(&Row(65001));
    return encoding;
}

const TEncoding& TEncoding::Unicode() {
    static const TEncoding encoding(&Row(1200));
    return encoding;
}

const TEncoding& TEncoding::BigEndianUnicode() {
    static const TEncoding encoding(&Row(1201));
    return encoding;
}

int TEncoding::CodePage() const {
    return FInfo->CodePage;
}

QString TEncoding::Name() const {
    return QLatin1String(FInfo->Name);
}

bool TEncoding::IsUnicode() const {
    return IsUnicodeCodePage(FInfo->CodePage);
}

QByteArray TEncoding::GetPreamble() const {
    switch (FInfo->CodePage) {
        case 65001:
            return QByteArray("\xEF\xBB\xBF", 3);
        case 1200:
            return QByteArray("\xFF\xFE", 2);
        case 1201:
            return QByteArray("\xFE\xFF", 2);
        case 12000:
            return QByteArray("\xFF\xFE\x00\x00", 4);
        case 12001:
            return QByteArray("\x00\x00\xFE\xFF", 4);
        default:
            return QByteArray();
    }
}

QByteArray TEncoding::GetBytes(const QString& S) const {
    return Encode(S, false);
}

QByteArray TEncoding::GetBytesStrict(const QString& S) const {
    return Encode(S, true);
}

qsizetype TEncoding::GetByteCount(const QString& S) const {
    return Encode(S, false).size();
}

QString TEncoding::GetChars(const QByteArray& Bytes) const {
    return Decode(Bytes.constData(), Bytes.size(), false);
}

QString TEncoding::GetChars(const char* Data, qsizetype Size) const {
    return Decode(Data, Size, false);
}

QString TEncoding::GetCharsStrict(const QByteArray& Bytes) const {
    return Decode(Bytes.constData(), Bytes.size(), true);
}

QString TEncoding::GetCharsStrict(const char* Data, qsizetype Size) const {
    return Decode(Data, Size, true);
}

// One pass over the whole input with flush set, growing the output when ICU
// asks for room. Pointers rather than int32 lengths, so size is no limit.
QString TEncoding::Decode(const char* Data, qsizetype Size, bool Strict) const {
    if (!Data || Size <= 0) return QString();
    TConverter converter = OpenConverter(*FInfo);
    UErrorCode error = U_ZERO_ERROR;
    if (Strict)
        ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    else
        ucnv_setToUCallBack(converter.get(), ReplaceInvalid, nullptr, nullptr, nullptr, &error);

    QString result(Size + 16, Qt::Uninitialized);
    const char* source = Data;
    const char* const sourceLimit = Data + Size;
    qsizetype written = 0;
    for (;;) {
        UChar* const begin = reinterpret_cast<UChar*>(result.data());
        UChar* target = begin + written;
        ucnv_toUnicode(converter.get(), &target, begin + result.size(), &source, sourceLimit, nullptr, true,
                       &error);
        written = target - begin;
        if (error != U_BUFFER_OVERFLOW_ERROR) break;
        error = U_ZERO_ERROR;
        result.resize(result.size() * 2);
    }
    if (U_FAILURE(error)) {
        // ICU has consumed the offending bytes; they end where source is.
        char invalid[32];
        int8_t invalidLength = sizeof(invalid);
        UErrorCode ignored = U_ZERO_ERROR;
        ucnv_getInvalidChars(converter.get(), invalid, &invalidLength, &ignored);
        if (U_FAILURE(ignored)) invalidLength = 0;
        const qint64 offset = (source - Data) - invalidLength;
        ECustomException e(
            QStringLiteral("Invalid %1 byte sequence at byte offset %2.").arg(Name()).arg(offset),
            QStringLiteral("Offset"), QString::number(offset));
        e.SetParam(QStringLiteral("Encoding"), Name());
        throw e;
    }
    result.truncate(written);
    return result;
}

QByteArray TEncoding::Encode(const QString& S, bool Strict) const {
    if (S.isEmpty()) return QByteArray();
    TConverter converter = OpenConverter(*FInfo);
    UErrorCode error = U_ZERO_ERROR;
    if (Strict) {
        ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
    } else if (!IsUnicode()) {
        // The code pages' own substitute is usually the control character
        // SUB (0x1A), which a reader would not see; '?' it is.
        ucnv_setSubstChars(converter.get(), "?", 1, &error);
    }

    QByteArray result(S.size() + 16, Qt::Uninitialized);
    const UChar* const sourceBegin = reinterpret_cast<const UChar*>(S.constData());
    const UChar* source = sourceBegin;
    const UChar* const sourceLimit = sourceBegin + S.size();
    qsizetype written = 0;
    for (;;) {
        char* const begin = result.data();
        char* target = begin + written;
        ucnv_fromUnicode(converter.get(), &target, begin + result.size(), &source, sourceLimit, nullptr, true,
                         &error);
        written = target - begin;
        if (error != U_BUFFER_OVERFLOW_ERROR) break;
        error = U_ZERO_ERROR;
        result.resize(result.size() * 2);
    }
    if (U_FAILURE(error)) {
        UChar invalid[8];
        int8_t invalidLength = static_cast<int8_t>(std::size(invalid));
        UErrorCode ignored = U_ZERO_ERROR;
        ucnv_getInvalidUChars(converter.get(), invalid, &invalidLength, &ignored);
        if (U_FAILURE(ignored)) invalidLength = 0;
        const qsizetype offset = (source - sourceBegin) - invalidLength;
        const char32_t code = offset < S.size() ? S.at(offset).unicode() : 0;
        const char32_t full =
            offset + 1 < S.size() && S.at(offset).isHighSurrogate() && S.at(offset + 1).isLowSurrogate()
                ? QChar::surrogateToUcs4(S.at(offset), S.at(offset + 1))
                : code;
        const QString hex = QString::number(full, 16).toUpper().rightJustified(4, u'0');
        ECustomException e(QStringLiteral("The character U+%1 at position %2 has no form in %3.")
                               .arg(hex)
                               .arg(offset)
                               .arg(Name()),
                           QStringLiteral("Offset"), QString::number(offset));
        e.SetParam(QStringLiteral("Encoding"), Name());
        throw e;
    }
    result.truncate(written);
    return result;
}

// ---------------------------------------------------------------------------
// TDecoder

void TDecoder::TCloser::operator()(UConverter* Converter) const {
    ucnv_close(Converter);
}

TDecoder::TDecoder(const TEncoding& Encoding) : FConverter(OpenConverter(*Encoding.FInfo).release()) {
    UErrorCode error = U_ZERO_ERROR;
    ucnv_setToUCallBack(FConverter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
}

TDecoder::~TDecoder() = default;

bool TDecoder::Decode(const char* Data, qsizetype Size, bool Last, QString& Out) {
    if (FErrorOffset >= 0) return false;  // the converter is stuck where it stopped
    const char* source = Data;
    const char* const sourceLimit = Data + (Data ? Size : 0);
    qsizetype written = Out.size();
    // Never more characters than bytes, plus what a torn sequence held back.
    Out.resize(written + (sourceLimit - source) + 16);
    UErrorCode error = U_ZERO_ERROR;
    for (;;) {
        UChar* const begin = reinterpret_cast<UChar*>(Out.data());
        UChar* target = begin + written;
        ucnv_toUnicode(FConverter.get(), &target, begin + Out.size(), &source, sourceLimit, nullptr, Last,
                       &error);
        written = target - begin;
        if (error != U_BUFFER_OVERFLOW_ERROR) break;
        error = U_ZERO_ERROR;
        Out.resize(Out.size() * 2);
    }
    Out.truncate(written);
    if (U_SUCCESS(error)) {
        FConsumed += sourceLimit - Data;
        return true;
    }
    // ICU has consumed the offending bytes; they end where source is.
    char invalid[32];
    int8_t invalidLength = sizeof(invalid);
    UErrorCode ignored = U_ZERO_ERROR;
    ucnv_getInvalidChars(FConverter.get(), invalid, &invalidLength, &ignored);
    if (U_FAILURE(ignored)) invalidLength = 0;
    FErrorOffset = FConsumed + (source - Data) - invalidLength;
    // A sequence begun in an earlier piece reaches back before this one.
    if (FErrorOffset < 0) FErrorOffset = 0;
    return false;
}

}  // namespace brindle
