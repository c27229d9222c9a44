#include "host/measure/measure_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/files/file_error.h"
#include "host/operations/parameters.h"

namespace qmr {
namespace {

using Json = nlohmann::ordered_json;

[[gnu::format(printf, 1, 2)]] std::string Line(const char* format, ...) {
  std::array<char, 256> text;
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  return text.data();
}

std::string NameOf(const std::string& path) {
  return PrintablePath(path.substr(path.find_last_of('/') + 1));
}

// The paths without their folders where that leaves them apart.
std::vector<std::string> NamesOf(const std::vector<FrameMeasure>& frames) {
  std::vector<std::string> names;
  for (const FrameMeasure& frame : frames) names.push_back(NameOf(frame.path));
  std::vector<std::string> sorted = names;
  std::sort(sorted.begin(), sorted.end());
  if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end())
    for (std::size_t i = 0; i < names.size(); ++i) names[i] = PrintablePath(frames[i].path);
  return names;
}

std::string Counts(const FrameMeasure& frame) {
  std::string text = Line("%d star%s", frame.found, frame.found == 1 ? "" : "s");
  if (frame.saturated > 0) text += Line(", %d of them saturated", frame.saturated);
  if (frame.hotPixels > 0)
    text += Line("; %d single bright pixel%s left out", frame.hotPixels, frame.hotPixels == 1 ? "" : "s");
  if (frame.blankPixels > 0) text += Line("; %lld pixels without a value", static_cast<long long>(frame.blankPixels));
  return text;
}

std::string Summary(const FrameMeasure& frame) {
  std::string text = PrintablePath(frame.path) + ": " + std::to_string(frame.width) + " x " +
                     std::to_string(frame.height) + ", " + frame.plane + "\n  " + Counts(frame) + "\n";
  if (frame.medianOf > 0)
    text += Line("  FWHM %.2f px, ellipticity %.2f, half-flux diameter %.2f px (medians of %d)", frame.fwhm,
                 frame.ellipticity, frame.halfFlux, frame.medianOf) +
            (frame.focus > 0.0 ? Line("; focus %.3f\n", frame.focus) : "\n");
  return text + Line("  sky %.6g, noise %.4g; fluxes within %.1f px\n", frame.sky, frame.noise, frame.aperture);
}

// Six digits or more, without an exponent where there is room.
std::string Value(double v, int width) {
  return std::fabs(v) >= 1e5 && std::fabs(v) < 1e11 ? Line("%*.0f", width, v) : Line("%*.6g", width, v);
}

constexpr const char* kStarHead =
    "         x         y    FWHM   major   minor  angle  ellipt.     HFD        peak  background         flux       "
    "SNR\n";

std::string StarLine(const MeasuredStar& s) {
  return Line("  %8.2f  %8.2f  %6.2f  %6.2f  %6.2f  %5.0f  %7.2f  %6.2f", s.x, s.y, s.fwhm, s.major, s.minor, s.angle,
              s.Ellipticity(), s.halfFlux) +
         "  " + Value(s.peak, 10) + "  " + Value(s.background, 10) + "  " + Value(s.flux, 11) +
         Line("  %8.1f%s\n", s.snr, s.saturated ? "  saturated" : "");
}

std::string Stars(const FrameMeasure& frame, const std::vector<MeasureOptions::Place>& at) {
  std::string text;
  for (const MeasuredStar& star : frame.stars) text += StarLine(star);
  for (std::size_t i = 0; i < frame.at.size(); ++i)
    text += frame.at[i] ? StarLine(*frame.at[i]) : Line("  %8.2f  %8.2f  no star there\n", at[i].x, at[i].y);
  if (!text.empty()) text.insert(0, kStarHead);
  return text;
}

// Letters, not bytes.
std::size_t LengthOf(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string Overview(const MeasureReport& report) {
  const std::vector<std::string> names = NamesOf(report.frames);
  std::size_t width = 5;
  for (const std::string& name : names) width = std::max(width, LengthOf(name));
  std::string text =
      "frame" + std::string(width - 5, ' ') + "    stars    FWHM  ellipt.     HFD         sky       noise    focus\n";
  for (std::size_t i = 0; i < names.size(); ++i) {
    const FrameMeasure& f = report.frames[i];
    text += names[i] + std::string(width - LengthOf(names[i]), ' ') + Line("  %7d", f.found);
    text += f.medianOf > 0 ? Line("  %6.2f  %7.2f  %6.2f", f.fwhm, f.ellipticity, f.halfFlux)
                           : Line("  %6s  %7s  %6s", "-", "-", "-");
    text += Line("  %10.6g  %10.4g  ", f.sky, f.noise);
    text += f.focus > 0.0 ? Line("%7.3f", f.focus) : Line("%7s", "-");
    text += i == report.sharpest ? "  sharpest\n" : "\n";
  }
  return text;
}

Json StarJson(const MeasuredStar& s) {
  return {{"x", s.x},
          {"y", s.y},
          {"fwhm", s.fwhm},
          {"fwhmMajor", s.major},
          {"fwhmMinor", s.minor},
          {"angleDegrees", s.angle},
          {"ellipticity", s.Ellipticity()},
          {"halfFluxDiameter", s.halfFlux},
          {"peak", s.peak},
          {"background", s.background},
          {"flux", s.flux},
          {"snr", s.snr},
          {"saturated", s.saturated}};
}

Json FrameJson(const FrameMeasure& f, const std::vector<MeasureOptions::Place>& at) {
  const auto known = [](double value, bool any) { return any ? Json(value) : Json(); };
  const bool any = f.medianOf > 0;
  Json json = {{"file", PrintablePath(f.path)},
               {"width", f.width},
               {"height", f.height},
               {"measured", f.plane},
               {"blankPixels", f.blankPixels},
               {"starsFound", f.found},
               {"saturatedStars", f.saturated},
               {"hotPixels", f.hotPixels},
               {"sky", f.sky},
               {"noise", f.noise},
               {"mediansOf", f.medianOf},
               {"fwhm", known(f.fwhm, any)},
               {"ellipticity", known(f.ellipticity, any)},
               {"halfFluxDiameter", known(f.halfFlux, any)},
               {"profileFwhm", known(f.profileFwhm, f.profileFwhm > 0.0)},
               {"focus", known(f.focus, f.focus > 0.0)},
               {"apertureRadius", f.aperture},
               {"moffatBeta", known(f.beta, f.beta > 0.0)}};
  if (f.at.empty()) {
    json["stars"] = Json::array();
    for (const MeasuredStar& star : f.stars) json["stars"].push_back(StarJson(star));
    return json;
  }
  json["at"] = Json::array();
  for (std::size_t i = 0; i < f.at.size(); ++i)
    json["at"].push_back({{"askedX", at[i].x}, {"askedY", at[i].y}, {"star", f.at[i] ? StarJson(*f.at[i]) : Json()}});
  return json;
}

}  // namespace

std::string MeasureText(const MeasureReport& report, bool stars) {
  if (report.frames.empty()) return {};
  const bool several = report.frames.size() + report.failed.size() > 1;
  std::string text = several ? Overview(report) : std::string();
  if (several && !stars) return text;
  for (const FrameMeasure& frame : report.frames) {
    if (!text.empty()) text += '\n';
    text += Summary(frame);
    text += Stars(frame, report.at);
  }
  return text;
}

std::string MeasureJson(const MeasureReport& report) {
  Json json;
  json["convention"] =
      "positions and lengths in pixels of the file, x = column, y = row in the order of the file, from 0, pixel "
      "centres "
      "at integers; angles in degrees from +x towards +y; values in those of the file";
  json["frames"] = Json::array();
  for (const FrameMeasure& frame : report.frames) json["frames"].push_back(FrameJson(frame, report.at));
  for (const MeasureReport::Failed& failed : report.failed)
    json["frames"].push_back({{"file", PrintablePath(failed.path)}, {"error", PrintablePath(failed.reason)}});
  json["sharpest"] = report.sharpest ? Json(PrintablePath(report.frames[*report.sharpest].path)) : Json();
  return json.dump(2) + "\n";
}

}  // namespace qmr
