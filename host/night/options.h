// What the user wants of a night.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/night/registration/registration.h"

namespace qmr {

enum class CombineMethod { kMedian, kKappaSigma, kAverage, kMaximum, kMinimum };
enum class Normalisation { kNone, kOffset, kScale };

struct StackOptions {
  // The night's folder, or empty when the lights are named below.
  std::string folder;
  std::vector<std::string> lights;  // files or folders; replace what the folder holds
  // A master, or a folder of frames to make one from; replace what the folder holds. "none" switches a step off.
  std::string dark, flat, bias;

  std::string output = "stack.fit";
  std::string preview;  // PNG; empty: the output's name with .png
  bool noPreview = false;
  std::string coverage;  // FITS of how many frames cover each pixel; empty: none
  std::string report;    // JSON; empty: none
  std::string truth;     // truth.json of a simulated night to compare with; empty: none

  std::optional<std::string> bayer;  // the user's word on the mosaic
  AlignMode align = AlignMode::kRotation;
  std::string reference;  // name of the reference frame; empty: chosen
  CombineMethod combine = CombineMethod::kKappaSigma;
  double kappa = 2.5;
  Normalisation normalise = Normalisation::kScale;
  int interpolation = 3;  // method number of CInterp
  int strip = 256;        // rows combined at a time
};

}  // namespace qmr
