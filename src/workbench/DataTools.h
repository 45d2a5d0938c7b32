// Commands over the selected rows of a grid's dataset: every one runs under
// a savepoint of its own, so that a row the engine refuses leaves all the
// rows as they were.
#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <functional>
#include <utility>
#include <vector>

namespace brindle {

class TDLSQLDataSet;

// Rows of a result by place (from 0), as inclusive ranges.
using TRowRangeList = std::vector<std::pair<int, int>>;

// Sets the named fields of the rows to Value (invalid: NULL) under
// "savepoint brindle_set_cells". A refused row cancels its edit and undoes
// the rows before it; the message of the engine is raised again.
void SetSelectedCellsToValue(TDLSQLDataSet& DataSet, const TRowRangeList& Rows, const QStringList& FieldNames,
                             const QVariant& Value);
// Deletes the rows under "savepoint brindle_delete_rows", the last first so
// that places before it stay put; all or none.
void DeleteSelection(TDLSQLDataSet& DataSet, const TRowRangeList& Rows);

// Results as text: the rows in columns padded to their widest value under
// a header. A first pass measures, a second writes; Status hears "Scanning
// %d records...", "Generating %d records..." and "Generated %d records...".
// Beyond LimitBytes the text ends with the note of the limit.
QString DataSetToStrings(TDLSQLDataSet& DataSet, qint64 LimitBytes,
                         const std::function<void(const QString&)>& Status = {});

}  // namespace brindle
