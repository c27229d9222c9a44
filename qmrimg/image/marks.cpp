// Marks that a host keeps on an image: star, sky, picked-up point and background rectangles.
#include <iterator>

#include "qmrimg/image/vyn_image.h"

namespace {

constexpr int kCleared = -1;
constexpr int kShownRects = 2;

// One coordinate that is not negative will do, on purpose: hosts keep stars cut by the left or upper edge.
bool HasEither(const CPoint& point) {
  return point.x >= 0 || point.y >= 0;
}

}  // namespace

void CVynImage::ClearStarPt() {
  StarPt = CPoint(kCleared, kCleared);
}
int CVynImage::IsValidStarPt() const {
  return HasEither(StarPt);
}

void CVynImage::GetSkyPt(CPoint& pt, int& size) const {
  pt = SkyPt;
  size = SkySize;
}
void CVynImage::SetSkyPt(CPoint pt, int size) {
  SkyPt = pt;
  SkySize = size;
}
void CVynImage::ClearSkyPt() {
  SetSkyPt(CPoint(kCleared, kCleared), 0);
}
int CVynImage::IsValidSkyPt() const {
  return HasEither(SkyPt) && SkySize > 0;
}

int CVynImage::IsValidPickupPt() const {
  return PickupPt.x >= 0 && PickupPt.y >= 0;
}

namespace {

template <class Array>
bool HasEntry(const Array& array, int i) {
  return i >= 0 && i < static_cast<int>(std::size(array));
}

}  // namespace

CRect CVynImage::GetBkgRect(int i) const {
  return HasEntry(BkgRect, i) ? BkgRect[i] : CRect();
}
void CVynImage::SetBkgRect(int i, CRect rect) {
  if (HasEntry(BkgRect, i)) BkgRect[i] = rect;
}
void CVynImage::ClearBkgRect(int i) {
  SetBkgRect(i, CRect());
}
int CVynImage::IsValidBkgRect(int i) const {
  const CRect rect = GetBkgRect(i);
  return rect.left != rect.right && rect.top != rect.bottom;
}
int CVynImage::GetBkgRectNum() const {
  int count = 0;
  for (int i = 0; i < kShownRects; ++i) count += IsValidBkgRect(i);
  return count;
}
