#include "host/simulate/simulate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <numeric>
#include <ostream>
#include <tuple>

#include "host/simulate/night_maker.h"
#include "host/simulate/portable_math.h"
#include "host/simulate/random.h"
#include "host/simulate/truth.h"
#include "tests/host/folder.h"

namespace qmr {
namespace {

namespace fs = std::filesystem;
using sim::FrameKind;
using sim::NightMaker;
using Folder = test::TemporaryFolder;

// A night of a few small frames without anything that a case doesn't ask for.
SimulateOptions Plain(int width, int height) {
  SimulateOptions o;
  o.width = width;
  o.height = height;
  o.lights = 3;
  o.darks = o.flats = o.biases = 2;
  o.mosaic = SensorMosaic::Mono;
  o.stars = o.nebula = o.skyGradient = o.skyChange = o.clouds = o.fwhmVariation = 0.0;
  o.trails = o.dust = 0;
  o.cosmicRays = o.darkCurrent = o.ampGlow = o.hotPixels = o.coolPixels = o.vignetting = 0.0;
  o.threads = 2;
  return o;
}

std::vector<std::uint16_t> Frame(NightMaker& maker, const SimulateOptions& o, FrameKind kind, int index) {
  std::vector<std::uint16_t> samples(static_cast<std::size_t>(o.width) * o.height);
  maker.Make(kind, index, samples);
  return samples;
}

std::vector<float> SceneOf(NightMaker& maker, const SimulateOptions& o, int index, int colour) {
  std::vector<float> scene(static_cast<std::size_t>(o.width) * o.height);
  maker.MakeScene(index, colour, scene);
  return scene;
}

struct Moments {
  double mean = 0, variance = 0;
};

template <class T>
Moments MomentsOf(const std::vector<T>& values) {
  Moments m;
  for (const T v : values) m.mean += v;
  m.mean /= static_cast<double>(values.size());
  for (const T v : values) m.variance += (v - m.mean) * (v - m.mean);
  m.variance /= static_cast<double>(values.size());
  return m;
}

std::map<std::string, std::string> Tree(const fs::path& root) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    files[fs::relative(entry.path(), root).string()] = entry.is_regular_file() ? test::ReadBytes(entry.path()) : "";
  }
  return files;
}

TEST(SimulateRandom, PoissonCountsHaveTheirDistribution) {
  const std::size_t count = 300000;
  for (const double mean : {0.0, 0.3, 6.2, 15.99, 16.0, 45.5, 3000.0}) {
    std::vector<float> normal(count);
    std::vector<float> other(count);
    std::vector<float> values(count, static_cast<float>(mean));
    sim::NormalRow(5, normal, other);
    sim::PoissonRow(5, normal, values);
    const Moments m = MomentsOf(values);
    EXPECT_NEAR(m.mean, mean, 5.0 * std::sqrt(mean / count) + 1e-6) << mean;
    EXPECT_NEAR(m.variance, mean, 5.0 * std::sqrt((2.0 * mean * mean + mean) / count) + 1e-6) << mean;
    if (mean == 0.0 || mean > 100.0) continue;
    // The expansion from 16 up is no exact law: its share of each count is allowed half a percent of the tallest.
    const double slack = mean < 16.0 ? 0.0 : 0.005 / std::sqrt(2.0 * M_PI * mean);
    for (int k = 0; k < mean + 5.0 * std::sqrt(mean); ++k) {
      const double expected = std::exp(k * std::log(mean) - mean - std::lgamma(k + 1.0));
      const auto found = std::count(values.begin(), values.end(), static_cast<float>(k));
      EXPECT_NEAR(static_cast<double>(found) / count, expected, 5.0 * std::sqrt(expected / count) + 1e-5 + slack)
          << mean << " " << k;
    }
  }
}

TEST(SimulateNight, IsAFunctionOfTheSeedAlone) {
  SimulateOptions one;
  one.width = 203;
  one.height = 97;
  one.lights = 3;
  one.threads = 1;
  SimulateOptions many = one;
  many.threads = 5;
  SimulateOptions other = one;
  other.seed = 2;
  NightMaker a(one);
  NightMaker b(many);
  NightMaker c(other);
  for (const FrameKind kind : {FrameKind::Bias, FrameKind::Light, FrameKind::Flat, FrameKind::Dark}) {
    const auto first = Frame(a, one, kind, 1);
    // Another order of making, too.
    Frame(b, many, kind, 0);
    EXPECT_TRUE(first == Frame(b, many, kind, 1));
    EXPECT_FALSE(first == Frame(a, one, kind, 0));
    EXPECT_FALSE(first == Frame(c, other, kind, 1));
  }
  // The same on every machine and compiler. Changes with any change of what a seed means, and only then.
  std::uint64_t sum = 14695981039346656037ull;
  for (const FrameKind kind : {FrameKind::Light, FrameKind::Dark, FrameKind::Flat, FrameKind::Bias}) {
    for (const std::uint16_t v : Frame(a, one, kind, 1)) sum = (sum ^ v) * 1099511628211ull;
  }
  EXPECT_EQ(sum, 5146850034682669481ull);
}

// Centre of gravity of the sites row0 + step * i, column0 + step * j around a place.
bool Centroid(const std::vector<float>& image, int width, int height, double x, double y, int row0, int column0,
              int step, double& cx, double& cy) {
  const double reach = 18.0;
  double sum = 0.0;
  cx = cy = 0.0;
  for (int j = row0; j < height; j += step) {
    for (int i = column0; i < width; i += step) {
      if (std::hypot(i - x, j - y) > reach) continue;
      const double v = image[static_cast<std::size_t>(j) * width + i];
      sum += v;
      cx += v * i;
      cy += v * j;
    }
  }
  cx /= sum;
  cy /= sum;
  return sum > 0.0;
}

struct GeometryCase {
  SensorMosaic mosaic;
  StarProfile profile;
  double rotation;

  friend std::ostream& operator<<(std::ostream& out, const GeometryCase& c) {
    return out << MosaicName(c.mosaic) << (c.profile == StarProfile::Moffat ? " Moffat " : " Gaussian ") << c.rotation;
  }
};

class SimulateGeometry : public testing::TestWithParam<GeometryCase> {};

TEST_P(SimulateGeometry, StarsStandWhereTheConventionSays) {
  SimulateOptions o = Plain(641, 480);
  o.mosaic = GetParam().mosaic;
  o.profile = GetParam().profile;
  o.rotationDegrees = GetParam().rotation;
  o.drift = DriftKind::Uniform;
  o.driftPixels = 20.0;
  o.fwhm = 4.0;
  o.stars = 60.0;
  o.sky = 0.0;
  o.lights = 12;
  NightMaker maker(o);
  const std::string name = MosaicName(o.mosaic);
  int checked = 0;
  for (const TruthFrame& frame : maker.Frames()) {
    const std::vector<float> image = SceneOf(maker, o, frame.index, -1);
    const double c = std::cos(frame.theta * M_PI / 180.0);
    const double s = std::sin(frame.theta * M_PI / 180.0);
    const auto place = [&](const TruthStar& star) {
      const double rx = star.x - 320.0;
      const double ry = star.y - 239.5;
      return std::pair{c * rx - s * ry + 320.0 + frame.dx, s * rx + c * ry + 239.5 + frame.dy};
    };
    for (const TruthStar& star : maker.Sky().Stars()) {
      const auto [x, y] = place(star);
      if (x < 20 || y < 20 || x > o.width - 21 || y > o.height - 21 || star.flux < 1500) continue;
      const bool crowded = std::any_of(maker.Sky().Stars().begin(), maker.Sky().Stars().end(),
                                       [&, x = x, y = y](const TruthStar& other) {
                                         const auto [ox, oy] = place(other);
                                         return &other != &star && std::hypot(ox - x, oy - y) < 45;
                                       });
      if (crowded) continue;
      const bool mono = o.mosaic == SensorMosaic::Mono;
      for (int site = 0; site < (mono ? 1 : 4); ++site) {
        double cx = 0.0;
        double cy = 0.0;
        ASSERT_TRUE(Centroid(image, o.width, o.height, x, y, site >> 1, site & 1, mono ? 1 : 2, cx, cy));
        EXPECT_NEAR(cx, x, 0.01) << name << " frame " << frame.index << " site " << site;
        EXPECT_NEAR(cy, y, 0.01) << name << " frame " << frame.index << " site " << site;
        ++checked;
      }
    }
  }
  EXPECT_GT(checked, 12);
}

INSTANTIATE_TEST_SUITE_P(All, SimulateGeometry,
                         testing::Values(GeometryCase{SensorMosaic::Mono, StarProfile::Moffat, 0.5},
                                         GeometryCase{SensorMosaic::Mono, StarProfile::Gaussian, 180.0},
                                         GeometryCase{SensorMosaic::Rggb, StarProfile::Gaussian, 3.0},
                                         GeometryCase{SensorMosaic::Gbrg, StarProfile::Moffat, 40.0}));

TEST(SimulateScene, NebulaMovesWithTheStars) {
  SimulateOptions o = Plain(150, 110);
  o.nebula = 1000.0;
  o.rotationDegrees = 180.0;
  o.driftPixels = 10.0;
  const NightMaker maker(o);
  const auto seen = [&](double dx, double dy, double theta) {
    TruthFrame frame;
    std::tie(frame.dx, frame.dy, frame.theta, frame.fwhm) = std::tuple(dx, dy, theta, 3.0);
    std::vector<float> image(static_cast<std::size_t>(o.width) * o.height);
    maker.Sky().AddRows(maker.Sky().See(frame), 0, o.height, -1, image.data());
    return image;
  };
  const std::vector<float> still = seen(0, 0, 0), moved = seen(3, -2, 0), turned = seen(0, 0, 180);
  EXPECT_GT(*std::max_element(still.begin(), still.end()), 500.0f);
  for (int y = 0; y < o.height - 2; ++y) {
    for (int x = 3; x < o.width; ++x) {
      ASSERT_NEAR(moved[y * o.width + x], still[(y + 2) * o.width + x - 3], 0.01) << x << " " << y;
      ASSERT_NEAR(turned[y * o.width + x], still[(o.height - 1 - y) * o.width + o.width - 1 - x], 0.01);
    }
  }
}

TEST(SimulateScene, SitesPassTheirColour) {
  for (const char* name : {"RGGB", "GRBG", "BGGR", "GBRG"}) {
    SimulateOptions o = Plain(64, 51);
    o.stars = 5000.0;
    o.nebula = 500.0;
    o.mosaic = *MosaicFromName(name);
    NightMaker maker(o);
    const std::vector<float> mosaic = SceneOf(maker, o, 1, -1);
    const std::vector<float> planes[3] = {SceneOf(maker, o, 1, 0), SceneOf(maker, o, 1, 1), SceneOf(maker, o, 1, 2)};
    ASSERT_NE(planes[0], planes[2]);
    for (int y = 0; y < o.height; ++y) {
      for (int x = 0; x < o.width; ++x) {
        const std::size_t at = static_cast<std::size_t>(y) * o.width + x;
        const std::size_t colour = std::string("RGB").find(name[(y % 2) * 2 + x % 2]);
        ASSERT_EQ(mosaic[at], planes[colour][at]) << name << " " << x << " " << y;
      }
    }
  }
}

TEST(SimulateDetector, NoiseFollowsTheGain) {
  SimulateOptions o = Plain(400, 300);
  o.gain = 2.5;
  o.readNoise = 8.0;
  o.offset = 300.0;
  o.darkCurrent = 0.05;
  NightMaker maker(o);
  const double readVariance = o.readNoise * o.readNoise / (o.gain * o.gain) + 1.0 / 12.0;
  const struct {
    FrameKind kind;
    double mean;  // 0: what the frame says
  } cases[] = {{FrameKind::Bias, 300.0},
               {FrameKind::Dark, 300.0 + 0.05 * 120.0 / 2.5},
               {FrameKind::Light, 300.0 + (0.05 * 120.0 + o.sky) / 2.5},
               {FrameKind::Flat, 0.0}};
  for (const auto& c : cases) {
    std::vector<double> a;
    for (const std::uint16_t v : Frame(maker, o, c.kind, 0)) a.push_back(v);
    const double mean = MomentsOf(a).mean;
    if (c.mean > 0.0) {
      EXPECT_NEAR(mean, c.mean, 0.12);
    } else {
      EXPECT_GT(mean, 8000.0);
    }
    // The difference of two frames is free of fixed patterns once the levels of two flats are made equal.
    const std::vector<std::uint16_t> b = Frame(maker, o, c.kind, 1);
    const double levelA = mean - 300.0;
    const double levelB = MomentsOf(b).mean - 300.0;
    const double scale = c.kind == FrameKind::Flat ? levelA / levelB : 1.0;
    for (std::size_t i = 0; i < a.size(); ++i) a[i] -= scale * (b[i] - 300.0);
    const double expected = (levelA + scale * scale * levelB) / o.gain + (1.0 + scale * scale) * readVariance;
    EXPECT_NEAR(MomentsOf(a).variance / expected, 1.0, 0.02) << static_cast<int>(c.kind);
  }
}

TEST(SimulateDetector, DefectsAreWhereTheTruthSays) {
  SimulateOptions o = Plain(300, 200);
  o.hotPixels = 600.0;
  o.coolPixels = 600.0;
  o.vignetting = 0.4;
  NightMaker maker(o);
  const NightTruth truth = maker.Truth();
  const std::vector<std::uint16_t> dark = Frame(maker, o, FrameKind::Dark, 0);
  const std::vector<std::uint16_t> flat = Frame(maker, o, FrameKind::Flat, 0);
  ASSERT_GT(truth.hotPixels.size(), 25u);
  ASSERT_GT(truth.coolPixels.size(), 25u);
  for (const TruthPixel& p : truth.hotPixels) {
    const double electrons = p.value * o.exposure;
    EXPECT_NEAR(dark[p.y * o.width + p.x], o.offset + electrons, 6.0 * std::sqrt(electrons + 20.0));
  }
  EXPECT_EQ(std::count_if(dark.begin(), dark.end(), [](std::uint16_t v) { return v > 560; }),
            static_cast<std::ptrdiff_t>(truth.hotPixels.size()));
  for (const TruthPixel& p : truth.coolPixels) {
    const int beside = p.x > 0 ? p.x - 1 : p.x + 1;
    const double here = flat[p.y * o.width + p.x] - o.offset;
    const double there = flat[p.y * o.width + beside] - o.offset;
    EXPECT_NEAR(here / there, p.value, 0.06);
  }
  const auto corner = flat[o.width * o.height - 1] - o.offset;
  const auto middle = flat[o.width * (o.height / 2) + o.width / 2] - o.offset;
  EXPECT_NEAR(corner / middle, 0.6, 0.05);
}

TEST(SimulateOptionsCheck, RefusesWhatItCannotMake) {
  EXPECT_FALSE(Check(SimulateOptions{}));
  const struct {
    void (*spoil)(SimulateOptions&);
    const char* word;
  } cases[] = {
      {[](SimulateOptions& o) { o.width = 31; }, "width"},
      {[](SimulateOptions& o) { o.height = 30000; }, "height"},
      {[](SimulateOptions& o) { o.lights = 0; }, "lights"},
      {[](SimulateOptions& o) { o.flats = -1; }, "flats"},
      {[](SimulateOptions& o) { o.badFrames = o.lights; }, "bad frames"},
      {[](SimulateOptions& o) { o.gain = 0.0; }, "gain"},
      {[](SimulateOptions& o) { o.fwhm = std::numeric_limits<double>::quiet_NaN(); }, "fwhm"},
      {[](SimulateOptions& o) { o.sky = std::numeric_limits<double>::infinity(); }, "sky"},
      {[](SimulateOptions& o) { o.vignetting = 1.0; }, "vignetting"},
      {[](SimulateOptions& o) { o.filter = "H\nalpha"; }, "filter"},
  };
  Folder folder;
  for (const auto& c : cases) {
    SimulateOptions o;
    c.spoil(o);
    const auto message = Check(o);
    ASSERT_TRUE(message) << c.word;
    EXPECT_EQ(message->rfind(c.word, 0), 0u) << *message;
    EXPECT_EQ(message->find('\n'), std::string::npos);
    const SimulateResult result = Simulate(o, folder / "night");
    EXPECT_EQ(result.error, *message);
  }
  EXPECT_TRUE(fs::is_empty(folder.Path()));
  EXPECT_FALSE(MosaicFromName("RGBG"));
}

TEST(SimulateFolder, HoldsWhatWasMade) {
  Folder folder;
  SimulateOptions o;
  o.width = 70;
  o.height = 40;
  o.mosaic = SensorMosaic::Gbrg;
  o.lights = 3;
  o.darks = 1;
  o.biases = 0;
  o.badFrames = 1;
  std::int64_t last = 0;
  SimulateProgress progress;
  progress.report = [&](std::int64_t done, std::int64_t total) {
    EXPECT_EQ(done, last + 1);
    EXPECT_EQ(total, 9);
    last = done;
  };
  const fs::path night = folder / "deep/night";
  const SimulateResult result = Simulate(o, night.string() + "/", progress);
  ASSERT_TRUE(result.Ok()) << result.error;
  EXPECT_EQ(last, 9);
  const auto files = Tree(night);
  EXPECT_EQ(files.count("biases"), 0u);
  EXPECT_EQ(files.count("flats/flat_00005.fit"), 1u);
  EXPECT_EQ(files.size(), 9u + 3u + 1u);

  const std::string& light = files.at("lights/light_00002.fit");
  ASSERT_EQ(light.size() % 2880, 0u);
  const std::size_t data = light.find(" END     ");
  ASSERT_NE(data, std::string::npos);
  const std::size_t start = (data / 2880 + 1) * 2880;
  for (const char* card : {"BITPIX  =                   16", "BAYERPAT= 'GBRG", "IMAGETYP= 'Light Frame'",
                           "ROWORDER= 'TOP-DOWN'", "DATE-OBS= '2024-10-05T19:32:02.500'", "EXPTIME =", "CCD-TEMP="}) {
    EXPECT_NE(light.substr(0, start).find(card), std::string::npos) << card;
  }
  NightMaker maker(o);
  const std::vector<std::uint16_t> samples = Frame(maker, o, FrameKind::Light, 1);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const int high = static_cast<unsigned char>(light[start + 2 * i]);
    const int low = static_cast<unsigned char>(light[start + 2 * i + 1]);
    ASSERT_EQ((high << 8 | low) ^ 0x8000, samples[i]) << i;
  }

  std::string error;
  const auto truth = ReadTruth((night / "truth.json").string(), error);
  ASSERT_TRUE(truth) << error;
  EXPECT_EQ(truth->frames.size(), 3u);
  EXPECT_EQ(std::count_if(truth->frames.begin(), truth->frames.end(), [](const TruthFrame& f) { return f.bad; }), 1);
  for (std::size_t i = 0; i < 3; ++i) {
    const auto told = [](const TruthFrame& f) {
      return std::tuple(f.file, f.dx, f.dy, f.theta, f.fwhm, f.transparency, f.sky, f.gradientX, f.trails.size());
    };
    EXPECT_EQ(told(truth->frames[i]), told(maker.Frames()[i]));
  }
  const NightTruth made = maker.Truth();
  ASSERT_EQ(truth->stars.size(), made.stars.size());
  EXPECT_EQ(truth->stars.front().flux, made.stars.front().flux);
  EXPECT_EQ(truth->stars.back().colour[2], made.stars.back().colour[2]);
  EXPECT_EQ(truth->hotPixels.size(), made.hotPixels.size());
}

TEST(SimulateFolder, KeepsWhatIsNotItsOwn) {
  Folder folder;
  SimulateOptions o = Plain(48, 40);
  ASSERT_TRUE(Simulate(o, folder.Path()).Ok());
  const auto before = Tree(folder.Path());
  o.lights = 2;
  EXPECT_NE(Simulate(o, folder.Path()).error.find("already holds a night"), std::string::npos);
  EXPECT_TRUE(Tree(folder.Path()) == before);

  test::WriteBytes(folder / "lights/mine.fit", "x");
  o.force = true;
  ASSERT_TRUE(Simulate(o, folder.Path()).Ok());
  const auto after = Tree(folder.Path());
  EXPECT_EQ(after.count("lights/light_00003.fit"), 0u);
  EXPECT_EQ(after.at("lights/mine.fit"), "x");
  // Behind the header, which tells another time.
  EXPECT_TRUE(after.at("darks/dark_00002.fit").substr(2880) == before.at("darks/dark_00002.fit").substr(2880));

  const fs::path file = folder / "lights/mine.fit";
  EXPECT_FALSE(Simulate(o, file.string()).Ok());
  EXPECT_FALSE(Simulate(o, (file / "night").string()).Ok());
  EXPECT_FALSE(Simulate(o, "").Ok());
  EXPECT_EQ(test::ReadBytes(file), "x");
}

TEST(SimulateFolder, CancelAndFailureLeaveNothing) {
  Folder folder;
  int asked = 0;
  SimulateProgress progress;
  progress.cancelled = [&] { return ++asked > 5; };
  const SimulateResult cancelled = Simulate(Plain(48, 40), folder / "a/b", progress);
  EXPECT_TRUE(cancelled.cancelled && !cancelled.Ok());
  EXPECT_EQ(cancelled.frames, 5);
  EXPECT_TRUE(fs::is_empty(folder.Path()));
  // A file where the flats' folder should go: fails after lights and darks were written.
  test::WriteBytes(folder / "flats", "x");
  const SimulateResult failed = Simulate(Plain(48, 40), folder.Path());
  EXPECT_NE(failed.error.find("flats is not a folder"), std::string::npos) << failed.error;
  EXPECT_EQ(Tree(folder.Path()).size(), 1u);
}

TEST(SimulateTruth, ReadsOtherGeneratorsAndRefusesNonsense) {
  Folder folder;
  const std::string path = (folder / "truth.json");
  const auto read = [&](const std::string& text) {
    std::ofstream(path, std::ios::trunc) << text;
    std::string error;
    const auto truth = ReadTruth(path, error);
    EXPECT_EQ(truth.has_value(), error.empty()) << text;
    return truth;
  };
  const auto truth = read(
      R"({"arguments": {"width": 100, "height": 50, "bayer": true}, "centre": [49.5, 24.5], "offset": 500.0,
          "frames": [{"index": 0, "dx": 0.0, "dy": 0, "theta_deg": 0.0}, {"index": 7, "dx": 1.5, "dy": -2, "theta_deg": 0.25}],
          "stars": [[10.5, 20.25, 1000.0], "what", [1]]})");
  ASSERT_TRUE(truth);
  EXPECT_EQ(truth->frames[1].file, "light_00008.fit");
  EXPECT_EQ(truth->frames[1].dy, -2.0);
  EXPECT_EQ(truth->centreX, 49.5);
  ASSERT_EQ(truth->stars.size(), 1u);
  EXPECT_EQ(truth->stars[0].y, 20.25);
  for (const char* bad :
       {"", "[]", "{\"frames\": []}", "{\"arguments\": {\"width\": 10, \"height\": 10}, \"frames\": [{\"index\": 1}]}",
        "{\"arguments\": {\"width\": \"x\", \"height\": 10}, \"frames\": [{}]}",
        "{\"arguments\": {\"width\": 1e300, \"height\": 10}, \"frames\": [3]}"}) {
    EXPECT_FALSE(read(bad)) << bad;
  }
  std::string error;
  EXPECT_FALSE(ReadTruth(folder / "none.json", error));
  EXPECT_FALSE(ReadTruth(folder.Path(), error));
}

TEST(SimulateTruth, ComparesGeometry) {
  NightTruth truth;
  truth.width = 401;
  truth.height = 201;
  for (int i = 0; i < 4; ++i) {
    TruthFrame frame;
    frame.index = i;
    frame.file = "light_0000" + std::to_string(i + 1) + ".fit";
    frame.dx = 4.0 * i;
    frame.dy = -1.5 * i;
    frame.theta = 30.0 * i;
    truth.frames.push_back(frame);
  }
  std::vector<MeasuredGeometry> measured;
  for (const TruthFrame& f : truth.frames) measured.push_back({"/some/where/" + f.file, f.dx, f.dy, f.theta - 360.0});
  GeometryError error = CompareGeometry(truth, measured);
  EXPECT_EQ(error.frames, 3);
  EXPECT_NEAR(error.gridRms, 0.0, 1e-9);
  EXPECT_NEAR(error.rotationRms, 0.0, 1e-9);

  for (MeasuredGeometry& m : measured) {
    m.dx += 0.3;
    m.dy -= 0.4;
  }
  error = CompareGeometry(truth, measured);
  EXPECT_NEAR(error.shiftRms, 0.5, 1e-9);
  EXPECT_NEAR(error.gridRms, 0.5, 1e-9);

  // One frame of three turned too far by 0.1 degrees: the grid's mean square radius is 5/12 of each half side squared.
  for (std::size_t i = 0; i < 4; ++i) measured[i] = {truth.frames[i].file, 4.0 * i, -1.5 * i, 30.0 * i};
  measured[2].angle += 0.1;
  measured.push_back({"stranger.fit", 0, 0, 0});
  measured.erase(measured.begin() + 1);
  error = CompareGeometry(truth, measured);
  EXPECT_EQ(error.frames, 2);
  EXPECT_EQ(error.unknown, 1);
  EXPECT_EQ(error.missing, 1);
  EXPECT_EQ(error.worstFile, "light_00003.fit");
  EXPECT_NEAR(error.rotationRms, 0.1 / std::sqrt(2.0), 1e-9);
  const double turn = 2.0 * std::sin(0.05 * M_PI / 180.0);
  EXPECT_NEAR(error.gridRms, turn * std::sqrt(5.0 / 12.0 * (200.0 * 200.0 + 100.0 * 100.0) / 2.0), 1e-9);
  EXPECT_NEAR(error.gridMax, turn * std::hypot(200.0, 100.0), 1e-9);

  // Seen from frame 2: where a point of its picture goes to in frame 4, worked out by hand through frame 1.
  const auto map = [](const TruthFrame& f, double x, double y, bool inverse) {
    const double a = f.theta * M_PI / 180.0 * (inverse ? -1.0 : 1.0);
    if (inverse) x -= f.dx, y -= f.dy;
    const double u = std::cos(a) * (x - 200.0) - std::sin(a) * (y - 100.0) + 200.0;
    const double v = std::sin(a) * (x - 200.0) + std::cos(a) * (y - 100.0) + 100.0;
    return inverse ? std::pair{u, v} : std::pair{u + f.dx, v + f.dy};
  };
  const auto [rx, ry] = map(truth.frames[1], 200.0, 100.0, true);
  const auto [x, y] = map(truth.frames[3], rx, ry, false);
  error = CompareGeometry(truth, {{"light_00004.fit", x - 200.0, y - 100.0, 60.0}}, "night/light_00002.fit");
  EXPECT_EQ(error.frames, 1);
  EXPECT_EQ(error.missing, 2);
  EXPECT_NEAR(error.gridMax, 0.0, 1e-9);
}

}  // namespace
}  // namespace qmr
