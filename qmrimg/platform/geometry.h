// Integer points and rectangles.
#pragma once

#include "qmrimg/platform/object.h"

struct tagPOINT {
  LONG x = 0;
  LONG y = 0;
};

// `right` and `bottom` are exclusive.
struct tagRECT {
  LONG left = 0;
  LONG top = 0;
  LONG right = 0;
  LONG bottom = 0;
};

class CPoint : public tagPOINT {
 public:
  CPoint() = default;
  CPoint(int px, int py) {
    x = px;
    y = py;
  }
  friend bool operator==(const CPoint& a, const CPoint& b) { return a.x == b.x && a.y == b.y; }
};

class CRect : public tagRECT {
 public:
  CRect() = default;
  CRect(int l, int t, int r, int b) {
    left = l;
    top = t;
    right = r;
    bottom = b;
  }
  explicit CRect(const tagRECT& r) : tagRECT(r) {}
  int Width() const { return right - left; }
  int Height() const { return bottom - top; }
  friend bool operator==(const CRect& a, const CRect& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
  }
};

// A point that keeps double coordinates beside the integers of its base. The two are set together: the integers
// are the doubles truncated towards zero. Its own `x` and `y` hide those of the base, which stay in reach as
// `IntX()`, `IntY()` and through CPoint.
class QMR_API CfPoint : public CPoint {
 public:
  // Integers and doubles are 0.
  CfPoint() = default;
  CfPoint(int px, int py);
  CfPoint(double px, double py);
  CfPoint(const CfPoint&) = default;
  CfPoint& operator=(const CfPoint&) = default;
  virtual ~CfPoint();

  void Set(int px, int py);
  void Set(double px, double py);

  int IntX() const { return CPoint::x; }
  int IntY() const { return CPoint::y; }

  // The double coordinates, in pixels.
  double x = 0.0;
  double y = 0.0;
};
