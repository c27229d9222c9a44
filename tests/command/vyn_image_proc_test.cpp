#include "qmrimg/command/vyn_image_proc.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "qmrimg/filters/filter_sharp.h"
#include "qmrimg/levels/bright.h"
#include "qmrimg/levels/tone_curve.h"
#include "tests/support/images.h"
#include "tests/support/recording_window.h"

namespace {

using qmr::test::SamePixels;

// The parser and the images, which belong to derived classes.
struct Proc : CVynImageProc {
  using CVynImageProc::atob;
  using CVynImageProc::atoi;
  using CVynImageProc::ProcImage;
  using CVynImageProc::SpritCmd;
};

void Prepare(CVynImage& image, int planes) {
  qmr::test::Shape(image, 23, 17, planes);
  qmr::test::FillNoise(image, 11, -20.0, 300.0);
  for (int p = 0; p < planes; ++p) image.SetLevel(p, 3.0 + p, 220.0 - 7.0 * p);
}

void ExpectLevels(const CVynImage& image, int plane, double min, double max) {
  EXPECT_EQ(image.GetLevelMin(plane), min) << "plane " << plane;
  EXPECT_EQ(image.GetLevelMax(plane), max) << "plane " << plane;
}

TEST(VynImageProc, KeepsWhatItCannotSplitAndDefaults) {
  Proc proc;
  CString name(L"kept"), args(L"kept");
  EXPECT_FALSE(proc.SpritCmd(L" LEVEL", name, args));
  EXPECT_TRUE(name == L"kept" && args == L"kept");
  EXPECT_EQ(proc.atoi(L" N=", L"N", 5), 5);
  EXPECT_EQ(proc.atob(L" B=True", L"B", 0), 1);
  EXPECT_EQ(proc.atob(L" B=1", L"B", 1), 0);
  EXPECT_EQ(proc.atob(L" C=1", L"B", 5), 5);
}

// ---- Chains against the operations called by hand -------------------------------------------------------------------

using Sharpen = void (CImgFilterSharp::*)(double*, double*, int*, double*, double*, int*, double*, double*, int*,
                                          double*, CVynImage*, CRect*, int);
constexpr Sharpen kStandard = &CImgFilterSharp::SharpFilter;
constexpr Sharpen kEdges = &CImgFilterSharp::SharpEdgeFilter;
constexpr Sharpen kMask = &CImgFilterSharp::UnSharpMask;

// Arguments of a sharpening, one value a plane.
struct Limits {
  int minOn[3] = {};
  double min[3] = {}, minBuf[3] = {};
  int maxOn[3] = {};
  double max[3] = {}, maxBuf[3] = {};
  int brighterOn[3] = {};
  double brighter[3] = {};
};
using Planes = std::array<double, 3>;

// The two images of a run, and what happens to them.
struct Pair {
  CVynImage newest;
  CVynImage older;
};
using Step = std::function<void(Pair&)>;

// An operation's object is the older image, its source the newest.
template <class Operation, class Call>
Step Run(const Call& call) {
  return [=](Pair& images) {
    Operation object;
    object.CopyImage(images.older);
    call(object, images);
    images.older.CopyImage(images.newest);
    images.newest.CopyImage(object);
  };
}
Step Sharp(Sharpen method, Planes radius = {1, 1, 1}, Planes weight = {1, 1, 1}, Limits limits = {}) {
  return Run<CImgFilterSharp>([=](auto& object, Pair& images) {
    Planes r = radius, w = weight;
    Limits l = limits;
    (object.*method)(r.data(), w.data(), l.minOn, l.min, l.minBuf, l.maxOn, l.max, l.maxBuf, l.brighterOn, l.brighter,
                     &images.newest, nullptr, 0);
  });
}
// Without an average the mean of the older image is the pivot.
Step Bright(float brightness, float contrast, std::optional<double> average = std::nullopt) {
  return Run<CImgBright>([=](auto& object, Pair& images) {
    const auto mean = [&](int p) { return images.older.GetAvrGray256f(p); };
    float b[] = {brightness, brightness, brightness}, c[] = {contrast, contrast, contrast};
    const double pivot = object.GetPlanes() == 1 ? mean(0) : (mean(0) + mean(1) + mean(2)) / 3.0;
    object.Do(b, c, average.value_or(pivot), &images.newest, nullptr, 0);
  });
}
Step HAlpha(double knee, double output) {
  return Run<CImgToneCurve>(
      [=](auto& object, Pair& images) { object.DoHAlpha(knee, output, &images.newest, nullptr, 0); });
}
void Swap(Pair& images) {
  images.newest.Swap(&images.older);
}
void AutoLevelByHalf(Pair& images) {
  Swap(images);
  images.older.CalcMinMax();
  for (int p = 0; p < images.newest.GetPlanes(); ++p)
    images.newest.SetLevel(p, images.older.GetMinPixel(0), images.older.GetMaxPixel(0) * 0.5);
}
void SetLevels(Pair& images) {
  for (CVynImage* image : {&images.newest, &images.older}) {
    image->SetLevel(0, 10.0, 99.0);
    if (image->GetPlanes() == 1) continue;
    image->SetLevel(1, 4.0, 150.0);
    // Blue has the maximum of green, but in the older image, whose levels the next step works with, that of MAX.
    image->SetLevel(2, 5.0, image == &images.newest ? 150.0 : 99.0);
  }
}

struct Chain {
  const char* name;
  std::wstring text;
  std::vector<Step> steps;
  int result = 1;
};

const std::wstring kKeysByPlane =
    L" RADIUS=2 RADIUS_G=1.5 RADIUS_B=4 WEIGHT=.25 WEIGHT_G=.5 THRESHOLD_MIN=60 THRESHOLD_MIN_B=20 THRESHOLD_MIN_BUF=30"
    L" THRESHOLD_MIN_BUF_G=5 THRESHOLD_MAX_R=200 THRESHOLD_MAX_BUF=9 BRIGHTER_B=-40\n";
Step SharpByPlane(Sharpen method) {
  return Sharp(method, {2.0, 1.5, 4.0}, {.25, .5, .25},
               {{1, 1, 1}, {60, 60, 20}, {30, 5, 30}, {1, 0, 0}, {200}, {9, 9, 9}, {0, 0, 1}, {0, 0, -40}});
}

const Chain kChains[] = {
    {"Empty", L"", {}},
    {"RadiusIsLimited",
     L"sharp METHOD=standard WEIGHT = 2\nSHARP METHOD=STANDARD RADIUS=200\rSHARP METHOD=EDGEONLY RADIUS=0 WEIGHT =2",
     {Sharp(kStandard), Sharp(kStandard, {50, 50, 50}), Sharp(kEdges, {.1, .1, .1}, {2, 2, 2})}},
    {"KeysBehindThoseForRedAreHidden",
     L"SHARP METHOD=STANDARD RADIUS_R=2 RADIUS=3 WEIGHT_R=.5 WEIGHT=9",
     {Sharp(kStandard, {2, 1, 1}, {.5, 1, 1})}},
    {"LimitsOfTheLevels",
     L"SHARP METHOD=STANDARD THRESHOLD_MIN= THRESHOLD_MAX= ",
     {Sharp(kStandard, {1, 1, 1}, {1, 1, 1}, {{1, 1, 1}, {3, 4, 5}, {}, {1, 1, 1}, {220, 213, 206}})}},
    {"ByPlaneAndEachMaskWithItsKernel",
     L"SHARP METHOD=EdgeOnly" + kKeysByPlane + L"SHARP METHOD=UNSHARPMASK" + kKeysByPlane +
         L"SHARP METHOD=UNSHARPMASK RADIUS=3 WEIGHT=2",
     {SharpByPlane(kEdges), SharpByPlane(kMask), Sharp(kMask, {3, 3, 3}, {2, 2, 2})}},
    {"BrightnessWithTheMeanOfTheOlderImage",
     L"BRIGHTNESSCONTRAST BRIGHTNESS=40;BRIGHTNESSCONTRAST CONTRAST=64;"
     L"BRIGHTNESSCONTRAST AVERAGE=10 BRIGHTNESS=4.5 CONTRAST=-30",
     {Bright(40, 0), Bright(0, 64), Bright(4.5, -30, 10)}},
    {"UnknownTakesBack",
     L"SHARP METHOD=STANDARD\nHALPHA THRESHOLD=1\nSHRAP X=1",
     {Sharp(kStandard), HAlpha(1, 0), Swap}},
    {"UnknownTwiceRestores",
     L"SHARP METHOD=STANDARD\nSHARP METHOD=NONE\nDIGITALDEVELOPMENT MASK_R=G\nHALPHA THRESHOLD=1",
     {Sharp(kStandard), HAlpha(1, 0)}},
    {"StepAfterUnknownStartsFromTheOlderImage",
     L"SHARP METHOD=STANDARD\nSHARP RADIUS=2\nHALPHA THRESHOLD=.5 BRIGHTNESS=.2",
     {Sharp(kStandard), Swap, HAlpha(.5, .2)}},
    {"AutoLevelAfterAStep",
     L"BRIGHTNESSCONTRAST BRIGHTNESS=50;HALPHAAUTOLEVEL MAG=.5",
     {Bright(50, 0), AutoLevelByHalf}},
    {"LevelBetweenSteps",
     L"SHARP METHOD=STANDARD WEIGHT=.2\nLEVEL MIN=10 MAX=99 MIN_R=10 MAX_R=99 MAX_G=150\nHALPHA THRESHOLD=.9",
     {Sharp(kStandard, {1, 1, 1}, {.2, .2, .2}), SetLevels, HAlpha(.9, 0)}},
    {"EndsAtABareName", L"HALPHA THRESHOLD=1\r\n;LEVEL;HALPHA THRESHOLD=.2", {HAlpha(1, 0)}, 0},
    {"EndsAtBlanksAlone", L"HALPHA THRESHOLD=1\n \n", {HAlpha(1, 0)}, 0},
    {"EndsAtTheFirstSeparator", L";HALPHA THRESHOLD=1", {}, 0},
    {"LastSeparator", L"HALPHA THRESHOLD=1;\n", {HAlpha(1, 0)}},
};

TEST(VynImageProc, DoesWhatTheOperationsDo) {
  for (const int planes : {1, 3}) {
    CVynImage start;
    Prepare(start, planes);
    for (const Chain& chain : kChains) {
      SCOPED_TRACE(chain.name + std::to_string(planes));
      Pair expected{start, start};
      for (const Step& step : chain.steps) step(expected);
      CVynImage image(start), temp(start), alone(start);
      Proc proc;
      proc.SetImagePtr(&image, &temp);
      EXPECT_EQ(proc.Do(CString(chain.text), 0), chain.result);
      EXPECT_EQ(proc.Do(&alone, CString(chain.text), 0), chain.result);
      EXPECT_TRUE(SamePixels(expected.newest, image));
      EXPECT_TRUE(SamePixels(expected.newest, alone));
      EXPECT_TRUE(SamePixels(expected.older, temp));
      for (int p = 0; p < planes; ++p) {
        ExpectLevels(image, p, expected.newest.GetLevelMin(p), expected.newest.GetLevelMax(p));
        ExpectLevels(temp, p, expected.older.GetLevelMin(p), expected.older.GetLevelMax(p));
      }
    }
  }
}

constexpr const wchar_t* kAllCommands =
    L"LEVEL MIN=7 MAX=77 MAX_G=2;BRIGHTNESSCONTRAST CONTRAST=9;SHARP METHOD=EDGEONLY RADIUS_B=2;SHARP "
    L"METHOD=UNSHARPMASK;HALPHA THRESHOLD=.5;HALPHAAUTOLEVEL ";

TEST(VynImageProc, RefusesMissingAndUnlikeImages) {
  CVynImage image, other, wide, none;
  Prepare(image, 1);
  Prepare(other, 3);
  Prepare(wide, 1);
  wide.ChangeSize(24, 17);
  Proc proc;
  EXPECT_EQ(proc.Do(CString(), 0), 0);
  EXPECT_EQ(proc.Do(nullptr, CString(), 0), 0);
  for (CVynImage* temp : {&other, &wide}) {
    proc.SetImagePtr(&image, temp);
    EXPECT_EQ(proc.Do(CString(L"LEVEL MIN=9"), 0), 0);
    ExpectLevels(image, 0, 3.0, 220.0);
  }
  // Null keeps the temporary image, and a copy shares both.
  CVynImage temp(image);
  proc.SetImagePtr(&image, &temp);
  proc.SetImagePtr(&image, nullptr);
  EXPECT_EQ(Proc(proc).Do(CString(L"LEVEL MIN=9"), 0), 1);
  ExpectLevels(temp, 0, 9.0, 220.0);
  // One image as both, and one without pixels.
  proc.SetImagePtr(&image, &image);
  EXPECT_EQ(proc.Do(CString(kAllCommands), 0), 1);
  EXPECT_EQ(proc.Do(&none, kAllCommands, 0), 1);
}

TEST(VynImageProc, LeavesEnginesAndImagesAsItSays) {
  CVynImage image;
  Prepare(image, 1);
  CVynImage temp(image);
  Proc proc;
  proc.SetImagePtr(&image, &temp);
  EXPECT_EQ(proc.Do(CString(L"SHARP METHOD=UNSHARPMASK"), 0), 1);
  EXPECT_NE(image.CalcFilterProc(5, 5, 0), 0.0f);
  EXPECT_EQ(proc.Do(&image, CString(L"SHARP METHOD=UNSHARPMASK"), 0), 1);
  EXPECT_EQ(image.CalcFilterProc(5, 5, 0), 0.0f);
  // Its temporary image is gone.
  EXPECT_EQ(proc.Do(CString(L"LEVEL "), 0), 0);
  EXPECT_EQ(proc.ProcImage, &image);
}

TEST(VynImageProc, LevelsOfBlueAndOfOtherCountsOfPlanes) {
  CVynImage image, two, five;
  Prepare(image, 3);
  CVynImage temp(image);
  Proc proc;
  proc.SetImagePtr(&image, &temp);
  // Keys for the whole image reach the maximum of the temporary image's blue alone; by default it is red's.
  EXPECT_EQ(proc.Do(CString(L"LEVEL MIN=50 MAX=60 MIN_B=1 MAX_B=2"), 0), 1);
  ExpectLevels(image, 2, 5.0, 206.0);
  ExpectLevels(temp, 2, 5.0, 60.0);
  EXPECT_EQ(proc.Do(CString(L"level MIN_G=8 MAX_G=80"), 0), 1);
  for (const int p : {1, 2}) ExpectLevels(image, p, 8.0, 80.0);
  ExpectLevels(temp, 2, 8.0, 220.0);
  // Two planes count as one here; a fifth has no entry in an array of three.
  Prepare(two, 2);
  EXPECT_EQ(proc.Do(&two, L"LEVEL MIN=7 MAX=77 MIN_G=1 MAX_G=2", 0), 1);
  ExpectLevels(two, 0, 7.0, 77.0);
  ExpectLevels(two, 1, 4.0, 213.0);
  Prepare(five, 5);
  for (CVynImage* odd : {&two, &five}) EXPECT_EQ(proc.Do(odd, kAllCommands, 0), 1);
}

TEST(VynImageProc, ReportsEachOperation) {
  CVynImage image;
  Prepare(image, 1);
  qmr::test::RecordingWindow window;
  image.SetProgressHandle(&window);
  EXPECT_EQ(CVynImageProc().Do(&image, L"LEVEL ;HALPHA ;UNDO ;SHARP METHOD=STANDARD", 1), 1);
  std::vector<std::wstring> titles;
  for (const auto& event : window.events) {
    if (event.code == qmr::kProgressTitle && !event.text.empty()) titles.push_back(event.text);
  }
  EXPECT_EQ(titles, (std::vector<std::wstring>{L"Hα画像補正処理中...", L"シャープフィルタ処理中"}));
}

}  // namespace
