#include "support/TestApplication.h"

#include <QEvent>

#ifdef __SANITIZE_THREAD__

#include <sanitizer/tsan_interface.h>

#include <dlfcn.h>

// Declared in a header of Qt that is not installed with it.
struct QSignalSpyCallbackSet {
    using Begin = void (*)(QObject* caller, int method, void** arguments);
    using End = void (*)(QObject* caller, int method);
    Begin signalBegin;
    Begin slotBegin;
    End signalEnd;
    End slotEnd;
};
void Q_CORE_EXPORT qt_register_signal_spy_callbacks(QSignalSpyCallbackSet* callbacks);

namespace {

char signalsOfAll;  // stands for the queued signals of all senders

void sent(void* channel) {
    __tsan_release(channel);
}

void received(void* channel) {
    __tsan_acquire(channel);
}

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void observeSignals() {
    static QSignalSpyCallbackSet callbacks{[](QObject*, int, void**) { sent(&signalsOfAll); },
                                           nullptr, nullptr, nullptr};
    qt_register_signal_spy_callbacks(&callbacks);
}

}  // namespace

void QCoreApplication::postEvent(QObject* receiver, QEvent* event, int priority) {
    static const auto original = next<void (*)(QObject*, QEvent*, int)>(
        "_ZN16QCoreApplication9postEventEP7QObjectP6QEventi");
    sent(receiver);
    original(receiver, event, priority);
}

bool QMetaObject::invokeMethodImpl(QObject* receiver, QtPrivate::QSlotObjectBase* slot,
                                   Qt::ConnectionType type, void* result) {
    static const auto original =
        next<bool (*)(QObject*, QtPrivate::QSlotObjectBase*, Qt::ConnectionType, void*)>(
            "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14Conne"
            "ctionTypeEPv");
    const bool waits = type == Qt::BlockingQueuedConnection;
    sent(receiver);
    if (waits)
        slot->ref();  // not destroyed before the receiver's use of it is known to be over
    const bool invoked = original(receiver, slot, type, result);
    if (waits) {
        received(receiver);
        slot->destroyIfLastRef();
    }
    return invoked;
}

TestApplication::TestApplication(int& argc, char** argv) : QCoreApplication(argc, argv) {
    observeSignals();
}

bool TestApplication::notify(QObject* receiver, QEvent* event) {
    received(receiver);
    received(&signalsOfAll);
    const bool deferredDelete = event->type() == QEvent::DeferredDelete;
    const bool handled = QCoreApplication::notify(receiver, event);
    if (!deferredDelete)
        sent(receiver);  // to one that waits for the invocation
    return handled;
}

#else

TestApplication::TestApplication(int& argc, char** argv) : QCoreApplication(argc, argv) {
}

bool TestApplication::notify(QObject* receiver, QEvent* event) {
    return QCoreApplication::notify(receiver, event);
}

#endif
