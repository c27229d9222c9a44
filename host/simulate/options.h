#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qmr {

// Colour filters of the simulated sensor. Bayer ones are named by the first two sites of row 0 and of row 1; the
// honeycomb is layout 11, the only one that a camera is known for, with every second pixel of a row without photosite.
enum class SensorMosaic { Mono, Rggb, Grbg, Bggr, Gbrg, HoneyComb };

// How the pointing wanders from frame to frame.
enum class DriftKind {
  Walk,    // small steps that stay within the limit, with a field rotation that grows evenly
  Uniform  // every frame anywhere within the limits
};

enum class StarProfile { Moffat, Gaussian };

// What `Simulate` makes. Electrons are counted at the detector for one exposure and, unless said otherwise, for a
// pixel without vignetting. Every night is a function of these values alone (not of `threads` and `force`).
struct SimulateOptions {
  int width = 1200;  // 32..20000 pixels
  int height = 800;  // 32..20000 pixels
  int lights = 12;   // 1..9999 frames
  int darks = 5;     // 0..9999
  int flats = 5;     // 0..9999
  int biases = 5;    // 0..9999
  SensorMosaic mosaic = SensorMosaic::Rggb;
  std::uint64_t seed = 1;

  // Geometry.
  DriftKind drift = DriftKind::Walk;
  double driftPixels = 12.0;     // largest |dx| and |dy|, 0..1000
  double rotationDegrees = 0.4;  // largest field rotation either way, 0..180

  // Seeing.
  StarProfile profile = StarProfile::Moffat;  // Moffat with beta 3
  double fwhm = 3.0;                          // pixels, 1..40
  double fwhmVariation = 0.1;                 // relative spread over the night, 0..1

  // Sky and scene.
  double stars = 6000.0;      // per megapixel, 0..50000
  double nebula = 900.0;      // electrons of the nebula where it is bright, 0..1e5; 0 is none
  double sky = 700.0;         // electrons of the sky at the start, 0..5e4
  double skyChange = 0.3;     // relative rise of the sky until the last frame, -0.9..10
  double skyGradient = 0.18;  // sky from one edge to the other relative to its level, 0..1; turns during the night
  double clouds = 0.12;       // largest loss of transparency on good frames, 0..0.9
  int badFrames = 0;          // frames under thick cloud and bad seeing, 0..lights - 1; never the first
  int trails = 2;             // satellite trails over the night, 0..1000
  double cosmicRays = 20.0;   // hits per megapixel and frame, 0..10000

  // Camera.
  double exposure = 120.0;    // seconds, 0.001..36000
  double gain = 1.0;          // electrons per data unit, 0.01..100
  double offset = 500.0;      // data units, 0..20000
  double readNoise = 3.5;     // electrons, 0..1000
  double fullWell = 60000.0;  // electrons, 100..1e7
  double darkCurrent = 0.05;  // electrons per second and pixel, 0..1000
  double ampGlow = 1.5;       // electrons per second in the glowing corner, 0..1000
  double hotPixels = 500.0;   // per megapixel, 0..100000
  double coolPixels = 60.0;   // per megapixel, 0..100000
  double vignetting = 0.35;   // loss of light in the corners, 0..0.95
  int dust = 12;              // dust shadows, 0..1000
  std::string filter;         // FILTER keyword; empty gives "L" to a mono and "RGB" to a colour sensor

  bool scene = false;  // also write truth_scene.fit, the noise-free scene of frame 0
  bool force = false;  // replace a night that the folder already holds
  int threads = 0;     // 0 takes all processors
};

// One line that says what is wrong with the options; nothing when they are good.
std::optional<std::string> Check(const SimulateOptions& options);

// "mono", "RGGB", "GRBG", "BGGR", "GBRG" or "honeycomb".
const char* MosaicName(SensorMosaic mosaic);
// The reverse, in any case of letters; nothing for another name.
std::optional<SensorMosaic> MosaicFromName(std::string_view name);

// Colour (0 red, 1 green, 2 blue) of the site at a row and column from 0; 1 on a mono sensor. Where a honeycomb has no
// photosite it is that of the one beside it, so that colours change with the columns shifted right by ColourShift, and
// come again after the second.
int MosaicColour(SensorMosaic mosaic, int row, int column);
int ColourShift(SensorMosaic mosaic);
bool HasPhotosite(SensorMosaic mosaic, int row, int column);

}  // namespace qmr
