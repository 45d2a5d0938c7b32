// One running program per user and program file: a second start hands its
// command-line arguments to the first instance and ends before any window
// exists.
//
// The two processes meet in a named shared memory block holding one
// TInstInfo record, guarded by a named semaphore. The first instance listens
// on a local socket; a second instance writes its arguments into the record,
// notifies the listener and waits until the first instance has read them.
//
// Threading: everything here belongs to the main thread. The first instance
// receives notifications through that thread's event loop.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QSharedMemory>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <functional>
#include <memory>

class QLocalServer;
class QSettings;

namespace brindle {

// The record in the shared memory block, as bytes: FirstInstanceWnd
// (unsigned 32 bit) at 0, ParamCount (signed 32 bit) at 4, then
// kInstMaxParams slots of kInstParamSlot UTF-16 units from 8, each argument
// NUL-terminated inside its slot. All little-endian.
constexpr int kInstMaxParams = 10;
constexpr int kInstParamSlot = 301;  // UTF-16 units, the NUL included
constexpr int kInstParamsOffset = 8;
constexpr int kInstInfoSize = kInstParamsOffset + kInstMaxParams * kInstParamSlot * 2;  // 6028

struct TInstInfo {
    // The first instance's process id; its listener's name derives from it.
    // 0: no first instance.
    uint32_t FirstInstanceWnd = 0;
    QStringList Params;
};

// The record's bytes, kInstInfoSize of them. Only the first kInstMaxParams
// arguments are kept, each cut to kInstParamSlot - 1 units (one unit fewer
// where the cut would split a surrogate pair).
QByteArray PackInstInfo(const TInstInfo& Info);
// Reads a record back. A ParamCount below 0 gives no arguments, one above
// kInstMaxParams gives kInstMaxParams; a slot without NUL gives its first
// kInstParamSlot - 1 units. Raises ECustomException when Bytes is shorter
// than kInstInfoSize.
TInstInfo UnpackInstInfo(QByteArrayView Bytes);

class TNamedSemaphore;

// The hand-over mechanism. At most one exists per process.
// Owns the shared memory mapping, the listener and the semaphore; releases
// them on destruction, and a first instance that ends normally also clears
// its identity from the record and removes the semaphore's name.
class TOneInstance {
public:
    // Params: the command-line arguments without the program. FileName names
    // the meeting place; empty means the running program's bare file name.
    // Raises ECustomException when another TOneInstance exists.
    explicit TOneInstance(const QStringList& Params, const QString& FileName = QString());
    ~TOneInstance();
    TOneInstance(const TOneInstance&) = delete;
    TOneInstance& operator=(const TOneInstance&) = delete;

    // Meets the other instances; call once, with a QCoreApplication in
    // existence. True when this process is a second instance whose arguments
    // the first has read: the caller must end now. False when this process is
    // the first instance and goes on starting; it is then listening. Waits up
    // to 2 s for a first instance that is just starting, up to 10 s for a
    // locked semaphore and up to 10 s for the first instance to read, and
    // becomes the first instance itself when a wait fails or the first
    // instance is gone. Raises ECustomException when the shared memory, the
    // listener or the semaphore cannot be made.
    bool Init();

    bool IsFirstInstance() const { return FIsFirst; }
    const QString& FileName() const { return FFileName; }

    // Called on the first instance for every hand-over, on the main thread:
    // the show hook first (with FShowOnNewInstance), then FOnInstanceStarted.
    void InstanceStarted(const QStringList& Params);

    // The shared memory key of a meeting place; per user, so that two users of
    // one machine never meet.
    static QString MemoryKey(const QString& FileName);

    bool FShowOnNewInstance = true;
    // True: a second instance's caller ends the process itself as soon as
    // Init returns true. False: Init also asks a running event loop to quit.
    bool FUseHaltToExit = false;
    // Restores the application window and brings it to the front; may be
    // empty.
    std::function<void()> FOnShowApplication;
    // Receives the arguments of each second start; may be empty.
    std::function<void(const QStringList&)> FOnInstanceStarted;

private:
    void AttachMemory();
    void BecomeFirst(bool HoldingLock);
    void StartListener();
    bool Notify(uint32_t FirstInstanceWnd);
    void HandleNotification();
    TInstInfo ReadInfo() const;
    void WriteIdentity(uint32_t FirstInstanceWnd);
    void WriteParams(const QStringList& Params);
    QString ServerName(uint32_t Pid) const;

    QStringList FParams;
    QString FFileName;
    QByteArray FSemaphoreName;
    QSharedMemory FMemory;
    bool FCreatedMemory = false;
    bool FInitDone = false;
    bool FIsFirst = false;
    std::unique_ptr<QLocalServer> FServer;
    std::unique_ptr<TNamedSemaphore> FSemaphore;
};

// The program's single-instance object: hands the arguments of later starts
// to InstParams().
class TSingleInstance {
public:
    // As TOneInstance; FUseHaltToExit is set.
    explicit TSingleInstance(const QStringList& Params, const QString& FileName = QString());

    // As TOneInstance::Init.
    bool Init() { return FInstance.Init(); }
    TOneInstance& OneInstance() { return FInstance; }

private:
    TOneInstance FInstance;
};

// Argument lists handed over by later starts, oldest first; the main window
// takes them when idle. Main thread only.
QList<QStringList>& InstParams();

// The option "SingleInstance" of group "Settings", stored as 0 or 1. Absent,
// or not a number: false.
bool ReadSingleInstanceOption(QSettings& Settings);

// With the option on, creates the process's TSingleInstance (kept until the
// application object or the process ends) and runs its Init; returns true
// when the process must end now. With the option off, creates nothing and
// returns false. Params and FileName as for TOneInstance. Raises as Init; the
// object is then dropped.
bool InitSingleInstance(QSettings& Settings, const QStringList& Params, const QString& FileName = QString());

// The process's TSingleInstance; null unless InitSingleInstance made one.
TSingleInstance* SingleInstance();

}  // namespace brindle
