// Traces for developers, as desktop systems hand them to a debugger.
#pragma once

#include "qmrimg/platform/export.h"

// Sends a text, with its own line ends, to the debug output: nowhere, unless a hook takes it.
QMR_API void OutputDebugStringW(const wchar_t* text);

namespace qmr {

using DebugOutputHook = void (*)(const wchar_t* text, void* context);

// Installs the hook that takes debug output; null brings back silence. To be set before operations run.
QMR_API void SetDebugOutputHook(DebugOutputHook hook, void* context);

}  // namespace qmr
