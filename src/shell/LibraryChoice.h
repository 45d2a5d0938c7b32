// Which SQLite library the program runs on: the one linked in, or a library
// file the user picked in the options.
#pragma once

#include <QList>
#include <QString>
#include <functional>

namespace brindle {

struct TLibraryEntry {
    QString FileName;  // "<:internal:>", a path, or a name the loader finds
    QString Caption;   // "name (version 3.40.1) supports FTS3, FTS4, RTREE"
};

// "<:internal:>" first, then every library file in Folders (names with
// ".so") and the system's own SQLite libraries, each only when the
// capability probe can load it.
QList<TLibraryEntry> ListSQLiteLibraries(const QStringList& Folders);
// "%s (version %s) %s": "[internal]" or the bare name, the version, and
// "supports " with the features it has.
QString LibraryCaption(const QString& FileName, const QString& Version, bool FTS3, bool FTS4, bool RTREE,
                       bool ICU);

// Loads the stored choice into the driver; no connection may be open. An
// empty name means the internal library. A file that is not there shows
// "SQLite library not found: " and one that does not load "Could not load
// SQLite library: " (each with the bare name), and the internal library
// is loaded instead. Returns the name loaded.
QString LoadSQLiteLibrary(const QString& Stored, const std::function<void(const QString&)>& ShowMessage);

}  // namespace brindle
