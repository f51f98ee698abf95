#include "host/Host.h"

#include "host/RoomCorrection.h"
#include "platform/cm/Tree.h"
#include "platform/player/Player.h"

#include <log4cplus/loggingmacros.h>

namespace host {

namespace {

const auto& hostLogger() {
    static const auto logger = log4cplus::Logger::getInstance("veskd");
    return logger;
}

void logCorrection(const std::string& text) {
    LOG4CPLUS_WARN(hostLogger(), "Room correction: " << text);
}

}  // namespace

Host::Host(const platform::DeviceDescription& device, const std::string& controlSocket,
           const std::vector<std::string>& plugins)
    : correction_(std::make_shared<dsp::Processor>(DiracSegment::kKey, logCorrection)),
      platform_(device, std::make_unique<RoomCorrection>(correction_)),
      control_(std::make_unique<ControlServer>(platform_.tree(), controlSocket)) {
    try {
        for (const auto& plugin : plugins) {
            LOG4CPLUS_INFO(hostLogger(), "Starting the worker of " << plugin);
            workers_.push_back(std::make_unique<WorkerThread>(plugin));
        }
    } catch (...) {
        endWorkers();
        throw;
    }
    warnAboutMissingValues();
}

Host::~Host() {
    control_.reset();
    // The module removes the segment when it is the last to leave it.
    correction_->stopFollowing();
    endWorkers();
    LOG4CPLUS_INFO(hostLogger(), "All workers have ended");
}

void Host::play(const std::string& soundFile) {
    PlayLogicInterface::playerInstance()->play(
        platform::fileRoles(QString::fromStdString(soundFile)), false);
}

void Host::warnAboutMissingValues() {
    for (const CMPath& path : platform_.tree().watchedWithoutValue())
        LOG4CPLUS_WARN(hostLogger(),
                       "Nothing provides the watched path " << path.toString().toStdString());
}

/// The last started ends first.
void Host::endWorkers() {
    while (!workers_.empty())
        workers_.pop_back();
}

}  // namespace host
