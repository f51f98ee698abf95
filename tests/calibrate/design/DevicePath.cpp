#include "calibrate/design/DevicePath.h"

#include "calibrate/measurement/Fft.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>

using namespace calibrate;
using namespace calibrate::design;

namespace {

using Signal = std::vector<double>;
using Signals = std::map<unsigned, Signal>;

void filterWith(Signal& signal, const Biquad& biquad) {
    double first = 0;
    double second = 0;
    for (double& sample : signal) {
        const double input = sample;
        sample = static_cast<double>(biquad.b0) * input + first;
        first = static_cast<double>(biquad.b1) * input - static_cast<double>(biquad.a1) * sample +
                second;
        second = static_cast<double>(biquad.b2) * input - static_cast<double>(biquad.a2) * sample;
    }
}

void delayAndScale(Signal& signal, std::size_t delay, double gain) {
    signal.insert(signal.begin(), delay, 0.0);
    for (double& sample : signal)
        sample *= std::pow(10.0, gain / 20);
}

void add(Signal& sum, const Signal& other) {
    sum.resize(std::max(sum.size(), other.size()));
    std::transform(other.begin(), other.end(), sum.begin(), sum.begin(), std::plus<>());
}

Signal through(const BassCell& cell, Signal signal) {
    for (const auto& biquad : cell.biquads)
        filterWith(signal, biquad);
    delayAndScale(signal, static_cast<std::size_t>(cell.delay), cell.gain);
    return signal;
}

/// A section without any cell passes everything.
Signals throughSection(const std::vector<BassCell>& cells, unsigned section, const Signals& in) {
    Signals out;
    bool isEmpty = true;
    for (const auto& cell : cells) {
        if (cell.section != section)
            continue;
        isEmpty = false;
        if (const auto input = in.find(cell.input); input != in.end())
            add(out[cell.output], through(cell, input->second));
    }
    return isEmpty ? in : out;
}

Signal impulse(std::size_t length) {
    Signal signal(length);
    signal.front() = 1;
    return signal;
}

/// The signal of each of the device's outputs.
Signals outputs(const SystemDesign& design, unsigned speaker, double rate, std::size_t length) {
    Signals signals{{speaker, impulse(length)}};
    if (!design.bass) {
        const auto& alignment = design.speakers[speaker].alignment;
        delayAndScale(signals[speaker],
                      static_cast<std::size_t>(std::lround(alignment.delay * rate)),
                      alignment.gain);
        return signals;
    }
    for (unsigned section = 0; section < 5; ++section)
        signals = throughSection(design.bass->cells.front(), section, signals);
    return signals;
}

}  // namespace

std::vector<double> throughDevice(const SystemDesign& design,
                                  const std::vector<MeasuredSpeaker>& speakers, std::size_t speaker,
                                  std::size_t length) {
    const double rate = speakers.front().positions.front().sampleRate;
    Signal heard;
    for (const auto& [output, signal] :
         outputs(design, static_cast<unsigned>(speaker), rate, length)) {
        const auto& filter = design.speakers.at(output).filters.front();
        const auto filtered = measurement::convolve(signal, filter.impulseResponse(length));
        add(heard, measurement::convolve(filtered, speakers[output].positions.front().samples));
    }
    heard.resize(length);
    return heard;
}
