// Values as CSV text: the one writer of delimited values in the program,
// under the CSV exporter and brindle-cli's rows alike, so that what it
// writes the CSV parser reads back. Text is gathered as UTF-16 and encoded
// a block at a time.
//
// The rules: NULL is nothing between the delimiters; text is quoted (inner
// quotes doubled) when it is empty, holds the delimiter, a quote, a line
// break or a character of code 0, has blanks at either end, or looks like a
// binary literal (x'..'), which an unquoted field would be read as.
// Integers in full, REALs in the shortest form that reads back to the same
// double and always with a point or exponent, BLOBs in hex.
//
// Ownership: the device stays the caller's. One thread at a time.
#pragma once

#include "engine/Encoding.h"

#include <QByteArray>
#include <QString>
#include <QStringEncoder>
#include <QStringView>

class QIODevice;

namespace brindle {

class TDLSQLiteRecData;

// A REAL as text: shortest round trip, "1.0" rather than "1", "9.0e+999"
// for infinity as the engine itself writes it.
QString FloatToText(double Value);
// Whether the CSV form of Text needs quotes with this delimiter.
bool NeedsQuotes(QStringView Text, char16_t Delimiter);

class TCSVWriter {
public:
    enum TBlobStyle { bsLiteral, bsHex };  // x'00FF' or 00ff

    // Throws ECustomException at Flush for a character Encoding cannot hold.
    TCSVWriter(QIODevice& Device, const TEncoding& Encoding, char16_t Delimiter = u',',
               QStringView LineBreak = u"\r\n", TBlobStyle BlobStyle = bsLiteral);
    ~TCSVWriter();
    TCSVWriter(const TCSVWriter&) = delete;
    TCSVWriter& operator=(const TCSVWriter&) = delete;

    void WritePreamble();
    // The delimiter before every value of a line but the first.
    void Separator() { Put(FDelimiter); }
    void Text(QStringView Value);
    void Integer(qint64 Value);
    void Float(double Value);
    void Bytes(const QByteArray& Value);
    // A value as it is kept in a SQLite row, by its storage class.
    void StoredValue(const TDLSQLiteRecData& Rec, int Index);
    // Characters as they stand, no quoting.
    void Raw(QStringView Value) { FText.append(Value); }
    void EndLine();
    // Encodes and writes what was gathered; throws when the device fails.
    void Flush();

private:
    void Put(char16_t C) { FText.append(QChar(C)); }

    QIODevice& FDevice;
    TEncoding FEncoding;
    bool FUtf8;
    QStringEncoder FUtf8Encoder{QStringEncoder::Utf8, QStringConverter::Flag::Stateless};
    char16_t FDelimiter;
    QString FLineBreak;
    TBlobStyle FBlobStyle;
    QString FText;
    QByteArray FBytes;
};

}  // namespace brindle
