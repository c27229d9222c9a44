#pragma once

#include <cstddef>

#include "host/files/image_file.h"
#include "host/files/sockets.h"

namespace qmr {

/// Memory files that held pixels before. Fresh shared memory costs many times the decoding that goes into it (measured
/// for 24 MB: 15 ms against 1), so what a frame gives back serves the next one. Safe from several threads.
namespace pixel_buffers {

/// The buffer that came back last, or an invalid mapping when there is none.
PixelMapping Take();
/// Keeps the buffer for a later Take(), within small limits on number and size; what does not fit is given up.
void Keep(PixelMapping& buffer) noexcept;

}  // namespace pixel_buffers

}  // namespace qmr
