// Text, lines and a scale bar on a picture.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "host/night/steps.h"

namespace qmr {

// Columns and rows as the file stores them, from 0, pixel centres at whole numbers. Texts are UTF-8; in them {NAME}
// stands for the value of that keyword and {{ for a brace.
struct TextMark {
  double x = 0.0, y = 0.0;
  std::string text;
};
struct LineMark {
  double x1 = 0.0, y1 = 0.0, x2 = 0.0, y2 = 0.0;
};

// The point of a text that lies at its place: shares of its width and height.
struct Anchor {
  const char* name = "top-left";
  double across = 0.0, down = 0.0;
};
const std::vector<Anchor>& Anchors();

struct AnnotateRequest {
  std::string input, output;
  std::vector<TextMark> texts;
  std::vector<LineMark> lines;
  std::string caption;
  bool scaleBar = false;
  std::optional<double> pixelScale;  // arc seconds a pixel; else from the keywords
  std::string family;                // empty for the system's default
  std::optional<double> size;        // of the em, pixels; else a fortieth of the picture's height, 12 at least
  std::optional<int> lineWidth;      // pixels; else a twelfth of the size
  bool bold = false, italic = false, smooth = true;
  unsigned long colour = 0xffffff;  // 0x00BBGGRR
  Anchor anchor;
  std::vector<double> levels;  // black and white, or both of each plane; empty for those of the file or the sky
  std::optional<std::string> bayer;
  bool force = false;
};

struct AnnotateReport {
  std::string command;  // gives the same picture again
  std::string font;     // what was drawn with, in words; empty where there was no text
};

// Reads, draws, writes. Colours run from black to white of the levels, which the result carries as CBLACK and CWHITE.
// Only pixels under ink change; pixels without a value take the ink as if they were black, and stay without a value
// elsewhere. Where the file says that its rows run upwards, texts do so as well. A Failure says what is wrong, and an
// older output stays as it was.
AnnotateReport Annotate(const AnnotateRequest& request, Steps& steps);

}  // namespace qmr
