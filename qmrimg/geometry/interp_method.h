// Method numbers of CInterp.
#pragma once

namespace qmr {

inline constexpr int kBilinear = 0;
inline constexpr int kBicubic = 1;
inline constexpr int kLanczos2 = 2;
inline constexpr int kLanczos3 = 3;
inline constexpr int kNearest = 4;

}  // namespace qmr
