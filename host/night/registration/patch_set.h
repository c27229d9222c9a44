// The places of the reference that tell most about its position: stars, edges, surface detail.
#pragma once

#include <array>
#include <vector>

#include "host/night/registration/luminance.h"

namespace qmr {

// Offsets of a patch's pixels from its middle: a disc.
struct PatchPixel {
  int x;
  int y;
};

// What the fit needs of the reference, an array each over all pixels of all patches, patch after patch.
struct PatchSet {
  static constexpr int kRadius = 8;
  // The square that the first search compares.
  static constexpr int kSearchRadius = 6;
  static constexpr int kSearchSide = 2 * kSearchRadius + 1;

  struct Middle {
    int x;
    int y;
  };

  std::vector<PatchPixel> shape;  // pixels of one patch
  std::vector<Middle> middles;    // one a patch
  std::vector<float> strength;    // one a patch: its contrast over that of the strongest ten, at most 1
  std::vector<float> value;       // smoothed lightly, as all that follows; raw scale
  std::vector<float> slopeX;      // derivative of the cubic spline, a pixel
  std::vector<float> slopeY;
  std::vector<float> bend;    // Laplacian: what a change of seeing adds
  std::vector<float> level;   // LevelOf the value above the darkest in units of the noise: for the weights
  std::vector<float> search;  // kSearchSide squares without spikes, mean taken away, unit length; a patch each
  float noise = 0.0f;         // of one pixel of the sky, raw scale

  std::size_t Count() const { return middles.size(); }
};

// A scale of brightness for noise: two steps an octave, from 0 for the dark sky. `signal` is at least 0.
float LevelOf(float signal);

// Patches with the strongest slopes, spread over the frame, at most `most`. Patches that hold a pixel which is no
// finite number are passed over. None on a featureless frame.
PatchSet ChoosePatches(const Luminance& reference, std::size_t most);

}  // namespace qmr
