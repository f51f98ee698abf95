#pragma once

#include "sdk/records/VeskHash.h"

#include <QVariantList>

// The records of room correction. Lists are QVariantLists; the comment names the record that each
// element is read as. Filter coefficients are widened to double and carried without unit
// conversion.

/// One loudspeaker of the device.
class VeskDiracSpeakerInfo : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QString, name, Name)
    VESK_FIELD(unsigned, type, Type)  // 4: counted apart from the others (bass management)
    VESK_FIELD(unsigned, groupId, GroupId)
};

/// One measurement microphone of the device.
class VeskDiracMicsInfo : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QString, name, Name)
};

/// What the device is, as far as calibration needs to know it.
class VeskDiracConfig : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QVariantList, speakers, Speakers)  // VeskDiracSpeakerInfo
    VESK_FIELD(QVariantList, mics, Mics)          // VeskDiracMicsInfo
    VESK_FIELD(unsigned, numberOfSlots, NumberOfSlots)
    VESK_FIELD(int, stimuliSampleRate, StimuliSampleRate)      // Hz
    VESK_FIELD(unsigned, stimuliChannels, StimuliChannels)     // absent: one per speaker
    VESK_FIELD(int, ipcKey, IpcKey)                            // not the segment's; of no effect
    VESK_FIELD(QString, micDeviceName, MicDeviceName)          // an ALSA name
    VESK_FIELD(int, micRecordSampleRate, MicRecordSampleRate)  // Hz
    VESK_FIELD(bool, disableShmUpdate, DisableShmUpdate)       // the DSP image stays as it is
};

/// A parallel second-order section: (b0 + b1 z^-1) / (1 + a1 z^-1 + a2 z^-2).
class VeskDiracPiirBiquad : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(double, a1, A1)
    VESK_FIELD(double, a2, A2)
    VESK_FIELD(double, b0, B0)
    VESK_FIELD(double, b1, B1)
};

/// A second-order section in series.
class VeskDiracIirBiquad : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(double, b0, B0)
    VESK_FIELD(double, b1, B1)
    VESK_FIELD(double, b2, B2)
    VESK_FIELD(double, a1, A1)
    VESK_FIELD(double, a2, A2)
};

/// FIR taps with parallel second-order sections of one channel.
class VeskDiracFiirParams : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(bool, enabled, Enabled)
    VESK_FIELD(QVariantList, taps, Taps)  // double
    VESK_FIELD(int, tapSize, TapSize)
    VESK_FIELD(QVariantList, biquads, Biquads)  // VeskDiracPiirBiquad
    VESK_FIELD(int, biquadSize, BiquadSize)
};

/// Delay and gain of one channel.
class VeskDiracLinearParams : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(bool, enabled, Enabled)
    VESK_FIELD(double, delay, Delay)  // ms
    VESK_FIELD(double, gain, Gain)    // dB
};

/// The filter of one channel.
class VeskDiracChannelParams : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(VeskDiracFiirParams, fiir, Fiir)
    VESK_FIELD(VeskDiracLinearParams, linear, Linear)
};

/// One cell of a bass-control section: IIR sections carry `iirs`, the others delay and gain.
class VeskDiracBcCells : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(int, cellIdx, CellIdx)
    VESK_FIELD(int, inputIdx, InputIdx)
    VESK_FIELD(int, outputIdx, OutputIdx)
    VESK_FIELD(QVariantList, iirs, Iirs)  // VeskDiracIirBiquad
    VESK_FIELD(int, numIirs, NumIirs)
    VESK_FIELD(double, delay, Delay)  // samples
    VESK_FIELD(double, gain, Gain)    // dB
};

/// One of the five sections of bass control.
class VeskDiracBcParams : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(int, sectionIdx, SectionIdx)
    VESK_FIELD(int, type, Type)  // 0: IIR, 1: delay and gain
    VESK_FIELD(int, numCells, NumCells)
    VESK_FIELD(QVariantList, cells, Cells)  // VeskDiracBcCells
};

/// One filter slot.
class VeskDiracSlot : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(int, slotIdx, SlotIdx)
    VESK_FIELD(QString, name, Name)
    VESK_FIELD(QString, description, Description)
    VESK_FIELD(QString, filterTypeName, FilterTypeName)
    VESK_FIELD(qint64, creationTime, CreationTime)  // in the client's unit
    VESK_FIELD(qint64, size, Size)                  // number of variants of the design
    VESK_FIELD(QVariantList, params, Params)        // per variant a list of VeskDiracChannelParams
    VESK_FIELD(QVariantList, bcParams, BcParams)    // per variant a list of VeskDiracBcParams
};

/// All slots, and what of them is in use.
class VeskDiracSlotsList : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(int, activeSlot, ActiveSlot)   // -1: none
    VESK_FIELD(QVariantList, slots_, Slots_)  // VeskDiracSlot
    VESK_FIELD(bool, delayGainEnabled, DelayGainEnabled)
    VESK_FIELD(bool, filteringEnabled, FilteringEnabled)
};
