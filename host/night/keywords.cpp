#include "host/night/keywords.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "host/night/develop_mosaic.h"
#include "host/version.h"
#include "qmrimg/geometry/interp.h"

namespace qmr {
namespace {

// What a stack says anew, or no longer has.
constexpr std::array<std::string_view, 28> kReplaced = {
    "STACKCNT", "NCOMBINE", "EXPTIME",  "EXPOSURE", "LIVETIME", "DATE-OBS", "CALSTAT",
    "ROWORDER", "PROGRAM",  "IMAGETYP", "FRAME",    "HISTORY",  "BAYERPAT", "COLORTYP",
    "XBAYROFF", "YBAYROFF", "BAYOFFX",  "BAYOFFY",  "DATE-END", "TRIGGER",  "PEDESTAL",
    "CBLACK",   "CWHITE",   "CBLACK2",  "CWHITE2",  "CBLACK3",  "CWHITE3",  "DATE-AVG"};

bool IsReplaced(std::string_view name) {
  return std::find(kReplaced.begin(), kReplaced.end(), name) != kReplaced.end() || IsStructuralKeyword(name);
}

std::string FirstDate(const NightResult& result) {
  std::string first;
  for (const LightFrame& frame : result.frames)
    if (frame.Used() && !frame.facts.date.empty() && (first.empty() || frame.facts.date < first))
      first = frame.facts.date;
  return first;
}

std::string CalibrationStatus(const Masters& masters) {
  std::string status;
  if (masters.dark) status += masters.darkKind == "bias" ? "B" : "BD";
  if (masters.flat) status += "F";
  return status;
}

const char* AlignName(AlignMode mode) {
  switch (mode) {
    case AlignMode::kNone:
      return "as they lie";
    case AlignMode::kShift:
      return "by shift";
    default:
      return "by shift and rotation";
  }
}

std::vector<std::string> History(const NightResult& result, const LightFrame& reference, const Masters& masters,
                                 const StackOptions& options) {
  std::vector<std::string> lines;
  if (!masters.dark && reference.sensorBlack)
    lines.push_back("Subtracted the black level of the sensor, " + ValueText(*reference.sensorBlack));
  if (masters.dark)
    lines.push_back("Subtracted a master " + masters.darkKind + " of " + std::to_string(masters.darkCount) + " frames");
  if (masters.flat) lines.push_back("Divided by a master flat of " + std::to_string(masters.flatCount) + " frames");
  if (!result.mosaic.empty()) lines.push_back("Developed the mosaic " + result.mosaic);
  lines.push_back("Aligned " + std::to_string(result.used) + " frames " + AlignName(options.align) + " onto " +
                  result.reference);
  std::string combine = std::string("Combined by ") + CombineName(options.combine);
  if (options.combine == CombineMethod::kKappaSigma) {
    CString kappa;
    kappa.Format(L", kappa %g", options.kappa);
    combine += NarrowUtf8(kappa.GetString());
  }
  combine += ", " + NarrowUtf8(CInterp::GetEngString(options.interpolation).GetString());
  if (options.normalise != Normalisation::kNone)
    combine += options.normalise == Normalisation::kScale ? ", normalised by sky and scale" : ", normalised by sky";
  lines.push_back(combine);
  return lines;
}

}  // namespace

bool IsBottomUp(const std::vector<Keyword>& keywords) {
  const auto order = KeywordText(keywords, "ROWORDER");
  return order && UpperCase(*order) == "BOTTOM-UP";
}

std::vector<Keyword> StackKeywords(const NightResult& result, const LightFrame& reference, const Masters& masters,
                                   const StackOptions& options) {
  // Development cuts the first rows and columns off; a position in the file moves with them.
  const bool developed = reference.mosaic.CanBeDeveloped();
  const DevelopMargins margins = LeastMargins(reference.mosaic, 0, 0);
  std::vector<Keyword> keywords;
  for (const Keyword& keyword : reference.keywords) {
    if (IsReplaced(keyword.name)) continue;
    // The sensor's white level is no longer where it was, whatever was subtracted.
    if (reference.sensorWhite && keyword.name == "SATURATE") continue;
    keywords.push_back(keyword);
    if (developed && (keyword.name == "CRPIX1" || keyword.name == "CRPIX2"))
      if (const auto at = KeywordNumber(reference.keywords, keyword.name))
        keywords.back().value = *at - (keyword.name == "CRPIX1" ? margins.left : margins.top);
  }
  keywords.push_back(Keyword::Text("IMAGETYP", "Master Light", "stack of frames"));
  keywords.push_back(Keyword::Integer("STACKCNT", result.used, "frames in the stack"));
  keywords.push_back(Keyword::Integer("NCOMBINE", result.used, "frames in the stack"));
  if (reference.facts.exposureSeconds)
    keywords.push_back(Keyword::Real("EXPTIME", *reference.facts.exposureSeconds, "[s] exposure of one frame"));
  if (result.exposure > 0.0)
    keywords.push_back(Keyword::Real("LIVETIME", result.exposure, "[s] exposure of all frames"));
  if (const std::string date = FirstDate(result); !date.empty())
    keywords.push_back(Keyword::Text("DATE-OBS", date, "start of the first frame"));
  if (const std::string status = CalibrationStatus(masters); !status.empty())
    keywords.push_back(Keyword::Text("CALSTAT", status, "B bias, D dark, F flat"));
  keywords.push_back(
      Keyword::Text("ROWORDER", IsBottomUp(reference.keywords) ? "BOTTOM-UP" : "TOP-DOWN", "order of the rows"));
  keywords.push_back(Keyword::Text("PROGRAM", std::string("qmrimg ") + kVersion, "program that wrote this file"));
  for (const std::string& line : History(result, reference, masters, options))
    keywords.push_back(Keyword::History(line));
  return keywords;
}

}  // namespace qmr
