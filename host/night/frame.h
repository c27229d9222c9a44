// Frames on their way from the file to the stack.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/files/image_file.h"
#include "host/files/mosaic.h"
#include "host/night/options.h"
#include "host/night/plan.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

// Sky and sharpness of a frame, raw scale, one entry a plane.
struct FrameQuality {
  double background[3] = {};  // median
  double noise[3] = {};       // of a pixel, robust
  // Steepness of the brightest details over their background: the sharper and deeper of two frames has more.
  double sharpness = 0.0;
};

struct LightFrame {
  std::string path;
  std::string name;  // without folder
  FrameFacts facts;
  std::vector<Keyword> keywords;
  MosaicLayout mosaic;
  std::unique_ptr<CVynImage> image;
  FrameQuality quality;
  Registration registration;
  std::int64_t blankPixels = 0;
  // Black and white level of the sensor, raw scale, where the file is a camera's raw file: those are sure.
  std::optional<double> sensorBlack, sensorWhite;
  // Why the frame is not in the stack; empty while it is.
  std::string leftOut;

  bool Used() const { return leftOut.empty(); }
};

// Masters that lights are calibrated with; null where there is none.
struct Masters {
  std::unique_ptr<CVynImage> dark;
  std::unique_ptr<CVynImage> flat;
  float flatMin[3] = {}, flatMax[3] = {}, flatMean[3] = {};
  // Pixels of the flat that are 0: hardly lit, they say nothing of the sky.
  struct Pixel {
    int x, y, plane;
  };
  std::vector<Pixel> unlit;
  // What stands in `dark`: "dark" or "bias".
  std::string darkKind;
  int darkCount = 0, flatCount = 0;
  double darkExposure = 0.0;  // seconds; 0 when not known
};

// The file's pixels as an image of float pixels; blank pixels are not-a-number. Failure says why there is none.
std::unique_ptr<CVynImage> LoadImage(const FrameSource& source, LightFrame& facts,
                                     const std::optional<std::string>& bayer);

bool SameSize(const CVynImage& a, const CVynImage& b);
// "3000 x 2000"
std::string SizeText(const CVynImage& image);

// Replaces not-a-number pixels by the median of the good pixels around them, in rows and columns `step` apart (the cell
// of a mosaic: the same colour). Pixels with fewer than three good ones near stay as they are.
void RepairBlankPixels(CVynImage& image, int step);

// Takes the level off all pixels.
void SubtractLevel(CVynImage& image, double level);

// Dark, flat and development of one light; without a dark or bias a raw file loses the black level of its sensor. On a
// failure `frame.leftOut` says why, and the image is gone.
void PrepareLight(const FrameSource& source, const Masters& masters, const std::optional<std::string>& bayer,
                  LightFrame& frame);

FrameQuality MeasureQuality(CVynImage& image);

}  // namespace qmr
