#include "ImageTools.h"

#include <QFile>
#include <QIODevice>
#include <QtEndian>
#include <cstring>

namespace brindle {

namespace {

// Count bytes of Head from At, or nothing when Head ends before.
const uchar* Bytes(QByteArrayView Head, qint64 At, qint64 Count) {
    if (At < 0 || Head.size() - At < Count) return nullptr;
    return reinterpret_cast<const uchar*>(Head.data()) + At;
}

bool Starts(QByteArrayView Head, qint64 At, const char* Signature, qint64 Length) {
    const uchar* p = Bytes(Head, At, Length);
    return p && std::memcmp(p, Signature, static_cast<size_t>(Length)) == 0;
}

bool IsJPEG(QByteArrayView Head, qint64 At) {
    return Starts(Head, At, "\xFF\xD8\xFF", 3);
}

bool IsPNG(QByteArrayView Head, qint64 At) {
    return Starts(Head, At, "\x89PNG\r\n\x1A\n", 8);
}

bool IsGIF(QByteArrayView Head, qint64 At) {
    return Starts(Head, At, "GIF87a", 6) || Starts(Head, At, "GIF89a", 6);
}

bool IsTIFF(QByteArrayView Head, qint64 At) {
    return Starts(Head, At, "II*\0", 4) || Starts(Head, At, "MM\0*", 4);
}

// "BM", and a DIB header of the two sizes the readers agree on: 40
// (Windows) or 12 (OS/2).
bool IsBMP(QByteArrayView Head, qint64 At) {
    const uchar* p = Bytes(Head, At, 18);
    if (!p || p[0] != 'B' || p[1] != 'M') return false;
    const quint32 header = qFromLittleEndian<quint32>(p + 14);
    return header == 40 || header == 12;
}

// A reserved word of 0 and an image count from 1 to 255.
bool IsICO(QByteArrayView Head, qint64 At) {
    const uchar* p = Bytes(Head, At, 6);
    if (!p || qFromLittleEndian<quint16>(p) != 0) return false;
    const quint16 count = qFromLittleEndian<quint16>(p + 4);
    return count != 0 && count < 0x100;
}

TImageFormat CheckOffset(QByteArrayView Head, qint64 At) {
    if (IsJPEG(Head, At)) return ifJPG;
    if (IsPNG(Head, At)) return ifPNG;
    if (IsGIF(Head, At)) return ifGIF;
    if (IsTIFF(Head, At)) return ifTIFF;
    if (IsBMP(Head, At)) return ifBMP;
    if (IsICO(Head, At)) return ifICO;
    return ifUnknown;
}

TImageFormat FormatOfHead(QByteArrayView Head, qint64& Offset) {
    for (const qint64 at : kImageOffsets) {
        const TImageFormat format = CheckOffset(Head, at);
        if (format != ifUnknown) {
            Offset = at;
            return format;
        }
    }
    Offset = 0;
    return ifUnknown;
}

}  // namespace

TImageFormat GetImageFormat(QIODevice& Stream, qint64& Offset) {
    Offset = 0;
    if (!Stream.isReadable()) return ifUnknown;
    // A device that cannot seek is judged from where it stands.
    if (Stream.isSequential()) return FormatOfHead(Stream.peek(kImageSniffSize), Offset);
    const qint64 position = Stream.pos();
    QByteArray head;
    if (Stream.seek(0)) head = Stream.read(kImageSniffSize);
    Stream.seek(position);
    return FormatOfHead(head, Offset);
}

TImageFormat GetImageFormat(QIODevice& Stream) {
    qint64 offset = 0;
    return GetImageFormat(Stream, offset);
}

TImageFormat GetImageFormat(const QByteArray& Data, qint64& Offset) {
    return FormatOfHead(Data, Offset);
}

TImageFormat GetImageFormat(const QByteArray& Data) {
    qint64 offset = 0;
    return FormatOfHead(Data, offset);
}

TImageFormat GetImageFormat(const QString& FileName) {
    QFile file(FileName);
    if (!file.open(QIODevice::ReadOnly)) return ifUnknown;
    return GetImageFormat(file);
}

bool IsSupportedImage(QIODevice& Stream) {
    return GetImageFormat(Stream) != ifUnknown;
}

bool IsSupportedImage(const QByteArray& Data) {
    return GetImageFormat(Data) != ifUnknown;
}

bool HasASCIIData(const QByteArray& Data) {
    if (Data.isEmpty()) return false;
    for (const char c : Data) {
        const auto b = static_cast<uchar>(c);
        if ((b < 0x20 || b > 0x7E) && b != '\t' && b != '\r' && b != '\n') return false;
    }
    return true;
}

TImageSaveFilter ImageSaveFilter(TImageFormat Format) {
    switch (Format) {
        case ifBMP:
            return {QStringLiteral("Bitmap files (*.BMP)|*.BMP"), QStringLiteral(".bmp")};
        case ifGIF:
            return {QStringLiteral("GIF files (*.GIF)|*.GIF"), QStringLiteral(".gif")};
        case ifICO:
            return {QStringLiteral("ICO files (*.ICO)|*.ICO"), QStringLiteral(".ico")};
        case ifJPG:
            return {QStringLiteral("JPEG files (*.JPG)|*.JPG"), QStringLiteral(".jpg")};
        case ifPNG:
            return {QStringLiteral("PNG files (*.PNG)|*.PNG"), QStringLiteral(".png")};
        case ifTIFF:
            return {QStringLiteral("TIFF files (*.TIF)|*.TIF"), QStringLiteral(".tif")};
        case ifUnknown:
            break;
    }
    return {QStringLiteral("All files (*.*)|*.*"), QString()};
}

QString ImageLoadFilter() {
    return QStringLiteral(
        "Image files (*.BMP, *.JPG, *.JPEG, *.PNG, *.ICO, *.GIF)|*.BMP;*.JPG;*.JPEG;*.PNG;*.ICO;*.GIF|"
        "All files (*.*)|*.*");
}

}  // namespace brindle
