#include <gtest/gtest.h>

#include "qmrimg/raw/information.h"

namespace qmr::test {
namespace {

int PatternOf(const wchar_t* maker, const wchar_t* model) {
  CImgInformation image;
  image.GetHeader()->SetCameraMaker(maker);
  image.GetHeader()->SetCameraModel(model);
  int pattern = -7;
  const int found = image.GetAutoCFA(&pattern);
  EXPECT_EQ(found != 0, pattern != -7);
  return found ? pattern : 0;
}

// The order of the rows, whole names and the exception decide these.
TEST(Information, CamerasWhoseRowsOverlap) {
  struct Case {
    const wchar_t* maker;
    const wchar_t* model;
    int pattern;
  };
  const Case cases[] = {{L"Canon", L"EOS 5D", 1},
                        {L"Canon", L"Canon EOS 5D", 0},
                        {L"Canon", L"Canon EOS 5D Mark II", 4},
                        {L"Canon", L"EOS 5D Mark III", 1},
                        {L"Canon", L"Canon EOS 5D Mark III", 4},
                        {L"Canon", L"Canon EOS-1D", 2},
                        {L"Canon", L"Canon EOS-1D Mark II N", 1},
                        {L"Canon", L"Canon EOS-1Ds Mark II", 4},
                        {L"Canon", L"Canon EOS-1Ds", 2},
                        {L"Canon", L"Canon EOS REBEL T3", 1},
                        {L"Canon", L"Canon EOS REBEL T3i", 4},
                        {L"Canon", L"Canon EOS Kiss X50", 1},
                        {L"Canon", L"Canon EOS Kiss X5", 4},
                        {L"Canon", L"Canon EOS M", 0},
                        {L"Canon", L"EOS M", 1},
                        {L"NIKON CORPORATION", L"NIKON D1", 3},
                        {L"NIKON CORPORATION", L"NIKON D100", 2},
                        {L"NIKON CORPORATION", L"NIKON D70", 3},
                        {L"NIKON CORPORATION", L"NIKON D7000", 1},
                        {L"NIKON CORPORATION", L"NIKON D40", 3},
                        {L"NIKON CORPORATION", L"NIKON D40X", 4},
                        {L"NIKON CORPORATION", L"NIKON D3000", 4},
                        {L"NIKON CORPORATION", L"NIKON D3S", 1},
                        {L"NIKON CORPORATION", L"NIKON D5", 0},
                        {L"NIKON", L"E5700", 5},
                        {L"PENTAX Corporation", L"PENTAX K10D", 1},
                        {L"PENTAX", L"PENTAX K-5", 3},
                        {L"FUJIFILM", L"FinePixS2Pro", 11},
                        {L"OLYMPUS IMAGING CORP.", L"E-3", 1},
                        {L"OLYMPUS IMAGING CORP.", L"E-30", 3},
                        {L"OLYMPUS IMAGING CORP.", L"E-300", 1},
                        {L"OLYMPUS IMAGING CORP.", L"E-1", 2},
                        {L"OLYMPUS IMAGING CORP.", L"E-10", 1},
                        {L"KONICA MINOLTA", L"DYNAX 7D", 1},
                        {L"MINOLTA", L"DYNAX 7D", 0},
                        {L"SONY", L"NIKON D100", 0},
                        {L"", L"EOS 5D", 0},
                        {L"Canon", L"", 0}};
  for (const Case& c : cases)
    EXPECT_EQ(PatternOf(c.maker, c.model), c.pattern) << NarrowUtf8(c.maker) << ", " << NarrowUtf8(c.model);
}

TEST(Information, Texts) {
  CImgInformation image;
  CHeader& header = *image.GetHeader();
  header.SetDetector(L"KAF-8300");
  CString detector(L"?"), exposure(L"?"), temperature(L"?");
  image.GetInfoString(detector, exposure, temperature);
  EXPECT_TRUE(detector == L"KAF-8300");
  EXPECT_TRUE(exposure == L"?");
  EXPECT_TRUE(temperature == L"?");

  header.SetExposureTime(1.239);
  header.SetCoolingTemperature(-20.0625);
  image.GetInfoString(detector, exposure, temperature);
  EXPECT_TRUE(exposure == L"1.24秒");
  EXPECT_TRUE(temperature == L"-20.1度");

  header.SetCameraModel(L"EOS 20Da");
  image.GetInfoString(detector, exposure, temperature);
  EXPECT_TRUE(detector == L"EOS 20Da");
  EXPECT_TRUE(exposure == L"1.24秒");
  EXPECT_TRUE(temperature.IsEmpty());

  header.SetExposureShutterSpeed(L"1/250");
  image.GetInfoString(detector, exposure, temperature);
  EXPECT_TRUE(exposure == L"1/250");
}

}  // namespace
}  // namespace qmr::test
