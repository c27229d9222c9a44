#include "host/night/night.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <utility>

#include "host/files/atomic_file.h"
#include "host/night/combine.h"
#include "host/night/failure.h"
#include "host/night/keywords.h"
#include "host/night/masters.h"
#include "host/night/output.h"
#include "host/night/plan.h"
#include "host/night/transparency.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/store/parallel.h"

namespace qmr {
namespace {

constexpr int kPreviewSide = 1600;

std::string Counted(std::size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// Frames side by side where there are enough of them for all threads (the operations inside then run on one thread
// each), one after the other otherwise.
void ForFrames(std::size_t count, FunctionRef<void(std::size_t)> body) {
  const auto frame = [&](int i) { body(static_cast<std::size_t>(i)); };
  if (static_cast<int>(count) >= CParallel::GetMaxThreads())
    ForRows(0, static_cast<int>(count), frame);
  else
    ForRowsSerial(0, static_cast<int>(count), frame);
}

NightPlan MakePlan(const StackOptions& options) {
  NightPlan plan;
  if (!options.folder.empty()) plan = PlanNight(options.folder);
  if (!options.lights.empty()) {
    plan.lights.clear();
    for (const std::string& path : options.lights) {
      std::vector<FrameSource> frames = ListFrames(path);
      std::move(frames.begin(), frames.end(), std::back_inserter(plan.lights));
    }
  }
  if (plan.lights.empty()) {
    if (!plan.leftOut.empty())
      throw Failure(kExitBadData, PrintablePath(plan.leftOut[0].path) + ": " + plan.leftOut[0].reason);
    throw Failure(kExitNoInput, PrintablePath(options.folder) +
                                    ": holds no light frames (FITS or camera raw files, in lights/ or by themselves)");
  }
  return plan;
}

// An output that can't be made would otherwise be noticed only after all the work.
void CheckOutputs(const StackOptions& options) {
  for (const std::string& path : {options.output, options.preview, options.coverage, options.report}) {
    if (path.empty()) continue;
    const AtomicFile probe(path);
    if (!probe.Good()) throw Failure(kExitCannotCreate, probe.Error()->Message());
  }
}

// What the first light that can be read says of the mosaic; its pixels are kept for its turn.
MosaicLayout MosaicOfNight(NightPlan& plan, const StackOptions& options) {
  for (FrameSource& source : plan.lights) {
    if (!source.decoded) {
      FileResult<DecodedImage> read = ReadImageFile(source.path);
      if (!read) continue;
      source.decoded = std::make_shared<DecodedImage>(std::move(*read));
    }
    LightFrame frame;
    LoadImage(source, frame, options.bayer);
    return frame.mosaic;
  }
  return {};
}

void PrepareLights(NightPlan& plan, const Masters& masters, const StackOptions& options, Steps& steps,
                   std::vector<LightFrame>& frames) {
  frames.resize(plan.lights.size());
  steps.Begin("Calibrating", static_cast<std::int64_t>(frames.size()));
  ForFrames(frames.size(), [&](std::size_t i) {
    PrepareLight(plan.lights[i], masters, options.bayer, frames[i]);
    plan.lights[i].decoded.reset();
    steps.Advance(1);
  });
  // Frames that differ from most of the others in shape or mosaic can't lie on the same stack.
  std::map<std::string, int> shapes;
  const auto shape = [](const LightFrame& f) {
    return std::to_string(f.image->GetWidth()) + " x " + std::to_string(f.image->GetHeight()) + " with " +
           Counted(static_cast<std::size_t>(f.image->GetPlanes()), "plane");
  };
  for (const LightFrame& frame : frames)
    if (frame.Used()) ++shapes[shape(frame)];
  const auto common =
      std::max_element(shapes.begin(), shapes.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
  const LightFrame* first = nullptr;
  for (LightFrame& frame : frames) {
    if (!frame.Used()) continue;
    if (shape(frame) != common->first) {
      frame.leftOut = "it is " + shape(frame) + ", most frames are " + common->first;
    } else if (!first) {
      first = &frame;
    } else if (frame.mosaic.number != first->mosaic.number) {
      frame.leftOut = "its mosaic differs from that of " + first->name;
    }
    if (!frame.Used()) frame.image.reset();
  }
  const auto used = std::count_if(frames.begin(), frames.end(), [](const LightFrame& f) { return f.Used(); });
  steps.End("Calibrated " + Counted(static_cast<std::size_t>(used), "frame"));
}

std::size_t ChooseReference(const std::vector<LightFrame>& frames, const StackOptions& options) {
  std::size_t best = frames.size();
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const LightFrame& frame = frames[i];
    if (!options.reference.empty()) {
      const std::string name = std::filesystem::path(options.reference).filename().string();
      if (frame.name != name) continue;
      if (!frame.Used()) throw Failure(kExitBadData, "the reference " + PrintablePath(name) + ": " + frame.leftOut);
      return i;
    }
    if (frame.Used() && (best == frames.size() || frame.quality.sharpness > frames[best].quality.sharpness)) best = i;
  }
  if (!options.reference.empty())
    throw Failure(kExitUsage, "--reference: no light frame is named '" + PrintablePath(options.reference) + "'");
  if (best == frames.size()) {
    for (const LightFrame& frame : frames)
      throw Failure(kExitBadData, "no usable frame; " + PrintablePath(frame.path) + ": " + frame.leftOut);
  }
  return best;
}

void Register(std::vector<LightFrame>& frames, std::size_t reference, const StackOptions& options, Steps& steps) {
  if (options.align == AlignMode::kNone) return;
  steps.Begin("Registering", static_cast<std::int64_t>(frames.size()));
  const RegistrationReference onto(*frames[reference].image, options.align);
  // Side by side whatever their number: the transforms of one frame are too small to be worth several threads.
  ForRows(0, static_cast<int>(frames.size()), [&](int at) {
    const auto i = static_cast<std::size_t>(at);
    LightFrame& frame = frames[i];
    if (frame.Used() && i != reference) {
      std::variant<Registration, std::string> result = onto.Measure(*frame.image);
      if (const auto* measured = std::get_if<Registration>(&result)) {
        frame.registration = *measured;
      } else {
        frame.leftOut = "can't be registered: " + std::get<std::string>(result);
        frame.image.reset();
      }
    }
    steps.Advance(1);
  });
  const auto used = std::count_if(frames.begin(), frames.end(), [](const LightFrame& f) { return f.Used(); });
  steps.End("Registered " + Counted(static_cast<std::size_t>(used), "frame") + " onto " +
            PrintablePath(frames[reference].name));
}

// Takes each frame's sky off, so that interpolation works around 0 (the Lanczos weights don't sum to 1 exactly, and
// on a high sky that would show as a pattern), and tells what brings the values to those of the reference.
std::vector<FrameScale> LevelFrames(std::vector<LightFrame>& frames, std::size_t reference,
                                    const StackOptions& options) {
  std::vector<FrameScale> scales(frames.size());
  if (options.normalise == Normalisation::kScale) {
    const TransparencyReference details(frames[reference]);
    ForFrames(frames.size(), [&](std::size_t i) {
      if (!frames[i].Used() || i == reference) return;
      std::fill_n(scales[i].scale, 3, details.Ratio(frames[i]));
    });
  }
  ForFrames(frames.size(), [&](std::size_t i) {
    LightFrame& frame = frames[i];
    if (!frame.Used()) return;
    CVynImage& image = *frame.image;
    for (int p = 0; p < std::min(image.GetPlanes(), 3); ++p) {
      const auto sky = static_cast<float>(frame.quality.background[p]);
      scales[i].offset[p] = options.normalise == Normalisation::kNone ? static_cast<double>(sky)
                                                                      : frames[reference].quality.background[p];
      ForRows(0, image.GetHeight(), [&](int y) {
        for (float& v : WriteRow(image, y, p, 0, image.GetWidth())) v -= sky;
      });
    }
  });
  return scales;
}

void CompareWithTruth(NightResult& result, const StackOptions& options) {
  std::string error;
  const auto truth = ReadTruth(options.truth, error);
  if (!truth) throw Failure(kExitBadData, error);
  std::vector<MeasuredGeometry> measured;
  for (const LightFrame& frame : result.frames) {
    if (!frame.Used()) continue;
    const FrameGeometry& g = frame.registration.geometry;
    measured.push_back({frame.name, g.dx, g.dy, g.thetaDegrees});
  }
  result.againstTruth = CompareGeometry(*truth, measured, result.reference);
}

}  // namespace

const char* CombineName(CombineMethod method) {
  constexpr const char* kNames[] = {"median", "kappa-sigma", "average", "maximum", "minimum"};
  return kNames[static_cast<int>(method)];
}

NightResult StackNight(const StackOptions& options, Steps& steps) {
  CheckOutputs(options);
  NightPlan plan = MakePlan(options);
  NightResult result;
  result.leftOut = plan.leftOut;
  const MosaicLayout mosaic = MosaicOfNight(plan, options);
  if (mosaic.CanBeDeveloped()) result.mosaic = mosaic.text;
  if (mosaic.namedInVain) steps.Warn("a mosaic is named, but the frames have several planes: they stack as they are");
  const Masters masters = MakeMasters(plan, options, mosaic, steps, result.leftOut);

  std::vector<LightFrame>& frames = result.frames;
  PrepareLights(plan, masters, options, steps, frames);
  const std::size_t reference = ChooseReference(frames, options);
  result.reference = frames[reference].name;
  Register(frames, reference, options, steps);
  const std::vector<FrameScale> scales = LevelFrames(frames, reference, options);

  std::vector<const LightFrame*> used;
  std::vector<FrameScale> usedScales;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    if (!frames[i].Used()) {
      result.leftOut.push_back({frames[i].path, frames[i].leftOut});
      continue;
    }
    used.push_back(&frames[i]);
    usedScales.push_back(scales[i]);
    result.exposure += frames[i].facts.exposureSeconds.value_or(0.0);
  }
  for (const LeftOut& out : result.leftOut) steps.Warn("left out " + PrintablePath(out.path) + ": " + out.reason);
  result.used = static_cast<int>(used.size());
  Combined combined = CombineFrames(used, usedScales, options, steps);
  result.stack = std::move(combined.image);
  for (LightFrame& frame : frames) frame.image.reset();

  const std::vector<Keyword> keywords = StackKeywords(result, frames[reference], masters, options);
  steps.Begin("Writing", 1);
  WriteStack(options.output, *result.stack, keywords);
  if (!options.coverage.empty())
    WriteCoverage(options.coverage, result.stack->GetWidth(), result.stack->GetHeight(), combined.coverage, keywords);
  if (!options.preview.empty()) WritePreview(options.preview, *result.stack, kPreviewSide, IsBottomUp(keywords));
  if (!options.truth.empty()) CompareWithTruth(result, options);
  if (!options.report.empty())
    if (const FileStatus error = WriteTextFile(options.report, ReportJson(result, options)))
      throw Failure(kExitCannotCreate, error->Message());
  steps.End("");
  return result;
}

}  // namespace qmr
