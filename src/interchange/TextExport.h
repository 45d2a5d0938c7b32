// A dataset, or chosen records of it, written to a stream as delimited
// text. TDataSetExporter walks the records; TTextExporter adds encoding and
// delimiter; TCSVExporter writes what TCSVParser reads back (NULL and the
// empty string kept apart), TTSVExporter a lossy form for other programs.
//
// Ownership: the dataset, the error log and the stream stay the caller's.
// Threading: the caller's thread; only Cancel may be called from anywhere.
#pragma once

#include "engine/Encoding.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

class QIODevice;

namespace brindle {

class TCSVWriter;
class TDataSet;
class TDLDataSet;
class TDLRecData;
class TField;

class TDataSetExporter {
public:
    using TProgressEvent = std::function<void(int Count)>;

    explicit TDataSetExporter(TDataSet* DataSet = nullptr);
    virtual ~TDataSetExporter();
    TDataSetExporter(const TDataSetExporter&) = delete;
    TDataSetExporter& operator=(const TDataSetExporter&) = delete;

    // Writes the file whole or not at all: an old file of that name is
    // replaced only once the export is complete, and stays as it was after
    // a failure or a stop.
    void Export(const QString& FileName);
    // Exactly the bytes written; empty when nothing was.
    void Export(QByteArray& Bytes);
    // Does nothing without a dataset. The dataset stays where the export
    // left it.
    void Export(QIODevice& Stream);

    TDataSet* FDataSet;
    QStringList* FErrorLog = nullptr;  // notes at the end of an export
    bool FIncludeBlobs = true;
    // Only these records, by record number from 1, in this order.
    std::vector<int> FRecordNumbers;
    // Only these records, unless FRecordNumbers is set.
    std::vector<QByteArray> FBookmarks;
    TProgressEvent FOnProgress;  // every 67 records and at the end

    // The fields to write, in order; nil or empty: every visible data field.
    void SetFieldNames(const QStringList* Names);
    const QStringList& FieldNames() const { return FFieldNames; }

    // Ends the export at the next record. The flag stays set.
    void Cancel() { FCanceled.store(true, std::memory_order_relaxed); }
    bool Canceled() const { return FCanceled.load(std::memory_order_relaxed); }
    // Records written by the last export.
    int RecordCount() const { return FRecNo; }

protected:
    virtual void InitializeExport(QIODevice& Stream);
    virtual void ExportHeader(QIODevice& Stream);
    virtual void ExportRecord(QIODevice& Stream, int RecNo);
    virtual void FinalizeExport(QIODevice& Stream);

    QStringList FFieldNames;
    // The record to write: the cursor's, or the row read in place.
    const TDLRecData* FRecord = nullptr;

private:
    void InitFieldList();
    void DataSetFirst();
    void DataSetNext();
    bool DataSetEof() const;
    void DoOnProgress();

    size_t FCurrent = 0;
    int FRecNo = 0;
    // A whole dataset of rows in memory or in a window over a statement is
    // read in place, without moving the cursor row by row.
    TDLDataSet* FInPlace = nullptr;
    std::atomic<bool> FCanceled{false};
};

class TTextExporter : public TDataSetExporter {
public:
    explicit TTextExporter(TDataSet* DataSet = nullptr);
    ~TTextExporter() override;

    bool FWriteEncodingPreamble = false;
    char16_t FDelimiter = u',';
    TEncoding FEncoding = TEncoding::UTF8();

protected:
    void InitializeExport(QIODevice& Stream) override;
    void FinalizeExport(QIODevice& Stream) override;
    void WritePreamble();
    void WriteString(QStringView Value);
    // The fields of FFieldNames, found once per export.
    std::vector<const TField*> FFields;
    std::unique_ptr<TCSVWriter> FWriter;
};

class TCSVExporter : public TTextExporter {
public:
    using TTextExporter::TTextExporter;

protected:
    void ExportHeader(QIODevice& Stream) override;
    void ExportRecord(QIODevice& Stream, int RecNo) override;
};

// Tab always; no quoting, so a value with a tab or line break becomes
// "[INVALID_DATA]" and a BLOB "[BLOB_DATA]", both noted in the error log.
class TTSVExporter : public TTextExporter {
public:
    using TTextExporter::TTextExporter;

protected:
    void ExportHeader(QIODevice& Stream) override;
    void ExportRecord(QIODevice& Stream, int RecNo) override;
    void FinalizeExport(QIODevice& Stream) override;

private:
    void WriteValue(const QString& Value);
    bool FHasTabsOrCRLF = false;
    bool FHasBlobs = false;
};

}  // namespace brindle
