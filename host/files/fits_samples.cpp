#include "host/files/fits_samples.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace qmr {
namespace {

constexpr float kBlank = std::numeric_limits<float>::quiet_NaN();

// Written with shifts, as both compilers vectorise them at the baseline.
std::uint8_t Swap(std::uint8_t v) {
  return v;
}
std::uint16_t Swap(std::uint16_t v) {
  return static_cast<std::uint16_t>(v << 8 | v >> 8);
}
std::uint32_t Swap(std::uint32_t v) {
  return v >> 24 | (v >> 8 & 0xFF00U) | (v << 8 & 0xFF0000U) | v << 24;
}
std::uint64_t Swap(std::uint64_t v) {
  return std::uint64_t{Swap(static_cast<std::uint32_t>(v))} << 32 | Swap(static_cast<std::uint32_t>(v >> 32));
}

template <class Word, class Sample>
Sample Load(const std::byte* bytes, std::size_t i) {
  Word word;
  std::memcpy(&word, bytes + i * sizeof(Word), sizeof(Word));
  return std::bit_cast<Sample>(Swap(word));
}

template <class Word, class Sample>
void ConvertScaled(const std::byte* bytes, double scale, double zero, float* floats, std::size_t count) {
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    floats[i] = static_cast<float>(static_cast<double>(Load<Word, Sample>(bytes, i)) * scale + zero);
  }
}

template <class Word, class Sample>
void ConvertPlain(const std::byte* bytes, float* floats, std::size_t count) {
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) floats[i] = static_cast<float>(Load<Word, Sample>(bytes, i));
}

template <class Word, class Sample>
void Convert(const std::byte* bytes, const SampleScale& scale, float* floats, std::size_t count) {
  if (scale.scale == 1.0 && scale.zero == 0.0) {
    ConvertPlain<Word, Sample>(bytes, floats, count);
  } else {
    ConvertScaled<Word, Sample>(bytes, scale.scale, scale.zero, floats, count);
  }
}

// Samples of 16 bits with a small whole offset: the sum is exact in an int, and so is the float.
void ConvertOffset16(const std::byte* bytes, int zero, float* floats, std::size_t count) {
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    floats[i] = static_cast<float>(Load<std::uint16_t, std::int16_t>(bytes, i) + zero);
  }
}

void ConvertUnsigned64(const std::byte* bytes, float* floats, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    floats[i] = static_cast<float>(Load<std::uint64_t, std::uint64_t>(bytes, i) ^ std::uint64_t{1} << 63);
  }
}

template <class Word, class Sample>
void Blank(const std::byte* bytes, std::int64_t blank, float* floats, std::size_t count) {
  // A BLANK outside the range of the samples can match none of them.
  if (blank < std::int64_t{std::numeric_limits<Sample>::min()} ||
      blank > std::int64_t{std::numeric_limits<Sample>::max()}) {
    return;
  }
  const Sample wanted = static_cast<Sample>(blank);
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) floats[i] = Load<Word, Sample>(bytes, i) == wanted ? kBlank : floats[i];
}

template <class Word, class Sample>
std::int64_t ConvertIntegers(const std::byte* bytes, const SampleScale& scale, float* floats, std::size_t count) {
  if constexpr (sizeof(Word) == 2) {
    if (scale.scale == 1.0 && std::abs(scale.zero) <= 65536.0 && scale.zero == std::trunc(scale.zero)) {
      ConvertOffset16(bytes, static_cast<int>(scale.zero), floats, count);
    } else {
      Convert<Word, Sample>(bytes, scale, floats, count);
    }
  } else if (sizeof(Word) == 8 && scale.scale == 1.0 && scale.zero == 9223372036854775808.0) {
    ConvertUnsigned64(bytes, floats, count);
  } else {
    Convert<Word, Sample>(bytes, scale, floats, count);
  }
  if (scale.blank) Blank<Word, Sample>(bytes, *scale.blank, floats, count);
  // Integers of the usual scales never leave the range of a float, so the pass that looks for it can be left out.
  const bool mayOverflow = std::abs(scale.scale) > 1e18 || std::abs(scale.zero) > 1e37;
  return scale.blank || mayOverflow ? BlankNonFinite({floats, count}) : 0;
}

}  // namespace

std::int64_t BlankNonFinite(std::span<float> floats) {
  float* const values = floats.data();
  const std::size_t count = floats.size();
  std::int64_t blanks = 0;
  for (std::size_t start = 0; start < count; start += 4096) {
    const std::size_t end = std::min(count, start + 4096);
    int found = 0;
    for (std::size_t i = start; i < end; ++i) {
      const bool bad = !(std::abs(values[i]) <= std::numeric_limits<float>::max());
      values[i] = bad ? kBlank : values[i];
      found += bad;
    }
    blanks += found;
  }
  return blanks;
}

std::int64_t ConvertFitsSamples(int bitpix, std::span<const std::byte> bytes, const SampleScale& scale,
                                std::span<float> floats) {
  const std::byte* source = bytes.data();
  float* target = floats.data();
  // Blocks stay in the cache between the passes over them.
  constexpr std::size_t kBlockSamples = 8192;
  const std::size_t sampleBytes = static_cast<std::size_t>(std::abs(bitpix) / 8);
  std::int64_t blanks = 0;
  for (std::size_t left = floats.size(); left > 0;) {
    const std::size_t count = std::min(left, kBlockSamples);
    switch (bitpix) {
      case 8:
        blanks += ConvertIntegers<std::uint8_t, std::uint8_t>(source, scale, target, count);
        break;
      case 16:
        blanks += ConvertIntegers<std::uint16_t, std::int16_t>(source, scale, target, count);
        break;
      case 32:
        blanks += ConvertIntegers<std::uint32_t, std::int32_t>(source, scale, target, count);
        break;
      case 64:
        blanks += ConvertIntegers<std::uint64_t, std::int64_t>(source, scale, target, count);
        break;
      case -32:
        Convert<std::uint32_t, float>(source, scale, target, count);
        blanks += BlankNonFinite({target, count});
        break;
      case -64:
        Convert<std::uint64_t, double>(source, scale, target, count);
        blanks += BlankNonFinite({target, count});
        break;
      default:
        return 0;
    }
    source += count * sampleBytes;
    target += count;
    left -= count;
  }
  return blanks;
}

}  // namespace qmr
