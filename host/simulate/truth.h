#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/simulate/options.h"

namespace qmr {

// The truth of a simulated night.
//
// Geometry: frame i shows the reference point p at  R(theta) (p - c) + c + d.  Positions are pixels, x to the right,
// y along the rows of the file, the first pixel's middle at (0, 0); c = ((width - 1) / 2, (height - 1) / 2); R turns
// +x towards +y. Frame 0 is the reference: theta = 0, d = (0, 0).

// A straight trail across a frame, given by where its middle enters and leaves; `peak` in electrons, `width` its
// Gaussian sigma in pixels.
struct TruthTrail {
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  double peak = 0;
  double width = 1;
};

struct TruthFrame {
  std::string file;  // name without folder
  int index = 0;
  double dx = 0, dy = 0;    // pixels
  double theta = 0;         // degrees
  double fwhm = 0;          // pixels
  double transparency = 1;  // factor on stars and nebula
  double sky = 0;           // electrons at the middle of the frame
  double gradientX = 0;     // change of the sky from the left to the right edge, relative to `sky`
  double gradientY = 0;     // the same from the first to the last row
  bool bad = false;
  std::vector<TruthTrail> trails;
};

// On the reference frame. A sensor whose every pixel had colour k would count flux * colour[k] electrons of the star
// in frame 0; a mono sensor counts the flux.
struct TruthStar {
  double x = 0, y = 0;
  double flux = 0;
  double colour[3] = {1, 1, 1};
};

struct TruthPixel {
  int x = 0, y = 0;
  double value = 0;  // hot: electrons per second; cool: response relative to a good pixel
};

struct NightTruth {
  std::string version;  // of the program that made the night; empty if the file does not say
  int width = 0;
  int height = 0;
  double centreX = 0, centreY = 0;
  double gain = 1;       // electrons per data unit
  double offset = 0;     // data units
  double readNoise = 0;  // electrons
  std::vector<TruthFrame> frames;
  std::vector<TruthStar> stars;  // brightest first
  std::vector<TruthPixel> hotPixels;
  std::vector<TruthPixel> coolPixels;
};

// Writes truth with the options it was made from. False with a one-line `error` when the file cannot be written.
bool WriteTruth(const std::string& path, const NightTruth& truth, const SimulateOptions& options, std::string& error);

// Reads a truth.json back. Files of other generators of this convention are read as far as they go: only the size
// and the frames (index, dx, dy, theta_deg) are needed, and a frame without file name gets light_<index + 1>.fit.
// Nothing, with a one-line `error`, when the file cannot be read or says no geometry.
std::optional<NightTruth> ReadTruth(const std::string& path, std::string& error);

// Measured geometry of one frame in the truth's convention. `file` may carry a folder, which is not compared.
struct MeasuredGeometry {
  std::string file;
  double dx = 0, dy = 0;  // pixels
  double angle = 0;       // degrees
};

// How far measured geometry is from the truth: root mean squares over all compared frames, the reference left out.
struct GeometryError {
  int frames = 0;          // frames compared; 0 leaves the errors 0
  int unknown = 0;         // measured frames that the truth does not know
  int missing = 0;         // frames of the truth that were not measured
  double shiftRms = 0;     // pixels, at the image's centre
  double rotationRms = 0;  // degrees
  double gridRms = 0;      // pixels, over 9 x 9 positions from corner to corner
  double gridMax = 0;      // pixels, the worst of those positions
  std::string worstFile;   // the frame of gridMax
};

// `reference` names the frame that the measured geometry refers to; empty is frame 0.
GeometryError CompareGeometry(const NightTruth& truth, const std::vector<MeasuredGeometry>& measured,
                              const std::string& reference = {});

}  // namespace qmr
