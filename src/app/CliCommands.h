// The commands of brindle-cli, apart from main() so that they read as a
// table: each takes its arguments and writes to out, or raises.
#pragma once

#include <QStringList>
#include <QTextStream>

namespace brindle::cli {

// Runs one command line (without the program name). Returns the exit code:
// 0 done, 1 the command failed (message on err), 2 bad usage.
int Run(const QStringList& args, QTextStream& out, QTextStream& err);

}  // namespace brindle::cli
