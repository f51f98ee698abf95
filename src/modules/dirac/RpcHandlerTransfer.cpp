#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"
#include "modules/dirac/SectionTopology.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>

namespace {

// Beyond any device: they keep a client from making the process grow. What the DSP has room for is
// far below.
constexpr int kMaxInputs = 4096;
constexpr int kMaxTaps = 65536;    // in one cell
constexpr int kMaxBiquads = 4096;  // in one cell
constexpr std::size_t kMaxTransferTaps = std::size_t{1} << 20U;
constexpr std::size_t kMaxTransferBiquads = std::size_t{1} << 16U;

processing::CellIndex addressOf(const dio::endpoint::CellIndex& cell) {
    return {cell.section(), cell.input_channel(), cell.output_channel()};
}

std::vector<dio::endpoint::Biquad> biquadsOf(const dio::endpoint::IIR& iir) {
    return {iir.biquads().begin(), iir.biquads().end()};
}

std::string limitText(std::size_t limit, const char* what) {
    return "Filter transfer: at most " + std::to_string(limit) + what;
}

grpc::Status checkSize(int size, int limit, const char* what) {
    if (size <= limit)
        return grpc::Status::OK;
    return {grpc::StatusCode::INVALID_ARGUMENT, limitText(static_cast<std::size_t>(limit), what)};
}

grpc::Status checkBiquads(const dio::endpoint::IIR& iir) {
    return checkSize(iir.biquads_size(), kMaxBiquads, " biquads in one cell");
}

grpc::Status checkTaps(const dio::endpoint::FIR& fir) {
    return checkSize(fir.taps_size(), kMaxTaps, " taps in one cell");
}

/// OK when all are.
grpc::Status firstFailure(std::initializer_list<grpc::Status> checks) {
    const auto* const failure = std::find_if(checks.begin(), checks.end(),
                                             [](const grpc::Status& check) { return !check.ok(); });
    return failure == checks.end() ? grpc::Status::OK : *failure;
}

}  // namespace

/// An open transfer starts over. The transfer cell stays.
grpc::Status RpcHandler::BeginFilterTransfer(grpc::ServerContext*,
                                             const dio::endpoint::SlotInfo* request,
                                             dio::endpoint::Void*) {
    DIRAC_SCOPED_TRACE("Slot " << request->slot());
    const SlotsLock lock = lockSlots();
    if (!isSlot(request->slot()))
        return invalidArgument("Slot index out of range");
    const auto transfer = std::make_shared<FilterTransfer>();
    transfer->slot = *request;
    transfer->coefficients.resize(static_cast<std::size_t>(numberOfFiirVariants_));
    transfer->bassControl.resize(static_cast<std::size_t>(numberOfFiirVariants_));
    transfer_ = transfer;
    return grpc::Status::OK;
}

/// Needs no open transfer.
grpc::Status RpcHandler::SetTransferCell(grpc::ServerContext*,
                                         const dio::endpoint::CellIndex* request,
                                         dio::endpoint::Void*) {
    DIRAC_SCOPED_TRACE("Cell: " << request->input_channel() << ", " << request->output_channel());
    const SlotsLock lock = lockSlots();
    const grpc::Status valid = isCellIndexValid(request);
    if (!valid.ok())
        return valid;
    transferCell_ = std::make_shared<dio::endpoint::CellIndex>(*request);
    return grpc::Status(grpc::StatusCode::OK, "");
}

// The trace shows the signature. NOLINTNEXTLINE(performance-unnecessary-value-param)
grpc::Status RpcHandler::isFilterTransferValid(std::shared_ptr<dio::endpoint::CellIndex> cell,
                                               int variant) const {
    DIRAC_SCOPED_TRACE("");
    const grpc::Status valid = isCellIndexValid(cell.get());
    if (!valid.ok())
        return valid;
    const bool isVariant = variant >= 0 && variant < numberOfFiirVariants_;
    const bool isOffDiagonal =
        cell->section() == kCorrectionSection && cell->input_channel() != cell->output_channel();
    if (!isVariant || isOffDiagonal)
        return invalidArgument(
            "Filter transfer: The transfer call does not support the given variant");
    return grpc::Status::OK;
}

grpc::Status RpcHandler::isTransferOpen() const {
    if (transfer_)
        return grpc::Status::OK;
    return {grpc::StatusCode::FAILED_PRECONDITION, "No filter transfer is open"};
}

/// Counts what a call brings to the open transfer. Cells that are filled again count again.
grpc::Status RpcHandler::reserve(int taps, int biquads) {
    const std::size_t allTaps = transfer_->taps + static_cast<std::size_t>(taps);
    const std::size_t allBiquads = transfer_->biquads + static_cast<std::size_t>(biquads);
    if (allTaps > kMaxTransferTaps)
        return invalidArgument(limitText(kMaxTransferTaps, " taps in one transfer"));
    if (allBiquads > kMaxTransferBiquads)
        return invalidArgument(limitText(kMaxTransferBiquads, " biquads in one transfer"));
    transfer_->taps = allTaps;
    transfer_->biquads = allBiquads;
    return grpc::Status::OK;
}

grpc::Status RpcHandler::SetCellIIR(grpc::ServerContext*, const dio::endpoint::IIR* request,
                                    dio::endpoint::Void*) {
    const auto variant = static_cast<int>(request->info().variant());
    DIRAC_SCOPED_TRACE("Variant " << variant);
    const SlotsLock lock = lockSlots();
    const auto cell = transferCell_;
    const grpc::Status valid = firstFailure(
        {isFilterTransferValid(cell, variant), checkBiquads(*request), isTransferOpen()});
    if (!valid.ok())
        return valid;
    const grpc::Status room = reserve(0, request->biquads_size());
    if (!room.ok())
        return room;
    transfer_->bassControl.at(static_cast<std::size_t>(variant))
        .setCoefficientsForCell(addressOf(*cell), biquadsOf(*request));
    transfer_->hasBassControl = true;
    return grpc::Status::OK;
}

/// The coefficients belong to the cell's input channel.
grpc::Status RpcHandler::SetCellFIIR(grpc::ServerContext*, const dio::endpoint::FIIR* request,
                                     dio::endpoint::Void*) {
    const auto variant = static_cast<int>(request->info().variant());
    DIRAC_SCOPED_TRACE("Variant " << variant);
    const SlotsLock lock = lockSlots();
    const auto cell = transferCell_;
    const grpc::Status valid =
        firstFailure({isFilterTransferValid(cell, variant), checkTaps(request->fir()),
                      checkBiquads(request->iir()), isTransferOpen()});
    if (!valid.ok())
        return valid;
    const auto& taps = request->fir().taps();
    const grpc::Status room = reserve(taps.size(), request->iir().biquads_size());
    if (!room.ok())
        return room;
    transfer_->coefficients.at(static_cast<std::size_t>(variant))
        .setCoefficientsForCell(static_cast<int>(cell->input_channel()), {taps.begin(), taps.end()},
                                biquadsOf(request->iir()));
    return grpc::Status::OK;
}

grpc::Status RpcHandler::SetCellDelayGain(grpc::ServerContext*,
                                          const dio::endpoint::DelayGain* request,
                                          dio::endpoint::Void*) {
    const auto variant = static_cast<int>(request->info().variant());
    DIRAC_SCOPED_TRACE("Variant " << variant);
    const SlotsLock lock = lockSlots();
    const auto cell = transferCell_;
    const grpc::Status valid =
        firstFailure({isFilterTransferValid(cell, variant), isTransferOpen()});
    if (!valid.ok())
        return valid;
    transfer_->bassControl.at(static_cast<std::size_t>(variant))
        .setDelayGainForCell(addressOf(*cell), request->delay(), request->gain());
    transfer_->hasBassControl = true;
    return grpc::Status::OK;
}

/// Belongs to every variant. A negative input is passed on, to be ignored.
grpc::Status RpcHandler::SetInputGainDelay(grpc::ServerContext*,
                                           const dio::endpoint::GainDelay* request,
                                           dio::endpoint::Void*) {
    const int input = request->input();
    DIRAC_SCOPED_TRACE("Set input gain and dely Idx: " << input << " (" << request->gain() << " db "
                                                       << request->delay() << " ms)");
    const SlotsLock lock = lockSlots();
    if (input >= kMaxInputs)
        return invalidArgument(limitText(kMaxInputs, " inputs"));
    const grpc::Status open = isTransferOpen();
    if (!open.ok())
        return open;
    for (processing::FilterCoefficients& variant : transfer_->coefficients)
        variant.setGainDelayForCell(input, request->gain(), request->delay());
    return grpc::Status::OK;
}

/// The slots are locked for each step and free while the progress is on its way to the client.
grpc::Status RpcHandler::EndFilterTransfer(grpc::ServerContext*,
                                           const dio::endpoint::Index* request,
                                           grpc::ServerWriter<dio::endpoint::Progress>* writer) {
    const int slot = request->value();
    DIRAC_SCOPED_TRACE("Slot " << slot);
    std::shared_ptr<FilterTransfer> transfer;
    const grpc::Status valid = takeTransferToEnd(slot, transfer);
    if (!valid.ok())
        return valid;
    report(writer, 0.1F);
    createSlot(*transfer);
    report(writer, 0.5F);
    storeDesign(*transfer);
    report(writer, 0.9F);
    closeTransfer(transfer);
    report(writer, 1.0F);
    scopedTrace.leaveWith("RETURN: OK");
    return grpc::Status::OK;
}

/// Checks that the open transfer can end with this slot. It stays open.
grpc::Status RpcHandler::takeTransferToEnd(int slot, std::shared_ptr<FilterTransfer>& transfer) {
    const SlotsLock lock = lockSlots();
    const grpc::Status open = isTransferOpen();
    if (!open.ok())
        return open;
    if (transfer_->slot.slot() != slot)
        return invalidArgument("wrong slot index");
    transfer = transfer_;
    return firstFailure({isCellIndexValid(transferCell_.get()), checkBassControl(*transfer_)});
}

/// The filter manager takes whole bass control for granted, and drops the slot's former design
/// before it looks.
grpc::Status RpcHandler::checkBassControl(const FilterTransfer& transfer) {
    if (!transfer.hasBassControl ||
        std::ranges::all_of(transfer.bassControl,
                            &processing::BassControlFilterCoefficients::isWhole))
        return grpc::Status::OK;
    return invalidArgument(
        "Filter transfer: bass control needs cells in section 4 of each variant, none above, and "
        "in each cell what its section carries");
}

void RpcHandler::createSlot(const FilterTransfer& transfer) {
    const SlotsLock lock = lockSlots();
    const dio::endpoint::SlotInfo& info = transfer.slot;
    filterManager_->createFilterSlot(info.slot(), info.name(), info.filter_type_name(),
                                     info.description(), info.creation_time());
}

/// With empty cells in the place of missing ones: the reload at the next start reads as many cells
/// of each variant as there are variants.
void RpcHandler::storeDesign(const FilterTransfer& transfer) {
    const SlotsLock lock = lockSlots();
    using BassControl = std::vector<processing::BassControlFilterCoefficients>;
    auto coefficients = transfer.coefficients;
    for (processing::FilterCoefficients& variant : coefficients)
        variant.resizeToFit(numberOfFiirVariants_);
    filterManager_->setFilterForSlot(
        transfer.slot.slot(), coefficients,
        transfer.hasBassControl ? transfer.bassControl : BassControl());
}

/// A transfer that another client has begun meanwhile stays open.
void RpcHandler::closeTransfer(const std::shared_ptr<FilterTransfer>& transfer) {
    const SlotsLock lock = lockSlots();
    if (transfer_ != transfer)
        return;
    transfer_.reset();
    transferCell_.reset();
}
