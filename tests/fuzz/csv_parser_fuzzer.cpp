// Any bytes through the CSV and TSV dialects in three encodings, and the
// delimiter guess. A row may fail with the parser's own errors and a block
// with the decoder's; nothing else may happen. Every CSV row that reads is
// written by the CSV writer and must read back the same, Null and empty
// text apart.
#include "interchange/CSVWriter.h"
#include "interchange/TextParser.h"

#include <QBuffer>
#include <cstdint>

using namespace brindle;

namespace {

void Check(bool condition) {
    if (!condition) __builtin_trap();
}

void RoundTrip(const TTextRow& Row) {
    QByteArray bytes;
    {
        QBuffer out(&bytes);
        out.open(QIODevice::WriteOnly);
        TCSVWriter writer(out, TEncoding::UTF8());
        for (int i = 0; i < Row.Count(); ++i) {
            if (i > 0) writer.Separator();
            if (!Row.IsNull(i)) writer.Text(Row.Value(i));
        }
        writer.EndLine();
        writer.Flush();
    }
    QBuffer in(&bytes);
    in.open(QIODevice::ReadOnly);
    const auto parser = CreateTextParser(in, TEncoding::UTF8(), u',');
    TTextRow again;
    parser->ReadRow(again);
    Check(again.Count() == Row.Count());
    for (int i = 0; i < Row.Count(); ++i) {
        Check(again.IsNull(i) == Row.IsNull(i));
        Check(again.Value(i) == Row.Value(i));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    for (const TEncoding& encoding : {TEncoding::UTF8(), TEncoding::Unicode(), TEncoding::GetEncoding(932)}) {
        for (const char16_t delimiter : {u',', u'\t', u';'}) {
            QBuffer buffer;
            buffer.setData(bytes);
            buffer.open(QIODevice::ReadOnly);
            try {
                const auto parser = CreateTextParser(buffer, encoding, delimiter);
                TTextRow row;
                while (!parser->Eof()) {
                    try {
                        if (parser->ReadRow(row) && delimiter == u',') RoundTrip(row);
                    } catch (const ECSVParserError&) {
                    }
                }
            } catch (const ETextDecodeError&) {
            }
        }
        QBuffer buffer;
        buffer.setData(bytes);
        buffer.open(QIODevice::ReadOnly);
        FindDelimiter(buffer, encoding);
    }
    return 0;
}
