// The host's window as the library sees it: a place that progress goes to and that Esc comes from.
#pragma once

#include <thread>

#include "qmrimg/platform/export.h"

namespace qmr {

// Number of all progress messages.
inline constexpr int kProgressMessage = 1136;

// What a progress message is about.
enum ProgressCode {
  kProgressTitle = 0,
  kProgressPercent = 1,
  kProgressEnd = 2,
  kProgressText = 4,
  kProgressSetHeader = 12,
  kProgressClearHeader = 13,
};

// A host derives from this class and passes the object's address as HWND. A null window means silence.
//
// Send and the four queue operations are called on the thread that runs the operation; Post may be called from
// any worker thread at any time and must be safe for that.
class QMR_API HostWindow {
 public:
  // The calling thread becomes the one whose queue this window lives on.
  HostWindow();
  HostWindow(const HostWindow&) = delete;
  HostWindow& operator=(const HostWindow&) = delete;
  virtual ~HostWindow();

  // Delivers a message at once. `text` may be null and is valid only during the call.
  virtual void Send(int message, ProgressCode code, const wchar_t* text) = 0;
  // Puts a message into the window's queue.
  virtual void Post(int message, ProgressCode code, int value) = 0;

  // Removes all pending key presses up to and including the first Esc; true when there was one.
  virtual bool TakeEscape() = 0;
  // Serves pending requests to repaint.
  virtual void Repaint() = 0;
  // Delivers the posted messages of the given number.
  virtual void DeliverPosted(int message) = 0;

  // True on the thread whose queue the window lives on: only there do key presses, repaints and posted messages
  // get served, worker threads see nothing.
  bool IsOwnThread() const;
  // Moves the window to the calling thread.
  void MoveToThisThread();

 private:
  std::thread::id thread_;
};

}  // namespace qmr

using HWND = qmr::HostWindow*;
