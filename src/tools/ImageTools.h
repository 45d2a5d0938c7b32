// What kind of image a BLOB holds, told by its first bytes, and whether a
// value looks like text. Headless: the decoding itself belongs to the
// windows, which use the toolkit's image readers.
#pragma once

#include <QByteArray>
#include <QString>

class QIODevice;

namespace brindle {

enum TImageFormat { ifUnknown, ifJPG, ifPNG, ifGIF, ifTIFF, ifBMP, ifICO };

// The byte offsets at which an image is looked for, in order: some BLOBs
// keep the picture behind a wrapper header of 8 or 78 bytes.
inline constexpr qint64 kImageOffsets[] = {0, 8, 78};
// The most bytes any of those tests reads: an image at the last offset is
// seen in a head of this size (the grid sniffs 128).
inline constexpr qint64 kImageSniffSize = 96;

// The format whose signature stands at the first offset that has one; at
// an offset JPEG, PNG, GIF, TIFF, BMP and ICO are tried in that order. A
// test needing more bytes than the stream holds fails. Offsets count from
// the start of the stream, whose position is left as it was. Nothing found
// gives ifUnknown with Offset 0; so does a device that cannot be read.
TImageFormat GetImageFormat(QIODevice& Stream, qint64& Offset);
TImageFormat GetImageFormat(QIODevice& Stream);
TImageFormat GetImageFormat(const QByteArray& Data, qint64& Offset);
TImageFormat GetImageFormat(const QByteArray& Data);
// Of a file's first bytes; a file that cannot be opened gives ifUnknown.
TImageFormat GetImageFormat(const QString& FileName);

// The format is known (this says nothing of whether it decodes).
bool IsSupportedImage(QIODevice& Stream);
bool IsSupportedImage(const QByteArray& Data);

// Whether a value reads as plain text: every byte printable ASCII, tab, CR
// or LF. An empty value holds no text.
bool HasASCIIData(const QByteArray& Data);

// How an image of the format is saved: the dialog's filter, in the
// "Label|patterns" form, and the extension a name without one gets. A
// format without a filter of its own offers all files.
struct TImageSaveFilter {
    QString Filter;
    QString DefaultExt;
};
TImageSaveFilter ImageSaveFilter(TImageFormat Format);
// The filter of the dialog that loads an image.
QString ImageLoadFilter();

}  // namespace brindle
