#include "lensimporter.h"

#include "catalogue.h"
#include "lenspacker.h"
#include "lenssigner.h"
#include "qrcodepng.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace glint::server {

LensImporter::LensImporter(std::string dataDir, const LensSigner &signer, Catalogue &catalogue,
                           std::string deeplinkBase)
    : m_dataDir(std::move(dataDir)), m_signer(signer), m_catalogue(catalogue),
      m_deeplinkBase(std::move(deeplinkBase))
{}

bool LensImporter::installMedia(const std::string &folder, const LensRecord &record, const std::string &icon,
                                const std::vector<std::string> &frames, std::string *error)
{
    const fs::path media = fs::path(m_dataDir) / "media" / record.id;
    std::error_code ec;
    fs::remove_all(media, ec);
    fs::create_directories(media / "preview", ec);
    const auto options = fs::copy_options::overwrite_existing;
    bool ok = !ec && fs::copy_file(fs::path(folder) / icon, media / "icon.png", options, ec);
    for (size_t i = 0; ok && i < frames.size(); ++i)
        ok = fs::copy_file(fs::path(folder) / frames[i], media / "preview" / (std::to_string(i) + ".png"),
                           options, ec);
    const std::string code = QrCodePng::render(m_deeplinkBase + record.id);
    if (ok) {
        std::ofstream out(media / "glintcode.png", std::ios::binary | std::ios::trunc);
        out.write(code.data(), std::streamsize(code.size()));
        ok = !code.empty() && bool(out.flush());
    }
    if (!ok && error)
        *error = folder + ": cannot install the lens images in " + media.string() +
                 (ec ? ": " + ec.message() : std::string());
    return ok;
}

bool LensImporter::importFolder(const std::string &folder, LensRecord *record, std::string *error)
{
    std::error_code ec;
    const fs::path archives = fs::path(m_dataDir) / "archives";
    fs::create_directories(archives, ec);
    const fs::path temporary =
        archives / ("import-" + std::to_string(std::hash<std::string>()(folder)) + ".zip");
    PackedLens packed;
    if (!LensPacker::pack(folder, m_signer, temporary.string(), &packed, error)) {
        fs::remove(temporary, ec);
        return false;
    }
    LensRecord lens;
    lens.id = packed.manifest.id;
    lens.name = packed.manifest.name;
    lens.author = packed.manifest.author;
    lens.hintId = packed.manifest.hint;
    lens.checksum = packed.checksum;
    lens.signature = packed.signature;
    lens.archiveSize = int64_t(fs::file_size(temporary, ec));
    lens.previewCount = int(packed.manifest.previewFrames.size());
    lens.previewIntervalMs = packed.manifest.previewFrameIntervalMs;
    lens.externalTriggers = packed.manifest.externalTriggers;

    if (!installMedia(folder, lens, packed.manifest.icon, packed.manifest.previewFrames, error)) {
        fs::remove(temporary, ec);
        return false;
    }
    fs::rename(temporary, archives / (lens.id + ".zip"), ec);
    if (ec) {
        if (error)
            *error = folder + ": cannot store the archive: " + ec.message();
        return false;
    }
    m_catalogue.upsert(lens);
    if (record)
        *record = lens;
    return true;
}

std::vector<std::string> LensImporter::importAll(const std::string &parent, std::vector<std::string> *errors)
{
    std::vector<fs::path> folders;
    std::error_code ec;
    for (fs::directory_iterator it(parent, ec), end; !ec && it != end; it.increment(ec)) {
        if (it->is_directory(ec) && fs::exists(it->path() / "lens.json", ec))
            folders.push_back(it->path());
    }
    if (ec && errors)
        errors->push_back(parent + ": " + ec.message());
    std::sort(folders.begin(), folders.end());
    std::vector<std::string> imported;
    for (const auto &folder : folders) {
        LensRecord lens;
        std::string error;
        if (importFolder(folder.string(), &lens, &error))
            imported.push_back(lens.id);
        else if (errors)
            errors->push_back(error);
    }
    return imported;
}

} // namespace glint::server
