#include "support/WorkerThread.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QThread>

#include <deque>
#include <future>
#include <mutex>

namespace {

/// Runs in its own thread what is given to it in any.
class TaskRunner : public QObject {
public:
    void post(std::packaged_task<void()> task) {
        {
            const std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    }

    bool event(QEvent* event) override {
        if (event->type() != QEvent::User)
            return QObject::event(event);
        take()();
        return true;
    }

private:
    std::packaged_task<void()> take() {
        const std::lock_guard lock(mutex_);
        std::packaged_task<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        return task;
    }

    std::mutex mutex_;
    std::deque<std::packaged_task<void()>> tasks_;  // guarded by mutex_
};

}  // namespace

class WorkerThread::Private {
public:
    Private() {
        runner_.moveToThread(&thread_);
        thread_.start();
    }

    ~Private() {
        thread_.quit();
        thread_.wait();
    }

    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;

    void run(const std::function<void()>& task) {
        std::packaged_task<void()> packaged(task);
        std::future<void> done = packaged.get_future();
        runner_.post(std::move(packaged));
        done.get();
    }

private:
    TaskRunner runner_;
    QThread thread_;
};

WorkerThread::WorkerThread() : private_(std::make_unique<Private>()) {
}

WorkerThread::~WorkerThread() = default;

void WorkerThread::run(const std::function<void()>& task) {
    private_->run(task);
}
