#include "host/night/registration/fine_match.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "host/night/registration/small_solve.h"
#include "host/night/registration/spline.h"

namespace qmr {

namespace {

constexpr float kLargest = std::numeric_limits<float>::max();

double Median(std::vector<double> values) {
  if (values.empty()) return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Variance of the pixel residuals against the brightness of the pixel, found from the residuals themselves: it holds
// photon noise, interpolation and whatever else the model leaves.
class NoiseModel {
 public:
  explicit NoiseModel(float skyNoise) {
    for (int i = 0; i < kBins; ++i) {
      const double level = std::exp2(i / 2.0) - 1.0;  // the inverse of LevelOf
      variance_[static_cast<std::size_t>(i)] =
          static_cast<float>(2.0 * skyNoise * skyNoise * (1.0 + 0.05 * level + 0.0025 * level * level));
    }
  }

  // `level` as in PatchSet.
  float Variance(float level) const {
    const float at = std::min(level, kBins - 1.001f);
    const auto i = static_cast<std::size_t>(at);
    const float t = at - static_cast<float>(i);
    return variance_[i] + t * (variance_[i + 1] - variance_[i]);
  }

  static constexpr int Bins() { return kBins; }
  static std::size_t Bin(float level) {
    return static_cast<std::size_t>(std::min(level + 0.5f, static_cast<float>(kBins - 1)));
  }

  // From magnitudes of residuals sorted into bins. Bins with few keep the ratio to their lower
  // neighbour that they had before.
  void Learn(std::vector<std::vector<float>>& residuals) {
    std::array<float, kBins> learned = variance_;
    for (std::size_t i = 0; i < kBins; ++i) {
      std::vector<float>& r = residuals[i];
      if (r.size() >= 40) {
        const auto middle = r.begin() + static_cast<std::ptrdiff_t>(r.size() / 2);
        std::nth_element(r.begin(), middle, r.end());
        const float sigma = 1.4826f * *middle;
        learned[i] = std::max(sigma * sigma, std::numeric_limits<float>::min());
      } else if (i > 0) {
        learned[i] = learned[i - 1] * (variance_[i] / variance_[i - 1]);
      }
    }
    variance_ = learned;
  }

 private:
  static constexpr int kBins = 36;
  std::array<float, kBins> variance_{};
};

// Spline coefficients of the part of the frame that one patch falls on.
struct Window {
  int left = 0;
  int top = 0;
  int side = 0;
  bool usable = false;
  std::vector<float> coefficients;
  std::vector<char> bad;  // empty, or one a pixel: not finite in the frame

  void Load(const Luminance& frame, const RigidMap& map, PatchSet::Middle m, std::vector<float>& scratch) {
    // Room for a turned patch, for the spline's support and tail, and for motions between the rounds.
    constexpr double kRoom = 8.0;
    const double half = PatchSet::kRadius * (std::abs(map.Cosine()) + std::abs(map.Sine())) + kRoom;
    const Point p = map({static_cast<double>(m.x), static_cast<double>(m.y)});
    usable = false;
    if (!(p.x > 0.0) || !(p.y > 0.0) || p.x > frame.Width() - 1.0 || p.y > frame.Height() - 1.0) return;
    const int reach = static_cast<int>(std::ceil(half));
    left = static_cast<int>(std::lround(p.x)) - reach;
    top = static_cast<int>(std::lround(p.y)) - reach;
    side = 2 * reach + 1;
    // A window at the edge is moved inside; its patch then has fewer pixels.
    if (side > frame.Width() || side > frame.Height()) return;
    left = std::clamp(left, 0, frame.Width() - side);
    top = std::clamp(top, 0, frame.Height() - side);
    coefficients.resize(static_cast<std::size_t>(side) * static_cast<std::size_t>(side));
    for (int y = 0; y < side; ++y) frame.Copy(left, top + y, side, coefficients.data() + y * side);
    MaskBad();
    scratch.resize(static_cast<std::size_t>(side));
    SmoothLightly(coefficients.data(), side, side, scratch.data());
    SplineCoefficients(coefficients.data(), side, side);
    usable = true;
  }

  // False where the position's support leaves the window or touches a bad pixel.
  bool Sample(double x, double y, float& value) const {
    const double u = x - left, v = y - top;
    const int ix = static_cast<int>(u), iy = static_cast<int>(v);
    if (u < 1.0 || v < 1.0 || ix + 2 >= side || iy + 2 >= side) return false;
    const std::array<float, 4> wx = SplineWeights(static_cast<float>(u - ix));
    const std::array<float, 4> wy = SplineWeights(static_cast<float>(v - iy));
    const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(iy - 1) * side + ix - 1;
    if (!bad.empty()) {
      for (int j = 0; j < 4; ++j) {
        for (int i = 0; i < 4; ++i) {
          if (bad[static_cast<std::size_t>(first + j * side + i)]) return false;
        }
      }
    }
    const float* c = coefficients.data() + first;
    float sum = 0.0f;
    for (int j = 0; j < 4; ++j) {
      const float* r = c + j * side;
      sum += wy[static_cast<std::size_t>(j)] * ((wx[0] * r[0] + wx[1] * r[1]) + (wx[2] * r[2] + wx[3] * r[3]));
    }
    value = sum;
    return true;
  }

 private:
  void MaskBad() {
    bad.clear();
    const auto finite = [](float v) { return std::fabs(v) <= kLargest; };
    if (std::all_of(coefficients.begin(), coefficients.end(), finite)) return;
    bad.resize(coefficients.size());
    float last = 0.0f;
    for (const float v : coefficients) {
      if (finite(v)) last = v;
    }
    for (std::size_t i = 0; i < coefficients.size(); ++i) {
      bad[i] = !finite(coefficients[i]);
      if (bad[i]) coefficients[i] = last;
      last = coefficients[i];
    }
  }
};

// What least squares found in one patch.
struct PatchFit {
  bool good = false;
  double gain = 0.0;
  Displacement displacement;
  double products[3] = {};  // weighted sums of reference and frame about their means: rr, rf, ff
};

class Refiner {
 public:
  Refiner(const PatchSet& patches, const PatchList& which, const Luminance& frame, bool shiftOnly)
      : patches_(patches),
        which_(which),
        frame_(frame),
        shiftOnly_(shiftOnly),
        noise_(patches.noise),
        windows_(which.size()),
        samples_(patches.shape.size()),
        residuals_(static_cast<std::size_t>(NoiseModel::Bins())) {}

  std::optional<FineMatch> Run(const FrameGeometry& start) {
    constexpr int kRounds = 4;
    FrameGeometry geometry = start;
    Load(geometry);
    FineMatch match;
    for (int round = 0; round < kRounds; ++round) {
      const RigidMap map(geometry, frame_.Width(), frame_.Height());
      const std::vector<PatchFit> fits = FitPatches(map);
      const std::vector<Displacement> displacements = Plausible(fits, match.gain);
      if (displacements.empty()) return std::nullopt;
      const double looseness = round == 0 ? 0.1 : 0.0;
      const std::optional<RigidFit> fit = FitRigid(displacements, map, shiftOnly_, looseness);
      if (!fit) return std::nullopt;
      match.fit = *fit;
      match.correlation = Correlation(fits, fit->agreeing);
      match.agreement = Agreement(fit->agreeing);
      geometry = fit->geometry;
    }
    return match;
  }

 private:
  void Load(const FrameGeometry& geometry) {
    const RigidMap map(geometry, frame_.Width(), frame_.Height());
    for (std::size_t i = 0; i < windows_.size(); ++i) {
      windows_[i].Load(frame_, map, patches_.middles[static_cast<std::size_t>(which_[i])], scratch_);
    }
  }

  // All patches with the noise model of the last round; the residuals make the next one.
  std::vector<PatchFit> FitPatches(const RigidMap& map) {
    for (auto& r : residuals_) r.clear();
    std::vector<PatchFit> fits(which_.size());
    for (std::size_t i = 0; i < fits.size(); ++i) {
      if (!windows_[i].usable) continue;
      fits[i] = FitPatch(map, windows_[i], static_cast<std::size_t>(which_[i]));
      fits[i].displacement.source = static_cast<int>(i);
    }
    noise_.Learn(residuals_);
    return fits;
  }

  // The frame at the patch's pixels; how many there are.
  int Resample(const RigidMap& map, const Window& window, std::size_t patch) {
    const PatchSet::Middle m = patches_.middles[patch];
    const Point middle = map({static_cast<double>(m.x), static_cast<double>(m.y)});
    int valid = 0;
    for (std::size_t i = 0; i < samples_.size(); ++i) {
      const Point arm = map.Turn({static_cast<double>(patches_.shape[i].x), static_cast<double>(patches_.shape[i].y)});
      Sampled& s = samples_[i];
      s.weight = window.Sample(middle.x + arm.x, middle.y + arm.y, s.value) ? 1.0f : 0.0f;
      valid += s.weight > 0.0f;
    }
    return valid;
  }

  PatchFit FitPatch(const RigidMap& map, const Window& window, std::size_t patch) {
    PatchFit result;
    if (Resample(map, window, patch) * 4 < static_cast<int>(samples_.size()) * 3) return result;
    const std::size_t first = patch * samples_.size();
    const float* value = patches_.value.data() + first;
    const float* slopeX = patches_.slopeX.data() + first;
    const float* slopeY = patches_.slopeY.data() + first;
    const float* bend = patches_.bend.data() + first;
    const float* level = patches_.level.data() + first;
    for (std::size_t i = 0; i < samples_.size(); ++i) {
      samples_[i].perVariance = samples_[i].weight > 0.0f ? 1.0f / noise_.Variance(level[i]) : 0.0f;
    }

    // Unknowns: displacement x and y (times gain), gain, seeing, background. The later passes go without the pixels
    // that don't fit (cosmic rays, hot pixels, trails).
    SmallSystem<5> system;
    const double origin = value[0];
    for (int pass = 0; pass < 3; ++pass) {
      system = {};
      double sums[20] = {};
      for (std::size_t i = 0; i < samples_.size(); ++i) {
        const double w = static_cast<double>(samples_[i].perVariance) * samples_[i].weight;
        const double a = slopeX[i], b = slopeY[i], c = value[i] - origin, d = bend[i], r = samples_[i].value - origin;
        const double wa = w * a, wb = w * b, wc = w * c, wd = w * d;
        sums[0] += wa * a;
        sums[1] += wb * a;
        sums[2] += wb * b;
        sums[3] += wc * a;
        sums[4] += wc * b;
        sums[5] += wc * c;
        sums[6] += wd * a;
        sums[7] += wd * b;
        sums[8] += wd * c;
        sums[9] += wd * d;
        sums[10] += wa;
        sums[11] += wb;
        sums[12] += wc;
        sums[13] += wd;
        sums[14] += w;
        sums[15] += wa * r;
        sums[16] += wb * r;
        sums[17] += wc * r;
        sums[18] += wd * r;
        sums[19] += w * r;
      }
      std::size_t k = 0;
      for (std::size_t i = 0; i < 5; ++i) {
        for (std::size_t j = 0; j <= i; ++j) system.matrix[i][j] = sums[k++];
      }
      for (std::size_t i = 0; i < 5; ++i) system.right[i] = sums[15 + i];
      if (!system.Solve(5)) return result;
      const std::array<double, 5>& p = system.solution;
      for (std::size_t i = 0; i < samples_.size(); ++i) {
        if (!(samples_[i].perVariance > 0.0f)) continue;
        const double model = p[0] * slopeX[i] + p[1] * slopeY[i] + p[2] * (value[i] - origin) + p[3] * bend[i] + p[4];
        const double residual = samples_[i].value - origin - model;
        samples_[i].residual = static_cast<float>(residual);
        constexpr double kCut2 = 25.0;
        const double t = residual * residual * samples_[i].perVariance / kCut2;
        samples_[i].weight = t < 1.0 ? static_cast<float>((1.0 - t) * (1.0 - t)) : 1e-12f;
      }
      if (pass == 2) {
        const double mean[2] = {sums[12] / sums[14], sums[19] / sums[14]};
        result.products[0] = sums[5] - sums[12] * mean[0];
        result.products[1] = sums[17] - sums[12] * mean[1];
        double ff = 0.0;
        for (const Sampled& s : samples_) {
          const double f = s.value - origin - mean[1];
          ff += static_cast<double>(s.perVariance) * s.weight * f * f;
        }
        result.products[2] = ff;
      }
    }
    for (std::size_t i = 0; i < samples_.size(); ++i) {
      if (!(samples_[i].perVariance > 0.0f)) continue;
      residuals_[NoiseModel::Bin(level[i])].push_back(std::fabs(samples_[i].residual));
    }
    Conclude(map, patch, system, result);
    return result;
  }

  void Conclude(const RigidMap& map, std::size_t patch, const SmallSystem<5>& system, PatchFit& result) {
    result.gain = system.solution[2];
    if (!(result.gain > 0.0)) return;
    const double dx = system.solution[0] / result.gain, dy = system.solution[1] / result.gain;
    if (!(std::hypot(dx, dy) < 2.0)) return;
    const double gain2 = result.gain * result.gain;
    const double cxx = system.inverse[0][0], cxy = system.inverse[0][1], cyy = system.inverse[1][1];
    const double det = cxx * cyy - cxy * cxy;
    if (!(det > 0.0)) return;
    const double ixx = gain2 * cyy / det, ixy = -gain2 * cxy / det, iyy = gain2 * cxx / det;
    // The frame shows at the expected place what the reference shows by (dx, dy) further on: the patch itself stands
    // the other way.
    const double c = map.Cosine(), s = map.Sine();
    Displacement& d = result.displacement;
    d.at = {static_cast<double>(patches_.middles[patch].x), static_cast<double>(patches_.middles[patch].y)};
    d.offset = map.Turn({-dx, -dy});
    d.xx = c * c * ixx - 2.0 * c * s * ixy + s * s * iyy;
    d.yy = s * s * ixx + 2.0 * c * s * ixy + c * c * iyy;
    d.xy = c * s * (ixx - iyy) + (c * c - s * s) * ixy;
    result.good = true;
  }

  // Patches whose brightness changed as that of the others did.
  static std::vector<Displacement> Plausible(const std::vector<PatchFit>& fits, double& gain) {
    std::vector<double> gains;
    for (const PatchFit& f : fits) {
      if (f.good) gains.push_back(f.gain);
    }
    gain = Median(gains);
    std::vector<Displacement> displacements;
    for (const PatchFit& f : fits) {
      if (f.good && f.gain > 0.4 * gain && f.gain < 2.5 * gain) displacements.push_back(f.displacement);
    }
    return displacements;
  }

  // The share that patches have in the strength of all that lie in the frame.
  double Agreement(const std::vector<int>& agreeing) const {
    const auto strength = [&](std::size_t i) { return patches_.strength[static_cast<std::size_t>(which_[i])]; };
    double all = 0.0, some = 0.0;
    for (std::size_t i = 0; i < windows_.size(); ++i) all += windows_[i].usable ? strength(i) : 0.0;
    for (const int source : agreeing) some += strength(static_cast<std::size_t>(source));
    return all > 0.0 ? some / all : 0.0;
  }

  static double Correlation(const std::vector<PatchFit>& fits, const std::vector<int>& agreeing) {
    double sums[3] = {};
    for (const int source : agreeing) {
      for (int i = 0; i < 3; ++i) sums[i] += fits[static_cast<std::size_t>(source)].products[i];
    }
    return sums[0] > 0.0 && sums[2] > 0.0 ? sums[1] / std::sqrt(sums[0] * sums[2]) : 0.0;
  }

  struct Sampled {
    float value = 0.0f;
    float weight = 0.0f;
    float perVariance = 0.0f;
    float residual = 0.0f;
  };

  const PatchSet& patches_;
  const PatchList& which_;
  const Luminance& frame_;
  bool shiftOnly_;
  NoiseModel noise_;
  std::vector<Window> windows_;
  std::vector<float> scratch_;
  std::vector<Sampled> samples_;
  std::vector<std::vector<float>> residuals_;
};

double Vertex(float left, float middle, float right) {
  const double curve = static_cast<double>(left) - 2.0 * middle + right;
  return curve < 0.0 ? std::clamp(0.5 * (static_cast<double>(left) - right) / curve, -0.5, 0.5) : 0.0;
}

// Normalised correlation of a patch's square with the frame around its expected place.
class PatchSearch {
 public:
  struct Best {
    Point offset;  // along the reference's axes
    double correlation = 0.0;
    // How fast the correlation falls from its top, in units of the steepest direction.
    double xx = 1.0, xy = 0.0, yy = 1.0;
  };

  PatchSearch(const Luminance& frame, const RigidMap& map, int reach)
      : frame_(frame),
        map_(map),
        reach_(reach),
        side_(PatchSet::kSearchSide + 2 * reach),
        wide_(static_cast<std::size_t>(side_) * static_cast<std::size_t>(side_)),
        score_(static_cast<std::size_t>(2 * reach + 1) * static_cast<std::size_t>(2 * reach + 1)) {}

  // The frame around the place where `at` is expected, turned to the reference's axes; false where it leaves the frame
  // or holds a pixel that is no finite number.
  bool Load(Point at) {
    const Point middle = map_(at);
    const double c = map_.Cosine(), s = map_.Sine();
    const int half = side_ / 2;
    const double room = half * (std::abs(c) + std::abs(s)) + 2.0;
    if (!(middle.x >= room) || !(middle.y >= room) || middle.x > frame_.Width() - 1 - room ||
        middle.y > frame_.Height() - 1 - room) {
      return false;
    }
    const int left = static_cast<int>(middle.x - room), top = static_cast<int>(middle.y - room);
    const int width = std::min(static_cast<int>(2.0 * room) + 3, frame_.Width() - left);
    const int height = std::min(static_cast<int>(2.0 * room) + 3, frame_.Height() - top);
    box_.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y) frame_.Copy(left, top + y, width, box_.data() + y * width);
    bool finite = true;
    float* to = wide_.data();
    for (int ry = -half; ry <= half; ++ry) {
      for (int rx = -half; rx <= half; ++rx) {
        const double u = middle.x + c * rx - s * ry - left, v = middle.y + s * rx + c * ry - top;
        const int iu = std::clamp(static_cast<int>(u), 0, width - 2);
        const int iv = std::clamp(static_cast<int>(v), 0, height - 2);
        const auto fu = static_cast<float>(u - iu), fv = static_cast<float>(v - iv);
        const float* p = box_.data() + iv * width + iu;
        const float upper = p[0] + fu * (p[1] - p[0]), lower = p[width] + fu * (p[width + 1] - p[width]);
        *to = upper + fv * (lower - upper);
        finite = finite && std::fabs(*to) <= kLargest;
        ++to;
      }
    }
    if (!finite) return false;
    const float origin = wide_[0];
    for (float& v : wide_) v -= origin;
    return true;
  }

  // A maximum at the rim counts as none.
  Best Find(const float* reference) {
    constexpr int kSide = PatchSet::kSearchSide;
    const int tries = 2 * reach_ + 1;
    int best = 0;
    for (int n = 0; n < tries * tries; ++n) {
      const float* first = wide_.data() + n / tries * side_ + n % tries;
      float product = 0.0f, sum = 0.0f, squares = 0.0f;
      for (int y = 0; y < kSide; ++y) {
        const float* f = first + y * side_;
        const float* r = reference + y * kSide;
        for (int x = 0; x < kSide; ++x) {
          product += r[x] * f[x];
          sum += f[x];
          squares += f[x] * f[x];
        }
      }
      const float variance = squares - sum * sum / (kSide * kSide);
      score_[static_cast<std::size_t>(n)] = variance > 0.0f ? product / std::sqrt(variance) : 0.0f;
      if (score_[static_cast<std::size_t>(n)] > score_[static_cast<std::size_t>(best)]) best = n;
    }
    const int i = best % tries, j = best / tries;
    if (i == 0 || j == 0 || i == tries - 1 || j == tries - 1) return {};
    const float* s = score_.data() + best;
    Best found{{i - reach_ + Vertex(s[-1], s[0], s[1]), j - reach_ + Vertex(s[-tries], s[0], s[tries])}, s[0]};
    const double xx = 2.0 * s[0] - s[-1] - s[1], yy = 2.0 * s[0] - s[-tries] - s[tries];
    const double xy = 0.25 * (s[tries - 1] + s[-tries + 1] - s[tries + 1] - s[-tries - 1]);
    const double steepest = 0.5 * (xx + yy + std::hypot(xx - yy, 2.0 * xy));
    if (xx > 0.0 && yy > 0.0 && xx * yy > xy * xy) {
      found.xx = xx / steepest;
      found.xy = xy / steepest;
      found.yy = yy / steepest;
    }
    return found;
  }

 private:
  const Luminance& frame_;
  const RigidMap& map_;
  int reach_;
  int side_;
  std::vector<float> box_;
  std::vector<float> wide_;
  std::vector<float> score_;
};

}  // namespace

std::vector<Displacement> SearchPatches(const PatchSet& patches, const PatchList& which, const Luminance& frame,
                                        const RigidMap& map, int reach, double resemblance) {
  std::vector<Displacement> found;
  PatchSearch search(frame, map, reach);
  for (const int number : which) {
    const auto patch = static_cast<std::size_t>(number);
    const Point at = {static_cast<double>(patches.middles[patch].x), static_cast<double>(patches.middles[patch].y)};
    if (!search.Load(at)) continue;
    const PatchSearch::Best best =
        search.Find(patches.search.data() + patch * PatchSet::kSearchSide * PatchSet::kSearchSide);
    if (!(best.correlation > resemblance)) continue;
    Displacement d;
    d.at = at;
    d.offset = map.Turn(best.offset);
    // The inverse covariance turns with the frame.
    const double c = map.Cosine(), s = map.Sine(),
                 weight = best.correlation * best.correlation * patches.strength[patch];
    d.xx = weight * (c * c * best.xx - 2.0 * c * s * best.xy + s * s * best.yy);
    d.yy = weight * (s * s * best.xx + 2.0 * c * s * best.xy + c * c * best.yy);
    d.xy = weight * (c * s * (best.xx - best.yy) + (c * c - s * s) * best.xy);
    d.source = number;
    found.push_back(d);
  }
  return found;
}

std::optional<FineMatch> RefineMatch(const PatchSet& patches, const PatchList& which, const Luminance& frame,
                                     const FrameGeometry& start, bool shiftOnly) {
  if (which.empty()) return std::nullopt;
  return Refiner(patches, which, frame, shiftOnly).Run(start);
}

}  // namespace qmr
