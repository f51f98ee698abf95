#include "sdk/cm/VeskPaths.h"
#include "support/DeviceFixture.h"

#include <gmock/gmock.h>

using namespace dio::endpoint;
using testing::ElementsAre;
using testing::FloatEq;
using testing::IsEmpty;

namespace {

constexpr const char* kNoCell = "INVALID_ARGUMENT \"No transfer cell has been set\"";
constexpr const char* kNotOpen = "FAILED_PRECONDITION \"No filter transfer is open\"";
constexpr const char* kSlotOutOfRange = "INVALID_ARGUMENT \"Slot index out of range\"";
constexpr const char* kWrongSlot = "INVALID_ARGUMENT \"wrong slot index\"";
constexpr const char* kWrongVariant =
    "INVALID_ARGUMENT \"Filter transfer: The transfer call does not support the given variant\"";

/// Two speakers in one group: section 0 has 2 inputs and 3 outputs, section 4 four and two.
class RpcHandlerTransferTest : public DeviceFixture {
protected:
    void SetUp() override { startDevice(); }

    std::string begin(int slot) {
        return outcomeOf(&Stub::BeginFilterTransfer, slotOf(slot, "Sofa", 5));
    }

    std::string setCell(unsigned section, unsigned input, unsigned output) {
        return outcomeOf(&Stub::SetTransferCell, cellOf(section, input, output));
    }

    std::string setFiir(unsigned variant, int taps = 1, int biquads = 0) {
        FIIR fiir;
        fiir.mutable_info()->set_variant(variant);
        for (int i = 0; i < taps; ++i)
            fiir.mutable_fir()->add_taps(0.5F);
        for (int i = 0; i < biquads; ++i)
            *fiir.mutable_iir()->add_biquads() = biquad();
        return outcomeOf(&Stub::SetCellFIIR, fiir);
    }

    std::string setIir(unsigned variant, int biquads = 1) {
        IIR iir;
        iir.mutable_info()->set_variant(variant);
        for (int i = 0; i < biquads; ++i)
            *iir.add_biquads() = biquad();
        return outcomeOf(&Stub::SetCellIIR, iir);
    }

    std::string setDelayGain(unsigned variant, int delay = 12, float gain = -3.0F) {
        DelayGain delayGain;
        delayGain.mutable_info()->set_variant(variant);
        delayGain.set_delay(delay);
        delayGain.set_gain(gain);
        return outcomeOf(&Stub::SetCellDelayGain, delayGain);
    }

    std::string setInputGainDelay(int input, float gain = -2.0F, float delay = 1.5F) {
        GainDelay gainDelay;
        gainDelay.set_input(input);
        gainDelay.set_gain(gain);
        gainDelay.set_delay(delay);
        return outcomeOf(&Stub::SetInputGainDelay, gainDelay);
    }

    std::string end(int slot) {
        std::string result;
        endTransfer(slot, &result);
        return result;
    }

    /// A cell of each variant, so that the transfer can end with a whole design.
    void fillCells() {
        for (unsigned channel = 0; channel < 2; ++channel) {
            ASSERT_EQ(setCell(5, channel, channel), "OK");
            ASSERT_EQ(setFiir(0), "OK");
            ASSERT_EQ(setFiir(1), "OK");
        }
    }

    /// Whole, for both variants.
    void beginWithBassControl() {
        begin(1);
        fillCells();
        ASSERT_EQ(setCell(4, 0, 0), "OK");
        ASSERT_EQ(setDelayGain(0), "OK");
        ASSERT_EQ(setDelayGain(1), "OK");
    }

    void expectBassControlRefused() {
        EXPECT_EQ(
            end(1),
            "INVALID_ARGUMENT \"Filter transfer: bass control needs cells in section 4 of each "
            "variant, none above, and in each cell what its section carries\"");
        EXPECT_EQ(ask(&Stub::GetDeviceInfo, Void()).num_slots(), 4U) << "the device goes on";
    }

    static VeskDiracSlot stored() { return VeskDiracSlot(settings().slots_().at(0)); }

    static VeskDiracChannelParams storedChannel(int variant, int channel) {
        return VeskDiracChannelParams(stored().params().at(variant).toList().at(channel));
    }

private:
    static Biquad biquad() {
        Biquad biquad;
        biquad.set_a1(0.1F);
        biquad.set_a2(0.2F);
        biquad.set_b0(0.3F);
        biquad.set_b1(0.4F);
        biquad.set_b2(0.5F);
        return biquad;
    }
};

}  // namespace

// ---- BeginFilterTransfer ----

TEST_F(RpcHandlerTransferTest, BeginsForASlotOfTheDeviceOnly) {
    EXPECT_EQ(begin(-1), kSlotOutOfRange);
    EXPECT_EQ(begin(4), kSlotOutOfRange);
    EXPECT_EQ(begin(3), "OK");
    EXPECT_TRUE(log().contains(
        "RpcHandler::BeginFilterTransfer(grpc::ServerContext*, const dio::endpoint::SlotInfo*, "
        "dio::endpoint::Void*): Slot 4"));
}

TEST_F(RpcHandlerTransferTest, ARejectedBeginLeavesTheOpenTransferAlone) {
    begin(1);
    fillCells();
    EXPECT_EQ(begin(9), kSlotOutOfRange);
    EXPECT_EQ(end(1), "OK");
    EXPECT_EQ(storedChannel(0, 0).fiir().tapSize(), 1);
}

TEST_F(RpcHandlerTransferTest, ASecondBeginStartsOver) {
    begin(1);
    fillCells();
    EXPECT_EQ(setDelayGain(0), "OK");
    EXPECT_EQ(begin(2), "OK");
    EXPECT_EQ(end(1), kWrongSlot);
    EXPECT_EQ(setFiir(0), "OK") << "the transfer cell stays";
    EXPECT_EQ(end(2), "OK");
    EXPECT_THAT(slotIndices(settings()), ElementsAre(2));
    EXPECT_EQ(stored().params().at(0).toList().size(), 2) << "input 1 is the transfer cell's";
    EXPECT_EQ(storedChannel(1, 0).fiir().tapSize(), 0);
    EXPECT_THAT(stored().bcParams(), IsEmpty());
}

TEST_F(RpcHandlerTransferTest, ATransferOfASingleCellIsReadBackAtTheNextStart) {
    begin(1);
    setCell(5, 0, 0);
    setFiir(0);
    ASSERT_EQ(end(1), "OK");
    restartDevice();
    EXPECT_THAT(slotIndices(settings()), ElementsAre(1));
    EXPECT_EQ(storedChannel(0, 0).fiir().tapSize(), 1);
    EXPECT_EQ(storedChannel(1, 1).fiir().tapSize(), 0);
}

TEST_F(RpcHandlerTransferTest, ATransferWithoutCoefficientsIsReadBackAtTheNextStart) {
    begin(3);
    setCell(5, 0, 0);
    ASSERT_EQ(end(3), "OK");
    restartDevice();
    EXPECT_THAT(slotIndices(settings()), ElementsAre(3));
}

// ---- SetTransferCell ----

TEST_F(RpcHandlerTransferTest, TakesACellWithoutOpenTransfer) {
    EXPECT_EQ(setCell(5, 1, 1), "OK");
    EXPECT_TRUE(log().contains(": Cell: 1, 1"));
}

TEST_F(RpcHandlerTransferTest, RejectsACellOutsideOfItsSection) {
    EXPECT_EQ(setCell(0, 2, 0), "INVALID_ARGUMENT \"Input channel index out of range\"");
    EXPECT_EQ(setCell(0, 0, 3), "INVALID_ARGUMENT \"Output channel index out of range\"");
    EXPECT_EQ(setCell(7, 0, 0), "INVALID_ARGUMENT \"Section index out of range\"");
    EXPECT_EQ(setCell(6, 0, 0), "INVALID_ARGUMENT \"Input channel index out of range\"");
    EXPECT_EQ(setCell(0, 4000000000U, 0), "INVALID_ARGUMENT \"Input channel index out of range\"");
}

TEST_F(RpcHandlerTransferTest, ARejectedCellLeavesTheOldOne) {
    begin(0);
    setCell(5, 1, 1);
    setCell(5, 2, 2);
    EXPECT_EQ(setFiir(0), "OK");
    EXPECT_EQ(setFiir(1), "OK");
    EXPECT_EQ(end(0), "OK");
    EXPECT_EQ(stored().params().at(0).toList().size(), 2);
    EXPECT_TRUE(storedChannel(0, 1).fiir().enabled());
    EXPECT_FALSE(storedChannel(0, 0).fiir().enabled());
}

// ---- The Set calls ----

TEST_F(RpcHandlerTransferTest, NeedsACell) {
    begin(0);
    EXPECT_EQ(setFiir(0), kNoCell);
    EXPECT_EQ(setIir(0), kNoCell);
    EXPECT_EQ(setDelayGain(0), kNoCell);
}

TEST_F(RpcHandlerTransferTest, RejectsAVariantThatTheDeviceDoesNotHave) {
    begin(0);
    setCell(5, 0, 0);
    for (const unsigned variant : {2U, 4294967295U}) {
        EXPECT_EQ(setFiir(variant), kWrongVariant);
        EXPECT_EQ(setIir(variant), kWrongVariant);
        EXPECT_EQ(setDelayGain(variant), kWrongVariant);
    }
}

TEST_F(RpcHandlerTransferTest, RejectsEveryCallOffTheDiagonalOfTheLastSection) {
    begin(0);
    setCell(5, 0, 1);
    EXPECT_EQ(setFiir(0), kWrongVariant);
    EXPECT_EQ(setIir(0), kWrongVariant);
    EXPECT_EQ(setDelayGain(0), kWrongVariant);
}

TEST_F(RpcHandlerTransferTest, NeedsAnOpenTransfer) {
    setCell(5, 0, 0);
    EXPECT_EQ(setFiir(0), kNotOpen);
    EXPECT_EQ(setIir(0), kNotOpen);
    EXPECT_EQ(setDelayGain(0), kNotOpen);
    EXPECT_EQ(setInputGainDelay(0), kNotOpen);
    EXPECT_EQ(end(0), kNotOpen);
}

TEST_F(RpcHandlerTransferTest, ChecksACallBeforeItLooksForTheTransfer) {
    EXPECT_EQ(setFiir(0), kNoCell);
    setCell(5, 0, 0);
    EXPECT_EQ(setFiir(2), kWrongVariant);
    EXPECT_EQ(setFiir(0, 65537),
              "INVALID_ARGUMENT \"Filter transfer: at most 65536 taps in one cell\"");
}

TEST_F(RpcHandlerTransferTest, BoundsWhatOneCellMayHold) {
    begin(0);
    setCell(5, 0, 0);
    EXPECT_EQ(setFiir(0, 65536), "OK");
    EXPECT_EQ(setFiir(0, 65537),
              "INVALID_ARGUMENT \"Filter transfer: at most 65536 taps in one cell\"");
    EXPECT_EQ(setFiir(0, 1, 4096), "OK");
    EXPECT_EQ(setFiir(0, 1, 4097),
              "INVALID_ARGUMENT \"Filter transfer: at most 4096 biquads in one cell\"");
    EXPECT_EQ(setIir(0, 4097),
              "INVALID_ARGUMENT \"Filter transfer: at most 4096 biquads in one cell\"");
    EXPECT_EQ(setInputGainDelay(4095), "OK");
    EXPECT_EQ(setInputGainDelay(4096), "INVALID_ARGUMENT \"Filter transfer: at most 4096 inputs\"");
    EXPECT_EQ(setInputGainDelay(2147483647),
              "INVALID_ARGUMENT \"Filter transfer: at most 4096 inputs\"");
}

TEST_F(RpcHandlerTransferTest, BoundsWhatOneTransferMayHold) {
    begin(0);
    setCell(5, 0, 0);
    for (int i = 0; i < 16; ++i)
        ASSERT_EQ(setFiir(0, 65536, 4096), "OK");
    EXPECT_EQ(setFiir(0, 1, 0),
              "INVALID_ARGUMENT \"Filter transfer: at most 1048576 taps in one transfer\"");
    EXPECT_EQ(setFiir(0, 0, 1),
              "INVALID_ARGUMENT \"Filter transfer: at most 65536 biquads in one transfer\"");
    begin(0);
    EXPECT_EQ(setFiir(0, 1, 1), "OK");
}

TEST_F(RpcHandlerTransferTest, SetsGainAndDelayOfAnInputInEveryVariant) {
    begin(0);
    fillCells();
    EXPECT_EQ(setInputGainDelay(1, -2.0F, 1.5F), "OK");
    EXPECT_TRUE(log().contains(": Set input gain and dely Idx: 1 (-2 db 1.5 ms)"));
    EXPECT_EQ(end(0), "OK");
    for (int variant = 0; variant < 2; ++variant) {
        EXPECT_TRUE(storedChannel(variant, 1).linear().enabled());
        EXPECT_EQ(storedChannel(variant, 1).linear().gain(), -2.0);
        EXPECT_EQ(storedChannel(variant, 1).linear().delay(), 1.5);
        EXPECT_FALSE(storedChannel(variant, 0).linear().enabled());
    }
}

TEST_F(RpcHandlerTransferTest, IgnoresANegativeInput) {
    begin(0);
    fillCells();
    EXPECT_EQ(setInputGainDelay(-1), "OK");
    EXPECT_EQ(end(0), "OK");
    EXPECT_EQ(stored().params().at(0).toList().size(), 2);
    EXPECT_FALSE(storedChannel(0, 0).linear().enabled());
}

// ---- EndFilterTransfer ----

TEST_F(RpcHandlerTransferTest, StreamsFourStepsOfProgress) {
    begin(0);
    fillCells();
    std::string result;
    EXPECT_THAT(endTransfer(0, &result),
                ElementsAre(FloatEq(0.1F), FloatEq(0.5F), FloatEq(0.9F), FloatEq(1.0F)));
    EXPECT_EQ(result, "OK");
}

TEST_F(RpcHandlerTransferTest, StoresTheTextsOfTheSlot) {
    begin(3);
    fillCells();
    EXPECT_EQ(end(3), "OK");
    EXPECT_EQ(stored().slotIdx(), 3);
    EXPECT_EQ(stored().name(), QStringLiteral("Sofa"));
    EXPECT_EQ(stored().filterTypeName(), QStringLiteral("Correction"));
    EXPECT_EQ(stored().description(), QStringLiteral("For a test"));
    EXPECT_EQ(stored().creationTime(), 5);
    EXPECT_EQ(stored().size(), 2);
}

TEST_F(RpcHandlerTransferTest, EndsForTheOpenSlotOnly) {
    begin(1);
    fillCells();
    EXPECT_EQ(end(2), kWrongSlot);
    EXPECT_THAT(slotIndices(settings()), IsEmpty());
    EXPECT_EQ(end(1), "OK");
    EXPECT_THAT(slotIndices(settings()), ElementsAre(1));
}

TEST_F(RpcHandlerTransferTest, DoesNotEndWithoutCell) {
    begin(1);
    EXPECT_EQ(end(1), kNoCell);
    EXPECT_THAT(slotIndices(settings()), IsEmpty());
    fillCells();
    EXPECT_EQ(end(1), "OK") << "the transfer has stayed open";
}

TEST_F(RpcHandlerTransferTest, IsClosedByItsEnd) {
    begin(1);
    fillCells();
    EXPECT_EQ(end(1), "OK");
    EXPECT_EQ(end(1), kNotOpen);
    EXPECT_EQ(setFiir(0), kNoCell) << "the transfer cell is gone too";
}

TEST_F(RpcHandlerTransferTest, HandsOverNoBassControlForFiirCellsOnly) {
    begin(1);
    fillCells();
    EXPECT_EQ(end(1), "OK");
    EXPECT_THAT(stored().bcParams(), IsEmpty());
}

TEST_F(RpcHandlerTransferTest, HandsOverTheWholeBassControlAfterADelayGain) {
    begin(1);
    fillCells();
    for (const unsigned variant : {0U, 1U}) {
        setCell(0, 1, 2);
        EXPECT_EQ(setIir(variant, 2), "OK");
        setCell(4, 3, 1);
        EXPECT_EQ(setDelayGain(variant, 12, -3.0F), "OK");
    }
    EXPECT_EQ(end(1), "OK");
    ASSERT_EQ(stored().bcParams().size(), 2);
    for (const QVariant& block : stored().bcParams()) {
        const QVariantList sections = block.toList();
        ASSERT_EQ(sections.size(), 5);
        const VeskDiracBcParams iirs(sections.at(0));
        ASSERT_EQ(iirs.numCells(), 1);
        const VeskDiracBcCells iirCell(iirs.cells().at(0));
        EXPECT_EQ(iirCell.inputIdx(), 1);
        EXPECT_EQ(iirCell.outputIdx(), 2);
        EXPECT_EQ(iirCell.numIirs(), 2);
        const VeskDiracBcParams delays(sections.at(4));
        ASSERT_EQ(delays.numCells(), 1);
        const VeskDiracBcCells delayCell(delays.cells().at(0));
        EXPECT_EQ(delayCell.inputIdx(), 3);
        EXPECT_EQ(delayCell.outputIdx(), 1);
        EXPECT_EQ(delayCell.delay(), 12.0);
        EXPECT_EQ(delayCell.gain(), -3.0);
    }
}

TEST_F(RpcHandlerTransferTest, ACellWithoutWhatItsSectionCarriesIsRefused) {
    beginWithBassControl();
    setCell(4, 0, 1);
    EXPECT_EQ(setIir(1), "OK");
    expectBassControlRefused();
    EXPECT_EQ(setDelayGain(1), "OK");
    EXPECT_EQ(end(1), "OK");
}

TEST_F(RpcHandlerTransferTest, BassControlThatEndsBeforeItsLastSectionIsRefused) {
    begin(1);
    fillCells();
    setCell(3, 0, 0);
    EXPECT_EQ(setIir(0), "OK");
    EXPECT_EQ(setIir(1), "OK");
    expectBassControlRefused();
}

TEST_F(RpcHandlerTransferTest, BassControlAboveItsLastSectionIsRefused) {
    beginWithBassControl();
    setCell(5, 0, 0);
    EXPECT_EQ(setDelayGain(0), "OK");
    expectBassControlRefused();
}

TEST_F(RpcHandlerTransferTest, BassControlForOneVariantOnlyIsRefused) {
    begin(1);
    fillCells();
    setCell(4, 0, 0);
    EXPECT_EQ(setDelayGain(0), "OK");
    expectBassControlRefused();
    EXPECT_EQ(setDelayGain(1), "OK");
    EXPECT_EQ(end(1), "OK");
}

TEST_F(RpcHandlerTransferTest, RefusedBassControlLeavesTheStoredDesignAlone) {
    transferFir(1, "Sofa", {0.25F}, 9);
    begin(1);
    setCell(0, 0, 0);
    EXPECT_EQ(setIir(0), "OK");
    const VeskDiracSlotsList before = settings();
    expectBassControlRefused();
    EXPECT_EQ(settings(), before);
}

TEST_F(RpcHandlerTransferTest, ADesignReachesTheSegment) {
    transferFir(2, "Sofa", {0.125F, -0.5F, 0.25F}, 9);
    activate(2);
    settle();
    EXPECT_EQ(image().bypass, 0);
    EXPECT_EQ(segmentTaps(0, 3), (std::vector<float>{0.125F, -0.5F, 0.25F}));
    EXPECT_EQ(segmentTaps(1, 3), (std::vector<float>{0.125F, -0.5F, 0.25F}));
}

TEST_F(RpcHandlerTransferTest, ADesignThatIsReplacedReachesTheSegment) {
    transferFir(2, "Sofa", {0.125F}, 9);
    activate(2);
    transferFir(2, "Sofa", {0.75F}, 10);
    settle();
    EXPECT_EQ(image().bypass, 0);
    EXPECT_EQ(segmentTaps(0, 1), std::vector<float>{0.75F});
}

TEST_F(RpcHandlerTransferTest, ADesignThatIsLargerThanTheImageIsBypassed) {
    begin(1);
    setCell(5, 0, 0);
    setFiir(0, 1025);
    setCell(5, 1, 1);
    setFiir(0, 1);
    setFiir(1, 1);
    EXPECT_EQ(end(1), "OK");
    activate(1);
    settle();
    EXPECT_EQ(image().bypass, 1);
    EXPECT_TRUE(log().contains("ERROR Filter slot 1 does not fit the DSP's image: "));
}
