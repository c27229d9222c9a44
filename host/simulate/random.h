#pragma once

// Random numbers of the simulator: hashes of (seed, stream, frame, row, column). There is no state to advance, so
// frames, rows and pixels may be made in any order and on any number of threads with the same result.

#include <cstdint>
#include <span>

namespace qmr::sim {

// What a stream of numbers is for; two purposes never share numbers. The values are part of what a seed means.
enum class Stream : std::uint32_t {
  Stars = 1,
  Nebula = 2,
  Drift = 3,
  Weather = 4,
  Dust = 5,
  Response = 6,
  HotPixels = 7,
  CoolPixels = 8,
  ColumnOffset = 9,
  Trails = 10,
  CosmicRays = 11,
  LightNoise = 12,
  DarkNoise = 13,
  FlatNoise = 14,
  BiasNoise = 15,
  Header = 16,
};

// Bijective mixing of 64 bits: the finaliser of SplitMix64 (Steele, Lea, Flood 2014).
inline std::uint64_t Mix(std::uint64_t v) {
  v = (v ^ (v >> 30)) * 0xBF58476D1CE4E5B9ull;
  v = (v ^ (v >> 27)) * 0x94D049BB133111EBull;
  return v ^ (v >> 31);
}

inline std::uint64_t StreamKey(std::uint64_t seed, Stream stream, std::uint64_t frame = 0, std::uint64_t row = 0) {
  constexpr std::uint64_t step = 0x9E3779B97F4A7C15ull;
  std::uint64_t key = Mix(seed + step);
  key = Mix(key ^ (static_cast<std::uint64_t>(stream) * step));
  key = Mix(key + (frame + 1) * step);
  return Mix(key ^ ((row + 1) * 0xD1B54A32D192ED03ull));
}

inline std::uint64_t Hash(std::uint64_t key, std::uint64_t counter) {
  return Mix(key + (counter + 1) * 0x9E3779B97F4A7C15ull);
}

// Uniform in the open interval (0, 1).
inline double ToUniform(std::uint64_t hash) {
  return (static_cast<double>(hash >> 12) + 0.5) * 0x1p-52;
}

// A sequence of draws from one stream.
class Draws {
 public:
  explicit Draws(std::uint64_t key) : key_(key) {}

  double Uniform() { return ToUniform(Hash(key_, counter_++)); }
  double Uniform(double low, double high) { return low + (high - low) * Uniform(); }
  // Standard normal variate.
  double Normal();
  // Exponential variate of mean 1.
  double Exponential();
  // Integer in 0..count - 1; 0 for count < 1.
  int Below(int count);

 private:
  std::uint64_t key_;
  std::uint64_t counter_ = 0;
};

// Two independent standard normal variates a column, by Box and Muller's transform. Both spans have one length.
void NormalRow(std::uint64_t key, std::span<float> first, std::span<float> second);

// Poisson variates of the given means (below 0 counts as 0), one a column, in place. Means of 16 and more take the
// Cornish-Fisher expansion of the Poisson quantile to second order at the given normal variates, which differs from
// the exact quantile by less than one count in a thousand draws; smaller means take the inversion of the
// distribution at a uniform variate of their own.
void PoissonRow(std::uint64_t key, std::span<const float> normal, std::span<float> mean);

}  // namespace qmr::sim
