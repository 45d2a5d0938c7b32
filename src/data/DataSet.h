// The cursor framework the datasets stand on: fields, a state machine, a
// ring of record buffers, bookmarks, filtering and events.
#pragma once

#include "DLFields.h"
#include "DLRecordOwner.h"

#include <QVariant>

namespace brindle {

class TDataSet : public TRecordOwner {
public:
    ~TDataSet() override = default;

    // The value of a field in the active record; invalid for null.
    virtual QVariant GetFieldValue(const TField& Field) const = 0;
    virtual void SetFieldValue(const TField& Field, const QVariant& Value) = 0;
    // The value before editing began.
    virtual QVariant GetOldFieldValue(const TField& Field) const = 0;
};

}  // namespace brindle
