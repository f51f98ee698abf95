#include "modules/dirac/StandInMicrophone.h"

#include "sdk/alsa/AlsaInputDevice.h"

#include <chrono>
#include <thread>

StandInMicrophone& StandInMicrophone::instance() {
    static StandInMicrophone microphone;
    return microphone;
}

template <typename Change>
void StandInMicrophone::change(const Change& change) {
    {
        const std::lock_guard lock(mutex_);
        change(state_);
    }
    changed_.notify_all();
}

void StandInMicrophone::reset() {
    change([](State& state) { state = State(); });
}

// ---- The device ----

void StandInMicrophone::refuseToOpen() {
    change([](State& state) { state.opens = false; });
}

void StandInMicrophone::deliver(const QByteArray& block) {
    change([&](State& state) { state.blocks.push_back(block); });
}

void StandInMicrophone::deliverSilence() {
    change([](State& state) { state.silent = true; });
}

void StandInMicrophone::unplug() {
    change([](State& state) { state.unplugged = true; });
}

void StandInMicrophone::setSizes(int bytesPerSample, int channels) {
    change([&](State& state) {
        state.bytesPerSample = bytesPerSample;
        state.channels = channels;
    });
}

std::vector<StandInMicrophone::Setup> StandInMicrophone::devicesMade() const {
    const std::lock_guard lock(mutex_);
    return state_.made;
}

int StandInMicrophone::openDevices() const {
    const std::lock_guard lock(mutex_);
    return state_.open;
}

std::vector<int> StandInMicrophone::reads() const {
    const std::lock_guard lock(mutex_);
    return state_.reads;
}

void StandInMicrophone::made(const Setup& setup) {
    change([&](State& state) {
        state.made.push_back(setup);
        ++state.open;
    });
}

void StandInMicrophone::gone() {
    change([](State& state) { --state.open; });
}

bool StandInMicrophone::open() {
    const std::lock_guard lock(mutex_);
    return state_.opens;
}

bool StandInMicrophone::read(QByteArray& block, int frames) {
    std::unique_lock lock(mutex_);
    state_.reads.push_back(frames);
    // As a device does, it gives something now and then whatever happens.
    const bool isReady = changed_.wait_for(lock, std::chrono::milliseconds(20), [this] {
        return !state_.blocks.empty() || state_.silent || state_.unplugged;
    });
    if (!state_.blocks.empty()) {
        block = state_.blocks.front();
        state_.blocks.pop_front();
        return true;
    }
    if (isReady && state_.unplugged)
        return false;
    block = QByteArray(frames * state_.bytesPerSample * state_.channels, '\0');
    return true;
}

int StandInMicrophone::bytesPerSample() const {
    const std::lock_guard lock(mutex_);
    return state_.bytesPerSample;
}

int StandInMicrophone::channels() const {
    const std::lock_guard lock(mutex_);
    return state_.channels;
}

// ---- The power manager ----

void StandInMicrophone::refuse(const QString& why) {
    change([&](State& state) { state.refusal = why; });
}

void StandInMicrophone::answerNothing() {
    change([](State& state) { state.answers = false; });
}

std::vector<std::string> StandInMicrophone::requests() const {
    const std::lock_guard lock(mutex_);
    return state_.requests;
}

void StandInMicrophone::take(const VeskPowerManagerResourceRequest& request,
                             const CMReply<QVariant>& reply) {
    const std::string action =
        request.action() == VeskPowerModuleActions::Acquire ? "acquire " : "release ";
    const std::lock_guard lock(mutex_);
    state_.requests.push_back(action + request.moduleName().toStdString() + " " +
                              std::to_string(request.resource()));
    if (!state_.answers)
        return;
    if (state_.refusal.isEmpty())
        reply.setValue(true);
    else
        reply.setError(CMError(state_.refusal));
}

// ---- In the place of the platform ----

class AlsaInputDevice::Private {};

AlsaInputDevice::AlsaInputDevice(const QString& name, int sampleRate, unsigned channels,
                                 snd_pcm_format_t format, int periodMilliseconds,
                                 int bufferMilliseconds) {
    StandInMicrophone::instance().made({name.toStdString(), sampleRate, channels,
                                        format == SND_PCM_FORMAT_S32_LE ? "S32_LE" : "another",
                                        periodMilliseconds, bufferMilliseconds});
}

AlsaInputDevice::~AlsaInputDevice() {
    StandInMicrophone::instance().gone();
}

bool AlsaInputDevice::open() {
    return StandInMicrophone::instance().open();
}

int AlsaInputDevice::bytesPerSample() const {
    return StandInMicrophone::instance().bytesPerSample();
}

int AlsaInputDevice::channels() const {
    return StandInMicrophone::instance().channels();
}

bool AlsaInputDevice::read(QByteArray& data, int frames) {
    return StandInMicrophone::instance().read(data, frames);
}
