#include "qmrimg/geometry/interp.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>
#include <utility>

#include "qmrimg/geometry/interp_method.h"
#include "qmrimg/geometry/kernels/window.h"
#include "qmrimg/geometry/row_engine.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/truncate.h"

namespace {

struct MethodName {
  const wchar_t* english;
  const wchar_t* shown;
};
constexpr MethodName kMethods[] = {
    {L"Bilinear", L"バイリニア"},       {L"Bicubic", L"バイキュービック"},           {L"Lanczos2", L"ランチョス2(4x4)"},
    {L"Lanczos3", L"ランチョス3(6x6)"}, {L"NearestNeighbor", L"ニアレストネイバー"},
};
constexpr int kMethodCount = static_cast<int>(std::size(kMethods));

// Rows before and behind the truncated position that are enough for every window.
constexpr int kWindowReach = 4;

bool HasFraction(double v) {
  return v - std::trunc(v) != 0.0;
}

// Floats from one row to the next, the same in all planes; 0 when it is not, or not whole.
std::ptrdiff_t EvenStride(const float* const* table, int planes, int rows) {
  const auto address = [&](int p, int y) {
    return reinterpret_cast<std::intptr_t>(
        table[static_cast<std::size_t>(p) * static_cast<std::size_t>(rows) + static_cast<std::size_t>(y)]);
  };
  if (rows < 2) return 0;
  const std::intptr_t bytes = address(0, 1) - address(0, 0);
  if (bytes % static_cast<std::intptr_t>(sizeof(float)) != 0) return 0;
  for (int p = 0; p < planes; ++p) {
    for (int y = 1; y < rows; ++y) {
      if (address(p, y) - address(p, y - 1) != bytes) return 0;
    }
  }
  return bytes / static_cast<std::intptr_t>(sizeof(float));
}

double Brightness(double r, double g, double b) {
  return 0.299 * r + 0.587 * g + 0.114 * b;
}

}  // namespace

// ---- Life ----------------------------------------------------------------------------------------------------------

CInterp::CInterp(int methodNumber) : method(methodNumber) {}

CInterp::CInterp(int methodNumber, CVynImage* source, int) : method(methodNumber), shiftType(1), image(source) {
  GetImageYaddress();
}

CInterp::CInterp(const CInterp& other) : method(other.method) {
  CopyFields(other);
}

CInterp& CInterp::operator=(const CInterp& other) {
  if (this != &other) CopyFields(other);
  return *this;
}

CInterp::~CInterp() = default;

void CInterp::CopyFields(const CInterp& other) {
  method = other.method;
  shiftType = other.shiftType;
  image = other.image;
  xStart = other.xStart;
  xEnd = other.xEnd;
  xStartInt = other.xStartInt;
  xEndInt = other.xEndInt;
  to256 = other.to256;
  outsideValue = other.outsideValue;
  plane = other.plane;
  sinValue = other.sinValue;
  cosValue = other.cosValue;
  scale = other.scale;
  shiftX = other.shiftX;
  shiftY = other.shiftY;
  center = other.center;
  width = other.width;
  height = other.height;
  colorFlag = other.colorFlag;
  for (int p = 0; p < 3; ++p) {
    levelMinF[p] = other.levelMinF[p];
    levelGainF[p] = other.levelGainF[p];
  }
  rowWidth = other.rowWidth;
  engine.reset();
  DropRowTable();
  if (other.rowTable) GetImageYaddress();
}

qmr::RowEngine& CInterp::Engine() {
  if (!engine) engine = std::make_unique<qmr::RowEngine>();
  return *engine;
}

// ---- Names ---------------------------------------------------------------------------------------------------------

int CInterp::GetMethod(CString& name) {
  for (int i = 0; i < kMethodCount; ++i) {
    if (name.CompareNoCase(kMethods[i].english) == 0) return i;
  }
  return -1;
}

CString CInterp::GetString(int number) {
  return number >= 0 && number < kMethodCount ? CString(kMethods[number].shown) : CString();
}

CString CInterp::GetEngString(int number) {
  return number >= 0 && number < kMethodCount ? CString(kMethods[number].english) : CString();
}

// ---- Binding -------------------------------------------------------------------------------------------------------

void CInterp::Bind(CVynImage* source, int useImageCenter) {
  image = source;
  width = source ? source->GetWidth() : 0;
  height = source ? source->GetHeight() : 0;
  if (source && useImageCenter)
    center = source->GetStdCtr();
  else
    center.Set(width * 0.5, height * 0.5);
}

void CInterp::SetBParam(int type, CVynImage* source, double start, double end, int b256, float outside, int planeNumber,
                        double sine, double cosine, double scaleValue, int useImageCenter) {
  shiftType = type;
  xStart = start;
  xEnd = end;
  xStartInt = qmr::TruncateToInt(std::floor(start));
  xEndInt = qmr::TruncateToInt(std::floor(end));
  to256 = b256;
  outsideValue = outside;
  plane = planeNumber;
  sinValue = sine;
  cosValue = cosine;
  scale = scaleValue;
  Bind(source, useImageCenter);
  colorFlag = source && source->IsColor() ? -1 : 0;
  for (int p = 0; p < 3; ++p) {
    const int from = colorFlag ? p : 0;
    levelMinF[p] = source ? static_cast<float>(source->GetLevelMin(from)) : 0.0f;
    levelGainF[p] = source ? static_cast<float>(255.0 / source->GetLevelRange(from)) : 0.0f;
  }
  GetImageYaddress();
}

void CInterp::SetBParam(CVynImage* source, double dx, double dy, double sine, double cosine, double scaleValue,
                        int useImageCenter, int planeNumber, float outside) {
  shiftX = dx;
  shiftY = dy;
  sinValue = sine;
  cosValue = cosine;
  scale = scaleValue;
  plane = planeNumber;
  outsideValue = outside;
  // The sine is left out of this test on purpose: hosts rely on the shift path for a cosine of exactly 1.
  if (cosine != 1.0)
    shiftType = 2;
  else
    shiftType = HasFraction(dx) || HasFraction(dy) ? 1 : 0;
  Bind(source, useImageCenter);
  DropRowTable();
}

void CInterp::DropRowTable() {
  rowTable.reset();
  planeCount = 0;
  planeRowOffset.clear();
  rowStride = 0;
  tableWidth = 0;
  tableHeight = 0;
  if (engine) engine->Reset();
}

void CInterp::GetImageYaddress() {
  DropRowTable();
  // Rows of another sample code can't be read as floats.
  if (!image || image->GetBitsPixel() != -32 || image->GetWidth() <= 0) return;
  const int rows = image->GetHeight();
  const int planes = image->GetPlanes();
  if (rows <= 0 || planes <= 0) return;
  try {
    const std::size_t count = static_cast<std::size_t>(rows) * static_cast<std::size_t>(planes);
    auto table = std::make_unique<const float*[]>(count);
    std::vector<int> offsets(static_cast<std::size_t>(planes));
    for (int p = 0; p < planes; ++p) {
      offsets[static_cast<std::size_t>(p)] = p * rows;
      for (int y = 0; y < rows; ++y) {
        const void* row = image->GetImageAdr(0, y, p, 1, 0, nullptr);
        if (!row) return;
        table[static_cast<std::size_t>(p) * static_cast<std::size_t>(rows) + static_cast<std::size_t>(y)] =
            static_cast<const float*>(row);
      }
    }
    rowStride = EvenStride(table.get(), planes, rows);
    rowTable = std::move(table);
    planeRowOffset = std::move(offsets);
    planeCount = planes;
    tableWidth = image->GetWidth();
    tableHeight = rows;
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

// Brightness and three lines need three planes; an image of two counts as monochrome there.
bool CInterp::IsColorSource() const {
  return image && image->IsColor() && image->GetPlanes() >= 3;
}

// ---- Samples at source positions -----------------------------------------------------------------------------------

float CInterp::GetPixData(int x, int y, int planeNumber) const {
  if (!image || x < 0 || y < 0 || x >= image->GetWidth() || y >= image->GetHeight()) return 0.0f;
  if (rowTable) {
    if (planeNumber < 0 || planeNumber >= planeCount || x >= tableWidth || y >= tableHeight) return 0.0f;
    return rowTable[static_cast<std::size_t>(planeRowOffset[static_cast<std::size_t>(planeNumber)] + y)][x];
  }
  if (image->GetBitsPixel() != -32) return 0.0f;
  const void* adr = image->GetImageAdr(x, y, planeNumber, 1, 0, nullptr);
  return adr ? *static_cast<const float*>(adr) : 0.0f;
}

// Hands `sample` the rows around y: those of the table, or the few that a window can touch.
template <class Sample>
int CInterp::SampleAt(CVynImage* source, int sourcePlane, double x, double y, float* out, Sample&& sample) const {
  if (!source || !out || source->GetBitsPixel() != -32 || source->GetWidth() <= 0 || source->GetHeight() <= 0) return 0;
  const int rows = source->GetHeight();
  if (sourcePlane < 0 || sourcePlane >= source->GetPlanes()) {
    *out = 0.0f;
    return 1;
  }
  if (rowTable && source == image && sourcePlane < planeCount && tableHeight == rows &&
      tableWidth == source->GetWidth()) {
    const float* const* table = rowTable.get() + planeRowOffset[static_cast<std::size_t>(sourcePlane)];
    *out = sample(qmr::PlaneRows{table, source->GetWidth(), rows}, x, y);
    return 1;
  }
  // Without a table: the rows that a window can touch, as an image of their own. The subtraction is exact.
  const int iy = std::clamp(qmr::TruncateToInt(y), 0, rows);
  const int first = std::clamp(iy - kWindowReach, 0, rows - 1);
  const int last = std::clamp(iy + kWindowReach, 0, rows - 1);
  const float* near[2 * kWindowReach + 1];
  for (int r = first; r <= last; ++r) {
    near[r - first] = static_cast<const float*>(source->GetImageAdr(0, r, sourcePlane, 1, 0, nullptr));
    if (!near[r - first]) return 0;
  }
  *out = sample(qmr::PlaneRows{near, source->GetWidth(), last - first + 1}, x, y - first);
  return 1;
}

namespace {

bool Refuses(const CVynImage* source, double x, double y) {
  return !source || !(x >= 0.0 && x <= source->GetWidth() && y >= 0.0 && y <= source->GetHeight());
}

}  // namespace

template <class Taps>
int CInterp::Window(CVynImage* source, int sourcePlane, double x, double y, float* out) const {
  return Refuses(source, x, y) ? 0 : SampleAt(source, sourcePlane, x, y, out, qmr::SampleWindow<Taps>);
}

int CInterp::Bilinear(CVynImage* source, int sourcePlane, double x, double y, float* out) const {
  return Refuses(source, x, y) ? 0 : SampleAt(source, sourcePlane, x, y, out, qmr::SampleBilinear);
}

int CInterp::Bicubic(CVynImage* source, int sourcePlane, double x, double y, float* out) const {
  return Window<qmr::BicubicTaps>(source, sourcePlane, x, y, out);
}

int CInterp::Lanczos2(CVynImage* source, int sourcePlane, double x, double y, float* out) const {
  return Window<qmr::Lanczos2Taps>(source, sourcePlane, x, y, out);
}

int CInterp::Lanczos3(CVynImage* source, int sourcePlane, double x, double y, float* out) const {
  return Window<qmr::Lanczos3Taps>(source, sourcePlane, x, y, out);
}

int CInterp::Nearest(CVynImage* source, int sourcePlane, double x, double y, float* out) const {
  return SampleAt(source, sourcePlane, x, y, out, qmr::SampleNearest);
}

float CInterp::Do(double x, double y, int planeNumber) const {
  float value = 0.0f;
  switch (method) {
    case qmr::kBilinear:
      Bilinear(image, planeNumber, x, y, &value);
      break;
    case qmr::kBicubic:
      Bicubic(image, planeNumber, x, y, &value);
      break;
    case qmr::kLanczos2:
      Lanczos2(image, planeNumber, x, y, &value);
      break;
    case qmr::kLanczos3:
      Lanczos3(image, planeNumber, x, y, &value);
      break;
    case qmr::kNearest:
      Nearest(image, planeNumber, x, y, &value);
      break;
    default:
      break;
  }
  return value;
}

double CInterp::KernelBicubic(double t, double a) {
  const double u = std::fabs(t);
  if (u <= 1.0) return qmr::BicubicInner(u, a);
  return u <= 2.0 ? qmr::BicubicOuter(u, a) : 0.0;
}

double CInterp::KernelLanczos(double t, double n) {
  const double u = std::fabs(t);
  if (u <= qmr::kTiny) return 1.0;
  if (u > n) return 0.0;
  // Samples take their weights from the window functions, whose bits don't depend on the run-time library.
  const double p = u * 3.141592653589793;
  return std::sin(p / n) * std::sin(p) * n / (p * p);
}

float CInterp::Calc(double* weightsY, float* pixels, double* weightsX, int n) {
  double sum = 0.0;
  for (int r = 0; r < n; ++r) {
    double rowSum = 0.0;
    for (int c = 0; c < n; ++c) rowSum += static_cast<double>(pixels[r * n + c]) * weightsX[c];
    sum += weightsY[r] * rowSum;
  }
  return static_cast<float>(sum);
}

// ---- Samples at destination positions ------------------------------------------------------------------------------

struct CInterp::Position {
  double x;
  double y;
  bool inside;
};

// The y axis of the rotation points up.
CInterp::Position CInterp::MapToSource(int x, int y, bool withScale) const {
  const double dx = x - center.x - shiftX;
  const double dy = center.y - y + shiftY;
  Position at;
  if (cosValue == 1.0 && sinValue == 0.0 && (!withScale || scale == 1.0)) {
    at.x = x - shiftX;
    at.y = y - shiftY;
  } else if (!withScale) {
    at.x = cosValue * dx - sinValue * dy + center.x;
    at.y = center.y - (sinValue * dx + cosValue * dy);
  } else if (cosValue == 1.0 && sinValue == 0.0) {
    at.x = (x - center.x - shiftX) * scale + center.x;
    at.y = (y - center.y - shiftY) * scale + center.y;
  } else {
    at.x = (cosValue * dx - sinValue * dy) * scale + center.x;
    at.y = center.y - (sinValue * dx + cosValue * dy) * scale;
  }
  at.inside = at.x >= 0.0 && at.x < width && at.y >= 0.0 && at.y < height;
  return at;
}

float CInterp::GetBPixelGrayRaw(double x, double y, int planeNumber) const {
  int column = qmr::TruncateToInt(x);
  int row = qmr::TruncateToInt(y);
  if (!(x < width - 1)) {
    column = x <= width ? std::max(width - 2, 0) : width - 2;
    x = width - 1;
  }
  if (!(y < height - 1)) {
    row = y <= height ? std::max(height - 2, 0) : height - 2;
    y = height - 1;
  }
  if (x == column && y == row) return GetPixData(column, row, planeNumber);
  return Do(x, y, planeNumber);
}

float CInterp::GetBPixelGray256f(double x, double y, int planeNumber) const {
  const float raw = GetBPixelGrayRaw(x, y, planeNumber);
  return static_cast<float>((raw - image->GetLevelMin(planeNumber)) / image->GetLevelRange(planeNumber) * 255.0);
}

float CInterp::GetBPixelGrayRaw(int x, int y, int* outside, double* sourceX, double* sourceY) const {
  const Position at = MapToSource(x, y, false);
  if (outside) *outside = at.inside ? 0 : 1;
  if (sourceX) *sourceX = at.x;
  if (sourceY) *sourceY = at.y;
  if (!at.inside) return outsideValue;
  if (image->IsColor() && plane != -1) return GetBPixelGrayRaw(at.x, at.y, plane);
  if (!IsColorSource()) return GetBPixelGrayRaw(at.x, at.y, 0);
  return static_cast<float>(
      Brightness(GetBPixelGrayRaw(at.x, at.y, 0), GetBPixelGrayRaw(at.x, at.y, 1), GetBPixelGrayRaw(at.x, at.y, 2)));
}

float CInterp::GetBPixelGray256f(int x, int y, int* outside, double* sourceX, double* sourceY) const {
  const Position at = MapToSource(x, y, false);
  if (outside) *outside = at.inside ? 0 : 1;
  if (sourceX) *sourceX = at.x;
  if (sourceY) *sourceY = at.y;
  if (!at.inside) return outsideValue;
  if (image->IsColor() && plane != -1) return GetBPixelGray256f(at.x, at.y, plane);
  if (!IsColorSource()) return GetBPixelGray256f(at.x, at.y, 0);
  return static_cast<float>(
      Brightness(GetBPixelGray256f(at.x, at.y, 0), GetBPixelGray256f(at.x, at.y, 1), GetBPixelGray256f(at.x, at.y, 2)));
}

float CInterp::GetPixelL(int x, int y) const {
  const Position at = MapToSource(x, y, true);
  return at.inside ? GetBPixelGrayRaw(at.x, at.y, 0) : outsideValue;
}

void CInterp::GetPixelAb(int x, int y, double* a, double* b) const {
  const Position at = MapToSource(x, y, true);
  if (a) *a = at.inside ? GetBPixelGrayRaw(at.x, at.y, 0) : outsideValue;
  if (b) *b = at.inside ? GetBPixelGrayRaw(at.x, at.y, 1) : outsideValue;
}
