#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"
#include "modules/dirac/SectionTopology.h"

namespace {

/// Whether `index` addresses an element of a list of `size` elements.
bool isIndex(int index, std::size_t size) {
    return index >= 0 && static_cast<std::size_t>(index) < size;
}

/// Copies the variant's description into the answer; false when there is no such variant.
template <typename Info>
bool describe(const std::vector<Info>& variants, int id, Info* response) {
    if (!isIndex(id, variants.size()))
        return false;
    response->CopyFrom(variants[static_cast<std::size_t>(id)]);
    return true;
}

}  // namespace

grpc::Status RpcHandler::GetDeviceInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                       dio::endpoint::DeviceInfo* response) {
    DIRAC_SCOPED_TRACE("");
    response->set_manufacturer(serverInfo_->manufacturer);
    response->set_device_name(serverInfo_->deviceName);
    response->set_model_name(serverInfo_->modelName);
    response->set_uuid(serverInfo_->uuid);
    response->set_extra_info(serverInfo_->extraInfo);
    response->set_num_speakers(static_cast<std::uint32_t>(serverInfo_->speakers.size()));
    response->set_num_mics(static_cast<std::uint32_t>(serverInfo_->mics.size()));
    response->set_num_slots(serverInfo_->numberOfSlots);
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetMicInfo(grpc::ServerContext*, const dio::endpoint::Index* request,
                                    dio::endpoint::MicInfo* response) {
    const int index = request->value();
    DIRAC_SCOPED_TRACE("Index " << index);
    if (!isIndex(index, serverInfo_->mics.size()))
        return invalidArgument("Index out of bounds");
    response->set_name(serverInfo_->mics[static_cast<std::size_t>(index)]);
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetSpeakerInfo(grpc::ServerContext*, const dio::endpoint::Index* request,
                                        dio::endpoint::SpeakerInfo* response) {
    const int index = request->value();
    DIRAC_SCOPED_TRACE("Index " << index);
    LOG4CPLUS_INFO(logger, "Index " << index);
    if (!isIndex(index, serverInfo_->speakers.size()))
        return invalidArgument("Index must be less then number of speakers.");
    const DeviceInfo::Speaker& speaker = serverInfo_->speakers[static_cast<std::size_t>(index)];
    response->set_name(speaker.name);
    response->set_kind(speaker.type);
    response->set_group(speaker.groupId);
    const auto input = speakerToInput_.find(static_cast<std::uint8_t>(index));
    if (input == speakerToInput_.end()) {
        LOG4CPLUS_INFO(logger, "Not setting 'associated_input' for speaker at index " << index);
        return grpc::Status::OK;
    }
    response->mutable_associated_input()->set_value(input->second);
    LOG4CPLUS_INFO(logger, "Setting 'associated_input' for speaker " << index);
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetStimuliInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                        dio::endpoint::StimuliInfo* response) {
    DIRAC_SCOPED_TRACE("");
    for (const auto type :
         {dio::endpoint::STIMULUS_TYPE_LOG_SWEEP, dio::endpoint::STIMULUS_TYPE_PINK_NOISE}) {
        dio::endpoint::Stimulus* const stimulus = response->add_stimuli();
        stimulus->set_type(type);
        stimulus->set_variant(0);
    }
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetPinkNoiseInfo(grpc::ServerContext*,
                                          const dio::endpoint::Variant* request,
                                          dio::endpoint::PinkNoiseInfo* response) {
    DIRAC_SCOPED_TRACE("Variant " << request->id());
    if (!describe(serverInfo_->pinkNoiseInfos, request->id(), response))
        return invalidArgument("Invalid variant id.");
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetLogSweepInfo(grpc::ServerContext*,
                                         const dio::endpoint::Variant* request,
                                         dio::endpoint::LogSweepInfo* response) {
    DIRAC_SCOPED_TRACE("Variant " << request->id());
    if (!describe(serverInfo_->logSweepInfos, request->id(), response))
        return invalidArgument("Invalid variant id.");
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetIIRInfo(grpc::ServerContext*, const dio::endpoint::Variant* request,
                                    dio::endpoint::IIRInfo* response) {
    DIRAC_SCOPED_TRACE("Variant " << request->id());
    if (!describe(serverInfo_->iirInfos, request->id(), response))
        return invalidArgument("variant out of range");
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetFIIRInfo(grpc::ServerContext*, const dio::endpoint::Variant* request,
                                     dio::endpoint::FIIRInfo* response) {
    DIRAC_SCOPED_TRACE("Variant " << request->id());
    if (!describe(serverInfo_->fiirInfos, request->id(), response))
        return invalidArgument("variant out of range");
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetDelayGainInfo(grpc::ServerContext*,
                                          const dio::endpoint::Variant* request,
                                          dio::endpoint::DelayGainInfo* response) {
    DIRAC_SCOPED_TRACE("Variant " << request->id());
    if (!describe(serverInfo_->delayGainInfos, request->id(), response))
        return invalidArgument("variant out of range");
    return grpc::Status::OK;
}

grpc::Status RpcHandler::GetStreamingInfo(grpc::ServerContext*, const dio::endpoint::Void*,
                                          dio::endpoint::StreamingInfo* response) {
    DIRAC_SCOPED_TRACE("");
    response->CopyFrom(serverInfo_->streamingInfo);
    return grpc::Status::OK;
}

std::tuple<unsigned char, unsigned char> RpcHandler::getSectionDimensions(
    std::uint8_t section) const {
    DIRAC_SCOPED_TRACE("Section index: " << unsigned{section});
    const auto dimensions = sectionDimensions(serverInfo_->speakers, section);
    if (!dimensions)
        LOG4CPLUS_ERROR(logger, "Invalid section index!");
    const auto [inputs, outputs] = dimensions.value_or(SectionDimensions());
    return {inputs, outputs};
}

grpc::Status RpcHandler::GetSectionInfo(grpc::ServerContext*, const dio::endpoint::Index* request,
                                        dio::endpoint::SectionInfo* response) {
    DIRAC_SCOPED_TRACE("Index " << request->value());
    const auto section = static_cast<std::uint32_t>(request->value());
    if (section >= kNumberOfSections)
        return invalidArgument("Section index out of range");
    const auto [inputs, outputs] = getSectionDimensions(static_cast<std::uint8_t>(section));
    const auto disposition = section == kCorrectionSection
                                 ? dio::endpoint::SECTION_DISPOSITION_DIAGONAL
                                 : dio::endpoint::SECTION_DISPOSITION_MATRIX;
    response->set_section(section);
    response->set_num_inputs(inputs);
    response->set_num_outputs(outputs);
    response->set_disposition(disposition);
    LOG4CPLUS_DEBUG(logger, "Section: " << section << " num_inputs: " << unsigned{inputs}
                                        << " num_outputs: " << unsigned{outputs}
                                        << " disposition: " << int{disposition});
    return grpc::Status::OK;
}

/// Looks at the low 8 bits of the index only.
grpc::Status RpcHandler::GetFilterInputInfo(grpc::ServerContext*,
                                            const dio::endpoint::Index* request,
                                            dio::endpoint::FilterChannelInfo* response) {
    const int index = request->value();
    DIRAC_SCOPED_TRACE("Index " << index);
    LOG4CPLUS_INFO(logger, "Input channel index " << index);
    const auto mapped = inputToSpeaker_.find(static_cast<std::uint8_t>(index));
    if (mapped == inputToSpeaker_.end()) {
        LOG4CPLUS_INFO(logger, "Input channel index " << index << " is not valid!");
        return invalidArgument("Not a valid input channel index.");
    }
    const DeviceInfo::Speaker& speaker = serverInfo_->speakers.at(mapped->second);
    response->set_index(index);
    response->set_name(speaker.name);
    response->set_is_subwoofer(speaker.type == DeviceInfo::kSubwooferType);
    return grpc::Status::OK;
}

/// Section 6 passes the test of the section: having no channels, it has no valid cell.
grpc::Status RpcHandler::isCellIndexValid(const dio::endpoint::CellIndex* cell) const {
    DIRAC_SCOPED_TRACE("");
    if (!cell)
        return invalidArgument("No transfer cell has been set");
    if (cell->section() > kNumberOfSections)
        return invalidArgument("Section index out of range");
    const auto [inputs, outputs] = getSectionDimensions(static_cast<std::uint8_t>(cell->section()));
    if (cell->input_channel() >= inputs)
        return invalidArgument("Input channel index out of range");
    if (cell->output_channel() >= outputs)
        return invalidArgument("Output channel index out of range");
    return grpc::Status::OK;
}

void RpcHandler::listVariants(dio::endpoint::CellInfo& cell) const {
    for (int variant = 0; variant < numberOfFiirVariants_; ++variant)
        cell.add_variants(static_cast<std::uint32_t>(variant));
}

/// Only section 5 has its channels looked at.
grpc::Status RpcHandler::GetCellInfo(grpc::ServerContext*, const dio::endpoint::CellIndex* request,
                                     dio::endpoint::CellInfo* response) {
    DIRAC_SCOPED_TRACE("Section: " << request->section() << " Cell: " << request->input_channel()
                                   << " " << request->output_channel());
    switch (request->section()) {
        case 0:
        case 1:
        case 3:
            response->set_kind(dio::endpoint::FILTER_KIND_IIR);
            listVariants(*response);
            return grpc::Status::OK;
        case 2:
        case 4:
            response->set_kind(dio::endpoint::FILTER_KIND_DELAY_GAIN);
            listVariants(*response);
            return grpc::Status::OK;
        case kCorrectionSection: {
            response->set_kind(dio::endpoint::FILTER_KIND_FIIR);
            const grpc::Status valid = isCellIndexValid(request);
            if (valid.ok() && request->input_channel() == request->output_channel())
                listVariants(*response);
            return valid;
        }
        default:
            return invalidArgument("section out of range");
    }
}
