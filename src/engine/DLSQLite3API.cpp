#include "DLSQLite3API.h"

#include "Assert.h"
#include "Exceptions.h"

#include <QFileInfo>
#include <algorithm>
#include <dlfcn.h>
#include <memory>

namespace brindle {

TSQLite3Driver* SQLite3Driver = nullptr;

namespace {

// The process-wide driver exists before any database object; its
// constructor publishes it in SQLite3Driver. No library is loaded until the
// program chooses one.
TSQLite3Driver GlobalDriver;

// The table's own entries while the intercepts stand in their places.
decltype(&::sqlite3_auto_extension) saved_sqlite3_auto_extension = nullptr;
decltype(&::sqlite3_reset_auto_extension) saved_sqlite3_reset_auto_extension = nullptr;

// Outside libraries bind their own symbols first, so that a second SQLite
// in the process never resolves into ours. The sanitizer runtimes refuse
// RTLD_DEEPBIND, so sanitizer builds go without it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kDlopenFlags = RTLD_NOW | RTLD_LOCAL;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr int kDlopenFlags = RTLD_NOW | RTLD_LOCAL;
#else
constexpr int kDlopenFlags = RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND;
#endif
#else
constexpr int kDlopenFlags = RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND;
#endif

QString lastDlError() {
    const char* e = dlerror();
    return e ? QString::fromLocal8Bit(e) : QString();
}

const char* const kErrorTexts[] = {
    "SQL error or missing database",
    "An internal logic error in SQLite",
    "Access permission denied",
    "Callback routine requested an abort",
    "The database file is locked",
    "A table in the database is locked",
    "A malloc() failed",
    "Attempt to write a readonly database",
    "Operation terminated by sqlite_interrupt()",
    "Some kind of disk I/O error occurred",
    "The database disk image is malformed",
    "Table or record not found",
    "Insertion failed because database is full",
    "Unable to open the database file",
    "Database lock protocol error",
    "Database is empty",
    "The database schema changed",
    "String or BLOB exceeds size limit",
    "Abort due to constraint violation",
    "Data type mismatch",
    "Library used incorrectly",
    "Uses OS features not supported on host",
    "Authorization denied",
    "Auxiliary database format error",
    "Second parameter to sqlite3_bind out of range",
    "File is encrypted or not a database",
};

// Called by the engine during the open in GetAPIRoutines; keeps the routine
// table that the engine hands to extensions.
int captureApiRoutines(sqlite3*, char**, const ::sqlite3_api_routines* api) {
    if (SQLite3Driver) SQLite3Driver->sqlite3_api_routines = api;
    return 0;
}

// Stand-ins for the two registration entries: forward, and record what was
// registered so that the program knows every automatic extension.
int interceptAutoExtension(void (*entry)(void)) {
    int rc = saved_sqlite3_auto_extension ? saved_sqlite3_auto_extension(entry) : SQLITE_MISUSE;
    if (SQLite3Driver) SQLite3Driver->sqlite3drv_auto_entry_points.push_back(entry);
    return rc;
}

void interceptResetAutoExtension() {
    if (saved_sqlite3_reset_auto_extension) saved_sqlite3_reset_auto_extension();
    if (SQLite3Driver) SQLite3Driver->sqlite3drv_auto_entry_points.clear();
}

template <typename T>
bool bindSymbol(void* handle, const char* name, T& slot) {
    slot = reinterpret_cast<T>(dlsym(handle, name));
    return slot != nullptr;
}

}  // namespace

std::recursive_mutex& DriverLock() {
    static std::recursive_mutex lock;
    return lock;
}

// ---------------------------------------------------------------------------
// TSQLite3BaseDriver

TSQLite3BaseDriver::TSQLite3BaseDriver() = default;

TSQLite3BaseDriver::~TSQLite3BaseDriver() {
    {
        std::lock_guard<std::mutex> g(FLock);
        if (!FDatabases.empty()) ReportAssertionFailure("connections left open", __FILE__, __LINE__);
    }
    // Only the entry table goes; the engine itself is process-wide and may
    // still serve another driver object on the same library.
    if (DLLHandle) dlclose(DLLHandle);
    DLLHandle = nullptr;
}

void TSQLite3BaseDriver::ClearEntries() {
    _sqlite3_initialize = nullptr;
    _sqlite3_shutdown = nullptr;
    _sqlite3_open = nullptr;
    _sqlite3_open16 = nullptr;
    _sqlite3_open_v2 = nullptr;
    _sqlite3_close = nullptr;
#define BRINDLE_SQLITE_ENTRY(name) name = nullptr;
#include "DLSQLite3Entries.inc"
#undef BRINDLE_SQLITE_ENTRY
    sqlite3_key = nullptr;
    sqlite3_rekey = nullptr;
}

void TSQLite3BaseDriver::sqlite3drv_unload_library() {
    if (FDriverLoaded) sqlite3_shutdown();
    if (DLLHandle) {
        dlclose(DLLHandle);
        DLLHandle = nullptr;
    }
    ClearEntries();
    FDriverLoaded = false;
}

bool TSQLite3BaseDriver::BindLibraryEntries() {
    void* h = DLLHandle;
    // One short-circuit chain: the first missing required name ends it.
    bool ok = bindSymbol(h, "sqlite3_initialize", _sqlite3_initialize) &&
              bindSymbol(h, "sqlite3_shutdown", _sqlite3_shutdown) &&
              bindSymbol(h, "sqlite3_close", _sqlite3_close) && bindSymbol(h, "sqlite3_open", _sqlite3_open) &&
              bindSymbol(h, "sqlite3_open16", _sqlite3_open16) &&
              bindSymbol(h, "sqlite3_open_v2", _sqlite3_open_v2)
#define BRINDLE_SQLITE_ENTRY(name) &&bindSymbol(h, #name, name)
#define BRINDLE_SQLITE_OPTIONAL(name)
#include "DLSQLite3Entries.inc"
#undef BRINDLE_SQLITE_OPTIONAL
#undef BRINDLE_SQLITE_ENTRY
        ;
    if (!ok) FLastLoadError = lastDlError();
    // Optional entries bind whatever the chain found; a missing one stays null.
    bindSymbol(h, "sqlite3_backup_init", sqlite3_backup_init);
    bindSymbol(h, "sqlite3_backup_step", sqlite3_backup_step);
    bindSymbol(h, "sqlite3_backup_finish", sqlite3_backup_finish);
    bindSymbol(h, "sqlite3_backup_remaining", sqlite3_backup_remaining);
    bindSymbol(h, "sqlite3_backup_pagecount", sqlite3_backup_pagecount);
    bindSymbol(h, "sqlite3_key", sqlite3_key);
    bindSymbol(h, "sqlite3_rekey", sqlite3_rekey);
    bindSymbol(h, "sqlite3_profile", sqlite3_profile);
    return ok;
}

bool TSQLite3BaseDriver::sqlite3drv_load_library(const QString& LibraryName) {
    // The same name, in any case, reloads nothing. An unloaded driver keeps
    // its old name, so the test asks for a loaded table too.
    if (LibraryName.compare(DLLFileName, Qt::CaseInsensitive) == 0 && FDriverLoaded) return true;
    sqlite3drv_unload_library();
    FLastLoadError.clear();

    if (LibraryName == SQLITE_INTERNAL_LIB) {
        sqlite3drv_load_internal();
        sqlite3_initialize();
        FDriverLoaded = true;
        return true;
    }

    dlerror();
    DLLHandle = dlopen(LibraryName.toLocal8Bit().constData(), kDlopenFlags);
    if (!DLLHandle) {
        FLastLoadError = lastDlError();
        return false;
    }
    if (BindLibraryEntries()) {
        DLLFileName = LibraryName;
        // The flag goes first so that a later unload shuts the engine down.
        FDriverLoaded = true;
        sqlite3_initialize();
        return true;
    }
    sqlite3drv_unload_library();
    return false;
}

void TSQLite3BaseDriver::sqlite3drv_load_internal() {
    if (DLLFileName != SQLITE_INTERNAL_LIB) sqlite3drv_unload_library();
    DLLHandle = nullptr;
    DLLFileName = SQLITE_INTERNAL_LIB;
    _sqlite3_initialize = &::sqlite3_initialize;
    _sqlite3_shutdown = &::sqlite3_shutdown;
    _sqlite3_open = &::sqlite3_open;
    _sqlite3_open16 = &::sqlite3_open16;
    _sqlite3_open_v2 = &::sqlite3_open_v2;
    _sqlite3_close = &::sqlite3_close;
#define BRINDLE_SQLITE_ENTRY(name) name = &::name;
#include "DLSQLite3Entries.inc"
#undef BRINDLE_SQLITE_ENTRY
    sqlite3_key = nullptr;
    sqlite3_rekey = nullptr;
    FDriverLoaded = true;
}

bool TSQLite3BaseDriver::sqlite3drv_driver_present() const {
    if (!sqlite3_libversion) return false;
    const char* v = sqlite3_libversion();
    return v && *v;
}

QString TSQLite3BaseDriver::sqlite3drv_libversion() const {
    if (!sqlite3_libversion) return {};
    return QString::fromUtf8(sqlite3_libversion());
}

bool TSQLite3BaseDriver::ProbeStatement(const char* setup, const char* statement) {
    if (!FDriverLoaded || !_sqlite3_open || !sqlite3_exec) return false;
    sqlite3* db = nullptr;
    const int rc = sqlite3_open(":memory:", &db);
    bool result = false;
    if (rc == SQLITE_OK) {
        if (setup) sqlite3_exec(db, setup, nullptr, nullptr, nullptr);
        result = sqlite3_exec(db, statement, nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    if (db) sqlite3_close(db);
    return result;
}

bool TSQLite3BaseDriver::sqlite3drv_supports_fts3() {
    return ProbeStatement(nullptr, "create virtual table test using fts3(a, b, c)");
}

bool TSQLite3BaseDriver::sqlite3drv_supports_fts4() {
    return ProbeStatement(nullptr, "create virtual table test using fts4(a, b, c)");
}

bool TSQLite3BaseDriver::sqlite3drv_supports_rtree() {
    return ProbeStatement(nullptr, "create virtual table test using rtree(a, b, c)");
}

bool TSQLite3BaseDriver::sqlite3drv_supports_icu() {
    return ProbeStatement(nullptr, "SELECT icu_load_collation('pl_PL', 'POLISH');");
}

bool TSQLite3BaseDriver::sqlite3drv_supports_without_rowid() {
    return ProbeStatement(nullptr, "create table test (a integer primary key) without rowid");
}

bool TSQLite3BaseDriver::sqlite3drv_supports_partial_indexes() {
    return ProbeStatement("create table test (a integer)", "create index ix on test(a) where a > 0");
}

bool TSQLite3BaseDriver::sqlite3drv_supports_backup() const {
    return sqlite3_backup_init && sqlite3_backup_step && sqlite3_backup_finish && sqlite3_backup_remaining &&
           sqlite3_backup_pagecount;
}

bool TSQLite3BaseDriver::sqlite3drv_supports_encryption() const { return sqlite3_key && sqlite3_rekey; }

bool TSQLite3BaseDriver::sqlite3drv_supports_profile() const { return sqlite3_profile != nullptr; }

QString TSQLite3BaseDriver::sqlite3drv_get_error_msg(sqlite3* db, int ErrorCode) const {
    if (ErrorCode == SQLITE_ROW || ErrorCode == SQLITE_DONE) return {};
    QString msg;
    if (db && sqlite3_errmsg) {
        msg = QString::fromUtf8(sqlite3_errmsg(db));
        if (msg.compare(QLatin1String("not an error"), Qt::CaseInsensitive) == 0) msg.clear();
    }
    if (msg.isEmpty()) {
        if (ErrorCode == 0) return {};
        if (ErrorCode >= 1 && ErrorCode <= 26) return QString::fromLatin1(kErrorTexts[ErrorCode - 1]);
        return QStringLiteral("Unknown error, code %1").arg(ErrorCode);
    }
    return msg;
}

void TSQLite3BaseDriver::sqlite3drv_check_error_msg(sqlite3* db, int ErrorCode) const {
    if (ErrorCode == 0) return;
    const QString msg = sqlite3drv_get_error_msg(db, ErrorCode);
    if (!msg.isEmpty()) throw ESQLiteException(msg, QStringLiteral("ErrorCode"), QString::number(ErrorCode));
}

int TSQLite3BaseDriver::TrackOpened(int rc, sqlite3* db) {
    if (db) {
        std::lock_guard<std::mutex> g(FLock);
        FDatabases.push_back(db);
    }
    return rc;
}

int TSQLite3BaseDriver::sqlite3_open(const char* dbName, sqlite3** db) {
    *db = nullptr;
    if (!_sqlite3_open) return SQLITE_MISUSE;
    const int rc = _sqlite3_open(dbName, db);  // the handle exists only after the call
    return TrackOpened(rc, *db);
}

int TSQLite3BaseDriver::sqlite3_open16(const void* dbName, sqlite3** db) {
    *db = nullptr;
    if (!_sqlite3_open16) return SQLITE_MISUSE;
    const int rc = _sqlite3_open16(dbName, db);  // the handle exists only after the call
    return TrackOpened(rc, *db);
}

int TSQLite3BaseDriver::sqlite3_open_v2(const char* dbName, sqlite3** db, int Flags, const char* VFS) {
    *db = nullptr;
    if (!_sqlite3_open_v2) return SQLITE_MISUSE;
    const int rc = _sqlite3_open_v2(dbName, db, Flags, VFS);  // the handle exists only after the call
    return TrackOpened(rc, *db);
}

int TSQLite3BaseDriver::sqlite3_close(sqlite3* db) {
    {
        std::lock_guard<std::mutex> g(FLock);
        auto it = std::find(FDatabases.begin(), FDatabases.end(), db);
        BRINDLE_ASSERT(it != FDatabases.end(), "handle not opened through the driver");
        if (it == FDatabases.end()) return SQLITE_MISUSE;
        FDatabases.erase(it);
    }
    return _sqlite3_close ? _sqlite3_close(db) : SQLITE_MISUSE;
}

int TSQLite3BaseDriver::sqlite3_initialize() {
    {
        std::lock_guard<std::mutex> g(FLock);
        BRINDLE_ASSERT(FDatabases.empty(), "library changed while a database is open");
    }
    return _sqlite3_initialize ? _sqlite3_initialize() : SQLITE_MISUSE;
}

int TSQLite3BaseDriver::sqlite3_shutdown() {
    {
        std::lock_guard<std::mutex> g(FLock);
        BRINDLE_ASSERT(FDatabases.empty(), "library changed while a database is open");
    }
    return _sqlite3_shutdown ? _sqlite3_shutdown() : SQLITE_MISUSE;
}

int TSQLite3BaseDriver::OpenConnectionCount() {
    std::lock_guard<std::mutex> g(FLock);
    return static_cast<int>(FDatabases.size());
}

// ---------------------------------------------------------------------------
// TSQLite3Driver

TSQLite3Driver::TSQLite3Driver() { SQLite3Driver = this; }

TSQLite3Driver::~TSQLite3Driver() {
    UnInstallIntercepts();
    sqlite3drv_clear_auto_extensions();
    // A driver made beside the process one hands the role back.
    if (SQLite3Driver == this) SQLite3Driver = (this == &GlobalDriver) ? nullptr : &GlobalDriver;
}

void TSQLite3Driver::sqlite3drv_unload_library() {
    UnInstallIntercepts();
    TSQLite3BaseDriver::sqlite3drv_unload_library();
}

bool TSQLite3Driver::sqlite3drv_load_library(const QString& LibraryName) {
    if (LibraryName.compare(DLLFileName, Qt::CaseInsensitive) == 0 && FDriverLoaded) return true;
    std::lock_guard<std::recursive_mutex> g(DriverLock());
    const bool result = TSQLite3BaseDriver::sqlite3drv_load_library(LibraryName);
    if (result) {
        SQLite3Driver = this;
        // The handles go first, so the clear below releases nothing: a
        // library registered with the engine being replaced stays mapped.
        sqlite3drv_auto_dll_handles.clear();
        sqlite3drv_clear_auto_extensions();
        GetAPIRoutines();
        InstallIntercepts();
    }
    return result;
}

void TSQLite3Driver::GetAPIRoutines() {
    sqlite3_api_routines = nullptr;
    sqlite3_auto_extension(reinterpret_cast<TSQLiteAutoEntryPoint>(&captureApiRoutines));
    sqlite3* db = nullptr;
    sqlite3_open_v2(":memory:", &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_FULLMUTEX, nullptr);
    BRINDLE_ASSERT(sqlite3_api_routines, "no routine table");
    if (db) sqlite3_close(db);
    sqlite3_reset_auto_extension();
}

void TSQLite3Driver::InstallIntercepts() {
    saved_sqlite3_auto_extension = sqlite3_auto_extension;
    saved_sqlite3_reset_auto_extension = sqlite3_reset_auto_extension;
    sqlite3_auto_extension = &interceptAutoExtension;
    sqlite3_reset_auto_extension = &interceptResetAutoExtension;
    FInterceptsInitialized = true;
}

void TSQLite3Driver::UnInstallIntercepts() {
    FInterceptsInitialized = false;
    if (saved_sqlite3_auto_extension) {
        sqlite3_auto_extension = saved_sqlite3_auto_extension;
        saved_sqlite3_auto_extension = nullptr;
    }
    if (saved_sqlite3_reset_auto_extension) {
        sqlite3_reset_auto_extension = saved_sqlite3_reset_auto_extension;
        saved_sqlite3_reset_auto_extension = nullptr;
    }
}

void TSQLite3Driver::sqlite3drv_auto_load_extension(const QString& FileName, const QString& EntryPoint) {
    dlerror();
    void* h = dlopen(FileName.toLocal8Bit().constData(), RTLD_NOW | RTLD_LOCAL);
    if (!h) {
        throw ECustomException(QStringLiteral("Could not load library: ") + FileName + QStringLiteral("\r\n") +
                               lastDlError());
    }
    void* entry = dlsym(h, EntryPoint.toUtf8().constData());
    if (!entry) {
        dlclose(h);
        throw ECustomException(QStringLiteral("Entry point ") + EntryPoint +
                               QStringLiteral(" not found in library: ") + FileName);
    }
    sqlite3_auto_extension(reinterpret_cast<TSQLiteAutoEntryPoint>(entry));
    sqlite3drv_auto_dll_handles.push_back(h);
}

void TSQLite3Driver::sqlite3drv_get_auto_entry_points(std::vector<TSQLiteAutoEntryPoint>& Value) const {
    Value = sqlite3drv_auto_entry_points;
}

void TSQLite3Driver::sqlite3drv_set_auto_entry_points(const std::vector<TSQLiteAutoEntryPoint>& Value) {
    // Copied first: the reset empties the recorded array, which may be Value.
    const std::vector<TSQLiteAutoEntryPoint> entries = Value;
    sqlite3_reset_auto_extension();
    for (TSQLiteAutoEntryPoint e : entries) sqlite3_auto_extension(e);
}

void TSQLite3Driver::sqlite3drv_clear_auto_extensions() {
    for (void* h : sqlite3drv_auto_dll_handles) dlclose(h);
    sqlite3drv_auto_dll_handles.clear();
    sqlite3drv_auto_entry_points.clear();
}

void TSQLite3Driver::sqlite3drv_lock() { DriverLock().lock(); }

void TSQLite3Driver::sqlite3drv_unlock() { DriverLock().unlock(); }

// ---------------------------------------------------------------------------

bool SameDriverName(const QString& FileName1, const QString& FileName2) {
    if (FileName1 == SQLITE_INTERNAL_LIB) return FileName2 == SQLITE_INTERNAL_LIB;
    if (FileName2 == SQLITE_INTERNAL_LIB) return false;
    return QFileInfo(FileName1).fileName().compare(QFileInfo(FileName2).fileName(), Qt::CaseInsensitive) == 0;
}

bool GetSQLiteDriverCapabilities(const QString& Path, const QString& FileName, QString& Version, bool& FTS3,
                                 bool& FTS4, bool& RTREE, bool& ICU, bool& Encryption, bool& ThreadSafe) {
    Version.clear();
    FTS3 = FTS4 = RTREE = ICU = Encryption = ThreadSafe = false;
    bool result = false;
    try {
        QString fullName;
        if (FileName == SQLITE_INTERNAL_LIB) {
            fullName = FileName;
        } else {
            fullName = Path;
            if (!fullName.isEmpty() && !fullName.endsWith(u'/')) fullName += u'/';
            fullName += FileName;
        }
        TSQLite3BaseDriver* driver = nullptr;
        std::unique_ptr<TSQLite3BaseDriver> temporary;
        if (SQLite3Driver && SameDriverName(FileName, SQLite3Driver->DLLFileName)) {
            driver = SQLite3Driver;  // not owned
            result = driver->sqlite3drv_loaded();
        } else {
            temporary = std::make_unique<TSQLite3BaseDriver>();
            driver = temporary.get();
            if (fullName == SQLITE_INTERNAL_LIB) {
                driver->sqlite3drv_load_internal();
                result = true;
            } else {
                result = driver->sqlite3drv_load_library(fullName);
            }
        }
        if (result) {
            Version = driver->sqlite3drv_libversion();
            FTS3 = driver->sqlite3drv_supports_fts3();
            FTS4 = driver->sqlite3drv_supports_fts4();
            RTREE = driver->sqlite3drv_supports_rtree();
            ICU = driver->sqlite3drv_supports_icu();
            Encryption = driver->sqlite3drv_supports_encryption();
            ThreadSafe = driver->sqlite3_threadsafe && driver->sqlite3_threadsafe() != 0;
        }
    } catch (...) {
    }
    return result;
}

}  // namespace brindle
