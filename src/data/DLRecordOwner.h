// What the record containers need of the dataset that owns them. The
// dataset classes implement it; a container keeps a plain pointer, the
// dataset outlives its container.
#pragma once

#include <QStringList>

namespace brindle {

class TDLRecData;
class TField;
class TFields;

class TRecordOwner {
public:
    virtual ~TRecordOwner() = default;

    // The fields; a field's Index is its slot in every record.
    virtual const TFields& GetFields() const = 0;
    // The names of the fields that identify a row (empty when none): the
    // key bytes of an editable bookmark are made of their values.
    virtual QStringList GetKeyFieldNames() const = 0;
    // The dataset's count: exact once the end of the result was seen, an
    // estimate ahead of the cursor before that.
    virtual int GetRecordCount() = 0;
    // True when rows come from a statement that LoadRecords pages through.
    virtual bool IsSQLDataSet() const = 0;
    // Clears the container and appends the rows Offset .. Offset+Limit-1 of
    // the result (fewer at its end) through TDLDataSetData::Append.
    virtual void LoadRecords(int Offset, int Limit) = 0;
    // The highest row number seen so far, counted from 1.
    virtual int GetLastRecNo() const = 0;
    virtual void SetLastRecNo(int Value) = 0;
    // How many record buffers the host keeps for its views (a grid's rows).
    virtual int GetBufferCount() const = 0;
    // Whether a value of Field left out of a row (not loaded, or given up
    // to bound memory) can be read again; and reading it into the row.
    virtual bool CanLoadField(const TField& Field) const {
        (void)Field;
        return false;
    }
    virtual void LoadField(const TDLRecData& Rec, const TField& Field) {
        (void)Rec;
        (void)Field;
    }
};

}  // namespace brindle
