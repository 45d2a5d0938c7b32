// The hex grid driven by keys and the mouse: each edit changes exactly the
// bytes it should, in the hex and the text column and past the end;
// selections; going to an offset; and an array of 200 MB that opens and
// paints at once.
#include "widgets/HexView.h"

#include <gtest/gtest.h>
#include <QApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScrollBar>
#include <vector>

using namespace brindle;

namespace {

struct Key {
    Key(int Code, Qt::KeyboardModifiers Modifiers = Qt::NoModifier, const QString& Text = QString())
        : Code(Code), Modifiers(Modifiers), Text(Text) {}
    int Code;
    Qt::KeyboardModifiers Modifiers;
    QString Text;
};

void Send(QWidget& Widget, const Key& K) {
    QKeyEvent press(QEvent::KeyPress, K.Code, K.Modifiers, K.Text);
    QApplication::sendEvent(&Widget, &press);
}

// Printable characters as the keys that type them.
std::vector<Key> Type(const QString& Text) {
    std::vector<Key> keys;
    for (const QChar c : Text) keys.push_back({c.toUpper().unicode(), Qt::NoModifier, QString(c)});
    return keys;
}

std::vector<Key> operator+(std::vector<Key> A, const std::vector<Key>& B) {
    A.insert(A.end(), B.begin(), B.end());
    return A;
}

const Key kTab{Qt::Key_Tab};
const Key kEnd{Qt::Key_End, Qt::ControlModifier};
const Key kRight{Qt::Key_Right};
const Key kShiftRight{Qt::Key_Right, Qt::ShiftModifier};
const Key kDown{Qt::Key_Down};
const Key kDelete{Qt::Key_Delete};
const Key kBackspace{Qt::Key_Backspace};

QByteArray Bytes(const char* Hex) {
    return QByteArray::fromHex(Hex);
}

class HexViewTest : public ::testing::Test {
protected:
    HexViewTest() {
        view.resize(720, 320);
        view.show();
    }
    void Press(const std::vector<Key>& Keys) {
        for (const Key& k : Keys) Send(view, k);
    }
    // A mouse event at the middle of a byte.
    void Mouse(QEvent::Type Type, qint64 Offset, bool TextColumn) {
        const QPointF at = view.ByteRect(Offset, TextColumn).center();
        QMouseEvent event(Type, at, view.viewport()->mapToGlobal(at), Qt::LeftButton,
                          Type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(view.viewport(), &event);
    }
    THexView view;
};

}  // namespace

TEST_F(HexViewTest, KeysEditExactlyTheBytesUnderTheCaret) {
    const struct {
        const char* Name;
        const char* Before;
        std::vector<Key> Keys;
        const char* After;
        qint64 Caret;
    } cases[] = {
        {"two hex digits overwrite one byte", "00112233", std::vector<Key>{kRight} + Type("aB"), "00ab2233",
         2},
        {"one digit changes the high nibble only", "00112233", std::vector<Key>{kRight, kRight} + Type("f"),
         "0011f233", 2},
        {"letters that are not hex are ignored", "0011", Type("xg-"), "0011", 0},
        {"typing in the text column writes characters", "00112233",
         std::vector<Key>{kTab, kRight} + Type("Hi"), "00486933", 3},
        {"hex digits at the end append", "0011", std::vector<Key>{kEnd} + Type("7f8"), "00117f80", 3},
        {"text at the end appends", "0011", std::vector<Key>{kTab, kEnd} + Type("ok"), "00116f6b", 4},
        {"into an empty array", "", Type("c0de"), "c0de", 2},
        {"delete takes the byte under the caret", "00112233", {kRight, kDelete}, "002233", 1},
        {"delete takes the selection",
         "0011223344",
         {kRight, kShiftRight, kShiftRight, kDelete},
         "003344",
         1},
        {"backspace takes the byte before", "00112233", {kRight, kRight, kBackspace}, "002233", 1},
        {"backspace at the start does nothing", "0011", {kBackspace}, "0011", 0},
        {"down moves a line", "000102030405060708090a0b0c0d0e0f1011", std::vector<Key>{kDown} + Type("ff"),
         "000102030405060708090a0b0c0d0e0fff11", 17},
        {"typing replaces at the caret and drops the selection", "001122",
         std::vector<Key>{kShiftRight} + Type("9"), "009122", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Name);
        view.SetData(Bytes(c.Before));
        view.SetTextColumnActive(false);
        int changed = 0;
        const auto link = QObject::connect(&view, &THexView::Changed, [&changed] { ++changed; });
        Press(c.Keys);
        QObject::disconnect(link);
        const QByteArray expected = Bytes(c.After);
        EXPECT_EQ(view.Data().toHex(), expected.toHex());
        EXPECT_EQ(view.Modified(), expected != Bytes(c.Before));
        EXPECT_EQ(changed == 0, expected == Bytes(c.Before));
        EXPECT_EQ(view.CaretPos(), c.Caret);
    }
}

TEST_F(HexViewTest, SelectionByKeysAndByMouseAndReadOnly) {
    view.SetData(Bytes("000102030405060708090a0b0c0d0e0f101112131415"));
    Press({kRight, kShiftRight, kShiftRight, kShiftRight});
    EXPECT_EQ(view.SelStart(), 1);
    EXPECT_EQ(view.SelLength(), 3);
    Press({{Qt::Key_Left, Qt::ShiftModifier}});
    EXPECT_EQ(view.SelLength(), 2);
    // Selecting backward from the anchor.
    Press({{Qt::Key_Left, Qt::ShiftModifier},
           {Qt::Key_Left, Qt::ShiftModifier},
           {Qt::Key_Left, Qt::ShiftModifier}});
    EXPECT_EQ(view.SelStart(), 0);
    EXPECT_EQ(view.SelLength(), 1);
    Press({kRight});
    EXPECT_EQ(view.SelLength(), 0);

    // A drag across a line break in the text column takes both ends in.
    Mouse(QEvent::MouseButtonPress, 14, true);
    EXPECT_TRUE(view.TextColumnActive());
    Mouse(QEvent::MouseMove, 18, true);
    Mouse(QEvent::MouseButtonRelease, 18, true);
    EXPECT_EQ(view.SelStart(), 14);
    EXPECT_EQ(view.SelLength(), 5);
    // And backward in the hex column.
    Mouse(QEvent::MouseButtonPress, 9, false);
    EXPECT_FALSE(view.TextColumnActive());
    Mouse(QEvent::MouseMove, 3, false);
    EXPECT_EQ(view.SelStart(), 3);
    EXPECT_EQ(view.SelLength(), 6);
    Press({{Qt::Key_A, Qt::ControlModifier, QStringLiteral("\x01")}});
    EXPECT_EQ(view.SelLength(), view.Size());

    view.SetReadOnly(true);
    const QByteArray before = view.Data();
    Press(std::vector<Key>{kRight} + Type("ab") + std::vector<Key>{kDelete, kBackspace, kTab} + Type("z"));
    EXPECT_EQ(view.Data(), before);
    EXPECT_FALSE(view.Modified());
}

TEST_F(HexViewTest, GotoOffsetClampsAndScrollsTheLineIntoView) {
    view.SetData(QByteArray(100000, 'a'));
    for (const qint64 offset : {qint64(50000), qint64(0), qint64(99999), qint64(100000)}) {
        view.GotoOffset(offset);
        EXPECT_EQ(view.CaretPos(), offset);
        const QRect caret = view.ByteRect(offset, false);
        EXPECT_TRUE(view.viewport()->rect().contains(caret)) << offset;
    }
    view.GotoOffset(5000000);
    EXPECT_EQ(view.CaretPos(), 100000);
    view.GotoOffset(-3);
    EXPECT_EQ(view.CaretPos(), 0);
    EXPECT_EQ(view.TopLine(), 0);
}

TEST_F(HexViewTest, TwoHundredMegabytesOpenScrollAndPaintAtOnce) {
    const qint64 size = 200LL * 1024 * 1024;
    QByteArray big(size, '\x5A');
    big[size - 1] = '\x01';
    QElapsedTimer timer;
    timer.start();
    view.SetData(big);
    view.viewport()->grab();
    view.GotoOffset(size - 1);
    view.viewport()->grab();
    view.verticalScrollBar()->setValue(view.verticalScrollBar()->maximum() / 2);
    view.viewport()->grab();
    Press({{Qt::Key_PageUp}, {Qt::Key_PageDown}, kEnd});
    view.viewport()->grab();
    EXPECT_LT(timer.elapsed(), 500);
    EXPECT_EQ(
        view.verticalScrollBar()->maximum(),
        size / THexView::kBytesPerLine + 1 - view.viewport()->height() / view.ByteRect(0, false).height());
    // An edit at the end touches only the last byte.
    view.GotoOffset(size - 1);
    Press(Type("ff"));
    EXPECT_EQ(view.Data().size(), size);
    EXPECT_EQ(static_cast<uchar>(view.Data()[size - 1]), 0xFF);
    EXPECT_EQ(view.Data()[size - 2], '\x5A');
}
