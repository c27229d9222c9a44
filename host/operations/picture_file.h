// One image from a file and into a file, for the commands that change a picture.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/files/keyword.h"
#include "host/night/frame.h"
#include "host/operations/parameters.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

// Throws a Failure unless `path` ends in .fit, .fits, .fts or .png, can be written, and does not exist or `force` is
// set.
void CheckOutput(const std::string& path, bool force);

// The image of a file with its keywords and mosaic; `bayer` is the user's word on the mosaic, which a file of several
// planes must not be given. A Failure names the file.
LightFrame LoadPicture(const std::string& path, const std::optional<std::string>& bayer);

// A Failure for a frame that is not developed: an operation over a mosaic would mix its colours.
void RefuseMosaic(const LightFrame& frame);
// The part of the image that the settings name by "rect", all of it by default. A Failure when that holds no pixel.
CRect RectangleOf(const Settings& settings, const CVynImage& image);

// Gives the planes the levels CBLACK and CWHITE of the keywords; CBLACK2, CWHITE2, CBLACK3 and CWHITE3 are those of
// planes that have their own. False, with the levels as they were, when there are none.
bool SetKeywordLevels(CVynImage& image, const std::vector<Keyword>& keywords);
// These, else those that show the sky as a dark grey; tells in words where they come from.
std::string SetLevelsOfFile(CVynImage& image, const std::vector<Keyword>& keywords);
// Takes these keywords out, and puts the levels of an image in, for SetLevelsOfFile to find.
void DropLevelKeywords(std::vector<Keyword>& keywords);
void SetLevelKeywords(std::vector<Keyword>& keywords, const CVynImage& image);
// Levels that were found are rounded to what a header line can hold, so that the line gives the same result.
void RoundLevels(CVynImage& image);

// Takes out what ties pixels to places of the sky, for a result in which they lie elsewhere.
void DropSkyKeywords(std::vector<Keyword>& keywords);

// Writes a 32-bit FITS with the keywords, PROGRAM and `command` as HISTORY, or a 16-bit PNG from black to white of each
// plane's levels, as the path ends. An older file stays as it was when that fails, with a Failure.
void WritePicture(const std::string& path, const CVynImage& image, const std::vector<Keyword>& keywords,
                  const std::string& command);

}  // namespace qmr
