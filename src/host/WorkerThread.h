#pragma once

#include <QThread>
#include <QVariantHash>

#include <future>
#include <memory>
#include <string>

class CMAbstractWorker;

namespace host {

/// A worker plug-in in a thread of its own: the worker is made, run and destroyed there.
class WorkerThread : private QThread {
public:
    /// What a plug-in exports as worker_create.
    using EntryPoint = CMAbstractWorker*(void*, const QVariantHash&);

    /// Loads the plug-in and returns when its worker is made and the thread's event loop runs.
    /// Throws std::runtime_error, naming the plug-in, when it cannot be loaded or makes no worker.
    explicit WorkerThread(const std::string& plugin);

    /// Destroys the worker and ends the thread. The plug-in stays loaded: what it registered with
    /// the process has no end of its own.
    ~WorkerThread() override;

private:
    void run() override;
    void runWorker();
    std::unique_ptr<CMAbstractWorker> makeWorker() const;

    const std::string plugin_;
    EntryPoint* const create_;
    std::promise<void> started_;
};

}  // namespace host
