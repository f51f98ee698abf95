#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <memory>

namespace host {

/// Turns the first SIGINT or SIGTERM into a signal of the object model. A second one ends the
/// process at once, whatever it is doing. Lives in a thread with an event loop; one at a time.
class SignalWatch : public QObject {
    Q_OBJECT

public:
    /// Throws std::system_error when the system refuses the handler.
    SignalWatch();
    /// From now on the signals end the process as usual.
    ~SignalWatch() override;

Q_SIGNALS:
    void endRequested();

private:
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace host
