#pragma once

#include <QString>
#include <QStringList>

namespace VCam {

// Where the files behind the background effects are: the person-segmentation
// model and the bundled background images. Both are looked up beside the
// program (data/ in the build tree, share/glint-camera/ once installed);
// GLINT_SEGMENTATION_MODEL and GLINT_BACKGROUNDS override them.
class BackgroundAssets
{
public:
    // The model file; when none is found, where the installed one would be
    // (the core then reports it missing).
    static QString segmentationModelPath();
    // The folder of bundled images, or empty when there is none.
    static QString imageFolder();
    // The bundled PNG and JPEG images, by file name.
    static QStringList bundledImages();
};

} // namespace VCam
