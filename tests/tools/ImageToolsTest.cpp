// Telling an image's format from its first bytes: every format at each of
// the offsets a wrapper header may push it to, data too short for a test,
// damaged headers, and a stream left where it stood. Plus the look at a
// value that decides between the text and the hex editor.
#include "TempDir.h"

#include "tools/ImageTools.h"

#include <gtest/gtest.h>
#include <QBuffer>

using namespace brindle;
using namespace brindle::test;

namespace {

QByteArray Fixture(const char* Name) {
    return readFile(QStringLiteral(BRINDLE_TEST_DATA "/images/") + QLatin1String(Name));
}

// A wrapper header of Size bytes that matches no signature at any offset.
QByteArray Wrapper(int Size) {
    return QByteArray(Size, 'x');
}

struct FormatCase {
    const char* File;
    TImageFormat Format;
};

const FormatCase kFormats[] = {
    {"tiny.jpg", ifJPG},  {"tiny.png", ifPNG}, {"tiny.gif", ifGIF},
    {"tiny.tif", ifTIFF}, {"tiny.bmp", ifBMP}, {"tiny.ico", ifICO},
};

}  // namespace

TEST(ImageToolsTest, EachFormatIsFoundAtEachOffsetAndTheStreamStaysPut) {
    for (const FormatCase& c : kFormats) {
        const QByteArray image = Fixture(c.File);
        ASSERT_FALSE(image.isEmpty()) << c.File;
        for (const int offset : {0, 8, 78}) {
            SCOPED_TRACE(std::string(c.File) + " at " + std::to_string(offset));
            QByteArray data = Wrapper(offset) + image;
            qint64 found = -1;
            EXPECT_EQ(GetImageFormat(data, found), c.Format);
            EXPECT_EQ(found, offset);
            // The grid looks at no more than 128 bytes.
            EXPECT_EQ(GetImageFormat(data.left(128)), c.Format);

            QBuffer stream(&data);
            ASSERT_TRUE(stream.open(QIODevice::ReadOnly));
            stream.seek(5);
            found = -1;
            EXPECT_EQ(GetImageFormat(stream, found), c.Format);
            EXPECT_EQ(found, offset);
            EXPECT_EQ(stream.pos(), 5);
            EXPECT_TRUE(IsSupportedImage(stream));
            EXPECT_EQ(stream.pos(), 5);
        }
        EXPECT_EQ(GetImageFormat(QStringLiteral(BRINDLE_TEST_DATA "/images/") + QLatin1String(c.File)),
                  c.Format);
    }
}

TEST(ImageToolsTest, ShortOrDamagedHeadersAreUnknown) {
    const QByteArray png = Fixture("tiny.png");
    const QByteArray bmp = Fixture("tiny.bmp");
    QByteArray bmpV5 = bmp;
    bmpV5[14] = char(124);
    QByteArray badPng = png;
    badPng[3] = 'g';
    const struct {
        const char* Name;
        QByteArray Data;
    } cases[] = {
        {"empty", QByteArray()},
        {"PNG signature cut by a byte", png.left(7)},
        {"PNG signature with a wrong byte", badPng},
        {"JPEG start without its marker", QByteArray("\xFF\xD8\x00", 3)},
        {"GIF of an unknown version", QByteArray("GIF88a....")},
        {"BMP cut inside its DIB header size", bmp.left(17)},
        {"BMP with a version 5 header", bmpV5},
        {"ICO cut before its count", QByteArray("\0\0\1\0\1", 5)},
        {"ICO of no image", QByteArray("\0\0\1\0\0\0", 6)},
        {"ICO of 256 images", QByteArray("\0\0\1\0\0\1", 6)},
        {"PNG past offset 78", Wrapper(79) + png},
        {"PNG at an offset not tried", Wrapper(4) + png},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Name);
        qint64 offset = -1;
        EXPECT_EQ(GetImageFormat(c.Data, offset), ifUnknown);
        EXPECT_EQ(offset, 0);
        EXPECT_FALSE(IsSupportedImage(c.Data));
    }
    // Big-endian TIFF; and the earlier offset wins over a later one.
    EXPECT_EQ(GetImageFormat(QByteArray("MM\0*", 4)), ifTIFF);
    EXPECT_EQ(GetImageFormat(QByteArray("\0\0\1\0\1\0\0\0", 8) + png), ifICO);
}

TEST(ImageToolsTest, DevicesThatCannotBeReadAndMissingFilesAreUnknown) {
    QByteArray data = Fixture("tiny.png");
    QBuffer closed(&data);
    EXPECT_EQ(GetImageFormat(closed), ifUnknown);
    TempDir dir;
    EXPECT_EQ(GetImageFormat(dir.file(QStringLiteral("missing.png"))), ifUnknown);
}

TEST(ImageToolsTest, OnlyPrintableAsciiWithLineBreaksAndTabsCountsAsText) {
    EXPECT_TRUE(HasASCIIData(QByteArray(300, 'a')));
    EXPECT_TRUE(HasASCIIData("line one\r\n\tline two\n~ !"));
    EXPECT_FALSE(HasASCIIData(QByteArray()));
    EXPECT_FALSE(HasASCIIData(QByteArray("text\0more", 9)));
    EXPECT_FALSE(HasASCIIData("caf\xC3\xA9"));
    EXPECT_FALSE(HasASCIIData("bell\a"));
    EXPECT_FALSE(HasASCIIData("del\x7F"));
    EXPECT_FALSE(HasASCIIData(Fixture("tiny.png")));
}
