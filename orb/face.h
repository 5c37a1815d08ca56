#pragma once

#include <array>
#include <cmath>

namespace Orb {

struct Point
{
    float x = 0.0f;
    float y = 0.0f;
};

// Expression levels from 0 (the face's own neutral look) to 1 (clearly
// showing it), and whether each expression is currently on (with hysteresis).
struct FaceExpressions
{
    float mouthOpen = 0.0f;
    float eyebrowsRaised = 0.0f;
    float smile = 0.0f;
    float blink = 0.0f;
    bool isMouthOpen = false;
    bool areEyebrowsRaised = false;
    bool isSmiling = false;
    bool isBlinking = false;
};

// One tracked face in frame pixels. Landmarks follow the common 68-point
// layout: jaw 0-16, brows 17-26, nose 27-35, eyes 36-47, mouth 48-67. "Left"
// and "right" mean the sides of the picture, not of the person.
struct Face
{
    static constexpr int kLandmarkCount = 68;

    int id = 0;
    std::array<Point, kLandmarkCount> landmarks{};
    FaceExpressions expressions;

    Point average(int first, int last) const
    {
        Point p;
        for (int i = first; i <= last; ++i) {
            p.x += landmarks[i].x;
            p.y += landmarks[i].y;
        }
        const float n = static_cast<float>(last - first + 1);
        return {p.x / n, p.y / n};
    }
    Point leftEye() const { return average(36, 41); }
    Point rightEye() const { return average(42, 47); }
    Point eyesCenter() const { return mid(leftEye(), rightEye()); }
    Point browsCenter() const { return mid(landmarks[21], landmarks[22]); }
    Point noseTip() const { return landmarks[30]; }
    Point mouthCenter() const { return mid(landmarks[62], landmarks[66]); }
    Point chin() const { return landmarks[8]; }
    // Above the brows by about the brow-to-eye distance plus a bit.
    Point forehead() const
    {
        Point b = browsCenter(), c = chin();
        return {b.x + (b.x - c.x) * 0.25f, b.y + (b.y - c.y) * 0.25f};
    }
    float eyeDistance() const { return distance(leftEye(), rightEye()); }
    float width() const { return distance(landmarks[0], landmarks[16]); }
    // Head roll in radians: the angle of the line between the eyes.
    float roll() const
    {
        Point l = leftEye(), r = rightEye();
        return std::atan2(r.y - l.y, r.x - l.x);
    }

    static Point mid(Point a, Point b) { return {(a.x + b.x) * 0.5f, (a.y + b.y) * 0.5f}; }
    static float distance(Point a, Point b) { return std::hypot(a.x - b.x, a.y - b.y); }
};

} // namespace Orb
