// The file extensions that the desktop opens with this program. Each
// association is a glob of a MIME type of our own, kept in a package file
// under the user's data folder, and a desktop entry whose command starts
// the program with the file.
#pragma once

#include <QString>
#include <QStringList>

namespace brindle {

// The extensions ("*.db3" style) associated with the program Exe: those of
// a type whose desktop entry runs Exe with the file.
QStringList GetAssociatedExtensions(const QString& Exe);
// Associates ".ext" (dots in Extension are dropped, one is put in front)
// with the type Key ("sqlitedb"; empty: extension + "_auto_file"), described
// by Description, opened by Program. Nothing for an empty extension or
// program.
void RegisterFileType(const QString& Extension, const QString& Key, const QString& Description,
                      const QString& Icon, const QString& Program);
void DeregisterFileType(const QString& Extension);

}  // namespace brindle
