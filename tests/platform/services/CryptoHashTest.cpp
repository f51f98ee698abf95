#include "sdk/services/CryptoHash.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string hexSha1(const QByteArray& message) {
    CryptoHash hash(CryptoHash::Sha1);
    QByteArray digest;
    hash.update(message);
    hash.finalize(&digest);
    return digest.toHex().toStdString();
}

}  // namespace

// RFC 3174, section 7.3, and FIPS 180-4's examples.
TEST(CryptoHashTest, Sha1OfTheEmptyMessage) {
    EXPECT_EQ(hexSha1(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

TEST(CryptoHashTest, Sha1OfOneBlock) {
    EXPECT_EQ(hexSha1("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST(CryptoHashTest, Sha1OfTwoBlocks) {
    EXPECT_EQ(hexSha1("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
}

TEST(CryptoHashTest, Sha1OfAMillionLetters) {
    EXPECT_EQ(hexSha1(QByteArray(1'000'000, 'a')), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST(CryptoHashTest, MessageMayComeInParts) {
    CryptoHash hash(CryptoHash::Sha1);
    for (int i = 0; i < 80; ++i)
        hash.update("01234567");
    QByteArray digest;
    hash.finalize(&digest);
    EXPECT_EQ(digest.toHex().toStdString(), "dea356a2cddd90c7a7ecedc5ebb563934f460452");
}

TEST(CryptoHashTest, Algorithm1IsSha1) {
    EXPECT_EQ(static_cast<CryptoHash::Algorithm>(1), CryptoHash::Sha1);
}
