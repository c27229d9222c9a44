// What the iterative restorations tell of their way, beyond the percentages of a progress window.
#pragma once

#include "qmrimg/platform/export.h"

namespace qmr {

struct RestorationStep {
  int plane;         // from 1; 0 in an image of one plane
  int iteration;     // from 1; 0 is the first estimate, before any iteration
  double chiSquare;  // reduced: of the model's misfit, per pixel that counts
};

class QMR_API RestorationSteps {
 public:
  virtual ~RestorationSteps();
  // Called on the thread that called Do, outside of parallel regions. Must not throw.
  virtual void Step(const RestorationStep& step) = 0;
};

// Has the solvers that run on this thread tell `steps` for the length of a scope; scopes nest. `steps` is not owned
// and may be null.
class QMR_API WatchRestoration {
 public:
  explicit WatchRestoration(RestorationSteps* steps);
  WatchRestoration(const WatchRestoration&) = delete;
  WatchRestoration& operator=(const WatchRestoration&) = delete;
  ~WatchRestoration();

 private:
  RestorationSteps* before_;
};

// For the solvers: after the first estimate stands, and after each iteration. Does nothing when nobody watches.
void TellRestorationStep(int plane, int iteration, double chiSquare);

}  // namespace qmr
