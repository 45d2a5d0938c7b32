// What a command lets escape reaches the application's handler: the user
// sees the message in an error box, the log has it, and the program goes on.
#include "engine/Exceptions.h"
#include "shell/Application.h"

#include <gtest/gtest.h>
#include <QAction>
#include <QEventLoop>
#include <QMessageBox>
#include <QTimer>
#include <stdexcept>

using namespace brindle;

namespace {

QStringList CriticalLog;

TEST(ApplicationErrors, EscapedExceptionsAreShownLoggedAndSurvived) {
    ASSERT_NE(qobject_cast<TApplication*>(QCoreApplication::instance()), nullptr);
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType Type, const QMessageLogContext&, const QString& Message) {
            if (Type == QtCriticalMsg) CriticalLog << Message;
        });
    // A command run from the loop, as a menu or a shortcut runs it, fails
    // with a plain exception; once its box is closed, a timer's work fails
    // with one of the program's own, its lines ended in CRLF.
    QAction command;
    QObject::connect(&command, &QAction::triggered, [] { throw std::runtime_error("disk full"); });
    QMetaObject::invokeMethod(&command, &QAction::trigger, Qt::QueuedConnection);
    // A person reads each error box and closes it. The first stays up a
    // while, and a failure behind it (say, of a repaint) is logged only.
    QEventLoop loop;
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
        if (boxes.size() == 1)
            QTimer::singleShot(
                0, [] { throw ECustomException(QStringLiteral("no such table: x\r\nselect 1")); });
        else
            QTimer::singleShot(0, &loop, &QEventLoop::quit);  // the program goes on
    });
    reader.start(10);
    QTimer::singleShot(3000, &loop, [&loop] { loop.exit(1); });
    const int result = loop.exec();
    qInstallMessageHandler(previous);

    EXPECT_EQ(boxes, (QStringList{"disk full", "no such table: x\nselect 1"}));
    EXPECT_EQ(CriticalLog, (QStringList{"Error: disk full", "Error: behind the box",
                                        "Error: no such table: x\nselect 1"}));
    EXPECT_EQ(result, 0);
}

}  // namespace
