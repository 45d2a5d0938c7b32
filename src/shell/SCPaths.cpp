#include "SCPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace brindle {

namespace {
const QString kDataFolder = QStringLiteral("Brindle/Desk 3");

QString withSlash(const QString& p) {
    return p.endsWith(u'/') ? p : p + u'/';
}
}  // namespace

QString GetCommonDataPath() {
    if (QCoreApplication::instance()) {
        const QString beside =
            QDir(QCoreApplication::applicationDirPath() + QStringLiteral("/../share/") + kDataFolder)
                .absolutePath();
        if (QFileInfo(beside).isDir()) return withSlash(QDir::cleanPath(beside));
    }
    const QString found = QStandardPaths::locate(QStandardPaths::GenericDataLocation, kDataFolder,
                                                 QStandardPaths::LocateDirectory);
    if (!found.isEmpty()) return withSlash(found);
    return withSlash(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u'/' +
                     kDataFolder);
}

QString GetDemoDatabasePath() {
    return GetCommonDataPath() + QStringLiteral("Data/dbdemos.db3");
}

QString UserDataPath() {
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
}

}  // namespace brindle
