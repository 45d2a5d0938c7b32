#include "FileAssociations.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>
#include <QXmlStreamReader>

namespace brindle {

namespace {

const QString kPrefix = QStringLiteral("brindle-");

QString DataHome() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
}
QString PackagesFolder() {
    return DataHome() + QStringLiteral("/mime/packages");
}
QString ApplicationsFolder() {
    return DataHome() + QStringLiteral("/applications");
}

QString MimeType(const QString& Key) {
    return QStringLiteral("application/x-brindle-") + Key;
}

// The globs of one of our package files.
QStringList ReadGlobs(const QString& File) {
    QStringList globs;
    QFile f(File);
    if (!f.open(QIODevice::ReadOnly)) return globs;
    QXmlStreamReader xml(&f);
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement() && xml.name() == QLatin1String("glob"))
            globs << xml.attributes().value(QLatin1String("pattern")).toString();
    }
    return globs;
}

// A value of a desktop entry's file, by key; empty when absent.
QString EntryValue(const QString& File, const QString& Key) {
    QFile f(File);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text)) return QString();
    const QString prefix = Key + u'=';
    for (const QString& line : QString::fromUtf8(f.readAll()).split(u'\n'))
        if (line.startsWith(prefix)) return line.mid(prefix.size()).trimmed();
    return QString();
}

void WritePackage(const QString& Key, const QString& Description, const QStringList& Globs) {
    const QString file = PackagesFolder() + u'/' + kPrefix + Key + QStringLiteral(".xml");
    if (Globs.isEmpty()) {
        QFile::remove(file);
        return;
    }
    QDir().mkpath(PackagesFolder());
    QFile f(file);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate)) return;
    QString xml = QStringLiteral(
                      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n"
                      "  <mime-type type=\"%1\">\n    <comment>%2</comment>\n")
                      .arg(MimeType(Key), Description.toHtmlEscaped());
    for (const QString& glob : Globs)
        xml += QStringLiteral("    <glob pattern=\"%1\"/>\n").arg(glob.toHtmlEscaped());
    xml += QStringLiteral("  </mime-type>\n</mime-info>\n");
    f.write(xml.toUtf8());
}

// Tells the desktop's databases, when their tools are installed; waited
// for, so that nothing is still writing when the caller goes on.
void UpdateDesktopDatabases() {
    const std::pair<const char*, QString> tools[] = {
        {"update-mime-database", DataHome() + QStringLiteral("/mime")},
        {"update-desktop-database", ApplicationsFolder()}};
    for (const auto& [tool, folder] : tools) {
        const QString program = QStandardPaths::findExecutable(QLatin1String(tool));
        if (program.isEmpty()) continue;
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, {folder});
        process.waitForFinished(10000);
    }
}

QString DesktopFile(const QString& Key) {
    return ApplicationsFolder() + u'/' + kPrefix + Key + QStringLiteral(".desktop");
}

QString Command(const QString& Program) {
    return Program + QStringLiteral(" %f");
}

}  // namespace

QStringList GetAssociatedExtensions(const QString& Exe) {
    QStringList result;
    const QDir packages(PackagesFolder());
    for (const QString& name : packages.entryList({kPrefix + QStringLiteral("*.xml")}, QDir::Files)) {
        const QString key = name.mid(kPrefix.size()).chopped(4);
        // Only types that this very program opens, quoted or not.
        const QString exec = EntryValue(DesktopFile(key), QStringLiteral("Exec"));
        if (exec != Command(Exe) && exec != Command(u'"' + Exe + u'"')) continue;
        for (const QString& glob : ReadGlobs(packages.filePath(name)))
            if (!result.contains(glob, Qt::CaseInsensitive)) result << glob;
    }
    return result;
}

void RegisterFileType(const QString& Extension, const QString& Key, const QString& Description,
                      const QString& Icon, const QString& Program) {
    const QString bare = QString(Extension).remove(u'.');
    if (bare.isEmpty() || Program.isEmpty()) return;
    const QString key = Key.isEmpty() ? bare + QStringLiteral("_auto_file") : Key;
    QStringList globs = ReadGlobs(PackagesFolder() + u'/' + kPrefix + key + QStringLiteral(".xml"));
    const QString glob = QStringLiteral("*.") + bare;
    if (!globs.contains(glob, Qt::CaseInsensitive)) globs << glob;
    WritePackage(key, Description, globs);

    QDir().mkpath(ApplicationsFolder());
    QFile f(DesktopFile(key));
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        QString entry =
            QStringLiteral(
                "[Desktop Entry]\nType=Application\nName=%1\nExec=%2\nMimeType=%3;\nTerminal=false\n")
                .arg(Description, Command(Program), MimeType(key));
        if (!Icon.isEmpty()) entry += QStringLiteral("Icon=%1\n").arg(Icon);
        f.write(entry.toUtf8());
    }
    UpdateDesktopDatabases();
}

void DeregisterFileType(const QString& Extension) {
    const QString bare = QString(Extension).remove(u'.');
    if (bare.isEmpty()) return;
    const QString glob = QStringLiteral("*.") + bare;
    const QDir packages(PackagesFolder());
    for (const QString& name : packages.entryList({kPrefix + QStringLiteral("*.xml")}, QDir::Files)) {
        QStringList globs = ReadGlobs(packages.filePath(name));
        if (globs.removeAll(glob) == 0) continue;
        const QString key = name.mid(kPrefix.size()).chopped(4);
        // The description stays as the package had it.
        QString description = EntryValue(DesktopFile(key), QStringLiteral("Name"));
        if (description.isEmpty()) description = key;
        WritePackage(key, description, globs);
        if (globs.isEmpty()) QFile::remove(DesktopFile(key));
    }
    UpdateDesktopDatabases();
}

}  // namespace brindle
