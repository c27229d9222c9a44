#include "qmrimg/platform/geometry.h"

#include "qmrimg/platform/truncate.h"

CfPoint::CfPoint(int px, int py) {
  Set(px, py);
}
CfPoint::CfPoint(double px, double py) {
  Set(px, py);
}
CfPoint::~CfPoint() = default;

void CfPoint::Set(int px, int py) {
  CPoint::x = px;
  CPoint::y = py;
  x = px;
  y = py;
}

void CfPoint::Set(double px, double py) {
  x = px;
  y = py;
  CPoint::x = qmr::TruncateToInt(px);
  CPoint::y = qmr::TruncateToInt(py);
}
