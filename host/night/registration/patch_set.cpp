#include "host/night/registration/patch_set.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/night/registration/binned_image.h"
#include "host/night/registration/spline.h"

namespace qmr {

namespace {

constexpr int kBlock = 4;
constexpr int kMargin = 8;                           // for the spline
constexpr int kReach = PatchSet::kRadius + kMargin;  // pixels around a middle that are read
constexpr float kLargest = std::numeric_limits<float>::max();

struct Candidate {
  int x, y;  // block
  float energy;
  float strength = 1.0f;
};

// Sums of the squared slopes of despiked pixels over blocks of kBlock x kBlock.
struct EnergyMap {
  int width = 0;
  int height = 0;
  std::vector<float> energy;

  float At(int x, int y) const {
    return energy[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
  }
  // Over 3 x 3 blocks.
  float Around(int x, int y) const {
    float sum = 0.0f;
    for (int j = y - 1; j <= y + 1; ++j) {
      for (int i = x - 1; i <= x + 1; ++i) sum += At(i, j);
    }
    return sum;
  }
};

EnergyMap MakeEnergyMap(const Luminance& image) {
  EnergyMap map;
  const int width = image.Width(), height = image.Height();
  map.width = width / kBlock;
  map.height = height / kBlock;
  map.energy.assign(static_cast<std::size_t>(map.width) * static_cast<std::size_t>(map.height), 0.0f);
  const auto columns = static_cast<std::size_t>(width);
  std::vector<float> work(11 * columns);
  float* const rows = work.data();           // a ring of three rows as they are
  float* const cleans = rows + 3 * columns;  // and of three despiked ones
  float* const scratch = cleans + 3 * columns;
  float* const sums = scratch + 4 * columns;
  const auto row = [&](int y) {
    return image.Row(std::clamp(y, 0, height - 1), rows + static_cast<std::size_t>((y + 3) % 3) * columns);
  };
  const auto clean = [&](int y) { return cleans + static_cast<std::size_t>((y + 3) % 3) * columns; };

  const float* r0 = row(0);
  const float* r1 = r0;
  for (int y = 0; y <= map.height * kBlock; ++y) {
    // Despike row y, then take the slopes of row y - 1.
    const float* r2 = row(y + 1);
    DespikeRow(r0, r1, r2, width, scratch, clean(y));
    r0 = r1;
    r1 = r2;
    const int at = y - 1;
    if (at < 1) continue;
    if (at % kBlock == 0 || at == 1) std::fill(sums, sums + columns, 0.0f);
    const float* above = clean(at - 1);
    const float* here = clean(at);
    const float* below = clean(at + 1);
#pragma omp simd
    for (int x = 1; x < width - 1; ++x) {
      const float gx = here[x + 1] - here[x - 1], gy = below[x] - above[x];
      const float energy = gx * gx + gy * gy;
      sums[x] += energy <= kLargest ? energy : 0.0f;
    }
    if (at % kBlock != kBlock - 1) continue;
    float* to = map.energy.data() + static_cast<std::size_t>(at / kBlock) * static_cast<std::size_t>(map.width);
    for (int i = 0; i < map.width; ++i) {
      to[i] = (sums[i * kBlock] + sums[i * kBlock + 1]) + (sums[i * kBlock + 2] + sums[i * kBlock + 3]);
    }
  }
  return map;
}

// Local maxima that stand clear of the quiet parts of the frame, the strongest first.
std::vector<Candidate> FindCandidates(const EnergyMap& map, float& quiet) {
  std::vector<float> sample;
  const std::size_t step = std::max<std::size_t>(1, map.energy.size() / 20000);
  for (std::size_t i = 0; i < map.energy.size(); i += step) sample.push_back(map.energy[i]);
  std::vector<Candidate> candidates;
  quiet = 0.0f;
  if (sample.empty()) return candidates;
  const auto low = sample.begin() + static_cast<std::ptrdiff_t>(sample.size() / 5);
  std::nth_element(sample.begin(), low, sample.end());
  // The lowest fifth of the blocks of pure noise ends at three quarters of their mean.
  quiet = *low / 0.75f;
  const float threshold = 1.5f * 9.0f * quiet;  // of 3 x 3 blocks
  const int edge = (kReach + kBlock - 1) / kBlock;
  std::vector<float> around(map.energy.size(), 0.0f);
  const auto at = [&](int x, int y) {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(map.width) + static_cast<std::size_t>(x);
  };
  for (int y = 1; y < map.height - 1; ++y) {
    for (int x = 1; x < map.width - 1; ++x) around[at(x, y)] = map.Around(x, y);
  }
  for (int y = std::max(1, edge - 1); y < map.height - edge + 1 && y < map.height - 1; ++y) {
    for (int x = std::max(1, edge - 1); x < map.width - edge + 1 && x < map.width - 1; ++x) {
      const float v = around[at(x, y)];
      if (!(v > threshold)) continue;
      const bool top = v > around[at(x - 1, y)] && v >= around[at(x + 1, y)] && v > around[at(x, y - 1)] &&
                       v >= around[at(x, y + 1)] && v > around[at(x - 1, y - 1)] && v >= around[at(x + 1, y + 1)] &&
                       v > around[at(x + 1, y - 1)] && v >= around[at(x - 1, y + 1)];
      if (top) candidates.push_back({x, y, v, 1.0f});
    }
  }
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const Candidate& a, const Candidate& b) { return a.energy > b.energy; });
  // What is far weaker than the strongest ten adds nothing, and may be no sky: compression leaves traces.
  constexpr std::size_t kStrong = 10;
  constexpr float kWeakest = 0.05f;
  if (!candidates.empty()) {
    const float strong = candidates[std::min(kStrong, candidates.size()) - 1].energy;
    for (Candidate& c : candidates) c.strength = std::min(1.0f, std::sqrt(c.energy / strong));
    std::erase_if(candidates, [](const Candidate& c) { return c.strength < kWeakest; });
  }
  return candidates;
}

// The middle of a candidate's energy, in pixels.
PatchSet::Middle MiddleOf(const EnergyMap& map, const Candidate& c) {
  double sum = 0.0, sumX = 0.0, sumY = 0.0;
  for (int j = std::max(0, c.y - 2); j <= std::min(map.height - 1, c.y + 2); ++j) {
    for (int i = std::max(0, c.x - 2); i <= std::min(map.width - 1, c.x + 2); ++i) {
      const double e = map.At(i, j);
      sum += e;
      sumX += e * i;
      sumY += e * j;
    }
  }
  const double half = (kBlock - 1) / 2.0;
  return {static_cast<int>(std::lround(sumX / sum * kBlock + half)),
          static_cast<int>(std::lround(sumY / sum * kBlock + half))};
}

struct Place {
  PatchSet::Middle middle;
  float strength;
};

// Takes the strongest that keep their distance. In the first pass no part of the frame gets more than its share.
std::vector<Place> Spread(const EnergyMap& map, const std::vector<Candidate>& candidates, int width, int height,
                          std::size_t most) {
  constexpr int kApart = 13;
  constexpr int kCells = 8;
  const std::size_t perCell = std::max<std::size_t>(4, 3 * most / (kCells * kCells));
  std::vector<std::size_t> inCell(kCells * kCells, 0);
  std::vector<Place> taken;
  std::vector<char> done(candidates.size(), 0);
  for (int pass = 0; pass < 2; ++pass) {
    for (std::size_t i = 0; i < candidates.size() && taken.size() < most; ++i) {
      if (done[i]) continue;
      PatchSet::Middle m = MiddleOf(map, candidates[i]);
      if (m.x < kReach || m.y < kReach || m.x >= width - kReach || m.y >= height - kReach) continue;
      std::size_t& cell = inCell[static_cast<std::size_t>(m.y * kCells / height * kCells + m.x * kCells / width)];
      if (pass == 0 && cell >= perCell) continue;
      done[i] = 1;
      const bool near = std::any_of(taken.begin(), taken.end(), [&](const Place& t) {
        return std::abs(t.middle.x - m.x) < kApart && std::abs(t.middle.y - m.y) < kApart;
      });
      if (near) continue;
      ++cell;
      taken.push_back({m, candidates[i].strength});
    }
  }
  return taken;
}

// One patch's neighbourhood, and the arrays that follow from it.
class PatchMaker {
 public:
  explicit PatchMaker(PatchSet& set) : set_(set), raw_(kSide * kSide), spline_(kSide * kSide), scratch_(kSide) {}

  void Add(const Luminance& image, PatchSet::Middle m, float strength) {
    for (int y = 0; y < kSide; ++y) image.Copy(m.x - kReach, m.y - kReach + y, kSide, raw_.data() + y * kSide);
    if (!std::all_of(raw_.begin(), raw_.end(), [](float v) { return std::fabs(v) <= kLargest; })) return;
    if (!AddSearchSquare()) return;
    SmoothLightly(raw_.data(), kSide, kSide, scratch_.data());
    spline_ = raw_;
    SplineCoefficients(spline_.data(), kSide, kSide);
    for (const PatchPixel p : set_.shape) {
      const float* c = spline_.data() + (kReach + p.y) * kSide + kReach + p.x;
      const auto smoothX = [&](int dy) {
        return (c[dy * kSide - 1] + 4.0f * c[dy * kSide] + c[dy * kSide + 1]) / 6.0f;
      };
      const auto smoothY = [&](int dx) { return (c[dx - kSide] + 4.0f * c[dx] + c[dx + kSide]) / 6.0f; };
      const float left = smoothY(-1), middle = smoothY(0), right = smoothY(1);
      const float above = smoothX(-1), level = smoothX(0), below = smoothX(1);
      set_.value.push_back(raw_[static_cast<std::size_t>((kReach + p.y) * kSide + kReach + p.x)]);
      set_.slopeX.push_back(0.5f * (right - left));
      set_.slopeY.push_back(0.5f * (below - above));
      set_.bend.push_back((left - 2.0f * middle + right) + (above - 2.0f * level + below));
      set_.level.push_back(set_.value.back());
    }
    set_.middles.push_back(m);
    set_.strength.push_back(strength);
  }

 private:
  static constexpr int kSide = 2 * kReach + 1;

  bool AddSearchSquare() {
    constexpr int kR = PatchSet::kSearchRadius;
    std::array<float, PatchSet::kSearchSide * PatchSet::kSearchSide> square;
    std::size_t n = 0;
    double sum = 0.0;
    for (int y = -kR; y <= kR; ++y) {
      for (int x = -kR; x <= kR; ++x) {
        const float* r = raw_.data() + (kReach + y) * kSide + kReach + x;
        float low = r[-1], high = r[-1];
        for (const int i : {1, -kSide - 1, -kSide, -kSide + 1, kSide - 1, kSide, kSide + 1}) {
          low = std::min(low, r[i]);
          high = std::max(high, r[i]);
        }
        square[n] = std::clamp(r[0], low, high);
        sum += square[n++];
      }
    }
    const auto mean = static_cast<float>(sum / static_cast<double>(n));
    double squares = 0.0;
    for (float& v : square) {
      v -= mean;
      squares += static_cast<double>(v) * v;
    }
    if (!(squares > 0.0)) return false;
    const auto k = static_cast<float>(1.0 / std::sqrt(squares));
    for (const float v : square) set_.search.push_back(v * k);
    return true;
  }

  PatchSet& set_;
  std::vector<float> raw_;
  std::vector<float> spline_;
  std::vector<float> scratch_;
};

}  // namespace

float LevelOf(float signal) {
  return 2.0f * std::log2(1.0f + signal);
}

PatchSet ChoosePatches(const Luminance& reference, std::size_t most) {
  PatchSet set;
  constexpr int kR = PatchSet::kRadius;
  for (int y = -kR; y <= kR; ++y) {
    for (int x = -kR; x <= kR; ++x) {
      if (x * x + y * y <= kR * kR + kR / 2) set.shape.push_back({x, y});
    }
  }
  if (reference.Width() <= 2 * kReach || reference.Height() <= 2 * kReach) return set;
  const EnergyMap map = MakeEnergyMap(reference);
  float quiet = 0.0f;
  const std::vector<Candidate> candidates = FindCandidates(map, quiet);
  const std::vector<Place> places = Spread(map, candidates, reference.Width(), reference.Height(), most);
  PatchMaker maker(set);
  for (const Place& place : places) maker.Add(reference, place.middle, place.strength);

  // A difference of two pixels carries twice the variance, and a block has two of them a pixel.
  set.noise = std::sqrt(quiet / (4.0f * kBlock * kBlock));
  if (set.level.empty()) return set;
  std::vector<float> levels = set.level;
  const auto dark = levels.begin() + static_cast<std::ptrdiff_t>(levels.size() / 50);
  std::nth_element(levels.begin(), dark, levels.end());
  const float floor = *dark;
  if (!(set.noise > 0.0f)) {
    // A frame without noise: weights start from a small part of the contrast.
    const float top = *std::max_element(levels.begin(), levels.end());
    set.noise = std::max(1e-3f * (top - floor), std::numeric_limits<float>::min());
  }
  for (float& v : set.level) v = LevelOf(std::max(0.0f, v - floor) / set.noise);
  return set;
}

}  // namespace qmr
