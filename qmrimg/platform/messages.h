// The library's table of messages.
#pragma once

#include "qmrimg/platform/export.h"

namespace qmr {

inline constexpr int kFirstMessage = 6100;
inline constexpr int kLastMessage = 6198;

// The text of message `id`, a static string; an empty text for a number outside the table.
QMR_API const wchar_t* MessageText(int id);

}  // namespace qmr
