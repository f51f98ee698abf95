#include "host/Host.h"

#include "platform/cm/Tree.h"
#include "platform/player/Player.h"

#include <log4cplus/loggingmacros.h>

namespace host {

namespace {

const auto& hostLogger() {
    static const auto logger = log4cplus::Logger::getInstance("veskd");
    return logger;
}

}  // namespace

Host::Host(const platform::DeviceDescription& device, const std::string& controlSocket,
           const std::vector<std::string>& plugins)
    : platform_(device),
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
