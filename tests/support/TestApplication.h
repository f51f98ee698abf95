#pragma once

#include <QCoreApplication>

/// The Qt application of a test process.
///
/// Qt is not built for the thread sanitizer, which therefore does not see that posting an event
/// comes before handling it, and would report each use of an event's content. Under the sanitizer
/// this class, and stand-ins for Qt's functions that post, tell it so: per receiver for events and
/// invocations, and over all senders for signals. Races in our own code stay visible.
class TestApplication : public QCoreApplication {
public:
    TestApplication(int& argc, char** argv);

    bool notify(QObject* receiver, QEvent* event) override;
};
