#include "qmrimg/geometry/resolution.h"

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "qmrimg/filters/snapshot.h"
#include "qmrimg/geometry/geometry_run.h"
#include "qmrimg/geometry/kernels/resample_rows.h"
#include "qmrimg/geometry/scaled_rows.h"

namespace {

constexpr int kMessageResolution = 6110;

// One axis of a resampling. The step follows from the old size of the destination; pixels of the result that lie
// beyond a source smaller than that are left alone.
template <class Real>
struct Axis {
  Axis(int oldSize, int sourceSize, int newSize)
      : size(std::min(oldSize, sourceSize)), step(static_cast<Real>(oldSize) / static_cast<Real>(newSize)) {
    reach = sourceSize < oldSize || size <= 0 ? 0 : newSize;
    while (size > 0 && reach < newSize && static_cast<Real>(reach) * step < static_cast<Real>(size)) ++reach;
  }
  int size;  // pixels of the source
  Real step;
  int reach;  // pixels of the result
};

int FloatPlanes(const CVynImage& a, const CVynImage& b) {
  return qmr::HasFloats(a) && qmr::HasFloats(b) ? std::min(a.GetPlanes(), b.GetPlanes()) : 0;
}

// Positions i * step in float.
std::vector<double> Positions(int count, float step) {
  std::vector<double> positions(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) positions[static_cast<std::size_t>(i)] = static_cast<float>(i) * step;
  return positions;
}

}  // namespace

CImgResolution::CImgResolution() = default;
CImgResolution::~CImgResolution() = default;

int CImgResolution::Do(CVynImage* source, int width, int height, int bProgress) {
  return Bilinear(source, width, height, bProgress);
}

int CImgResolution::Bilinear(CVynImage* source, int width, int height, int bProgress) {
  return qmr::WithTables([&] {
    if (!source) return 0;
    const Axis<float> x(Width, source->GetWidth(), width);
    const Axis<float> y(Height, source->GetHeight(), height);
    // At the same size the formula gives the pixels themselves where they are finite: so it does for all of them.
    const bool same = Width == width && Height == height;
    qmr::Snapshot before(*this);
    const CVynImage& from = before.Of(*source);
    if (!qmr::MakeSize(*this, width, height, bProgress)) return 0;
    ShowProgressInit(bProgress, kMessageResolution, qmr::ReportUnits(Height, Planes));
    const int planes = FloatPlanes(from, *this);
    const qmr::LinearColumns columns(x.size, x.step, x.reach);
    qmr::ForPlaneRows(*this, [&](int p, int row) {
      if (same) return qmr::CopyRow(from, row, *this, p, row);
      if (p >= planes || row >= y.reach) return;
      const qmr::LinearPlace place = qmr::LinearRowPlace(y.size, static_cast<float>(row) * y.step);
      columns.Row(qmr::ReadRow(from, place.first, p, 0, x.size).data(),
                  qmr::ReadRow(from, place.second, p, 0, x.size).data(), place.fraction,
                  qmr::WriteRow(*this, row, p, 0, x.reach));
    });
    ShowProgressEnd(nullptr);
    return 1;
  });
}

int CImgResolution::Bicubic(CVynImage* source, int width, int height, int bProgress) {
  return qmr::WithTables([&] {
    if (!source) return 0;
    const Axis<double> x(Width, source->GetWidth(), width);
    const Axis<double> y(Height, source->GetHeight(), height);
    qmr::Snapshot before(*this);
    const CVynImage& from = before.Of(*source);
    if (!qmr::MakeSize(*this, width, height, bProgress)) return 0;
    ShowProgressInit(bProgress, kMessageResolution, Height);
    const int planes = FloatPlanes(from, *this);
    const qmr::CubicColumns columns(x.size, x.step, x.reach);
    qmr::ForRows(
        0, Height,
        [&](int row) {
          if (row >= y.reach) return;
          const qmr::CubicPlace place = qmr::CubicPlaceOf(row * y.step);
          for (int first = 0; first < planes; first += qmr::kCubicLines) {
            const int count = std::min(qmr::kCubicLines, planes - first);
            std::array<qmr::CubicLine, qmr::kCubicLines> lines;
            for (int k = 0; k < count; ++k) {
              qmr::CubicLine& line = lines[static_cast<std::size_t>(k)];
              for (int r = 0; r < qmr::kCubicTaps; ++r)
                line.rows[static_cast<std::size_t>(r)] =
                    qmr::ReadRow(from, qmr::CubicIndex(place.first + r, y.size), first + k, 0, x.size).data();
              line.to = qmr::WriteRow(*this, row, first + k, 0, x.reach).data();
            }
            columns.Row(std::span(lines).first(static_cast<std::size_t>(count)), place.weights);
          }
        },
        this);
    ShowProgressEnd(nullptr);
    return 1;
  });
}

int CImgResolution::DoChange(CVynImage* source, int width, int height, int method, int bProgress) {
  return qmr::WithTables([&] {
    if (!source) return 0;
    const float stepX = static_cast<float>(Width) / static_cast<float>(width);
    const float stepY = static_cast<float>(Height) / static_cast<float>(height);
    qmr::Snapshot before(*this);
    const CVynImage& from = before.Of(*source);
    if (!qmr::MakeSize(*this, width, height, bProgress)) return 0;
    ShowProgressInit(bProgress, kMessageResolution, qmr::ReportUnits(Height, Planes));
    const int planes = FloatPlanes(from, *this);
    const qmr::PlacedColumns columns(method, from.GetWidth(), Positions(Width, stepX));
    for (int p = 0; p < Planes; ++p) {
      std::vector<const float*> rows;
      for (int y = 0; p < planes && y < from.GetHeight(); ++y)
        rows.push_back(qmr::ReadRow(from, y, p, 0, from.GetWidth()).data());
      const qmr::PlaneRows plane = {rows.data(), from.GetWidth(), static_cast<int>(rows.size())};
      qmr::ForRowRanges(0, Height, [&](int first, int last) {
        qmr::ScaledRows scaled(columns, plane);
        for (int y = first; y < last; ++y) {
          if (p < planes) scaled.Row(static_cast<float>(y) * stepY, qmr::WriteRow(*this, y, p, 0, Width));
          ShowProgress(1);
        }
      });
    }
    ShowProgressEnd(nullptr);
    return 1;
  });
}
