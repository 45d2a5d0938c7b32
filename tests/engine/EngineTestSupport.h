// Shared helpers of the engine suite.
#pragma once

#include "engine/DLSQLiteDatabase.h"

#include <QString>
#include <memory>

namespace brindle::test {

// A connected database on a new file made with the given script.
std::unique_ptr<TDLSQLiteDatabase> createDatabase(const QString& path, const QString& script = QString());
// A connected database on an existing file (or ":memory:").
std::unique_ptr<TDLSQLiteDatabase> openDatabase(const QString& path, const QString& key = QString());
// Loads the internal library into the process driver (the state every test
// starts from).
void useInternalLibrary();
// The file name of Debian's encrypting SQLite library.
inline const char* kCipherLibrary = "libsqlcipher.so.0";

}  // namespace brindle::test
