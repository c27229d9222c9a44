// Raw files of digital cameras. The DNGs are made here tag by tag, so that every pixel is known.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <nlohmann/json.hpp>

#include "files_test_support.h"
#include "host/files/mosaic.h"
#include "host/night/frame.h"
#include "host/night/night.h"

namespace qmr::test {
namespace {

struct DngMaker {
  int width = 40, height = 40;  // of the whole sensor
  int left = 6, top = 4, right = 2, bottom = 4;
  std::string cfa = {0, 1, 1, 2};  // colours of the visible area's first cell
  int samples = 1;                 // values a pixel; 3 is a linear DNG
  std::vector<unsigned> blacks = {512, 512, 512, 512};
  std::string camera = "Canon EOS 550D";
  std::function<int(int)> flat;  // pixels by their column instead of a gradient

  int VisibleWidth() const { return width - left - right; }
  int VisibleHeight() const { return height - top - bottom; }
  // Masked pixels are brighter than any other, so that one among the others would be seen.
  int Value(int x, int y, int sample = 0) const {
    if (flat) return flat(x);
    const bool visible = x >= left && x < width - right && y >= top && y < height - bottom;
    return visible ? 600 + 7 * x + 250 * y + 3000 * sample : 16000;
  }

  std::string Bytes() const {
    std::map<int, std::string> tags;  // in the order that the format demands; type, count and values as one
    const auto number = [](unsigned value, int bytes) {
      std::string text;
      for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i));
      return text;
    };
    const auto entry = [&](int tag, unsigned type, std::size_t count, const std::string& values) {
      tags[tag] = number(type, 2) + number(static_cast<unsigned>(count), 4) + values;
    };
    const auto whole = [&](int tag, unsigned type, const std::vector<unsigned>& values) {
      std::string text;
      for (const unsigned value : values) text += number(value, type == 3 ? 2 : 4);
      entry(tag, type, values.size(), text);
    };
    const auto text = [&](int tag, const std::string& value) { entry(tag, 2, value.size() + 1, value + '\0'); };
    const auto ratio = [&](int tag, const std::vector<std::pair<unsigned, unsigned>>& values) {
      std::string bytes;
      for (const auto& [over, under] : values) bytes += number(over, 4) + number(under, 4);
      entry(tag, 5, values.size(), bytes);
    };
    const auto u = [](int value) { return static_cast<unsigned>(value); };
    whole(254, 4, {0});
    whole(256, 4, {u(width)});
    whole(257, 4, {u(height)});
    whole(258, 3, std::vector<unsigned>(u(samples), 16));
    whole(259, 3, {1});
    whole(262, 3, {samples == 1 ? 32803U : 34892U});
    text(271, camera.substr(0, camera.find(' ')));
    text(272, camera);
    whole(273, 4, {0});  // the offset, once it is known
    whole(274, 3, {6});  // the camera was held upright
    whole(277, 3, {u(samples)});
    whole(278, 4, {u(height)});
    whole(279, 4, {u(width * height * samples * 2)});
    text(306, "2021:08:12 23:14:05");
    ratio(33434, {{25, 10}});
    if (samples == 1) {
      whole(33421, 3, {2, 2});
      entry(33422, 1, 4, cfa);
    }
    entry(50706, 1, 4, {1, 4, 0, 0});
    text(50708, camera);
    if (samples == 1) {
      whole(50713, 3, {2, 2});
      whole(50714, 4, blacks);
    }
    whole(50717, 4, std::vector<unsigned>(u(samples), 15300));
    ratio(50728, {{1, 2}, {1, 1}, {4, 5}});
    whole(50829, 4, {u(top), u(left), u(height - bottom), u(width - right)});

    const std::size_t directory = 8;
    std::size_t end = directory + 2 + 12 * tags.size() + 4;
    std::map<int, std::size_t> places;
    for (const auto& [tag, value] : tags) {
      places[tag] = end;
      if (value.size() > 10) end += (value.size() - 6 + 1) / 2 * 2;
    }
    tags[273].replace(6, 4, number(static_cast<unsigned>(end), 4));
    std::string head = "II*" + std::string(1, '\0') + number(directory, 4) + number(u(int(tags.size())), 2), behind;
    for (const auto& [tag, value] : tags) {
      std::string values = value.substr(6);
      head += number(u(tag), 2) + value.substr(0, 6);
      if (values.size() > 4) {
        head += number(static_cast<unsigned>(places[tag]), 4);
        behind += values + std::string(values.size() % 2, '\0');
      } else {
        values.resize(4, '\0');
        head += values;
      }
    }
    std::string bytes = head + std::string(4, '\0') + behind;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        for (int s = 0; s < samples; ++s) bytes += number(u(Value(x, y, s)), 2);
    return bytes;
  }
};

class Silence : public Steps {
 public:
  void Begin(const std::string&, std::int64_t) override {}
  void Advance(std::int64_t) override {}
  void End(const std::string&) override {}
  void Warn(const std::string&) override { ++warnings; }
  int warnings = 0;
};

class CameraRaw : public testing::Test {
 protected:
  FileResult<DecodedImage> ReadAs(const std::string& bytes, const std::string& name = "a.dng") const {
    WriteBytes(folder_ / name, bytes);
    ReadOptions options;
    options.timeoutSeconds = 10.0;
    return ReadImageFile(folder_ / name, options);
  }
  static std::string Reason(const FileResult<DecodedImage>& result) { return result ? "" : result.Error().reason; }
  static MosaicLayout Mosaic(const DecodedImage& image) {
    MosaicQuestion question{image.keywords, image.height, image.planes, std::nullopt, std::nullopt};
    return *ResolveMosaic(question);
  }
  static void ExpectPixels(const DecodedImage& image, const DngMaker& truth) {
    ASSERT_EQ(image.width, truth.VisibleWidth());
    ASSERT_EQ(image.height, truth.VisibleHeight());
    ASSERT_EQ(image.planes, truth.samples);
    int wrong = 0;
    for (int p = 0; p < image.planes; ++p)
      for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
          wrong += image.Row(p, y)[x] != static_cast<float>(truth.Value(x + truth.left, y + truth.top, p));
    EXPECT_EQ(wrong, 0);
  }

  const TemporaryFolder folder_;
};

TEST_F(CameraRaw, TheVisibleAreaWithItsPatternAndLevels) {
  const std::pair<std::string, const char*> patterns[] = {
      {{0, 1, 1, 2}, "RGGB"}, {{1, 0, 2, 1}, "GRBG"}, {{2, 1, 1, 0}, "BGGR"}, {{1, 2, 0, 1}, "GBRG"}};
  for (const auto& [cfa, letters] : patterns) {
    SCOPED_TRACE(letters);
    DngMaker dng;
    dng.cfa = cfa;
    const auto image = ReadAs(dng.Bytes());
    ASSERT_TRUE(image) << Reason(image);
    ExpectPixels(*image, dng);
    EXPECT_EQ(Mosaic(*image).text, std::string(letters) + " from BAYERPAT");
  }
  DngMaker dng;
  dng.blacks = {500, 510, 520, 530};
  const auto image = ReadAs(dng.Bytes(), "named.fits");
  ASSERT_TRUE(image) << Reason(image);
  ExpectPixels(*image, dng);
  EXPECT_TRUE(image->IsCameraRaw());
  EXPECT_EQ(image->format, "camera raw, DNG");
  EXPECT_EQ(Mosaic(*image).number, 1);
  const auto number = [&](const char* name) { return KeywordNumber(image->keywords, name).value_or(-1.0); };
  EXPECT_EQ(number("PEDESTAL"), 515.0);
  EXPECT_EQ(number("SATURATE"), 15300.0);
  EXPECT_EQ(number("WB_RED"), 2.0);
  EXPECT_EQ(number("WB_GREEN"), 1.0);
  EXPECT_EQ(number("WB_BLUE"), 1.25);
  const FrameFacts facts = ReadFrameFacts(image->keywords);
  EXPECT_EQ(facts.exposureSeconds, 2.5);
  EXPECT_EQ(facts.date, "2021-08-12T23:14:05");
  EXPECT_EQ(facts.camera, "Canon EOS 550D");
  EXPECT_EQ(facts.model, "EOS 550D");
  // That camera's list says GBRG: what the file says counts.
  LightFrame frame;
  const FrameSource source{folder_ / "named.fits", nullptr};
  const auto loaded = LoadImage(source, frame, std::nullopt);
  EXPECT_EQ(frame.mosaic.number, 1);
  EXPECT_EQ(frame.sensorBlack, 515.0);
  EXPECT_EQ(loaded->GetPixelGrayRaw(0, 0, 0), static_cast<float>(dng.Value(dng.left, dng.top)));
}

// The library lets the visible area begin with a whole cell: what colour a pixel has must not change with that.
TEST_F(CameraRaw, OddMarginsKeepTheColoursInPlace) {
  for (const auto& [left, top] : {std::pair(3, 4), std::pair(6, 5), std::pair(3, 5)}) {
    SCOPED_TRACE(testing::Message() << left << ", " << top);
    DngMaker dng;
    dng.left = left;
    dng.top = top;
    const auto image = ReadAs(dng.Bytes());
    ASSERT_TRUE(image) << Reason(image);
    ASSERT_GE(image->width, dng.VisibleWidth() - 2);
    ASSERT_GE(image->height, dng.VisibleHeight() - 2);
    // Where the first pixel comes from stands in its value.
    const int place = static_cast<int>(image->Row(0, 0)[0]) - 600;
    const int y = place / 250, x = place % 250 / 7;
    ASSERT_EQ(dng.Value(x, y), place + 600);
    EXPECT_EQ(SiteColour(Mosaic(*image).number, 0, 0), SiteColour(1, y - top, x - left));
    EXPECT_EQ(SiteColour(Mosaic(*image).number, 1, 1), SiteColour(1, y - top + 1, x - left + 1));
  }
}

// Without darks and biases the camera's black level is taken off lights and flats.
TEST_F(CameraRaw, StacksWithoutDarksLoseTheBlackLevel) {
  const std::string lights = folder_ / "lights", flats = folder_ / "flats";
  std::filesystem::create_directories(lights);
  std::filesystem::create_directories(flats);
  DngMaker dng;
  dng.width = 120;
  dng.height = 90;
  const int light = 512 + 300, flat = 512 + 4000;
  // The 58 columns on the right get half of the light that the 54 on the left get.
  for (const auto& [folder, bright] : {std::pair(lights, light), std::pair(flats, flat)}) {
    dng.flat = [value = bright](int x) { return x < 60 ? value : 512 + (value - 512) / 2; };
    for (const char* name : {"/IMG_1.DNG", "/IMG_2.DNG"}) WriteBytes(folder + name, dng.Bytes());
  }
  // The first one converted; it is no third frame.
  WriteBytes(lights + "/IMG_1.fit", "not even that");
  EXPECT_EQ(PlanNight(folder_.Path()).lights.size(), 2U);
  std::filesystem::remove(lights + "/IMG_1.fit");
  StackOptions options;
  options.folder = folder_.Path();
  options.align = AlignMode::kNone;
  options.normalise = Normalisation::kNone;
  options.output = folder_ / "stack.fit";
  options.noPreview = true;
  Silence silence;
  const NightResult result = StackNight(options, silence);
  EXPECT_EQ(silence.warnings, 0);
  const auto stack = ReadImageFile(options.output);
  ASSERT_TRUE(stack) << Reason(stack);
  EXPECT_EQ(stack->planes, 3);
  for (int p = 0; p < 3; ++p)
    for (const int x : {10, 80}) EXPECT_NEAR(stack->Row(p, 40)[x], 300.0f * 83.0f / 112.0f, 0.01f) << p << " " << x;
  EXPECT_FALSE(FindKeyword(stack->keywords, "PEDESTAL"));
  EXPECT_FALSE(FindKeyword(stack->keywords, "SATURATE"));
}

TEST_F(CameraRaw, PackedAndLinearFiles) {
  const DngMaker mosaic;
  const auto packed = ReadAs(Gzipped(mosaic.Bytes()), "a.dng.gz");
  ASSERT_TRUE(packed) << Reason(packed);
  EXPECT_EQ(packed->format, "camera raw, DNG, gzip");
  ExpectPixels(*packed, mosaic);
  DngMaker linear;
  linear.samples = 3;
  const auto image = ReadAs(linear.Bytes());
  ASSERT_TRUE(image) << Reason(image);
  ExpectPixels(*image, linear);
  EXPECT_EQ(Mosaic(*image).number, 0);
}

TEST_F(CameraRaw, OtherMosaicsAndOtherFilesAreRefused) {
  DngMaker diagonal;
  diagonal.cfa = {0, 1, 2, 1};
  const auto refused = ReadAs(diagonal.Bytes());
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.Error().kind, FileErrorKind::Unsupported);
  EXPECT_NE(Reason(refused).find("no Bayer mosaic"), std::string::npos) << Reason(refused);
  // Exactly as long as the headerless files of an industrial camera.
  const auto zeros = ReadAs(std::string(1447680, '\0'));
  EXPECT_EQ(Reason(zeros), "not a FITS or camera raw file");
  const auto text = ReadAs("II am a text that begins like a TIFF, and goes on for a while");
  EXPECT_FALSE(text);
}

TEST_F(CameraRaw, DamagedFilesNeverHarmTheProgram) {
  DngMaker dng;
  dng.left = dng.top = dng.right = dng.bottom = 0;
  const std::string whole = dng.Bytes();
  for (std::size_t length = 1; length < whole.size(); length += length < 700 ? 23 : 331) {
    const auto image = ReadAs(whole.substr(0, length));
    ASSERT_FALSE(image) << length;
    EXPECT_NE(image.Error().kind, FileErrorKind::Internal) << Reason(image);
  }
  unsigned state = 2463534242U;
  const auto random = [&state](std::size_t below) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return static_cast<std::size_t>(state) % below;
  };
  int images = 0, errors = 0;
  constexpr std::size_t kHeader = 600;
  for (int turn = 0; turn < 150; ++turn) {
    std::string mutant = whole;
    for (std::size_t flips = 1 + random(3); flips > 0; --flips)
      mutant[random(kHeader)] = static_cast<char>(turn % 3 ? random(256) : 0xFF);
    const auto image = ReadAs(mutant);
    ++(image ? images : errors);
    if (image) {
      EXPECT_EQ(image->Plane(0).size(), image->PlanePixels());
    }
  }
  EXPECT_GT(images, 0);
  EXPECT_GT(errors, 0);
  // A size that nobody has memory for, with the file's few pixels behind it.
  std::string huge = whole;
  huge.replace(huge.find(std::string("\0\1\4\0\1\0\0\0", 8)) + 8, 4, std::string("\xFF\xFF\0\0", 4));
  huge.replace(huge.find(std::string("\1\1\4\0\1\0\0\0", 8)) + 8, 4, std::string("\xFF\xFF\0\0", 4));
  EXPECT_FALSE(ReadAs(huge));
  ExpectPixels(*ReadAs(whole), dng);
}

// The sums over the whole mosaic were taken with the library's own tools.
TEST_F(CameraRaw, RealFiles) {
  const auto data = DataFolder();
  if (!data || !std::filesystem::exists(*data / "raw-a" / "truth.json")) GTEST_SKIP() << "raw-a is not there";
  const auto truth = nlohmann::json::parse(ReadBytes((*data / "raw-a" / "truth.json").string()));
  for (const auto& file : truth["files"]) {
    const std::string name = file["file"];
    SCOPED_TRACE(name);
    const auto image = ReadImageFile((*data / "raw-a" / name).string());
    if (!file["mosaic"].is_object()) {
      EXPECT_EQ(Reason(image), "is a DNG packed with loss, which is not read");
      continue;
    }
    ASSERT_TRUE(image) << Reason(image);
    if (name == "canon_d30.crw") {
      EXPECT_EQ(ReadFrameFacts(image->keywords).iso, 100);
      EXPECT_EQ(KeywordNumber(image->keywords, "PEDESTAL"), 127.75);
    }
    const std::string size = std::to_string(image->width) + " x " + std::to_string(image->height);
    EXPECT_EQ(size, file["libraw"]["Image size"]);
    const std::string pattern = file["libraw"]["Filter pattern"];
    EXPECT_EQ(Mosaic(*image).text, pattern.substr(0, 4) + " from BAYERPAT");
    double sum = 0.0;
    for (const float value : image->Plane(0)) sum += value;
    const double whole = file["mosaic"]["sum"];
    const bool margins = file["libraw"]["Full size"] != file["libraw"]["Image size"];
    if (margins) {
      EXPECT_NEAR(sum, whole, whole * 0.02);
      EXPECT_LT(sum, whole);
    } else {
      EXPECT_EQ(sum, whole);
    }
  }
}

}  // namespace
}  // namespace qmr::test
