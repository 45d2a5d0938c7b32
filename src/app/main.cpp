// The brindle executable: hand the command line to a running instance when
// that is wished, else start the engine and the main window.
#include "engine/DLDatabase.h"
#include "engine/Exceptions.h"
#include "schema/DLSQLiteParser.h"
#include "shell/Application.h"
#include "shell/Globals.h"
#include "shell/RegSettings.h"
#include "shell/SCMain.h"
#include "shell/SingleInstance.h"
#include "shell/Splash.h"
#include "shell/WindowPlacement.h"

#include <QApplication>
#include <QLocale>
#include <QSocketNotifier>
#include <QSplashScreen>
#include <QStyleFactory>
#include <QTimer>

#include <fcntl.h>
#include <unistd.h>
#include <csignal>
#include <cstdio>

namespace {

int SignalPipe[2] = {-1, -1};

void OnTerminate(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(SignalPipe[1], &byte, 1);
}

}  // namespace

int main(int argc, char* argv[]) {
    // Reports what a command lets escape, and the program goes on.
    brindle::TApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Brindle"));
    QApplication::setApplicationName(QStringLiteral("Desk 3.x"));
    QStringList args = QApplication::arguments();
    args.removeFirst();

    // A second start hands its arguments to the first and ends here, before
    // any window exists. Should the meeting place fail, this one runs alone.
    try {
        if (brindle::InitSingleInstance(brindle::Settings(), args)) return 0;
    } catch (const brindle::ECustomException&) {
    }

    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    // No locale may change the text the program reads and writes.
    QLocale::setDefault(QLocale::c());
    std::unique_ptr<QSplashScreen> splash = brindle::ShowSplash(brindle::Settings());
    // Statements are split and classified by the full parser from here on.
    brindle::InstallSQLParserServices();
    brindle::SetWaitCursorHook([](bool busy) {
        if (busy)
            QApplication::setOverrideCursor(Qt::WaitCursor);
        else
            QApplication::restoreOverrideCursor();
    });
    for (const char* form :
         {"TfrmSCMain", "TfrmRecordEditor", "TfrmImageView", "TfrmMemoView", "TfrmBlobView", "TfrmDDLDiff"})
        brindle::RegisterFormPlacement(QLatin1String(form));
    brindle::InstallPlacementPersistence(brindle::Settings());

    // The databases close with the global data, before the engine goes.
    brindle::TGlobalData global;
    brindle::TfrmSCMain window;
    if (brindle::TSingleInstance* single = brindle::SingleInstance())
        single->OneInstance().FOnShowApplication = [&window] {
            window.setWindowState(window.windowState() & ~Qt::WindowMinimized);
            window.show();
            window.raise();
            window.activateWindow();
        };

    // The end of a session, or kill, closes the window as the user would:
    // open transactions are asked about and the settings saved.
    std::unique_ptr<QSocketNotifier> terminate;
    if (::pipe2(SignalPipe, O_CLOEXEC) == 0) {
        terminate = std::make_unique<QSocketNotifier>(SignalPipe[0], QSocketNotifier::Read);
        QObject::connect(terminate.get(), &QSocketNotifier::activated, &window, [&window] {
            char byte = 0;
            [[maybe_unused]] const ssize_t n = ::read(SignalPipe[0], &byte, 1);
            window.close();
        });
        std::signal(SIGTERM, OnTerminate);
        std::signal(SIGHUP, OnTerminate);
    }

    // An exception here stops the start, as the top-level handler reports it.
    try {
        window.Start(args);
    } catch (const std::exception& e) {
        brindle::ShowErrorBox(brindle::ExceptionMessage(e));
        return 1;
    }
    window.show();
    // The screenshot script names the object and the page it wants seen;
    // a name that went stale ends the program rather than show another.
    const QString showObject = qEnvironmentVariable("BRINDLE_SHOW_OBJECT");
    const QString showPage = qEnvironmentVariable("BRINDLE_SHOW_PAGE");
    // And a text to run in the SQL tab, as F5 would.
    const QString showSQL = qEnvironmentVariable("BRINDLE_SHOW_SQL");
    // And clicks in the grid: a filter row text, a command on a cell.
    const QString showFilter = qEnvironmentVariable("BRINDLE_SHOW_FILTER");
    const QString showCommand = qEnvironmentVariable("BRINDLE_SHOW_COMMAND");
    if (!showObject.isEmpty() || !showPage.isEmpty() || !showSQL.isEmpty())
        QTimer::singleShot(0, &window, [&window, showObject, showPage, showSQL, showFilter, showCommand] {
            QString missing = window.ShowByName(showObject, showSQL.isEmpty() ? showPage : QStringLiteral("SQL"));
            if (missing.isEmpty()) {
                if (!showSQL.isEmpty()) window.RunSQL(showSQL);
            }
            if (missing.isEmpty() && (!showFilter.isEmpty() || !showCommand.isEmpty())) {
                // After the pages have followed the selection.
                QTimer::singleShot(800, &window, [&window, showFilter, showCommand] {
                    const QString lost = window.ShowInGrid(showFilter, showCommand);
                    if (lost.isEmpty()) return;
                    std::fprintf(stderr, "brindle: %s\n", qPrintable(lost));
                    QCoreApplication::exit(2);
                });
            }
            if (missing.isEmpty()) return;
            std::fprintf(stderr, "brindle: %s\n", qPrintable(missing));
            QCoreApplication::exit(2);
        });
    if (splash) QTimer::singleShot(300, splash.get(), [&splash, &window] { splash->finish(&window); });
    return app.exec();
}
