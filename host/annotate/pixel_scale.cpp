#include "host/annotate/pixel_scale.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "host/operations/parameters.h"

namespace qmr {
namespace {

constexpr double kArcsecPerDegree = 3600.0;

// Only lengths above 0 are scales.
std::optional<double> Positive(double arcsec) {
  if (std::isfinite(arcsec) && arcsec > 0.0) return arcsec;
  return std::nullopt;
}

bool IsCelestial(const std::vector<Keyword>& keywords) {
  const std::optional<std::string> type = KeywordText(keywords, "CTYPE1");
  if (!type) return false;
  const std::string upper = UpperCase(*type);
  for (const std::string_view axis : {"RA--", "DEC-", "GLON", "GLAT", "ELON", "ELAT"})
    if (upper.starts_with(axis)) return true;
  return false;
}

// The root of the area that a pixel has on the sky, so that a turned or mirrored picture makes no difference.
std::optional<double> FromSolution(const std::vector<Keyword>& keywords) {
  if (!IsCelestial(keywords)) return std::nullopt;
  const auto number = [&](const char* name) { return KeywordNumber(keywords, name); };
  const auto cd11 = number("CD1_1"), cd12 = number("CD1_2"), cd21 = number("CD2_1"), cd22 = number("CD2_2");
  if (cd11 || cd12 || cd21 || cd22) {
    const double area = cd11.value_or(0.0) * cd22.value_or(0.0) - cd12.value_or(0.0) * cd21.value_or(0.0);
    return Positive(std::sqrt(std::abs(area)) * kArcsecPerDegree);
  }
  const auto dx = number("CDELT1"), dy = number("CDELT2");
  if (dx && dy) return Positive(std::sqrt(std::abs(*dx * *dy)) * kArcsecPerDegree);
  return std::nullopt;
}

std::optional<double> FromTelescope(const std::vector<Keyword>& keywords) {
  constexpr double kArcsecPerRadian = 206264.80624709636;
  constexpr double kMicronsPerMillimetre = 1000.0;
  const auto microns = KeywordNumber(keywords, "XPIXSZ"), millimetres = KeywordNumber(keywords, "FOCALLEN");
  if (!microns || !millimetres || !(*millimetres > 0.0)) return std::nullopt;
  return Positive(*microns / kMicronsPerMillimetre / *millimetres * kArcsecPerRadian);
}

}  // namespace

std::optional<double> ArcsecPerPixel(const std::vector<Keyword>& keywords) {
  if (const auto scale = FromSolution(keywords)) return scale;
  for (const char* const name : {"PIXSCALE", "SECPIX", "SECPIX1"})
    if (const auto said = KeywordNumber(keywords, name))
      if (const auto scale = Positive(*said)) return scale;
  return FromTelescope(keywords);
}

std::optional<ScaleBar> RoundBar(double arcsecPerPixel, double most) {
  struct Unit {
    double arcsec;
    const char* sign;
    std::vector<double> lengths;
  };
  static const Unit kUnits[] = {
      {kArcsecPerDegree, "°", {90, 60, 45, 30, 20, 10, 5, 2, 1}},
      {60.0, "′", {30, 20, 10, 5, 2, 1}},
      {1.0, "″", {30, 20, 10, 5, 2, 1, 0.5, 0.2, 0.1, 0.05, 0.02, 0.01}},
  };
  for (const Unit& unit : kUnits)
    for (const double length : unit.lengths) {
      const double pixels = length * unit.arcsec / arcsecPerPixel;
      if (pixels <= most) return ScaleBar{pixels, NumberText(length) + unit.sign};
    }
  return std::nullopt;
}

}  // namespace qmr
