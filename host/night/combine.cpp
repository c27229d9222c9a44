#include "host/night/combine.h"

#include <algorithm>
#include <cstddef>
#include <span>

#include "host/night/combine_rows.h"
#include "host/night/night.h"
#include "qmrimg/geometry/frame_sampler.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {
namespace {

FramePlacement PlacementOf(const LightFrame& frame) {
  const LibraryGeometry g = ToLibrary(frame.registration.geometry);
  return {g.shiftX, g.shiftY, g.angleDegrees, 1};
}

// The samples of one destination row from all frames, and what a thread needs to make them.
class RowOfFrames {
 public:
  RowOfFrames(const std::vector<const LightFrame*>& frames, const std::vector<FrameScale>& scales, int method,
              int width, int planes)
      : scales_(scales), width_(static_cast<std::size_t>(width)), planes_(static_cast<std::size_t>(planes)) {
    samplers_.reserve(frames.size());
    for (const LightFrame* frame : frames)
      samplers_.emplace_back(method, frame->image.get(), PlacementOf(*frame), width, planes);
    values_.resize(frames.size() * planes_ * width_);
    valid_.resize(frames.size() * width_);
    rows_.values.resize(frames.size());
    rows_.valid.resize(frames.size());
  }

  void Sample(int y) {
    std::vector<float*> lines(planes_);
    for (std::size_t i = 0; i < samplers_.size(); ++i) {
      for (std::size_t p = 0; p < planes_; ++p) lines[p] = Line(i, p);
      samplers_[i].Row(y, lines.data(), valid_.data() + i * width_);
      for (std::size_t p = 0; p < planes_; ++p) {
        float* const line = lines[p];
        const double scale = scales_[i].scale[std::min<std::size_t>(p, 2)];
        const double offset = scales_[i].offset[std::min<std::size_t>(p, 2)];
        const std::size_t width = width_;
#pragma omp simd
        for (std::size_t x = 0; x < width; ++x) line[x] = static_cast<float>(line[x] * scale + offset);
        // A sample that rests on a pixel which is no number is none.
        std::uint8_t* const valid = valid_.data() + i * width;
        for (std::size_t x = 0; x < width; ++x) valid[x] = static_cast<std::uint8_t>(valid[x] & (line[x] == line[x]));
      }
    }
  }

  // The rows of one plane.
  const FrameRows& Plane(int plane) {
    for (std::size_t i = 0; i < samplers_.size(); ++i) {
      rows_.values[i] = Line(i, static_cast<std::size_t>(plane));
      rows_.valid[i] = valid_.data() + i * width_;
    }
    return rows_;
  }

 private:
  float* Line(std::size_t frame, std::size_t plane) {
    return values_.data() + (frame * planes_ + plane) * width_;
  }

  std::vector<FrameSampler> samplers_;
  const std::vector<FrameScale>& scales_;
  std::size_t width_;
  std::size_t planes_;
  std::vector<float> values_;
  std::vector<std::uint8_t> valid_;
  FrameRows rows_;
};

}  // namespace

Combined CombineFrames(const std::vector<const LightFrame*>& frames, const std::vector<FrameScale>& scales,
                       const StackOptions& options, Steps& steps) {
  const CVynImage& first = *frames[0]->image;
  const int width = first.GetWidth();
  const int height = first.GetHeight();
  const int planes = first.GetPlanes();
  // Frames turn about the middle of their pixels.
  for (const LightFrame* frame : frames) frame->image->SetStdCtr((width - 1) / 2.0, (height - 1) / 2.0);

  Combined combined;
  combined.image = std::make_unique<CVynImage>(-32, width, height, planes, 1.0, 0.0, 1);
  combined.coverage.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  steps.Begin("Stacking", height);
  for (int top = 0; top < height; top += options.strip) {
    const int bottom = std::min(height, top + options.strip);
    ForRowRanges(top, bottom, [&](int from, int to) {
      RowOfFrames row(frames, scales, options.interpolation, width, planes);
      RowCombiner combiner(options.combine, options.kappa, frames.size());
      for (int y = from; y < to; ++y) {
        row.Sample(y);
        for (int p = 0; p < planes; ++p) combiner.Combine(row.Plane(p), WriteRow(*combined.image, y, p, 0, width));
        std::uint16_t* const covered =
            combined.coverage.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
        for (const std::uint8_t* valid : row.Plane(0).valid)
          for (int x = 0; x < width; ++x) covered[x] = static_cast<std::uint16_t>(covered[x] + (valid[x] != 0));
        steps.Advance(1);
      }
    });
  }
  for (int p = 0; p < planes; ++p) {
    double low, high;
    combined.image->GetMinMax(p, &low, &high);
    static_cast<CImage&>(*combined.image).SetLevel(p, low, high);
  }
  steps.End("Stacked " + std::to_string(frames.size()) + " frames by " + CombineName(options.combine));
  return combined;
}

}  // namespace qmr
