#include "host/simulate/options.h"

#include <cctype>
#include <cstdio>

#include "host/files/mosaic.h"

namespace qmr {

namespace {

struct MosaicEntry {
  SensorMosaic mosaic;
  const char* name;
  int layout;  // as SiteColour has it; 0 for a mono sensor
};

constexpr MosaicEntry Mosaics[] = {
    {SensorMosaic::Mono, "mono", 0}, {SensorMosaic::Rggb, "RGGB", 1}, {SensorMosaic::Grbg, "GRBG", 2},
    {SensorMosaic::Bggr, "BGGR", 3}, {SensorMosaic::Gbrg, "GBRG", 4}, {SensorMosaic::HoneyComb, "honeycomb", 11},
};

const MosaicEntry& Entry(SensorMosaic mosaic) {
  for (const MosaicEntry& entry : Mosaics) {
    if (entry.mosaic == mosaic) return entry;
  }
  return Mosaics[0];
}

struct Range {
  const char* name;
  double value;
  double low;
  double high;
};

}  // namespace

std::optional<std::string> Check(const SimulateOptions& o) {
  const Range ranges[] = {
      {"width", static_cast<double>(o.width), 32, 20000},
      {"height", static_cast<double>(o.height), 32, 20000},
      {"lights", static_cast<double>(o.lights), 1, 9999},
      {"darks", static_cast<double>(o.darks), 0, 9999},
      {"flats", static_cast<double>(o.flats), 0, 9999},
      {"biases", static_cast<double>(o.biases), 0, 9999},
      {"drift", o.driftPixels, 0, 1000},
      {"rotation", o.rotationDegrees, 0, 180},
      {"fwhm", o.fwhm, 1, 40},
      {"fwhm variation", o.fwhmVariation, 0, 1},
      {"stars", o.stars, 0, 50000},
      {"nebula", o.nebula, 0, 1e5},
      {"sky", o.sky, 0, 5e4},
      {"sky change", o.skyChange, -0.9, 10},
      {"sky gradient", o.skyGradient, 0, 1},
      {"clouds", o.clouds, 0, 0.9},
      {"bad frames", static_cast<double>(o.badFrames), 0, static_cast<double>(o.lights - 1)},
      {"trails", static_cast<double>(o.trails), 0, 1000},
      {"cosmic rays", o.cosmicRays, 0, 10000},
      {"exposure", o.exposure, 0.001, 36000},
      {"gain", o.gain, 0.01, 100},
      {"offset", o.offset, 0, 20000},
      {"read noise", o.readNoise, 0, 1000},
      {"full well", o.fullWell, 100, 1e7},
      {"dark current", o.darkCurrent, 0, 1000},
      {"amplifier glow", o.ampGlow, 0, 1000},
      {"hot pixels", o.hotPixels, 0, 100000},
      {"cool pixels", o.coolPixels, 0, 100000},
      {"vignetting", o.vignetting, 0, 0.95},
      {"dust", static_cast<double>(o.dust), 0, 1000},
      {"threads", static_cast<double>(o.threads), 0, 1024},
  };
  for (const Range& range : ranges) {
    // Written so that not-a-number is refused, too.
    if (!(range.value >= range.low && range.value <= range.high)) {
      char text[160];
      std::snprintf(text, sizeof text, "%s is %g, but must lie between %g and %g", range.name, range.value, range.low,
                    range.high);
      return text;
    }
  }
  for (const char c : o.filter) {
    if (c < 32 || c > 126) return "filter holds a character that a FITS header cannot";
  }
  if (o.filter.size() > 60) return "filter is longer than 60 characters";
  return std::nullopt;
}

const char* MosaicName(SensorMosaic mosaic) {
  return Entry(mosaic).name;
}

std::optional<SensorMosaic> MosaicFromName(std::string_view name) {
  for (const MosaicEntry& entry : Mosaics) {
    const std::string_view known = entry.name;
    bool same = known.size() == name.size();
    for (std::size_t i = 0; same && i < known.size(); ++i) {
      same = std::tolower(static_cast<unsigned char>(known[i])) == std::tolower(static_cast<unsigned char>(name[i]));
    }
    if (same) return entry.mosaic;
  }
  return std::nullopt;
}

int MosaicColour(SensorMosaic mosaic, int row, int column) {
  if (mosaic == SensorMosaic::Mono) return 1;
  const int layout = Entry(mosaic).layout;
  return SiteColour(layout, row, HasPhotosite(mosaic, row, column) ? column : column ^ 1);
}

int ColourShift(SensorMosaic mosaic) {
  return mosaic == SensorMosaic::HoneyComb ? 1 : 0;
}

bool HasPhotosite(SensorMosaic mosaic, int row, int column) {
  return mosaic != SensorMosaic::HoneyComb || ((row + column) & 1) != 0;
}

}  // namespace qmr
