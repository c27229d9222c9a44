#include "host/operations/adjust_calls.h"

namespace qmr {
namespace {

using Kind = ValueKind;
using Count = ValueCount;

constexpr std::string_view kPoint = "Brightness";
constexpr std::string_view kTone = "Tone";
constexpr std::string_view kColour = "Colour";
constexpr std::string_view kPlanets = "Planets";

constexpr std::string_view kLevelUnit = "0 black, 255 white";
// Bright stars lie far above white.
constexpr double kLevelEnd = 1e6;
constexpr double kRawEnd = 1e30;

Parameter Level(std::string_view key, std::string_view meaning, std::string_view fallback, Count count = Count::kOne) {
  return {.key = key,
          .meaning = meaning,
          .unit = kLevelUnit,
          .count = count,
          .least = -kLevelEnd,
          .most = kLevelEnd,
          .fallback = fallback,
          .range = "any level"};
}

Parameter Constant(std::string_view key, std::string_view meaning) {
  return {.key = key,
          .meaning = meaning,
          .unit = "in values of the file",
          .least = -kRawEnd,
          .most = kRawEnd,
          .range = "any number"};
}

Parameter Curve(std::string_view key, std::string_view meaning, std::string_view range) {
  return {.key = key,
          .meaning = meaning,
          .unit = kLevelUnit,
          .kind = Kind::kPoint,
          .count = Count::kAny,
          .least = 0.0,
          .most = 10000.0,
          .range = range};
}

Parameter Offset(std::string_view key, std::string_view meaning) {
  return {.key = key,
          .meaning = meaning,
          .unit = kLevelUnit,
          .least = -kLevelEnd,
          .most = kLevelEnd,
          .range = "any level, by default what makes the sky grey, or 0 where one of the three is given"};
}

Parameter LabGain(std::string_view key, std::string_view meaning) {
  return {.key = key, .meaning = meaning, .most = 100.0, .range = "0 to 100, by default --gain"};
}

std::vector<OperationSpec> MakeAdjustments() {
  using namespace calls;
  std::vector<OperationSpec> t;

  t.push_back({.name = "brightness",
               .group = kPoint,
               .summary = "Brightness and contrast",
               .parameters = {Level("brightness", "What is added", "0", Count::kPlanes),
                              {.key = "contrast",
                               .meaning = "Slope about --average: 0 leaves it, 256 doubles every distance, -256 makes "
                                          "it even",
                               .unit = "in 1/256",
                               .count = Count::kPlanes,
                               .least = -256.0,
                               .most = 256000.0,
                               .fallback = "96"},
                              {.key = "average",
                               .meaning = "Level that contrast leaves alone",
                               .unit = kLevelUnit,
                               .least = -kLevelEnd,
                               .most = kLevelEnd,
                               .range = "any level, by default the picture's mean from black to white"}},
               .call = Brightness,
               .resultLevels = ResultLevels::kTold,
               .find = FindAverage});
  t.push_back({.name = "cut-off",
               .group = kPoint,
               .summary = "Replaces everything at or below black, and at or above white",
               .parameters = {Level("low", "What pixels at or below black become", "0", Count::kPlanes),
                              Level("high", "What pixels at or above white become", "255", Count::kPlanes)},
               .call = CutOff,
               .resultLevels = ResultLevels::kTold});
  t.push_back({.name = "invert",
               .group = kPoint,
               .summary = "Makes a negative: black white and white black",
               .parameters = {},
               .call = Invert,
               .resultLevels = ResultLevels::kTold});
  t.push_back(
      {.name = "calculate",
       .group = kPoint,
       .summary = "Adds a constant to the values of the file, subtracts it, multiplies or divides by it",
       .parameters =
           {Constant("add", "Constant to add"),
            Constant("subtract", "Constant to subtract"),
            Constant("multiply", "Constant to multiply by"),
            Constant("divide", "Constant to divide by"),
            {.key = "clamp", .meaning = "Differences below 0 become 0", .kind = Kind::kSwitch, .with = "subtract"}},
       .call = Calculate,
       .resultLevels = ResultLevels::kAnew,
       .check = CheckCalculate});
  t.push_back({.name = "normalise",
               .group = kPoint,
               .summary = "Brings each plane to a mean and a standard deviation",
               .parameters = {{.key = "mean",
                               .meaning = "Mean of all pixels of the plane",
                               .unit = "in values of the file",
                               .count = Count::kPlanes,
                               .least = -kRawEnd,
                               .most = kRawEnd,
                               .range = "any number, left alone where only --sigma is given, by default what the "
                                        "planes have on average"},
                              {.key = "sigma",
                               .meaning = "Standard deviation of all pixels of the plane",
                               .unit = "in values of the file",
                               .count = Count::kPlanes,
                               .most = kRawEnd,
                               .range = "0 up, left alone where only --mean is given, by default what the planes have "
                                        "on average"}},
               .call = Normalise,
               .wholeOnly = true,
               .resultLevels = ResultLevels::kAnew,
               .check = CheckNormalise,
               .find = FindMeans});

  t.push_back(
      {.name = "tone-curve",
       .group = kTone,
       .summary = "Takes brightness through a smooth curve, all planes or each through its own",
       .parameters = {Curve("points",
                            "Points of the curve of all planes; 0:0 and 255:255 are added where it does not reach so "
                            "far",
                            "levels before and after, ascending before, by default 25:25,80:130 unless a plane has a "
                            "curve"),
                      Curve("red", "Points of a curve of red, before that of all planes", "by default none"),
                      Curve("green", "Of green", "by default none"), Curve("blue", "Of blue", "by default none")},
       .call = ToneCurve,
       .resultLevels = ResultLevels::kTold,
       .check = CheckToneCurve,
       .find = FindCurve});
  t.push_back({.name = "h-alpha",
               .group = kTone,
               .summary = "Darkens the faint end of H-alpha pictures up to a knee, in red twice",
               .parameters = {{.key = "knee",
                               .meaning = "Level up to which it works, a little above the sky",
                               .unit = kLevelUnit,
                               .most = 255.0,
                               .fallback = "30"},
                              {.key = "knee-output",
                               .meaning = "Level that the knee becomes from below; what lies above it stays",
                               .unit = kLevelUnit,
                               .most = 255.0,
                               .fallback = "20"},
                              {.key = "auto-level",
                               .meaning = "Makes the least pixel of the first plane black and its greatest, times "
                                          "this, white",
                               .least = 1e-6,
                               .most = 1e6}},
               .call = HAlpha,
               .resultLevels = ResultLevels::kTold});
  t.push_back({.name = "equalise",
               .group = kTone,
               .summary = "Equalises the histogram: every brightness becomes equally frequent",
               .parameters = {{.key = "seed",
                               .meaning = "Start of the random order of pixels that are equal",
                               .kind = Kind::kWhole,
                               .most = 2147483647.0,
                               .fallback = "1"}},
               .call = Equalise,
               .wholeOnly = true,
               .resultLevels = ResultLevels::kTold});
  t.push_back({.name = "posterise",
               .group = kTone,
               .summary = "Leaves a few tones from black to white",
               .parameters = {{.key = "tones",
                               .meaning = "How many; the brightest lies one step below white",
                               .kind = Kind::kWhole,
                               .least = 1.0,
                               .most = 256.0,
                               .fallback = "8"}},
               .call = Posterise,
               .resultLevels = ResultLevels::kTold});

  t.push_back({.name = "balance",
               .group = kColour,
               .summary = "Adds an offset to each plane: makes the sky grey",
               .parameters = {Offset("red", "What is added to red"), Offset("green", "What is added to green"),
                              Offset("blue", "What is added to blue")},
               .call = Balance,
               .input = OperationInput::kColour,
               .resultLevels = ResultLevels::kTold,
               .find = FindGreySky});
  t.push_back({.name = "white-balance",
               .group = kColour,
               .summary = "Stretches each plane about its sky: makes stars white",
               .parameters = {{.key = "white",
                               .meaning = "Red, green and blue of something white, without the sky; only their ratio "
                                          "counts",
                               .count = Count::kThree,
                               .least = 1e-6,
                               .most = 1e9,
                               .range = "above 0, by default the mean colour of the stars"},
                              {.key = "sky",
                               .meaning = "Red, green and blue of the sky, which stay",
                               .unit = "in values of the file",
                               .count = Count::kThree,
                               .least = -kRawEnd,
                               .most = kRawEnd,
                               .range = "any numbers, by default measured"},
                              {.key = "gain",
                               .meaning = "What the stretched plane is multiplied by besides",
                               .count = Count::kPlanes,
                               .most = 1000.0,
                               .fallback = "1"}},
               .call = WhiteBalance,
               .input = OperationInput::kColour,
               .resultLevels = ResultLevels::kTold,
               .find = FindWhite});
  t.push_back({.name = "saturation",
               .group = kColour,
               .summary = "Strengthens or weakens colours in Lab space",
               .parameters = {{.key = "gain",
                               .meaning = "How many times as colourful; 1 leaves it, 0 makes it grey",
                               .most = 100.0,
                               .fallback = "1.6"},
                              LabGain("red", "The same for red and magenta (a above 0)"),
                              LabGain("green", "For green (a below 0)"),
                              LabGain("yellow", "For yellow (b above 0)"),
                              LabGain("blue", "For blue (b below 0)")},
               .call = Saturation,
               .input = OperationInput::kColour,
               .resultLevels = ResultLevels::kTold});
  t.push_back({.name = "correct",
               .group = kColour,
               .summary = "Mixes the planes by a matrix",
               .parameters = {{.key = "matrix",
                               .meaning = "Shares of red, green and blue in the new red, then in the new green and "
                                          "blue; rows that add up to 1 keep grey grey",
                               .count = Count::kNine,
                               .least = -1000.0,
                               .most = 1000.0,
                               .fallback = "1.5,-0.3,-0.2,-0.2,1.4,-0.2,-0.1,-0.4,1.5"},
                              {.key = "strength",
                               .meaning = "Share of the corrected picture in the result",
                               .most = 1.0,
                               .fallback = "1"},
                              {.key = "scale",
                               .meaning = "Works on levels, where black is 0, or on the values of the file, where the "
                                          "result has no value of 0 or below",
                               .kind = Kind::kChoice,
                               .fallback = "levels",
                               .choices = {"levels", "file"}},
                              Constant("offset", "With --scale file: what counts as 0 there"),
                              Switch("offset-minimum", "With --scale file: the least pixel counts as 0")},
               .call = CorrectColour,
               .input = OperationInput::kColour,
               .resultLevels = ResultLevels::kTold,
               .check = CheckCorrectColour});
  t.push_back({.name = "pseudo-colour",
               .group = kColour,
               .summary = "Shows brightness as colour; a picture of one plane gets three",
               .parameters = {Level("low", "Level at the palette's beginning", "0"),
                              Level("high", "Level at its end", "255"),
                              {.key = "palette",
                               .meaning = "Its colours",
                               .kind = Kind::kChoice,
                               .fallback = "rainbow",
                               .choices = {"blue-red", "rainbow", "blue", "teal", "red", "fire"}},
                              {.key = "repeat",
                               .meaning = "How many times the palette runs from low to high, 0 as 1",
                               .kind = Kind::kWhole,
                               .most = 1000.0,
                               .fallback = "1"}},
               .call = PseudoColour,
               .resultLevels = ResultLevels::kTold,
               .check = CheckPseudoColour});
  t.push_back({.name = "grey",
               .group = kColour,
               .summary = "Makes one plane of three: 0.299 red, 0.587 green, 0.114 blue",
               .parameters = {},
               .call = Grey,
               .input = OperationInput::kColour,
               .wholeOnly = true,
               .resultLevels = ResultLevels::kTold});

  t.push_back({.name = "planet-map",
               .group = kPlanets,
               .summary = "Unrolls the disc of a planet into a map of longitude and latitude",
               .parameters = {{.key = "centre",
                               .meaning = "Column and row of the disc's middle, counted from 0",
                               .unit = "pixels",
                               .count = Count::kTwo,
                               .least = -1e6,
                               .most = 1e6,
                               .range = "by default found"},
                              {.key = "radius",
                               .meaning = "Radius of its equator",
                               .unit = "pixels",
                               .least = 1.0,
                               .most = 1e6,
                               .range = "1 to 1000000, by default found"},
                              {.key = "polar-scale",
                               .meaning = "Distance from pole to pole over that across the equator: Jupiter 0.935, "
                                          "Saturn 0.902",
                               .least = 0.1,
                               .most = 10.0,
                               .fallback = "1"},
                              {.key = "latitude",
                               .meaning = "Latitude of the disc's middle, the upper pole being north",
                               .unit = "degrees",
                               .least = -90.0,
                               .most = 90.0,
                               .fallback = "0"},
                              {.key = "lean",
                               .meaning = "How far the axis leans, clockwise from upright",
                               .unit = "degrees",
                               .least = -360.0,
                               .most = 360.0,
                               .fallback = "0"},
                              {.key = "map-width",
                               .meaning = "Columns of the map, 360 degrees; it has half as many rows",
                               .unit = "pixels",
                               .kind = Kind::kWhole,
                               .least = 16.0,
                               .most = 16000.0,
                               .range = "16 to 16000, by default the length of the equator"},
                              Switch("grid", "Draw lines every 30 degrees")},
               .call = PlanetMap,
               .wholeOnly = true,
               .moves = true,
               .resultLevels = ResultLevels::kTold,
               .levels = PlanetLevels,
               .fileLevelsFirst = true,
               .find = FindDisc});
  return t;
}

}  // namespace

const std::vector<OperationSpec>& Adjustments() {
  static const std::vector<OperationSpec> adjustments = MakeAdjustments();
  return adjustments;
}

}  // namespace qmr
