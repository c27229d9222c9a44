#include "qmrimg/restoration/restoration_steps.h"

#include <utility>

namespace qmr {
namespace {

thread_local RestorationSteps* watcher = nullptr;

}  // namespace

RestorationSteps::~RestorationSteps() = default;

WatchRestoration::WatchRestoration(RestorationSteps* steps) : before_(std::exchange(watcher, steps)) {}
WatchRestoration::~WatchRestoration() {
  watcher = before_;
}

void TellRestorationStep(int plane, int iteration, double chiSquare) {
  if (watcher) watcher->Step({plane, iteration, chiSquare});
}

}  // namespace qmr
