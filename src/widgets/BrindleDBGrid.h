// The one grid of the program: the Data tab, the SQL results and the rows
// of a dataset anywhere else. Over a TDataSetModel it shows a window of the
// rows in view only, so that nothing in it grows with the result: its own
// scroll bar spans the rows, its view holds a page. The selection, the
// current cell and the sort are kept by absolute row number.
#pragma once

#include <QHash>
#include <QStringList>
#include <QWidget>
#include <functional>
#include <utility>
#include <vector>

class QScrollBar;
class QTableView;
class QLineEdit;

namespace brindle {

class TDataSetModel;
class TDLSQLDataSet;
class TField;
class TGridView;

// Rows as sorted, disjoint, inclusive ranges: a selection of ten million
// rows is one pair.
class TRowRanges {
public:
    using TRange = std::pair<int, int>;
    void Clear() { FRanges.clear(); }
    bool Empty() const { return FRanges.empty(); }
    void Add(int First, int Last);
    void Remove(int First, int Last);
    void Toggle(int Row);
    bool Contains(int Row) const;
    qint64 Count() const;
    const std::vector<TRange>& Ranges() const { return FRanges; }

private:
    std::vector<TRange> FRanges;
};

// A sorted column of the grid, in the order the sort applies them.
struct TGridSortColumn {
    QString FieldName;
    bool Descending = false;
};

// "order by [a], [b] DESC": brackets whatever the quote setting, so that
// any name stands as one.
QString GetOrderClause(const std::vector<TGridSortColumn>& Columns);
// A hint's text: every space after column 80 of its line breaks the line.
QString FixHintText(const QString& Text);
// The filter row's text of one column as a condition of the dataset's
// filter; empty for an empty cell. "null", "not null", a leading
// comparison ("=", "<>", "<", ">", "<=", ">="), a pattern with % or _, and
// otherwise "begins with" for text and "equals" for numbers.
QString FilterRowCondition(const QString& FieldName, const QString& Text, bool Numeric);

class TBrindleDBGrid : public QWidget {
    Q_OBJECT

public:
    explicit TBrindleDBGrid(QWidget* Parent = nullptr);
    ~TBrindleDBGrid() override;

    // Not owned; it must outlive the grid or be replaced first.
    void SetModel(TDataSetModel* Model);
    TDataSetModel* Model() const { return FModel; }
    TDLSQLDataSet* DataSet() const;
    // The view of the rows in the window (for tests and focus).
    QTableView* View() const;
    QScrollBar* VerticalBar() const { return FVBar; }

    // --- position ----------------------------------------------------------
    // Rows known so far (all of them once the count is exact).
    int RowCount() const;
    int TopRow() const { return FTop; }
    // Rows the view shows at once.
    int VisibleRowCount() const;
    int CurrentRow() const { return FCurRow; }
    int CurrentColumn() const { return FCurCol; }
    void SetCurrentCell(int Row, int Column);
    // Scrolls so that the row is in view.
    void MakeVisible(int Row);
    void GoToFirst();
    // Reads the result to its end and goes to its last row.
    void GoToLast();
    // The text a cell shows, by absolute row and visible column.
    QString CellText(int Row, int Column) const;

    // --- selection ---------------------------------------------------------
    bool CellSelect() const { return FCellSelect; }
    void SetCellSelect(bool Value);
    void ClearSelection();
    void SelectAll();
    // Rows From..To (inclusive) and, in cell mode, columns ColFrom..ColTo.
    void SelectCells(int From, int To, int ColFrom, int ColTo);
    const TRowRanges& SelectedRows() const { return FSelRows; }
    // The selected rows, or the current one when none is selected.
    TRowRanges EffectiveSelectedRows() const;
    qint64 GetSelectedCount() const;
    // In cell mode the fields of the selected columns; in row mode all.
    QStringList GetSelectedFieldNames() const;
    bool AreAllRecordsSelected() const;

    // --- sorting -----------------------------------------------------------
    const std::vector<TGridSortColumn>& SortColumns() const { return FSort; }
    // A click on a header: the column alone, or added (Shift); a second
    // click turns the direction.
    void ClickHeader(int Column, bool Add);
    void ClearSorting();
    QString GetOrderClause() const { return brindle::GetOrderClause(FSort); }

    // --- filter row --------------------------------------------------------
    bool FilterRowVisible() const { return FFilterRowVisible; }
    void SetFilterRowVisible(bool Value);
    QLineEdit* FilterEditor(int Column) const;
    // The filter row's cells as one filter text.
    QString FilterRowText() const;
    // Hands the filter row's text to the dataset (Enter in a filter cell).
    void ApplyFilterRow();
    void ClearFilterRow();

    // --- columns -----------------------------------------------------------
    bool FAdjustColumnByText = true;
    // No rebuild of columns while set: a soft refresh keeps them.
    bool FLockedColumns = false;
    bool FShowImages = true;
    bool FShowCellHints = true;
    bool CellAutoHeight() const { return FCellAutoHeight; }
    void SetCellAutoHeight(bool Value);
    // Widths from the header and the first rows, or the stored ones.
    void AdjustColumns();
    // Widens a column to fit a text; widths only grow.
    void UpdateColumnWidth(int Column, const QString& Text);
    int ColumnWidth(int Column) const;
    // The width a header caption needs; a column is never made narrower.
    void FixColumnWidths();

    // The dataset cursor is put on the current row (for editors, commands).
    bool SyncDataSet();

signals:
    // The engine's or the filter's message, for the window to show.
    void Error(const QString& Message);
    void CurrentChanged(int Row, int Column);
    void SelectionChanged();
    void SortChanged();
    // A double click on a data cell.
    void CellActivated(int Row, int Column);

protected:
    bool eventFilter(QObject* Watched, QEvent* Event) override;

private:
    friend class TGridView;
    friend class TGridDelegate;
    class TWindowModel;

    void SetTop(int Top);
    void UpdateScrollRange();
    void UpdateWindow();
    void SyncViewCurrent();
    void MoveTo(int Row, int Column, Qt::KeyboardModifiers Modifiers);
    bool IsSelected(int Row, int Column) const;
    void ModelReset();
    void RebuildFilterRow();
    void PlaceFilterRow();
    void SortGrid();
    bool ShowHint(const QPoint& Pos);
    const TField* FieldOf(int Column) const;
    void FetchTo(int Row);
    void RowsGrew();

    TDataSetModel* FModel = nullptr;  // not owned
    TWindowModel* FWindow = nullptr;  // child
    TGridView* FView = nullptr;       // child
    QScrollBar* FVBar = nullptr;      // child
    QWidget* FFilterRow = nullptr;    // child
    std::vector<QLineEdit*> FFilterEdits;  // children of FFilterRow
    QHash<QString, QString> FFilterTexts;  // by field name, across rebuilds
    int FTop = 0;
    int FCurRow = -1, FCurCol = 0;
    int FAnchorRow = -1, FAnchorCol = 0;
    TRowRanges FSelRows;
    int FSelColFirst = -1, FSelColLast = -1;  // cell mode
    bool FCellSelect = false;
    bool FCellAutoHeight = false;
    bool FFilterRowVisible = false;
    bool FSyncing = false;
    std::vector<TGridSortColumn> FSort;
    // Widths by field name; the list they belong to.
    QStringList FWidthFields;
    std::vector<int> FWidths;
    bool FWidthsPending = false;
};

}  // namespace brindle
