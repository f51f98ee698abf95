#include "calibrate/DeviceMicrophone.h"

#include "calibrate/MicrophoneStream.h"
#include "calibrate/Text.h"

namespace calibrate {

DeviceMicrophone::DeviceMicrophone(EndpointClient& client, int index)
    : client_(client), index_(index), rate_(readMicrophoneRate(client, index)) {
}

std::string DeviceMicrophone::name() const {
    return printable(client_.micInfo(index_).name());
}

std::unique_ptr<SampleStream> DeviceMicrophone::listen() {
    return MicrophoneStream::open(client_, index_);
}

std::unique_ptr<SampleStream> DeviceMicrophone::record(const Stimulus& stimulus) {
    return MicrophoneStream::openWithStimulus(client_, stimulus, index_);
}

}  // namespace calibrate
