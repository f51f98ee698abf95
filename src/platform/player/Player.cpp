#include "platform/player/Player.h"

#include "platform/Log.h"
#include "platform/PlatformPaths.h"
#include "platform/WakeEvent.h"
#include "platform/alsa/AlsaOutputDevice.h"
#include "platform/cm/Tree.h"
#include "platform/player/FileSource.h"
#include "platform/player/PlaybackSession.h"
#include "platform/player/PlayerStatistics.h"
#include "platform/player/SilentOutput.h"
#include "platform/player/SmtSource.h"
#include "sdk/records/VeskUrl.h"

#include <QFileInfo>
#include <QUrl>
#include <QUrlQuery>
#include <QtGlobal>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

namespace {

/// playerInstance() takes no argument, so that the player of the process has to stand somewhere.
std::atomic<PlayLogicInterface*>& instance() {
    static std::atomic<PlayLogicInterface*> player{nullptr};
    return player;
}

}  // namespace

PlayLogicInterface* PlayLogicInterface::playerInstance() {
    PlayLogicInterface* const player = instance();
    if (!player)
        qFatal("The player is used while no platform exists");
    return player;
}

namespace platform {

namespace {

constexpr std::chrono::milliseconds kBetweenStatistics{250};
constexpr int kAudioRoles = 3;

/// Throws std::exception, saying why `uri` cannot be played.
std::unique_ptr<AudioSource> sourceAt(const QString& uri) {
    const QUrl url(uri);
    if (url.scheme() == QLatin1String("file"))
        return std::make_unique<FileSource>(url.toLocalFile().toStdString());
    const QString socket =
        QUrlQuery(url).queryItemValue(VeskStreamerSmtParamSocketAddress(), QUrl::FullyDecoded);
    if (url.scheme() == QLatin1String("smt") && !socket.isEmpty())
        return std::make_unique<SmtSource>(socket.toStdString());
    throw std::runtime_error("it is neither a file nor a media stream with a socket");
}

QString uriOf(const VeskRoles& roles) {
    const QVariantList resources = roles.mediaData().resources();
    return resources.isEmpty() ? QString() : VeskResource(resources.first()).uri();
}

VeskPlayLogicData dataOf(VeskPlayLogicState::Enum state, const VeskRoles& roles) {
    VeskPlayLogicData data;
    data.setState(state);
    if (!roles.isEmpty())
        data.setMediaRoles(roles);
    return data;
}

}  // namespace

class Player::Private {
public:
    Private(std::shared_ptr<Tree> tree, const QString& device,
            std::unique_ptr<AudioProcessor> processor)
        : tree_(std::move(tree)),
          device_(device.toStdString()),
          processor_(std::move(processor)),
          attenuation_(followAttenuation()),
          thread_([this] { run(); }) {}

    ~Private() {
        {
            const std::lock_guard lock(mutex_);
            ending_ = true;
            waiting_.clear();
            interrupt_.signal();
        }
        changed_.notify_all();
        thread_.join();
    }

    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;

    void play(const VeskRoles& roles, bool enqueue) {
        const std::lock_guard lock(mutex_);
        const bool waits = enqueue && (playing_ || !waiting_.empty());
        if (!waits) {
            waiting_.clear();
            interruptLocked();
            show(VeskPlayLogicState::Transitioning, roles);
        }
        waiting_.push_back(roles);
        changed_.notify_all();
    }

    void stop() {
        const std::lock_guard lock(mutex_);
        waiting_.clear();
        interruptLocked();
        show(VeskPlayLogicState::Stopped, {});
    }

    VeskPlayLogicData data() const {
        return VeskPlayLogicData(tree_->read(playerDataPath()).value_or(VeskValue()).hash());
    }

private:
    using Clock = std::chrono::steady_clock;

    Subscription followAttenuation() {
        std::optional<VeskValue> present;
        auto subscription = tree_->subscribe(
            attenuationPath(), [this](const Change& change) { take(change.value); }, &present);
        if (present)
            take(*present);
        return subscription;
    }

    void take(const VeskValue& attenuation) {
        if (!std::isnan(attenuation.double_()))
            gain_ = gainOf(attenuation.double_());
    }

    void run() {
        while (const auto roles = next()) {
            playSource(*roles);
            finish();
        }
    }

    /// Waits for a source; none when the player ends.
    std::optional<VeskRoles> next() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
        if (ending_)
            return std::nullopt;
        const VeskRoles roles = waiting_.front();
        waiting_.pop_front();
        interrupt_.clear();
        playing_ = true;
        show(VeskPlayLogicState::Transitioning, roles);
        return roles;
    }

    void playSource(const VeskRoles& roles) {
        const QString uri = uriOf(roles);
        try {
            LOG4CPLUS_INFO(logger, "Playing " << uri.toStdString());
            PlaybackSession session(sourceAt(uri), surroundings(roles));
            const PresentSession present(*this, session);
            session.run();
        } catch (const std::exception& error) {
            LOG4CPLUS_ERROR(logger, "Cannot play " << uri.toStdString() << ": " << error.what());
        }
    }

    /// Adds up what a session has done, however it ends.
    class PresentSession {
    public:
        PresentSession(Private& player, const PlaybackSession& session) : player_(player) {
            player_.session_ = &session;
        }
        ~PresentSession() {
            player_.publishStatistics();
            player_.framesBefore_ += player_.session_->frames();
            player_.underrunsBefore_ += player_.session_->underruns();
            player_.session_ = nullptr;
        }
        PresentSession(const PresentSession&) = delete;
        PresentSession& operator=(const PresentSession&) = delete;

    private:
        Private& player_;
    };

    PlaybackSession::Surroundings surroundings(const VeskRoles& roles) {
        return {[this](const AudioFormat& format) { return openOutput(format); },
                gain_,
                *processor_,
                interrupt_,
                [this, roles] { showPlaying(roles); },
                [this] { publishStatisticsNowAndThen(); }};
    }

    std::unique_ptr<AudioOutput> openOutput(const AudioFormat& format) {
        if (!device_.empty())
            return std::make_unique<AlsaOutputDevice>(device_, format, interrupt_);
        LOG4CPLUS_WARN(logger, "There is no playback device: nobody hears what is played");
        return std::make_unique<SilentOutput>(format, interrupt_);
    }

    void finish() {
        const std::lock_guard lock(mutex_);
        playing_ = false;
        if (waiting_.empty() && !interrupted_)
            show(VeskPlayLogicState::Stopped, {});
        interrupted_ = false;
    }

    void showPlaying(const VeskRoles& roles) {
        const std::lock_guard lock(mutex_);
        if (!interrupted_)
            show(VeskPlayLogicState::Playing, roles);
    }

    /// What plays now has no say any more in what is shown.
    void interruptLocked() {
        interrupted_ = playing_;
        interrupt_.signal();
    }

    /// Under the mutex, so that transitions are shown in their order. Who follows them must not
    /// call the player from the tree's callback.
    void show(VeskPlayLogicState::Enum state, const VeskRoles& roles) {
        tree_->write(playerDataPath(), VeskValue(dataOf(state, roles).hash()), {});
    }

    void publishStatisticsNowAndThen() {
        const auto now = Clock::now();
        if (now - published_ < kBetweenStatistics)
            return;
        published_ = now;
        publishStatistics();
    }

    void publishStatistics() const {
        PlayerStatistics statistics;
        statistics.setFrames(static_cast<qint64>(framesBefore_ + session_->frames()));
        statistics.setUnderruns(static_cast<qint64>(underrunsBefore_ + session_->underruns()));
        tree_->write(playerStatisticsPath(), VeskValue(statistics.hash()), {});
    }

    const std::shared_ptr<Tree> tree_;
    const std::string device_;
    const std::unique_ptr<AudioProcessor> processor_;
    std::atomic<double> gain_{1.0};
    WakeEvent interrupt_;  // of the present session

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<VeskRoles> waiting_;  // guarded by mutex_
    bool playing_{false};            // guarded by mutex_
    bool interrupted_{false};        // guarded by mutex_: what plays is to end
    bool ending_{false};             // guarded by mutex_

    // The player's thread.
    const PlaybackSession* session_{nullptr};  // while one runs
    std::uint64_t framesBefore_{0};            // of earlier sessions
    std::uint64_t underrunsBefore_{0};         // of earlier sessions
    Clock::time_point published_{};

    const Subscription attenuation_;
    std::thread thread_;  // the last member: it uses the others
};

Player::Player(std::shared_ptr<Tree> tree, const QString& device,
               std::unique_ptr<AudioProcessor> processor)
    : private_(std::make_unique<Private>(std::move(tree), device, std::move(processor))) {
    if (instance().exchange(this))
        qFatal("The process already has a player");
}

Player::~Player() {
    instance() = nullptr;
}

CMPath Player::dataPath() const {
    return playerDataPath();
}

void Player::play(const VeskRoles& roles, bool enqueue) {
    private_->play(roles, enqueue);
}

VeskPlayLogicData Player::data() const {
    return private_->data();
}

void Player::stop(VeskPlayLogicStopReason::Enum /*reason*/) {
    private_->stop();
}

VeskRoles fileRoles(const QString& path) {
    VeskResource resource;
    resource.setMimeType(MimeTypes::Audio::unknown());
    resource.setUri(QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded));
    VeskMetaData metaData;
    metaData.setServiceID(QStringLiteral("file"));
    VeskMediaData mediaData;
    mediaData.setMetaData(metaData);
    mediaData.setResources({QVariant(resource)});
    VeskRoles roles;
    roles.setType(kAudioRoles);
    roles.setTitle(TrString({}, QFileInfo(path).fileName()));
    roles.setMediaData(mediaData);
    return roles;
}

}  // namespace platform
