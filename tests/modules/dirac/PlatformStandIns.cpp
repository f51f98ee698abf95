#include "PlatformStandIns.h"

#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/dldsp/Dldsp.h"
#include "sdk/endpoint/Server.h"
#include "sdk/services/SharedLock.h"

#include <sys/shm.h>

#include <algorithm>
#include <stdexcept>

namespace stand_ins {

State& state() {
    static State theState;
    return theState;
}

void reset() {
    state() = State();
}

}  // namespace stand_ins

using stand_ins::state;

// ---- DSP library ----

bool Dldsp::precacheSsFilterData(DiracConfiguration& configuration, unsigned sampleRate,
                                 unsigned numSpeakers, unsigned capacity) {
    state().calculations.push_back({sampleRate, numSpeakers, capacity});
    if (state().failingRate == sampleRate)
        return false;
    const auto rate = static_cast<std::size_t>(
        std::find(kDiracSubSamplerRates.begin(), kDiracSubSamplerRates.end(), sampleRate) -
        kDiracSubSamplerRates.begin());
    configuration.subSamplerSizes.at(rate) = state().size;
    std::fill_n(configuration.subSamplerData.at(rate).begin(), state().size, 'd');
    return true;
}

// ---- Lock ----

class SharedLock::Private {};

SharedLock::SharedLock(const int& /*key*/) {
}
SharedLock::~SharedLock() = default;

bool SharedLock::lock() {
    return state().lockIsAvailable;
}

void SharedLock::unlock() {
}

// ---- Server library ----

namespace {

class StandInServer : public endpoint::Server {
public:
    StandInServer(std::shared_ptr<grpc::Service> service, unsigned short port)
        : service_(std::move(service)), port_(port), number_(++state().serversCreated) {}
    ~StandInServer() override {
        note("destroy ");
        state().segmentExistedAtServersEnd = shmget(1234, 0, 0) >= 0;
    }

    StandInServer(const StandInServer&) = delete;
    StandInServer& operator=(const StandInServer&) = delete;

    void stop() override { note("stop "); }
    unsigned short port() const override { return port_; }

private:
    void note(const std::string& call) {
        state().serverCalls.push_back(call + std::to_string(number_));
    }

    const std::shared_ptr<grpc::Service> service_;
    const unsigned short port_;
    const int number_;
};

}  // namespace

std::unique_ptr<endpoint::Server> endpoint::createServer(std::shared_ptr<grpc::Service> service,
                                                         unsigned short port) {
    state().serverCalls.push_back("create " + std::to_string(port));
    state().service = service;
    if (!state().serverException.empty())
        throw std::runtime_error(state().serverException);
    if (!state().serverStarts)
        return nullptr;
    return std::make_unique<StandInServer>(std::move(service), port);
}

// ---- Configuration tree ----

// The linker gives the module the first of these instead of the second, the platform's own.
extern "C" {
void wrappedSetValue(CMAbstractWorker* root, const CMPath& path, const VeskValue& value, const CMReply<QVariant>& reply) __asm__(
    "__wrap__ZN16CMAbstractWorker8setValueERK6CMPathRK9VeskValueRK7CMReplyI8QVariantE");
void realSetValue(CMAbstractWorker* root, const CMPath& path, const VeskValue& value, const CMReply<QVariant>& reply) __asm__(
    "__real__ZN16CMAbstractWorker8setValueERK6CMPathRK9VeskValueRK7CMReplyI8QVariantE");
}

void wrappedSetValue(CMAbstractWorker* root, const CMPath& path, const VeskValue& value,
                     const CMReply<QVariant>& reply) {
    if (!state().writeException.empty())
        throw std::runtime_error(state().writeException);
    realSetValue(root, path, value, reply);
}
