#include "host/measure/focus_score.h"

#include <algorithm>
#include <cstdlib>

#include "host/measure/quantile.h"
#include "qmrimg/stacking/evaluate_focus.h"
#include "qmrimg/store/registry.h"

namespace qmr {
namespace {

// Half the side of the squares; the wide band reaches about as far.
constexpr int kHalf = 15;
constexpr int kArea = (2 * kHalf + 1) * (2 * kHalf + 1);
// Squares across the frame that tell what is there without a star, and the share of them that is empty for sure.
constexpr int kSquares = 7;
constexpr double kEmpty = 0.25;

// Gives a plane's pixels to the library's class for the length of a scope.
class Lent {
 public:
  explicit Lent(StarPlane& plane) : plane_(plane) { image.Swap(&plane.image); }
  Lent(const Lent&) = delete;
  Lent& operator=(const Lent&) = delete;
  ~Lent() { image.Swap(&plane_.image); }
  CImgEvaluateFocus image;

 private:
  StarPlane& plane_;
};

// The light of a square above the median of its border: a nebula counts little, then.
double LightOf(const CVynImage& image, const StarPlace& star) {
  std::vector<double> border;
  double sum = 0.0;
  for (int y = -kHalf; y <= kHalf; ++y) {
    for (int x = -kHalf; x <= kHalf; ++x) {
      const double v = image.GetPixelGrayRaw(star.x + x, star.y + y, 0);
      sum += v;
      if (std::max(std::abs(x), std::abs(y)) == kHalf) border.push_back(v);
    }
  }
  return sum - kArea * MedianOf(border);
}

}  // namespace

double FocusScore(StarPlane& plane, const SkyMap& sky, const std::vector<StarPlace>& stars) {
  int margin;
  CRegistry::Read(L"Eval", L"Max", 10, &margin, 1);
  margin = std::clamp(margin, 0, 1000);
  Lent lent(plane);
  CImgEvaluateFocus& image = lent.image;
  const int width = image.GetWidth(), height = image.GetHeight(), reach = kHalf + margin;
  const auto score = [&](int x, int y) {
    CRect rect(x - reach, y - reach, x + reach + 1, y + reach + 1);
    return image.Do(&rect, 0);
  };
  std::vector<double> scores;
  for (int j = 1; j <= kSquares; ++j) {
    for (int i = 1; i <= kSquares; ++i)
      scores.push_back(score(width * i / (kSquares + 1), height * j / (kSquares + 1)));
  }
  const double empty = Quantile(scores, kEmpty);
  scores.clear();
  for (const StarPlace& star : stars) {
    if (star.x < reach || star.y < reach || star.x + reach >= width || star.y + reach >= height) continue;
    const double light = LightOf(image, star);
    // Noise alone has an energy of a quarter of its deviation a pixel; this is ten times as much.
    if (light > 2.5 * kArea * sky.Noise(star.x, star.y))
      scores.push_back((score(star.x, star.y) - empty) * kArea / light);
  }
  return MedianOf(scores);
}

}  // namespace qmr
