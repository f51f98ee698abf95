#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace grpc {
class Service;
}

/// Stand-ins for parts of the platform that cannot be made to fail from outside: the DSP library,
/// the lock between processes, the calibration server library and writes to the tree. A test that
/// links them uses them instead of the platform's own.
namespace stand_ins {

/// One call of the DSP library.
struct Calculation {
    unsigned sampleRate{0};
    unsigned numSpeakers{0};
    unsigned capacity{0};
};

/// What the stand-ins do, and what they were asked for. Set and read while the device is quiet.
struct State {
    // The DSP library: each rate gives `size` bytes, but for one that fails.
    std::vector<Calculation> calculations;
    std::optional<unsigned> failingRate;
    unsigned size{16};

    // The lock.
    bool lockIsAvailable{true};

    // The server library: "create 5002", "stop 1", "destroy 1", in order; servers count from 1.
    std::vector<std::string> serverCalls;
    bool serverStarts{true};
    std::string serverException;  // thrown by a start unless empty
    int serversCreated{0};
    bool segmentExistedAtServersEnd{false};
    std::weak_ptr<grpc::Service> service;  // of the last server

    // Writes to the tree.
    std::string writeException;  // thrown by each unless empty
};

State& state();
/// As new.
void reset();

}  // namespace stand_ins
