#include "host/WorkerThread.h"

#include "sdk/cm/CMAbstractWorker.h"

#include <QFileInfo>
#include <QTimer>

#include <dlfcn.h>

#include <stdexcept>

namespace host {

namespace {

constexpr const char* kEntryPoint = "worker_create";

[[noreturn]] void failToLoad(const std::string& plugin) {
    const char* const reason = dlerror();
    throw std::runtime_error(plugin + ": cannot be loaded as a worker plug-in: " +
                             (reason != nullptr ? reason : "unknown error"));
}

WorkerThread::EntryPoint* loadPlugin(const std::string& plugin) {
    void* const handle = dlopen(plugin.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
        failToLoad(plugin);
    void* const entryPoint = dlsym(handle, kEntryPoint);
    if (entryPoint == nullptr)
        failToLoad(plugin);
    return reinterpret_cast<WorkerThread::EntryPoint*>(entryPoint);
}

}  // namespace

WorkerThread::WorkerThread(const std::string& plugin)
    : plugin_(plugin), create_(loadPlugin(plugin)) {
    setObjectName(QFileInfo(QString::fromStdString(plugin)).baseName());
    auto started = started_.get_future();
    start();
    try {
        started.get();
    } catch (...) {
        wait();
        throw;
    }
}

WorkerThread::~WorkerThread() {
    quit();
    wait();
}

void WorkerThread::run() {
    try {
        runWorker();
    } catch (...) {
        started_.set_exception(std::current_exception());
    }
}

std::unique_ptr<CMAbstractWorker> WorkerThread::makeWorker() const {
    try {
        std::unique_ptr<CMAbstractWorker> worker(create_(nullptr, {}));
        if (!worker)
            throw std::runtime_error(std::string(kEntryPoint) + " has returned no worker");
        return worker;
    } catch (const std::exception& error) {
        throw std::runtime_error(plugin_ + ": the worker cannot be made: " + error.what());
    }
}

void WorkerThread::runWorker() {
    const auto worker = makeWorker();
    // A quit() before the event loop runs would be lost.
    QTimer::singleShot(0, [this] { started_.set_value(); });
    exec();
}

}  // namespace host
