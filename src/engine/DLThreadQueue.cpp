#include "DLThreadQueue.h"

#include "Assert.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>

namespace brindle {

namespace {

const QEvent::Type kTaskFinished = static_cast<QEvent::Type>(QEvent::registerEventType());

}  // namespace

// Receives the finished-task events on the owning thread. The events are
// made there too, when a task is queued, so the worker hands over nothing
// but a pointer: the exchange stays visible to race detectors even though
// the event queue itself is in an uninstrumented library.
class TThreadQueue::TNotifier : public QObject {
public:
    explicit TNotifier(TThreadQueue* Queue) : FQueue(Queue) {}
    bool event(QEvent* e) override {
        if (e->type() != kTaskFinished) return QObject::event(e);
        // May destroy this object; nothing is touched afterwards.
        FQueue->DeliverFinished();
        return true;
    }

private:
    TThreadQueue* FQueue;  // the owner
};

// ---------------------------------------------------------------------------
// TThreadTask

TThreadTask::TThreadTask(TOnTerminate OnTerminate) : FOnTerminate(std::move(OnTerminate)) {}

TThreadTask::~TThreadTask() = default;

void TThreadTask::DoOnTerminate() {
    if (!FOnTerminate) return;
    try {
        FOnTerminate(*this);
    } catch (...) {
        // A failing handler must not stop the delivery of the other tasks.
    }
}

// ---------------------------------------------------------------------------
// TTaskList

void TTaskList::Add(std::unique_ptr<TThreadTask> Task, bool HighPriority) {
    std::lock_guard<std::mutex> g(FLock);
    if (HighPriority)
        FList.push_front(std::move(Task));
    else
        FList.push_back(std::move(Task));
}

std::unique_ptr<TThreadTask> TTaskList::Get() {
    std::lock_guard<std::mutex> g(FLock);
    if (FList.empty()) return nullptr;
    std::unique_ptr<TThreadTask> task = std::move(FList.front());
    FList.pop_front();
    return task;
}

bool TTaskList::IsEmpty() const {
    std::lock_guard<std::mutex> g(FLock);
    return FList.empty();
}

int TTaskList::Count() const {
    std::lock_guard<std::mutex> g(FLock);
    return static_cast<int>(FList.size());
}

void TTaskList::Clear() {
    std::deque<std::unique_ptr<TThreadTask>> dropped;
    {
        std::lock_guard<std::mutex> g(FLock);
        dropped.swap(FList);
    }
    // Freed outside the lock: a task's destructor is foreign code.
}

// ---------------------------------------------------------------------------
// TWakeUpEvent

void TWakeUpEvent::Set() {
    {
        std::lock_guard<std::mutex> g(FLock);
        FSignaled = true;
    }
    FChanged.notify_all();
}

void TWakeUpEvent::Reset() {
    std::lock_guard<std::mutex> g(FLock);
    FSignaled = false;
}

void TWakeUpEvent::Wait() {
    std::unique_lock<std::mutex> g(FLock);
    FChanged.wait(g, [this] { return FSignaled; });
}

// ---------------------------------------------------------------------------
// TThreadQueue

TThreadQueue::TThreadQueue() : FNotify(std::make_unique<TNotifier>(this)) {}

TThreadQueue::~TThreadQueue() {
    Stop();
    *FAlive = false;
}

void TThreadQueue::Start() {
    BRINDLE_ASSERT(!Started() && !Terminated(), "queue started twice");
    FThread = std::thread(&TThreadQueue::Run, this);
}

void TThreadQueue::AddTask(std::unique_ptr<TThreadTask> Task, bool HighPriority) {
    Task->FQueue = this;
    Task->FFinishedEvent = std::make_unique<QEvent>(kTaskFinished);
    FNewTasks.Add(std::move(Task), HighPriority);
    if (!Started() && !Terminated()) Start();
    FWakeUp.Set();
}

void TThreadQueue::Terminate() {
    FTerminated = true;
    FWakeUp.Set();
}

void TThreadQueue::Stop() {
    Terminate();
    if (FThread.joinable()) FThread.join();
    FNewTasks.Clear();
    FFinishedTasks.Clear();
}

int TThreadQueue::ActiveTasks() const {
    return FNewTasks.Count() + FRunning.load() + FFinishedTasks.Count();
}

void TThreadQueue::Run() {
    try {
        Initialize();
    } catch (...) {
        // A worker without its setup still drains its list; tasks see that.
    }
    while (!Terminated()) {
        FWakeUp.Wait();
        FWakeUp.Reset();
        while (!Terminated()) {
            ++FRunning;
            std::unique_ptr<TThreadTask> task = FNewTasks.Get();
            if (!task) {
                --FRunning;
                break;
            }
            try {
                task->Execute();
            } catch (...) {
                // Tasks catch their own failures; one that does not still
                // comes back, so its owner hears of it.
            }
            QEvent* finished = task->FFinishedEvent.release();
            FFinishedTasks.Add(std::move(task), false);
            --FRunning;
            // FNotify outlives the worker: the destructor joins first. Qt
            // frees the event, also when FNotify goes with it undelivered.
            QCoreApplication::postEvent(FNotify.get(), finished);
        }
    }
    try {
        Finalize();
    } catch (...) {
    }
}

void TThreadQueue::DeliverFinished() {
    // A handler may destroy this queue (closing its database, say); the
    // token tells the loop to stop touching it.
    const std::shared_ptr<bool> alive = FAlive;
    while (*alive) {
        std::unique_ptr<TThreadTask> task = FFinishedTasks.Get();
        if (!task) break;
        task->DoOnTerminate();
    }
}

// ---------------------------------------------------------------------------
// TThreadPool

TThreadPool::~TThreadPool() {
    // All workers are told first, so they wind down side by side.
    for (auto& q : FThreads) q->Terminate();
    FThreads.clear();
}

int TThreadPool::ActiveTasks() const {
    int n = 0;
    for (const auto& q : FThreads) n += q->ActiveTasks();
    return n;
}

void TThreadPool::AddQueue(std::unique_ptr<TThreadQueue> Queue) {
    FThreads.push_back(std::move(Queue));
}

std::unique_ptr<TThreadTask> TThreadPool::AddTask(std::unique_ptr<TThreadTask> Task, bool HighPriority) {
    if (FThreads.empty()) return Task;
    FThreads[static_cast<size_t>(FCurrent)]->AddTask(std::move(Task), HighPriority);
    FCurrent = (FCurrent + 1) % ThreadCount();
    return nullptr;
}

}  // namespace brindle
