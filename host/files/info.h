#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "host/files/image_file.h"
#include "host/files/mosaic.h"

namespace qmr {

/// Statistics of the finite pixels of one plane, in the file's physical units.
struct PlaneStatistics {
  std::int64_t pixels = 0;  ///< finite ones
  std::int64_t blank = 0;   ///< the others
  double minimum = 0.0;
  double maximum = 0.0;
  double mean = 0.0;
  double median = 0.0;     ///< mean of the middle two for an even count
  double deviation = 0.0;  ///< population standard deviation
  /// Noise of a pixel: 1.4826 times the median of |difference of pixels two columns apart|, over the root of 2. Stars
  /// and gradients hardly touch it, and the two pixels have the same colour on a mosaic. 0 below three columns.
  double noise = 0.0;
};

PlaneStatistics MeasurePlane(const DecodedImage& image, int plane);

struct InfoOptions {
  bool json = false;
  std::optional<std::string> bayer;  ///< the user's word on the mosaic
  /// Gives the layout number for a camera's maker and model, if it is known.
  std::function<std::optional<int>(const std::string& maker, const std::string& model)> cameraPattern;
  ReadOptions read;
};

/// Tells what each file says and its statistics, as text or as one JSON array. Errors of files go to `errors`, a line
/// each (and into the array as {"file", "error"}). Returns the number of files that could not be told.
int WriteInfo(const std::vector<std::string>& paths, const InfoOptions& options, std::ostream& out,
              std::ostream& errors);

}  // namespace qmr
