#include "SingleInstance.h"

#include "engine/Exceptions.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFileInfo>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSettings>
#include <QtEndian>

#include <fcntl.h>
#include <semaphore.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

namespace brindle {

namespace {

constexpr int kLockTimeoutMs = 10000;
// How long a first instance may take from making the block to being ready. A
// first instance that ended normally leaves no identity behind, and a start
// that overlaps its end waits this long.
constexpr int kStartingMs = 2000;
constexpr int kParamChars = kInstParamSlot - 1;
// What a second instance sends on the first instance's socket.
constexpr char kNotification[] = "brindle-instance-started\n";
constexpr qsizetype kNotificationSize = sizeof(kNotification) - 1;

TOneInstance* g_Instance = nullptr;

QString CutParam(const QString& Param) {
    if (Param.size() <= kParamChars) return Param;
    // Half a surrogate pair would only turn into a replacement character.
    const qsizetype n = Param.at(kParamChars - 1).isHighSurrogate() ? kParamChars - 1 : kParamChars;
    return Param.left(n);
}

QByteArray NameHash(const QString& FileName) {
    return QCryptographicHash::hash(FileName.toUtf8(), QCryptographicHash::Sha1).toHex();
}

// A POSIX name may hold no slash and has a length limit; other names go by
// their hash.
QByteArray SemaphoreName(const QString& FileName) {
    const bool plain =
        FileName.size() <= 100 && std::all_of(FileName.begin(), FileName.end(), [](QChar c) {
            return (c.unicode() < 128 && c.isLetterOrNumber()) || c == u'.' || c == u'_' || c == u'-';
        });
    const QByteArray base = plain ? FileName.toLatin1() : NameHash(FileName).left(20);
    return "/brindle-" + QByteArray::number(getuid()) + '-' + base + "Sem";
}

// Polls Done until it is true or TimeoutMs have passed; its last answer.
template <typename F>
bool WaitUntil(int TimeoutMs, F Done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(TimeoutMs);
    while (!Done()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

QString ProgramFileName() {
    if (QCoreApplication::instance()) return QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    return QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget()).fileName();
}

}  // namespace

// QSystemSemaphore::acquire() waits without limit, and a second start must
// not hang behind a first instance that hangs; a POSIX named semaphore has a
// timed wait. It counts up to 1, as the record it guards has one writer at a
// time. Not thread-safe.
class TNamedSemaphore {
public:
    // Takes ownership of an open handle.
    explicit TNamedSemaphore(sem_t* Handle) : FHandle(Handle) {}
    ~TNamedSemaphore() { sem_close(FHandle); }
    TNamedSemaphore(const TNamedSemaphore&) = delete;
    TNamedSemaphore& operator=(const TNamedSemaphore&) = delete;

    // Opens the semaphore of that name; with Create, makes it with count 0
    // when absent. Null on failure.
    static std::unique_ptr<TNamedSemaphore> Open(const QByteArray& Name, bool Create) {
        sem_t* handle =
            Create ? sem_open(Name.constData(), O_CREAT, 0600, 0U) : sem_open(Name.constData(), 0);
        if (handle == SEM_FAILED) return nullptr;
        return std::make_unique<TNamedSemaphore>(handle);
    }

    // Takes the count, waiting at most TimeoutMs; false when it did not.
    bool Wait(int TimeoutMs) {
        timespec deadline{};
        clock_gettime(CLOCK_REALTIME, &deadline);
        deadline.tv_sec += TimeoutMs / 1000;
        deadline.tv_nsec += static_cast<long>(TimeoutMs % 1000) * 1000000L;
        if (deadline.tv_nsec >= 1000000000L) {
            deadline.tv_sec += 1;
            deadline.tv_nsec -= 1000000000L;
        }
        while (sem_timedwait(FHandle, &deadline) != 0)
            if (errno != EINTR) return false;
        return true;
    }

    // Gives the count back; a count of 1 stays 1.
    void Release() {
        int value = 0;
        if (sem_getvalue(FHandle, &value) == 0 && value > 0) return;
        sem_post(FHandle);
    }

    // Brings the count to 0, whatever an earlier owner left.
    void Drain() {
        while (sem_trywait(FHandle) == 0) {
        }
    }

private:
    sem_t* FHandle;
};

// ---------------------------------------------------------------------------
// The record

QByteArray PackInstInfo(const TInstInfo& Info) {
    QByteArray bytes(kInstInfoSize, '\0');
    char* data = bytes.data();
    const int count = static_cast<int>(std::min<qsizetype>(Info.Params.size(), kInstMaxParams));
    qToLittleEndian<quint32>(Info.FirstInstanceWnd, data);
    qToLittleEndian<qint32>(count, data + 4);
    for (int i = 0; i < count; ++i) {
        const QString param = CutParam(Info.Params.at(i));
        char* slot = data + kInstParamsOffset + i * kInstParamSlot * 2;
        for (qsizetype j = 0; j < param.size(); ++j)
            qToLittleEndian<quint16>(param.at(j).unicode(), slot + j * 2);
    }
    return bytes;
}

TInstInfo UnpackInstInfo(QByteArrayView Bytes) {
    if (Bytes.size() < kInstInfoSize)
        throw ECustomException(
            QStringLiteral("The instance record is too short: %1 bytes").arg(Bytes.size()));
    const char* data = Bytes.data();
    TInstInfo info;
    info.FirstInstanceWnd = qFromLittleEndian<quint32>(data);
    const int count = std::clamp(qFromLittleEndian<qint32>(data + 4), 0, kInstMaxParams);
    for (int i = 0; i < count; ++i) {
        const char* slot = data + kInstParamsOffset + i * kInstParamSlot * 2;
        QString param;
        for (int j = 0; j < kParamChars; ++j) {
            const quint16 unit = qFromLittleEndian<quint16>(slot + j * 2);
            if (unit == 0) break;
            param.append(QChar(unit));
        }
        info.Params << param;
    }
    return info;
}

// ---------------------------------------------------------------------------
// TOneInstance

TOneInstance::TOneInstance(const QStringList& Params, const QString& FileName) : FParams(Params) {
    if (g_Instance)
        throw ECustomException(QStringLiteral("Drop only one of these components on your form !"));
    FFileName = FileName.isEmpty() ? ProgramFileName() : FileName;
    FSemaphoreName = SemaphoreName(FFileName);
    g_Instance = this;
}

TOneInstance::~TOneInstance() {
    if (FIsFirst) {
        // From here on a new start finds nobody listening and takes over at once.
        FServer.reset();
        const uint32_t self = static_cast<uint32_t>(getpid());
        if (FMemory.isAttached() && ReadInfo().FirstInstanceWnd == self) {
            WriteIdentity(0);
            sem_unlink(FSemaphoreName.constData());
        }
    }
    FSemaphore.reset();
    FMemory.detach();
    g_Instance = nullptr;
}

QString TOneInstance::MemoryKey(const QString& FileName) {
    return QStringLiteral("brindle-%1-%2").arg(getuid()).arg(FileName);
}

QString TOneInstance::ServerName(uint32_t Pid) const {
    return QStringLiteral("brindle-%1-%2-%3")
        .arg(getuid())
        .arg(QString::fromLatin1(NameHash(FFileName).left(8)))
        .arg(Pid);
}

bool TOneInstance::Init() {
    if (FInitDone) throw ECustomException(QStringLiteral("The single instance is set up already"));
    FInitDone = true;
    AttachMemory();
    if (FCreatedMemory) {
        BecomeFirst(false);
        return false;
    }

    // A first instance that has just made the block makes the semaphore and
    // writes its identity a moment later; starts at the same time (several
    // files opened at once) must not all become first instances.
    const bool opened = WaitUntil(kStartingMs, [this] {
        FSemaphore = TNamedSemaphore::Open(FSemaphoreName, false);
        return FSemaphore != nullptr;
    });
    if (!opened || !FSemaphore->Wait(kLockTimeoutMs)) {
        BecomeFirst(false);
        return false;
    }
    // The record is ours until the first instance releases the semaphore.
    WriteParams(FParams);
    WaitUntil(kStartingMs, [this] { return ReadInfo().FirstInstanceWnd != 0; });
    // A first instance that crashed leaves the block and the semaphore
    // behind, and nobody answers on its socket: no need to wait for it.
    if (!Notify(ReadInfo().FirstInstanceWnd)) {
        BecomeFirst(true);
        return false;
    }
    // Returns when the first instance has read the arguments. When it hangs,
    // this process starts instead, so that the arguments are not lost.
    if (!FSemaphore->Wait(kLockTimeoutMs)) {
        BecomeFirst(true);
        return false;
    }
    FSemaphore->Release();
    FSemaphore.reset();
    FMemory.detach();
    if (!FUseHaltToExit && QCoreApplication::instance())
        QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit,
                                  Qt::QueuedConnection);
    return true;
}

void TOneInstance::AttachMemory() {
    FMemory.setKey(MemoryKey(FFileName));
    // Qt guards the block with a lock of its own, which the process that made
    // it takes away on leaving; starts that overlap then fail now and then.
    // The block itself vanishes between a failed create and the attach when
    // its last user detaches just then. A few rounds settle both.
    for (int round = 0; round < 20; ++round) {
        if (round > 0) std::this_thread::sleep_for(std::chrono::milliseconds(5 + round));
        if (FMemory.create(kInstInfoSize)) {
            FCreatedMemory = true;
            std::memset(FMemory.data(), 0, kInstInfoSize);
            return;
        }
        if (FMemory.error() == QSharedMemory::PermissionDenied) break;
        if (FMemory.error() != QSharedMemory::AlreadyExists || !FMemory.attach()) continue;
        if (FMemory.size() >= kInstInfoSize) return;
        FMemory.detach();
        throw ECustomException(QStringLiteral("The shared memory block %1 is too small").arg(FMemory.key()));
    }
    throw ECustomException(QStringLiteral("Unable to create shared memory: %1").arg(FMemory.errorString()));
}

void TOneInstance::BecomeFirst(bool HoldingLock) {
    try {
        StartListener();
    } catch (...) {
        // The next start must not wait for a lock nobody will give back.
        if (HoldingLock) FSemaphore->Release();
        throw;
    }
    // A process that holds the lock keeps it until its identity is in the
    // record, so that the next second start finds this process.
    if (!HoldingLock) {
        FSemaphore.reset();
        FSemaphore = TNamedSemaphore::Open(FSemaphoreName, true);
        if (!FSemaphore) throw ECustomException(QStringLiteral("Unable to create semaphore"));
        FSemaphore->Drain();
    }
    WriteIdentity(static_cast<uint32_t>(getpid()));
    FIsFirst = true;
    FSemaphore->Release();
}

void TOneInstance::StartListener() {
    FServer = std::make_unique<QLocalServer>();
    FServer->setSocketOptions(QLocalServer::UserAccessOption);
    const QString name = ServerName(static_cast<uint32_t>(getpid()));
    // A killed process that had this id before left its socket file.
    QLocalServer::removeServer(name);
    if (!FServer->listen(name))
        throw ECustomException(
            QStringLiteral("Unable to create the instance listener: %1").arg(FServer->errorString()));
    QObject::connect(FServer.get(), &QLocalServer::newConnection, FServer.get(), [this] {
        while (QLocalSocket* socket = FServer->nextPendingConnection()) {
            // One notification per connection; anything else is dropped.
            auto received = std::make_shared<QByteArray>();
            auto check = [this, socket, received] {
                if (received->size() >= kNotificationSize) return;
                *received += socket->readAll();
                if (received->size() < kNotificationSize) return;
                socket->disconnectFromServer();
                if (received->startsWith(kNotification)) HandleNotification();
            };
            QObject::connect(socket, &QLocalSocket::readyRead, socket, check);
            QObject::connect(socket, &QLocalSocket::disconnected, socket, check);
            QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            check();
        }
    });
}

bool TOneInstance::Notify(uint32_t FirstInstanceWnd) {
    if (FirstInstanceWnd == 0) return false;
    const QString name = ServerName(FirstInstanceWnd);
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(kLockTimeoutMs)) {
        // Refused: the socket file of a killed first instance.
        if (socket.error() == QLocalSocket::ConnectionRefusedError) QLocalServer::removeServer(name);
        return false;
    }
    socket.write(kNotification, kNotificationSize);
    while (socket.bytesToWrite() > 0)
        if (!socket.waitForBytesWritten(kLockTimeoutMs)) return false;
    return true;
}

void TOneInstance::HandleNotification() {
    // The second instance waits until this process releases the semaphore,
    // whatever the handlers do.
    struct TReleaser {
        TNamedSemaphore* Semaphore;
        ~TReleaser() {
            if (Semaphore) Semaphore->Release();
        }
    } releaser{FSemaphore.get()};
    const QStringList params = ReadInfo().Params;
    // An exception must not cross the event loop that delivered the
    // notification.
    try {
        InstanceStarted(params);
    } catch (const std::exception& e) {
        qWarning("Handing over the arguments of a new instance failed: %s", e.what());
    }
}

void TOneInstance::InstanceStarted(const QStringList& Params) {
    if (FShowOnNewInstance && FOnShowApplication) FOnShowApplication();
    if (FOnInstanceStarted) FOnInstanceStarted(Params);
}

TInstInfo TOneInstance::ReadInfo() const {
    return UnpackInstInfo(QByteArrayView(static_cast<const char*>(FMemory.constData()), kInstInfoSize));
}

void TOneInstance::WriteIdentity(uint32_t FirstInstanceWnd) {
    qToLittleEndian<quint32>(FirstInstanceWnd, FMemory.data());
}

void TOneInstance::WriteParams(const QStringList& Params) {
    // The identity is for first instances to write.
    const QByteArray bytes = PackInstInfo({0, Params});
    std::memcpy(static_cast<char*>(FMemory.data()) + 4, bytes.constData() + 4, kInstInfoSize - 4);
}

// ---------------------------------------------------------------------------
// TSingleInstance

TSingleInstance::TSingleInstance(const QStringList& Params, const QString& FileName)
    : FInstance(Params, FileName) {
    FInstance.FUseHaltToExit = true;
    FInstance.FOnInstanceStarted = [](const QStringList& List) { InstParams().append(QStringList(List)); };
}

QList<QStringList>& InstParams() {
    static QList<QStringList> list;
    return list;
}

bool ReadSingleInstanceOption(QSettings& Settings) {
    bool ok = false;
    const int value = Settings.value(QStringLiteral("Settings/SingleInstance")).toInt(&ok);
    return ok && value != 0;
}

namespace {

std::unique_ptr<TSingleInstance>& SingleInstanceHolder() {
    static std::unique_ptr<TSingleInstance> holder;
    return holder;
}

// Before the application object is gone, so that the listener closes while
// its event dispatcher still exists.
void DropSingleInstance() {
    SingleInstanceHolder().reset();
}

}  // namespace

bool InitSingleInstance(QSettings& Settings, const QStringList& Params, const QString& FileName) {
    if (!ReadSingleInstanceOption(Settings)) return false;
    std::unique_ptr<TSingleInstance>& holder = SingleInstanceHolder();
    holder = std::make_unique<TSingleInstance>(Params, FileName);
    try {
        if (QCoreApplication::instance()) qAddPostRoutine(DropSingleInstance);
        return holder->Init();
    } catch (...) {
        holder.reset();
        throw;
    }
}

TSingleInstance* SingleInstance() {
    return SingleInstanceHolder().get();
}

}  // namespace brindle
