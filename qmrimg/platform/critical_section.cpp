#include "qmrimg/platform/critical_section.h"

CCriticalSection::CCriticalSection() = default;
CCriticalSection::~CCriticalSection() = default;
void CCriticalSection::Lock() {
  mutex_.lock();
}
void CCriticalSection::Unlock() {
  mutex_.unlock();
}
