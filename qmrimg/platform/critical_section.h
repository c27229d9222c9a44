#pragma once

#include <mutex>

#include "qmrimg/platform/object.h"

// A lock that its owner may take again.
class QMR_API CCriticalSection : public CObject {
 public:
  CCriticalSection();
  CCriticalSection(const CCriticalSection&) = delete;
  CCriticalSection& operator=(const CCriticalSection&) = delete;
  ~CCriticalSection() override;
  void Lock();
  void Unlock();

 private:
  std::recursive_mutex mutex_;
};
