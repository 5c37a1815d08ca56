// Checksums, signatures, keys, archives and manifests of lens folders.
#include "base64.h"
#include "lenspacker.h"
#include "lenssigner.h"
#include "testlens.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace fs = std::filesystem;
using namespace glint::server;

namespace {

const std::string kVectors = GLINT_TEST_SIGNATURES_DIR;

std::string trimmed(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    return text;
}

} // namespace

TEST(Checksum, DependsOnContentNotOnNamesOrLayout)
{
    TempDir temp;
    fs::copy(kVectors + "/lens", temp / "lens", fs::copy_options::recursive);
    const std::string original = LensSigner::directoryChecksum(temp / "lens");
    ASSERT_EQ(original.size(), 64u);

    fs::create_directories(temp / "lens/elsewhere/deeper");
    fs::rename(temp / "lens/shaders/tint.frag", temp / "lens/elsewhere/deeper/renamed.txt");
    fs::rename(temp / "lens/icon.png", temp / "lens/zz.bin");
    EXPECT_EQ(LensSigner::directoryChecksum(temp / "lens"), original);

    // Empty folders do not count; an empty file does.
    fs::create_directories(temp / "lens/empty");
    EXPECT_EQ(LensSigner::directoryChecksum(temp / "lens"), original);
    writeFile(temp / "lens/empty/file", "");
    EXPECT_NE(LensSigner::directoryChecksum(temp / "lens"), original);
    fs::remove(temp / "lens/empty/file");

    std::string manifest = readFile(temp / "lens/lens.json");
    manifest.back() ^= 1;
    writeFile(temp / "lens/lens.json", manifest);
    EXPECT_NE(LensSigner::directoryChecksum(temp / "lens"), original);

    EXPECT_EQ(LensSigner::directoryChecksum(temp / "missing"), "");
}

TEST(Signer, GeneratedKeySignsWhatTheClientRulesAccept)
{
    TempDir temp;
    std::string error;
    ASSERT_TRUE(LensSigner::generateKey(temp / "key.pem", &error)) << error;
    EXPECT_EQ(fs::status(temp / "key.pem").permissions() & fs::perms::others_read, fs::perms::none);
    LensSigner signer(temp / "key.pem");
    ASSERT_TRUE(signer.isValid()) << signer.error();
    const std::string publicKey = signer.publicKeyBase64();
    EXPECT_EQ(publicKey.size(), 160u);

    const std::string checksum = LensSigner::directoryChecksum(kVectors + "/lens");
    // ECDSA signatures are randomised: check several, which also exercises
    // r and s with and without a leading zero byte under the strict DER rules.
    for (int i = 0; i < 20; ++i) {
        const std::string signature = signer.sign(checksum, "lens-" + std::to_string(i));
        ASSERT_TRUE(LensSigner::verify(checksum, "lens-" + std::to_string(i), signature, publicKey));
        ASSERT_FALSE(LensSigner::verify(checksum, "lens-x", signature, publicKey));
    }
    // Another key does not verify.
    LensSigner::generateKey(temp / "other.pem", nullptr);
    EXPECT_FALSE(LensSigner::verify(checksum, "a", signer.sign(checksum, "a"),
                                    LensSigner(temp / "other.pem").publicKeyBase64()));
}

TEST(Signer, SharedVectorsHoldAndBadKeysSignaturesAndTextAreRefused)
{
    TempDir temp;
    writeFile(temp / "garbage.pem", "not a key");
    EXPECT_FALSE(LensSigner(temp / "garbage.pem").isValid());
    EXPECT_FALSE(LensSigner(temp / "absent.pem").isValid());
    ASSERT_EQ(
        runCommand("openssl ecparam -name prime256v1 -genkey -noout -out " + (temp / "p256.pem") + " 2>&1"),
        0);
    EXPECT_NE(LensSigner(temp / "p256.pem").error().find("P-384"), std::string::npos);

    const std::string checksum = trimmed(readFile(kVectors + "/checksum.txt"));
    const std::string publicKey = trimmed(readFile(kVectors + "/public_key.b64"));
    const std::string good = *Base64::decode(trimmed(readFile(kVectors + "/signature.b64")));
    auto verifies = [&](const std::string &der, const std::string &key) {
        return LensSigner::verify(checksum, "signature-vector", Base64::encode(der), key);
    };
    EXPECT_EQ(LensSigner::directoryChecksum(kVectors + "/lens"), checksum);
    ASSERT_TRUE(verifies(good, publicKey));
    EXPECT_FALSE(LensSigner::verify(checksum, "other-lens", Base64::encode(good), publicKey));
    std::string flipped = good;
    flipped[10] ^= 0x40;
    EXPECT_FALSE(verifies(flipped, publicKey));
    EXPECT_FALSE(verifies("", publicKey));
    EXPECT_FALSE(verifies(good, "AAAA"));
    EXPECT_FALSE(LensSigner::verify(checksum, "signature-vector", "@@not base64@@", publicKey));
}

TEST(Packer, ArchiveUnpacksToTheSignedFilesAndIsReproducible)
{
    TempDir temp;
    const std::string dir = writeLens(temp.path(), {"packed", "Packed", "A", "", 2});
    writeFile(dir + "/empty.txt", "");
    LensSigner signer(makeKey(temp.path()));
    PackedLens packed;
    std::string error;
    ASSERT_TRUE(LensPacker::pack(dir, signer, temp / "one.zip", &packed, &error)) << error;
    ASSERT_TRUE(LensPacker::pack(dir, signer, temp / "two.zip", nullptr, &error)) << error;
    EXPECT_EQ(readFile(temp / "one.zip"), readFile(temp / "two.zip"));

    // Unpack with the system's unzip, as a client would, and verify.
    ASSERT_EQ(runCommand("unzip -q " + (temp / "one.zip") + " -d " + (temp / "out")), 0);
    const std::string unpacked = LensSigner::directoryChecksum(temp / "out");
    EXPECT_EQ(unpacked, packed.checksum);
    EXPECT_EQ(readFile(temp / "out/lens.json"), readFile(dir + "/lens.json"));
    EXPECT_TRUE(fs::exists(temp / "out/empty.txt"));
    EXPECT_TRUE(LensSigner::verify(unpacked, "packed", packed.signature, signer.publicKeyBase64()));

    // An invalid manifest or an unusable key produces no archive.
    writeFile(dir + "/lens.json", "{}");
    EXPECT_FALSE(LensPacker::pack(dir, signer, temp / "three.zip", nullptr, &error));
    EXPECT_FALSE(fs::exists(temp / "three.zip"));
}
