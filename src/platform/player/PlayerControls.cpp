#include "platform/player/PlayerControls.h"

#include "platform/PlatformPaths.h"
#include "platform/player/FileSource.h"
#include "platform/player/Player.h"
#include "platform/services/ReadOnly.h"
#include "platform/services/ServiceThread.h"
#include "sdk/cm/CMNode.h"
#include "sdk/cm/CMNodesWorker.h"
#include "sdk/cm/VeskPaths.h"

#include <QDir>

#include <functional>
#include <stdexcept>

namespace platform {

namespace {

void serve(CMNodesWorker* worker, const CMPath& path,
           const std::function<void(const CMSetDataRequest& request)>& action) {
    CMActivateNode::create(worker->nodes(), path, worker, action, Qt::DirectConnection);
}

}  // namespace

class PlayerControls::Actions : public CMNodesWorker {
public:
    explicit Actions(PlayLogicInterface& player)
        : CMNodesWorker({}, QStringLiteral("Player")), player_(player) {
        serve(this, playerPlayFilePath(), [this](const auto& request) { playFile(request); });
        serve(this, playerStopPath(), [this](const auto& request) { stop(request); });
    }

private:
    void playFile(const CMSetDataRequest& request) {
        const QString path = PlayFileRequest(request.value().hash()).path();
        try {
            if (!QDir::isAbsolutePath(path))
                throw std::runtime_error("The path must be absolute, not \"" + path.toStdString() +
                                         "\"");
            const FileSource readable(path.toStdString());
            player_.play(fileRoles(path), false);
            request.reply().setValue(true);
        } catch (const std::exception& error) {
            request.reply().setError(
                CMError(QStringLiteral("CannotPlay"), QString::fromStdString(error.what())));
        }
    }

    void stop(const CMSetDataRequest& request) {
        player_.stop(VeskPlayLogicStopReason::UserRequested);
        request.reply().setValue(true);
    }

    PlayLogicInterface& player_;
};

/// A thread apart from the actions': a playback waits for its answer, and must not wait for a file
/// on a slow disk.
class PlayerControls::SubMix : public CMNodesWorker {
public:
    SubMix() : CMNodesWorker({}, QStringLiteral("Streamer")) {
        serve(this, VeskStreamerDefaultPrefixPath() + VeskStreamerAttributesDisableSubMix(),
              [this](const auto& request) { disable(request); });
        disabledNode_->setValue(VeskValue::ofBool(false));
        makeReadOnly(disabledNode_);
    }

private:
    /// There is nothing to mix in: the state is kept for those who look at it.
    void disable(const CMSetDataRequest& request) {
        if (!request.value().contains(VeskValue::Bool()))
            return request.reply().setError(CMError(QStringLiteral("InvalidArgument"),
                                                    QStringLiteral("True or false is needed")));
        disabledNode_->setValue(VeskValue::ofBool(request.value().bool_()));
        request.reply().setValue(true);
    }

    CMValueNode* const disabledNode_{CMValueNode::create(nodes(), subMixDisabledPath())};
};

PlayerControls::PlayerControls(PlayLogicInterface& player)
    : actions_(std::make_unique<ServiceThread<Actions>>(QStringLiteral("PlayerActions"),
                                                        [&player] { return Actions(player); })),
      subMix_(std::make_unique<ServiceThread<SubMix>>(QStringLiteral("SubMix"),
                                                      [] { return SubMix(); })) {
}

PlayerControls::~PlayerControls() = default;

}  // namespace platform
