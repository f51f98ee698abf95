#include "support/DeviceFixture.h"

#include <gmock/gmock.h>

#include <tuple>

using namespace dio::endpoint;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class RpcHandlerTopologyTest : public DeviceFixture {
protected:
    /// Three speakers in two groups, and a subwoofer.
    RpcHandlerTopologyTest() {
        description.speakers = QList<platform::Speaker>{{QStringLiteral("Left"), 1, 0},
                                                        {QStringLiteral("Right"), 1, 0},
                                                        {QStringLiteral("Centre"), 2, 1},
                                                        {QStringLiteral("Bass"), 4, 9}};
        description.microphones = QStringList{QStringLiteral("One"), QStringLiteral("Two")};
    }

    void SetUp() override { startDevice(); }
};

}  // namespace

// ---- The device ----

TEST_F(RpcHandlerTopologyTest, DescribesTheDevice) {
    const auto info = ask(&Stub::GetDeviceInfo, Void());
    EXPECT_EQ(info.manufacturer(), "Vesk");
    EXPECT_EQ(info.device_name(), "Living room");
    EXPECT_EQ(info.model_name(), "Xy");
    EXPECT_EQ(info.uuid().size(), 36U);
    EXPECT_EQ(info.extra_info(), "");
    EXPECT_EQ(info.num_speakers(), 4U);
    EXPECT_EQ(info.num_mics(), 2U);
    EXPECT_EQ(info.num_slots(), 4U);
}

TEST_F(RpcHandlerTopologyTest, TracesAHandler) {
    ask(&Stub::GetDeviceInfo, Void());
    const std::string signature =
        "virtual grpc::Status RpcHandler::GetDeviceInfo(grpc::ServerContext*, const "
        "dio::endpoint::Void*, dio::endpoint::DeviceInfo*)";
    EXPECT_TRUE(logged("TRACE Enter " + signature + ": "));
    EXPECT_TRUE(logs("TRACE Leave " + signature));
}

TEST_F(RpcHandlerTopologyTest, MapsEachSpeakerToTheInputOfItsIndex) {
    for (int index = 0; index < 4; ++index) {
        const auto speaker = ask(&Stub::GetSpeakerInfo, indexOf(index));
        ASSERT_TRUE(speaker.has_associated_input());
        EXPECT_EQ(speaker.associated_input().value(), index);
        EXPECT_TRUE(logged("DEBUG Mapping speaker " + std::to_string(index) + " to input channel " +
                           std::to_string(index)));
    }
    EXPECT_TRUE(logged("INFO Index 3"));
    EXPECT_TRUE(logged("INFO Setting 'associated_input' for speaker 3"));
}

TEST_F(RpcHandlerTopologyTest, DescribesASpeaker) {
    const auto speaker = ask(&Stub::GetSpeakerInfo, indexOf(3));
    EXPECT_EQ(speaker.name(), "Bass");
    EXPECT_EQ(speaker.kind(), 4U);
    EXPECT_EQ(speaker.group(), 9U);
}

TEST_F(RpcHandlerTopologyTest, RejectsASpeakerOutOfRange) {
    constexpr const char* kRejected =
        "INVALID_ARGUMENT \"Index must be less then number of speakers.\"";
    EXPECT_EQ(outcomeOf(&Stub::GetSpeakerInfo, indexOf(4)), kRejected);
    EXPECT_EQ(outcomeOf(&Stub::GetSpeakerInfo, indexOf(-1)), kRejected);
}

TEST_F(RpcHandlerTopologyTest, NamesAMicrophone) {
    EXPECT_EQ(ask(&Stub::GetMicInfo, indexOf(1)).name(), "Two");
}

TEST_F(RpcHandlerTopologyTest, RejectsAMicrophoneOutOfRange) {
    EXPECT_EQ(outcomeOf(&Stub::GetMicInfo, indexOf(2)), "INVALID_ARGUMENT \"Index out of bounds\"");
    EXPECT_EQ(outcomeOf(&Stub::GetMicInfo, indexOf(-1)),
              "INVALID_ARGUMENT \"Index out of bounds\"");
}

TEST_F(RpcHandlerTopologyTest, TracesAHandlersIndex) {
    ask(&Stub::GetMicInfo, indexOf(1));
    EXPECT_TRUE(logged(
        "TRACE Enter virtual grpc::Status RpcHandler::GetMicInfo(grpc::ServerContext*, const "
        "dio::endpoint::Index*, dio::endpoint::MicInfo*): Index 1"));
}

// ---- Sections ----

TEST_F(RpcHandlerTopologyTest, SizesItsSections) {
    const std::vector<std::tuple<unsigned, unsigned, SectionDisposition>> expected{
        {4, 6, SECTION_DISPOSITION_MATRIX}, {6, 6, SECTION_DISPOSITION_MATRIX},
        {6, 7, SECTION_DISPOSITION_MATRIX}, {7, 7, SECTION_DISPOSITION_MATRIX},
        {7, 4, SECTION_DISPOSITION_MATRIX}, {4, 4, SECTION_DISPOSITION_DIAGONAL}};
    for (int section = 0; section < 6; ++section) {
        const auto info = ask(&Stub::GetSectionInfo, indexOf(section));
        EXPECT_EQ(info.section(), static_cast<unsigned>(section));
        EXPECT_EQ(std::tuple(info.num_inputs(), info.num_outputs(), info.disposition()),
                  expected.at(static_cast<std::size_t>(section)))
            << section;
    }
    EXPECT_TRUE(logged("DEBUG Section: 5 num_inputs: 4 num_outputs: 4 disposition: 1"));
    EXPECT_TRUE(logged("DEBUG Section: 0 num_inputs: 4 num_outputs: 6 disposition: 2"));
    EXPECT_TRUE(
        log().contains("TRACE Enter std::tuple<unsigned char, unsigned char> "
                       "RpcHandler::getSectionDimensions(uint8_t) const: Section index: 5"));
}

TEST_F(RpcHandlerTopologyTest, RejectsASectionOutOfRange) {
    constexpr const char* kRejected = "INVALID_ARGUMENT \"Section index out of range\"";
    EXPECT_EQ(outcomeOf(&Stub::GetSectionInfo, indexOf(6)), kRejected);
    EXPECT_EQ(outcomeOf(&Stub::GetSectionInfo, indexOf(-1)), kRejected);
    EXPECT_FALSE(logged("ERROR Invalid section index!"));
}

TEST_F(RpcHandlerTopologyTest, DescribesAFilterInput) {
    const auto left = ask(&Stub::GetFilterInputInfo, indexOf(0));
    EXPECT_EQ(left.index(), 0);
    EXPECT_EQ(left.name(), "Left");
    EXPECT_FALSE(left.is_subwoofer());
    const auto bass = ask(&Stub::GetFilterInputInfo, indexOf(3));
    EXPECT_EQ(bass.name(), "Bass");
    EXPECT_TRUE(bass.is_subwoofer());
}

TEST_F(RpcHandlerTopologyTest, LooksAtTheLowByteOfAFilterInput) {
    const auto input = ask(&Stub::GetFilterInputInfo, indexOf(256));
    EXPECT_EQ(input.index(), 256);
    EXPECT_EQ(input.name(), "Left");
    EXPECT_EQ(ask(&Stub::GetFilterInputInfo, indexOf(-256)).name(), "Left");
}

TEST_F(RpcHandlerTopologyTest, RejectsAFilterInputOutOfRange) {
    constexpr const char* kRejected = "INVALID_ARGUMENT \"Not a valid input channel index.\"";
    EXPECT_EQ(outcomeOf(&Stub::GetFilterInputInfo, indexOf(4)), kRejected);
    EXPECT_EQ(outcomeOf(&Stub::GetFilterInputInfo, indexOf(-1)), kRejected);
    EXPECT_TRUE(logged("INFO Input channel index 4"));
    EXPECT_TRUE(logged("INFO Input channel index 4 is not valid!"));
}

// ---- Cells ----

TEST_F(RpcHandlerTopologyTest, NamesTheFilterOfEachSection) {
    const std::vector<FilterKind> kinds{FILTER_KIND_IIR,        FILTER_KIND_IIR,
                                        FILTER_KIND_DELAY_GAIN, FILTER_KIND_IIR,
                                        FILTER_KIND_DELAY_GAIN, FILTER_KIND_FIIR};
    for (unsigned section = 0; section < 6; ++section) {
        const auto cell = ask(&Stub::GetCellInfo, cellOf(section, 1, 1));
        EXPECT_EQ(cell.kind(), kinds.at(section)) << section;
        EXPECT_THAT(cell.variants(), ElementsAre(0, 1)) << section;
    }
}

TEST_F(RpcHandlerTopologyTest, OffersNoVariantOffTheDiagonalOfTheLastSection) {
    const auto cell = ask(&Stub::GetCellInfo, cellOf(5, 0, 1));
    EXPECT_EQ(cell.kind(), FILTER_KIND_FIIR);
    EXPECT_THAT(cell.variants(), IsEmpty());
}

TEST_F(RpcHandlerTopologyTest, LooksAtTheChannelsOfTheLastSectionOnly) {
    EXPECT_EQ(outcomeOf(&Stub::GetCellInfo, cellOf(0, 99, 99)), "OK");
    EXPECT_EQ(outcomeOf(&Stub::GetCellInfo, cellOf(5, 4, 0)),
              "INVALID_ARGUMENT \"Input channel index out of range\"");
    EXPECT_EQ(outcomeOf(&Stub::GetCellInfo, cellOf(5, 0, 4)),
              "INVALID_ARGUMENT \"Output channel index out of range\"");
}

TEST_F(RpcHandlerTopologyTest, RejectsACellOfAnUnknownSection) {
    EXPECT_EQ(outcomeOf(&Stub::GetCellInfo, cellOf(6, 0, 0)),
              "INVALID_ARGUMENT \"section out of range\"");
}

TEST_F(RpcHandlerTopologyTest, RejectsEveryCellOfSection6AsATransferCell) {
    EXPECT_EQ(outcomeOf(&Stub::SetTransferCell, cellOf(6, 0, 0)),
              "INVALID_ARGUMENT \"Input channel index out of range\"");
    EXPECT_TRUE(logged("ERROR Invalid section index!"));
    EXPECT_EQ(outcomeOf(&Stub::SetTransferCell, cellOf(7, 0, 0)),
              "INVALID_ARGUMENT \"Section index out of range\"");
}

// ---- Stimuli and variants ----

TEST_F(RpcHandlerTopologyTest, PlaysASweepAndPinkNoise) {
    const auto info = ask(&Stub::GetStimuliInfo, Void());
    ASSERT_EQ(info.stimuli_size(), 2);
    EXPECT_EQ(info.stimuli(0).type(), STIMULUS_TYPE_LOG_SWEEP);
    EXPECT_EQ(info.stimuli(0).variant(), 0U);
    EXPECT_EQ(info.stimuli(1).type(), STIMULUS_TYPE_PINK_NOISE);
    EXPECT_EQ(info.stimuli(1).variant(), 0U);
}

TEST_F(RpcHandlerTopologyTest, DescribesEachVariant) {
    EXPECT_EQ(ask(&Stub::GetPinkNoiseInfo, variantOf(0)).sample_rate(), 48000.0F);
    EXPECT_EQ(ask(&Stub::GetLogSweepInfo, variantOf(0)).length(), 240000U);
    EXPECT_EQ(ask(&Stub::GetLogSweepInfo, variantOf(1)).variant(), 1U);
    EXPECT_EQ(ask(&Stub::GetIIRInfo, variantOf(1)).max_biquads(), 6U);
    EXPECT_EQ(ask(&Stub::GetFIIRInfo, variantOf(0)).max_taps(), 1000U);
    EXPECT_EQ(ask(&Stub::GetFIIRInfo, variantOf(1)).sample_rate(), 44100.0F);
    EXPECT_EQ(ask(&Stub::GetDelayGainInfo, variantOf(1)).max_delay(), 150U);
}

TEST_F(RpcHandlerTopologyTest, RejectsAStimulusVariantOutOfRange) {
    constexpr const char* kRejected = "INVALID_ARGUMENT \"Invalid variant id.\"";
    EXPECT_EQ(outcomeOf(&Stub::GetPinkNoiseInfo, variantOf(1)), kRejected);
    EXPECT_EQ(outcomeOf(&Stub::GetPinkNoiseInfo, variantOf(-1)), kRejected);
    EXPECT_EQ(outcomeOf(&Stub::GetLogSweepInfo, variantOf(2)), kRejected);
    EXPECT_EQ(outcomeOf(&Stub::GetLogSweepInfo, variantOf(-1)), kRejected);
}

TEST_F(RpcHandlerTopologyTest, RejectsAFilterVariantOutOfRange) {
    constexpr const char* kRejected = "INVALID_ARGUMENT \"variant out of range\"";
    for (const int id : {2, -1}) {
        EXPECT_EQ(outcomeOf(&Stub::GetIIRInfo, variantOf(id)), kRejected);
        EXPECT_EQ(outcomeOf(&Stub::GetFIIRInfo, variantOf(id)), kRejected);
        EXPECT_EQ(outcomeOf(&Stub::GetDelayGainInfo, variantOf(id)), kRejected);
    }
}

TEST_F(RpcHandlerTopologyTest, DescribesItsStreams) {
    const auto streaming = ask(&Stub::GetStreamingInfo, Void());
    EXPECT_EQ(streaming.sample_rate(), 48000.0F);
    EXPECT_EQ(streaming.block_length(), 512U);
}

TEST_F(RpcHandlerTopologyTest, LeavesFourteenMethodsUnimplemented) {
    constexpr const char* kUnimplemented = "UNIMPLEMENTED \"\"";
    EXPECT_EQ(outcomeOf(&Stub::GetMicFilter, indexOf(0)), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::GetSpeakerFilter, indexOf(0)), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::GetPeriodicSweepInfo, variantOf(0)), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::GetMLSInfo, variantOf(0)), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::GetFIRInfo, variantOf(0)), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::GetDRFIRInfo, variantOf(0)), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::SetCellFIR, FIR()), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::SetCommonDRFIR, CommonDRFIR()), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::SetCellDRFIR, DRFIR()), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::SetCellParametricIIR, ParametricIIR()), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::ClearSection, indexOf(0)), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::SetInputCrossoverInfo, InputCrossoverInfo()), kUnimplemented);
    EXPECT_EQ(outcomeOf(&Stub::GetRecordingTransferInfo, Void()), kUnimplemented);
    grpc::ClientContext context;
    CalibrationClient::limit(&context);
    const auto reader = stub().TransferRecording(&context, indexOf(0));
    AudioBuffers buffers;
    EXPECT_FALSE(reader->Read(&buffers));
    EXPECT_EQ(outcome(reader->Finish()), kUnimplemented);
}
