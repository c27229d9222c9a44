// Progress reports of an operation and the look for Esc.
#include <atomic>

#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/messages.h"
#include "qmrimg/platform/truncate.h"
#include "qmrimg/platform/window.h"

namespace {

// The percentage goes out about this many times a report.
constexpr int kPostsPerReport = 50;

void Send(HWND window, qmr::ProgressCode code, const wchar_t* text) {
  if (window) window->Send(qmr::kProgressMessage, code, text);
}

}  // namespace

void CVynImage::ShowProgressInit(int bShow, const wchar_t* title, int total) {
  ProgressTotal = total;
  ProgressStep = total / kPostsPerReport > 1 ? total / kPostsPerReport : 1;
  ProgressOn = bShow;
  ProgressCount = 0;
  ProgressNext = 0;
  ProgressDirect = 0;
  if (bShow) Send(ProgressHandle, qmr::kProgressTitle, title);
}

void CVynImage::ShowProgressInit(int bShow, int id, int total) {
  ShowProgressInit(bShow, qmr::MessageText(id), total);
}

void CVynImage::ShowProgressInit(const wchar_t* title) {
  ProgressOn = 1;
  ProgressDirect = 1;
  ProgressTotal = 0;
  ProgressStep = 0;
  ProgressCount = 0;
  ProgressNext = 0;
  Send(ProgressHandle, qmr::kProgressTitle, title);
}

void CVynImage::ShowProgressInit(int id) {
  ShowProgressInit(qmr::MessageText(id));
}

// Worker threads come by as well, without a lock. The counters stay plain ints that are only touched through
// relaxed atomic references.
int CVynImage::ShowProgress(int n) {
  if (!ProgressOn) return 1;
  if (ProgressDirect) {
    if (ProgressHandle) ProgressHandle->Post(qmr::kProgressMessage, qmr::kProgressPercent, n);
    return ShowProgressContinue();
  }
  const int count = std::atomic_ref<int>(ProgressCount).fetch_add(n, std::memory_order_relaxed) + n;
  std::atomic_ref<int> next(ProgressNext);
  int expected = next.load(std::memory_order_relaxed);
  if (count > expected && next.compare_exchange_strong(expected, expected + ProgressStep, std::memory_order_relaxed)) {
    if (ProgressHandle && ProgressTotal != 0) {
      const double percent = static_cast<double>(count) / ProgressTotal * 100.0;
      ProgressHandle->Post(qmr::kProgressMessage, qmr::kProgressPercent, qmr::TruncateToInt(percent));
    }
  }
  return ShowProgressContinue();
}

int CVynImage::ShowProgressContinue() {
  if (!ProgressHandle || !ProgressHandle->IsOwnThread()) return 1;
  if (ProgressHandle->TakeEscape()) return 0;
  ProgressHandle->Repaint();
  ProgressHandle->DeliverPosted(qmr::kProgressMessage);
  return 1;
}

void CVynImage::ShowProgressEnd(const wchar_t* text) {
  if (ProgressOn) Send(ProgressHandle, qmr::kProgressEnd, text);
  ProgressOn = 0;
}

// A plain 0 is no message but the null text: operations close so.
void CVynImage::ShowProgressEnd(int id) {
  ShowProgressEnd(id == 0 ? nullptr : qmr::MessageText(id));
}
void CVynImage::ShowProgressMsg(const wchar_t* text) {
  Send(ProgressHandle, qmr::kProgressText, text);
}
void CVynImage::ShowProgressMsg(int id) {
  ShowProgressMsg(qmr::MessageText(id));
}
void CVynImage::ShowProgressSetHeader(const wchar_t* text) {
  Send(ProgressHandle, qmr::kProgressSetHeader, text);
}
void CVynImage::ShowProgressClearHeader() {
  Send(ProgressHandle, qmr::kProgressClearHeader, nullptr);
}
