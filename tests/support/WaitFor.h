#pragma once

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <chrono>

/// Long enough for a loaded machine under a sanitizer; a test that fails is the only one to see it.
constexpr std::chrono::seconds kPatience{20};

/// Runs the event loop of the calling thread until `condition` holds. False: the time ran out.
template <typename Condition>
bool processEventsUntil(const Condition& condition, std::chrono::milliseconds timeout = kPatience) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    QTimer tick;  // wakes the loop for conditions that another thread makes true
    tick.start(2);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

/// Runs the event loop of the calling thread until no event is left.
inline void processAllEvents() {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    QCoreApplication::sendPostedEvents();
}
