#include "host/simulate/truth.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "host/files/atomic_file.h"
#include "host/simulate/portable_math.h"

namespace qmr {

namespace {

using nlohmann::json;
using Ordered = nlohmann::ordered_json;

constexpr const char* Convention =
    "Frame i shows the reference point p at R(theta) (p - c) + c + d, d = (dx, dy). Positions are pixels, x to the "
    "right, y along the rows of the file, the middle of the first pixel at (0, 0); c = centre = ((width - 1) / 2, "
    "(height - 1) / 2); R(theta) turns +x towards +y. matrix is the same map: position in frame = matrix . (position "
    "in reference, 1). Frame 0 is the reference.";

constexpr const char* Units =
    "dx, dy, fwhm, positions: pixels. theta_deg: degrees. sky, flux, peak, read_noise: electrons of one exposure. "
    "offset: data units. gain: electrons per data unit. hot_pixels: x, y, electrons per second. cool_pixels: x, y, "
    "response relative to a good pixel. colour: flux times colour is what a sensor of only red, green or blue pixels "
    "counts.";

Ordered OptionsJson(const SimulateOptions& o) {
  return {{"width", o.width},
          {"height", o.height},
          {"count", o.lights},
          {"darks", o.darks},
          {"flats", o.flats},
          {"biases", o.biases},
          {"mosaic", MosaicName(o.mosaic)},
          {"seed", o.seed},
          {"drift", o.drift == DriftKind::Walk ? "walk" : "uniform"},
          {"drift_pixels", o.driftPixels},
          {"rotation_deg", o.rotationDegrees},
          {"profile", o.profile == StarProfile::Moffat ? "moffat" : "gaussian"},
          {"fwhm", o.fwhm},
          {"fwhm_variation", o.fwhmVariation},
          {"stars_per_megapixel", o.stars},
          {"nebula", o.nebula},
          {"sky", o.sky},
          {"sky_change", o.skyChange},
          {"sky_gradient", o.skyGradient},
          {"clouds", o.clouds},
          {"bad_frames", o.badFrames},
          {"trails", o.trails},
          {"cosmic_rays_per_megapixel", o.cosmicRays},
          {"exposure", o.exposure},
          {"gain", o.gain},
          {"offset", o.offset},
          {"read_noise", o.readNoise},
          {"full_well", o.fullWell},
          {"dark_current", o.darkCurrent},
          {"amp_glow", o.ampGlow},
          {"hot_pixels_per_megapixel", o.hotPixels},
          {"cool_pixels_per_megapixel", o.coolPixels},
          {"vignetting", o.vignetting},
          {"dust", o.dust},
          {"filter", o.filter}};
}

Ordered FrameJson(const TruthFrame& f, double cx, double cy) {
  const sim::SineCosine turn = sim::SinCosDegrees(f.theta);
  const double c = turn.cosine;
  const double s = turn.sine;
  Ordered trails = Ordered::array();
  for (const TruthTrail& t : f.trails) {
    trails.push_back({{"x0", t.x0}, {"y0", t.y0}, {"x1", t.x1}, {"y1", t.y1}, {"peak", t.peak}, {"width", t.width}});
  }
  Ordered matrix = Ordered::array();
  matrix.push_back({c, -s, cx - c * cx + s * cy + f.dx});
  matrix.push_back({s, c, cy - s * cx - c * cy + f.dy});
  return {{"index", f.index},     {"file", f.file},
          {"dx", f.dx},           {"dy", f.dy},
          {"theta_deg", f.theta}, {"matrix", matrix},
          {"fwhm", f.fwhm},       {"transparency", f.transparency},
          {"sky", f.sky},         {"sky_gradient", {f.gradientX, f.gradientY}},
          {"bad", f.bad},         {"trails", trails}};
}

std::string BaseName(const std::string& path) {
  const std::size_t slash = path.find_last_of("/\\");
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

double Number(const json& object, const char* key, double fallback) {
  const auto it = object.find(key);
  return it != object.end() && it->is_number() ? it->get<double>() : fallback;
}

// Coordinates of pixels and sizes; anything that no int holds becomes the fallback.
int Whole(double value, int fallback) {
  return value >= -1e9 && value <= 1e9 ? static_cast<int>(value) : fallback;
}

std::vector<TruthPixel> ReadPixels(const json& root, const char* key) {
  std::vector<TruthPixel> pixels;
  const auto it = root.find(key);
  if (it == root.end() || !it->is_array()) return pixels;
  for (const json& p : *it) {
    if (!p.is_array() || p.size() < 3 || !p[0].is_number() || !p[1].is_number() || !p[2].is_number()) continue;
    pixels.push_back({Whole(p[0].get<double>(), 0), Whole(p[1].get<double>(), 0), p[2].get<double>()});
  }
  return pixels;
}

std::vector<TruthStar> ReadStars(const json& root) {
  std::vector<TruthStar> stars;
  const auto it = root.find("stars");
  if (it == root.end() || !it->is_array()) return stars;
  for (const json& s : *it) {
    TruthStar star;
    if (s.is_array() && s.size() >= 3 && s[0].is_number() && s[1].is_number() && s[2].is_number()) {
      star.x = s[0].get<double>();
      star.y = s[1].get<double>();
      star.flux = s[2].get<double>();
    } else if (s.is_object()) {
      star.x = Number(s, "x", 0.0);
      star.y = Number(s, "y", 0.0);
      star.flux = Number(s, "flux", 0.0);
      const auto colour = s.find("colour");
      for (std::size_t c = 0; c < 3 && colour != s.end() && colour->is_array() && colour->size() == 3; ++c) {
        if ((*colour)[c].is_number()) star.colour[c] = (*colour)[c].get<double>();
      }
    } else {
      continue;
    }
    stars.push_back(star);
  }
  return stars;
}

bool ReadFrame(const json& f, TruthFrame& frame) {
  if (!f.is_object()) return false;
  for (const char* key : {"index", "dx", "dy", "theta_deg"}) {
    const auto it = f.find(key);
    if (it == f.end() || !it->is_number()) return false;
  }
  frame.index = Whole(f["index"].get<double>(), -1);
  if (frame.index < 0) return false;
  frame.dx = f["dx"].get<double>();
  frame.dy = f["dy"].get<double>();
  frame.theta = f["theta_deg"].get<double>();
  const auto file = f.find("file");
  if (file != f.end() && file->is_string()) {
    frame.file = file->get<std::string>();
  } else {
    char name[32];
    std::snprintf(name, sizeof name, "light_%05d.fit", frame.index + 1);
    frame.file = name;
  }
  frame.fwhm = Number(f, "fwhm", 0.0);
  frame.transparency = Number(f, "transparency", 1.0);
  frame.sky = Number(f, "sky", 0.0);
  const auto gradient = f.find("sky_gradient");
  if (gradient != f.end() && gradient->is_array() && gradient->size() == 2 && (*gradient)[0].is_number() &&
      (*gradient)[1].is_number()) {
    frame.gradientX = (*gradient)[0].get<double>();
    frame.gradientY = (*gradient)[1].get<double>();
  }
  const auto bad = f.find("bad");
  frame.bad = bad != f.end() && bad->is_boolean() && bad->get<bool>();
  const auto trails = f.find("trails");
  if (trails != f.end() && trails->is_array()) {
    for (const json& t : *trails) {
      if (!t.is_object()) continue;
      frame.trails.push_back({Number(t, "x0", 0), Number(t, "y0", 0), Number(t, "x1", 0), Number(t, "y1", 0),
                              Number(t, "peak", 0), Number(t, "width", 1)});
    }
  }
  return true;
}

struct Motion {
  double dx, dy, theta;
};

// The motion of `frame` as seen from `reference`: T_frame after the inverse of T_reference, about the same centre.
Motion Relative(const TruthFrame& frame, const TruthFrame& reference) {
  const double theta = frame.theta - reference.theta;
  const sim::SineCosine turn = sim::SinCosDegrees(theta);
  return {frame.dx - (turn.cosine * reference.dx - turn.sine * reference.dy),
          frame.dy - (turn.sine * reference.dx + turn.cosine * reference.dy), theta};
}

}  // namespace

bool WriteTruth(const std::string& path, const NightTruth& truth, const SimulateOptions& options, std::string& error) {
  Ordered root;
  root["generator"] = "qmr simulate";
  root["version"] = truth.version;
  root["convention"] = Convention;
  root["units"] = Units;
  root["arguments"] = OptionsJson(options);
  root["centre"] = {truth.centreX, truth.centreY};
  root["gain"] = truth.gain;
  root["offset"] = truth.offset;
  root["read_noise"] = truth.readNoise;
  Ordered frames = Ordered::array();
  for (const TruthFrame& frame : truth.frames) frames.push_back(FrameJson(frame, truth.centreX, truth.centreY));
  root["frames"] = frames;
  Ordered stars = Ordered::array();
  for (const TruthStar& s : truth.stars) {
    stars.push_back({{"x", s.x}, {"y", s.y}, {"flux", s.flux}, {"colour", {s.colour[0], s.colour[1], s.colour[2]}}});
  }
  root["stars"] = stars;
  for (const auto& [key, pixels] : {std::pair{"hot_pixels", &truth.hotPixels}, {"cool_pixels", &truth.coolPixels}}) {
    Ordered list = Ordered::array();
    for (const TruthPixel& p : *pixels) list.push_back(Ordered::array({p.x, p.y, p.value}));
    root[key] = list;
  }
  // One line a member and, in lists, one line an element: readable without filling a screen with one star.
  std::string text = "{\n";
  for (auto it = root.begin(); it != root.end(); ++it) {
    if (it != root.begin()) text += ",\n";
    text += Ordered(it.key()).dump() + ": ";
    if (it->is_array() && !it->empty() && it->front().is_structured()) {
      text += "[\n";
      for (std::size_t k = 0; k < it->size(); ++k) text += (*it)[k].dump() + (k + 1 < it->size() ? ",\n" : "\n");
      text += "]";
    } else {
      text += it->dump();
    }
  }
  text += "\n}\n";
  if (const FileStatus status = WriteTextFile(path, text)) {
    error = status->Message();
    return false;
  }
  return true;
}

std::optional<NightTruth> ReadTruth(const std::string& path, std::string& error) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream content;
  if (!stream || !(content << stream.rdbuf())) {
    error = PrintablePath(path) + " cannot be read";
    return std::nullopt;
  }
  const json root = json::parse(content.str(), nullptr, false);
  if (!root.is_object()) {
    error = PrintablePath(path) + " is not a JSON object";
    return std::nullopt;
  }
  NightTruth truth;
  const auto arguments = root.find("arguments");
  if (arguments != root.end() && arguments->is_object()) {
    truth.width = Whole(Number(*arguments, "width", 0.0), 0);
    truth.height = Whole(Number(*arguments, "height", 0.0), 0);
  }
  const auto frames = root.find("frames");
  if (truth.width < 1 || truth.height < 1 || frames == root.end() || !frames->is_array() || frames->empty()) {
    error = PrintablePath(path) + " says no geometry";
    return std::nullopt;
  }
  for (const json& f : *frames) {
    TruthFrame frame;
    if (!ReadFrame(f, frame)) {
      error = PrintablePath(path) + " holds a frame without index, dx, dy or theta_deg";
      return std::nullopt;
    }
    truth.frames.push_back(std::move(frame));
  }
  truth.centreX = (truth.width - 1) / 2.0;
  truth.centreY = (truth.height - 1) / 2.0;
  const auto version = root.find("version");
  if (version != root.end() && version->is_string()) truth.version = version->get<std::string>();
  truth.gain = Number(root, "gain", 1.0);
  truth.offset = Number(root, "offset", 0.0);
  truth.readNoise = Number(root, "read_noise", 0.0);
  truth.stars = ReadStars(root);
  truth.hotPixels = ReadPixels(root, "hot_pixels");
  truth.coolPixels = ReadPixels(root, "cool_pixels");
  return truth;
}

GeometryError CompareGeometry(const NightTruth& truth, const std::vector<MeasuredGeometry>& measured,
                              const std::string& reference) {
  GeometryError result;
  std::map<std::string, const TruthFrame*> byName;
  for (const TruthFrame& frame : truth.frames) byName.emplace(BaseName(frame.file), &frame);
  const TruthFrame still;
  const TruthFrame* origin = &still;
  for (const TruthFrame& frame : truth.frames) {
    if (reference.empty() ? frame.index == 0 : BaseName(frame.file) == BaseName(reference)) origin = &frame;
  }
  double shift = 0.0;
  double rotation = 0.0;
  double grid = 0.0;
  std::map<std::string, bool> seen;
  for (const MeasuredGeometry& m : measured) {
    const auto known = byName.find(BaseName(m.file));
    if (known == byName.end()) {
      ++result.unknown;
      continue;
    }
    if (!seen.emplace(known->first, true).second || known->second == origin) continue;
    const Motion truly = Relative(*known->second, *origin);
    const double ex = m.dx - truly.dx;
    const double ey = m.dy - truly.dy;
    const double turned = m.angle - truly.theta;
    const double angle = turned - 360.0 * std::round(turned / 360.0);
    shift += ex * ex + ey * ey;
    rotation += angle * angle;
    const sim::SineCosine a = sim::SinCosDegrees(truly.theta);
    const sim::SineCosine b = sim::SinCosDegrees(m.angle);
    const double dc = b.cosine - a.cosine;
    const double ds = b.sine - a.sine;
    double squares = 0.0;
    for (int k = 0; k < 81; ++k) {
      const double px = (truth.width - 1) * ((k % 9) / 8.0 - 0.5);
      const double py = (truth.height - 1) * ((k / 9) / 8.0 - 0.5);
      const double gx = dc * px - ds * py + ex;
      const double gy = ds * px + dc * py + ey;
      const double square = gx * gx + gy * gy;
      squares += square;
      if (std::sqrt(square) > result.gridMax) {
        result.gridMax = std::sqrt(square);
        result.worstFile = known->first;
      }
    }
    grid += squares / 81.0;
    ++result.frames;
  }
  const int frames = static_cast<int>(truth.frames.size());
  result.missing = frames - static_cast<int>(seen.size());
  if (origin != &still && seen.count(BaseName(origin->file)) == 0) --result.missing;
  if (result.frames > 0) {
    result.shiftRms = std::sqrt(shift / result.frames);
    result.rotationRms = std::sqrt(rotation / result.frames);
    result.gridRms = std::sqrt(grid / result.frames);
  }
  return result;
}

}  // namespace qmr
