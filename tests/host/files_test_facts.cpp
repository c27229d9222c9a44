// What the headers say: mosaic, facts of the frame, and how they come into an image and onto the terminal.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>

#include "files_test_support.h"
#include "host/files/info.h"
#include "host/files/mosaic.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr::test {
namespace {

MosaicLayout Resolve(std::vector<Keyword> keywords, int height = 100, std::optional<int> camera = {},
                     std::optional<std::string> user = {}, int planes = 1) {
  const auto layout = ResolveMosaic({keywords, height, planes, camera, std::move(user)});
  EXPECT_TRUE(layout) << layout.Error().reason;
  return layout ? *layout : MosaicLayout{};
}

// Letter of a site by the developer's numbers, written down apart from the code under test: 0 is even, 1 odd.
char Letter(int number, int row, int column) {
  const int first[5][2] = {{}, {0, 0}, {0, 1}, {1, 1}, {1, 0}};
  if (row == first[number][0] && column == first[number][1]) return 'R';
  if (row != first[number][0] && column != first[number][1]) return 'B';
  return 'G';
}

TEST(Mosaic, EveryPatternOffsetAndRowOrder) {
  for (const char* letters : {"RGGB", "GRBG", "BGGR", "GBRG"}) {
    for (int variant = 0; variant < 16; ++variant) {
      const int xOffset = variant & 1;
      const int yOffset = variant >> 1 & 1;
      const bool bottomUp = variant >> 2 & 1;
      const int height = variant >> 3 & 1 ? 101 : 100;
      const MosaicLayout layout = Resolve(
          {Keyword::Text("BAYERPAT", letters), Keyword::Integer("XBAYROFF", xOffset),
           Keyword::Integer("YBAYROFF", yOffset), Keyword::Text("ROWORDER", bottomUp ? "BOTTOM-UP" : "TOP-DOWN")},
          height);
      ASSERT_EQ(layout.kind, MosaicLayout::Kind::Bayer);
      // Site by site: the picture as displayed, laid over memory.
      for (int row = 0; row < 2; ++row) {
        const int displayed = bottomUp ? height - 1 - row : row;
        for (int column = 0; column < 2; ++column) {
          EXPECT_EQ(Letter(layout.number, row, column), letters[(displayed + yOffset) % 2 * 2 + (column + xOffset) % 2])
              << letters << " variant " << variant;
        }
      }
    }
  }
}

TEST(Mosaic, WordsAsProgramsWriteThem) {
  EXPECT_EQ(Resolve({Keyword::Text("BAYERPAT", "RGGB")}).text, "RGGB from BAYERPAT");
  EXPECT_EQ(Resolve({Keyword::Text("COLORTYP", " 'gbrg' ")}).number, 4);
  EXPECT_EQ(Resolve({Keyword::Text("BAYERPAT", "TRUE")}).number, 1);
  EXPECT_EQ(Resolve({Keyword::Logical("BAYERPAT", true), Keyword::Text("COLORTYP", "BGGR")}).number, 3);
  EXPECT_EQ(Resolve({Keyword::Text("BAYERPAT", "RGGB"), Keyword::Real("BAYOFFX", 3.0)}).number, 2);
  EXPECT_EQ(Resolve({Keyword::Text("BAYERPAT", "RGGB"), Keyword::Text("ybayroff", "-1")}).number, 4);
  EXPECT_EQ(Resolve({Keyword::Text("BAYERPAT", "NONE")}, 100, 3).kind, MosaicLayout::Kind::None);
  EXPECT_EQ(Resolve({Keyword::Text("BAYERPAT", "CYGM")}, 100, 3).kind, MosaicLayout::Kind::Unsupported);
  EXPECT_EQ(Resolve({}).kind, MosaicLayout::Kind::None);
  const MosaicLayout turned = Resolve({Keyword::Text("BAYERPAT", "RGGB"), Keyword::Text("ROWORDER", "bottom-up")});
  EXPECT_EQ(turned.text, "GBRG from BAYERPAT RGGB, rows bottom-up");
}

TEST(Mosaic, WhoIsBelieved) {
  const std::vector<Keyword> rggb = {Keyword::Text("BAYERPAT", "RGGB")};
  EXPECT_EQ(Resolve(rggb, 100, 3).number, 1);
  EXPECT_EQ(Resolve({}, 100, 3).number, 3);
  EXPECT_EQ(Resolve({}, 100, 11).kind, MosaicLayout::Kind::HoneyComb);
  EXPECT_EQ(Resolve({}, 100, 5).kind, MosaicLayout::Kind::Unsupported);
  EXPECT_EQ(Resolve(rggb, 100, 3, "grbg").number, 2);
  EXPECT_EQ(Resolve(rggb, 100, 3, "None").kind, MosaicLayout::Kind::None);
  EXPECT_EQ(Resolve(rggb, 100, 3, "GRBG", 3).kind, MosaicLayout::Kind::None);
  const MosaicLayout honeycomb = Resolve(rggb, 100, 3, "Honeycomb 13");
  EXPECT_EQ(honeycomb.kind, MosaicLayout::Kind::HoneyComb);
  EXPECT_EQ(honeycomb.number, 13);
  for (const char* bad : {"RGB", "15", "honeycomb"}) EXPECT_FALSE(ResolveMosaic({rggb, 100, 1, {}, bad})) << bad;
}

TEST(FrameFacts, WhateverTheKeyword) {
  const auto facts = [](std::vector<Keyword> keywords) { return ReadFrameFacts(keywords); };
  EXPECT_EQ(facts({Keyword::Text("EXPTIME", "40      ")}).exposureSeconds, 40.0);
  EXPECT_EQ(facts({Keyword::Text("EXPTIME", "n/a"), Keyword::Text("EXPOSURE", "1/250")}).exposureSeconds, 0.004);
  EXPECT_FALSE(facts({Keyword::Real("EXPTIME", -1.0)}).exposureSeconds);
  EXPECT_EQ(facts({Keyword::Integer("SET-TEMP", -20), Keyword::Real("CCD-TEMP", -19.5)}).temperatureCelsius, -19.5);
  EXPECT_NEAR(*facts({Keyword::Real("CAMTEMP", 271.0)}).temperatureCelsius, -2.15, 1e-9);
  EXPECT_FALSE(facts({Keyword::Integer("CCD-TEMP", -999)}).temperatureCelsius);
  EXPECT_EQ(facts({Keyword::Text("DATE-OBS", "2022-10-23"), Keyword::Text("TIME-OBS", "08:31:24")}).date,
            "2022-10-23T08:31:24");
  EXPECT_FALSE(facts({Keyword::Text("ISOSPEED", "Default")}).iso);
  const FrameFacts canon = facts({Keyword::Text("INSTRUME", "Canon EOS 5D")});
  EXPECT_EQ(canon.maker + "|" + canon.model, "Canon|EOS 5D");
  const FrameFacts nikon = facts({Keyword::Text("INSTRUME", "NIKON D70")});
  EXPECT_EQ(nikon.maker + "|" + nikon.model, "NIKON|NIKON D70");
  EXPECT_EQ(facts({Keyword::Text("INSTRUME", "ZWO CCD ASI224MC")}).model, "");
}

DecodedImage Decoded(const std::string& bytes) {
  const TemporaryFolder folder;
  WriteBytes(folder / "image.fits", bytes);
  auto image = ReadImageFile(folder / "image.fits");
  EXPECT_TRUE(image) << image.Error().Message();
  return std::move(*image);
}

TEST(FillingImages, PixelsLevelsHeaderAndOrigin) {
  const std::string data = BigEndian(-32, -3) + BigEndian(-32, std::nan("")) + BigEndian(-32, 7) + BigEndian(-32, 1) +
                           BigEndian(-32, 2) + BigEndian(-32, 3);
  const DecodedImage decoded = Decoded(
      FitsHeader(PrimaryCards(-32, {3, 2}, {"EXPTIME = 1.5", "CCD-TEMP= -10", "INSTRUME= 'Cam'", "ISOSPEED= 800"})) +
      Padded(data));
  CVynImage image;
  ASSERT_FALSE(FillImage(decoded, image));
  EXPECT_EQ(image.GetWidth(), 3);
  EXPECT_EQ(image.GetBitsPixel(), -32);
  EXPECT_EQ(image.IsColor(), 0);
  EXPECT_EQ(image.GetPixel(2, 0, 0), 7.0);
  EXPECT_TRUE(std::isnan(image.GetPixel(1, 0, 0)));
  EXPECT_EQ(image.GetPixel(0, 1, 0), 1.0);
  EXPECT_EQ(image.GetLevelMin(0), -3.0);
  EXPECT_EQ(image.GetLevelMax(0), 7.0);
  EXPECT_EQ(image.GetOrgBitsPixel(), -32);
  EXPECT_EQ(image.GetOrgHeight(), 2);
  double exposure = 0.0;
  double temperature = 0.0;
  CString detector;
  image.GetHeader()->GetExposureTime(&exposure);
  image.GetHeader()->GetCoolingTemperature(&temperature);
  image.GetHeader()->GetDetector(detector);
  EXPECT_EQ(exposure, 1.5);
  EXPECT_EQ(temperature, -10.0);
  EXPECT_TRUE(detector == L"Cam");
  EXPECT_EQ(image.GetHeader()->GetISO(), 800);
  EXPECT_TRUE(image.IsCcd());

  // A colour image has one range for all planes; a shape that no image has leaves the image alone.
  CVynImage colour;
  ASSERT_FALSE(FillImage(Decoded(SmallFits(5, 4, 3)), colour));
  EXPECT_TRUE(colour.IsColor());
  for (int plane = 0; plane < 3; ++plane) EXPECT_EQ(colour.GetLevelMax(plane), 59.0);
  EXPECT_TRUE(FillImage(Decoded(SmallFits(5, 4, 2)), colour));
  EXPECT_EQ(colour.GetPlanes(), 3);
  CVynImage flat;
  ASSERT_FALSE(FillImage(Decoded(FitsHeader(PrimaryCards(8, {2, 2})) + Padded("\5\5\5\5")), flat));
  EXPECT_EQ(flat.GetLevelMin(0), 5.0);
  EXPECT_GT(flat.GetLevelRange(0), 0.0);
}

TEST(Info, StatisticsOfFinitePixels) {
  // A ramp along the rows with known noise-free steps, one blank.
  std::string data;
  for (int i = 0; i < 20; ++i) data += BigEndian(16, i == 7 ? -1 : 10 * (i % 5));
  const DecodedImage image = Decoded(FitsHeader(PrimaryCards(16, {5, 4}, {"BLANK   = -1"})) + Padded(data));
  const PlaneStatistics s = MeasurePlane(image, 0);
  EXPECT_EQ(s.pixels, 19);
  EXPECT_EQ(s.blank, 1);
  EXPECT_EQ(s.minimum, 0.0);
  EXPECT_EQ(s.maximum, 40.0);
  EXPECT_DOUBLE_EQ(s.mean, 380.0 / 19.0);
  EXPECT_EQ(s.median, 20.0);
  EXPECT_NEAR(s.deviation, std::sqrt((19.0 * 11600.0 - 380.0 * 380.0) / (19.0 * 19.0)), 1e-9);
  EXPECT_DOUBLE_EQ(s.noise, 20.0 * 1.4826 / std::sqrt(2.0));
}

TEST(Info, TextAndJson) {
  const TemporaryFolder folder;
  WriteBytes(folder / "a.fits",
             FitsHeader(PrimaryCards(
                 16, {6, 4}, {"BZERO   = 32768", "EXPTIME = 6.0", "BAYERPAT= 'GRBG'", "OBJECT  = 'M\xFC\x1B[1m'"})) +
                 Padded(std::string(48, '\1')));
  WriteBytes(folder / "b.fits", "nothing");
  const std::vector<std::string> paths = {folder / "a.fits", folder / "b.fits"};
  std::ostringstream text;
  std::ostringstream errors;
  EXPECT_EQ(WriteInfo(paths, {}, text, errors), 1);
  EXPECT_NE(text.str().find("6 x 4 pixels, 1 plane"), std::string::npos) << text.str();
  EXPECT_NE(text.str().find("GRBG from BAYERPAT"), std::string::npos);
  EXPECT_EQ(text.str().find('\x1B'), std::string::npos);
  EXPECT_EQ(errors.str(), folder / "b.fits" + ": not a FITS or camera raw file\n");

  InfoOptions options;
  options.json = true;
  options.bayer = "BGGR";
  std::ostringstream json;
  EXPECT_EQ(WriteInfo(paths, options, json, errors), 1);
  const auto told = nlohmann::json::parse(json.str());
  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(told[0]["width"], 6);
  EXPECT_EQ(told[0]["exposureSeconds"], 6.0);
  EXPECT_EQ(told[0]["mosaic"]["number"], 3);
  EXPECT_EQ(told[0]["statistics"][0]["mean"], 32768.0 + 257.0);
  EXPECT_TRUE(told[0]["temperatureCelsius"].is_null());
  EXPECT_EQ(told[1]["error"], "not a FITS or camera raw file");
}

}  // namespace
}  // namespace qmr::test
