// The program's application object and its error handler. Failures travel
// as exceptions; one that a command does not catch reaches the event loop,
// and is reported here like any other error, in the log and in an error box,
// while the program goes on with the user's work.
// Threading: main thread only.
#pragma once

#include <QApplication>
#include <QString>
#include <exception>

namespace brindle {

class TApplication : public QApplication {
    Q_OBJECT

public:
    TApplication(int& Argc, char** Argv);

    // Delivers the event; an exception that escapes its handler is reported
    // by ShowErrorBox and the event counts as not handled.
    bool notify(QObject* Receiver, QEvent* Event) override;
};

// "Brindle" and the version: the main window's caption and the title of
// error boxes.
QString ApplicationTitle();

// The text an exception shows: an ECustomException's message, else what()
// read as UTF-8.
QString ExceptionMessage(const std::exception& E);

// Writes an error to the program's log (Qt's message log: stderr, or the
// journal when started from the desktop).
void LogError(const QString& Message);

// The application's error handler: logs Message and shows it in an error
// box over Parent, or over the window in front when Parent is null. An
// error raised while such a box is up, say by a repaint behind it, is only
// logged, so that a failure that repeats cannot stack boxes without end.
void ShowErrorBox(const QString& Message, QWidget* Parent = nullptr);

// Runs a command of a window; a failure becomes an error box over it.
template <class F>
void Guarded(QWidget* Window, F&& Command) {
    try {
        Command();
    } catch (const std::exception& e) {
        ShowErrorBox(ExceptionMessage(e), Window);
    }
}

}  // namespace brindle
