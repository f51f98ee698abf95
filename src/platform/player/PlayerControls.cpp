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

#include <stdexcept>

namespace platform {

class PlayerControls::Worker : public CMNodesWorker {
public:
    explicit Worker(PlayLogicInterface& player)
        : CMNodesWorker({}, QStringLiteral("Player")), player_(player) {
        serve(playerPlayFilePath(), &Worker::playFile);
        serve(playerStopPath(), &Worker::stop);
        serve(VeskStreamerDefaultPrefixPath() + VeskStreamerAttributesDisableSubMix(),
              &Worker::disableSubMix);
        subMixDisabledNode_->setValue(VeskValue::ofBool(false));
        makeReadOnly(subMixDisabledNode_);
    }

private:
    using Action = void (Worker::*)(const CMSetDataRequest& request);

    void serve(const CMPath& path, Action action) {
        CMActivateNode::create(
            nodes(), path, this,
            [this, action](const CMSetDataRequest& request) { (this->*action)(request); },
            Qt::DirectConnection);
    }

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

    /// There is nothing to mix in: the state is kept for those who look at it.
    void disableSubMix(const CMSetDataRequest& request) {
        if (!request.value().contains(VeskValue::Bool()))
            return request.reply().setError(CMError(QStringLiteral("InvalidArgument"),
                                                    QStringLiteral("True or false is needed")));
        subMixDisabledNode_->setValue(VeskValue::ofBool(request.value().bool_()));
        request.reply().setValue(true);
    }

    PlayLogicInterface& player_;
    CMValueNode* const subMixDisabledNode_{CMValueNode::create(nodes(), subMixDisabledPath())};
};

PlayerControls::PlayerControls(PlayLogicInterface& player)
    : thread_(std::make_unique<ServiceThread<Worker>>(QStringLiteral("PlayerControls"),
                                                      [&player] { return Worker(player); })) {
}

PlayerControls::~PlayerControls() = default;

}  // namespace platform
