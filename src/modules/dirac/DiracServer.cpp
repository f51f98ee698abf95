#include "modules/dirac/Dirac.h"
#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/endpoint/Server.h"

#include <exception>

namespace {

constexpr unsigned short kCalibrationPort = 5002;

DeviceInfo::Speaker speakerOf(const QVariant& entry) {
    const VeskDiracSpeakerInfo info(entry);
    return {info.name().toStdString(), info.type(), info.groupId()};
}

std::vector<DeviceInfo::Speaker> speakersOf(const VeskDiracConfig& config) {
    std::vector<DeviceInfo::Speaker> speakers;
    for (const QVariant& entry : config.speakers())
        speakers.push_back(speakerOf(entry));
    return speakers;
}

std::vector<std::string> micsOf(const VeskDiracConfig& config) {
    std::vector<std::string> mics;
    for (const QVariant& entry : config.mics())
        mics.push_back(VeskDiracMicsInfo(entry).name().toStdString());
    return mics;
}

}  // namespace

void Dirac::startServer() {
    DIRAC_SCOPED_TRACE();
    try {
        replaceServer();
    } catch (const std::exception& exception) {
        LOG4CPLUS_FATAL(logger, "Exception: " << exception.what());
    }
}

/// The stopped server is kept until the new one takes its place.
void Dirac::replaceServer() {
    if (server)
        server->stop();
    const VeskDiracConfig config = diracConfig();
    LOG4CPLUS_INFO(logger, "Starting Dirac Server for " << config.speakers().size() << " speakers");
    rpcHandler = std::make_shared<RpcHandler>(deviceInfo(config, uuid), this, audioRecorderFactory);
    server = endpoint::createServer(rpcHandler, kCalibrationPort);
    if (server)
        LOG4CPLUS_INFO(logger, "Dirac started listening on port: " << server->port());
    else
        LOG4CPLUS_ERROR(logger, "DIRAC CAN NOT START SERVER");
}

DeviceInfo Dirac::deviceInfo(const VeskDiracConfig& config, const QString& deviceUuid) {
    DeviceInfo info;
    info.speakers = speakersOf(config);
    info.mics = micsOf(config);
    info.deviceName = stringAt(VeskDeviceNamePath()).toStdString();
    info.manufacturer = stringAt(VeskSystemManufacturerRoonPath()).toStdString();
    info.modelName = stringAt(VeskDiracProductShortNamePath()).toStdString();
    LOG4CPLUS_INFO(logger, "~~~~~~ manufacturer = " << info.manufacturer
                                                    << " model name = " << info.modelName);
    info.uuid = deviceUuid.toStdString();
    info.numberOfSlots = config.numberOfSlots();
    info.stimuliSampleRate = config.stimuliSampleRate();
    info.stimuliChannels = config.contains(VeskDiracConfig::StimuliChannels())
                               ? config.stimuliChannels()
                               : static_cast<std::uint32_t>(info.speakers.size());
    info.ipcKey = config.ipcKey();
    return info;
}

void Dirac::stopServer() {
    LOG4CPLUS_INFO(logger, "Stop PRGC Dirac server");
    if (server)
        server->stop();
}
