// Small helpers that the design pages share: the rows of a design grid
// carry their design RowID in the first cell's user data.
#pragma once

#include <QTableWidget>
#include <optional>
#include <vector>

namespace brindle {

// Sets a flag for its lifetime and puts the old value back.
class TFlagGuard {
public:
    explicit TFlagGuard(bool& Flag) : FFlag(Flag), FOld(Flag) { FFlag = true; }
    ~TFlagGuard() { FFlag = FOld; }
    TFlagGuard(const TFlagGuard&) = delete;
    TFlagGuard& operator=(const TFlagGuard&) = delete;

private:
    bool& FFlag;
    bool FOld;
};

// The design RowID shown in a grid row; 0 when the row has none.
inline qint64 RowIDAt(const QTableWidget* Grid, int Row) {
    const QTableWidgetItem* item = Grid->item(Row, 0);
    return item ? item->data(Qt::UserRole).toLongLong() : 0;
}

template <typename T>
const T* FindRow(const std::vector<T>& Rows, qint64 RowID) {
    for (const T& row : Rows)
        if (row.RowID == RowID) return &row;
    return nullptr;
}

template <typename T>
std::vector<T> RowsOf(const std::vector<T>& Rows, const QList<qint64>& RowIDs) {
    std::vector<T> result;
    for (const qint64 id : RowIDs)
        if (const T* row = FindRow(Rows, id)) result.push_back(*row);
    return result;
}

// The design row under the grid's current row, if there is one.
template <typename T>
std::optional<T> CurrentDesignRow(const QTableWidget* Grid, const std::vector<T>& Rows) {
    const int row = Grid->currentRow();
    if (row < 0) return std::nullopt;
    const T* found = FindRow(Rows, RowIDAt(Grid, row));
    return found ? std::optional<T>(*found) : std::nullopt;
}

}  // namespace brindle
