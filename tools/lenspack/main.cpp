// glint-lens-pack: makes signing keys, checksums, signs, verifies, packs and
// registers lens folders.
#include "importcommand.h"
#include "lenspacker.h"
#include "lenssigner.h"
#include "serverconfig.h"

#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

using namespace glint::server;

namespace {

const char *kUsage = R"(Usage: glint-lens-pack <command> [arguments]

Commands:
  keygen <key.pem>                      write a new P-384 signing key and print
                                        its public half (160 base64 characters)
  pubkey [--key <key.pem>]              print the public half of a key
  checksum <lens folder>                print the folder's checksum
  sign <lens folder> [--key <key.pem>]  print checksum and signature as JSON
  pack <lens folder> <out.zip> [--key <key.pem>]
                                        validate, sign and zip a lens; prints
                                        id, checksum and signature as JSON
  verify <lens folder> <lens id> <signature> [--public-key <base64>]
                                        exit 0 when the signature holds
  register [server options] [--featured] <lens folder>...
                                        pack and add lenses to a server's data
                                        directory (see glint-lens-server --help)

Without --key the build's development key is used:
  )" GLINT_SERVER_DEFAULT_KEY "\n";

// Removes "--name value" from args; returns the value or the fallback.
std::string takeOption(std::vector<std::string> &args, const std::string &name, const std::string &fallback)
{
    for (size_t i = 0; i + 1 < args.size(); ++i) {
        if (args[i] == name) {
            std::string value = args[i + 1];
            args.erase(args.begin() + long(i), args.begin() + long(i) + 2);
            return value;
        }
    }
    return fallback;
}

int usageError()
{
    std::cerr << kUsage;
    return 2;
}

int keygen(const std::vector<std::string> &args)
{
    if (args.size() != 1)
        return usageError();
    std::string error;
    if (!LensSigner::generateKey(args[0], &error)) {
        std::cerr << error << "\n";
        return 1;
    }
    std::cout << LensSigner(args[0]).publicKeyBase64() << "\n";
    return 0;
}

int withSigner(const std::string &keyPath,
               int (*action)(const LensSigner &, const std::vector<std::string> &),
               const std::vector<std::string> &args)
{
    LensSigner signer(keyPath);
    if (!signer.isValid()) {
        std::cerr << signer.error() << "\n";
        return 1;
    }
    return action(signer, args);
}

int sign(const LensSigner &signer, const std::vector<std::string> &args)
{
    if (args.size() != 1)
        return usageError();
    Orb::LensManifest manifest;
    std::string error;
    if (!Orb::LensManifest::load(args[0], manifest, error)) {
        std::cerr << args[0] << ": " << error << "\n";
        return 1;
    }
    const std::string checksum = LensSigner::directoryChecksum(args[0]);
    const nlohmann::json out = {
        {"id", manifest.id}, {"checksum", checksum}, {"signature", signer.sign(checksum, manifest.id)}};
    std::cout << out.dump(2) << "\n";
    return checksum.empty() ? 1 : 0;
}

int pack(const LensSigner &signer, const std::vector<std::string> &args)
{
    if (args.size() != 2)
        return usageError();
    PackedLens packed;
    std::string error;
    if (!LensPacker::pack(args[0], signer, args[1], &packed, &error)) {
        std::cerr << error << "\n";
        return 1;
    }
    const nlohmann::json out = {{"id", packed.manifest.id},
                                {"name", packed.manifest.name},
                                {"checksum", packed.checksum},
                                {"signature", packed.signature},
                                {"archive", args[1]}};
    std::cout << out.dump(2) << "\n";
    return 0;
}

int verify(std::vector<std::string> args, const std::string &defaultPublicKey)
{
    const std::string publicKey = takeOption(args, "--public-key", defaultPublicKey);
    if (args.size() != 3)
        return usageError();
    const std::string checksum = LensSigner::directoryChecksum(args[0]);
    const bool ok = !checksum.empty() && LensSigner::verify(checksum, args[1], args[2], publicKey);
    std::cout << (ok ? "valid" : "INVALID") << "\n";
    return ok ? 0 : 1;
}

int registerLenses(const std::vector<std::string> &args)
{
    std::vector<std::string> options, positional;
    for (const auto &arg : args)
        (arg == "--featured" ? positional : options).push_back(arg);
    ServerConfig config;
    std::string error;
    if (config.parse(options, &positional, &error) != ServerConfig::Outcome::Ok) {
        std::cerr << error << "\n";
        return 2;
    }
    return ImportCommand::run(config, positional);
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "--help" || args[0] == "-h") {
        std::cout << kUsage;
        return args.empty() ? 2 : 0;
    }
    const std::string command = args[0];
    args.erase(args.begin());
    try {
        if (command == "keygen")
            return keygen(args);
        if (command == "register")
            return registerLenses(args);
        const std::string keyPath = takeOption(args, "--key", GLINT_SERVER_DEFAULT_KEY);
        if (command == "pubkey") {
            return withSigner(
                keyPath,
                [](const LensSigner &signer, const std::vector<std::string> &rest) {
                    if (!rest.empty())
                        return usageError();
                    std::cout << signer.publicKeyBase64() << "\n";
                    return 0;
                },
                args);
        }
        if (command == "checksum") {
            if (args.size() != 1)
                return usageError();
            const std::string checksum = LensSigner::directoryChecksum(args[0]);
            std::cout << checksum << "\n";
            return checksum.empty() ? 1 : 0;
        }
        if (command == "sign")
            return withSigner(keyPath, sign, args);
        if (command == "pack")
            return withSigner(keyPath, pack, args);
        if (command == "verify")
            return verify(args, LensSigner(keyPath).publicKeyBase64());
    } catch (const std::exception &e) {
        std::cerr << command << " failed: " << e.what() << "\n";
        return 1;
    }
    std::cerr << "Unknown command \"" << command << "\"\n";
    return usageError();
}
