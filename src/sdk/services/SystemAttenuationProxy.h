#pragma once

#include <QObject>

#include <memory>

/// A client's view of the system attenuation (dB, 0 is loudest). Lives in its creator's thread.
class SystemAttenuationProxy : public QObject {
    Q_OBJECT

public:
    /// `fadeMilliseconds`: how long the player takes to reach an attenuation set by this client;
    /// `reportCurrent`: whether enable() reports the present attenuation.
    SystemAttenuationProxy(const QString& clientName, int fadeMilliseconds, bool reportCurrent);
    ~SystemAttenuationProxy() override;

    /// Begins to follow the attenuation.
    void enable();

public Q_SLOTS:
    /// Asks for a new attenuation, dB. The platform keeps to what the device offers; once enabled,
    /// attenuationChanged() tells what it applied, also when that is what it was. In this object's
    /// thread.
    void setAttenuation(double attenuation);

Q_SIGNALS:
    /// The attenuation that the platform applies, dB, whoever changed it.
    void attenuationChanged(double attenuation);

private:
    class Private;
    const std::unique_ptr<Private> private_;
};
