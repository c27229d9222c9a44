// The extremal-phase orthonormal wavelet filters.
#pragma once

#include <span>

namespace qmr {

inline constexpr int kMaxDaubechiesOrder = 10;

// The low-pass filter of 2 * order taps with `order` vanishing moments, largest energy first, sum sqrt(2); order 1 is
// the Haar filter. Empty for an order outside 1..10.
// Source: I. Daubechies, Ten Lectures on Wavelets, SIAM, 1992, section 6.4; the digits here come from a spectral
// factorisation in 80 decimal places.
std::span<const double> DaubechiesLowPass(int order);

}  // namespace qmr
