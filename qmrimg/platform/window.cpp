#include "qmrimg/platform/window.h"

namespace qmr {

HostWindow::HostWindow() : thread_(std::this_thread::get_id()) {}
HostWindow::~HostWindow() = default;
bool HostWindow::IsOwnThread() const {
  return thread_ == std::this_thread::get_id();
}
void HostWindow::MoveToThisThread() {
  thread_ = std::this_thread::get_id();
}

}  // namespace qmr
