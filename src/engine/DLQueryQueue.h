// Small queries on background connections: a queue whose worker holds its
// own read-only connection to a database file, and tasks that run one
// statement there. The object tree counts table rows this way without
// touching the main connection.
//
// Threading: as in DLThreadQueue.h. A query task reads its connection only
// on the worker; its result is read on the owning thread after delivery.
#pragma once

#include "DLThreadQueue.h"

#include <QString>
#include <QVariant>
#include <chrono>
#include <mutex>

struct sqlite3;

namespace brindle {

// A task with a statement to run on its queue's connection.
class TBaseQueryTask : public TThreadTask {
public:
    TBaseQueryTask(const QString& SQL, TOnTerminate OnTerminate = {});
    const QString& SQL() const { return FSQL; }
    // The connection of the query queue the task runs on; null on any other
    // queue, before the task is queued, or when the file did not open.
    sqlite3* DB() const;

protected:
    QString FSQL;
};

// Runs its statement and keeps the first column of the first row: a 64-bit
// integer, a double or a string; null for anything else and for every
// failure. A database busy with a writer is retried for a while.
class TQueryTask : public TBaseQueryTask {
public:
    using TBaseQueryTask::TBaseQueryTask;

    void Execute() override;
    const QVariant& Result() const { return FResult; }

protected:
    QVariant FResult;
    // Busy or locked: wait, then try again, this many times at most; the
    // default gives a writer ten seconds.
    int FBusyRetries = 100;
    std::chrono::milliseconds FBusyWait{100};
};

// A queue with a read-only connection of its own to one database file,
// opened and closed on the worker. Terminate also interrupts the statement
// that runs, so that closing a database never waits for a long count.
class TQueryQueue : public TThreadQueue {
public:
    TQueryQueue(const QString& DBFileName, const QString& EncryptionKey);
    ~TQueryQueue() override;

    void Terminate() override;
    // The worker's connection; on the worker only.
    sqlite3* DB();

protected:
    // Failures stay silent: the connection may stay null or fail later.
    void Initialize() override;
    void Finalize() override;

private:
    static int ProgressCallback(void* Queue);

    const QString FDBFileName;
    const QString FEncryptionKey;
    // A key binds to the salt at the head of the file when it is set, so a
    // connection keyed while a new file was still empty reads nothing that
    // is written later. Worker only.
    bool FKeyedEmptyFile = false;
    // Written on the worker under FDBLock, so that Terminate on the owning
    // thread interrupts a connection that is still open.
    std::mutex FDBLock;
    sqlite3* FDB = nullptr;
};

}  // namespace brindle
