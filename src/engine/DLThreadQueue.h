// Background work in small tasks: a worker thread with a queue of tasks, and
// a pool that spreads tasks over several such queues in turn.
//
// Ownership: a task belongs to its creator until AddTask, then to the queue.
// The worker runs it, and the thread that created the queue (the main thread
// in the program) receives it finished, in the order that worker finished
// them, fires its handler and frees it. Tasks still waiting when a queue
// goes away are freed without running and their handlers never fire.
//
// Threading: queues and pools are created, fed and destroyed on one thread,
// whose event loop delivers the finished tasks. Each task list has its own
// mutex; no code holds two locks at once.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class QEvent;

namespace brindle {

class TThreadQueue;

// One piece of background work. Execute runs on a worker and must not throw
// (an exception is swallowed there); the handler runs on the queue's owning
// thread.
class TThreadTask {
public:
    using TOnTerminate = std::function<void(TThreadTask& Task)>;

    explicit TThreadTask(TOnTerminate OnTerminate = {});
    virtual ~TThreadTask();
    TThreadTask(const TThreadTask&) = delete;
    TThreadTask& operator=(const TThreadTask&) = delete;

    virtual void Execute() {}
    // Fires the handler, if any; an exception from it goes no further.
    void DoOnTerminate();
    // The queue the task was given to; null before.
    TThreadQueue* Queue() const { return FQueue; }

private:
    friend class TThreadQueue;
    TOnTerminate FOnTerminate;
    TThreadQueue* FQueue = nullptr;
    // Made on the owning thread when queued, posted back by the worker.
    std::unique_ptr<QEvent> FFinishedEvent;
};

// A first-in first-out list of tasks under its own mutex. Owns what it holds.
class TTaskList {
public:
    // High priority goes to the front, anything else to the back.
    void Add(std::unique_ptr<TThreadTask> Task, bool HighPriority);
    // The first task, or null when the list is empty.
    std::unique_ptr<TThreadTask> Get();
    bool IsEmpty() const;
    int Count() const;
    // Frees every task held.
    void Clear();

private:
    mutable std::mutex FLock;  // guards FList
    std::deque<std::unique_ptr<TThreadTask>> FList;
};

// A manual-reset event: stays set until Reset.
class TWakeUpEvent {
public:
    void Set();
    void Reset();
    void Wait();

private:
    std::mutex FLock;  // guards FSignaled
    std::condition_variable FChanged;
    bool FSignaled = false;
};

// A worker thread that runs the tasks given to it one at a time.
class TThreadQueue {
public:
    TThreadQueue();
    // Stops the worker if a derived destructor has not already done so.
    virtual ~TThreadQueue();
    TThreadQueue(const TThreadQueue&) = delete;
    TThreadQueue& operator=(const TThreadQueue&) = delete;

    // Starts the worker, after construction, so the worker never sees a
    // half-built object. AddTask does it when it has not been done: a
    // database may hold a pool for hours without ever using it.
    void Start();
    bool Started() const { return FThread.joinable(); }
    // Takes the task and wakes the worker, starting it if need be.
    void AddTask(std::unique_ptr<TThreadTask> Task, bool HighPriority);
    // Asks the worker to stop after the task it is running; waiting tasks
    // will not run. Does not wait.
    virtual void Terminate();
    bool Terminated() const { return FTerminated.load(); }
    // Terminates and waits for the worker, then frees the tasks that are
    // left. Idempotent. A derived class whose Initialize or Finalize uses
    // its own members calls it first in its destructor.
    void Stop();
    // Tasks waiting, running, or finished and not yet delivered.
    int ActiveTasks() const;

protected:
    // On the worker, before the first task and after the last.
    virtual void Initialize() {}
    virtual void Finalize() {}

private:
    class TNotifier;
    void Run();
    void DeliverFinished();

    TTaskList FNewTasks;
    TTaskList FFinishedTasks;
    TWakeUpEvent FWakeUp;
    std::atomic<bool> FTerminated{false};
    std::atomic<int> FRunning{0};
    // Lives on the owning thread; each finished task posts an event to it,
    // and posted events arrive in order.
    std::unique_ptr<TNotifier> FNotify;
    // Cleared when the queue goes away, so a delivery loop whose handler
    // destroyed the queue stops touching it.
    std::shared_ptr<bool> FAlive = std::make_shared<bool>(true);
    std::thread FThread;
};

// Queues that take tasks in turn.
class TThreadPool {
public:
    TThreadPool() = default;
    // Terminates every queue first, then waits for each in turn.
    ~TThreadPool();
    TThreadPool(const TThreadPool&) = delete;
    TThreadPool& operator=(const TThreadPool&) = delete;

    int ThreadCount() const { return static_cast<int>(FThreads.size()); }
    TThreadQueue& Queues(int i) const { return *FThreads[static_cast<size_t>(i)]; }
    int ActiveTasks() const;
    // Takes the queue; it starts with its first task.
    void AddQueue(std::unique_ptr<TThreadQueue> Queue);
    // Gives the task to the next queue in turn. Without queues the task is
    // handed back.
    std::unique_ptr<TThreadTask> AddTask(std::unique_ptr<TThreadTask> Task, bool HighPriority);

private:
    std::vector<std::unique_ptr<TThreadQueue>> FThreads;
    int FCurrent = 0;
};

}  // namespace brindle
