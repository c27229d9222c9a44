// Options that mean the same in several commands.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "host/files/file_error.h"
#include "host/night/failure.h"

namespace qmr {

inline void AddResultFlags(CLI::App& command, bool& force, bool& verbose, bool& quiet,
                           const char* told = "Print all settings, those that were found included") {
  command.add_flag("--force,-f", force, "Replace OUT if it exists");
  command.add_flag("--verbose,-v", verbose, told);
  command.add_flag("--quiet,-q", quiet, "Say nothing but warnings and errors");
}

inline void AddInterpolation(CLI::App& command, std::string& words) {
  command
      .add_option("--interpolation", words,
                  "Bilinear, Bicubic (default), Lanczos2, Lanczos3 or NearestNeighbor; whole shifts are copied")
      ->option_text("METHOD");
}

inline CLI::Option* AddMatchRange(CLI::App& command, int& range) {
  return command
      .add_option("--range", range, "How far --align matching looks, pixels to each side; 2 to 200, default 20")
      ->option_text("N");
}

// The user's word on the mosaic from --bayer and --honeycomb, of which only one may be given.
inline std::optional<std::string> MosaicWord(const std::string& bayer, const std::string& honeycomb) {
  if (honeycomb.empty()) return bayer.empty() ? std::nullopt : std::optional(bayer);
  if (!bayer.empty()) throw Failure(kExitUsage, "--honeycomb and --bayer: give one of them");
  if (honeycomb != "11" && honeycomb != "12" && honeycomb != "13" && honeycomb != "14")
    throw Failure(kExitUsage, "--honeycomb: 11, 12, 13 or 14, not '" + PrintablePath(honeycomb) + "'");
  return honeycomb;
}

}  // namespace qmr
