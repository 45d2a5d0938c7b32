// What a command lets escape reaches the application's handler: the user
// sees the message in an error box, the log has it, and the program goes on.
#include "engine/Exceptions.h"
#include "shell/Application.h"

#include <gtest/gtest.h>
#include <QAction>
#include <QEventLoop>
#include <QMessageBox>
#include <QTimer>
#include <QWidget>
#include <stdexcept>

using namespace brindle;

namespace {

QStringList& CriticalLog() {
    static QStringList lines;
    return lines;
}

void KeepCritical(QtMsgType Type, const QMessageLogContext&, const QString& Message) {
    if (Type == QtCriticalMsg) CriticalLog() << Message;
}

// Runs the loop, waiting for events as the program's does, until Done or
// three seconds have passed.
void RunUntil(const std::function<bool()>& Done) {
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (Done()) loop.quit();
    });
    poll.start(10);
    QTimer::singleShot(3000, &loop, &QEventLoop::quit);
    loop.exec();
}

TEST(ApplicationErrors, EscapedExceptionsAreShownLoggedAndSurvived) {
    ASSERT_NE(qobject_cast<TApplication*>(QCoreApplication::instance()), nullptr);
    CriticalLog().clear();
    const QtMessageHandler previous = qInstallMessageHandler(KeepCritical);
    QWidget window;
    window.show();

    // Each error box is read and closed by a person; the first stays up a
    // while, and a failure behind it (say, of a repaint) is logged only.
    QStringList boxes;
    QTimer reader;
    QObject::connect(&reader, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) return;
        if (boxes.isEmpty() && !box->property("seen").toBool()) {
            box->setProperty("seen", true);
            QTimer::singleShot(0, [] { throw std::runtime_error("behind the box"); });
            return;
        }
        boxes << box->text();
        box->accept();
    });
    reader.start(10);

    // A command run from the loop, as a menu or a shortcut runs it, that
    // fails with a plain exception; then a timer's work that fails with one
    // of the program's own, its lines ended in CRLF.
    QAction command(&window);
    QObject::connect(&command, &QAction::triggered, [] { throw std::runtime_error("disk full"); });
    QMetaObject::invokeMethod(&command, &QAction::trigger, Qt::QueuedConnection);
    QTimer::singleShot(50, &window, [] {
        throw ECustomException(QStringLiteral("no such table: x\r\nselect * from x"));
    });
    RunUntil([&] { return boxes.size() == 2; });

    EXPECT_EQ(boxes, (QStringList{"disk full", "no such table: x\nselect * from x"}));
    EXPECT_EQ(CriticalLog(), (QStringList{"Error: disk full", "Error: behind the box",
                                          "Error: no such table: x\nselect * from x"}));
    // The program goes on.
    bool ran = false;
    QTimer::singleShot(0, &window, [&ran] { ran = true; });
    RunUntil([&] { return ran; });
    EXPECT_TRUE(ran);
    qInstallMessageHandler(previous);
}

}  // namespace
