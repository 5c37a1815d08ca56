#pragma once

#include <QImage>
#include <QString>
#include <QStringList>

// Paints the bundled background images. Every picture is made from shapes
// and gradients with a fixed random seed, so each build paints the same
// pictures and no outside artwork is needed.
class BackgroundPainter
{
public:
    static constexpr int kWidth = 1280;
    static constexpr int kHeight = 720;

    // The names of the pictures, which are also their file names without ".jpg".
    static QStringList names();
    // The picture of that name, or a null image for an unknown name.
    static QImage paint(const QString &name);

private:
    static QImage softGradient();
    static QImage blurredLights();
    static QImage plainRoom();
    static QImage studioGrey();
};
