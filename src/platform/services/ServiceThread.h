#pragma once

#include <QThread>

#include <functional>
#include <latch>

namespace platform {

/// A worker of the platform itself in a thread of its own, for as long as the object exists. The
/// worker's nodes are in the tree when the constructor returns, and have left it when the
/// destructor returns.
template <typename Worker>
class ServiceThread final : public QThread {
public:
    /// `makeWorker` is called with no arguments in the thread and returns the worker.
    template <typename MakeWorker>
    ServiceThread(const QString& name, MakeWorker makeWorker)
        : body_([this, makeWorker] {
              Worker worker = makeWorker();
              ready_.count_down();
              exec();
          }) {
        setObjectName(name);
        start();
        ready_.wait();
    }

    ~ServiceThread() override {
        quit();
        finished_.wait();
        wait();
    }

    ServiceThread(const ServiceThread&) = delete;
    ServiceThread& operator=(const ServiceThread&) = delete;

protected:
    void run() override {
        body_();
        finished_.count_down();
    }

private:
    std::latch ready_{1};
    // Orders the end of the thread before the destruction, as wait() alone does, but in sight of
    // the thread sanitizer.
    std::latch finished_{1};
    const std::function<void()> body_;
};

}  // namespace platform
