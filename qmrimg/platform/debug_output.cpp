#include "qmrimg/platform/debug_output.h"

namespace qmr {
namespace {

DebugOutputHook debugOutputHook = nullptr;
void* debugOutputContext = nullptr;

}  // namespace

void SetDebugOutputHook(DebugOutputHook hook, void* context) {
  debugOutputHook = hook;
  debugOutputContext = context;
}

}  // namespace qmr

void OutputDebugStringW(const wchar_t* text) {
  if (text && qmr::debugOutputHook) qmr::debugOutputHook(text, qmr::debugOutputContext);
}
