#include "DLBlobs.h"

#include "DLRecData.h"
#include "DataSet.h"
#include "engine/Exceptions.h"

#include <cstring>

namespace brindle {

TDLBlobStream::TDLBlobStream(TDataSet& DataSet, const TField& Field, TBlobStreamMode Mode)
    : FDataSet(DataSet), FField(Field), FBuffer(DataSet.ActiveRecData()) {
    if (Mode != bmRead) {
        if (Field.FReadOnly) throw ECustomException(QStringLiteral("Field is ReadOnly ") + Field.FieldName());
        if (DataSet.State() != dsEdit && DataSet.State() != dsInsert)
            throw ECustomException(QStringLiteral("Not editing "));
    }
    const OpenMode open = Mode == bmRead ? ReadOnly : Mode == bmWrite ? WriteOnly : ReadWrite;
    QIODevice::open(open | Unbuffered);
    if (!FBuffer) return;
    if (Mode == bmWrite) {
        // Written from nothing: the value is empty, not null.
        FBuffer->SetHasData(Field.Index(), true);
        FModified = true;
    } else if (FBuffer->GetHasData(Field.Index())) {
        FBytes = FBuffer->GetBlobData(Field);
    }
}

TDLBlobStream::~TDLBlobStream() {
    if (!FModified || !FBuffer) return;
    const int index = FField.Index();
    FBuffer->SetModified(index, true);
    FBuffer->SetBlobData(FField, FBytes);
    FBuffer->SetHasData(index, true);
    FBuffer->SetFullData(index, true);
    FDataSet.NotifyFieldChange();
}

bool TDLBlobStream::seek(qint64 Pos) {
    if (Pos < 0) return false;
    return QIODevice::seek(Pos);
}

void TDLBlobStream::Truncate() {
    FBytes.truncate(pos());
    FModified = true;
}

qint64 TDLBlobStream::readData(char* Data, qint64 MaxSize) {
    const qint64 n = std::min(MaxSize, static_cast<qint64>(FBytes.size()) - pos());
    if (n <= 0) return 0;
    std::memcpy(Data, FBytes.constData() + pos(), static_cast<size_t>(n));
    return n;
}

qint64 TDLBlobStream::writeData(const char* Data, qint64 MaxSize) {
    if (!FBuffer) return -1;
    const qint64 end = pos() + MaxSize;
    if (end > FBytes.size()) FBytes.resize(end);
    std::memcpy(FBytes.data() + pos(), Data, static_cast<size_t>(MaxSize));
    FModified = true;
    return MaxSize;
}

QString BlobAsWideString(const QByteArray& Bytes) {
    return QString(reinterpret_cast<const QChar*>(Bytes.constData()), Bytes.size() / 2);
}

}  // namespace brindle
