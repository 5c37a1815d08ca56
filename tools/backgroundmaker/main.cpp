// glint-background-maker OUTPUT_FOLDER
// Paints the bundled background images into the folder as JPEG files.
#include "backgroundpainter.h"

#include <QCoreApplication>
#include <QDir>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTPUT_FOLDER\n", argv[0]);
        return 2;
    }
    const QDir folder(QString::fromLocal8Bit(argv[1]));
    if (!folder.mkpath(".")) {
        std::fprintf(stderr, "cannot make the folder %s\n", argv[1]);
        return 1;
    }
    for (const QString &name : BackgroundPainter::names()) {
        const QString file = folder.filePath(name + ".jpg");
        if (!BackgroundPainter::paint(name).save(file, "JPEG", 90)) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(file));
            return 1;
        }
    }
    return 0;
}
