#include "LibraryChoice.h"

#include "engine/DLSQLite3API.h"

#include <QDir>
#include <QFileInfo>

namespace brindle {

namespace {

// Debian's own SQLite libraries, found by the loader without a path.
const char* const kSystemLibraries[] = {"libsqlite3.so.0", "libsqlcipher.so.0"};

bool Probe(const QString& FileName, TLibraryEntry& Entry) {
    QString version;
    bool fts3 = false, fts4 = false, rtree = false, icu = false, encryption = false, threadSafe = false;
    if (!GetSQLiteDriverCapabilities(QString(), FileName, version, fts3, fts4, rtree, icu, encryption,
                                     threadSafe))
        return false;
    Entry = {FileName, LibraryCaption(FileName, version, fts3, fts4, rtree, icu)};
    return true;
}

}  // namespace

QString LibraryCaption(const QString& FileName, const QString& Version, bool FTS3, bool FTS4, bool RTREE,
                       bool ICU) {
    QStringList features;
    if (FTS3) features << QStringLiteral("FTS3");
    if (FTS4) features << QStringLiteral("FTS4");
    if (RTREE) features << QStringLiteral("RTREE");
    if (ICU) features << QStringLiteral("ICU");
    const QString name =
        FileName == SQLITE_INTERNAL_LIB ? QStringLiteral("[internal]") : QFileInfo(FileName).fileName();
    return QStringLiteral("%1 (version %2) %3")
        .arg(name, Version,
             features.isEmpty() ? QString()
                                : QStringLiteral("supports ") + features.join(QStringLiteral(", ")))
        .trimmed();
}

QList<TLibraryEntry> ListSQLiteLibraries(const QStringList& Folders) {
    QList<TLibraryEntry> list;
    TLibraryEntry entry;
    if (Probe(SQLITE_INTERNAL_LIB, entry)) list << entry;
    for (const QString& folder : Folders) {
        const QDir dir(folder);
        for (const QFileInfo& file :
             dir.entryInfoList({QStringLiteral("*.so"), QStringLiteral("*.so.*")}, QDir::Files))
            if (Probe(file.absoluteFilePath(), entry)) list << entry;
    }
    for (const char* name : kSystemLibraries)
        if (Probe(QLatin1String(name), entry)) list << entry;
    return list;
}

QString LoadSQLiteLibrary(const QString& Stored, const std::function<void(const QString&)>& ShowMessage) {
    QString name = Stored.isEmpty() ? SQLITE_INTERNAL_LIB : Stored;
    const QString bare = QFileInfo(name).fileName();
    // A bare name is the loader's to find; only a path can be missing.
    if (name != SQLITE_INTERNAL_LIB && name.contains(u'/') && !QFileInfo::exists(name)) {
        if (ShowMessage) ShowMessage(QStringLiteral("SQLite library not found: ") + bare);
        name = SQLITE_INTERNAL_LIB;
    }
    if (SQLite3Driver->sqlite3drv_load_library(name)) return name;
    if (ShowMessage) ShowMessage(QStringLiteral("Could not load SQLite library: ") + bare);
    SQLite3Driver->sqlite3drv_load_library(SQLITE_INTERNAL_LIB);
    return SQLITE_INTERNAL_LIB;
}

}  // namespace brindle
