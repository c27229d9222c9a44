// The convolution engines that every image carries.
#include "qmrimg/image/vyn_image.h"

namespace {

constexpr int kPlanes = 3;
constexpr int kSlots = 6;

bool IsPlane(int plane) {
  return plane >= 0 && plane < kPlanes;
}
bool IsSlot(int slot) {
  return slot >= 0 && slot < kSlots;
}

}  // namespace

int CVynImage::MakeFilterProc(CVynImage* source, CFilterMatrix* matrix, int plane, int normalize) {
  if (!IsPlane(plane)) return 0;
  return FilterProc[plane].IsEmpty() ? FilterProc[plane].MakeBuf(source, matrix, plane, normalize) : 1;
}

int CVynImage::MakeFilterProcEx(int slot, CVynImage* source, CFilterMatrix* matrix, int plane, int normalize) {
  return IsSlot(slot) ? FilterProcEx[slot].Make(source, matrix, plane, normalize) : 0;
}

void CVynImage::SetFilterProcPln(int plane) {
  CurFilterProc = &FilterProc[IsPlane(plane) ? plane : 0];
}

void CVynImage::SetFilterProcPlnEx(int slot, int plane) {
  if (IsSlot(slot)) FilterProcEx[slot].SetPln(plane);
}

float CVynImage::CalcFilterProc(int x, int y) {
  return CurFilterProc->Calc(x, y);
}

float CVynImage::CalcFilterProc(int x, int y, int plane) {
  return IsPlane(plane) ? FilterProc[plane].Calc(x, y) : 0.0f;
}

float CVynImage::CalcFilterProcEx(int slot, int x, int y) {
  return IsSlot(slot) ? FilterProcEx[slot].Calc(x, y) : 0.0f;
}

float CVynImage::CalcFilterProcEx(int slot, int x, int y, int plane) {
  return IsSlot(slot) ? FilterProcEx[slot].Calc(x, y, plane) : 0.0f;
}

void CVynImage::ClearFilterProc() {
  for (CFilterProc& proc : FilterProc) proc.Empty();
  for (CFilterProcEx& group : FilterProcEx) group.Clear();
}
