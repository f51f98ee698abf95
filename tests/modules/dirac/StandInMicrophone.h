#pragma once

#include "sdk/cm/CMReply.h"
#include "sdk/records/VeskPowerManagerRecords.h"

#include <QByteArray>
#include <QString>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

/// Takes the place of the platform's capture device, in programs that link StandInMicrophone.cpp,
/// and of its power manager in those that link CallLog.cpp too. Any thread.
class StandInMicrophone {
public:
    /// What a device was made with, its format by name.
    struct Setup {
        std::string name;
        int sampleRate{0};
        unsigned channels{0};
        std::string format;
        int period{0};
        int buffer{0};
    };

    static StandInMicrophone& instance();
    /// As it was when the program started: it can be opened, and the power manager gives it.
    void reset();

    // ---- The device ----

    void refuseToOpen();
    /// A next read gives this. One that finds nothing gives silence, after 20 ms.
    void deliver(const QByteArray& block);
    /// From now on reads do not wait.
    void deliverSilence();
    /// The next read that finds nothing to give fails.
    void unplug();
    /// What the size queries answer.
    void setSizes(int bytesPerSample, int channels);

    std::vector<Setup> devicesMade() const;
    int openDevices() const;
    /// The number of frames of each read so far.
    std::vector<int> reads() const;

    // ---- The power manager ----

    /// Answers each request with an error.
    void refuse(const QString& why);
    void answerNothing();

    /// "acquire" and "release", each with the module's name and the number of the resource.
    std::vector<std::string> requests() const;

    // ---- For the stand-in of the device ----

    void made(const Setup& setup);
    void gone();
    bool open();
    bool read(QByteArray& block, int frames);
    int bytesPerSample() const;
    int channels() const;

    // ---- For the stand-in of the power manager ----

    void take(const VeskPowerManagerResourceRequest& request, const CMReply<QVariant>& reply);

private:
    struct State {
        bool opens{true};
        bool silent{false};
        bool unplugged{false};
        std::deque<QByteArray> blocks;
        int bytesPerSample{4};
        int channels{1};
        std::vector<Setup> made;
        int open{0};
        std::vector<int> reads;
        bool answers{true};
        QString refusal;  // empty: the microphone is given
        std::vector<std::string> requests;
    };

    template <typename Change>
    void change(const Change& change);

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    State state_;  // guarded by mutex_
};
