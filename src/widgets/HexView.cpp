#include "HexView.h"

#include <QFontDatabase>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <algorithm>

namespace brindle {

namespace {

// The most steps the vertical bar is given; far below INT_MAX, so that
// the bar's own arithmetic in pixels stays safe.
constexpr qint64 kMaxScrollSteps = 1 << 28;

constexpr char kHexDigits[] = "0123456789ABCDEF";

int HexDigitValue(QChar C) {
    const char16_t c = C.unicode();
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

QChar Printable(uchar Byte) {
    return Byte >= 0x20 && Byte < 0x7F ? QChar(Byte) : QChar(u'.');
}

}  // namespace

THexView::THexView(QWidget* Parent) : QAbstractScrollArea(Parent) {
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    setFocusPolicy(Qt::StrongFocus);
    viewport()->setCursor(Qt::IBeamCursor);
    setAttribute(Qt::WA_InputMethodEnabled, false);
    UpdateMetrics();
}

void THexView::SetData(const QByteArray& Bytes) {
    FData = Bytes;
    FCaret = FAnchor = 0;
    FLowNibble = false;
    FModified = false;
    UpdateScrollBars();
    verticalScrollBar()->setValue(0);
    horizontalScrollBar()->setValue(0);
    viewport()->update();
    emit Changed();
    emit CaretMoved();
}

void THexView::SetReadOnly(bool Value) {
    FReadOnly = Value;
}

void THexView::SetTextColumnActive(bool Value) {
    FTextColumn = Value;
    FLowNibble = false;
    viewport()->update();
}

void THexView::SetSelection(qint64 Start, qint64 Length) {
    const qint64 start = std::clamp<qint64>(Start, 0, FData.size());
    FAnchor = start;
    FCaret = std::clamp<qint64>(start + std::max<qint64>(Length, 0), start, FData.size());
    FLowNibble = false;
    EnsureCaretVisible();
    viewport()->update();
    emit CaretMoved();
}

void THexView::GotoOffset(qint64 Offset) {
    MoveCaret(Offset, false);
}

qint64 THexView::TopLine() const {
    return std::min<qint64>(static_cast<qint64>(verticalScrollBar()->value()) * FLinesPerStep,
                            LineCount() - 1);
}

// ---------------------------------------------------------------------------
// Geometry

void THexView::UpdateMetrics() {
    const QFontMetrics metrics(font());
    FCharWidth = std::max(1, metrics.horizontalAdvance(u'0'));
    FLineHeight = std::max(1, metrics.height());
    FAscent = metrics.ascent();
    UpdateScrollBars();
}

int THexView::VisibleLines() const {
    return std::max(1, viewport()->height() / FLineHeight);
}

int THexView::OffsetDigits() const {
    int digits = 8;
    for (qint64 size = FData.size() >> 32; size > 0; size >>= 4) ++digits;
    return digits;
}

int THexView::HexX(int Column) const {
    // Two blanks after the offset; one more between the halves of a line.
    return FCharWidth * (OffsetDigits() + 2 + 3 * Column + (Column >= kBytesPerLine / 2 ? 1 : 0));
}

int THexView::TextX(int Column) const {
    return HexX(kBytesPerLine - 1) + FCharWidth * (4 + Column);
}

int THexView::ContentWidth() const {
    return TextX(kBytesPerLine) + FCharWidth;
}

QRect THexView::ByteRect(qint64 Offset, bool TextColumn) const {
    const qint64 line = Offset / kBytesPerLine - TopLine();
    const int column = static_cast<int>(Offset % kBytesPerLine);
    const int x = (TextColumn ? TextX(column) : HexX(column)) - horizontalScrollBar()->value();
    return QRect(x, static_cast<int>(line) * FLineHeight, FCharWidth * (TextColumn ? 1 : 2), FLineHeight);
}

void THexView::UpdateScrollBars() {
    const qint64 maxTop = std::max<qint64>(0, LineCount() - VisibleLines());
    FLinesPerStep = std::max<qint64>(1, (maxTop + kMaxScrollSteps - 1) / kMaxScrollSteps);
    QScrollBar* v = verticalScrollBar();
    v->setRange(0, static_cast<int>((maxTop + FLinesPerStep - 1) / FLinesPerStep));
    v->setPageStep(std::max(1, static_cast<int>(VisibleLines() / FLinesPerStep)));
    v->setSingleStep(1);
    QScrollBar* h = horizontalScrollBar();
    h->setRange(0, std::max(0, ContentWidth() - viewport()->width()));
    h->setPageStep(viewport()->width());
    h->setSingleStep(FCharWidth);
}

void THexView::EnsureCaretVisible() {
    const qint64 line = FCaret / kBytesPerLine;
    const qint64 top = TopLine();
    QScrollBar* v = verticalScrollBar();
    if (line < top)
        v->setValue(static_cast<int>(line / FLinesPerStep));
    else if (line >= top + VisibleLines())
        v->setValue(static_cast<int>((line - VisibleLines() + 1 + FLinesPerStep - 1) / FLinesPerStep));
    const int column = static_cast<int>(FCaret % kBytesPerLine);
    const int x = FTextColumn ? TextX(column) : HexX(column);
    QScrollBar* h = horizontalScrollBar();
    if (x < h->value())
        h->setValue(x);
    else if (x + 2 * FCharWidth > h->value() + viewport()->width())
        h->setValue(x + 2 * FCharWidth - viewport()->width());
}

qint64 THexView::HitTest(const QPoint& Point, bool& TextColumn, bool& LowNibble) const {
    const int x = Point.x() + horizontalScrollBar()->value();
    // A point above or below the view counts as the line next to it, so a
    // drag out of the view goes on selecting.
    const int row = Point.y() >= 0 ? Point.y() / FLineHeight : -1;
    const qint64 line = std::clamp<qint64>(TopLine() + row, 0, LineCount() - 1);
    int column = 0;
    LowNibble = false;
    TextColumn = x >= TextX(0) - FCharWidth;
    if (TextColumn) {
        column = std::clamp((x - TextX(0)) / FCharWidth, 0, kBytesPerLine - 1);
    } else {
        while (column + 1 < kBytesPerLine && x >= HexX(column + 1) - FCharWidth / 2) ++column;
        LowNibble = x >= HexX(column) + FCharWidth;
    }
    const qint64 offset = std::min<qint64>(line * kBytesPerLine + column, FData.size());
    if (offset == FData.size()) LowNibble = false;
    return offset;
}

// ---------------------------------------------------------------------------
// Painting

void THexView::paintEvent(QPaintEvent*) {
    QPainter painter(viewport());
    const QPalette& pal = palette();
    painter.fillRect(viewport()->rect(), pal.base());
    painter.setFont(font());
    const int dx = -horizontalScrollBar()->value();
    const qint64 top = TopLine();
    const int rows = viewport()->height() / FLineHeight + 1;
    const qint64 selStart = SelStart();
    const qint64 selEnd = selStart + SelLength();
    const int digits = OffsetDigits();
    const char* bytes = FData.constData();

    for (int row = 0; row < rows; ++row) {
        const qint64 line = top + row;
        if (line >= LineCount()) break;
        const qint64 first = line * kBytesPerLine;
        const int count = static_cast<int>(std::min<qint64>(kBytesPerLine, FData.size() - first));
        const int y = row * FLineHeight;

        painter.setPen(pal.color(QPalette::Disabled, QPalette::Text));
        painter.drawText(dx, y + FAscent, QString::number(first, 16).toUpper().rightJustified(digits, u'0'));

        QString hex(HexX(kBytesPerLine) / FCharWidth - HexX(0) / FCharWidth, u' ');
        QString text(count, u' ');
        QRegion selected;
        for (int i = 0; i < count; ++i) {
            const auto b = static_cast<uchar>(bytes[first + i]);
            const int at = (HexX(i) - HexX(0)) / FCharWidth;
            hex[at] = QLatin1Char(kHexDigits[b >> 4]);
            hex[at + 1] = QLatin1Char(kHexDigits[b & 15]);
            text[i] = Printable(b);
            if (first + i >= selStart && first + i < selEnd) {
                // The blank after a byte belongs to it when the next is selected too.
                const int width =
                    i + 1 < count && first + i + 1 < selEnd ? HexX(i + 1) - HexX(i) : 2 * FCharWidth;
                selected += QRect(HexX(i) + dx, y, width, FLineHeight);
                selected += QRect(TextX(i) + dx, y, FCharWidth, FLineHeight);
            }
        }
        const auto drawLine = [&] {
            painter.drawText(HexX(0) + dx, y + FAscent, hex);
            painter.drawText(TextX(0) + dx, y + FAscent, text);
        };
        if (selected.isEmpty()) {
            painter.setPen(pal.color(QPalette::Text));
            drawLine();
            continue;
        }
        for (const QRect& r : selected) painter.fillRect(r, pal.highlight());
        painter.save();
        painter.setClipRegion(QRegion(0, y, viewport()->width(), FLineHeight) - selected);
        painter.setPen(pal.color(QPalette::Text));
        drawLine();
        painter.setClipRegion(selected);
        painter.setPen(pal.color(QPalette::HighlightedText));
        drawLine();
        painter.restore();
    }

    // The caret: a block in the active column, a frame in the other.
    const qint64 caretRow = FCaret / kBytesPerLine - top;
    if (caretRow >= 0 && caretRow < rows) {
        QRect hexRect = ByteRect(FCaret, false);
        if (!FTextColumn)
            hexRect =
                QRect(hexRect.x() + (FLowNibble ? FCharWidth : 0), hexRect.y(), FCharWidth, hexRect.height());
        const QRect textRect = ByteRect(FCaret, true);
        const QRect active = FTextColumn ? textRect : hexRect;
        const QRect other = FTextColumn ? hexRect : textRect;
        painter.setCompositionMode(QPainter::RasterOp_SourceXorDestination);
        painter.fillRect(active, hasFocus() ? Qt::white : Qt::gray);
        painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
        painter.setPen(pal.color(QPalette::Text));
        painter.drawRect(other.adjusted(0, 0, -1, -1));
    }
}

void THexView::resizeEvent(QResizeEvent* Event) {
    QAbstractScrollArea::resizeEvent(Event);
    UpdateScrollBars();
}

void THexView::changeEvent(QEvent* Event) {
    QAbstractScrollArea::changeEvent(Event);
    if (Event->type() == QEvent::FontChange) UpdateMetrics();
}

void THexView::scrollContentsBy(int, int) {
    viewport()->update();
}

// ---------------------------------------------------------------------------
// Keys and mouse

bool THexView::focusNextPrevChild(bool) {
    // Tab moves between the columns, not out of the view.
    return false;
}

void THexView::MoveCaret(qint64 Offset, bool Extend) {
    FCaret = std::clamp<qint64>(Offset, 0, FData.size());
    if (!Extend) FAnchor = FCaret;
    FLowNibble = false;
    EnsureCaretVisible();
    viewport()->update();
    emit CaretMoved();
}

void THexView::DataEdited() {
    FModified = true;
    UpdateScrollBars();
    EnsureCaretVisible();
    viewport()->update();
    emit Changed();
    emit CaretMoved();
}

bool THexView::TypeHexDigit(int Digit) {
    if (FCaret == FData.size()) FData.append('\0');
    char& b = FData.data()[FCaret];
    if (FLowNibble) {
        b = static_cast<char>((static_cast<uchar>(b) & 0xF0) | Digit);
        ++FCaret;
        FLowNibble = false;
    } else {
        b = static_cast<char>((static_cast<uchar>(b) & 0x0F) | (Digit << 4));
        FLowNibble = true;
    }
    FAnchor = FCaret;
    return true;
}

bool THexView::TypeCharacter(uchar Byte) {
    if (FCaret == FData.size())
        FData.append(static_cast<char>(Byte));
    else
        FData.data()[FCaret] = static_cast<char>(Byte);
    FAnchor = ++FCaret;
    return true;
}

bool THexView::RemoveBytes(qint64 Start, qint64 Count) {
    if (Start < 0 || Count <= 0 || Start >= FData.size()) return false;
    FData.remove(Start, std::min(Count, FData.size() - Start));
    FCaret = FAnchor = Start;
    FLowNibble = false;
    return true;
}

void THexView::keyPressEvent(QKeyEvent* Event) {
    const bool shift = Event->modifiers() & Qt::ShiftModifier;
    const bool control = Event->modifiers() & Qt::ControlModifier;
    const qint64 page = static_cast<qint64>(VisibleLines()) * kBytesPerLine;
    const qint64 lineStart = FCaret - FCaret % kBytesPerLine;
    switch (Event->key()) {
        case Qt::Key_Left:
            MoveCaret(FCaret - 1, shift);
            return;
        case Qt::Key_Right:
            MoveCaret(FCaret + 1, shift);
            return;
        case Qt::Key_Up:
            if (FCaret >= kBytesPerLine) MoveCaret(FCaret - kBytesPerLine, shift);
            return;
        case Qt::Key_Down:
            if (FCaret + kBytesPerLine <= FData.size()) MoveCaret(FCaret + kBytesPerLine, shift);
            return;
        case Qt::Key_PageUp:
            MoveCaret(FCaret >= page ? FCaret - page : FCaret % kBytesPerLine, shift);
            return;
        case Qt::Key_PageDown: {
            qint64 target = FCaret + page;
            while (target > FData.size()) target -= kBytesPerLine;
            MoveCaret(std::max(target, FCaret), shift);
            return;
        }
        case Qt::Key_Home:
            MoveCaret(control ? 0 : lineStart, shift);
            return;
        case Qt::Key_End:
            MoveCaret(control ? FData.size() : std::min<qint64>(lineStart + kBytesPerLine - 1, FData.size()),
                      shift);
            return;
        case Qt::Key_Tab:
        case Qt::Key_Backtab:
            SetTextColumnActive(!FTextColumn);
            EnsureCaretVisible();
            emit CaretMoved();
            return;
        default:
            break;
    }
    if (control && Event->key() == Qt::Key_A) {
        SetSelection(0, FData.size());
        return;
    }
    if (FReadOnly) {
        QAbstractScrollArea::keyPressEvent(Event);
        return;
    }
    bool changed = false;
    if (Event->key() == Qt::Key_Delete) {
        changed = SelLength() > 0 ? RemoveBytes(SelStart(), SelLength()) : RemoveBytes(FCaret, 1);
    } else if (Event->key() == Qt::Key_Backspace) {
        if (SelLength() > 0)
            changed = RemoveBytes(SelStart(), SelLength());
        else if (FLowNibble)
            MoveCaret(FCaret, false);  // back to the first digit of the byte
        else
            changed = RemoveBytes(FCaret - 1, 1);
    } else if (Event->text().size() == 1 && !control) {
        const QChar c = Event->text().front();
        // Typing replaces at the caret, whatever was selected.
        if (FTextColumn && c.unicode() >= 0x20 && c.unicode() <= 0xFF && c.unicode() != 0x7F) {
            FAnchor = FCaret;
            changed = TypeCharacter(static_cast<uchar>(c.unicode()));
        } else if (!FTextColumn && HexDigitValue(c) >= 0) {
            FAnchor = FCaret;
            changed = TypeHexDigit(HexDigitValue(c));
        }
    }
    if (changed)
        DataEdited();
    else
        QAbstractScrollArea::keyPressEvent(Event);
}

void THexView::mousePressEvent(QMouseEvent* Event) {
    if (Event->button() != Qt::LeftButton) {
        QAbstractScrollArea::mousePressEvent(Event);
        return;
    }
    bool textColumn = false, lowNibble = false;
    const qint64 offset = HitTest(Event->position().toPoint(), textColumn, lowNibble);
    FTextColumn = textColumn;
    MoveCaret(offset, Event->modifiers() & Qt::ShiftModifier);
    FLowNibble = lowNibble && SelLength() == 0 && !FReadOnly;
    viewport()->update();
}

void THexView::mouseMoveEvent(QMouseEvent* Event) {
    if (!(Event->buttons() & Qt::LeftButton)) return;
    bool textColumn = false, lowNibble = false;
    const qint64 offset = HitTest(Event->position().toPoint(), textColumn, lowNibble);
    // Dragging forward takes in the byte under the mouse.
    MoveCaret(offset >= FAnchor ? offset + 1 : offset, true);
}

}  // namespace brindle
