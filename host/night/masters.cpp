#include "host/night/masters.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "host/night/combine_rows.h"
#include "host/night/develop_mosaic.h"
#include "host/night/failure.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/exception.h"

namespace qmr {
namespace {

// A flat pixel below this share of the mean is not divided by.
constexpr double kLeastFlat = 0.2;
constexpr double kMasterKappa = 3.0;

struct Loaded {
  std::vector<std::unique_ptr<CVynImage>> images;
  std::vector<double> exposures;              // seconds, 0 when not known
  std::vector<std::optional<double>> blacks;  // of the sensor, as LightFrame has it
};

// Blank pixels take the median of their neighbours of the same colour; what stays blank is 0.
void FillBlankPixels(CVynImage& image, const MosaicLayout& mosaic) {
  FillEmptySites(image, mosaic, 0.0f);
  RepairBlankPixels(image, std::max(mosaic.Cell(), 2));
  for (int p = 0; p < image.GetPlanes(); ++p)
    for (int y = 0; y < image.GetHeight(); ++y)
      for (float& v : WriteRow(image, y, p, 0, image.GetWidth()))
        if (std::isnan(v)) v = 0.0f;
}

// Loads frames, as many at a time as there are threads; frames of a size other than that of most are left out.
Loaded LoadFrames(const std::vector<FrameSource>& sources, const char* kind, const MosaicLayout& mosaic, Steps& steps,
                  std::vector<LeftOut>& leftOut) {
  Loaded loaded;
  const std::size_t count = sources.size();
  std::vector<std::unique_ptr<CVynImage>> images(count);
  std::vector<LightFrame> facts(count);
  std::vector<std::string> reasons(count);
  steps.Begin(std::string("Master ") + kind, static_cast<std::int64_t>(count));
  ForRows(0, static_cast<int>(count), [&](int i) {
    const auto at = static_cast<std::size_t>(i);
    try {
      images[at] = LoadImage(sources[at], facts[at], std::string("none"));
      if (facts[at].blankPixels > 0) FillBlankPixels(*images[at], mosaic);
    } catch (const Failure& failure) {
      reasons[at] = failure.what();
    } catch (CMemoryException* e) {
      e->Delete();
      reasons[at] = "not enough memory for it";
    }
    steps.Advance(1);
  });
  const auto same = [](const CVynImage& a, const CVynImage& b) {
    return SameSize(a, b) && a.GetPlanes() == b.GetPlanes();
  };
  const CVynImage* common = nullptr;
  long most = 0;
  for (const auto& image : images) {
    if (!image) continue;
    const long alike =
        std::count_if(images.begin(), images.end(), [&](const auto& other) { return other && same(*other, *image); });
    if (alike > most) {
      most = alike;
      common = image.get();
    }
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (images[i] && !same(*images[i], *common))
      reasons[i] = "it is " + SizeText(*images[i]) + ", most frames are " + SizeText(*common);
    if (!reasons[i].empty()) leftOut.push_back({sources[i].path, reasons[i]});
  }
  for (std::size_t i = 0; i < count; ++i) {
    if (!reasons[i].empty()) continue;
    loaded.images.push_back(std::move(images[i]));
    loaded.exposures.push_back(facts[i].facts.exposureSeconds.value_or(0.0));
    loaded.blacks.push_back(facts[i].sensorBlack);
  }
  return loaded;
}

CombineMethod MethodFor(std::size_t count) {
  if (count <= 2) return CombineMethod::kAverage;
  return count <= 5 ? CombineMethod::kMedian : CombineMethod::kKappaSigma;
}

// Combines the frames into the first of them.
std::unique_ptr<CVynImage> Combine(Loaded loaded) {
  if (loaded.images.empty()) return nullptr;
  const std::size_t count = loaded.images.size();
  std::unique_ptr<CVynImage> master = std::move(loaded.images[0]);
  if (count == 1) return master;
  const int width = master->GetWidth();
  const int height = master->GetHeight();
  for (int p = 0; p < master->GetPlanes(); ++p) {
    ForRowRanges(0, height, [&](int first, int last) {
      FrameRows rows;
      rows.values.resize(count);
      RowCombiner combiner(MethodFor(count), kMasterKappa, count);
      std::vector<float> result(static_cast<std::size_t>(width));
      for (int y = first; y < last; ++y) {
        for (std::size_t i = 0; i < count; ++i)
          rows.values[i] = ReadRow(i ? *loaded.images[i] : *master, y, p, 0, width).data();
        combiner.Combine(rows, result);
        std::copy(result.begin(), result.end(), WriteRow(*master, y, p, 0, width).begin());
      }
    });
  }
  return master;
}

// Mean of the pixels of one site of a cell of `step` by `step` pixels, or of all of them.
double SiteMean(const CVynImage& image, int plane, int step, int row, int column) {
  struct Sum {
    double value = 0.0;
    double count = 0.0;
  };
  const Sum sum = FoldRows(
      0, image.GetHeight(), Sum{},
      [&](int y) {
        Sum part;
        if (y % step != row) return part;
        const std::span<const float> pixels = ReadRow(image, y, plane, 0, image.GetWidth());
        for (std::size_t x = static_cast<std::size_t>(column); x < pixels.size(); x += static_cast<std::size_t>(step)) {
          part.value += pixels[x];
          part.count += 1.0;
        }
        return part;
      },
      [](const Sum& a, const Sum& b) {
        return Sum{a.value + b.value, a.count + b.count};
      });
  return sum.count > 0.0 ? sum.value / sum.count : 0.0;
}

void ScaleSite(CVynImage& image, int plane, int step, int row, int column, double factor) {
  ForRows(0, image.GetHeight(), [&](int y) {
    if (y % step != row) return;
    const std::span<float> pixels = WriteRow(image, y, plane, 0, image.GetWidth());
    for (std::size_t x = static_cast<std::size_t>(column); x < pixels.size(); x += static_cast<std::size_t>(step))
      pixels[x] = static_cast<float>(pixels[x] * factor);
  });
}

void SubtractImage(CVynImage& image, const CVynImage& what) {
  for (int p = 0; p < image.GetPlanes(); ++p) {
    const int from = what.IsColor() ? p : 0;
    ForRows(0, image.GetHeight(), [&](int y) {
      const RowSpans rows = RowPair(what, image, y, p, 0, image.GetWidth());
      const std::span<const float> less = from == p ? rows.from : ReadRow(what, y, from, 0, image.GetWidth());
      for (std::size_t x = 0; x < rows.to.size() && x < less.size(); ++x) rows.to[x] -= less[x];
    });
  }
}

// The frames of one role: the folder's, those that the option names, or none.
std::vector<FrameSource> Sources(const std::vector<FrameSource>& planned, const std::string& option) {
  if (option.empty()) return planned;
  if (option == "none") return {};
  return ListFrames(option);
}

double CommonExposure(const Loaded& loaded) {
  return loaded.exposures.empty() ? 0.0 : loaded.exposures[0];
}

std::string Count(std::size_t count, const char* kind) {
  const std::string plural = std::string_view(kind) == "bias" ? "es" : "s";
  return std::to_string(count) + " " + kind + (count == 1 ? "" : plural);
}

struct MadeMaster {
  std::unique_ptr<CVynImage> image;
  double exposure = 0.0;
  std::size_t count = 0;
};

MadeMaster MakeMaster(const std::vector<FrameSource>& sources, const char* kind, const MosaicLayout& mosaic,
                      Steps& steps, std::vector<LeftOut>& leftOut) {
  if (sources.empty()) return {};
  Loaded loaded = LoadFrames(sources, kind, mosaic, steps, leftOut);
  MadeMaster made;
  made.exposure = CommonExposure(loaded);
  made.count = loaded.images.size();
  made.image = Combine(std::move(loaded));
  steps.End(std::string("Master ") + kind + ": " +
            (made.count ? "from " + Count(made.count, kind) : std::string("none of its frames can be used")));
  return made;
}

// Brings a flat to mean 1 where it is lit; each site of a mosaic by itself. Where a honeycomb has no photosite it is 1.
void NormaliseFlat(CVynImage& flat, const MosaicLayout& mosaic) {
  const int step = flat.GetPlanes() == 1 ? mosaic.Cell() : 1;
  for (int p = 0; p < flat.GetPlanes(); ++p) {
    for (int row = 0; row < step; ++row) {
      for (int column = 0; column < step; ++column) {
        const double mean = SiteMean(flat, p, step, row, column);
        if (mean > 0.0) ScaleSite(flat, p, step, row, column, 1.0 / mean);
      }
    }
  }
  FillEmptySites(flat, mosaic, 1.0f);
}

void ListUnlit(Masters& masters) {
  const CVynImage& flat = *masters.flat;
  for (int p = 0; p < flat.GetPlanes(); ++p) {
    for (int y = 0; y < flat.GetHeight(); ++y) {
      const std::span<const float> row = ReadRow(flat, y, p, 0, flat.GetWidth());
      for (int x = 0; x < flat.GetWidth(); ++x)
        if (row[static_cast<std::size_t>(x)] == 0.0f) masters.unlit.push_back({x, y, p});
    }
  }
}

// Pixels that are hardly lit, and not-a-number, become 0.
void MaskUnlit(CVynImage& flat, double least) {
  for (int p = 0; p < flat.GetPlanes(); ++p) {
    ForRows(0, flat.GetHeight(), [&](int y) {
      for (float& v : WriteRow(flat, y, p, 0, flat.GetWidth()))
        if (!(v >= least)) v = 0.0f;
    });
  }
}

void FlatStatistics(Masters& masters) {
  CVynImage& flat = *masters.flat;
  flat.CalcMinMax();
  for (int p = 0; p < std::min(flat.GetPlanes(), 3); ++p) {
    masters.flatMin[p] = flat.GetMinPixel(p);
    masters.flatMax[p] = flat.GetMaxPixel(p);
    masters.flatMean[p] = static_cast<float>(SiteMean(flat, p, 1, 0, 0));
  }
}

}  // namespace

Masters MakeMasters(const NightPlan& plan, const StackOptions& options, const MosaicLayout& mosaic, Steps& steps,
                    std::vector<LeftOut>& leftOut) {
  Masters masters;
  MadeMaster bias = MakeMaster(Sources(plan.biases, options.bias), "bias", mosaic, steps, leftOut);
  MadeMaster dark = MakeMaster(Sources(plan.darks, options.dark), "dark", mosaic, steps, leftOut);
  const std::vector<FrameSource> flats = Sources(plan.flats, options.flat);
  if (!flats.empty()) {
    MadeMaster flatDark = MakeMaster(plan.flatDarks, "flat dark", mosaic, steps, leftOut);
    Loaded loaded = LoadFrames(flats, "flat", mosaic, steps, leftOut);
    const auto hasBlack = [](const std::optional<double>& black) { return black.has_value(); };
    // A master that the user names is taken to be calibrated; frames are not, nor is what a camera writes.
    const bool ready = !options.flat.empty() && flats.size() == 1 &&
                       std::none_of(loaded.blacks.begin(), loaded.blacks.end(), hasBlack);
    const double exposure = CommonExposure(loaded);
    const bool darkServes = dark.image && (dark.exposure <= exposure * 1.1 || dark.exposure == 0.0);
    const CVynImage* base = flatDark.image ? flatDark.image.get()
                            : bias.image   ? bias.image.get()
                            : darkServes   ? dark.image.get()
                                           : nullptr;
    if (!base && !ready && !std::all_of(loaded.blacks.begin(), loaded.blacks.end(), hasBlack))
      steps.Warn("the flats have no bias or flat dark: their offset stays in, and vignetting is corrected too little");
    for (std::size_t i = 0; i < loaded.images.size(); ++i) {
      const auto& image = loaded.images[i];
      if (!base && loaded.blacks[i]) SubtractLevel(*image, *loaded.blacks[i]);
      if (base && !ready) {
        if (!SameSize(*base, *image))
          throw Failure(kExitBadData, "the flats and the bias or dark that belongs to them differ in size");
        SubtractImage(*image, *base);
      }
      MaskUnlit(*image, 0.0);
      NormaliseFlat(*image, mosaic);
    }
    masters.flatCount = static_cast<int>(loaded.images.size());
    masters.flat = Combine(std::move(loaded));
    if (masters.flat) {
      MaskUnlit(*masters.flat, kLeastFlat);
      FlatStatistics(masters);
      ListUnlit(masters);
    }
    steps.End("Master flat: " + (masters.flatCount
                                     ? "from " + Count(static_cast<std::size_t>(masters.flatCount), "flat")
                                     : std::string("none of its frames can be used")));
  }
  masters.darkKind = dark.image ? "dark" : "bias";
  masters.darkCount = static_cast<int>(dark.image ? dark.count : bias.count);
  masters.darkExposure = dark.image ? dark.exposure : 0.0;
  masters.dark = dark.image ? std::move(dark.image) : std::move(bias.image);
  if (masters.dark && masters.flat && !SameSize(*masters.dark, *masters.flat))
    throw Failure(kExitBadData, "the master " + masters.darkKind + " and the master flat differ in size");
  return masters;
}

}  // namespace qmr
