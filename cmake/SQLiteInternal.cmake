# The internal SQLite library: Debian's libsqlite3.a, linked statically and kept
# private to the executable so that an outside library loaded later can never
# bind to its symbols (and none of them shows in the dynamic symbol table).
find_path(SQLITE3_INCLUDE_DIR sqlite3.h REQUIRED)
find_library(SQLITE3_STATIC_LIBRARY NAMES libsqlite3.a REQUIRED)

add_library(sqlite_internal INTERFACE)
target_include_directories(sqlite_internal SYSTEM INTERFACE ${SQLITE3_INCLUDE_DIR})
target_link_libraries(sqlite_internal INTERFACE ${SQLITE3_STATIC_LIBRARY} ${CMAKE_DL_LIBS} pthread m)
target_link_options(sqlite_internal INTERFACE "LINKER:--exclude-libs,libsqlite3.a")
