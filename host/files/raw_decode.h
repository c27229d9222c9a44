#pragma once

#include "host/files/decode.h"

namespace qmr {

/// Whether the bytes begin as the raw files of digital cameras do. Some of those are kinds of TIFF, and so are other
/// files.
bool LooksLikeCameraRaw(std::span<const std::byte> bytes);

/// The visible area of the sensor as the camera stored it, rows from the sensor's top, however the camera was held:
/// nothing subtracted, scaled or interpolated. One plane with BAYERPAT for a Bayer mosaic, one with COLORTYP MONO for
/// a sensor without filters, three where the file holds three values a pixel. PEDESTAL is the black level (the mean of
/// the sites'), SATURATE the white level, WB_RED, WB_GREEN and WB_BLUE are the camera's multipliers. Other mosaics are
/// refused. Memory is not written to.
DecodeReport DecodeCameraRaw(std::span<const std::byte> bytes, PixelSink& sink);

}  // namespace qmr
