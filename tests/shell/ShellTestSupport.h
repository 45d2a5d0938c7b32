// What the window tests share: letting posted work run, and answering the
// modal dialogs that come up.
#pragma once

#include <QApplication>
#include <QCoreApplication>
#include <QList>
#include <QTimer>
#include <QWidget>
#include <functional>

namespace brindle::test {

// Runs what the window posted for later: refreshes, updates of commands.
inline void Settle() {
    for (int i = 0; i < 5; ++i) QCoreApplication::processEvents();
}

// Answers the modal dialogs that come up, one function per dialog in turn.
class TDialogDriver {
public:
    explicit TDialogDriver(QList<std::function<void(QWidget*)>> Answers) : FAnswers(std::move(Answers)) {
        QObject::connect(&FTimer, &QTimer::timeout, [this] {
            QWidget* modal = QApplication::activeModalWidget();
            if (!modal || modal == FLast || FAnswers.isEmpty()) return;
            FLast = modal;
            // Answered from a timer of its own: an answer may bring up the
            // next dialog, and this timer must be free to see it.
            QTimer::singleShot(0, modal, [modal, answer = FAnswers.takeFirst()] { answer(modal); });
        });
        FTimer.start(10);
    }
    bool Done() const { return FAnswers.isEmpty(); }

private:
    QList<std::function<void(QWidget*)>> FAnswers;
    QTimer FTimer;
    QWidget* FLast = nullptr;
};

}  // namespace brindle::test
