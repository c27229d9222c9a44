#pragma once

#include "host/files/decode.h"

namespace qmr {

bool LooksLikeFits(std::span<const std::byte> bytes);

/// `bytes` is the file; behind it, up to `paddedSize` (whole blocks), zeros can be read. Memory is not written to.
/// Plain images are converted directly from the bytes, all others by the FITS library.
DecodeReport DecodeFits(std::span<const std::byte> bytes, std::size_t paddedSize, PixelSink& sink,
                        bool plainLibraryPath);

}  // namespace qmr
