// A hex grid over a byte array: an offset column, sixteen bytes per line in
// hex, and the same bytes as text. The caret stands on a byte of either
// column (or just past the last byte, where typing appends); typing
// overwrites, in the hex column a nibble at a time. Only the lines in view
// are painted and nothing walks the whole array, so hundreds of megabytes
// open and scroll at once.
#pragma once

#include <QAbstractScrollArea>
#include <QByteArray>
#include <algorithm>

namespace brindle {

class THexView : public QAbstractScrollArea {
    Q_OBJECT

public:
    static constexpr int kBytesPerLine = 16;

    explicit THexView(QWidget* Parent = nullptr);

    // Shows Bytes from the top, not modified, caret on the first byte of
    // the hex column. Shares the array until the first edit.
    void SetData(const QByteArray& Bytes);
    const QByteArray& Data() const { return FData; }
    qint64 Size() const { return FData.size(); }

    bool ReadOnly() const { return FReadOnly; }
    void SetReadOnly(bool Value);
    // The user changed the bytes since SetData or SetModified(false).
    bool Modified() const { return FModified; }
    void SetModified(bool Value) { FModified = Value; }

    // The byte under the caret; Size() stands for the place after the last.
    qint64 CaretPos() const { return FCaret; }
    // The caret is on the second digit of its byte (hex column only).
    bool CaretOnLowNibble() const { return FLowNibble; }
    bool TextColumnActive() const { return FTextColumn; }
    void SetTextColumnActive(bool Value);

    // The selection: the bytes between the anchor and the caret.
    qint64 SelStart() const { return std::min(FAnchor, FCaret); }
    qint64 SelLength() const { return std::max(FAnchor, FCaret) - SelStart(); }
    // Selects Length bytes from Start (clamped to the data); the caret goes
    // to the end of the selection.
    void SetSelection(qint64 Start, qint64 Length);

    // Puts the caret on the byte at Offset (clamped to 0 .. Size()), drops
    // the selection and scrolls the line into view.
    void GotoOffset(qint64 Offset);
    // The first line in view.
    qint64 TopLine() const;
    // Where a byte is drawn in the viewport, in the hex or the text column.
    QRect ByteRect(qint64 Offset, bool TextColumn) const;

signals:
    // The bytes changed: an edit, or new data.
    void Changed();
    // The caret or the selection moved.
    void CaretMoved();

protected:
    void paintEvent(QPaintEvent* Event) override;
    void resizeEvent(QResizeEvent* Event) override;
    void keyPressEvent(QKeyEvent* Event) override;
    void mousePressEvent(QMouseEvent* Event) override;
    void mouseMoveEvent(QMouseEvent* Event) override;
    void changeEvent(QEvent* Event) override;
    void scrollContentsBy(int Dx, int Dy) override;
    bool focusNextPrevChild(bool Next) override;

private:
    qint64 LineCount() const { return FData.size() / kBytesPerLine + 1; }
    int VisibleLines() const;
    int OffsetDigits() const;
    int HexX(int Column) const;
    int TextX(int Column) const;
    int ContentWidth() const;
    void UpdateMetrics();
    void UpdateScrollBars();
    void EnsureCaretVisible();
    // Moves the caret; with Extend the anchor stays and the selection grows.
    void MoveCaret(qint64 Offset, bool Extend);
    // The byte under a viewport point and the column it lies in.
    qint64 HitTest(const QPoint& Point, bool& TextColumn, bool& LowNibble) const;
    // The edits, each at the caret; false when nothing changed.
    bool TypeHexDigit(int Digit);
    bool TypeCharacter(uchar Byte);
    bool RemoveBytes(qint64 Start, qint64 Count);
    void DataEdited();

    QByteArray FData;
    bool FReadOnly = false;
    bool FModified = false;
    qint64 FCaret = 0;
    qint64 FAnchor = 0;
    bool FLowNibble = false;
    bool FTextColumn = false;
    // Lines per step of the vertical scroll bar, which counts in int: 1
    // unless the data has more lines than the bar can count.
    qint64 FLinesPerStep = 1;
    int FCharWidth = 8;
    int FLineHeight = 16;
    int FAscent = 12;
};

}  // namespace brindle
