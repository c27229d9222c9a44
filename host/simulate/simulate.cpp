#include "host/simulate/simulate.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <new>
#include <string_view>
#include <system_error>
#include <vector>

#include "host/files/fits_writer.h"
#include "host/simulate/night_maker.h"
#include "host/simulate/truth.h"
#include "host/version.h"

namespace qmr {

namespace {

namespace fs = std::filesystem;
using sim::FrameKind;

struct KindEntry {
  FrameKind kind;
  const char* folder;
  const char* prefix;
  const char* type;  // IMAGETYP
  int SimulateOptions::*count;
};

// In the order in which they are taken.
constexpr KindEntry Kinds[] = {
    {FrameKind::Light, "lights", "light_", "Light Frame", &SimulateOptions::lights},
    {FrameKind::Dark, "darks", "dark_", "Dark Frame", &SimulateOptions::darks},
    {FrameKind::Flat, "flats", "flat_", "Flat Frame", &SimulateOptions::flats},
    {FrameKind::Bias, "biases", "bias_", "Bias Frame", &SimulateOptions::biases},
};

std::string FrameName(const KindEntry& kind, int index) {
  char text[40];
  std::snprintf(text, sizeof text, "%s%05d.fit", kind.prefix, index + 1);
  return text;
}

bool IsFrameName(const KindEntry& kind, const std::string& name) {
  const std::string_view prefix = kind.prefix;
  if (name.size() != prefix.size() + 9 || name.compare(0, prefix.size(), prefix) != 0) return false;
  if (name.compare(name.size() - 4, 4, ".fit") != 0) return false;
  return std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()), name.end() - 4,
                     [](unsigned char c) { return std::isdigit(c) != 0; });
}

// The files and folders that this run made; takes them away again unless kept.
class Made {
 public:
  ~Made() {
    if (kept_) return;
    std::error_code ignored;
    for (auto it = paths_.rbegin(); it != paths_.rend(); ++it) fs::remove(*it, ignored);
  }
  // All missing folders of the path. False with errno's text in `error`.
  bool Folder(const fs::path& path, std::string& error) {
    std::vector<fs::path> missing;
    std::error_code code;
    for (fs::path p = path; !p.empty() && !fs::exists(p, code); p = p.parent_path()) {
      missing.push_back(p);
      if (p == p.parent_path()) break;
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
      if (fs::create_directory(*it, code)) {
        paths_.push_back(*it);
      } else if (code) {
        error = "cannot make the folder " + PrintablePath(it->string()) + ": " + code.message();
        return false;
      }
    }
    if (fs::is_directory(path, code)) return true;
    error = PrintablePath(path.string()) + " is not a folder";
    return false;
  }
  void File(const fs::path& path) { paths_.push_back(path); }
  void Keep() { kept_ = true; }

 private:
  std::vector<fs::path> paths_;
  bool kept_ = false;
};

bool HoldsNight(const fs::path& folder) {
  std::error_code code;
  if (fs::exists(folder / "truth.json", code)) return true;
  for (const KindEntry& kind : Kinds) {
    const fs::path path = folder / kind.folder;
    if (fs::is_directory(path, code) && !fs::is_empty(path, code)) return true;
  }
  return false;
}

bool RemoveOldFrames(const fs::path& folder, std::string& error) {
  std::vector<fs::path> old;
  std::error_code code;
  for (const KindEntry& kind : Kinds) {
    for (fs::directory_iterator it(folder / kind.folder, code), end; !code && it != end; it.increment(code)) {
      if (IsFrameName(kind, it->path().filename().string())) old.push_back(it->path());
    }
  }
  old.push_back(folder / "truth.json");
  old.push_back(folder / "truth_scene.fit");
  for (const fs::path& path : old) {
    code.clear();
    fs::remove(path, code);
    if (code) {
      error = "cannot remove " + PrintablePath(path.string()) + ": " + code.message();
      return false;
    }
  }
  return true;
}

// Start of exposure number `shot` of the night; all frames follow each other with a pause for the readout.
std::string DateOfShot(std::int64_t milliseconds) {
  using namespace std::chrono;
  const sys_days evening = year{2024} / October / 5;
  const auto instant = evening + hours{19} + minutes{30} + std::chrono::milliseconds{milliseconds};
  const auto day = floor<days>(instant);
  const year_month_day date{day};
  const hh_mm_ss time{floor<std::chrono::milliseconds>(instant - day)};
  char text[80];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03d", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count()));
  return text;
}

std::vector<Keyword> FrameKeywords(const SimulateOptions& o, const KindEntry& kind, int shot, std::int64_t start) {
  const double seconds = sim::ExposureSeconds(o, kind.kind);
  const bool colour = o.mosaic != SensorMosaic::Mono;
  const bool honeycomb = o.mosaic == SensorMosaic::HoneyComb;
  const double wobble = sim::ToUniform(sim::Hash(sim::StreamKey(o.seed, sim::Stream::Header), shot)) - 0.5;
  std::vector<Keyword> k;
  k.push_back(Keyword::Text("IMAGETYP", kind.type, "type of frame"));
  k.push_back(Keyword::Real("EXPTIME", seconds, "[s] exposure"));
  k.push_back(Keyword::Real("EXPOSURE", seconds, "[s] exposure"));
  k.push_back(Keyword::Text("DATE-OBS", DateOfShot(start), "start of exposure, UTC"));
  // No keyword tells of a honeycomb; the one camera that is known for it does.
  k.push_back(Keyword::Text("INSTRUME", honeycomb ? "FUJIFILM FinePixS2Pro" : "Simulated camera",
                            honeycomb ? "its layout, simulated" : ""));
  k.push_back(Keyword::Text("TELESCOP", "Simulated refractor"));
  k.push_back(Keyword::Real("CCD-TEMP", std::round((-10.0 + 0.3 * wobble) * 10.0) / 10.0, "[C] of the sensor"));
  k.push_back(Keyword::Real("SET-TEMP", -10.0, "[C] asked for"));
  k.push_back(Keyword::Integer("GAIN", 100, "setting of the camera"));
  k.push_back(Keyword::Real("EGAIN", o.gain, "electrons per data unit"));
  k.push_back(Keyword::Integer("OFFSET", std::lround(o.offset), "setting of the camera"));
  k.push_back(Keyword::Integer("XBINNING", 1));
  k.push_back(Keyword::Integer("YBINNING", 1));
  k.push_back(Keyword::Real("XPIXSZ", 3.76, "[um] pixel"));
  k.push_back(Keyword::Real("YPIXSZ", 3.76, "[um] pixel"));
  k.push_back(Keyword::Real("FOCALLEN", 530.0, "[mm] focal length"));
  if (colour && !honeycomb) {
    k.push_back(Keyword::Text("BAYERPAT", MosaicName(o.mosaic), "filters of rows 0 and 1"));
    k.push_back(Keyword::Integer("XBAYROFF", 0));
    k.push_back(Keyword::Integer("YBAYROFF", 0));
  }
  k.push_back(Keyword::Text("ROWORDER", "TOP-DOWN", "first row is the top"));
  if (kind.kind == FrameKind::Light || kind.kind == FrameKind::Flat) {
    k.push_back(Keyword::Text("FILTER", !o.filter.empty() ? o.filter : (colour ? "RGB" : "L")));
  }
  if (kind.kind == FrameKind::Light) k.push_back(Keyword::Text("OBJECT", "Simulated nebula"));
  k.push_back(Keyword::Text("SWCREATE", std::string("qmr simulate ") + kVersion));
  return k;
}

FileStatus WriteScene(sim::NightMaker& maker, const SimulateOptions& o, const fs::path& path) {
  const int planes = o.mosaic == SensorMosaic::Mono ? 1 : 3;
  const std::size_t area = static_cast<std::size_t>(o.width) * o.height;
  std::vector<float> scene(area * planes);
  for (int p = 0; p < planes; ++p) {
    maker.MakeScene(0, planes == 1 ? -1 : p, std::span<float>(scene).subspan(area * p, area));
  }
  const std::vector<Keyword> keywords = {Keyword::Text("ROWORDER", "TOP-DOWN", "first row is the top"),
                                         Keyword::Text("BUNIT", "electron", "mean of frame 0, no noise")};
  const auto row = [&](int plane, int y) {
    return scene.data() + area * plane + static_cast<std::size_t>(y) * o.width;
  };
  return WriteFitsFloat(path.string(), o.width, o.height, planes, row, keywords);
}

SimulateResult Run(const SimulateOptions& o, const fs::path& folder, const SimulateProgress& progress, Made& made) {
  SimulateResult result;
  if (const auto problem = Check(o)) {
    result.error = *problem;
    return result;
  }
  if (!made.Folder(folder, result.error)) return result;
  if (HoldsNight(folder)) {
    if (!o.force) {
      result.error = PrintablePath(folder.string()) + " already holds a night";
      return result;
    }
    if (!RemoveOldFrames(folder, result.error)) return result;
  }
  sim::NightMaker maker(o);
  std::vector<std::uint16_t> samples(static_cast<std::size_t>(o.width) * o.height);
  std::int64_t total = 0;
  for (const KindEntry& kind : Kinds) total += o.*kind.count;
  std::int64_t start = 0;
  const auto failed = [&result](const FileStatus& status) {
    if (status) result.error = status->Message();
    return status.has_value();
  };
  const auto stopped = [&] { return result.cancelled = progress.cancelled && progress.cancelled(); };
  for (const KindEntry& kind : Kinds) {
    if (o.*kind.count > 0 && !made.Folder(folder / kind.folder, result.error)) return result;
    for (int i = 0; i < o.*kind.count; ++i) {
      if (stopped()) return result;
      maker.Make(kind.kind, i, samples);
      const fs::path path = folder / kind.folder / FrameName(kind, i);
      const std::vector<Keyword> keywords = FrameKeywords(o, kind, result.frames, start);
      made.File(path);
      if (failed(WriteFits16(path.string(), o.width, o.height, 1, samples, keywords))) return result;
      start += static_cast<std::int64_t>(sim::ExposureSeconds(o, kind.kind) * 1000.0) + 2500;
      ++result.frames;
      std::error_code ignored;
      const auto size = fs::file_size(path, ignored);
      if (!ignored) result.bytes += static_cast<std::int64_t>(size);
      if (progress.report) progress.report(result.frames, total);
    }
  }
  if (stopped()) return result;
  if (o.scene) {
    made.File(folder / "truth_scene.fit");
    if (failed(WriteScene(maker, o, folder / "truth_scene.fit"))) return result;
  }
  made.File(folder / "truth.json");
  WriteTruth((folder / "truth.json").string(), maker.Truth(), o, result.error);
  return result;
}

}  // namespace

SimulateResult Simulate(const SimulateOptions& options, const std::string& folder, const SimulateProgress& progress) {
  Made made;
  SimulateResult result;
  try {
    if (folder.empty()) {
      result.error = "no folder is named";
      return result;
    }
    fs::path path(folder);
    // "night/" and "night" are one folder.
    if (path.filename().empty() && path.has_parent_path()) path = path.parent_path();
    result = Run(options, path, progress, made);
  } catch (const std::bad_alloc&) {
    result.error = "not enough memory for frames of this size";
  } catch (const fs::filesystem_error& error) {
    result.error = error.code().message();
  }
  if (result.Ok()) made.Keep();
  return result;
}

}  // namespace qmr
