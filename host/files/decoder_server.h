#pragma once

namespace qmr {

/// The life of the server process: takes requests from `control` and forks one decoder for each, kills those that take
/// too long, and says how each one ended. Ends, with all decoders, when the other side of `control` closes. To be
/// called in a freshly forked process.
[[noreturn]] void RunDecoderServer(int control);

}  // namespace qmr
