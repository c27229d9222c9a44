// How much light of the same sky two frames hold.
#pragma once

#include <vector>

#include "host/night/frame.h"

namespace qmr {

// Isolated bright details of the reference frame, by whose light other frames are compared with it.
class TransparencyReference {
 public:
  explicit TransparencyReference(const LightFrame& reference);

  // The factor that brings `frame`'s light to that of the reference: the median over the details of the ratio of
  // their fluxes above the local sky, in a box around the place where the frame's geometry puts them. 1 where fewer
  // than eight details serve or the ratio is absurd.
  double Ratio(const LightFrame& frame) const;

 private:
  struct Detail {
    int x, y;
    double flux;
  };
  std::vector<Detail> details_;
};

}  // namespace qmr
