#include "DLQueryQueue.h"

#include "DLSQLite3API.h"

#include <QFileInfo>
#include <thread>

namespace brindle {

namespace {

// Virtual-machine instructions between two looks at the terminate flag.
constexpr int kTerminateCheckPeriod = 1000;

bool isBusy(int rc) {
    const int primary = rc & 0xff;
    return primary == SQLITE_BUSY || primary == SQLITE_LOCKED;
}

// Finalizes the statement however Execute is left.
class TStatement {
public:
    explicit TStatement(TSQLite3Driver& Driver) : FDriver(Driver) {}
    ~TStatement() {
        if (FStmt) FDriver.sqlite3_finalize(FStmt);
    }
    TStatement(const TStatement&) = delete;
    TStatement& operator=(const TStatement&) = delete;
    sqlite3_stmt*& ref() { return FStmt; }
    sqlite3_stmt* get() const { return FStmt; }

private:
    TSQLite3Driver& FDriver;
    sqlite3_stmt* FStmt = nullptr;
};

}  // namespace

// ---------------------------------------------------------------------------
// TBaseQueryTask

TBaseQueryTask::TBaseQueryTask(const QString& SQL, TOnTerminate OnTerminate)
    : TThreadTask(std::move(OnTerminate)), FSQL(SQL) {}

sqlite3* TBaseQueryTask::DB() const {
    auto* queue = dynamic_cast<TQueryQueue*>(Queue());
    return queue ? queue->DB() : nullptr;
}

// ---------------------------------------------------------------------------
// TQueryTask

void TQueryTask::Execute() {
    sqlite3* db = DB();
    if (!db || !SQLite3Driver) return;
    TSQLite3Driver& drv = *SQLite3Driver;
    // A writer that holds the file shows up as busy, when the schema is read
    // at prepare as well as at the step; both wait for it alike.
    int retries = 0;
    auto mayRetry = [&](int rc) {
        if (!isBusy(rc) || retries >= FBusyRetries || Queue()->Terminated()) return false;
        ++retries;
        std::this_thread::sleep_for(FBusyWait);
        return true;
    };

    TStatement stmt(drv);
    int rc;
    do {
        rc = drv.sqlite3_prepare16_v2(db, FSQL.utf16(), -1, &stmt.ref(), nullptr);
    } while (mayRetry(rc));
    if (rc != SQLITE_OK || !stmt.get()) return;

    rc = drv.sqlite3_step(stmt.get());
    while (mayRetry(rc)) {
        drv.sqlite3_reset(stmt.get());
        rc = drv.sqlite3_step(stmt.get());
    }
    if (rc != SQLITE_ROW) return;
    switch (drv.sqlite3_column_type(stmt.get(), 0)) {
        case SQLITE_INTEGER:
            FResult = static_cast<qint64>(drv.sqlite3_column_int64(stmt.get(), 0));
            break;
        case SQLITE_FLOAT:
            FResult = drv.sqlite3_column_double(stmt.get(), 0);
            break;
        case SQLITE_TEXT: {
            const void* text = drv.sqlite3_column_text16(stmt.get(), 0);
            const int bytes = drv.sqlite3_column_bytes16(stmt.get(), 0);
            FResult = QString::fromUtf16(static_cast<const char16_t*>(text), bytes / 2);
            break;
        }
        default:
            break;
    }
    drv.sqlite3_step(stmt.get());
}

// ---------------------------------------------------------------------------
// TQueryQueue

TQueryQueue::TQueryQueue(const QString& DBFileName, const QString& EncryptionKey)
    : FDBFileName(DBFileName), FEncryptionKey(EncryptionKey) {}

TQueryQueue::~TQueryQueue() {
    // Finalize must run while this object's members still exist.
    Stop();
}

sqlite3* TQueryQueue::DB() {
    if (FKeyedEmptyFile && QFileInfo(FDBFileName).size() > 0) {
        Finalize();
        Initialize();
    }
    return FDB;
}

void TQueryQueue::Terminate() {
    TThreadQueue::Terminate();
    std::lock_guard<std::mutex> g(FDBLock);
    if (FDB && SQLite3Driver) SQLite3Driver->sqlite3_interrupt(FDB);
}

int TQueryQueue::ProgressCallback(void* Queue) {
    // Catches a statement that began just after the interrupt was sent.
    return static_cast<TQueryQueue*>(Queue)->Terminated() ? 1 : 0;
}

void TQueryQueue::Initialize() {
    FKeyedEmptyFile = false;
    if (!SQLite3Driver) return;
    TSQLite3Driver& drv = *SQLite3Driver;
    sqlite3* db = nullptr;
    const QByteArray name = FDBFileName.toUtf8();
    drv.sqlite3_open_v2(name.constData(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (db && !FEncryptionKey.isEmpty() && drv.sqlite3_key) {
        FKeyedEmptyFile = QFileInfo(FDBFileName).size() == 0;
        const QByteArray key = FEncryptionKey.toLocal8Bit();
        drv.sqlite3_key(db, key.constData(), static_cast<int>(key.size()));
    }
    if (db) drv.sqlite3_progress_handler(db, kTerminateCheckPeriod, &TQueryQueue::ProgressCallback, this);
    std::lock_guard<std::mutex> g(FDBLock);
    FDB = db;
}

void TQueryQueue::Finalize() {
    sqlite3* db = nullptr;
    {
        std::lock_guard<std::mutex> g(FDBLock);
        std::swap(db, FDB);
    }
    // Closed outside the lock: the driver's wrapper takes its own.
    if (db && SQLite3Driver) SQLite3Driver->sqlite3_close(db);
}

}  // namespace brindle
