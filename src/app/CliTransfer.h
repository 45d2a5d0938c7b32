// The commands of brindle-cli that copy between databases and through SQL
// scripts: dump, load and transfer.
#pragma once

#include <QStringList>
#include <QTextStream>

namespace brindle::cli {

// Their lines of the usage text.
extern const char* const kTransferUsage;

// Runs the command line when it names one of these commands: the exit code
// (0 done, 1 failed with the message on err, 2 bad usage). -1 for any other
// command line.
int RunTransferCommand(const QStringList& args, QTextStream& out, QTextStream& err);

}  // namespace brindle::cli
