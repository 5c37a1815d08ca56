#pragma once

#include <QString>

namespace VCam {

// The texts of the hints lenses ask for, by hint id, in upper case; "\n"
// separates the lines of a hint shown on several lines.
class HintTable
{
public:
    // The text for an id; empty for an id the table does not know.
    static QString text(const QString &hintId);
    static bool contains(const QString &hintId);
    static int size();
};

} // namespace VCam
