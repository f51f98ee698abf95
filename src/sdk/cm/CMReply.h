#pragma once

#include "sdk/cm/CMError.h"

#include <QVariant>

#include <limits>
#include <memory>

/// The answer to one request: finished once, by setValue() or setError(), from any thread.
///
/// A default-constructed reply is empty: nobody awaits the answer, and answering it does nothing.
/// create() makes one that can be waited for. Copies share the same answer.
class CMVoidReply {
public:
    CMVoidReply() = default;

    bool isEmpty() const { return !state_; }
    bool isFinished() const;

    /// Blocks the calling thread until the answer is there; false when the time ran out.
    /// Must not be called in the thread that has to answer. An empty reply is finished at once.
    bool waitForFinished(
        unsigned long milliseconds = std::numeric_limits<unsigned long>::max()) const;

    /// The error of a failed request; one with an empty name otherwise.
    CMError error() const;

    /// Finishes the request as failed. The first answer counts, later ones are ignored.
    void setError(const CMError& error) const;

protected:
    struct State;

    void createState();
    void promise(const CMError& otherwise);
    QVariant answer() const;
    void setAnswer(const QVariant& value) const;

private:
    std::shared_ptr<State> state_;
    std::shared_ptr<void> promise_;
};

/// A reply that carries a value of type T when the request succeeded.
template <typename T>
class CMReply : public CMVoidReply {
public:
    CMReply() = default;

    /// A reply that can be waited for.
    static CMReply create() {
        CMReply reply;
        reply.createState();
        return reply;
    }

    /// The reply for whoever has to answer: when its last copy is dropped unanswered, the request
    /// fails with `otherwise`, so that nobody waits for ever.
    CMReply promised(const CMError& otherwise) const {
        CMReply reply = *this;
        reply.promise(otherwise);
        return reply;
    }

    T value() const { return answer().template value<T>(); }
    void setValue(const T& value) const { setAnswer(QVariant::fromValue(value)); }
};

/// A request's answer is itself a QVariant, which may be invalid: "done, nothing to say".
template <>
inline QVariant CMReply<QVariant>::value() const {
    return answer();
}

template <>
inline void CMReply<QVariant>::setValue(const QVariant& value) const {
    setAnswer(value);
}
