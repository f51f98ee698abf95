#pragma once

#include <array>
#include <vector>

namespace roomsim {

/// The edge of a loudspeaker's range: a Butterworth filter of fourth order (24 dB per octave,
/// -3 dB at the edge).
class ButterworthFilter {
public:
    /// `frequency` in Hz. A low pass beyond 0.49 of the rate is taken as there.
    static ButterworthFilter highPass(double frequency, unsigned int rate);
    static ButterworthFilter lowPass(double frequency, unsigned int rate);

    /// Filters `samples` in place, from silence.
    void process(std::vector<float>& samples) const;

private:
    struct Section {
        double b0, b1, b2, a1, a2;
    };
    ButterworthFilter(double frequency, unsigned int rate, double side);

    std::array<Section, 2> sections_;
};

}  // namespace roomsim
