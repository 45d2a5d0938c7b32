// A BLOB or memo value of the current row as a stream: read it, or write it
// while the dataset edits the row. What was written goes into the row when
// the stream is destroyed.
#pragma once

#include <QByteArray>
#include <QIODevice>

namespace brindle {

class TDataSet;
class TDLRecData;
class TField;

enum TBlobStreamMode { bmRead, bmWrite, bmReadWrite };

class TDLBlobStream : public QIODevice {
public:
    // Writing modes raise "Field is ReadOnly <name>" for a read-only field
    // and "Not editing " outside edit and insert. Without a current row the
    // stream is empty. The dataset and field must outlive the stream.
    TDLBlobStream(TDataSet& DataSet, const TField& Field, TBlobStreamMode Mode);
    ~TDLBlobStream() override;

    bool isSequential() const override { return false; }
    qint64 size() const override { return FBytes.size(); }
    bool seek(qint64 Pos) override;
    // Cuts the value at the current position.
    void Truncate();
    bool Modified() const { return FModified; }

protected:
    qint64 readData(char* Data, qint64 MaxSize) override;
    qint64 writeData(const char* Data, qint64 MaxSize) override;

private:
    TDataSet& FDataSet;
    const TField& FField;
    TDLRecData* FBuffer;  // the current row; not owned, null when none
    QByteArray FBytes;
    bool FModified = false;
};

// A text or BLOB field's value read as UTF-16: size / 2 characters.
QString BlobAsWideString(const QByteArray& Bytes);

}  // namespace brindle
