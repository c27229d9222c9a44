#include "qmrimg/store/header.h"

#include <algorithm>

CHeader::~CHeader() = default;

void CHeader::GetWBShootingGainBayer(double* gains) const {
  std::copy_n(WBShootingGainBayer, 4, gains);
}
void CHeader::SetWBShootingGainBayer(int i, double v) {
  if (i >= 0 && i < 4) WBShootingGainBayer[i] = v;
}
void CHeader::SetWBShootingGainBayer(const double* gains) {
  std::copy_n(gains, 4, WBShootingGainBayer);
}

void CHeader::GetWBShootingGainHoneyComb(double* gains) const {
  std::copy_n(WBShootingGainHoneyComb, 8, gains);
}
void CHeader::SetWBShootingGainHoneyComb(int i, double v) {
  if (i >= 0 && i < 8) WBShootingGainHoneyComb[i] = v;
}
void CHeader::SetWBShootingGainHoneyComb(const double* gains) {
  std::copy_n(gains, 8, WBShootingGainHoneyComb);
}
