// What a command lets escape reaches the application's handler: the user
// sees the message in an error box, the log has it, and the program goes on.
#include "shell/Application.h"

#include <gtest/gtest.h>
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
    // A command run from the loop fails. (Posted through the core's event
    // delivery: the widgets library is built without exception cleanup, so
    // a throw through its frames would leak what they hold.)
    QObject command;
    QMetaObject::invokeMethod(&command, [] { throw std::runtime_error("disk full"); }, Qt::QueuedConnection);
    // A person reads the error box and closes it. It stays up a while, and
    // a failure behind it (say, of a repaint) is logged only.
    QEventLoop loop;
    QStringList boxes;
    QTimer reader;
    QObject::connect(&reader, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) return;
        if (!box->property("seen").toBool()) {
            box->setProperty("seen", true);
            QTimer::singleShot(0, [] { throw std::runtime_error("behind the box"); });
            return;
        }
        boxes << box->text();
        box->accept();
        QTimer::singleShot(0, &loop, &QEventLoop::quit);  // the program goes on
    });
    reader.start(10);
    QTimer::singleShot(3000, &loop, [&loop] { loop.exit(1); });
    const int result = loop.exec();
    qInstallMessageHandler(previous);

    EXPECT_EQ(boxes, QStringList{"disk full"});
    EXPECT_EQ(CriticalLog, (QStringList{"Error: disk full", "Error: behind the box"}));
    EXPECT_EQ(result, 0);
}

}  // namespace
