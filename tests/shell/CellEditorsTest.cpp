// The value and record editors over real database files: an edit reaches
// exactly the bytes and the row it was made on, an untouched value is never
// written back, a refused post keeps the window until it is cancelled, and
// each kind of value opens in the editor that fits it.
#include "QtPrinters.h"
#include "ShellTestSupport.h"
#include "TempDir.h"

#include "data/DLTable.h"
#include "engine/DLSQLiteDatabase.h"
#include "shell/CellEditors.h"
#include "shell/Globals.h"
#include "widgets/HexView.h"

#include <gtest/gtest.h>
#include <QCheckBox>
#include <QDateEdit>
#include <QDialogButtonBox>
#include <QImageReader>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimer>

using namespace brindle;
using namespace brindle::test;
using TAnswer = std::function<void(QWidget*)>;

namespace {

QByteArray Fixture(const char* Name) {
    return readFile(QStringLiteral(BRINDLE_TEST_DATA "/images/") + QLatin1String(Name));
}

QString BlobLiteral(const QByteArray& Bytes) {
    return QStringLiteral("x'%1'").arg(QString::fromLatin1(Bytes.toHex()));
}

void Type(QWidget* Widget, const QString& Text) {
    for (const QChar c : Text) {
        QKeyEvent press(QEvent::KeyPress, c.toUpper().unicode(), Qt::NoModifier, QString(c));
        QApplication::sendEvent(Widget, &press);
    }
}

void PressKey(QWidget* Widget, int Key) {
    QKeyEvent press(QEvent::KeyPress, Key, Qt::NoModifier);
    QApplication::sendEvent(Widget, &press);
}

void ClickOk(QWidget* Dialog) {
    Dialog->findChild<QDialogButtonBox*>(QStringLiteral("btnsOkCancel"))
        ->button(QDialogButtonBox::Ok)
        ->click();
}

void Drop(QWidget* Target, const QString& File) {
    QMimeData mime;
    mime.setUrls({QUrl::fromLocalFile(File)});
    QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    // Straight to the window: the application lets through only the drops
    // of a drag it runs itself.
    static_cast<QObject*>(Target)->event(&drop);
}

template <class T>
T* As(QWidget* Widget) {
    T* result = qobject_cast<T*>(Widget);
    EXPECT_NE(result, nullptr) << "a " << T::staticMetaObject.className() << " was expected, not "
                               << (Widget ? Widget->metaObject()->className() : "nothing");
    return result;
}

// Answers an error box, expecting its text to hold Part.
TAnswer ErrorBox(const QString& Part) {
    return [Part](QWidget* W) {
        auto* box = As<QMessageBox>(W);
        if (!box) return W->close();
        EXPECT_TRUE(box->text().contains(Part)) << box->text().toStdString();
        box->button(QMessageBox::Ok)->click();
        return true;
    };
}

class CellEditorsTest : public ::testing::Test {
protected:
    void SetUp() override {
        db.FShowWaitCursor = false;
        db.SetFileName(dir.file(QStringLiteral("cells.db")));
        db.CreateDatabase(0, 4096, QStringLiteral("UTF-8"), QString());
    }

    std::unique_ptr<TDLTable> Table(const QString& Name, bool CacheBlobs = true) {
        auto t = std::make_unique<TDLTable>();
        t->SetDatabase(&db);
        t->FCacheBlobs = CacheBlobs;
        t->SetTableName(Name);
        t->Open();
        return t;
    }

    QString Value(const QString& SQL) { return db.GetStringValue(SQL); }
    QString Changes() { return Value(QStringLiteral("select total_changes()")); }

    // Runs an editor with the dialogs answered in turn. A window left
    // unanswered is closed after a while, so that a failure cannot hang.
    bool Run(QList<TAnswer> Answers, const std::function<bool()>& Edit) {
        TDialogDriver driver(std::move(Answers));
        QTimer watchdog;
        bool stuck = false;
        QObject::connect(&watchdog, &QTimer::timeout, [&stuck] {
            if (QWidget* modal = QApplication::activeModalWidget()) {
                stuck = true;
                modal->close();
            }
        });
        watchdog.start(10000);
        const bool result = Edit();
        EXPECT_FALSE(stuck) << "a window was left open";
        EXPECT_TRUE(driver.Done()) << "not every expected window came up";
        return result;
    }

    TempDir dir;
    TDLSQLiteDatabase db;
};

}  // namespace

TEST_F(CellEditorsTest, HexEditsReachExactlyTheEditedBytesOfOneRow) {
    db.Execute(QStringLiteral(
        "create table twins(n integer, data blob);"
        "insert into twins values (1, x'00112233'), (1, x'00112233'), (1, x'00112233');"
        "create table keyed(name text primary key, data blob) without rowid;"
        "insert into keyed values ('a', x'00112233'), ('b', x'00112233'), ('c', x'00112233')"));
    const struct {
        const char* Table;
        const char* Order;
    } tables[] = {{"twins", "rowid"}, {"keyed", "name"}};
    for (const auto& c : tables) {
        SCOPED_TRACE(c.Table);
        auto t = Table(QLatin1String(c.Table));
        t->Next();
        TField& data = t->FieldByName(QStringLiteral("data"));
        const bool posted = Run({[](QWidget* W) {
                                    auto* form = As<TfrmBlobView>(W);
                                    if (!form) return;
                                    EXPECT_EQ(form->windowTitle(), QStringLiteral("Hex Editor: data"));
                                    form->hvData->GotoOffset(2);
                                    Type(form->hvData, QStringLiteral("ab"));
                                    ClickOk(form);
                                }},
                                [&] { return EditBlob(nullptr, data); });
        EXPECT_TRUE(posted);
        EXPECT_EQ(
            Value(QStringLiteral("select group_concat(hex(data), ',') from (select data from %1 order by %2)")
                      .arg(QLatin1String(c.Table), QLatin1String(c.Order))),
            QStringLiteral("00112233,0011AB33,00112233"));
    }

    // OK without an edit, and Esc after one, write nothing.
    auto t = Table(QStringLiteral("twins"));
    TField& data = t->FieldByName(QStringLiteral("data"));
    const QString before = Changes();
    EXPECT_FALSE(Run({[](QWidget* W) { ClickOk(W); }}, [&] { return EditBlob(nullptr, data); }));
    EXPECT_FALSE(Run({[](QWidget* W) {
                         Type(As<TfrmBlobView>(W)->hvData, QStringLiteral("ff"));
                         PressKey(W, Qt::Key_Escape);
                     }},
                     [&] { return EditBlob(nullptr, data); }));
    EXPECT_EQ(Changes(), before);

    // A dropped file becomes the value; Clear leaves no value.
    const QString file = dir.write(QStringLiteral("dropped.bin"), QByteArray("\x01\x02\x03", 3));
    EXPECT_TRUE(Run({[file](QWidget* W) {
                        Drop(W, file);
                        EXPECT_EQ(As<TfrmBlobView>(W)->lblSize->text(), QStringLiteral("Size: 3"));
                        ClickOk(W);
                    }},
                    [&] { return EditBlob(nullptr, data); }));
    EXPECT_EQ(Value(QStringLiteral("select hex(data) from twins where rowid = 1")), QStringLiteral("010203"));
    EXPECT_TRUE(Run({[](QWidget* W) {
                        As<TfrmBlobView>(W)->btnClear->click();
                        ClickOk(W);
                    }},
                    [&] { return EditBlob(nullptr, data); }));
    EXPECT_EQ(Value(QStringLiteral("select count(*) from twins where data is null")), QStringLiteral("1"));

    // A dataset that cannot be modified opens the bytes read-only.
    t->FReadOnly = true;
    EXPECT_FALSE(Run({[](QWidget* W) {
                         auto* form = As<TfrmBlobView>(W);
                         EXPECT_TRUE(form->hvData->ReadOnly());
                         Type(form->hvData, QStringLiteral("ff"));
                         ClickOk(W);
                     }},
                     [&] {
                         t->Next();
                         return EditBlob(nullptr, data);
                     }));
}

TEST_F(CellEditorsTest, TextThatIsNotValidUtf8IsWrittenOnlyWhenEdited) {
    db.Execute(
        QStringLiteral("create table m(id integer primary key, note clob);"
                       "insert into m values (1, cast(x'41FF42' as text))"));
    auto t = Table(QStringLiteral("m"));
    TField& note = t->FieldByName(QStringLiteral("note"));
    const QString before = Changes();
    TextEditorWordWrap = true;
    EXPECT_FALSE(Run({[](QWidget* W) {
                         auto* form = As<TfrmMemoView>(W);
                         if (!form) return;
                         EXPECT_EQ(form->windowTitle(), QStringLiteral("Text Editor: note"));
                         EXPECT_EQ(form->mmoText->toPlainText(), QStringLiteral("A\uFFFDB"));
                         EXPECT_EQ(form->mmoText->lineWrapMode(), QPlainTextEdit::WidgetWidth);
                         form->cbWordWrap->click();
                         ClickOk(W);
                     }},
                     [&] { return EditMemo(nullptr, note); }));
    EXPECT_FALSE(TextEditorWordWrap);
    EXPECT_EQ(Value(QStringLiteral("select hex(note) from m")), QStringLiteral("41FF42"));
    EXPECT_EQ(Changes(), before);

    EXPECT_TRUE(Run({[](QWidget* W) {
                        auto* form = As<TfrmMemoView>(W);
                        form->mmoText->moveCursor(QTextCursor::End);
                        Type(form->mmoText, QStringLiteral("!"));
                        ClickOk(W);
                    }},
                    [&] { return EditMemo(nullptr, note); }));
    EXPECT_EQ(Value(QStringLiteral("select hex(note) from m")), QStringLiteral("41EFBFBD4221"));

    // An edit keeps the line ends the text had, and its no-break spaces.
    db.Execute(QStringLiteral("update m set note = 'a' || char(160) || 'b' || char(13, 10) || 'c'"));
    // A refresh makes the fields anew.
    t->Refresh();
    EXPECT_TRUE(Run({[](QWidget* W) {
                        auto* form = As<TfrmMemoView>(W);
                        form->mmoText->moveCursor(QTextCursor::End);
                        Type(form->mmoText, QStringLiteral("!"));
                        ClickOk(W);
                    }},
                    [&] { return EditMemo(nullptr, t->FieldByName(QStringLiteral("note"))); }));
    EXPECT_EQ(Value(QStringLiteral("select note = 'a' || char(160) || 'b' || char(13, 10) || 'c!' from m")),
              QStringLiteral("1"));
}

TEST_F(CellEditorsTest, ARefusedPostKeepsTheWindowUntilCancelled) {
    db.Execute(
        QStringLiteral("create table c(id integer primary key, v text check (length(v) < 5));"
                       "insert into c values (1, 'ok')"));
    auto t = Table(QStringLiteral("c"));
    TField& v = t->FieldByName(QStringLiteral("v"));
    const bool posted = Run({[](QWidget* W) {
                                 auto* form = As<TfrmMemoView>(W);
                                 form->mmoText->selectAll();
                                 Type(form->mmoText, QStringLiteral("far too long"));
                                 ClickOk(W);
                             },
                             ErrorBox(QStringLiteral("CHECK constraint failed")),
                             [&t](QWidget* W) {
                                 // Back in the window, the row still in edit with the user's text.
                                 EXPECT_TRUE(As<TfrmMemoView>(W)->isVisible());
                                 EXPECT_EQ(t->State(), dsEdit);
                                 PressKey(W, Qt::Key_Escape);
                             }},
                            [&] { return EditMemo(nullptr, v); });
    EXPECT_FALSE(posted);
    EXPECT_EQ(t->State(), dsBrowse);
    EXPECT_EQ(v.AsString(), QStringLiteral("ok"));
    EXPECT_EQ(Value(QStringLiteral("select v from c")), QStringLiteral("ok"));
}

TEST_F(CellEditorsTest, RecordEditorShowsAnEditorPerFieldAndPostsOnlyChanges) {
    const QByteArray png = Fixture("tiny.png");
    db.Execute(QStringLiteral(
                   "create table r(id integer primary key, name text, done boolean, day date, "
                   "data blob, img blob, bin blob);"
                   "insert into r values (1, cast(x'41FF42' as text), 1, '2024-02-29', %1, %2, x'00010203')")
                   .arg(BlobLiteral(QByteArray(300, 'a')), BlobLiteral(png)));
    // BLOBs left out of the rows are read before the editors choose.
    auto t = Table(QStringLiteral("r"), false);
    const auto button = [](QWidget* W, const char* Name) {
        return qobject_cast<QPushButton*>(As<TfrmRecordEditor>(W)->EditorOf(QLatin1String(Name)));
    };
    EXPECT_TRUE(Run({[&](QWidget* W) {
                         auto* form = As<TfrmRecordEditor>(W);
                         if (!form) return;
                         EXPECT_EQ(form->windowTitle(), QStringLiteral("Record Editor"));
                         EXPECT_EQ(form->lblRecord->text(), QStringLiteral("Record 1"));
                         EXPECT_TRUE(qobject_cast<QLineEdit*>(form->EditorOf(QStringLiteral("name"))));
                         EXPECT_TRUE(qobject_cast<QCheckBox*>(form->EditorOf(QStringLiteral("done"))));
                         EXPECT_TRUE(qobject_cast<QDateEdit*>(form->EditorOf(QStringLiteral("day"))));
                         EXPECT_EQ(button(W, "data")->text(), QStringLiteral("Text Editor"));
                         EXPECT_EQ(button(W, "img")->text(), QStringLiteral("Image Editor"));
                         EXPECT_EQ(button(W, "bin")->text(), QStringLiteral("Blob Editor"));
                         button(W, "data")->click();
                     },
                     [](QWidget* W) {
                         EXPECT_EQ(As<TfrmMemoView>(W)->mmoText->toPlainText(), QString(300, u'a'));
                         PressKey(W, Qt::Key_Escape);
                     },
                     [](QWidget* W) {
                         qobject_cast<QCheckBox*>(As<TfrmRecordEditor>(W)->EditorOf(QStringLiteral("done")))
                             ->setCheckState(Qt::Unchecked);
                         ClickOk(W);
                     }},
                    [&] { return EditRecord(nullptr, *t); }));
    EXPECT_EQ(Value(QStringLiteral("select done || ',' || hex(name) || ',' || day from r")),
              QStringLiteral("0,41FF42,2024-02-29"));

    // A new row, and a dataset that cannot be modified.
    t->Append();
    EXPECT_TRUE(Run(
        {[](QWidget* W) {
            auto* form = As<TfrmRecordEditor>(W);
            EXPECT_EQ(form->lblRecord->text(), QStringLiteral("New record"));
            qobject_cast<QLineEdit*>(form->EditorOf(QStringLiteral("name")))->setText(QStringLiteral("new"));
            ClickOk(W);
        }},
        [&] { return EditRecord(nullptr, *t); }));
    EXPECT_EQ(Value(QStringLiteral("select count(*) from r where name = 'new' and data is null")),
              QStringLiteral("1"));
    t->FReadOnly = true;
    EXPECT_FALSE(Run({[](QWidget* W) {
                         auto* form = As<TfrmRecordEditor>(W);
                         EXPECT_EQ(form->windowTitle(), QStringLiteral("Record Viewer"));
                         EXPECT_TRUE(
                             qobject_cast<QLineEdit*>(form->EditorOf(QStringLiteral("name")))->isReadOnly());
                         PressKey(W, Qt::Key_Escape);
                     }},
                     [&] { return EditRecord(nullptr, *t); }));
}

TEST_F(CellEditorsTest, BlobFieldsOpenInTheEditorThatFitsTheirValue) {
    const QByteArray png = Fixture("tiny.png");
    const QByteArray tiff = Fixture("tiny.tif");
    QByteArray damaged = png;
    damaged[1] = 'X';
    const bool tiffReader = QImageReader::supportedImageFormats().contains("tiff");
    const struct {
        const char* Name;
        QByteArray Value;
        const char* Form;
    } cases[] = {
        {"a PNG behind a wrapper of 78 bytes", QByteArray(78, 'w') + png, "TfrmImageView"},
        {"a TIFF, where a reader exists", tiff, tiffReader ? "TfrmImageView" : "TfrmBlobView"},
        {"a PNG whose body is cut", png.left(40), "TfrmBlobView"},
        {"a PNG with a damaged signature", damaged, "TfrmBlobView"},
        {"an empty value", QByteArray(), "TfrmBlobView"},
    };
    db.Execute(QStringLiteral("create table b(id integer primary key, data blob, note clob)"));
    for (const auto& c : cases)
        db.Execute(QStringLiteral("insert into b(data, note) values (%1, 'text')").arg(BlobLiteral(c.Value)));
    auto t = Table(QStringLiteral("b"), false);
    TField& data = t->FieldByName(QStringLiteral("data"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.Name);
        Run({[&c](QWidget* W) {
                EXPECT_EQ(W->objectName(), QLatin1String(c.Form));
                if (auto* image = qobject_cast<TfrmImageView*>(W)) {
                    EXPECT_EQ(image->Image().size(), QSize(4, 3));
                    EXPECT_EQ(image->windowTitle(), QStringLiteral("Image Editor: data (100%)"));
                } else if (auto* hex = qobject_cast<TfrmBlobView*>(W)) {
                    EXPECT_EQ(hex->hvData->Data(), c.Value);
                }
                PressKey(W, Qt::Key_Escape);
            }},
            [&] { return EditBlobField(nullptr, data); });
        t->Next();
    }
    t->First();
    Run({[](QWidget* W) { PressKey(As<TfrmMemoView>(W), Qt::Key_Escape); }},
        [&] { return EditBlobField(nullptr, t->FieldByName(QStringLiteral("note"))); });

    // A dropped image is kept as the file's own bytes; a double click fits
    // the image to the window.
    const QString gif = QStringLiteral(BRINDLE_TEST_DATA "/images/tiny.gif");
    EXPECT_TRUE(Run({[gif](QWidget* W) {
                        auto* form = As<TfrmImageView>(W);
                        Drop(form, gif);
                        EXPECT_EQ(form->Format(), ifGIF);
                        QMouseEvent click(QEvent::MouseButtonDblClick, QPointF(1, 1), QPointF(1, 1),
                                          Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
                        QApplication::sendEvent(form->imgImage, &click);
                        EXPECT_TRUE(form->Optimize());
                        EXPECT_GT(form->Zoom(), 100);
                        EXPECT_EQ(form->windowTitle(),
                                  QStringLiteral("Image Editor: data (%1%)").arg(form->Zoom()));
                        ClickOk(W);
                    }},
                    [&] { return EditBlobField(nullptr, data); }));
    EXPECT_EQ(Value(QStringLiteral("select hex(data) from b where id = 1")),
              QString::fromLatin1(Fixture("tiny.gif").toHex().toUpper()));

    // A value that cannot be read from its table any more.
    auto gone = Table(QStringLiteral("b"), false);
    db.Execute(QStringLiteral("alter table b rename to b_old"));
    EXPECT_FALSE(Run({ErrorBox(QStringLiteral("Could not load data for field data"))},
                     [&] { return EditBlobField(nullptr, gone->FieldByName(QStringLiteral("data"))); }));
}
