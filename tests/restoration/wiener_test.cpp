// Wiener's filter and the radial window: direct sums, what a blur comes back as, brightness, rectangles, reports.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <tuple>
#include <vector>

#include "qmrimg/restoration/wiener.h"
#include "qmrimg/restoration/windowing.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace qmr::test {
namespace {

using Plane = std::vector<std::complex<double>>;

int PowerOfTwo(int n) {
  int p = 1;
  while (p < n) p *= 2;
  return p;
}

// Unitary, term by term.
Plane SlowTransform(const Plane& in, int w, int h, double sign) {
  Plane out(in.size());
  for (int v = 0; v < h; ++v)
    for (int u = 0; u < w; ++u) {
      std::complex<double> sum = 0.0;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          sum += in[static_cast<std::size_t>(y * w + x)] *
                 std::polar(1.0, sign * 2.0 * M_PI * (1.0 * u * x / w + 1.0 * v * y / h));
      out[static_cast<std::size_t>(v * w + u)] = sum / std::sqrt(1.0 * w * h);
    }
  return out;
}

// The filtered rectangle left..right, top..bottom of a plane, raw scale.
std::vector<double> SlowWiener(const CVynImage& image, int p, const CRect& r, double sigma, double strength) {
  const int iw = r.right - r.left, ih = r.bottom - r.top, w = PowerOfTwo(iw), h = PowerOfTwo(ih);
  const double min = image.GetLevelMin(p), range = image.GetLevelRange(p), s = sigma / 1.414213562;
  Plane data, blur;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const int sx = x < iw ? x : 2 * iw - 1 - x, sy = y < ih ? y : 2 * ih - 1 - y;
      data.emplace_back((At(image, p, r.left + sx, r.top + sy) - min) / range * 255.0);
      const double dx = x > w / 2 ? x - w : x, dy = y > h / 2 ? y - h : y;
      blur.emplace_back(1000.0 * 0.5 / 3.14159 * std::exp(-(dx * dx + dy * dy) / (2.0 * s * s)));
    }
  Plane f = SlowTransform(data, w, h, -1.0);
  const Plane o = SlowTransform(blur, w, h, -1.0);
  double peak = 0.0;
  for (const auto& v : o) peak = std::max(peak, std::norm(v));
  for (std::size_t i = 0; i < f.size(); ++i) f[i] *= std::conj(o[i]) / (std::norm(o[i]) + peak * strength);
  f = SlowTransform(f, w, h, 1.0);
  std::vector<double> out;
  for (int y = 0; y < ih; ++y)
    for (int x = 0; x < iw; ++x) out.push_back(f[static_cast<std::size_t>(y * w + x)].real() / 255.0 * range + min);
  return out;
}

TEST(Wiener, AgreesWithDirectSumsOnAwkwardSizesAndRectangles) {
  for (const auto& [w, h, planes] : {std::tuple{1, 1, 1}, {1, 9, 1}, {12, 7, 3}, {16, 8, 1}, {17, 5, 2}}) {
    auto before = Noise<CImgWiener>(w, h, planes, 5);
    for (int p = 0; p < planes; ++p) static_cast<CImage&>(before).SetLevel(p, 7.0 + p, 150.0 - 30.0 * p);
    const CRect whole(0, 0, w, h), elsewhere(100, -50, 100 + w, -50 + h), reaching(w / 3, -3, w + 9, h - h / 3);
    for (const CRect* rect : {static_cast<const CRect*>(nullptr), &elsewhere, &reaching}) {
      CImgWiener image(before);
      CRect copy = rect ? *rect : whole;
      ASSERT_EQ(image.Do(1.3, 0.02, rect ? &copy : nullptr, 0), 1);
      const CRect part = rect == &reaching ? CRect(w / 3, 0, w, h - h / 3) : whole;
      for (int p = 0; p < planes; ++p) {
        const std::vector<double> expected = SlowWiener(before, p, part, 1.3, 0.02);
        std::size_t at = 0;
        for (int y = 0; y < h; ++y)
          for (int x = 0; x < w; ++x) {
            const bool inside = x >= part.left && x < part.right && y >= part.top && y < part.bottom;
            const double value = inside ? expected[at++] : At(before, p, x, y);
            ASSERT_NEAR(At(image, p, x, y), value, inside ? 2e-3 : 0.0) << w << 'x' << h << ' ' << x << ',' << y;
          }
      }
    }
  }
}

// A blurred scene comes back sharper, with the brightness that the gain tells of.
TEST(Wiener, UndoesABlurUpToItsGain) {
  for (const auto& [w, h] : {std::pair{64, 64}, {100, 70}}) {
    const auto star = [w = w, h = h](double s, double x, double y) {
      const double r2 = (x - w * 0.5) * (x - w * 0.5) + (y - h * 0.5) * (y - h * 0.5);
      return 4000.0 / (2.0 * M_PI * s * s) * std::exp(-r2 / (2.0 * s * s));
    };
    auto image = Shaped<CImgWiener>(w, h, 1);
    const double intrinsic = 1.2, blur = 1.6, min = 30.0;
    Fill(image,
         [&](int, int x, int y) { return static_cast<float>(min + 20.0 + star(std::hypot(intrinsic, blur), x, y)); });
    static_cast<CImage&>(image).SetLevel(0, min, 500.0);
    ASSERT_EQ(image.Do(blur * 1.414213562, 1e-9, nullptr, 0), 1);
    const double gain = WienerGain(blur * 1.414213562, 1e-9, w, h);
    const double about = std::sqrt(1.0 * PowerOfTwo(w) * PowerOfTwo(h)) / (500.0 * 2.0 * blur * blur);
    EXPECT_NEAR(gain / about, 1.0, 1e-3);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        ASSERT_NEAR((At(image, 0, x, y) - min) / gain, 20.0 + star(intrinsic, x, y), 2.0) << x << ',' << y;
  }
}

TEST(Wiener, SameForAllThreads) {
  EXPECT_TRUE(SameForAllThreads([] {
    auto image = Noise<CImgWiener>(90, 41, 3, 8);
    CRect part(3, 2, 80, 40);
    image.Do(2.0, 0.01, &part, 0);
    return Bytes(image);
  }));
}

TEST(Wiener, ReportsAndBadInput) {
  const Threads one(1);
  RecordingWindow window;
  auto image = Noise<CImgWiener>(20, 10, 3, 8);
  image.SetProgressHandle(&window);
  // Esc does not stop it.
  window.escapeAtLook = 2;
  EXPECT_EQ(image.Do(1.0, 0.1, nullptr, 1), 1);
  EXPECT_EQ(window.events.front().text, L"ウィーナーフィルタ処理中...");
  EXPECT_EQ(window.events.back().code, kProgressEnd);
  // 25 units for the blur and 90 a plane, of 300.
  EXPECT_EQ(window.Percents(), (std::vector<int>{1, 5, 8, 10, 18, 26, 35, 38, 40, 48, 56, 65, 68, 70, 78, 86, 95, 98}));
  window.events.clear();
  const std::string before = Bytes(image);
  for (CRect nothing : {CRect(5, 5, 5, 9), CRect(9, 2, 3, 8), CRect(20, 0, 41, 10), CRect(-9, -9, 0, 0)})
    EXPECT_EQ(image.Do(1.0, 0.1, &nothing, 1), 0);
  EXPECT_EQ(Bytes(image), before);
  EXPECT_TRUE(window.events.empty());
  EXPECT_EQ(CImgWiener().Do(1.0, 0.1, nullptr, 0), 0);
  // A bare division keeps to numbers as long as the blur leaves any; without a blur there are none.
  EXPECT_EQ(image.Do(0.5, 0.0, nullptr, 0), 1);
  EXPECT_TRUE(std::isfinite(At(image, 0, 3, 3)));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const auto& [sigma, strength] : {std::pair{0.0, 0.1}, {nan, 0.1}, {1.0, nan}}) {
    CImgWiener copy(image);
    EXPECT_EQ(copy.Do(sigma, strength, nullptr, 0), 1);
    EXPECT_TRUE(std::isnan(At(copy, 1, 4, 4)));
    EXPECT_TRUE(std::isnan(WienerGain(sigma, strength, 20, 10)));
  }
  EXPECT_EQ(WienerGain(1.0, 0.1, 0, 5), 0.0);
}

TEST(Windowing, WeightsPixelsByTheirDistanceFromTheMiddle) {
  int turn = 0;
  for (const auto& [w, h, planes] : {std::tuple{1, 1, 1}, {1, 8, 1}, {13, 6, 3}, {40, 31, 2}}) {
    CVynImage source = Noise(w, h, planes, 3, -50.0, 50.0);
    for (const int kind : {0, 1, -7}) {
      for (const double radius : {0.0, -3.0, 1.0, 6.5, 1000.0}) {
        const Threads use(turn++ % 3 + 1);
        // Smaller than the source and with a plane that it lacks: only the common part is written.
        auto before = Noise<CImgWindowing>(std::max(w - 2, 1), h + 1, planes + 1, 4);
        auto image = before;
        ASSERT_EQ(image.Do(kind, radius, &source, 0), 1);
        const auto expected = [&, w = w, h = h, planes = planes](int p, int x, int y) {
          if (p >= planes || y >= h) return At(before, p, x, y);
          const double r = std::hypot(x - w / 2, y - h / 2);
          const double weight = kind ? 1.0 : r < radius ? 0.5 * std::cos(M_PI * r / radius) + 0.5 : 0.0;
          const float exact = static_cast<float>(At(source, p, x, y) * weight), made = At(image, p, x, y);
          // hypot and sqrt may part in the last bit.
          return std::abs(made - exact) <= 1e-6f * std::abs(exact) + 1e-12f ? made : exact;
        };
        EXPECT_TRUE(PixelsAre(expected, image)) << w << 'x' << h << " kind " << kind << " radius " << radius;
        if (kind == 0 && radius > 0.0) {
          EXPECT_EQ(At(image, 0, std::min(w / 2, image.GetWidth() - 1), h / 2) != 0.0f, true);
        }
      }
    }
  }
  const Threads one(1);
  RecordingWindow window;
  auto image = Noise<CImgWindowing>(9, 4, 2, 4);
  image.SetProgressHandle(&window);
  EXPECT_EQ(image.Do(0, 5.0, &image, 1), 1);
  EXPECT_EQ(window.events.front().text, L"窓関数処理中...");
  EXPECT_EQ(window.Percents().size(), 8u);
  EXPECT_EQ(image.Do(0, 5.0, nullptr, 1), 0);
}

}  // namespace
}  // namespace qmr::test
