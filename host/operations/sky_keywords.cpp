#include "host/operations/sky_keywords.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "host/files/mosaic.h"
#include "host/night/keywords.h"
#include "host/operations/picture_file.h"

namespace qmr {
namespace {

// The first entry of that name gets the value and keeps its comment, or there is a new one.
void SetNumber(std::vector<Keyword>& keywords, const std::string& name, double value) {
  for (Keyword& keyword : keywords)
    if (UpperCase(keyword.name) == name) {
      keyword.value = value;
      return;
    }
  keywords.push_back(Keyword::Real(name, value));
}

void Drop(std::vector<Keyword>& keywords, const std::vector<std::string>& names) {
  std::erase_if(keywords, [&](const Keyword& k) {
    return std::find(names.begin(), names.end(), UpperCase(k.name)) != names.end();
  });
}

// What one pixel of the result measures along an axis, in old pixels.
double StepX(const PixelMap& map) {
  return std::hypot(map.yy, map.yx) / std::fabs(map.Determinant());
}
double StepY(const PixelMap& map) {
  return std::hypot(map.xx, map.xy) / std::fabs(map.Determinant());
}

// ---- World coordinates ----------------------------------------------------------------------------------------------

struct Matrix {
  double xx, xy, yx, yy;
};

// From new pixels to old ones, without the shift.
Matrix Inverse(const PixelMap& map) {
  const double d = map.Determinant();
  return {map.yy / d, -map.xy / d, -map.yx / d, map.xx / d};
}

// Degrees and pixels of one set of world coordinates, the primary one or an alternate.
class WorldSet {
 public:
  WorldSet(std::vector<Keyword>& keywords, std::string suffix) : keywords_(keywords), suffix_(std::move(suffix)) {}

  bool Exists() const {
    for (const char* name : {"CRPIX1", "CRPIX2", "CRVAL1", "CTYPE1", "CD1_1", "CDELT1"})
      if (Number(name) || KeywordText(keywords_, name + suffix_)) return true;
    return false;
  }

  void Carry(const PixelMap& map) {
    // Pixel 1 of the header is pixel 0 here.
    const double x = Number("CRPIX1").value_or(0.0) - 1.0;
    const double y = Number("CRPIX2").value_or(0.0) - 1.0;
    Set("CRPIX1", map.xx * x + map.xy * y + map.dx + 1.0);
    Set("CRPIX2", map.yx * x + map.yy * y + map.dy + 1.0);
    if (map.IsShift()) return;
    const bool diagonal = map.xy == 0.0 && map.yx == 0.0;
    if (diagonal && !HasAny({"CD1_1", "CD1_2", "CD2_1", "CD2_2", "PC1_1", "PC1_2", "PC2_1", "PC2_2"}) &&
        Rotation() == 0.0) {
      Set("CDELT1", Number("CDELT1").value_or(1.0) / map.xx);
      Set("CDELT2", Number("CDELT2").value_or(1.0) / map.yy);
      return;
    }
    // The old matrix of the inverse map.
    const Matrix old = Old();
    const Matrix inverse = Inverse(map);
    Set("CD1_1", old.xx * inverse.xx + old.xy * inverse.yx);
    Set("CD1_2", old.xx * inverse.xy + old.xy * inverse.yy);
    Set("CD2_1", old.yx * inverse.xx + old.yy * inverse.yx);
    Set("CD2_2", old.yx * inverse.xy + old.yy * inverse.yy);
    for (const char* name : {"CDELT1", "CDELT2", "CROTA1", "CROTA2", "PC1_1", "PC1_2", "PC2_1", "PC2_2"})
      std::erase_if(keywords_, [&](const Keyword& k) { return UpperCase(k.name) == name + suffix_; });
  }

 private:
  std::optional<double> Number(const std::string& name) const { return KeywordNumber(keywords_, name + suffix_); }
  void Set(const std::string& name, double value) { SetNumber(keywords_, name + suffix_, value); }
  bool HasAny(std::initializer_list<const char*> names) const {
    return std::any_of(names.begin(), names.end(), [&](const char* name) { return Number(name).has_value(); });
  }
  double Rotation() const { return Number("CROTA2").value_or(Number("CROTA1").value_or(0.0)); }

  // Degrees a pixel, whichever way the file says it.
  Matrix Old() const {
    if (HasAny({"CD1_1", "CD1_2", "CD2_1", "CD2_2"}))
      return {Number("CD1_1").value_or(0.0), Number("CD1_2").value_or(0.0), Number("CD2_1").value_or(0.0),
              Number("CD2_2").value_or(0.0)};
    const double scaleX = Number("CDELT1").value_or(1.0), scaleY = Number("CDELT2").value_or(1.0);
    if (HasAny({"PC1_1", "PC1_2", "PC2_1", "PC2_2"}))
      return {scaleX * Number("PC1_1").value_or(1.0), scaleX * Number("PC1_2").value_or(0.0),
              scaleY * Number("PC2_1").value_or(0.0), scaleY * Number("PC2_2").value_or(1.0)};
    const double angle = Rotation() * 3.141592653589793 / 180.0;
    return {scaleX * std::cos(angle), -scaleY * std::sin(angle), scaleX * std::sin(angle), scaleY * std::cos(angle)};
  }

  std::vector<Keyword>& keywords_;
  std::string suffix_;
};

// ---- SIP (Shupe et al. 2005) ----------------------------------------------------------------------------------------

// Polynomials of the distance (u, v) from CRPIX in pixels, with terms up to this degree.
constexpr int kSipDegree = 9;
using SipTerms = std::array<std::array<double, kSipDegree + 1>, kSipDegree + 1>;  // by the powers of u and v

constexpr std::string_view kSipPairs[][2] = {{"A_", "B_"}, {"AP_", "BP_"}};

std::string SipName(std::string_view axis, int p, int q) {
  return std::string(axis) + std::to_string(p) + "_" + std::to_string(q);
}

std::optional<int> SipOrder(const std::vector<Keyword>& keywords, std::string_view axis) {
  const auto order = KeywordNumber(keywords, std::string(axis) + "ORDER");
  return order ? std::optional(static_cast<int>(std::clamp(*order, 0.0, double{kSipDegree}))) : std::nullopt;
}

// Takes the terms of an axis out of the header.
SipTerms TakeSip(std::vector<Keyword>& keywords, std::string_view axis) {
  const int order = SipOrder(keywords, axis).value_or(kSipDegree);
  SipTerms terms = {};
  for (int p = 0; p <= kSipDegree; ++p) {
    for (int q = 0; p + q <= kSipDegree; ++q) {
      const std::string name = SipName(axis, p, q);
      // Readers pass over what lies above the order.
      if (p + q <= order)
        terms[static_cast<std::size_t>(p)][static_cast<std::size_t>(q)] = KeywordNumber(keywords, name).value_or(0.0);
      std::erase_if(keywords, [&](const Keyword& k) { return UpperCase(k.name) == name; });
    }
  }
  Drop(keywords, {std::string(axis) + "DMAX"});
  return terms;
}

// The same polynomial in x and y for u = m.xx x + m.xy y and v = m.yx x + m.yy y; no term changes its degree.
SipTerms Substituted(const SipTerms& terms, const Matrix& m) {
  const auto choose = [](int n, int k) {
    double ways = 1.0;
    for (int i = 1; i <= k; ++i) ways = ways * (n - k + i) / i;
    return ways;
  };
  SipTerms result = {};
  for (int p = 0; p <= kSipDegree; ++p) {
    for (int q = 0; p + q <= kSipDegree; ++q) {
      const double term = terms[static_cast<std::size_t>(p)][static_cast<std::size_t>(q)];
      if (term == 0.0) continue;
      for (int i = 0; i <= p; ++i) {
        for (int j = 0; j <= q; ++j)
          result[static_cast<std::size_t>(i + j)][static_cast<std::size_t>(p + q - i - j)] +=
              term * choose(p, i) * std::pow(m.xx, i) * std::pow(m.xy, p - i) * choose(q, j) * std::pow(m.yx, j) *
              std::pow(m.yy, q - j);
      }
    }
  }
  return result;
}

// The distortion is a way that each pixel goes: the map turns and stretches it like any other, and it is found at the
// new place.
void CarrySip(std::vector<Keyword>& keywords, const PixelMap& map) {
  const Matrix inverse = Inverse(map);
  for (const auto& axes : kSipPairs) {
    const int order = std::max(SipOrder(keywords, axes[0]).value_or(-1), SipOrder(keywords, axes[1]).value_or(-1));
    if (order < 0) continue;
    const SipTerms u = Substituted(TakeSip(keywords, axes[0]), inverse);
    const SipTerms v = Substituted(TakeSip(keywords, axes[1]), inverse);
    for (const auto& [axis, fromU, fromV] : {std::tuple{axes[0], map.xx, map.xy}, {axes[1], map.yx, map.yy}}) {
      Drop(keywords, {std::string(axis) + "ORDER"});
      keywords.push_back(Keyword::Integer(std::string(axis) + "ORDER", order, "order of the SIP distortion"));
      for (std::size_t p = 0; p <= kSipDegree; ++p) {
        for (std::size_t q = 0; p + q <= kSipDegree; ++q) {
          const double term = fromU * u[p][q] + fromV * v[p][q];
          if (term != 0.0)
            keywords.push_back(Keyword::Real(SipName(axis, static_cast<int>(p), static_cast<int>(q)), term));
        }
      }
    }
  }
}

void CarrySkyKeywords(std::vector<Keyword>& keywords, const PixelMap& map) {
  const auto inTables = [](const Keyword& k) {
    const std::string name = UpperCase(k.name);
    const auto starts = [&](std::string_view prefix) { return name.starts_with(prefix); };
    return starts("CPDIS") || starts("CQDIS") || starts("D2IM");
  };
  if (std::any_of(keywords.begin(), keywords.end(), inTables)) {
    std::erase_if(keywords, inTables);
    Drop(keywords, {"DP1", "DP2", "DQ1", "DQ2"});
    DropSkyKeywords(keywords);
    return;
  }
  if (!map.IsShift()) CarrySip(keywords, map);
  for (char letter = 'A' - 1; letter <= 'Z'; ++letter) {
    WorldSet set(keywords, letter < 'A' ? std::string() : std::string(1, letter));
    if (set.Exists()) set.Carry(map);
  }
}

// ---- The camera -----------------------------------------------------------------------------------------------------

void CarryPixelKeywords(std::vector<Keyword>& keywords, const PixelMap& map) {
  const auto multiply = [&](const char* name, double factor) {
    // A mere turn leaves a factor a rounding away from 1.
    constexpr double kSame = 1e-12;
    if (const auto value = KeywordNumber(keywords, name); value && std::fabs(factor - 1.0) > kSame)
      SetNumber(keywords, name, *value * factor);
  };
  const auto exchange = [&](const char* x, const char* y) {
    const auto first = KeywordNumber(keywords, x), second = KeywordNumber(keywords, y);
    if (!first || !second) return;
    SetNumber(keywords, x, *second);
    SetNumber(keywords, y, *first);
  };
  const bool exchanged = map.xx == 0.0 && map.yy == 0.0;
  for (const auto& [x, y] : {std::pair{"XPIXSZ", "YPIXSZ"}, {"PIXSIZE1", "PIXSIZE2"}, {"SECPIX1", "SECPIX2"}}) {
    if (exchanged) exchange(x, y);
    multiply(x, StepX(map));
    multiply(y, StepY(map));
  }
  for (const char* name : {"PIXSCALE", "SECPIX", "SCALE"})
    multiply(name, 1.0 / std::sqrt(std::fabs(map.Determinant())));
  for (const auto& [x, y] : {std::pair{"XBINNING", "YBINNING"}, {"CCDXBIN", "CCDYBIN"}}) {
    if (exchanged) exchange(x, y);
    multiply(x, map.binX);
    multiply(y, map.binY);
  }
  for (const auto& [name, shift] : {std::pair{"XORGSUBF", map.dx}, {"YORGSUBF", map.dy}})
    if (const auto value = KeywordNumber(keywords, name); value && map.IsShift() && shift != 0.0)
      SetNumber(keywords, name, *value - shift);
  if (!map.IsShift()) Drop(keywords, {"XORGSUBF", "YORGSUBF"});
}

}  // namespace

PixelMap Joined(const PixelMap& first, const PixelMap& second) {
  return {second.xx * first.xx + second.xy * first.yx,
          second.xx * first.xy + second.xy * first.yy,
          second.yx * first.xx + second.yy * first.yx,
          second.yx * first.xy + second.yy * first.yy,
          second.xx * first.dx + second.xy * first.dy + second.dx,
          second.yx * first.dx + second.yy * first.dy + second.dy};
}

void CarryPlaceKeywords(std::vector<Keyword>& keywords, const std::optional<PixelMap>& map) {
  Drop(keywords,
       {"DATASEC", "TRIMSEC", "BIASSEC", "CCDSEC", "DETSEC", "LTV1", "LTV2", "LTM1_1", "LTM1_2", "LTM2_1", "LTM2_2"});
  if (!map) return DropSkyKeywords(keywords);
  CarrySkyKeywords(keywords, *map);
  CarryPixelKeywords(keywords, *map);
}

void CarryMosaicKeywords(std::vector<Keyword>& keywords, const PixelMap& map, int number, int height) {
  const std::string_view letters = BayerLetters(number);
  if (letters.empty()) return;
  // BAYERPAT counts rows as they are shown: memory row 0 is the last one of a file that starts at the bottom.
  const int firstRow = IsBottomUp(keywords) ? height - 1 : 0;
  std::string cell(4, ' ');
  for (int row = 0; row < 2; ++row) {
    for (int column = 0; column < 2; ++column) {
      // The map is one of whole pixels, so that its inverse is its transpose.
      const double x = column - map.dx, y = row - map.dy;
      const auto oldX = static_cast<std::int64_t>(std::llround(map.xx * x + map.yx * y));
      const auto oldY = static_cast<std::int64_t>(std::llround(map.xy * x + map.yy * y));
      const int shown = (row + firstRow) & 1;
      cell[static_cast<std::size_t>(2 * shown + column)] =
          letters[static_cast<std::size_t>(2 * (oldY & 1) + (oldX & 1))];
    }
  }
  Drop(keywords,
       {"BAYERPAT", "BAYER", "COLORTYP", "COLORTYPE", "CFA-PAT", "XBAYROFF", "YBAYROFF", "BAYOFFX", "BAYOFFY"});
  keywords.push_back(Keyword::Text("BAYERPAT", cell, "pattern of the sensor, as shown"));
}

}  // namespace qmr
