#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace platform {

/// One loudspeaker of the device.
struct Speaker {
    QString name;
    unsigned type{0};  ///< 4: counted apart from the others (bass management)
    unsigned groupId{0};
};

/// What the power manager answers to those who want a resource.
enum class ResourceBehaviour {
    Granted,  ///< to one module at a time; `holder` has it from the beginning
    Refused,  ///< with the described error
    Silent,   ///< nothing
};

/// A resource that modules share.
struct ResourceDescription {
    QString name;  ///< "microphone"
    ResourceBehaviour behaviour{ResourceBehaviour::Granted};
    QString holder;     ///< empty: nobody
    QString errorName;  ///< when refused
    QString errorText;  ///< when refused
};

/// What a device is: the facts from which the platform fills its configuration tree.
struct DeviceDescription {
    // Identity.
    QString manufacturer;
    QString deviceName;
    QString productShortName;  ///< also the model name
    QString uuidNamespace;     ///< a UUID, the namespace of the device's own UUID
    QString ethernetMac;       ///< "aa:bb:cc:dd:ee:ff"

    // Calibration.
    QList<Speaker> speakers;
    QStringList microphones;
    unsigned numberOfSlots{8};
    int stimuliSampleRate{48000};             ///< Hz
    std::optional<unsigned> stimuliChannels;  ///< none: one per speaker
    int ipcKey{0};
    QString micDeviceName;           ///< an ALSA name
    int micRecordSampleRate{48000};  ///< Hz
    bool disableShmUpdate{false};    ///< the DSP image stays as it is

    // Playback.
    QList<double> volumeMap;     ///< dB, quietest first, not empty
    QString playbackDeviceName;  ///< an ALSA name; empty: audio is taken, and nobody hears it

    QList<ResourceDescription> resources;  ///< those that are not free for all

    // The process.
    QString stateDirectory;  ///< holds the settings; empty: settings live in memory only
    QString listenAddress{QStringLiteral("0.0.0.0")};  ///< of the calibration server
};

}  // namespace platform
