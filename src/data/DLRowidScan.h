// The rows of a table in rowid order, counted on a background connection:
// the count and the rowid of every TRowidMarks::Step-th row. A dataset that
// takes them knows its end and reaches any place of its result from the
// nearest mark, without stepping there first.
#pragma once

#include "engine/DLQueryQueue.h"

#include <vector>

namespace brindle {

class TRowidScanTask : public TBaseQueryTask {
public:
    using TBaseQueryTask::TBaseQueryTask;

    // Steps the statement (one rowid column, rowid order) on the queue's
    // connection. A busy file, an interrupt or any failure leaves Count -1.
    void Execute() override;

    std::vector<qint64> FMarks;
    qint64 FCount = -1;
};

}  // namespace brindle
