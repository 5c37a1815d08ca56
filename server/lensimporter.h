#pragma once

#include "lensrecord.h"

#include <string>
#include <vector>

namespace glint::server {

class Catalogue;
class LensSigner;

// Packs a lens folder into the server's data folder and registers it in the
// catalogue: the signed archive, the icon, the preview frames and the code
// image of its deep link. Importing a lens id again replaces its files and
// record but keeps its popularity.
class LensImporter
{
public:
    LensImporter(std::string dataDir, const LensSigner &signer, Catalogue &catalogue,
                 std::string deeplinkBase);

    bool importFolder(const std::string &folder, LensRecord *record, std::string *error);
    // Imports every subfolder that holds a lens.json; returns the ids
    // imported and appends one message per failed folder to errors.
    std::vector<std::string> importAll(const std::string &parent, std::vector<std::string> *errors);

private:
    bool installMedia(const std::string &folder, const LensRecord &record, const std::string &icon,
                      const std::vector<std::string> &frames, std::string *error);

    std::string m_dataDir;
    const LensSigner &m_signer;
    Catalogue &m_catalogue;
    std::string m_deeplinkBase;
};

} // namespace glint::server
