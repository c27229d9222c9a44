#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace qmr {

struct SampleScale {
  double scale = 1.0;                 ///< BSCALE
  double zero = 0.0;                  ///< BZERO
  std::optional<std::int64_t> blank;  ///< BLANK, compared with the stored integer; not used for floating point
};

/// Turns big-endian samples of a FITS data unit into floats: scale * sample + zero in double, rounded once (unsigned
/// 64-bit integers, that is BZERO 2^63, are converted exactly instead). `bytes` must hold floats.size() samples.
/// Blank samples and results that are not finite as a float become not-a-number; returns how many.
std::int64_t ConvertFitsSamples(int bitpix, std::span<const std::byte> bytes, const SampleScale& scale,
                                std::span<float> floats);

/// Makes infinities not-a-number, too, and returns the count of all of them.
std::int64_t BlankNonFinite(std::span<float> floats);

}  // namespace qmr
