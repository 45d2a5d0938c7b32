// Shared helpers of the engine suite.
#pragma once

#include "engine/DLSQLiteDatabase.h"

#include <QString>
#include <functional>
#include <memory>

namespace brindle::test {

// A connected database on a new file made with the given script.
std::unique_ptr<TDLSQLiteDatabase> createDatabase(const QString& path, const QString& script = QString());
// A connected database on an existing file (or ":memory:").
std::unique_ptr<TDLSQLiteDatabase> openDatabase(const QString& path, const QString& key = QString());
// Loads the internal library into the process driver (the state every test
// starts from).
void useInternalLibrary();
// Makes the process's QCoreApplication on first use: work handed back to
// the main thread arrives through its event loop.
void ensureCoreApplication();
// Runs the main thread's event loop until Done holds or the time is up;
// returns Done's last answer.
bool pumpUntil(const std::function<bool()>& Done, int TimeoutMs = 10000);
// The file name of Debian's encrypting SQLite library.
inline const char* kCipherLibrary = "libsqlcipher.so.0";

}  // namespace brindle::test
