#include "calibrate/Errors.h"
#include "calibrate/design/BassManagement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>

using namespace calibrate;
using namespace calibrate::design;
using testing::HasSubstr;

namespace {

std::complex<double> series(const std::vector<Biquad>& biquads, double frequency) {
    std::complex<double> product = 1;
    for (const auto& biquad : biquads)
        product *= biquad.response(frequency, 48'000);
    return product;
}

double decibels(std::complex<double> value) {
    return 20 * std::log10(std::abs(value));
}

SpeakerLayout layout(std::size_t mains, std::size_t subwoofers) {
    SpeakerLayout layout;
    layout.speakers.resize(mains, {false, 0});
    layout.speakers.resize(mains + subwoofers, {true, 0});
    return layout;
}

BassManagement management(std::size_t speakers) {
    BassManagement bass;
    bass.alignments.resize(speakers);
    return bass;
}

std::vector<BassCell> cellsOf(const std::vector<BassCell>& cells, unsigned section) {
    std::vector<BassCell> found;
    for (const auto& cell : cells) {
        if (cell.section == section)
            found.push_back(cell);
    }
    return found;
}

/// What the matrix of all sections makes of an input, at each output, for one frequency.
std::map<unsigned, std::complex<double>> through(const std::vector<BassCell>& cells, unsigned input,
                                                 double frequency) {
    std::map<unsigned, std::complex<double>> signals{{input, 1.0}};
    for (unsigned section = 0; section < 5; ++section) {
        const auto row = cellsOf(cells, section);
        if (row.empty())
            continue;
        std::map<unsigned, std::complex<double>> outputs;
        for (const auto& cell : row) {
            const auto delay = std::polar(1.0, -2 * M_PI * frequency * cell.delay / 48'000);
            outputs[cell.output] += signals[cell.input] * series(cell.biquads, frequency) *
                                    std::pow(10.0, cell.gain / 20) * delay;
        }
        signals = outputs;
    }
    return signals;
}

}  // namespace

TEST(LinkwitzRiley, halvesAre6DecibelsDownAtTheCrossover) {
    EXPECT_NEAR(decibels(series(linkwitzRiley(Pass::low, 80, 48'000), 80)), -6.02, 0.02);
    EXPECT_NEAR(decibels(series(linkwitzRiley(Pass::high, 80, 48'000), 80)), -6.02, 0.02);
}

TEST(LinkwitzRiley, halvesFallBy24DecibelsPerOctave) {
    const auto low = linkwitzRiley(Pass::low, 80, 48'000);
    EXPECT_NEAR(decibels(series(low, 640)) - decibels(series(low, 1'280)), 24, 0.5);
}

TEST(LinkwitzRiley, halvesAddUpToAnAllPass) {
    const auto low = linkwitzRiley(Pass::low, 80, 48'000);
    const auto high = linkwitzRiley(Pass::high, 80, 48'000);
    for (double frequency = 20; frequency < 2'000; frequency *= 1.1)
        EXPECT_NEAR(decibels(series(low, frequency) + series(high, frequency)), 0, 0.02)
            << frequency;
}

TEST(BassManagement, mainSignalIsSplitAtTheCrossover) {
    const auto cells = bassCells(layout(2, 1), management(3), {}, 48'000);
    auto low = through(cells, 0, 30);
    EXPECT_NEAR(decibels(low[2]), 0, 0.3);
    EXPECT_LT(decibels(low[0]), -30);
    EXPECT_EQ(std::abs(low[1]), 0);
    auto high = through(cells, 1, 400);
    EXPECT_NEAR(decibels(high[1]), 0, 0.1);
    EXPECT_LT(decibels(high[2]), -50);
}

TEST(BassManagement, bassInputGoesToTheSubwooferWhole) {
    const auto cells = bassCells(layout(2, 1), management(3), {}, 48'000);
    EXPECT_NEAR(decibels(through(cells, 2, 110)[2]), 0, 1e-9);
}

TEST(BassManagement, subwooferMayStandAnywhereAmongTheSpeakers) {
    const SpeakerLayout order{{{true, 0}, {false, 0}, {false, 0}}};
    const auto cells = bassCells(order, management(3), {}, 48'000);
    EXPECT_NEAR(decibels(through(cells, 0, 30)[0]), 0, 0.3);
    EXPECT_NEAR(decibels(through(cells, 0, 400)[1]), 0, 0.1);
}

TEST(BassManagement, delaysAndGainsReachTheirSpeaker) {
    auto bass = management(3);
    bass.alignments[2] = {200 / 48'000.0, -4};
    const auto cells = bassCells(layout(2, 1), bass, {}, 48'000);
    const auto plain = bassCells(layout(2, 1), management(3), {}, 48'000);
    const auto ratio = through(cells, 0, 30)[2] / through(plain, 0, 30)[2];
    EXPECT_NEAR(decibels(ratio), -4, 1e-6);
    EXPECT_NEAR(std::arg(ratio), -2 * M_PI * 30 * 200 / 48'000, 1e-6);
    for (const auto& cell : cells)
        EXPECT_LE(cell.delay, 150);
}

TEST(BassManagement, everySectionWithinTheDevicesCellsAndTheLastNeverEmpty) {
    const auto cells = bassCells(layout(2, 1), management(3), {}, 48'000);
    for (unsigned section = 0; section < 5; ++section)
        EXPECT_LE(cellsOf(cells, section).size(), 5U);
    EXPECT_TRUE(cellsOf(cells, 3).empty());
    EXPECT_EQ(cellsOf(cells, 4).size(), 3U);
}

TEST(BassManagement, moreSpeakersThanTheSectionsHoldAreRefused) {
    try {
        (void)bassCells(layout(5, 1), management(6), {}, 48'000);
        FAIL();
    } catch (const BadInput& error) {
        EXPECT_THAT(error.what(), HasSubstr("needs 11 cells in section 0; the device holds 5"));
    }
}

TEST(BassManagement, deviceWithoutBiquadsIsRefused) {
    EXPECT_THROW((void)bassCells(layout(2, 1), management(3), {0, 5, 150}, 48'000), BadInput);
}

TEST(BassManagement, needsASubwooferAndAMain) {
    EXPECT_THROW((void)bassCells(layout(2, 0), management(2), {}, 48'000), BadInput);
    EXPECT_THROW((void)bassCells(layout(0, 1), management(1), {}, 48'000), BadInput);
}

TEST(BassManagement, findsTheDelayOfASubwooferThatComesEarly) {
    std::vector<double> main(24'000);
    std::vector<double> subwoofer(24'000);
    main[480] = 0.5;
    subwoofer[400] = 0.5;
    const auto bass = alignBass({{48'000, main, 0}}, {48'000, subwoofer, 0}, 80, {}, 10);
    EXPECT_NEAR(bass.alignments[1].delay - bass.alignments[0].delay, 80 / 48'000.0, 0.21e-3);
    EXPECT_FALSE(bass.inverted);
    EXPECT_NEAR(bass.alignments[0].gain, 0, 0.6);
    EXPECT_NEAR(bass.alignments[1].gain, 0, 0.6);
}

TEST(BassManagement, findsASubwooferWithSwappedWires) {
    std::vector<double> main(24'000);
    std::vector<double> subwoofer(24'000);
    main[480] = 0.5;
    subwoofer[480] = -0.25;
    const auto bass = alignBass({{48'000, main, 0}}, {48'000, subwoofer, 0}, 80, {}, 10);
    EXPECT_TRUE(bass.inverted);
    EXPECT_NEAR(bass.alignments[0].gain, -6, 0.6);
}
