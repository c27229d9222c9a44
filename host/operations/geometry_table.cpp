#include "host/operations/geometry_calls.h"

namespace qmr {
namespace {

using Kind = ValueKind;
using Count = ValueCount;

constexpr double kRawEnd = 1e30;

Parameter Side(std::string_view key, std::string_view meaning, std::string_view range) {
  return {.key = key,
          .meaning = meaning,
          .unit = "pixels",
          .kind = Kind::kWhole,
          .least = 1.0,
          .most = calls::kLongestSide,
          .range = range};
}

Parameter Fill() {
  return {.key = "fill",
          .meaning = "Value where the picture shows nothing, on the scale of the file; none leaves no value",
          .count = Count::kPlanes,
          .least = -kRawEnd,
          .most = kRawEnd,
          .fallback = "none",
          .mayBeNone = true,
          .range = "any number"};
}

OperationSpec Geometric(std::string_view name, std::string_view summary, std::vector<Parameter> parameters,
                        OperationCall call) {
  OperationSpec spec;
  spec.name = name;
  spec.summary = summary;
  spec.parameters = std::move(parameters);
  spec.call = call;
  spec.wholeOnly = true;
  spec.moves = true;
  spec.resultLevels = ResultLevels::kKept;
  return spec;
}

std::vector<OperationSpec> MakeGeometricOperations() {
  using namespace calls;
  std::vector<OperationSpec> t;

  OperationSpec crop = Geometric("crop", "Cuts a rectangle out of a picture",
                                 {{.key = "rect",
                                   .meaning = "What to keep; right and bottom are the first column and row outside",
                                   .unit = "pixels",
                                   .kind = Kind::kWhole,
                                   .count = Count::kRectangle,
                                   .least = -1e6,
                                   .most = 1e9,
                                   .required = true,
                                   .range = "within the picture"}},
                                 Crop);
  crop.keepsMosaic = MovesWholePixels;
  crop.check = CheckCrop;
  t.push_back(std::move(crop));

  OperationSpec canvas =
      Geometric("canvas", "Puts a picture on a larger or smaller canvas, pixels as they are",
                {Side("width", "Columns of the canvas", "1 to 100000, by default those of the picture"),
                 Side("height", "Rows of the canvas", "1 to 100000, by default those of the picture"),
                 {.key = "anchor",
                  .meaning = "Where the picture lies on it, row 0 being the top",
                  .kind = Kind::kChoice,
                  .fallback = "centre",
                  .choices = {"top-left", "top", "top-right", "left", "centre", "right", "bottom-left", "bottom",
                              "bottom-right"}},
                 Fill()},
                Canvas);
  canvas.keepsMosaic = MovesWholePixels;
  canvas.check = CheckCanvas;
  t.push_back(std::move(canvas));

  OperationSpec resize = Geometric(
      "resize", "Resamples a picture to another size",
      {{.key = "scale",
        .meaning = "Size of the result over that of the picture",
        .least = 0.001,
        .most = 100.0,
        .range = "0.001 to 100"},
       Side("width", "Columns of the result", "1 to 100000; alone it keeps the proportions"),
       Side("height", "Rows of the result", "1 to 100000; alone it keeps the proportions"),
       {.key = "interpolation",
        .meaning = "How pixels are sampled; bilinear-float extrapolates beyond the last column and row, soft-bicubic "
                   "blends them with the first ones, the others repeat them",
        .kind = Kind::kChoice,
        .fallback = "lanczos3",
        .choices = {"bilinear", "bicubic", "lanczos2", "lanczos3", "nearestneighbor", "bilinear-float",
                    "soft-bicubic"}},
       Switch("no-average",
              "Sample points where the result is half as large or smaller, instead of averaging whole blocks of pixels "
              "first, as all but nearestneighbor do")},
      Resize);
  resize.check = CheckResize;
  t.push_back(std::move(resize));

  OperationSpec rotate = Geometric(
      "rotate", "Turns a picture about its middle",
      {{.key = "angle",
        .meaning = "How far, clockwise with row 0 on top; multiples of 90 turn the whole picture without sampling",
        .unit = "degrees",
        .least = -3600.0,
        .most = 3600.0,
        .required = true},
       Switch("expand", "A canvas as large as the turned picture needs, else the corners are cut off"),
       {.key = "interpolation",
        .meaning = "How pixels are sampled",
        .kind = Kind::kChoice,
        .fallback = "lanczos3",
        .choices = {"bilinear", "bicubic", "lanczos2", "lanczos3", "nearestneighbor"}},
       Fill()},
      Rotate);
  rotate.keepsMosaic = IsRightAngle;
  t.push_back(std::move(rotate));

  OperationSpec flip =
      Geometric("flip", "Mirrors a picture",
                {Switch("horizontal", "Left and right change places"), Switch("vertical", "Top and bottom do")}, Flip);
  flip.keepsMosaic = MovesWholePixels;
  flip.check = CheckFlip;
  t.push_back(std::move(flip));

  const auto shift = [](std::string_view key, std::string_view meaning) {
    return Parameter{.key = key,
                     .meaning = meaning,
                     .unit = "pixels",
                     .kind = Kind::kWhole,
                     .least = -calls::kLongestSide,
                     .most = calls::kLongestSide,
                     .fallback = "0"};
  };
  t.push_back(Geometric("scroll", "Shifts a picture; what leaves one edge comes back at the other",
                        {shift("dx", "How far to the right"), shift("dy", "How far down, row 0 being the top")},
                        Scroll));

  OperationSpec bin = Geometric(
      "bin", "Joins blocks of pixels into one",
      {{.key = "factor",
        .meaning = "Columns and rows of a block, or one number for both",
        .unit = "pixels",
        .kind = Kind::kWhole,
        .count = Count::kAny,
        .least = 1.0,
        .most = 10000.0,
        .fallback = "2",
        .range = "1 to 10000"},
       Switch("mean", "The mean of each block instead of its sum"),
       Switch("round-up", "Keep incomplete blocks at the right and lower edge; their sums have fewer pixels")},
      Bin);
  bin.check = CheckBin;
  t.push_back(std::move(bin));
  return t;
}

}  // namespace

const std::vector<OperationSpec>& GeometricOperations() {
  static const std::vector<OperationSpec> operations = MakeGeometricOperations();
  return operations;
}

}  // namespace qmr
