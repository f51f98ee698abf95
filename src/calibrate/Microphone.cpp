#include "calibrate/Microphone.h"

#include "calibrate/DeviceMicrophone.h"
#include "calibrate/Errors.h"
#include "calibrate/LocalMicrophone.h"

#include <algorithm>
#include <charconv>

namespace calibrate {
namespace {

bool isNumber(const std::string& name) {
    return !name.empty() && std::ranges::all_of(name, [](char character) {
        return '0' <= character && character <= '9';
    });
}

int numberOf(const std::string& name) {
    int number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error != std::errc())
        throw BadInput("microphone " + name + " does not exist");
    return number;
}

}  // namespace

std::unique_ptr<Microphone> openMicrophone(EndpointClient& client, const MicrophoneChoice& choice) {
    if (isNumber(choice.name))
        return std::make_unique<DeviceMicrophone>(client, numberOf(choice.name));
    return std::make_unique<LocalMicrophone>(client, choice.name, choice.channel);
}

}  // namespace calibrate
