// The brindle executable: start the engine, show the main window, open the
// file named on the command line.
#include "engine/DLDatabase.h"
#include "engine/DLSQLite3API.h"
#include "schema/DLSQLiteParser.h"
#include "shell/SCMain.h"

#include <QApplication>
#include <QCursor>
#include <QMessageBox>
#include <QStyleFactory>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Brindle"));
    QApplication::setApplicationName(QStringLiteral("Desk 3.x"));
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    // Statements are split and classified by the full parser from here on.
    brindle::InstallSQLParserServices();

    brindle::SetWaitCursorHook([](bool busy) {
        if (busy)
            QApplication::setOverrideCursor(Qt::WaitCursor);
        else
            QApplication::restoreOverrideCursor();
    });
    if (!brindle::SQLite3Driver->sqlite3drv_load_library(brindle::SQLITE_INTERNAL_LIB)) {
        QMessageBox::critical(nullptr, QStringLiteral("Brindle"), QStringLiteral("SQLite Library not loaded"));
        return 1;
    }

    brindle::TfrmSCMain window;
    window.show();
    QStringList args = QApplication::arguments();
    args.removeFirst();
    window.ProcessParams(args);
    return app.exec();
}
