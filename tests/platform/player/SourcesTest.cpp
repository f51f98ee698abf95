#include "platform/player/FileSource.h"
#include "platform/player/SmtSource.h"
#include "platform/player/SoundFile.h"
#include "sdk/smt/Sender.h"
#include "support/Eventually.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <cmath>
#include <fstream>
#include <future>

using platform::AudioFormat;
using platform::FileSource;
using platform::SmtSource;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::vector<std::int32_t> takeAll(platform::AudioSource& source, std::size_t atATime = 1000) {
    std::vector<std::int32_t> all;
    std::vector<std::int32_t> piece(atATime);
    while (const std::size_t count = source.read(piece))
        all.insert(all.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(count));
    return all;
}

class FileSourceTest : public testing::Test {
protected:
    std::string path() const { return (scratch.path() / "sound.wav").string(); }

    void expectRefused(const std::string& reason) const {
        try {
            const FileSource source(path());
            FAIL() << "accepted";
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), HasSubstr(path() + ": " + reason));
        }
    }

    const ScratchDirectory scratch;
};

class SmtSourceTest : public testing::Test {
protected:
    SmtSourceTest() {
        EXPECT_TRUE(sender->initializeSender("SourcesTest", "", "", 0, smt::TimeSyncProtocol::None,
                                             smt::NanomsgProtocol::Pair));
        sender->setCurrentPayloader(&payloader);
    }

    /// Sends bytes, and lets the source take notice of them.
    void send(audioUtils::PcmFormat format, const std::vector<unsigned char>& bytes) {
        payloader.setNewFormat(44100, 2, format);
        auto sending = std::async(std::launch::async, [&] {
            sender->sendMediaData(miscUtils::NoTimeValue, miscUtils::NoTimeValue,
                                  std::as_bytes(std::span(bytes)));
        });
        EXPECT_TRUE(eventually([&] {
            source.update(0);
            return source.descriptor() < 0;
        }));
        sending.get();
    }

    SmtSource source{"SourcesTest"};
    smt::PcmPayloader payloader;
    std::unique_ptr<smt::Sender> sender{std::make_unique<smt::Sender>()};
};

}  // namespace

TEST_F(FileSourceTest, GivesTheSamplesOfIntegersBitByBit) {
    const std::vector<std::int32_t> samples{0, 1, -1, 2147483647, -2147483647 - 1, 123456789};
    writeSoundFile<std::int32_t>(path(), samples, 2, 44100);
    FileSource source(path());
    EXPECT_EQ(source.format(), (AudioFormat{44100, 2}));
    EXPECT_FALSE(source.isOver());
    EXPECT_EQ(takeAll(source), samples);
    EXPECT_TRUE(source.isOver());
}

TEST_F(FileSourceTest, TakesOnlyWholeFrames) {
    const std::vector<std::int32_t> samples(99, 256);
    writeSoundFile<std::int32_t>(path(), samples, 3);
    FileSource source(path());
    EXPECT_EQ(takeAll(source, 8), samples);
}

TEST_F(FileSourceTest, FloatsBeyondFullScaleAreClipped) {
    writeSoundFile<float>(path(), std::vector<float>{0.5F, 1.0F, 3.0F, -1.0F, -7.0F, NAN}, 1, 48000,
                          SF_FORMAT_FLOAT);
    FileSource source(path());
    EXPECT_THAT(takeAll(source),
                ElementsAre(1 << 30, 2147483647, 2147483647, -2147483647 - 1, -2147483647 - 1, 0));
}

TEST_F(FileSourceTest, AMissingFileIsNamed) {
    expectRefused("No such file or directory");
}

TEST_F(FileSourceTest, APipeIsRefusedWithoutWaitingForIt) {
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    expectRefused("is not a file");
}

TEST_F(FileSourceTest, AFileThatIsNoSoundIsNamed) {
    std::ofstream(path()) << "This is a letter.";
    expectRefused("Format not recognised");
}

TEST_F(FileSourceTest, TooManyChannelsAreNamed) {
    writeSoundFile<std::int32_t>(path(), std::vector<std::int32_t>(70), 70);
    expectRefused("has 70 channels; at most 64 can be played");
}

TEST_F(SmtSourceTest, HasNoFormatBeforeItsFirstData) {
    source.update(0);
    EXPECT_EQ(source.format(), std::nullopt);
    EXPECT_FALSE(source.isOver());
    EXPECT_GE(source.descriptor(), 0);
}

TEST_F(SmtSourceTest, WidensEachFormatToFullScale) {
    using audioUtils::PcmFormat;
    send(PcmFormat::S32, {1, 2, 3, 4, 0, 0, 0, 0x80});
    EXPECT_EQ(source.format(), (AudioFormat{44100, 2}));
    EXPECT_THAT(takeAll(source), ElementsAre(0x04030201, -2147483647 - 1));
    send(PcmFormat::S24In3, {1, 2, 3, 0xff, 0xff, 0xff});
    EXPECT_THAT(takeAll(source), ElementsAre(0x03020100, -256));
    send(PcmFormat::S16, {1, 2, 0, 0x80});
    EXPECT_THAT(takeAll(source), ElementsAre(0x02010000, -2147483647 - 1));
}

TEST_F(SmtSourceTest, AMessageMayBeReadInPieces) {
    send(audioUtils::PcmFormat::S16, {0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6});
    EXPECT_THAT(takeAll(source, 3),
                ElementsAre(1 << 24, 2 << 24, 3 << 24, 4 << 24, 5 << 24, 6 << 24));
}

TEST_F(SmtSourceTest, IsOverWhenTheSenderIsGone) {
    send(audioUtils::PcmFormat::S16, {1, 2, 3, 4});
    EXPECT_EQ(takeAll(source).size(), 2U);
    sender.reset();
    EXPECT_TRUE(eventually([&] {
        source.update(1);
        return source.isOver();
    }));
}

TEST_F(SmtSourceTest, RestsAfterTheEndAndLetsTheSenderGo) {
    send(audioUtils::PcmFormat::S16, {1, 2, 3, 4});
    EXPECT_EQ(takeAll(source).size(), 2U);
    auto ending = std::async(std::launch::async, [this] { sender->shutdownSender(); });
    EXPECT_TRUE(eventually([&] {
        source.update(0);
        return source.isResting();
    }));
    EXPECT_EQ(ending.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_TRUE(eventually([&] {
        source.update(1);
        return ending.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }));
    EXPECT_FALSE(source.isOver());
}
