// Which files of a folder are what.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/files/image_file.h"

namespace qmr {

enum class FrameRole { kUnknown, kLight, kDark, kFlat, kBias, kFlatDark };

const char* RoleName(FrameRole role);

// A file and, where it had to be opened to see what it is, its pixels, so that it is decoded only once.
struct FrameSource {
  std::string path;
  std::shared_ptr<DecodedImage> decoded;
};

struct LeftOut {
  std::string path;
  std::string reason;
};

struct NightPlan {
  std::vector<FrameSource> lights, darks, flats, biases, flatDarks;
  std::vector<LeftOut> leftOut;
};

// The role that a folder's name or the start of a file's name says: light, dark, flat, bias, offset or zero, flatdark
// or darkflat, singular or plural, any case.
FrameRole RoleOfName(std::string_view name);
// The role that an IMAGETYP says.
FrameRole RoleOfImageType(std::string_view imageType);

// True for names that a frame of a night may have: .fit, .fits, .fts, .fz, also with .gz behind, and those of cameras'
// raw files: .cr2, .nef, .arw, .dng ...
bool HasFrameName(std::string_view path);

// The frames of a night in `folder`. Subfolders named after a role hold frames of that role. Where no subfolder holds
// lights, the files in the folder itself are taken by their IMAGETYP, else by the start of their name, else as lights.
// Files are in the order of their names. A camera's raw file beside a FITS file of the same name is passed over: that
// is the same frame, converted. Failure with kExitNoInput when the folder can't be read.
NightPlan PlanNight(const std::string& folder);

// The frames in a folder, or the one file that the path names; kExitNoInput when there is none.
std::vector<FrameSource> ListFrames(const std::string& path);

}  // namespace qmr
