// Levels as the user gives them on a command line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/files/keyword.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

// "B,W" or "B,W,B,W,B,W". A Failure names the option unless these are two numbers or two a plane for three planes, and
// each black is below its white.
std::vector<double> ParseLevels(const std::string& option, std::string_view text);

// Gives the image levels, two for all planes or two a plane; an empty list those of the file or the sky. False when
// they are those of the sky, so that no one has told them. A Failure names the option where the image has another
// number of planes.
bool GiveLevels(CVynImage& image, const std::vector<double>& levels, const std::vector<Keyword>& keywords,
                const std::string& option);

// The levels of an image as an option has them.
std::string LevelsText(const CVynImage& image);

}  // namespace qmr
