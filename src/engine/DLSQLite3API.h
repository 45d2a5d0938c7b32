// The table of SQLite entry points and the driver objects that fill it.
//
// Every call into SQLite goes through one table held by a driver object, so
// that switching between the statically linked library and a library file
// chosen by the user is one operation on one object. The table is filled
// either from the linked functions ("<:internal:>") or by dlopen/dlsym.
//
// Threading: the entry table is read by every thread without a lock; it may
// change only while no connection is open, which the open/close wrappers
// assert. FLock guards FDatabases only; the global Lock serialises loading
// of libraries and inspection of extensions.
#pragma once

#include <sqlite3.h>

#include <QString>
#include <mutex>
#include <vector>

namespace brindle {

inline const QString SQLITE_INTERNAL_LIB = QStringLiteral("<:internal:>");

// An automatic extension's entry point as sqlite3_auto_extension takes it.
using TSQLiteAutoEntryPoint = void (*)(void);

class TSQLite3BaseDriver {
public:
    TSQLite3BaseDriver();
    // Asserts that no connection is left open.
    virtual ~TSQLite3BaseDriver();
    TSQLite3BaseDriver(const TSQLite3BaseDriver&) = delete;
    TSQLite3BaseDriver& operator=(const TSQLite3BaseDriver&) = delete;

    // Shuts the engine down and zeroes the table. DLLFileName stays.
    virtual void sqlite3drv_unload_library();
    // Loads a library file, or the internal library for "<:internal:>".
    // Returns false, and raises nothing, when the file does not load or a
    // required entry point is missing; the table is then empty.
    virtual bool sqlite3drv_load_library(const QString& LibraryName);
    // Fills the table from the statically linked functions; sqlite3_key and
    // sqlite3_rekey stay null because the linked engine has no encryption.
    virtual void sqlite3drv_load_internal();

    bool sqlite3drv_driver_present() const;
    QString sqlite3drv_libversion() const;
    QString sqlite3drv_filename() const { return DLLFileName; }
    // The loader's text for the last failed dlopen or dlsym, for messages.
    QString sqlite3drv_last_load_error() const { return FLastLoadError; }
    bool sqlite3drv_loaded() const { return FDriverLoaded; }

    bool sqlite3drv_supports_fts3();
    bool sqlite3drv_supports_fts4();
    bool sqlite3drv_supports_rtree();
    bool sqlite3drv_supports_icu();
    bool sqlite3drv_supports_without_rowid();
    bool sqlite3drv_supports_partial_indexes();
    bool sqlite3drv_supports_backup() const;
    bool sqlite3drv_supports_encryption() const;
    bool sqlite3drv_supports_profile() const;

    // Text for an engine result: empty for 0, 100 and 101; the connection's
    // own message unless it is "not an error"; else the fixed table.
    QString sqlite3drv_get_error_msg(sqlite3* db, int ErrorCode) const;
    // Raises ESQLiteException with parameter "ErrorCode" when the code has a
    // message.
    void sqlite3drv_check_error_msg(sqlite3* db, int ErrorCode) const;

    // Wrappers that keep FDatabases true. The open wrappers record the
    // handle even when the open failed: SQLite hands back a handle that must
    // still be closed.
    int sqlite3_open(const char* dbName, sqlite3** db);
    int sqlite3_open16(const void* dbName, sqlite3** db);
    int sqlite3_open_v2(const char* dbName, sqlite3** db, int Flags, const char* VFS);
    // Asserts that the handle came from a wrapper before the engine sees it.
    int sqlite3_close(sqlite3* db);
    int sqlite3_initialize();
    int sqlite3_shutdown();

    // Number of connections open through this driver.
    int OpenConnectionCount();

protected:
    // Runs a probe statement on a scratch in-memory database.
    bool ProbeStatement(const char* setup, const char* statement);
    void ClearEntries();
    // Records a handle that an open returned, also after a failed open.
    int TrackOpened(int rc, sqlite3* db);
    // Binds every entry by name from DLLHandle; false at the first missing
    // required one.
    bool BindLibraryEntries();

    std::mutex FLock;                  // guards FDatabases
    std::vector<sqlite3*> FDatabases;  // handles open through this driver

    int (*_sqlite3_initialize)(void) = nullptr;
    int (*_sqlite3_shutdown)(void) = nullptr;
    int (*_sqlite3_open)(const char*, sqlite3**) = nullptr;
    int (*_sqlite3_open16)(const void*, sqlite3**) = nullptr;
    int (*_sqlite3_open_v2)(const char*, sqlite3**, int, const char*) = nullptr;
    int (*_sqlite3_close)(sqlite3*) = nullptr;

    bool FDriverLoaded = false;
    QString FLastLoadError;

public:
    QString DLLFileName;
    void* DLLHandle = nullptr;  // dlopen handle; null for the internal library

    // The entry table. The types are those of the linked sqlite3.h; an
    // outside library must match them, as every SQLite 3 library does.
#define BRINDLE_SQLITE_ENTRY(name) decltype(&::name) name = nullptr;
#include "DLSQLite3Entries.inc"
#undef BRINDLE_SQLITE_ENTRY
    // Encryption entries exist only in libraries built for it, so their
    // types are spelled out here.
    int (*sqlite3_key)(sqlite3*, const void*, int) = nullptr;
    int (*sqlite3_rekey)(sqlite3*, const void*, int) = nullptr;
};

// The process-wide driver: adds the engine's routine table and the
// bookkeeping of automatic extensions.
class TSQLite3Driver : public TSQLite3BaseDriver {
public:
    // Stores itself in SQLite3Driver.
    TSQLite3Driver();
    // Removes the intercepts and releases recorded extension libraries.
    ~TSQLite3Driver() override;

    void sqlite3drv_unload_library() override;
    bool sqlite3drv_load_library(const QString& LibraryName) override;

    // Loads an extension library and registers EntryPoint as an automatic
    // extension. Raises "Could not load library: ..." or "Entry point ...
    // not found in library: ...".
    void sqlite3drv_auto_load_extension(const QString& FileName, const QString& EntryPoint);
    void sqlite3drv_get_auto_entry_points(std::vector<TSQLiteAutoEntryPoint>& Value) const;
    void sqlite3drv_set_auto_entry_points(const std::vector<TSQLiteAutoEntryPoint>& Value);
    // Releases the recorded libraries and empties both arrays, without
    // resetting the engine's registration.
    void sqlite3drv_clear_auto_extensions();
    void sqlite3drv_lock();
    void sqlite3drv_unlock();

    bool FInterceptsInitialized = false;
    std::vector<void*> sqlite3drv_auto_dll_handles;
    std::vector<TSQLiteAutoEntryPoint> sqlite3drv_auto_entry_points;
    // Opaque: handed on to extensions, never read here.
    const ::sqlite3_api_routines* sqlite3_api_routines = nullptr;

private:
    void GetAPIRoutines();
    void InstallIntercepts();
    void UnInstallIntercepts();
};

// The one driver of the process, created before any database object.
extern TSQLite3Driver* SQLite3Driver;
// Serialises loading of libraries and inspection of extensions.
std::recursive_mutex& DriverLock();

// Reports on any library without disturbing the current one. False when the
// library does not load; every exception is swallowed.
bool GetSQLiteDriverCapabilities(const QString& Path, const QString& FileName, QString& Version, bool& FTS3,
                                 bool& FTS4, bool& RTREE, bool& ICU, bool& Encryption, bool& ThreadSafe);
// "<:internal:>" matches only itself; other names compare by file name
// alone, path removed, case-insensitively.
bool SameDriverName(const QString& FileName1, const QString& FileName2);

}  // namespace brindle
