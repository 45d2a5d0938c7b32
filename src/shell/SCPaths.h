// Where the program's shared data lives.
#pragma once

#include <QString>

namespace brindle {

// The folder of shared program data, ending in "Brindle/Desk 3/": beside the
// program (../share, as built and as installed) when that exists, else the
// first such folder among the system's data folders, else the user's own.
QString GetCommonDataPath();
// The bundled demo database below it.
QString GetDemoDatabasePath();
// The user's documents folder.
QString UserDataPath();

}  // namespace brindle
