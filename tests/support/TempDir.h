// A temporary folder for one test, removed with everything in it afterwards.
#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

namespace brindle::test {

class TempDir {
public:
    TempDir();
    QString path() const { return FDir.path(); }
    // Full path of a file inside the folder.
    QString file(const QString& name) const { return FDir.filePath(name); }
    // Writes bytes to a file inside the folder and returns its path.
    QString write(const QString& name, const QByteArray& bytes) const;

private:
    QTemporaryDir FDir;
};

// Reads a whole file; empty when it cannot be read.
QByteArray readFile(const QString& path);

}  // namespace brindle::test
