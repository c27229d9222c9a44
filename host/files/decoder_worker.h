#pragma once

#include "host/files/handover.h"

namespace qmr {

/// The life of one decoder process, from the fence to the answer. `buffer` is a memory
/// file that may take the pixels, or -1; `serverPid` the process that forked it.
[[noreturn]] void RunDecoder(const DecodeRequest& request, int file, int answer, int buffer, int serverPid);

/// Closes every descriptor from `first` up.
void CloseFrom(int first);

}  // namespace qmr
