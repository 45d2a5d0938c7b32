// Rows as CSV in UTF-8 for brindle-cli: each value written from the bytes
// the row keeps in its storage class, through one buffer, with no string
// made per value. NULL is an empty field, empty text a quoted "".
#pragma once

#include <QByteArray>
#include <QStringConverter>
#include <QStringView>

class QTextStream;

namespace brindle {
class TDLSQLiteRecData;
}

namespace brindle::cli {

class TCsvOut {
public:
    // Writes to Out's device when it has one, else through Out itself.
    explicit TCsvOut(QTextStream& Out);
    ~TCsvOut();
    TCsvOut(const TCsvOut&) = delete;
    TCsvOut& operator=(const TCsvOut&) = delete;

    // A field of the line; the first of a line takes no separator.
    void Text(QStringView Value, bool First);
    void Value(const TDLSQLiteRecData& Rec, int Index, bool First);
    void EndLine();
    void Flush();

private:
    // Quoted when it holds a separator, a quote, a line break or blanks at
    // either end, and when it is empty text.
    void AppendText(QStringView Value, bool EmptyIsText);
    void AppendUtf8(QStringView Value);

    QTextStream& FOut;
    QByteArray FBuffer;
    QStringEncoder FEncoder{QStringEncoder::Utf8, QStringConverter::Flag::Stateless};
};

}  // namespace brindle::cli
