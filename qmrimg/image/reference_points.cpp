// The two reference points and the centre of alignment.
#include "qmrimg/image/vyn_image.h"

namespace {

constexpr int kUnset = -1;
constexpr int kPoints = 2;

int IsSet(const CfPoint& point) {
  return point.IntX() != kUnset && point.IntY() != kUnset;
}
bool IsPoint(int i) {
  return i >= 0 && i < kPoints;
}

}  // namespace

void CVynImage::CopyStdPtCtr(const CVynImage* src) {
  if (!src) return;
  for (int i = 0; i < kPoints; ++i) StdPt[i] = src->StdPt[i];
  StdCtr = src->StdCtr;
}

CfPoint CVynImage::GetStdPt(int i) const {
  return IsPoint(i) ? StdPt[i] : CfPoint(kUnset, kUnset);
}

void CVynImage::SetStdPt(int i, CfPoint pt) {
  if (!IsPoint(i)) return;
  StdPt[i] = pt;
  if (i == 0) StdCtr = pt;
}

void CVynImage::ClearStdPt(int i) {
  SetStdPt(i, CfPoint(kUnset, kUnset));
}
int CVynImage::IsValidStdPt(int i) const {
  return IsPoint(i) && IsSet(StdPt[i]);
}
int CVynImage::GetStdPtNum() const {
  return IsValidStdPt(0) + IsValidStdPt(1);
}
int CVynImage::IsValidStdCtr() const {
  return IsSet(StdCtr);
}
void CVynImage::SetDefaultCenter() {
  StdCtr.Set(Width / 2, Height / 2);
}
