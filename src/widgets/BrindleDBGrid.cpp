#include "BrindleDBGrid.h"

#include "DataSetModel.h"
#include "data/DLSQLDataSet.h"
#include "engine/DLQuoteTools.h"
#include "engine/Exceptions.h"
#include "tools/ImageTools.h"

#include <QAbstractTableModel>
#include <QApplication>
#include <QCache>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QHelpEvent>
#include <QImage>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPainter>
#include <QScrollBar>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QTimer>
#include <QToolTip>
#include <QVBoxLayout>
#include <QWheelEvent>
#include <algorithm>
#include <memory>

namespace brindle {

// ---------------------------------------------------------------------------
// Free helpers

void TRowRanges::Add(int First, int Last) {
    if (First > Last) std::swap(First, Last);
    std::vector<TRange> out;
    out.reserve(FRanges.size() + 1);
    bool placed = false;
    for (const TRange& r : FRanges) {
        if (r.second + 1 < First) {
            out.push_back(r);
        } else if (Last + 1 < r.first) {
            if (!placed) out.emplace_back(First, Last);
            placed = true;
            out.push_back(r);
        } else {
            First = std::min(First, r.first);
            Last = std::max(Last, r.second);
        }
    }
    if (!placed) out.emplace_back(First, Last);
    FRanges = std::move(out);
}

void TRowRanges::Remove(int First, int Last) {
    if (First > Last) std::swap(First, Last);
    std::vector<TRange> out;
    for (const TRange& r : FRanges) {
        if (r.second < First || r.first > Last) {
            out.push_back(r);
            continue;
        }
        if (r.first < First) out.emplace_back(r.first, First - 1);
        if (r.second > Last) out.emplace_back(Last + 1, r.second);
    }
    FRanges = std::move(out);
}

void TRowRanges::Toggle(int Row) {
    if (Contains(Row))
        Remove(Row, Row);
    else
        Add(Row, Row);
}

bool TRowRanges::Contains(int Row) const {
    auto it = std::upper_bound(FRanges.begin(), FRanges.end(), Row,
                               [](int R, const TRange& Range) { return R < Range.first; });
    return it != FRanges.begin() && std::prev(it)->second >= Row;
}

qint64 TRowRanges::Count() const {
    qint64 n = 0;
    for (const TRange& r : FRanges) n += qint64(r.second) - r.first + 1;
    return n;
}

QString GetOrderClause(const std::vector<TGridSortColumn>& Columns) {
    if (Columns.empty()) return QString();
    QStringList parts;
    for (const TGridSortColumn& c : Columns) {
        QString name = c.FieldName;
        name.replace(u']', QStringLiteral("]]"));
        parts << u'[' + name + u']' + (c.Descending ? QStringLiteral(" DESC") : QString());
    }
    return QStringLiteral("order by ") + parts.join(QStringLiteral(", "));
}

QString FixHintText(const QString& Text) {
    QString out = Text;
    int column = 0;
    for (qsizetype i = 0; i < out.size(); ++i) {
        if (out[i] == u'\n') {
            column = 0;
            continue;
        }
        ++column;
        if (out[i] == u' ' && column > 80) {
            out[i] = u'\n';
            column = 0;
        }
    }
    return out;
}

namespace {

QString FilterName(const QString& FieldName) {
    QString name = FieldName;
    name.replace(u']', QStringLiteral("]]"));
    return u'[' + name + u']';
}

bool LooksNumeric(const QString& Text) {
    bool ok = false;
    Text.toDouble(&ok);
    return ok;
}

QString FilterLiteral(const QString& Text) {
    const QString t = Text.trimmed();
    if (t.compare(QLatin1String("null"), Qt::CaseInsensitive) == 0) return QStringLiteral("NULL");
    if (LooksNumeric(t)) return t;
    if (t.size() >= 2 && t.startsWith(u'\'') && t.endsWith(u'\'')) return t;  // quoted by the user
    return QuotedStr(t);
}

}  // namespace

QString FilterRowCondition(const QString& FieldName, const QString& Text, bool Numeric) {
    const QString t = Text.trimmed();
    if (t.isEmpty()) return QString();
    const QString name = FilterName(FieldName);
    if (t.compare(QLatin1String("null"), Qt::CaseInsensitive) == 0) return name + QStringLiteral(" IS NULL");
    if (t.compare(QLatin1String("not null"), Qt::CaseInsensitive) == 0)
        return name + QStringLiteral(" IS NOT NULL");
    static const char* const kOperators[] = {"<>", ">=", "<=", "=", ">", "<"};
    for (const char* op : kOperators) {
        const QLatin1String o(op);
        if (t.startsWith(o)) return name + u' ' + o + u' ' + FilterLiteral(t.mid(o.size()));
    }
    if (t.contains(u'%') || t.contains(u'_')) return name + QStringLiteral(" LIKE ") + QuotedStr(t);
    if (Numeric && LooksNumeric(t)) return name + QStringLiteral(" = ") + t;
    return name + QStringLiteral(" LIKE ") + QuotedStr(t + u'%');
}

// ---------------------------------------------------------------------------
// The window: rows Top .. Top+Capacity-1 of the source model

class TBrindleDBGrid::TWindowModel : public QAbstractTableModel {
public:
    explicit TWindowModel(TBrindleDBGrid& Grid) : QAbstractTableModel(&Grid), FGrid(Grid) {}

    int rowCount(const QModelIndex& Parent = QModelIndex()) const override {
        return Parent.isValid() ? 0 : FRows;
    }
    int columnCount(const QModelIndex& Parent = QModelIndex()) const override {
        return Parent.isValid() || !FGrid.FModel ? 0 : FGrid.FModel->columnCount();
    }
    QModelIndex Source(const QModelIndex& Index) const {
        return FGrid.FModel ? FGrid.FModel->index(FGrid.FTop + Index.row(), Index.column()) : QModelIndex();
    }
    QVariant data(const QModelIndex& Index, int Role) const override {
        if (!Index.isValid() || !FGrid.FModel) return QVariant();
        return FGrid.FModel->data(Source(Index), Role);
    }
    bool setData(const QModelIndex& Index, const QVariant& Value, int Role) override {
        return FGrid.FModel && FGrid.FModel->setData(Source(Index), Value, Role);
    }
    Qt::ItemFlags flags(const QModelIndex& Index) const override {
        return FGrid.FModel ? FGrid.FModel->flags(Source(Index)) : Qt::NoItemFlags;
    }
    QVariant headerData(int Section, Qt::Orientation Orientation, int Role) const override {
        if (!FGrid.FModel) return QVariant();
        if (Orientation == Qt::Vertical)
            return Role == Qt::DisplayRole ? QVariant(FGrid.FTop + Section + 1) : QVariant();
        return FGrid.FModel->headerData(Section, Orientation, Role);
    }
    // The rows the window holds now, without a reset so that the view
    // keeps its columns and widths.
    void SetRows(int Rows) {
        if (Rows > FRows) {
            beginInsertRows(QModelIndex(), FRows, Rows - 1);
            FRows = Rows;
            endInsertRows();
        } else if (Rows < FRows) {
            beginRemoveRows(QModelIndex(), Rows, FRows - 1);
            FRows = Rows;
            endRemoveRows();
        }
    }
    void Reset(int Rows) {
        beginResetModel();
        FRows = Rows;
        endResetModel();
    }
    void Moved() {
        if (FRows > 0) {
            emit dataChanged(index(0, 0), index(FRows - 1, std::max(0, columnCount() - 1)));
            emit headerDataChanged(Qt::Vertical, 0, FRows - 1);
        }
    }

private:
    TBrindleDBGrid& FGrid;
    int FRows = 0;
};

// ---------------------------------------------------------------------------
// The view: navigation and selection by absolute rows

class TGridView : public QTableView {
public:
    explicit TGridView(TBrindleDBGrid& Grid) : QTableView(&Grid), FGrid(Grid) {}
    bool Editing() const { return state() == QAbstractItemView::EditingState; }

protected:
    void keyPressEvent(QKeyEvent* Event) override {
        const int rows = FGrid.RowCount();
        const int cols = model() ? model()->columnCount() : 0;
        int row = FGrid.FCurRow, col = FGrid.FCurCol;
        const int page = std::max(1, FGrid.VisibleRowCount() - 1);
        const bool ctrl = Event->modifiers() & Qt::ControlModifier;
        if (state() == QAbstractItemView::EditingState) {
            QTableView::keyPressEvent(Event);
            return;
        }
        switch (Event->key()) {
            case Qt::Key_Up:
                row = std::max(0, row - 1);
                break;
            case Qt::Key_Down:
                row = row + 1;
                break;
            case Qt::Key_PageUp:
                row = std::max(0, row - page);
                break;
            case Qt::Key_PageDown:
                row = row + page;
                break;
            case Qt::Key_Left:
                col = std::max(0, col - 1);
                break;
            case Qt::Key_Right:
                col = std::min(cols - 1, col + 1);
                break;
            case Qt::Key_Home:
                if (ctrl) row = 0;
                col = 0;
                break;
            case Qt::Key_End:
                if (ctrl) {
                    FGrid.GoToLast();
                    return;
                }
                col = cols - 1;
                break;
            case Qt::Key_A:
                if (ctrl) {
                    FGrid.SelectAll();
                    return;
                }
                QTableView::keyPressEvent(Event);
                return;
            default:
                QTableView::keyPressEvent(Event);
                return;
        }
        if (row >= rows) {
            FGrid.FetchTo(row);
            row = std::min(row, FGrid.RowCount() - 1);
        }
        if (rows <= 0 || cols <= 0) return;
        FGrid.MoveTo(row, std::max(0, col), Event->modifiers());
    }
    void wheelEvent(QWheelEvent* Event) override {
        FWheel += Event->angleDelta().y();
        const int steps = FWheel / 120;
        FWheel -= steps * 120;
        if (steps) {
            FGrid.FetchTo(FGrid.FTop + FGrid.VisibleRowCount() - steps * 3);
            FGrid.SetTop(FGrid.FTop - steps * 3);
        }
        if (Event->angleDelta().x()) QTableView::wheelEvent(Event);
        Event->accept();
    }
    void mousePressEvent(QMouseEvent* Event) override {
        const QModelIndex index = indexAt(Event->position().toPoint());
        if (index.isValid() && Event->button() == Qt::LeftButton) {
            FDragging = true;
            FGrid.MoveTo(FGrid.FTop + index.row(), index.column(), Event->modifiers());
            return;
        }
        if (index.isValid() && Event->button() == Qt::RightButton &&
            !FGrid.IsSelected(FGrid.FTop + index.row(), index.column()))
            FGrid.MoveTo(FGrid.FTop + index.row(), index.column(), Qt::NoModifier);
        QTableView::mousePressEvent(Event);
    }
    void mouseMoveEvent(QMouseEvent* Event) override {
        if (!FDragging) return;
        const QModelIndex index = indexAt(Event->position().toPoint());
        if (index.isValid() && (FGrid.FTop + index.row() != FGrid.FCurRow || index.column() != FGrid.FCurCol))
            FGrid.MoveTo(FGrid.FTop + index.row(), index.column(), Qt::ShiftModifier);
    }
    void mouseReleaseEvent(QMouseEvent* Event) override {
        FDragging = false;
        QTableView::mouseReleaseEvent(Event);
    }
    void mouseDoubleClickEvent(QMouseEvent* Event) override {
        const QModelIndex index = indexAt(Event->position().toPoint());
        if (!index.isValid()) return;
        // Values a line editor cannot hold open their editor window.
        if (!(model()->flags(index) & Qt::ItemIsEditable)) {
            emit FGrid.CellActivated(FGrid.FTop + index.row(), index.column());
            return;
        }
        QTableView::mouseDoubleClickEvent(Event);
    }
    bool viewportEvent(QEvent* Event) override {
        if (Event->type() == QEvent::ToolTip) {
            if (!FGrid.ShowHint(static_cast<QHelpEvent*>(Event)->pos())) QToolTip::hideText();
            return true;
        }
        return QTableView::viewportEvent(Event);
    }

private:
    TBrindleDBGrid& FGrid;
    int FWheel = 0;
    bool FDragging = false;
};

// Paints the selection the grid keeps, and widens columns to what is drawn.
class TGridDelegate : public QStyledItemDelegate {
public:
    TGridDelegate(TBrindleDBGrid& Grid) : QStyledItemDelegate(&Grid), FGrid(Grid) {}

    void initStyleOption(QStyleOptionViewItem* Option, const QModelIndex& Index) const override {
        QStyledItemDelegate::initStyleOption(Option, Index);
        if (FGrid.IsSelected(FGrid.FTop + Index.row(), Index.column()))
            Option->state |= QStyle::State_Selected;
        else
            Option->state &= ~QStyle::State_Selected;
    }
    void paint(QPainter* Painter, const QStyleOptionViewItem& Option,
               const QModelIndex& Index) const override {
        if (FGrid.FShowImages && PaintImage(Painter, Option, Index)) return;
        QStyledItemDelegate::paint(Painter, Option, Index);
        if (FGrid.FAdjustColumnByText) {
            const QString text = Index.data(Qt::DisplayRole).toString();
            if (!text.isEmpty()) FGrid.UpdateColumnWidth(Index.column(), text);
        }
    }

private:
    // A BLOB whose first bytes name an image format shows the image, fit
    // into the cell; anything else, or bytes that do not decode, its label.
    bool PaintImage(QPainter* Painter, const QStyleOptionViewItem& Option, const QModelIndex& Index) const {
        const TField* field = FGrid.FieldOf(Index.column());
        if (!field || (field->DataType() != ftBlob && field->DataType() != ftGraphic)) return false;
        const QVariant value = Index.data(TDataSetModel::ValueRole);
        if (value.typeId() != QMetaType::QByteArray) return false;
        const QByteArray bytes = value.toByteArray();
        const QRect cell = Option.rect.adjusted(1, 1, -1, -1);
        const QImage* fit = Thumbnail(bytes, cell.size());
        if (!fit) return false;
        QStyleOptionViewItem option = Option;
        initStyleOption(&option, Index);
        option.text.clear();
        option.widget->style()->drawControl(QStyle::CE_ItemViewItem, &option, Painter, option.widget);
        Painter->drawImage(QPoint(cell.left(), cell.top() + (cell.height() - fit->height()) / 2), *fit);
        return true;
    }

    // The image fit into a cell, decoded once: a repaint on every scroll
    // step must not decode every image in view again. Bytes that do not
    // decode are remembered too, as a null image. The key holds the value's
    // buffer (shared with the dataset's row while that lives), its size and
    // its ends, so a buffer reused by another value is not mistaken for it.
    const QImage* Thumbnail(const QByteArray& Bytes, const QSize& Size) const {
        QByteArray key;
        const auto add = [&key](const auto& Part) {
            key.append(reinterpret_cast<const char*>(&Part), sizeof Part);
        };
        add(Bytes.constData());
        add(Bytes.size());
        add(Size.width());
        add(Size.height());
        key += Bytes.left(16) + Bytes.right(16);
        if (const QImage* cached = FThumbs.object(key)) return cached->isNull() ? nullptr : cached;
        auto image = std::make_unique<QImage>();
        qint64 offset = 0;
        if (GetImageFormat(Bytes.left(128), offset) != ifUnknown && image->loadFromData(Bytes.mid(offset)))
            *image = image->scaled(Size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        else
            *image = QImage();
        const qsizetype cost = std::max<qsizetype>(1, image->sizeInBytes() / 1024);
        // The cache owns it from here, and drops at once one too big for it.
        FThumbs.insert(key, image.release(), cost);
        const QImage* cached = FThumbs.object(key);
        return cached && !cached->isNull() ? cached : nullptr;
    }

    TBrindleDBGrid& FGrid;
    // Scaled images by key, at most about 32 MB of pixels.
    mutable QCache<QByteArray, QImage> FThumbs{32 * 1024};
};

// ---------------------------------------------------------------------------
// The grid

TBrindleDBGrid::TBrindleDBGrid(QWidget* Parent) : QWidget(Parent) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(0);
    FFilterRow = new QWidget(this);
    FFilterRow->setObjectName(QStringLiteral("FilterRow"));
    FFilterRow->setVisible(false);
    outer->addWidget(FFilterRow);
    auto* row = new QHBoxLayout;
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    FWindow = new TWindowModel(*this);
    FView = new TGridView(*this);
    FView->setObjectName(QStringLiteral("GridView"));
    FView->setModel(FWindow);
    FView->setItemDelegate(new TGridDelegate(*this));
    FView->setSelectionMode(QAbstractItemView::NoSelection);
    FView->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    FView->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                           QAbstractItemView::AnyKeyPressed);
    FView->verticalHeader()->setDefaultSectionSize(FView->fontMetrics().height() + 6);
    FView->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    FView->horizontalHeader()->setSectionsClickable(true);
    FView->horizontalHeader()->setSortIndicatorShown(false);
    FView->viewport()->installEventFilter(this);
    FVBar = new QScrollBar(Qt::Vertical, this);
    FVBar->setObjectName(QStringLiteral("GridScrollBar"));
    row->addWidget(FView, 1);
    row->addWidget(FVBar);
    outer->addLayout(row, 1);
    setFocusProxy(FView);

    connect(FVBar, &QScrollBar::valueChanged, this, [this](int Value) {
        if (!FSyncing) SetTop(Value);
    });
    connect(FVBar, &QScrollBar::sliderReleased, this, [this] { FetchTo(FTop + VisibleRowCount()); });
    connect(FView->horizontalHeader(), &QHeaderView::sectionClicked, this, [this](int Section) {
        ClickHeader(Section, QApplication::keyboardModifiers() & Qt::ShiftModifier);
    });
    connect(FView->horizontalHeader(), &QHeaderView::sectionResized, this, [this] { PlaceFilterRow(); });
    connect(FView->horizontalScrollBar(), &QScrollBar::valueChanged, this, [this] { PlaceFilterRow(); });
}

TBrindleDBGrid::~TBrindleDBGrid() = default;

QTableView* TBrindleDBGrid::View() const {
    return FView;
}

void TBrindleDBGrid::SetModel(TDataSetModel* Model) {
    if (FModel == Model) return;
    if (FModel) disconnect(FModel, nullptr, this, nullptr);
    FModel = Model;
    if (FModel) {
        connect(FModel, &QAbstractItemModel::modelReset, this, [this] { ModelReset(); });
        connect(FModel, &QAbstractItemModel::rowsInserted, this, [this] { RowsGrew(); });
        connect(FModel, &QAbstractItemModel::rowsRemoved, this, [this] { RowsGrew(); });
        connect(FModel, &QAbstractItemModel::dataChanged, this,
                [this](const QModelIndex& A, const QModelIndex& B) {
                    const int first = std::max(A.row() - FTop, 0),
                              last = std::min(B.row() - FTop, FWindow->rowCount() - 1);
                    if (first <= last)
                        emit FWindow->dataChanged(FWindow->index(first, A.column()),
                                                  FWindow->index(last, B.column()));
                });
    }
    ModelReset();
}

TDLSQLDataSet* TBrindleDBGrid::DataSet() const {
    return FModel ? FModel->DataSet() : nullptr;
}

const TField* TBrindleDBGrid::FieldOf(int Column) const {
    return FModel ? FModel->FieldAt(Column) : nullptr;
}

int TBrindleDBGrid::RowCount() const {
    return FModel ? FModel->rowCount() : 0;
}

int TBrindleDBGrid::VisibleRowCount() const {
    const int height = FView->verticalHeader()->defaultSectionSize();
    const int rows = height > 0 ? FView->viewport()->height() / height : 1;
    return std::max(1, rows);
}

void TBrindleDBGrid::ModelReset() {
    FTop = 0;
    FCurRow = RowCount() > 0 ? 0 : -1;
    FAnchorRow = FCurRow;
    FSelRows.Clear();
    FSelColFirst = FSelColLast = -1;
    if (!FLockedColumns) {
        FCurCol = 0;
        FAnchorCol = 0;
    }
    // The sort a reopened dataset has is the one the grid shows.
    if (!DataSet() || DataSet()->OrderClause().isEmpty()) FSort.clear();
    FWindow->Reset(std::min(RowCount(), VisibleRowCount() + 1));
    UpdateScrollRange();
    RebuildFilterRow();
    if (!FLockedColumns)
        AdjustColumns();
    else {
        // The same fields keep the widths they had.
        for (int c = 0; c < FWindow->columnCount() && c < static_cast<int>(FWidths.size()); ++c)
            FView->setColumnWidth(c, FWidths[static_cast<size_t>(c)]);
    }
    SyncViewCurrent();
    emit CurrentChanged(FCurRow, FCurCol);
    emit SelectionChanged();
}

void TBrindleDBGrid::RowsGrew() {
    UpdateWindow();
    UpdateScrollRange();
}

void TBrindleDBGrid::UpdateWindow() {
    const int capacity = VisibleRowCount() + 1;
    FTop = std::clamp(FTop, 0, std::max(0, RowCount() - VisibleRowCount()));
    FWindow->SetRows(std::clamp(RowCount() - FTop, 0, capacity));
}

void TBrindleDBGrid::UpdateScrollRange() {
    FSyncing = true;
    const int page = VisibleRowCount();
    FVBar->setRange(0, std::max(0, RowCount() - page));
    FVBar->setPageStep(page);
    FVBar->setSingleStep(1);
    FVBar->setValue(FTop);
    FSyncing = false;
    // Room for the widest row number in the header.
    const int digits = FView->fontMetrics().horizontalAdvance(QString::number(std::max(1, RowCount())));
    FView->verticalHeader()->setMinimumWidth(digits + 12);
}

void TBrindleDBGrid::FetchTo(int Row) {
    if (!FModel) return;
    while (Row >= FModel->rowCount() && FModel->canFetchMore(QModelIndex())) {
        const int before = FModel->rowCount();
        FModel->fetchMore(QModelIndex());
        if (FModel->rowCount() <= before) break;
    }
}

void TBrindleDBGrid::SetTop(int Top) {
    // An open cell editor belongs to the row under it: it is committed
    // before another row takes its place.
    if (FView->Editing()) FView->setCurrentIndex(QModelIndex());
    FetchTo(Top + VisibleRowCount());
    const int top = std::clamp(Top, 0, std::max(0, RowCount() - VisibleRowCount()));
    const bool moved = top != FTop;
    FTop = top;
    UpdateWindow();
    UpdateScrollRange();
    if (moved) {
        FWindow->Moved();
        if (FCellAutoHeight) FView->resizeRowsToContents();
    }
    SyncViewCurrent();
}

void TBrindleDBGrid::MakeVisible(int Row) {
    if (Row < FTop)
        SetTop(Row);
    else if (Row >= FTop + VisibleRowCount())
        SetTop(Row - VisibleRowCount() + 1);
}

void TBrindleDBGrid::SyncViewCurrent() {
    const bool was = FSyncing;
    FSyncing = true;
    if (FCurRow >= FTop && FCurRow < FTop + FWindow->rowCount() && FCurCol < FWindow->columnCount())
        FView->selectionModel()->setCurrentIndex(FWindow->index(FCurRow - FTop, FCurCol),
                                                 QItemSelectionModel::NoUpdate);
    else
        FView->selectionModel()->setCurrentIndex(QModelIndex(), QItemSelectionModel::NoUpdate);
    FSyncing = was;
    FView->viewport()->update();
}

void TBrindleDBGrid::SetCurrentCell(int Row, int Column) {
    FetchTo(Row);
    if (RowCount() <= 0) return;
    MoveTo(std::clamp(Row, 0, RowCount() - 1), std::clamp(Column, 0, std::max(0, FWindow->columnCount() - 1)),
           Qt::NoModifier);
}

void TBrindleDBGrid::MoveTo(int Row, int Column, Qt::KeyboardModifiers Modifiers) {
    if (RowCount() <= 0) return;
    Row = std::clamp(Row, 0, RowCount() - 1);
    const bool shift = Modifiers & Qt::ShiftModifier, ctrl = Modifiers & Qt::ControlModifier;
    if (shift && FAnchorRow >= 0) {
        FSelRows.Clear();
        FSelRows.Add(FAnchorRow, Row);
        FSelColFirst = std::min(FAnchorCol, Column);
        FSelColLast = std::max(FAnchorCol, Column);
    } else if (ctrl && !FCellSelect) {
        // Rows are picked one by one; the current row joins first.
        if (FSelRows.Empty() && FCurRow >= 0) FSelRows.Add(FCurRow, FCurRow);
        FSelRows.Toggle(Row);
        FAnchorRow = Row;
        FAnchorCol = Column;
    } else {
        FSelRows.Clear();
        FSelRows.Add(Row, Row);
        FSelColFirst = FSelColLast = Column;
        FAnchorRow = Row;
        FAnchorCol = Column;
    }
    FCurRow = Row;
    FCurCol = Column;
    MakeVisible(Row);
    FView->scrollTo(FWindow->index(std::max(0, Row - FTop), Column), QAbstractItemView::EnsureVisible);
    SyncViewCurrent();
    emit CurrentChanged(FCurRow, FCurCol);
    emit SelectionChanged();
}

bool TBrindleDBGrid::IsSelected(int Row, int Column) const {
    if (!FSelRows.Contains(Row)) return false;
    // One row under the cursor is the current row, not a selection.
    if (FSelRows.Count() == 1 && Row == FCurRow && (!FCellSelect || FSelColFirst == FSelColLast))
        return false;
    return !FCellSelect || (Column >= FSelColFirst && Column <= FSelColLast);
}

void TBrindleDBGrid::GoToFirst() {
    if (RowCount() > 0) MoveTo(0, FCurCol, Qt::NoModifier);
}

void TBrindleDBGrid::GoToLast() {
    if (!FModel) return;
    FModel->FetchAll();
    if (RowCount() > 0) MoveTo(RowCount() - 1, FCurCol, Qt::NoModifier);
}

QString TBrindleDBGrid::CellText(int Row, int Column) const {
    return FModel ? FModel->data(FModel->index(Row, Column), Qt::DisplayRole).toString() : QString();
}

void TBrindleDBGrid::SetCellSelect(bool Value) {
    FCellSelect = Value;
    FSelRows.Clear();
    if (FCurRow >= 0) FSelRows.Add(FCurRow, FCurRow);
    FSelColFirst = FSelColLast = FCurCol;
    FView->viewport()->update();
    emit SelectionChanged();
}

void TBrindleDBGrid::ClearSelection() {
    FSelRows.Clear();
    if (FCurRow >= 0) FSelRows.Add(FCurRow, FCurRow);
    FSelColFirst = FSelColLast = FCurCol;
    FView->viewport()->update();
    emit SelectionChanged();
}

void TBrindleDBGrid::SelectAll() {
    if (!FModel) return;
    FModel->FetchAll();
    if (RowCount() <= 0) return;
    FSelRows.Clear();
    FSelRows.Add(0, RowCount() - 1);
    FSelColFirst = 0;
    FSelColLast = FWindow->columnCount() - 1;
    UpdateWindow();
    UpdateScrollRange();
    FView->viewport()->update();
    emit SelectionChanged();
}

void TBrindleDBGrid::SelectCells(int From, int To, int ColFrom, int ColTo) {
    FetchTo(std::max(From, To));
    if (RowCount() <= 0) return;
    From = std::clamp(From, 0, RowCount() - 1);
    To = std::clamp(To, 0, RowCount() - 1);
    FCurRow = From;
    FCurCol = ColFrom;
    FAnchorRow = From;
    FAnchorCol = ColFrom;
    FSelRows.Clear();
    FSelRows.Add(From, To);
    FSelColFirst = std::min(ColFrom, ColTo);
    FSelColLast = std::max(ColFrom, ColTo);
    MakeVisible(From);
    SyncViewCurrent();
    emit SelectionChanged();
}

TRowRanges TBrindleDBGrid::EffectiveSelectedRows() const {
    if (!FSelRows.Empty()) return FSelRows;
    TRowRanges r;
    if (FCurRow >= 0) r.Add(FCurRow, FCurRow);
    return r;
}

qint64 TBrindleDBGrid::GetSelectedCount() const {
    return FSelRows.Count();
}

QStringList TBrindleDBGrid::GetSelectedFieldNames() const {
    QStringList names;
    if (!FModel) return names;
    const int first = FCellSelect ? std::max(0, FSelColFirst) : 0;
    const int last =
        FCellSelect ? std::min(FSelColLast, FModel->columnCount() - 1) : FModel->columnCount() - 1;
    for (int c = first; c <= last; ++c)
        if (const TField* f = FieldOf(c); f && f->FFieldKind == fkData) names << f->FieldName();
    return names;
}

bool TBrindleDBGrid::AreAllRecordsSelected() const {
    return FModel && FModel->CountIsExact() && RowCount() > 0 && FSelRows.Count() == RowCount();
}

// ---------------------------------------------------------------------------
// Sorting

void TBrindleDBGrid::ClickHeader(int Column, bool Add) {
    const TField* field = FieldOf(Column);
    if (!field || field->FFieldKind != fkData) return;
    auto it = std::find_if(FSort.begin(), FSort.end(),
                           [&](const TGridSortColumn& c) { return c.FieldName == field->FieldName(); });
    if (Add) {
        if (it != FSort.end())
            it->Descending = !it->Descending;
        else
            FSort.push_back({field->FieldName(), false});
    } else {
        const bool descending = it != FSort.end() && FSort.size() == 1 && !it->Descending;
        FSort = {{field->FieldName(), descending}};
    }
    SortGrid();
}

void TBrindleDBGrid::ClearSorting() {
    FSort.clear();
    SortGrid();
}

void TBrindleDBGrid::SortGrid() {
    TDLSQLDataSet* ds = DataSet();
    if (ds) {
        try {
            ds->SetOrderClause(GetOrderClause());
        } catch (const ECustomException& e) {
            // A column the statement cannot sort by: no sort at all.
            FSort.clear();
            try {
                ds->SetOrderClause(QString());
            } catch (const ECustomException&) {
            }
            emit Error(e.message());
        }
    }
    QHeaderView* header = FView->horizontalHeader();
    header->setSortIndicatorShown(!FSort.empty());
    if (!FSort.empty()) {
        for (int c = 0; c < FWindow->columnCount(); ++c)
            if (const TField* f = FieldOf(c); f && f->FieldName() == FSort.front().FieldName)
                header->setSortIndicator(c,
                                         FSort.front().Descending ? Qt::DescendingOrder : Qt::AscendingOrder);
    }
    ClearSelection();
    emit SortChanged();
}

// ---------------------------------------------------------------------------
// Filter row

void TBrindleDBGrid::SetFilterRowVisible(bool Value) {
    FFilterRowVisible = Value;
    FFilterRow->setVisible(Value);
    PlaceFilterRow();
}

QLineEdit* TBrindleDBGrid::FilterEditor(int Column) const {
    return Column >= 0 && Column < static_cast<int>(FFilterEdits.size())
               ? FFilterEdits[static_cast<size_t>(Column)]
               : nullptr;
}

void TBrindleDBGrid::RebuildFilterRow() {
    // Texts stay with their field across a refresh (FFilterTexts).
    for (QLineEdit* e : FFilterEdits) delete e;
    FFilterEdits.clear();
    const int columns = FModel ? FModel->columnCount() : 0;
    for (int c = 0; c < columns; ++c) {
        auto* edit = new QLineEdit(FFilterRow);
        const TField* field = FieldOf(c);
        const QString name = field ? field->FieldName() : QString();
        edit->setObjectName(QStringLiteral("Filter_") + name);
        edit->setProperty("field", name);
        edit->setFrame(false);
        edit->setPlaceholderText(QStringLiteral("\u2026"));
        // Filtering is offered on data fields only.
        edit->setEnabled(field && field->FFieldKind == fkData && !field->IsBlob());
        edit->setText(FFilterTexts.value(name));
        connect(edit, &QLineEdit::textChanged, this, [this, name](const QString& Text) {
            if (Text.isEmpty())
                FFilterTexts.remove(name);
            else
                FFilterTexts.insert(name, Text);
        });
        connect(edit, &QLineEdit::returnPressed, this, [this] { ApplyFilterRow(); });
        // The cell widens with what is typed.
        connect(edit, &QLineEdit::textEdited, this,
                [this, c](const QString& Text) { UpdateColumnWidth(c, Text + QStringLiteral("1H")); });
        FFilterEdits.push_back(edit);
    }
    FFilterRow->setFixedHeight(FView->verticalHeader()->defaultSectionSize() + 2);
    PlaceFilterRow();
}

void TBrindleDBGrid::PlaceFilterRow() {
    if (!FFilterRowVisible) return;
    QHeaderView* header = FView->horizontalHeader();
    const int left = FView->verticalHeader()->width() + FView->frameWidth();
    for (size_t c = 0; c < FFilterEdits.size(); ++c) {
        const int section = static_cast<int>(c);
        QLineEdit* edit = FFilterEdits[c];
        if (header->isSectionHidden(section)) {
            edit->hide();
            continue;
        }
        const int x = left + header->sectionViewportPosition(section);
        edit->setGeometry(x, 1, header->sectionSize(section) - 1, FFilterRow->height() - 2);
        edit->setVisible(x + edit->width() > left && x < FView->width());
    }
}

QString TBrindleDBGrid::FilterRowText() const {
    QStringList parts;
    for (size_t c = 0; c < FFilterEdits.size(); ++c) {
        const TField* field = FieldOf(static_cast<int>(c));
        if (!field) continue;
        const TFieldType t = field->DataType();
        const bool numeric = t == ftSmallint || t == ftInteger || t == ftWord || t == ftLargeint ||
                             t == ftAutoInc || t == ftFloat || t == ftCurrency || t == ftBCD || t == ftFMTBcd;
        const QString condition = FilterRowCondition(field->FieldName(), FFilterEdits[c]->text(), numeric);
        if (!condition.isEmpty()) parts << u'(' + condition + u')';
    }
    // Every operator of the filter grammar has the same rank: each
    // condition stands in parentheses.
    return parts.join(QStringLiteral(" AND "));
}

void TBrindleDBGrid::ApplyFilterRow() {
    TDLSQLDataSet* ds = DataSet();
    if (!ds) return;
    const QString text = FilterRowText();
    try {
        ds->SetFilterText(text);
        ds->SetFiltered(!text.isEmpty());
        if (!ds->Active()) ds->Open();
    } catch (const ECustomException& e) {
        // The rows come back unfiltered; the text stays to be mended.
        try {
            ds->SetFiltered(false);
            ds->SetFilterText(QString());
            if (!ds->Active()) ds->Open();
        } catch (const ECustomException&) {
        }
        emit Error(e.message());
    }
}

void TBrindleDBGrid::ClearFilterRow() {
    for (QLineEdit* e : FFilterEdits) e->clear();
    FFilterTexts.clear();
}

// ---------------------------------------------------------------------------
// Column widths

int TBrindleDBGrid::ColumnWidth(int Column) const {
    return FView->columnWidth(Column);
}

void TBrindleDBGrid::AdjustColumns() {
    const int columns = FWindow->columnCount();
    QStringList names;
    for (int c = 0; c < columns; ++c) names << (FieldOf(c) ? FieldOf(c)->FieldName() : QString());
    // Widths belong to a list of fields: another list starts afresh.
    if (names != FWidthFields) {
        FWidthFields = names;
        FWidths.assign(static_cast<size_t>(columns), 0);
    }
    const QFontMetrics fm(FView->horizontalHeader()->font());
    for (int c = 0; c < columns; ++c) {
        int& w = FWidths[static_cast<size_t>(c)];
        if (w > 0) continue;
        const QString caption = FModel->headerData(c, Qt::Horizontal, Qt::DisplayRole).toString();
        w = FAdjustColumnByText ? std::clamp(fm.horizontalAdvance(caption) + 8, 50, 150) : 100;
    }
    for (int c = 0; c < columns; ++c) FView->setColumnWidth(c, FWidths[static_cast<size_t>(c)]);
    if (FAdjustColumnByText && FModel && DataSet() && DataSet()->Active()) {
        // The first rows only: a table of any size costs the same.
        const int rows = std::min(50, RowCount());
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < columns; ++c)
                UpdateColumnWidth(c, FModel->data(FModel->index(r, c), Qt::DisplayRole).toString());
    }
    FixColumnWidths();
    PlaceFilterRow();
}

void TBrindleDBGrid::UpdateColumnWidth(int Column, const QString& Text) {
    const TField* field = FieldOf(Column);
    if (!field || field->IsBlob() || field->DataType() == ftBoolean) return;
    if (Column >= static_cast<int>(FWidths.size())) return;
    QString line = Text.section(u'\n', 0, 0);
    if (field->DataType() == ftCurrency) line.prepend(u'$');
    int width = std::clamp(FView->fontMetrics().horizontalAdvance(line) + 8, 64, 400);
    const TFieldType t = field->DataType();
    if (t == ftDate || t == ftTime || t == ftDateTime)
        width += FView->style()->pixelMetric(QStyle::PM_ScrollBarExtent);
    int& stored = FWidths[static_cast<size_t>(Column)];
    if (width <= stored) return;
    stored = width;
    // Painting asks for this: the width is set once the paint is over.
    if (!FWidthsPending) {
        FWidthsPending = true;
        QTimer::singleShot(0, this, [this] {
            FWidthsPending = false;
            for (int c = 0; c < FWindow->columnCount() && c < static_cast<int>(FWidths.size()); ++c)
                if (FView->columnWidth(c) < FWidths[static_cast<size_t>(c)])
                    FView->setColumnWidth(c, FWidths[static_cast<size_t>(c)]);
        });
    }
}

void TBrindleDBGrid::FixColumnWidths() {
    const QFontMetrics fm(FView->horizontalHeader()->font());
    for (int c = 0; c < FWindow->columnCount(); ++c) {
        const int least =
            fm.horizontalAdvance(FModel->headerData(c, Qt::Horizontal, Qt::DisplayRole).toString()) + 8;
        if (FView->columnWidth(c) < least) FView->setColumnWidth(c, least);
    }
}

void TBrindleDBGrid::SetCellAutoHeight(bool Value) {
    FCellAutoHeight = Value;
    FView->setWordWrap(Value);
    if (Value)
        FView->resizeRowsToContents();
    else
        for (int r = 0; r < FWindow->rowCount(); ++r)
            FView->setRowHeight(r, FView->verticalHeader()->defaultSectionSize());
}

// ---------------------------------------------------------------------------
// Hints, geometry, the dataset cursor

bool TBrindleDBGrid::ShowHint(const QPoint& Pos) {
    if (!FShowCellHints) return false;
    const QModelIndex index = FView->indexAt(Pos);
    if (!index.isValid()) return false;
    const QString text = FWindow->data(index, Qt::ToolTipRole).toString();
    const QString shown = text.isEmpty() ? FWindow->data(index, Qt::DisplayRole).toString() : text;
    if (shown.isEmpty()) return false;
    // Longer texts stay longer, up to twice the usual time.
    const int msec = std::min(20000, 5000 + static_cast<int>(shown.size()) * 40);
    QToolTip::showText(FView->viewport()->mapToGlobal(Pos), FixHintText(shown), FView->viewport(),
                       FView->visualRect(index), msec);
    return true;
}

bool TBrindleDBGrid::eventFilter(QObject* Watched, QEvent* Event) {
    // The viewport's size sets the window's: one update per resize, once
    // the layout has settled.
    if (Watched == FView->viewport() && Event->type() == QEvent::Resize) {
        QTimer::singleShot(0, this, [this] {
            FetchTo(FTop + VisibleRowCount());
            UpdateWindow();
            UpdateScrollRange();
            PlaceFilterRow();
        });
    }
    return QWidget::eventFilter(Watched, Event);
}

bool TBrindleDBGrid::SyncDataSet() {
    TDLSQLDataSet* ds = DataSet();
    if (!ds || !ds->Active() || FCurRow < 0) return false;
    try {
        if (ds->GetRecNo() != FCurRow + 1) ds->SetRecNo(FCurRow + 1);
    } catch (const ECustomException& e) {
        emit Error(e.message());
        return false;
    }
    return ds->GetRecNo() == FCurRow + 1;
}

}  // namespace brindle
