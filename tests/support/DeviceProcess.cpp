#include "support/DeviceProcess.h"

#include "support/CalibrationClient.h"
#include "support/Eventually.h"

#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;

std::string descriptionFile(const std::string& description) {
    if (description.find('/') != std::string::npos)
        return description;
    return std::string(VESK_DEVICES) + "/" + description + ".json";
}

}  // namespace

DeviceProcess::DeviceProcess() : DeviceProcess(Options()) {
}

DeviceProcess::DeviceProcess(const Options& options)
    : options_(options),
      stateDirectory_(options.stateDirectory.empty() ? scratch_.path() / "state"
                                                     : options.stateDirectory) {
}

DeviceProcess::~DeviceProcess() = default;

void DeviceProcess::start() {
    launch();
    awaitPort();
}

void DeviceProcess::launch() {
    process_.reset();
    std::filesystem::remove(logFile());
    process_ = std::make_unique<BackgroundProcess>(command(), scratch_.path(), logFile());
}

ProcessEnd DeviceProcess::stop() {
    process_->signal(SIGTERM);
    const auto end = process_->waitForEnd(kPatience);
    if (!end)
        throw std::runtime_error("The device does not end; its log:\n" + log());
    process_.reset();
    return *end;
}

void DeviceProcess::kill() {
    process_.reset();
}

bool DeviceProcess::isRunning() {
    return process_ && process_->isRunning();
}

std::string DeviceProcess::log() const {
    return readFile(logFile());
}

bool DeviceProcess::awaitLog(const std::string& text, std::chrono::milliseconds timeout) {
    const auto isLogged = [&] { return log().find(text) != std::string::npos; };
    eventually([&] { return isLogged() || !isRunning(); }, timeout);
    return isLogged();
}

std::vector<std::string> DeviceProcess::command() const {
    std::vector<std::string> command = options_.wrapper;
    command.insert(command.end(),
                   {VESK_HOST, "--worker", VESK_MODULE, "--listen", "127.0.0.1", "--state-dir",
                    stateDirectory_.string(), "--log-level", options_.logLevel});
    command.insert(command.end(), options_.arguments.begin(), options_.arguments.end());
    command.push_back(descriptionFile(options_.description));
    return command;
}

std::filesystem::path DeviceProcess::logFile() const {
    return scratch_.path() / "log";
}

void DeviceProcess::awaitPort() {
    CalibrationClient client;
    const auto deadline = std::chrono::system_clock::now() + kPatience;
    while (!client.answersBefore(std::chrono::system_clock::now() + 1s))
        if (!isRunning() || std::chrono::system_clock::now() > deadline)
            throw std::runtime_error("The device does not answer; its log:\n" + log());
}

std::string readFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}
