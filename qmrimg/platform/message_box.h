// Message boxes go through one hook that a host may replace.
#pragma once

#include "qmrimg/platform/object.h"

inline constexpr unsigned MB_OK = 0;
inline constexpr unsigned MB_ICONINFORMATION = 64;

// Shows a text, or the text of message `id`, and gives the button that was pressed (1: OK). `help` is accepted
// and has no effect.
QMR_API int AfxMessageBox(const wchar_t* text, unsigned flags = 0, unsigned help = 0);
QMR_API int AfxMessageBox(int id, unsigned flags = 0, unsigned help = static_cast<unsigned>(-1));

namespace qmr {

using MessageBoxHook = int (*)(const wchar_t* text, unsigned flags, void* context);

// Installs the hook that shows message boxes; null brings back the default, one line on standard error. To be
// set before operations run.
QMR_API void SetMessageBoxHook(MessageBoxHook hook, void* context);

}  // namespace qmr
