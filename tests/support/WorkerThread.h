#pragma once

#include <functional>
#include <memory>

/// A thread with an event loop, for a worker to live in.
class WorkerThread {
public:
    WorkerThread();
    /// Ends the event loop; what has not run yet is dropped.
    ~WorkerThread();
    WorkerThread(const WorkerThread&) = delete;
    WorkerThread& operator=(const WorkerThread&) = delete;

    /// Runs `task` there, behind all events that are already waiting, and waits until it has run.
    void run(const std::function<void()>& task);

private:
    class Private;
    const std::unique_ptr<Private> private_;
};
