#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "host/files/file_error.h"
#include "host/files/keyword.h"

namespace qmr {

/// Row y of a plane, at least `width` samples, good until the next call; null ends the writing with an error.
/// Called once a row, planes and rows ascending, on the calling thread.
using FloatRowSource = std::function<const float*(int plane, int y)>;
using Sample16RowSource = std::function<const std::uint16_t*(int plane, int y)>;

/// Writes a FITS file of 32-bit floats (BITPIX -32). One plane gives two axes, more give three. DATASUM and CHECKSUM
/// are set. The file appears under its name only when it is complete (see AtomicFile). Structural keywords in
/// `keywords` are left out (IsStructuralKeyword), so that those of an input file can be handed on. Long texts use
/// CONTINUE, names that FITS does not allow the HIERARCH form; characters outside printable ASCII become '?'.
FileStatus WriteFitsFloat(const std::string& path, int width, int height, int planes, const FloatRowSource& rows,
                          std::span<const Keyword> keywords = {});

/// The same with 16-bit unsigned samples (BITPIX 16 with BZERO 32768).
FileStatus WriteFits16(const std::string& path, int width, int height, int planes, const Sample16RowSource& rows,
                       std::span<const Keyword> keywords = {});

/// All samples at once: plane after plane, row after row; exactly width * height * planes of them.
FileStatus WriteFits16(const std::string& path, int width, int height, int planes,
                       std::span<const std::uint16_t> samples, std::span<const Keyword> keywords = {});

}  // namespace qmr
