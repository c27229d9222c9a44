#include "host/develop/develop.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "host/compose/given_levels.h"
#include "host/files/file_error.h"
#include "host/night/failure.h"
#include "host/night/frame.h"
#include "host/operations/parameters.h"
#include "host/operations/picture_file.h"
#include "host/operations/progress_window.h"
#include "host/operations/sky_keywords.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/levels/honeycomb_sites.h"
#include "qmrimg/raw/bayer_to_rgb.h"
#include "qmrimg/raw/honeycomb_to_rgb.h"

namespace qmr {
namespace {

std::string ListText(const std::vector<double>& values) {
  std::string text;
  for (const double v : values) text.append(text.empty() ? "" : ",").append(NumberText(v));
  return text;
}

void ForEachRow(CVynImage& image, const auto& change) {
  ForRows(0, image.GetHeight(), [&](int y) { change(WriteRow(image, y, 0, 0, image.GetWidth())); });
}

// ---- What the file and the options have to agree on -----------------------------------------------------------------

void CheckFrame(const DevelopRequest& request, const LightFrame& frame) {
  const std::string name = PrintablePath(frame.path);
  const MosaicLayout& mosaic = frame.mosaic;
  using Kind = MosaicLayout::Kind;
  if (frame.image->GetPlanes() > 1) throw Failure(kExitBadData, name + ": has several planes: it is developed already");
  if (mosaic.kind == Kind::None)
    throw Failure(kExitBadData, name + ": tells of no undeveloped mosaic (" + mosaic.text +
                                    "); --bayer RGGB or --honeycomb 11 name it if it holds one");
  if (mosaic.kind == Kind::Unsupported)
    throw Failure(kExitBadData,
                  name + ": its mosaic is not known: " + mosaic.text + "; --bayer or --honeycomb name another");
  const bool honeycomb = mosaic.kind == Kind::HoneyComb;
  if (request.interpolation && !honeycomb)
    throw Failure(kExitUsage, "--interpolation: goes with a honeycomb; the mosaic of " + name + " is " + mosaic.text);
  if (honeycomb && request.bits == 14)
    throw Failure(kExitUsage, "--bits: a honeycomb takes 12 or float; the mosaic of " + name + " is " + mosaic.text);
  const std::size_t sites = honeycomb ? 8 : 4;
  if (const std::size_t count = request.gains.size(); count != 0 && count != 3 && count != sites)
    throw Failure(kExitUsage, "--gains: three, of red, green and blue, or " + std::to_string(sites) +
                                  ", of the sites of the cell, for the mosaic " + mosaic.text + "; not " +
                                  std::to_string(count));
}

// Pixels without a value take that of their neighbours of the same colour, where there are enough; tells how many had
// none.
std::size_t BridgeBlankPixels(LightFrame& frame) {
  const MosaicLayout& mosaic = frame.mosaic;
  FillEmptySites(*frame.image, mosaic, 0.0f);
  if (frame.blankPixels == 0) return 0;
  const CVynImage& image = *frame.image;
  std::size_t blank = 0;
  for (int y = 0; y < image.GetHeight(); ++y)
    for (const float v : ReadRow(image, y, 0, 0, image.GetWidth())) blank += std::isnan(v);
  const std::size_t pixels = static_cast<std::size_t>(image.GetWidth()) * static_cast<std::size_t>(image.GetHeight());
  if (blank >= (mosaic.kind == MosaicLayout::Kind::HoneyComb ? pixels / 2 : pixels))
    throw Failure(kExitBadData, PrintablePath(frame.path) + ": has no pixel with a value");
  RepairBlankPixels(*frame.image, mosaic.Cell());
  return blank;
}

// ---- Black level and range ------------------------------------------------------------------------------------------

constexpr std::array<std::string_view, 4> kBlackKeywords = {"PEDESTAL", "BLKLEVEL", "BLACKLEV", "BLACKLVL"};

double FindBlack(const BlackLevel& black, const std::vector<Keyword>& keywords) {
  if (black.from == BlackLevel::From::kNone) return 0.0;
  if (black.from == BlackLevel::From::kGiven) return black.level;
  // A pedestal is told as what was added, or as what is to be added to be rid of it: its sign says nothing.
  for (const std::string_view name : kBlackKeywords)
    if (const auto level = KeywordNumber(keywords, name)) return Rounded(std::fabs(*level));
  return 0.0;
}

// Black and white of float samples for knee and clip: the sensor's of a camera's raw file, else what an integer file
// can hold, else what is in it.
std::vector<double> FileRange(const LightFrame& frame, double black) {
  const CVynImage& image = *frame.image;
  double white = image.GetLevelMax(0);
  constexpr double kWhite8 = 255.0, kWhite16 = 65535.0;
  if (image.GetOrgBitsPixel() == 8) white = kWhite8;
  if (image.GetOrgBitsPixel() == 16) white = kWhite16;
  if (image.GetOrgBitsPixel() < 0 && white <= 1.0) white = 1.0;
  if (frame.sensorWhite) white = *frame.sensorWhite;
  constexpr double kLeast = 1e-6;
  return {0.0, Rounded(std::max(white - black, kLeast))};
}

// The range of knee and clip, which the library takes from the levels; empty where it has one of its own.
std::vector<double> SetRange(const DevelopRequest& request, LightFrame& frame, double black) {
  if (request.bits || request.autoRange || !(request.knee || request.clip)) return {};
  const std::vector<double> range = request.range.empty() ? FileRange(frame, black) : request.range;
  static_cast<CImage&>(*frame.image).SetLevel(0, range[0], range[1]);
  return range;
}

// ---- Gains ----------------------------------------------------------------------------------------------------------

// Gains of the colours as gains of the sites, in the order that the library takes them.
std::vector<double> SiteGains(const std::vector<double>& colours, int layout) {
  std::vector<double> gains;
  const auto add = [&](int row, int column) {
    gains.push_back(colours[static_cast<std::size_t>(SiteColour(layout, row, column))]);
  };
  if (HoneycombLayout::IsPattern(layout)) {
    for (const HoneycombSite& site : kHoneycombSites) add(site.row, site.column);
  } else {
    for (int site = 0; site < 4; ++site) add(site / 2, site % 2);
  }
  return gains;
}

std::vector<double> CameraGains(const LightFrame& frame) {
  std::vector<double> colours;
  for (const char* name : {"WB_RED", "WB_GREEN", "WB_BLUE"}) {
    const auto gain = KeywordNumber(frame.keywords, name);
    // Settings of other scales stand in files as well; a multiplier is none of them.
    constexpr double kLeast = 0.1, kMost = 10.0;
    const bool green = std::string_view(name) == "WB_GREEN";
    if ((gain || !green) && !(gain && *gain >= kLeast && *gain <= kMost))
      throw Failure(kExitBadData, PrintablePath(frame.path) + ": tells no white balance of the camera (" + name +
                                      ", a multiplier from 0.1 to 10); --white-balance grey, or --gains");
    colours.push_back(gain.value_or(1.0));
  }
  return SiteGains(colours, frame.mosaic.number);
}

std::vector<double> GreyGains(const LightFrame& frame, double black) {
  const auto measure = [&](auto& probe, std::size_t sites) {
    probe.CopyImage(*frame.image);
    // On frames of one camera the library leaves its masked borders out, and begins two rows into the cell then.
    probe.GetHeader()->SetCameraModel(CString());
    // The library takes sites with medians below 1 as empty.
    const float scale = frame.image->GetLevelMax(0) - black <= 4.0 ? 65536.0f : 1.0f;
    const auto less = static_cast<float>(black);
    ForEachRow(probe, [&](std::span<float> row) {
      for (float& v : row) v = (v - less) * scale;
    });
    std::vector<double> gains(sites);
    probe.GetGain(frame.mosaic.number, gains.data());
    return gains;
  };
  std::vector<double> gains;
  if (frame.mosaic.kind == MosaicLayout::Kind::HoneyComb) {
    CImgHoneyCombToRgb probe;
    gains = measure(probe, 8);
  } else {
    CImgBayerToRgb probe;
    gains = measure(probe, 4);
  }
  if (gains.size() == 8) {
    // One gain a colour, or its sites would come apart by their medians' errors; green stays as it is.
    double sums[3] = {};
    for (std::size_t i = 0; i < 8; ++i)
      sums[SiteColour(frame.mosaic.number, kHoneycombSites[i].row, kHoneycombSites[i].column)] += gains[i];
    gains = SiteGains({sums[0] * 2.0 / sums[1], 1.0, sums[2] * 2.0 / sums[1]}, frame.mosaic.number);
  }
  for (double& gain : gains) {
    constexpr double kMost = 1000.0;
    if (!(gain > 0.0 && gain <= kMost))
      throw Failure(kExitBadData, PrintablePath(frame.path) +
                                      ": its sites have no medians to find the white balance from; --gains says it");
    gain = Rounded(gain);
  }
  return gains;
}

std::vector<double> FindGains(const DevelopRequest& request, const LightFrame& frame, double black) {
  if (request.gains.size() == 3) return SiteGains(request.gains, frame.mosaic.number);
  if (!request.gains.empty()) return request.gains;
  switch (request.whiteBalance) {
    case WhiteBalance::kCamera:
      return CameraGains(frame);
    case WhiteBalance::kGrey:
      return GreyGains(frame, black);
    default:
      return {};
  }
}

// ---- Margins --------------------------------------------------------------------------------------------------------

// Pixels that a full-size development adds at each edge: whole cells, as many as the margins can be.
constexpr int kAdded = 8;

// The mosaic with its edges going on beyond it; it is at least one cell wide and high. A Bayer pattern mirrored at its
// outermost pixels is the same pattern; a honeycomb goes on with its last whole cells.
std::unique_ptr<CVynImage> Widened(const CVynImage& mosaic, const MosaicLayout& layout) {
  const int width = mosaic.GetWidth(), height = mosaic.GetHeight();
  auto wide = std::make_unique<CVynImage>(-32, width + 2 * kAdded, height + 2 * kAdded, 1, 1.0, 0.0, 1);
  *wide->GetHeader() = *const_cast<CVynImage&>(mosaic).GetHeader();
  static_cast<CImage&>(*wide).SetLevel(0, mosaic.GetLevelMin(0), mosaic.GetLevelMax(0));
  const int cell = layout.Cell();
  const auto from = [&](int i, int size) {
    if (layout.kind == MosaicLayout::Kind::HoneyComb) {
      while (i < 0) i += cell;
      while (i >= size) i -= cell;
      return i;
    }
    const int period = 2 * (size - 1);
    i = ((i % period) + period) % period;
    return std::min(i, period - i);
  };
  ForRows(0, wide->GetHeight(), [&](int y) {
    const auto row = ReadRow(mosaic, from(y - kAdded, height), 0, 0, width);
    const auto to = WriteRow(*wide, y, 0, 0, wide->GetWidth());
    for (std::size_t x = 0; x < to.size(); ++x)
      to[x] = row[static_cast<std::size_t>(from(static_cast<int>(x) - kAdded, width))];
  });
  return wide;
}

std::string MarginsText(const DevelopMargins& m) {
  return std::to_string(m.left) + "," + std::to_string(m.top) + "," + std::to_string(m.right) + "," +
         std::to_string(m.bottom);
}

DevelopMargins FindMargins(const DevelopRequest& request, const LightFrame& frame) {
  const int width = frame.image->GetWidth(), height = frame.image->GetHeight();
  const DevelopMargins least = LeastMargins(frame.mosaic, width, height);
  if (request.fullSize) {
    if (std::min(width, height) < frame.mosaic.Cell())
      throw Failure(kExitBadData, PrintablePath(frame.path) + ": is " + SizeText(*frame.image) +
                                      ", too little to develop: less than one cell of its mosaic");
    return {};
  }
  if (!request.margins) return least;
  const DevelopMargins& m = *request.margins;
  if (m.left < least.left || m.top < least.top || m.right < least.right || m.bottom < least.bottom)
    throw Failure(kExitUsage, "--margins: " + MarginsText(least) + " are the least for " + PrintablePath(frame.path) +
                                  ", " + SizeText(*frame.image) + " and " + frame.mosaic.text);
  return m;
}

// ---- Development ----------------------------------------------------------------------------------------------------

Development PlanDevelopment(const DevelopRequest& request, const LightFrame& frame, const DevelopMargins& margins,
                            double black) {
  Development development;
  development.margins = margins;
  development.bits = request.bits;
  development.mono = request.mono;
  development.interpolation = request.interpolation.value_or(development.interpolation);
  development.autoRange = request.autoRange;
  development.gains = FindGains(request, frame, black);
  development.knee = request.knee;
  development.gamma = request.gamma.value_or(development.gamma);
  development.clip = request.clip;
  development.black = static_cast<float>(black);
  return development;
}

bool HasValues(const CVynImage& image) {
  for (int y = 0; y < image.GetHeight(); ++y)
    for (const float v : ReadRow(image, y, 0, 0, image.GetWidth()))
      if (!std::isnan(v)) return true;
  return false;
}

// The developed image takes the place of the frame's.
void Develop(const DevelopRequest& request, Development development, LightFrame& frame, Steps& steps) {
  const std::string name = PrintablePath(frame.path);
  const std::string size = SizeText(*frame.image);
  if (request.fullSize) {
    frame.image = Widened(*frame.image, frame.mosaic);
    development.margins = {kAdded, kAdded, kAdded, kAdded};
  }
  {
    ProgressWindow window(steps, "Developing");
    frame.image = DevelopMosaic(std::move(frame.image), frame.mosaic, development, &window);
  }
  if (!frame.image)
    throw Failure(kExitBadData, name + ": is " + size + ", of which the margins " + MarginsText(development.margins) +
                                    " leave too little to develop");
  if (!HasValues(*frame.image))
    throw Failure(kExitBadData, name + ": none of its pixels would have a value" +
                                    (development.autoRange ? "; --auto-range takes a frame whose pixels differ" : ""));
}

// ---- The result -----------------------------------------------------------------------------------------------------

std::string CommandText(const DevelopRequest& request, const LightFrame& frame, const Development& done, double black,
                        const std::vector<double>& range) {
  std::string command = "qmr develop ";
  const bool honeycomb = frame.mosaic.kind == MosaicLayout::Kind::HoneyComb;
  if (honeycomb)
    command.append("--honeycomb ").append(std::to_string(frame.mosaic.number));
  else
    command.append("--bayer ").append(BayerLetters(frame.mosaic.number));
  if (honeycomb)
    command += std::string(" --interpolation ") + (done.interpolation == 2   ? "rows"
                                                   : done.interpolation == 1 ? "columns"
                                                                             : "both");
  if (done.bits) command += " --bits " + std::to_string(done.bits);
  command += request.fullSize ? " --full-size" : " --margins " + MarginsText(done.margins);
  command += " --black " + (black != 0.0 ? NumberText(black) : "none");
  if (!done.gains.empty()) command += " --gains " + ListText(done.gains);
  if (done.knee) command += " --knee";
  if (done.clip) command += " --clip";
  if (done.autoRange)
    command += " --auto-range";
  else if (!range.empty())
    command += " --range " + ListText(range);
  if (done.gamma > 0.0) command += " --gamma " + NumberText(done.gamma);
  if (done.mono) command += " --mono";
  if (!request.levels.empty()) command += " --levels " + ListText(request.levels);
  return command;
}

std::vector<Keyword> ResultKeywords(const LightFrame& frame, const Development& done) {
  std::vector<Keyword> keywords = frame.keywords;
  const auto drop = [&](std::span<const std::string_view> names) {
    std::erase_if(keywords, [&](const Keyword& k) {
      return std::find(names.begin(), names.end(), std::string_view(UpperCase(k.name))) != names.end();
    });
  };
  constexpr std::array<std::string_view, 9> kPattern = {"BAYERPAT", "BAYER",    "COLORTYP", "COLORTYPE", "CFA-PAT",
                                                        "XBAYROFF", "YBAYROFF", "BAYOFFX",  "BAYOFFY"};
  constexpr std::array<std::string_view, 3> kBalance = {"WB_RED", "WB_GREEN", "WB_BLUE"};
  drop(kPattern);
  if (done.black != 0.0f) drop(kBlackKeywords);
  if (!done.gains.empty()) drop(kBalance);
  // Levels of other values than those of the file are no help.
  if (done.bits || done.black != 0.0f || !done.gains.empty() || done.gamma > 0.0) {
    DropLevelKeywords(keywords);
    constexpr std::array<std::string_view, 1> kWhite = {"SATURATE"};
    if (frame.sensorWhite) drop(kWhite);
  }
  // The camera's name alone would have the result taken for a mosaic again.
  if (done.mono) keywords.push_back(Keyword::Text("COLORTYP", "MONO", "developed to luminance"));
  PixelMap map;
  map.dx = -done.margins.left;
  map.dy = -done.margins.top;
  CarryPlaceKeywords(keywords, map);
  return keywords;
}

}  // namespace

DevelopReport DevelopFrame(const DevelopRequest& request, Steps& steps) {
  CheckOutput(request.output, request.force);
  steps.Begin("Reading", 1);
  LightFrame frame = LoadPicture(request.input, request.mosaic);
  steps.End("");
  CheckFrame(request, frame);
  DevelopReport report;
  report.mosaic = frame.mosaic.text;
  report.black = FindBlack(request.black, frame.keywords);
  const DevelopMargins margins = FindMargins(request, frame);
  report.blankPixels = BridgeBlankPixels(frame);
  const Development development = PlanDevelopment(request, frame, margins, report.black);
  report.gains = development.gains;
  const std::vector<double> range = SetRange(request, frame, report.black);
  report.command = CommandText(request, frame, development, report.black, range);

  Develop(request, development, frame, steps);

  std::vector<Keyword> keywords = ResultKeywords(frame, development);
  if (GiveLevels(*frame.image, request.levels, keywords, "--levels")) SetLevelKeywords(keywords, *frame.image);
  steps.Begin("Writing", 1);
  WritePicture(request.output, *frame.image, keywords, report.command);
  steps.End("");
  return report;
}

}  // namespace qmr
