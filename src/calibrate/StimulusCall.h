#pragma once

#include "calibrate/EndpointStream.h"
#include "calibrate/Errors.h"

#include <chrono>
#include <memory>
#include <thread>
#include <utility>

namespace calibrate {

/// A call during which a device plays a stimulus. When it is ended from here, the destructor waits
/// until the device is quiet again: it takes that long to put back its player and its correction,
/// does not tell when it is done, and would mix up the next stimulus with this one.
template <class Message>
class StimulusCall final : public EndpointStream<Message> {
public:
    using Event = typename EndpointStream<Message>::Event;

    explicit StimulusCall(std::unique_ptr<EndpointStream<Message>> stream)
        : stream_(std::move(stream)) {}

    ~StimulusCall() override {
        if (!playing_)
            return;
        stream_.reset();
        std::this_thread::sleep_for(kUntilQuiet);
    }

    Event read(Message& message, std::chrono::milliseconds patience) override {
        try {
            const Event event = stream_->read(message, patience);
            playing_ = event != Event::end;
            return event;
        } catch (const DeviceError&) {
            playing_ = false;
            throw;
        }
    }

private:
    /// What is on its way to the speakers, 1.5 s of silence, and some time to tidy up.
    static constexpr std::chrono::milliseconds kUntilQuiet{2500};

    std::unique_ptr<EndpointStream<Message>> stream_;
    bool playing_{true};
};

}  // namespace calibrate
