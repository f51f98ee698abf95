#pragma once

#include "dsp/Processor.h"
#include "host/ControlServer.h"
#include "host/DescriptionFile.h"
#include "host/WorkerThread.h"
#include "platform/Platform.h"

#include <memory>
#include <string>
#include <vector>

namespace host {

/// A running device: the platform, its control socket, and the workers, each in its own thread.
/// Ends them in reverse order.
class Host {
public:
    /// `plugins` are started one after the other. Throws std::runtime_error, naming what could not
    /// be started.
    Host(const platform::DeviceDescription& device, const std::string& controlSocket,
         const std::vector<std::string>& plugins);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Plays a sound file, the absolute path of which is given, in the place of what plays now.
    static void play(const std::string& soundFile);

private:
    void warnAboutMissingValues();
    void endWorkers();

    const std::shared_ptr<dsp::Processor> correction_;
    platform::Platform platform_;
    std::vector<std::unique_ptr<WorkerThread>> workers_;
    std::unique_ptr<ControlServer> control_;
};

}  // namespace host
