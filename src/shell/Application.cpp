#include "Application.h"

#include "engine/Exceptions.h"

#include <QMessageBox>

namespace brindle {

TApplication::TApplication(int& Argc, char** Argv) : QApplication(Argc, Argv) {}

bool TApplication::notify(QObject* Receiver, QEvent* Event) {
    // No exception may cross the event loop: past this point it would end
    // the process.
    try {
        return QApplication::notify(Receiver, Event);
    } catch (const std::exception& e) {
        ShowErrorBox(ExceptionMessage(e));
    } catch (...) {
        ShowErrorBox(QStringLiteral("An unknown error occurred."));
    }
    return false;
}

QString ApplicationTitle() {
    return QStringLiteral("Brindle " BRINDLE_VERSION);
}

QString ExceptionMessage(const std::exception& E) {
    if (const auto* custom = dynamic_cast<const ECustomException*>(&E)) return custom->message();
    return QString::fromUtf8(E.what());
}

void LogError(const QString& Message) {
    qCritical("Error: %s", qUtf8Printable(Message));
}

void ShowErrorBox(const QString& Message, QWidget* Parent) {
    static bool showing = false;
    // Error texts carry CRLF line ends; the box and the log want line feeds.
    QString text = Message;
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    LogError(text);
    if (showing) return;
    showing = true;
    QWidget* parent = Parent;
    if (!parent) parent = QApplication::activeModalWidget();
    if (!parent) parent = QApplication::activeWindow();
    QMessageBox::critical(parent, ApplicationTitle(), text);
    showing = false;
}

}  // namespace brindle
