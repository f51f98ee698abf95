#pragma once

#include "sdk/dldsp/DiracConfiguration.h"
#include "sdk/services/SharedLock.h"

/// The System V shared-memory segment from which the DSP reads its image. Failures are printed to
/// standard error; without a segment, publications are refused and all else goes on. Used in one
/// thread.
class FilterSegment {
public:
    explicit FilterSegment(int segmentKey = DiracSegment::kKey);
    /// Discards the segment.
    ~FilterSegment();

    FilterSegment(const FilterSegment&) = delete;
    FilterSegment& operator=(const FilterSegment&) = delete;

    /// Attaches the segment; creates it with the default image when nobody else has it, which sets
    /// `created`. Call while holding `lock`. The result does not tell success: judge by `shmId` and
    /// `address`.
    bool sharedMemInit(bool& created);

    /// Detaches; whoever leaves last removes the segment. Does not wait for `lock`: a reader that
    /// is attached just then leaves the segment to the next start, which fills it anew.
    void sharedMemDiscard();

    /// Copies the whole image into the segment under `lock`.
    void publish(const DiracConfiguration& configuration);

    SharedLock lock;  ///< keeps the DSP away while the segment changes
    const int key;
    int shmId{-1};                   ///< -1 while there is no segment
    DiracSegment* address{nullptr};  ///< null while nothing is attached

private:
    bool open();
    bool removeUnused() const;
    bool attach();
    bool adopt(bool& created);
    bool detach();
    bool remove() const;
};
