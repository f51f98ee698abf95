#include "calibrate/Mode.h"

#include "calibrate/Errors.h"
#include "calibrate/Eventually.h"
#include "calibrate/JsonOutput.h"

namespace calibrate {
namespace {

using protocol::OperationMode;

/// The device has gain and delay as one stage, which is on when both are.
bool gainAndDelay(const OperationMode& mode) {
    return mode.gain() && mode.delay();
}

bool isEqual(const OperationMode& a, const OperationMode& b) {
    return gainAndDelay(a) == gainAndDelay(b) && a.filtering() == b.filtering();
}

std::string onOff(bool on) {
    return on ? "on" : "off";
}

std::string describe(const OperationMode& mode) {
    return "correction " + onOff(mode.filtering()) + ", gain and delay " +
           onOff(gainAndDelay(mode));
}

OperationMode merge(OperationMode mode, const ModeOptions& options) {
    mode.set_filtering(options.correction.value_or(mode.filtering()));
    mode.set_gain(options.gainAndDelay.value_or(mode.gain()));
    mode.set_delay(options.gainAndDelay.value_or(mode.delay()));
    return mode;
}

void change(EndpointClient& client, const OperationMode& wanted) {
    client.setOperationMode(wanted);
    if (!eventually([&] { return isEqual(client.operationMode(), wanted); })) {
        throw DeviceError(DeviceError::Reason::failed, "the device did not switch to " +
                                                           describe(wanted) + ": it is at " +
                                                           describe(client.operationMode()));
    }
}

}  // namespace

void mode(EndpointClient& client, const ModeOptions& options, const Console& console) {
    const bool isChange = options.correction || options.gainAndDelay;
    if (isChange)
        change(client, merge(client.operationMode(), options));
    const auto present = client.operationMode();
    if (console.json()) {
        console.print({{"filtering", present.filtering()},
                       {"gain", present.gain()},
                       {"delay", present.delay()}});
    } else if (!isChange || !console.quiet()) {
        console.out() << "Correction      " << onOff(present.filtering()) << '\n'
                      << "Gain and delay  " << onOff(gainAndDelay(present)) << '\n';
    }
}

}  // namespace calibrate
