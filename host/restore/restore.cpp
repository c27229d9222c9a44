#include "host/restore/restore.h"

#include "host/restore/picture_facts.h"
#include "host/restore/restore_calls.h"

namespace qmr {
namespace {

constexpr double kRawEnd = 1e30;
constexpr double kMostElectrons = 1e30;

// How the user says the blur.
std::vector<Parameter> Blur() {
  return {{.key = "fwhm",
           .meaning = "FWHM of the stars as they are",
           .unit = "pixels",
           .least = 0.5,
           .most = 60.0,
           .range = "0.5 to 60, by default the median of the picture's own stars"},
          {.key = "target",
           .meaning = "FWHM that they are to get; the blur between the two is taken out",
           .unit = "pixels",
           .least = 0.0,
           .most = 60.0,
           .range = "0 to 60, by default two thirds of --fwhm, but 2 at least"},
          {.key = "sigma",
           .meaning = "Standard deviation of the Gaussian blur that is taken out, instead of both",
           .unit = "pixels",
           .least = 0.2,
           .most = 25.0,
           .range = "0.2 to 25"}};
}

std::vector<Parameter> With(std::vector<Parameter> first, const std::vector<Parameter>& more) {
  first.insert(first.end(), more.begin(), more.end());
  return first;
}

Parameter Pedestal() {
  return {.key = "pedestal",
          .meaning = "Value of the file that stands for no light at all",
          .kind = ValueKind::kNumber,
          .count = ValueCount::kPlanes,
          .least = -kRawEnd,
          .most = kRawEnd,
          .range = "by default five widths of the noise below the darkest sky"};
}

Parameter Iterations(std::string_view fallback, std::string_view meaning) {
  return {.key = "iterations",
          .meaning = meaning,
          .kind = ValueKind::kWhole,
          .least = 1.0,
          .most = 1000.0,
          .fallback = fallback};
}

std::vector<OperationSpec> MakeTable() {
  std::vector<OperationSpec> t;
  t.push_back(
      {.name = "lucy",
       .group = "Iterative",
       .summary =
           "Richardson-Lucy: sharpens with the noise of photons and read-out in mind; each iteration sharpens more",
       .parameters =
           With(Blur(),
                {Iterations("40", "Most iterations; --settle and --chi-square end them earlier"),
                 {.key = "settle",
                  .meaning = "Stop after two iterations running that lower chi-square by less than this part of it; 0 "
                             "to run all iterations",
                  .most = 1.0,
                  .fallback = "0.2"},
                 {.key = "chi-square",
                  .meaning = "Stop as soon as the reduced chi-square is at or below this; 0: never",
                  .most = 1e6,
                  .fallback = "0"},
                 {.key = "gain",
                  .meaning = "Electrons a unit of the picture, those of all frames of a mean",
                  .count = ValueCount::kPlanes,
                  .least = 1e-30,
                  .most = kMostElectrons,
                  .range = "by default EGAIN of the file times its frames, else as if the noise of the sky were that "
                           "of its photons"},
                 {.key = "read-noise",
                  .meaning = "Noise that no photons make",
                  .unit = "electrons",
                  .count = ValueCount::kPlanes,
                  .most = kMostElectrons,
                  .range = "by default what the gain leaves of the noise of the sky"},
                 Pedestal()}),
       .call = calls::RestoreByLucy,
       .resultLevels = ResultLevels::kKept,
       .check = CheckBlur,
       .measure = FindForLucy});
  t.push_back({.name = "mem",
               .group = "Iterative",
               .summary = "Maximum entropy: of all pictures that fit within the noise the smoothest",
               .parameters = With(Blur(), {Iterations("30", "Most iterations; fewer when the picture settles"),
                                           {.key = "noise",
                                            .meaning = "Standard deviation of a pixel, in the values of the file",
                                            .count = ValueCount::kPlanes,
                                            .least = 1e-37,
                                            .most = kRawEnd,
                                            .range = "by default that of the sky, more in pictures of much light"},
                                           Pedestal()}),
               .call = calls::RestoreByMem,
               .resultLevels = ResultLevels::kKept,
               .check = CheckBlur,
               .measure = FindForMem});
  t.push_back({.name = "wiener",
               .group = "Direct",
               .summary = "Wiener's filter: one division in the frequency domain, for planets and the Moon",
               .parameters = With(Blur(), {{.key = "strength",
                                            .meaning = "Noise over signal, in power, at the strongest frequency: the "
                                                       "smaller, the sharper and the noisier",
                                            .least = 1e-9,
                                            .most = 1000.0,
                                            .fallback = "0.01"},
                                           Switch("plain",
                                                  "Leave the brightness above black as the filter makes it: it depends "
                                                  "on the blur and on the size of the picture")}),
               .call = calls::RestoreByWiener,
               .resultLevels = ResultLevels::kKept,
               .check = CheckBlur,
               .measure = FindBlur});
  return t;
}

}  // namespace

const std::vector<OperationSpec>& Restorations() {
  static const std::vector<OperationSpec> table = MakeTable();
  return table;
}

}  // namespace qmr
