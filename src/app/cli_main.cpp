// brindle-cli: a headless companion of the program for scripts and checks.
#include "CliCommands.h"

#include "schema/DLSQLiteParser.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    brindle::InstallSQLParserServices();
    QStringList args = QCoreApplication::arguments();
    args.removeFirst();
    QTextStream out(stdout);
    QTextStream err(stderr);
    return brindle::cli::Run(args, out, err);
}
