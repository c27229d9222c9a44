#include "qmrimg/levels/expansion.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <vector>

#include "qmrimg/levels/kernels/sphere_rows.h"
#include "qmrimg/levels/point_run.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"

namespace {

constexpr int kMessageExpansion = 6140;
// Meridians and parallels of the graticule, 30 degrees apart.
constexpr int kParallels = 7;
constexpr int kMeridians = 13;

// The largest rectangle of 2 to 1 about the middle of the image.
CRect MapOf(int width, int height) {
  if (width / 2 > height) {
    const int left = (width - 2 * height) / 2;
    return CRect(left, 0, left + 2 * height, height);
  }
  const int top = (height - width / 2) / 2;
  return CRect(0, top, width, top + width / 2);
}

// Cosine and sine of the longitudes of columns first..last - 1.
struct Longitudes {
  Longitudes(const CRect& map, int width, int firstColumn, int lastColumn) : first(firstColumn) {
    const auto count = static_cast<std::size_t>(std::max(lastColumn - firstColumn, 0));
    try {
      cosine.resize(count);
      sine.resize(count);
    } catch (const std::bad_alloc&) {
      AfxThrowMemoryException();
    }
    for (std::size_t i = 0; i < count; ++i) {
      const double x = firstColumn + static_cast<double>(i);
      const double longitude = qmr::Radians((x - width * 0.5) / (map.right - map.left) * 360.0);
      cosine[i] = std::cos(longitude);
      sine[i] = std::sin(longitude);
    }
  }
  int first;
  std::vector<double> cosine;
  std::vector<double> sine;
};

// The part of a row that lies on the map, from the column of longitudes.first on.
void UnrollRow(const CVynImage& source, int plane, double latitude, const Longitudes& longitudes,
               const qmr::SphereView& view, std::span<float> to) {
  constexpr std::size_t kPiece = 512;
  double sx[kPiece];
  double sy[kPiece];
  const double cosine = std::cos(qmr::Radians(latitude));
  const double sine = std::sin(qmr::Radians(latitude));
  for (std::size_t x = 0; x < to.size(); x += kPiece) {
    const std::size_t count = std::min(kPiece, to.size() - x);
    qmr::LocateParallel(longitudes.cosine.data() + x, longitudes.sine.data() + x, count, cosine, sine, view, sx, sy);
    for (std::size_t i = 0; i < count; ++i)
      to[x + i] = sx[i] >= 0.0 ? source.GetPixelGrayRaw(sx[i], sy[i], plane) : 0.0f;
  }
}

// Parallels over the whole width of the rectangle with the maximum of plane 0, meridians over the height of the map
// with that of the plane: on purpose, as is that lines just past the rectangle are drawn.
void DrawGraticule(CVynImage& image, int plane, const CRect& map, const qmr::PointArea& area) {
  const auto parallel = static_cast<float>(image.GetLevelRange(0) + image.GetLevelMin(0));
  for (int i = 0; i < kParallels; ++i) {
    const int y = qmr::TruncateToInt((map.bottom - map.top - 1) / 18.0 * (i * 3) + map.top);
    if (y < area.top || y > area.bottom) continue;
    const std::span<float> row = qmr::WriteRow(image, y, plane, area.left, area.right);
    std::fill(row.begin(), row.end(), parallel);
  }
  const auto meridian = static_cast<float>(image.GetLevelMax(plane));
  for (int y = std::max(area.top, static_cast<int>(map.top)); y < map.bottom && y <= area.bottom; ++y) {
    const std::span<float> row = qmr::WriteRow(image, y, plane, 0, image.GetWidth());
    for (int i = 0; i < kMeridians; ++i) {
      const int x = qmr::TruncateToInt((map.right - map.left - 1) / 36.0 * (i * 3) + map.left);
      if (x >= area.left && x <= area.right && x < static_cast<int>(row.size()))
        row[static_cast<std::size_t>(x)] = meridian;
    }
  }
}

}  // namespace

void RotateX(double degrees, double* matrix) {
  const double c = std::cos(qmr::Radians(degrees));
  const double s = std::sin(qmr::Radians(degrees));
  const double rows[9] = {1.0, 0.0, 0.0, 0.0, c, s, 0.0, -s, c};
  std::copy(std::begin(rows), std::end(rows), matrix);
}

void RotateY(double degrees, double* matrix) {
  const double c = std::cos(qmr::Radians(degrees));
  const double s = std::sin(qmr::Radians(degrees));
  const double rows[9] = {c, 0.0, -s, 0.0, 1.0, 0.0, s, 0.0, c};
  std::copy(std::begin(rows), std::end(rows), matrix);
}

void MultiplyMatrix(const double* a, const double* b, double* product) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      product[i * 3 + j] = a[i * 3] * b[j] + a[i * 3 + 1] * b[3 + j] + a[i * 3 + 2] * b[6 + j];
}

void MultiplyMatrixVector(const double* matrix, const double* vector, double* product) {
  for (int i = 0; i < 3; ++i)
    product[i] = matrix[i * 3] * vector[0] + matrix[i * 3 + 1] * vector[1] + matrix[i * 3 + 2] * vector[2];
}

void LongitudeLatitudeToVector(double longitude, double latitude, double* vector) {
  const double cosLatitude = std::cos(qmr::Radians(latitude));
  vector[0] = cosLatitude * std::cos(qmr::Radians(longitude));
  vector[1] = cosLatitude * std::sin(qmr::Radians(longitude));
  vector[2] = std::sin(qmr::Radians(latitude));
}

CImgExpansion::CImgExpansion() = default;
CImgExpansion::CImgExpansion(const CImgExpansion& src) : CVynImage(src) {}
CImgExpansion::~CImgExpansion() = default;

CImgExpansion& CImgExpansion::operator=(const CImgExpansion& src) {
  CVynImage::operator=(src);
  return *this;
}

void CImgExpansion::Do(CVynImage* source, double discCentreX, double discCentreY, double discRadius, double angleY,
                       double angleX, double polarScale, int drawGrid, CRect* pRect, int bProgress) {
  if (!source) return;
  const qmr::PointArea area = qmr::AreaOf(*this, pRect);
  const CRect map = MapOf(Width, Height);
  const int mapLeft = std::clamp(static_cast<int>(map.left), area.left, std::max(area.left, area.right));
  const int mapRight = std::clamp(static_cast<int>(map.right), mapLeft, std::max(mapLeft, area.right));
  const Longitudes longitudes(map, Width, mapLeft, mapRight);
  // Rows that are already written are still to be read.
  std::unique_ptr<const CVynImage> copy;
  if (source == this) copy = std::make_unique<const CVynImage>(*source);
  const CVynImage& from = copy ? *copy : *source;

  qmr::SphereView view{
      {}, polarScale, discCentreX, discCentreY, discRadius, from.GetWidth() - 1.0, from.GetHeight() - 1.0};
  double turnX[9], turnY[9];
  RotateX(angleX, turnX);
  RotateY(angleY, turnY);
  MultiplyMatrix(turnX, turnY, view.turn);

  const auto readable = [&](int p) { return !qmr::ReadRow(from, 0, p, 0, 1).empty(); };
  for (int p = 0; p < Planes; ++p)
    if (readable(p)) SetLevel(p, from.GetLevelMin(p), from.GetLevelMax(p));
  ShowProgressInit(bProgress, kMessageExpansion, qmr::RowUnits(area.bottom - area.top, Planes));
  // That of plane 0 in every plane, on purpose.
  const auto background = static_cast<float>(GetLevelMin(0));
  for (int p = 0; p < Planes; ++p) {
    const bool write = readable(p);
    qmr::ForRows(
        area.top, area.bottom,
        [&](int y) {
          const std::span<float> row = write ? qmr::WriteRow(*this, y, p, area.left, area.right) : std::span<float>();
          if (row.empty()) return;
          if (y < map.top || y >= map.bottom) {
            std::fill(row.begin(), row.end(), background);
            return;
          }
          const auto begin = static_cast<std::size_t>(mapLeft - area.left);
          const auto end = static_cast<std::size_t>(mapRight - area.left);
          std::fill(row.begin(), row.begin() + static_cast<std::ptrdiff_t>(begin), background);
          std::fill(row.begin() + static_cast<std::ptrdiff_t>(end), row.end(), background);
          const double latitude = (y - Height * 0.5) / (map.bottom - map.top) * -180.0;
          UnrollRow(from, p, latitude, longitudes, view, row.subspan(begin, end - begin));
        },
        this);
  }
  if (drawGrid && area.left < area.right && area.top < area.bottom)
    for (int p = 0; p < Planes; ++p)
      if (readable(p)) DrawGraticule(*this, p, map, area);
  ShowProgressEnd(nullptr);
}
