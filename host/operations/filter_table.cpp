#include "host/operations/operation.h"

#include "host/operations/filter_calls.h"

namespace qmr {
namespace {

using Kind = ValueKind;
using Count = ValueCount;

constexpr std::string_view kFixed = "Fixed patterns";
constexpr std::string_view kSmoothing = "Smoothing";
constexpr std::string_view kSharpening = "Sharpening";
constexpr std::string_view kTone = "Tone";
constexpr std::string_view kStars = "Stars and nebulae";
constexpr std::string_view kCorrections = "Corrections";
constexpr std::string_view kOwn = "Own kernels, ranks and contours";

// Levels on the scale where the plane's black is 0 and its white 255; bright stars lie far above it.
constexpr double kLevelEnd = 1e6;

Parameter Pattern() {
  return {.key = "pattern",
          .meaning =
              "Pixels that count: the 5 of a plus sign, the 9 of a square, or the 21 of a 5 x 5 square without "
              "its corners",
          .kind = Kind::kChoice,
          .fallback = "square",
          .choices = {"plus", "square", "round"}};
}

Parameter Sigma(std::string_view meaning, std::string_view fallback, double most = 200.0) {
  return {.key = "sigma",
          .meaning = meaning,
          .unit = "pixels",
          .count = Count::kPlanes,
          .most = most,
          .fallback = fallback};
}

Parameter Radius(std::string_view meaning, std::string_view fallback, double most = 100.0) {
  return {.key = "radius",
          .meaning = meaning,
          .unit = "pixels",
          .count = Count::kPlanes,
          .most = most,
          .fallback = fallback};
}

Parameter DiscWeight() {
  return {.key = "weight",
          .meaning = "How much the other pixels count, the centre counting 1",
          .count = Count::kPlanes,
          .most = 1000.0,
          .fallback = "1"};
}

Parameter Hot(std::string_view fallback) {
  return {.key = "hot",
          .meaning = "Share of its own value by which a pixel must exceed its neighbours to be hot",
          .most = 1.0,
          .fallback = fallback,
          .mayBeNone = true};
}

Parameter Cool(std::string_view fallback) {
  return {.key = "cool",
          .meaning = "Share of its own value by which a pixel must fall below its neighbours to be cool",
          .most = 1000.0,
          .fallback = fallback,
          .mayBeNone = true};
}

// The star filters' threshold: no response of the detector exceeds eight ranges.
Parameter StarThreshold(std::string_view meaning, std::string_view fallback, Count count) {
  return {.key = "threshold",
          .meaning = meaning,
          .unit = "in ranges from black to white (the default suits levels found from the sky)",
          .count = count,
          .most = 8.0,
          .fallback = fallback};
}

Parameter StarHeadroom() {
  return {.key = "headroom",
          .meaning =
              "Where the detector cuts bright stars off, in ranges above black; 1 for white, which gives them a "
              "hole",
          .least = 1.0,
          .most = 1000.0,
          .fallback = "4"};
}

Parameter ScaleGain(std::string_view key, std::string_view meaning) {
  return {.key = key, .meaning = meaning, .count = Count::kScales, .least = -1000.0, .most = 1000.0, .fallback = "1.5"};
}

Parameter SharpenRadius() {
  return {.key = "radius",
          .meaning = "Largest squared distance of the pixels taken off: 1 the four next ones, 2 eight, 4 twelve",
          .unit = "pixels",
          .count = Count::kPlanes,
          .most = 100.0,
          .fallback = "2"};
}

Parameter SharpenWeight() {
  return {.key = "weight",
          .meaning = "How strongly the neighbours are taken off",
          .count = Count::kPlanes,
          .most = 1000.0,
          .fallback = "0.2"};
}

std::vector<OperationSpec> MakeFilters() {
  using namespace calls;
  std::vector<OperationSpec> t;

  t.push_back({.name = "gaussian",
               .group = kSmoothing,
               .summary = "Gaussian blur",
               .parameters = {Sigma("Width of the Gaussian", "2")},
               .call = Gaussian,
               .selects = true});
  t.push_back({.name = "mean",
               .group = kSmoothing,
               .summary = "Mean of a disc, or of a box",
               .parameters = {Radius("Radius of the disc", "2"),
                              DiscWeight(),
                              {.key = "shape",
                               .meaning = "disc, or the faster box of the disc's width",
                               .kind = Kind::kChoice,
                               .fallback = "disc",
                               .choices = {"disc", "box"}}},
               .call = Mean,
               .selects = true,
               .check = CheckMean});
  t.push_back({.name = "mean-keep-edges",
               .group = kSmoothing,
               .summary = "Mean of the background; what rises above it stays, edges and all",
               .parameters = {Radius("Radius of the disc", "2"),
                              DiscWeight(),
                              {.key = "zero",
                               .meaning = "Level below which a pixel, sharpened, must lie to be smoothed; none for the "
                                          "value 0 of the file",
                               .unit = "0 black, 255 white",
                               .count = Count::kPlanes,
                               .least = -kLevelEnd,
                               .most = kLevelEnd,
                               .fallback = "40",
                               .mayBeNone = true,
                               .range = "any level"}},
               .call = MeanKeepEdges,
               .selects = true});
  t.push_back({.name = "median",
               .group = kSmoothing,
               .summary = "Median of a disc: takes out grains and single outliers, keeps edges",
               .parameters = {Radius("Radius of the disc", "1")},
               .call = Median,
               .selects = true});
  t.push_back({.name = "background-smooth",
               .group = kSmoothing,
               .summary = "Blurs the faint background and leaves what rises above it",
               .parameters = {{.key = "level",
                               .meaning = "Up to here the background reaches",
                               .unit = "0 black, 255 white",
                               .count = Count::kPlanes,
                               .least = -kLevelEnd,
                               .most = kLevelEnd,
                               .fallback = "40"},
                              {.key = "buffer",
                               .meaning = "Width of the ramp below the level over which the blur fades out",
                               .unit = "on the same scale",
                               .count = Count::kPlanes,
                               .most = kLevelEnd,
                               .fallback = "10"},
                              Sigma("Width of the Gaussian", "3")},
               .call = BackgroundSmooth});
  t.push_back({.name = "nebula-smooth",
               .group = kSmoothing,
               .summary = "Blurs away from stars and edges only",
               .parameters = {Sigma("Width of the Gaussian", "2", 50.0),
                              StarThreshold("Response of the edge detector from which a pixel is a star or edge", "0.4",
                                            Count::kPlanes),
                              Radius("Distance that is kept from stars and edges", "2", 50.0),
                              Switch("mask-only", "Write where it would smooth (black) instead of the picture")},
               .call = NebulaSmooth});

  t.push_back({.name = "sharpen",
               .group = kSharpening,
               .summary = "Sharpens by a small kernel",
               .parameters = {SharpenRadius(), SharpenWeight()},
               .call = Sharpen,
               .selects = true,
               .keepsBright = true});
  t.push_back({.name = "sharpen-edges",
               .group = kSharpening,
               .summary = "Sharpens what stands out and hardly touches what lies below its surroundings",
               .parameters = {SharpenRadius(), SharpenWeight()},
               .call = SharpenEdges,
               .selects = true,
               .keepsBright = true});
  t.push_back({.name = "unsharp",
               .group = kSharpening,
               .summary = "Unsharp mask with a Gaussian",
               .parameters = {Sigma("Width of the Gaussian that is taken off", "2"),
                              {.key = "gain",
                               .meaning = "How many times the difference from the blurred picture is added",
                               .count = Count::kPlanes,
                               .least = -1000.0,
                               .most = 1000.0,
                               .fallback = "1"},
                              {.key = "threshold",
                               .meaning = "Smallest relative difference from the blurred picture that is sharpened",
                               .count = Count::kPlanes,
                               .most = 1000.0}},
               .call = Unsharp,
               .selects = true,
               .keepsBright = true,
               .check = CheckUnsharp});
  t.push_back({.name = "multiband-sharpen",
               .group = kSharpening,
               .summary = "Mean of six unsharp masks, one a size of detail",
               .parameters = {{.key = "sigma",
                               .meaning = "Widths of the six Gaussians",
                               .unit = "pixels",
                               .count = Count::kUpToSix,
                               .most = 200.0,
                               .fallback = "0.7,1.4,2.8,5.6,11.2,22.4"},
                              {.key = "gain",
                               .meaning = "Their gains; the result is the mean of all six, a gain left out being 0",
                               .count = Count::kUpToSix,
                               .most = 1000.0,
                               .fallback = "2,2,2,1,1,1"}},
               .call = MultibandSharpen,
               .selects = true,
               .keepsBright = true});
  t.push_back({.name = "wavelet",
               .group = kSharpening,
               .summary = "Splits the picture by size of detail, weighs each size, puts it together again",
               .parameters = {{.key = "order",
                               .meaning = "Daubechies wavelet; 1 is Haar, higher ones are smoother",
                               .kind = Kind::kWhole,
                               .least = 1,
                               .most = 10,
                               .fallback = "4"},
                              {.key = "scales",
                               .meaning = "Sizes of detail, each twice as large as the one before",
                               .kind = Kind::kWhole,
                               .least = 1,
                               .most = 10,
                               .fallback = "4"},
                              {.key = "low-gain",
                               .meaning = "Gain of what is larger than all scales, about the middle between black and "
                                          "white",
                               .least = -1000.0,
                               .most = 1000.0,
                               .fallback = "1"},
                              ScaleGain("row-gain", "Gain of the detail along rows"),
                              ScaleGain("column-gain", "Gain of the detail along columns"),
                              ScaleGain("diagonal-gain", "Gain of the diagonal detail")},
               .call = Wavelet});
  t.push_back(
      {.name = "rotational-gradient",
       .group = kSharpening,
       .summary = "Jets of comets and streamers of the corona: each pixel against those an angle further round",
       .parameters = {{.key = "angle",
                       .meaning = "Angle to either side under which the two pixels lie that it is compared with",
                       .unit = "degrees",
                       .most = 180.0,
                       .fallback = "15"},
                      {.key = "strength",
                       .meaning = "How strongly the picture itself counts: the smaller, the more structure; 0 "
                                  "for the structure alone, which lies about 0",
                       .most = 1000.0,
                       .fallback = "1"},
                      {.key = "centre",
                       .meaning = "Column and row of the centre, from 0 in the order of the file",
                       .unit = "pixels",
                       .count = Count::kTwo,
                       .least = -1e6,
                       .most = 1e6,
                       .range = "by default the middle of the picture"}},
       .call = RotationalGradient,
       .selects = true,
       .keepsBright = true,
       .check = CheckRotationalGradient,
       .find = FindMiddle});

  t.push_back(
      {.name = "digital-development",
       .group = kTone,
       .summary = "Divides by a blurred copy: shows bright cores and faint outskirts at once",
       .parameters = {{.key = "black",
                       .meaning = "How far black lies below the sky, in widths of its noise",
                       .least = 0.1,
                       .most = 1000.0,
                       .fallback = "3"},
                      {.key = "knee",
                       .meaning = "Brightness from which on it holds back, in heights of the sky above black: "
                                  "the lower, the flatter",
                       .least = 0.1,
                       .most = 10000.0,
                       .fallback = "7"},
                      {.key = "white",
                       .meaning = "White, in brightnesses that wide bright regions end at",
                       .least = 0.1,
                       .most = 100.0,
                       .fallback = "1.1"},
                      {.key = "radius",
                       .meaning = "Width of the Gaussian, or radius of the disc",
                       .unit = "pixels",
                       .count = Count::kPlanes,
                       .most = 500.0,
                       .range = "0 to 500, by default 1 % of the longer side"},
                      {.key = "gamma",
                       .meaning = "Gamma, above 1 brightens the faint; 1 for none",
                       .count = Count::kPlanes,
                       .least = 0.01,
                       .most = 100.0,
                       .fallback = "1"},
                      {.key = "order",
                       .meaning = "Gamma after or before the division",
                       .kind = Kind::kChoice,
                       .fallback = "gamma-last",
                       .choices = {"gamma-last", "gamma-first"}},
                      {.key = "range",
                       .meaning = "What the gamma curve spans when it comes first: from 0, the least value or "
                                  "black to the greatest value or white",
                       .kind = Kind::kChoice,
                       .fallback = "black-greatest",
                       .choices = {"0-greatest", "least-greatest", "least-white", "black-greatest"}},
                      Switch("gamma-only", "Leave the division out"),
                      {.key = "divide-by",
                       .meaning = "Each plane by the mean of the three blurred copies, which keeps the colours, "
                                  "or by its own",
                       .kind = Kind::kChoice,
                       .count = Count::kPlanes,
                       .fallback = "mean",
                       .choices = {"mean", "own"}},
                      {.key = "kernel",
                       .meaning = "Blurred by a Gaussian, or by a disc (as a box of its width)",
                       .kind = Kind::kChoice,
                       .fallback = "gaussian",
                       .choices = {"gaussian", "disc"}},
                      {.key = "weight",
                       .meaning = "How much the disc's other pixels count, its centre counting 1",
                       .most = 1000.0,
                       .fallback = "1"},
                      {.key = "level",
                       .meaning = "The knee as a level",
                       .unit = "0 black, 255 white",
                       .least = -kLevelEnd,
                       .most = kLevelEnd,
                       .range = "by default where --knee says"}},
       .call = DigitalDevelopment,
       .resultLevels = ResultLevels::kTold,
       .levels = DevelopmentLevels});

  t.push_back(
      {.name = "star-sharpen",
       .group = kStars,
       .summary = "Shrinks stars by taking a low rank of the pixels around",
       .parameters = {Radius("Radius of the disc that is sorted", "1.5", 50.0),
                      {.key = "rank",
                       .meaning = "Which of the sorted pixels is taken, between two of them for a fraction",
                       .kind = Kind::kFractionalRank,
                       .count = Count::kPlanes,
                       .fallback = "25%"},
                      {.key = "threshold",
                       .meaning = "Pixels whose result comes this close to the disc's maximum stay; 0 for none",
                       .unit = "relative",
                       .count = Count::kPlanes,
                       .most = 1000.0,
                       .fallback = "0"},
                      Switch(
                          "keep-peaks",
                          "Leave the brightest pixel of its disc alone; for clean stacks, as noise has peaks as well")},
       .call = StarSharpen,
       .ranks = StarRanks});
  t.push_back({.name = "star-enhance",
               .group = kStars,
               .summary = "Finds stars and adds a glow to them",
               .parameters = {Sigma("Width of the Gaussian", "1.5", 50.0),
                              {.key = "gain",
                               .meaning = "How much of the glow is added",
                               .count = Count::kPlanes,
                               .least = -1000.0,
                               .most = 1000.0,
                               .fallback = "2"},
                              StarThreshold("Response of the detector from which it is a star", "0.1", Count::kPlanes),
                              {.key = "smooth",
                               .meaning = "Where the Gaussian stands: after detection, as the stars' glow, or before "
                                          "it, against noise",
                               .kind = Kind::kChoice,
                               .fallback = "after",
                               .choices = {"after", "before"}},
                              StarHeadroom(),
                              Switch("mask-only", "Write the glow alone on black")},
               .call = StarEnhance,
               .check = CheckStarEnhance});
  t.push_back({.name = "star-mask",
               .group = kStars,
               .summary = "Makes a mask that is bright where stars are",
               .parameters = {{.key = "sigma",
                               .meaning = "Width of the Gaussian that widens the stars",
                               .unit = "pixels",
                               .most = 50.0,
                               .fallback = "2"},
                              {.key = "gain",
                               .meaning = "Brightness of the mask; a larger sigma wants more, by its square",
                               .least = -1000.0,
                               .most = 1000.0,
                               .fallback = "8"},
                              StarThreshold("Response of the detector from which it is a star", "0.1", Count::kOne),
                              StarHeadroom(),
                              Switch("blend", "Write the mean of mask and picture")},
               .call = StarMask});

  t.push_back({.name = "hot-pixels",
               .group = kCorrections,
               .summary = "Replaces hot and cool pixels by the median around them",
               .parameters = {{.key = "radius",
                               .meaning = "Radius of the disc whose median counts",
                               .unit = "pixels",
                               .most = 50.0,
                               .fallback = "1.5"},
                              Hot("0.5"),
                              Cool("0.5")},
               .call = HotPixels});
  t.push_back({.name = "hot-pixels-mosaic",
               .group = kCorrections,
               .summary = "The same on an undeveloped frame, each pixel against its own colour",
               .parameters = {Hot("0.3"), Cool("0.3")},
               .call = HotPixelsMosaic,
               .input = OperationInput::kMosaic});
  t.push_back(
      {.name = "false-colour",
       .group = kCorrections,
       .summary = "Takes a false colour out, such as the blue halo of a lens",
       .parameters =
           {{.key = "ratio",
             .meaning = "Red, green and blue of the false colour; its greatest one is replaced by the "
                        "mean of the other two",
             .kind = Kind::kWhole,
             .count = Count::kThree,
             .least = 1,
             .most = 1000000,
             .fallback = "100,100,150"},
            {.key = "tolerance",
             .meaning = "How far green and blue, each over red, may lie from that ratio",
             .unit = "relative",
             .most = 1000.0,
             .fallback = "0.2"},
            {.key = "strength", .meaning = "Share of the correction that is made", .most = 1.0, .fallback = "1"}},
       .call = FalseColour,
       .input = OperationInput::kColour});
  t.push_back({.name = "guide-error",
               .group = kCorrections,
               .summary = "Shortens stars that guiding drew into lines",
               .parameters = {{.key = "length",
                               .meaning = "Length of the line to both sides",
                               .unit = "pixels",
                               .least = 1.0,
                               .most = 100.0,
                               .fallback = "4"},
                              {.key = "angle",
                               .meaning = "Direction of the line, clockwise from upright",
                               .unit = "degrees",
                               .least = -360.0,
                               .most = 360.0,
                               .fallback = "90"},
                              {.key = "weight",
                               .meaning = "How much the centre counts against the line: the smaller, the stronger",
                               .least = 0.01,
                               .most = 1000.0,
                               .fallback = "2"},
                              {.key = "mix",
                               .meaning = "Share of the filtered picture in the result",
                               .least = -1000.0,
                               .most = 1000.0,
                               .fallback = "1"}},
               .call = GuideError});

  t.push_back({.name = "convolve",
               .group = kOwn,
               .summary = "Convolves with a kernel of your own",
               .parameters = {{.key = "kernel",
                               .meaning = "The values row by row",
                               .count = Count::kSquare,
                               .least = -1e30,
                               .most = 1e30,
                               .required = true,
                               .range = "1, 9, 25, ... of them"},
                              Switch("normalise", "Divide the kernel by the sum of its values")},
               .call = Convolve,
               .selects = true,
               .keepsBright = true,
               .check = CheckConvolve});
  t.push_back({.name = "rank",
               .group = kOwn,
               .summary = "Minimum, maximum or any other rank of a disc",
               .parameters = {Radius("Radius of the disc", "1", 50.0),
                              {.key = "rank",
                               .meaning = "Which of the sorted pixels is taken",
                               .kind = Kind::kRank,
                               .count = Count::kPlanes,
                               .fallback = "min"}},
               .call = Rank,
               .ranks = DiscRanks});
  t.push_back({.name = "contour",
               .group = kOwn,
               .summary = "Draws lines of equal brightness",
               .parameters = {{.key = "steps",
                               .meaning = "Steps from black to white",
                               .kind = Kind::kWhole,
                               .least = 2,
                               .most = 100000,
                               .fallback = "10"},
                              Switch("no-clamp", "Draw lines below black and above white as well")},
               .call = Contour});
  t.push_back({.name = "window",
               .group = kOwn,
               .summary = "Fades to 0 from the middle outwards, as a raised cosine: before Fourier work elsewhere",
               .parameters = {{.key = "radius",
                               .meaning = "Distance from the middle at which 0 is reached",
                               .unit = "pixels",
                               .least = 1.0,
                               .most = 100000.0,
                               .range = "1 to 100000, by default half of the shorter side"}},
               .call = Window,
               .resultLevels = ResultLevels::kKept,
               .find = FindWindow});

  t.push_back({.name = "median-pattern",
               .group = kFixed,
               .summary = "Median of a fixed pattern",
               .parameters = {Pattern()},
               .call = MedianPattern});
  t.push_back(
      {.name = "rank-pattern",
       .group = kFixed,
       .summary = "Minimum, maximum or any other rank of a fixed pattern",
       .parameters =
           {Pattern(),
            {.key = "rank", .meaning = "Which of the sorted pixels is taken", .kind = Kind::kRank, .fallback = "min"}},
       .call = RankPattern,
       .ranks = PatternRanks});
  t.push_back({.name = "laplacian",
               .group = kFixed,
               .summary = "Shows edges: the Laplacian's magnitude above black",
               .parameters = {{.key = "kernel",
                               .meaning = "4 c less the four next pixels, 8 c less all eight, or 4 c less twice the "
                                          "four next ones and plus the diagonal ones",
                               .kind = Kind::kChoice,
                               .fallback = "eight",
                               .choices = {"four", "eight", "crossed"}}},
               .call = Laplacian});
  t.push_back({.name = "unsharp-pattern",
               .group = kFixed,
               .summary = "Unsharp mask with the mean of a fixed pattern",
               .parameters = {{.key = "gain",
                               .meaning = "How many times the difference from the mean is added",
                               .least = -1000.0,
                               .most = 1000.0,
                               .fallback = "1"},
                              Pattern(),
                              {.key = "weight",
                               .meaning = "How much the neighbours count in the mean, the centre counting 1",
                               .most = 1000.0,
                               .fallback = "1"},
                              {.key = "threshold",
                               .meaning = "Smallest relative difference from the mean that is sharpened",
                               .most = 1000.0,
                               .fallback = "0"}},
               .call = UnsharpPattern});
  return t;
}

}  // namespace

const std::vector<OperationSpec>& Filters() {
  static const std::vector<OperationSpec> filters = MakeFilters();
  return filters;
}

}  // namespace qmr
