#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/simulate/detector.h"
#include "host/simulate/options.h"
#include "host/simulate/scene.h"
#include "host/simulate/truth.h"

namespace qmr::sim {

enum class FrameKind { Light, Dark, Flat, Bias };

// Seconds that a frame of the kind is exposed.
double ExposureSeconds(const SimulateOptions& options, FrameKind kind);

// The pixels of a night, frame by frame, in memory.
class NightMaker {
 public:
  // Checked options. `std::bad_alloc` when memory is short.
  explicit NightMaker(const SimulateOptions& options);

  // Frame `index` of a kind; `out` holds width * height samples.
  void Make(FrameKind kind, int index, std::span<std::uint16_t> out);

  // What the sensor of frame `index` would count on average without vignetting and dark current: stars, nebula, sky
  // and trails, in electrons. `colour` 0..2 gives that colour at every pixel, -1 what the filters pass.
  void MakeScene(int index, int colour, std::span<float> out);

  NightTruth Truth() const;
  const Scene& Sky() const { return scene_; }
  const Detector& Camera() const { return detector_; }
  const std::vector<TruthFrame>& Frames() const { return frames_; }

 private:
  static constexpr int BandRows = 32;

  template <class Band>
  void EachBand(const Band& band);
  void LightRows(const Scene::View& view, int firstRow, int rows, int colour, float* out) const;
  void AddTrail(const TruthTrail& trail, int y, float* row) const;

  const SimulateOptions options_;
  int threads_;
  std::vector<TruthFrame> frames_;
  Scene scene_;
  Detector detector_;
  std::vector<float> scratch_;  // per thread: a band and two rows
};

}  // namespace qmr::sim
