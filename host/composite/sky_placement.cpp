#include "host/composite/sky_placement.h"

#include <cmath>
#include <cstdio>
#include <numbers>

namespace qmr {
namespace {

constexpr double kDegree = std::numbers::pi / 180.0;

double Dot(const SkyMap::Direction& a, const SkyMap::Direction& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

bool IsGnomonic(const std::vector<Keyword>& keywords) {
  const auto first = KeywordText(keywords, "CTYPE1");
  const auto second = KeywordText(keywords, "CTYPE2");
  return first && second && first->starts_with("RA---TAN") && second->starts_with("DEC--TAN");
}

// The linear part, degrees a pixel.
bool LinearPart(const std::vector<Keyword>& keywords, double* cd) {
  static constexpr const char* kCd[] = {"CD1_1", "CD1_2", "CD2_1", "CD2_2"};
  static constexpr const char* kPc[] = {"PC1_1", "PC1_2", "PC2_1", "PC2_2"};
  bool given = false;
  for (int i = 0; i < 4; ++i) {
    const auto value = KeywordNumber(keywords, kCd[i]);
    given |= value.has_value();
    cd[i] = value.value_or(0.0);
  }
  if (given) return true;
  const auto across = KeywordNumber(keywords, "CDELT1");
  const auto down = KeywordNumber(keywords, "CDELT2");
  if (!across || !down) return false;
  double pc[4] = {1.0, 0.0, 0.0, 1.0};
  for (int i = 0; i < 4; ++i) {
    const auto value = KeywordNumber(keywords, kPc[i]);
    given |= value.has_value();
    pc[i] = value.value_or(pc[i]);
  }
  if (const auto turn = KeywordNumber(keywords, "CROTA2"); turn && !given) {
    const double s = std::sin(*turn * kDegree), c = std::cos(*turn * kDegree);
    pc[0] = pc[3] = c;
    pc[1] = -s * *down / *across;
    pc[2] = s * *across / *down;
  }
  for (int i = 0; i < 4; ++i) cd[i] = (i < 2 ? *across : *down) * pc[i];
  return true;
}

}  // namespace

std::optional<SkyMap> SkyMap::From(const std::vector<Keyword>& keywords) {
  const auto ra = KeywordNumber(keywords, "CRVAL1");
  const auto dec = KeywordNumber(keywords, "CRVAL2");
  const auto column = KeywordNumber(keywords, "CRPIX1");
  const auto row = KeywordNumber(keywords, "CRPIX2");
  SkyMap map;
  if (!IsGnomonic(keywords) || !ra || !dec || !column || !row || !LinearPart(keywords, map.cd_)) return std::nullopt;
  for (double& value : map.cd_) value *= kDegree;
  const double* cd = map.cd_;
  const double determinant = cd[0] * cd[3] - cd[1] * cd[2];
  if (determinant == 0.0 || !std::isfinite(1.0 / determinant)) return std::nullopt;
  const double inverse[] = {cd[3] / determinant, -cd[1] / determinant, -cd[2] / determinant, cd[0] / determinant};
  for (int i = 0; i < 4; ++i) map.inverse_[i] = inverse[i];
  // The first pixel of a header is 1.
  map.reference_ = {*column - 1.0, *row - 1.0};
  const double sa = std::sin(*ra * kDegree), ca = std::cos(*ra * kDegree);
  const double sd = std::sin(*dec * kDegree), cd0 = std::cos(*dec * kDegree);
  map.centre_ = {cd0 * ca, cd0 * sa, sd};
  map.east_ = {-sa, ca, 0.0};
  map.north_ = {-sd * ca, -sd * sa, cd0};
  return map;
}

SkyMap::Direction SkyMap::ToSky(Point p) const {
  const double u = p.x - reference_.x, v = p.y - reference_.y;
  const double east = cd_[0] * u + cd_[1] * v;
  const double north = cd_[2] * u + cd_[3] * v;
  const double length = std::sqrt(1.0 + east * east + north * north);
  return {(centre_.x + east * east_.x + north * north_.x) / length,
          (centre_.y + east * east_.y + north * north_.y) / length,
          (centre_.z + east * east_.z + north * north_.z) / length};
}

std::optional<Point> SkyMap::ToPixel(const Direction& d) const {
  const double depth = Dot(d, centre_);
  // Near the edge of the half sky the projection goes to infinity.
  constexpr double kLeast = 0.01;
  if (!(depth > kLeast)) return std::nullopt;
  const double east = Dot(d, east_) / depth, north = Dot(d, north_) / depth;
  return Point{inverse_[0] * east + inverse_[1] * north + reference_.x,
               inverse_[2] * east + inverse_[3] * north + reference_.y};
}

std::variant<LibraryGeometry, std::string> PlaceBySky(const std::vector<Keyword>& picture,
                                                      const std::vector<Keyword>& frame, int width, int height) {
  const auto to = SkyMap::From(picture);
  const auto from = SkyMap::From(frame);
  if (!to || !from) return std::string("its header or that of the first frame has no sky coordinates (RA---TAN)");
  const Point middle{(width - 1) / 2.0, (height - 1) / 2.0};
  const double armX = 0.25 * width, armY = 0.25 * height;
  const Point at[] = {middle,
                      {middle.x - armX, middle.y},
                      {middle.x + armX, middle.y},
                      {middle.x, middle.y - armY},
                      {middle.x, middle.y + armY}};
  Point on[5];
  for (int i = 0; i < 5; ++i) {
    const auto p = to->ToPixel(from->ToSky(at[i]));
    if (!p) return std::string("its header places it on another side of the sky than the first frame");
    on[i] = *p;
  }
  const double xx = (on[2].x - on[1].x) / (2 * armX), yx = (on[2].y - on[1].y) / (2 * armX);
  const double xy = (on[4].x - on[3].x) / (2 * armY), yy = (on[4].y - on[3].y) / (2 * armY);
  const double area = xx * yy - xy * yx;
  if (area < 0.0) return std::string("it is mirrored against the first frame, by the headers");
  constexpr double kSameScale = 0.01;
  const double scale = std::sqrt(area);
  if (!(std::abs(scale - 1.0) < kSameScale)) {
    char text[120];
    std::snprintf(text, sizeof text, "one of its pixels is %.3f of the first frame's, by the headers; resize it first",
                  scale);
    return std::string(text);
  }
  return LibraryGeometry{on[0].x - middle.x, on[0].y - middle.y, std::atan2(yx - xy, xx + yy) / kDegree};
}

void MoveSkyKeywords(std::vector<Keyword>& keywords, int columns, int rows) {
  for (Keyword& keyword : keywords) {
    // Alternate coordinates end in a letter.
    const bool alternate = keyword.name.size() == 7 && keyword.name[6] >= 'A' && keyword.name[6] <= 'Z';
    if (keyword.name.size() != 6 && !alternate) continue;
    const int by = keyword.name.starts_with("CRPIX1") ? columns : keyword.name.starts_with("CRPIX2") ? rows : 0;
    const auto value = ParseNumber(ValueText(keyword.value));
    if (by != 0 && value) keyword.value = *value + by;
  }
}

}  // namespace qmr
