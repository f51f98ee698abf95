#pragma once

#include "dsp/Engine.h"

#include <atomic>
#include <memory>

namespace dsp {

/// Takes engines to the audio thread and back, where they are made and destroyed. One thread on
/// either side; the audio thread neither waits nor allocates.
class EngineHandover {
public:
    EngineHandover() = default;
    ~EngineHandover() { clear(); }
    EngineHandover(const EngineHandover&) = delete;
    EngineHandover& operator=(const EngineHandover&) = delete;

    /// The next engine; it takes the place of one that has not been taken yet.
    void offer(std::unique_ptr<Engine> engine) { destroy(offered_.exchange(engine.release())); }

    /// Destroys what the audio thread has given back.
    void reclaim() { destroy(retired_.exchange(nullptr)); }

    /// Destroys both.
    void clear() {
        destroy(offered_.exchange(nullptr));
        reclaim();
    }

    /// In the audio thread: the next engine, or null. There is none until the last one that was
    /// given back is gone, so that retire() always has a place.
    std::unique_ptr<Engine> take() noexcept {
        if (retired_.load(std::memory_order_acquire) != nullptr)
            return nullptr;
        return std::unique_ptr<Engine>(offered_.exchange(nullptr));
    }

    /// In the audio thread, once for each engine taken.
    void retire(std::unique_ptr<Engine> engine) noexcept {
        retired_.store(engine.release(), std::memory_order_release);
    }

private:
    static void destroy(Engine* engine) { const std::unique_ptr<Engine> owner(engine); }

    std::atomic<Engine*> offered_{nullptr};
    std::atomic<Engine*> retired_{nullptr};
};

}  // namespace dsp
