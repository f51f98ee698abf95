#include "host/DescriptionFile.h"
#include "host/Host.h"
#include "host/HostOptions.h"
#include "host/Logging.h"
#include "host/Plugins.h"
#include "host/SignalWatch.h"
#include "host/StateDirectory.h"

#include <QCoreApplication>

#include <unistd.h>

#include <csignal>
#include <exception>
#include <filesystem>
#include <iostream>

namespace {

using host::HostDescription;
using host::HostOptions;

constexpr int kFailed = 1;
constexpr const char* kControlSocketName = "control.sock";

std::string absolutePath(const std::string& path) {
    return std::filesystem::absolute(path).lexically_normal().string();
}

/// The description with what the command line says differently. Its paths are absolute, because
/// the working directory is about to change.
HostDescription describedBy(const HostOptions& options) {
    HostDescription description = host::readDescription(options.descriptionFile);
    auto& device = description.device;
    if (options.stateDirectory)
        device.stateDirectory = QString::fromStdString(*options.stateDirectory);
    if (options.listenAddress)
        device.listenAddress = QString::fromStdString(*options.listenAddress);
    if (options.playbackDevice)
        device.playbackDeviceName = QString::fromStdString(*options.playbackDevice);
    if (options.microphoneDevice)
        device.micDeviceName = QString::fromStdString(*options.microphoneDevice);
    if (options.logLevel)
        description.log.level = *options.logLevel;
    if (options.logFile)
        description.log.file = *options.logFile;
    if (!description.log.file.empty())
        description.log.file = absolutePath(description.log.file);
    return description;
}

void tellReady(const HostOptions& options, const std::string& controlSocket) {
    std::cout << "veskd: ready, control socket " << controlSocket << std::endl;
    if (!options.readyDescriptor)
        return;
    constexpr std::string_view kReady = "ready\n";
    if (write(*options.readyDescriptor, kReady.data(), kReady.size()) < 0)
        throw std::system_error(errno, std::generic_category(), "--ready-fd");
    close(*options.readyDescriptor);
}

void runDevice(HostDescription& description, const HostOptions& options,
               QCoreApplication& application) {
    const host::Logging logging(description.log);
    const auto plugins = host::pluginPaths(options.workers);
    const auto givenSocket = options.controlSocket ? absolutePath(*options.controlSocket) : "";
    const auto soundFile = options.soundFile ? absolutePath(*options.soundFile) : "";
    const auto state = host::enterStateDirectory(description.device.stateDirectory.toStdString());
    description.device.stateDirectory = QString::fromStdString(state);
    const auto socket = givenSocket.empty() ? state + "/" + kControlSocketName : givenSocket;

    host::SignalWatch signals;
    QObject::connect(&signals, &host::SignalWatch::endRequested, &application,
                     &QCoreApplication::quit);
    const host::Host device(description.device, socket, plugins);
    tellReady(options, socket);
    if (!soundFile.empty())
        host::Host::play(soundFile);
    QCoreApplication::exec();
}

int run(const HostOptions& options, QCoreApplication& application) {
    try {
        HostDescription description = describedBy(options);
        if (options.printDescription)
            std::cout << host::descriptionText(description) << std::endl;
        else
            runDevice(description, options, application);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "veskd: " << error.what() << std::endl;
        return kFailed;
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto parsed = host::parseHostOptions(argc, argv);
    if (!parsed.options)
        return parsed.exitCode;
    // Whoever reads our output may go before we do.
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication application(argc, argv);
    return run(*parsed.options, application);
}
