#include "host/annotate/annotate.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cwchar>
#include <span>
#include <string_view>
#include <utility>

#include "host/annotate/pixel_scale.h"
#include "host/compose/given_levels.h"
#include "host/files/file_error.h"
#include "host/night/failure.h"
#include "host/night/frame.h"
#include "host/night/keywords.h"
#include "host/operations/parameters.h"
#include "host/operations/picture_file.h"
#include "qmrimg/drawing/draw_line.h"
#include "qmrimg/drawing/draw_text.h"
#include "qmrimg/drawing/text_bitmap.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/platform/text.h"

namespace qmr {
namespace {

constexpr int kSmoothScale = 2;

int Round(double v) {
  return static_cast<int>(std::floor(v + 0.5));
}

// ---- Words ---------------------------------------------------------------------------------------------------------

// A text for a message, cut where it is long.
std::string Shown(const std::string& text) {
  constexpr std::size_t kMost = 40;
  const std::wstring wide = WidenUtf8(text);
  return PrintablePath(wide.size() <= kMost ? text : NarrowUtf8(wide.substr(0, kMost)) + "...");
}

// A text with the values of keywords in place of their names in braces; braces around nothing stay.
std::string Filled(const std::string& text, const LightFrame& frame, Steps& steps) {
  std::string filled;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::size_t end = text[i] == '{' ? text.find('}', i) : std::string::npos;
    if (text[i] == '{' && i + 1 < text.size() && text[i + 1] == '{') {
      filled += text[i++];
    } else if (end == std::string::npos || end == i + 1) {
      filled += text[i];
    } else {
      const std::string name = text.substr(i + 1, end - i - 1);
      if (const auto value = KeywordText(frame.keywords, name))
        filled += *value;
      else
        steps.Warn(PrintablePath(frame.path) + ": has no keyword " + Shown(name) + " for the text");
      i = end;
    }
  }
  return filled;
}

// A word as a shell reads it back, in ASCII, which is all that a header line holds.
std::string ShellWord(const std::string& word) {
  constexpr std::string_view kPlain = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ+-.,_/:@%";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) return word;
  const std::wstring wide = WidenUtf8(word);
  if (std::all_of(wide.begin(), wide.end(), [](wchar_t c) { return c >= 0x20 && c < 0x7f && c != '\''; }))
    return "'" + word + "'";
  std::string quoted = "$'";
  for (const wchar_t c : wide) {
    char escape[16];
    if (c >= 0x20 && c < 0x7f)
      std::snprintf(escape, sizeof escape, c == '\'' || c == '\\' ? "\\%c" : "%c", static_cast<char>(c));
    else
      std::snprintf(escape, sizeof escape, c > 0xffff ? "\\U%08x" : "\\u%04x", static_cast<unsigned>(c));
    quoted += escape;
  }
  return quoted + "'";
}

// ---- Drawing -------------------------------------------------------------------------------------------------------

// Coordinates here count rows from the top of the picture as it is looked at.
class Pen {
 public:
  Pen(CVynImage& image, const AnnotateRequest& request, Steps& steps)
      : image_(image), steps_(steps), colour_(request.colour), scale_(request.smooth ? kSmoothScale : 1) {
    constexpr double kLeastSize = 12.0;
    size_ = request.size.value_or(std::max(std::round(image.GetHeight() / 40.0), kLeastSize));
    lineWidth_ = request.lineWidth.value_or(std::max(Round(size_ / 12.0), 1));
    font_.lfHeight = -Round(size_);
    font_.lfWeight = request.bold ? FW_BOLD : FW_NORMAL;
    font_.lfItalic = request.italic;
    const std::wstring family = WidenUtf8(request.family);
    if (family.size() >= std::size(font_.lfFaceName)) throw Failure(kExitUsage, "--font: at most 31 characters");
    std::copy(family.begin(), family.end(), font_.lfFaceName);
  }

  double Size() const { return size_; }
  int LineWidth() const { return lineWidth_; }

  // The family that texts are drawn in; a Failure when there is none.
  const TextBitmap& ChooseFont() {
    const auto chosen = DrawTextBitmap({}, ScaledFont(font_, scale_));
    if (!chosen) throw Failure(kExitIo, "no font to draw text with: fontconfig finds none on this system");
    chosen_ = *chosen;
    return chosen_;
  }

  void Line(double x1, double y1, double x2, double y2) {
    const CPoint from(Round(x1), Round(y1)), to(Round(x2), Round(y2));
    if (std::max(x1, x2) < -0.5 || std::min(x1, x2) >= image_.GetWidth() - 0.5 || std::max(y1, y2) < -0.5 ||
        std::min(y1, y2) >= image_.GetHeight() - 0.5)
      steps_.Warn("a line lies outside of the picture");
    const bool steep = std::abs(from.x - to.x) < std::abs(from.y - to.y);
    CImgDrawLine canvas;
    canvas.Swap(&image_);
    for (int i = 0; i < lineWidth_; ++i) {
      const int aside = i - (lineWidth_ - 1) / 2;
      const int dx = steep ? aside : 0, dy = steep ? 0 : aside;
      canvas.Do({from.x + dx, from.y + dy}, {to.x + dx, to.y + dy}, colour_);
    }
    canvas.Swap(&image_);
  }

  void Text(double x, double y, const Anchor& anchor, const std::string& text) {
    const std::wstring wide = WidenUtf8(text);
    const auto bitmap = DrawTextBitmap(wide, ScaledFont(font_, scale_));
    if (!bitmap) throw Failure(kExitUsage, "a text of that size is too large to draw: " + Shown(text));
    const int width = bitmap->width / scale_, height = bitmap->height / scale_;
    const CPoint pos(Round(x - anchor.across * width), Round(y - anchor.down * height));
    const CRect patch(std::max(pos.x, 0), std::max(pos.y, 0), std::min(pos.x + width, image_.GetWidth()),
                      std::min(pos.y + height, image_.GetHeight()));
    bool inside = false, outside = false;
    for (int j = 0; j < height; ++j)
      for (int i = 0; i < width; ++i)
        if (HasInk(*bitmap, i, j)) {
          const int column = pos.x + i, row = pos.y + j;
          const bool within = column >= patch.left && column < patch.right && row >= patch.top && row < patch.bottom;
          (within ? inside : outside) = true;
        }
    if (outside)
      steps_.Warn(std::string("a text ") + (inside ? "reaches beyond" : "lies outside of") +
                  " the picture: " + Shown(text));
    if (!inside) return;
    DrawPatch(wide, *bitmap, pos, patch);
  }

 private:
  bool HasInk(const TextBitmap& bitmap, int x, int y) const {
    for (int j = 0; j < scale_; ++j)
      for (int i = 0; i < scale_; ++i)
        if (bitmap.dots[static_cast<std::size_t>(y * scale_ + j) * static_cast<std::size_t>(bitmap.width) +
                        static_cast<std::size_t>(x * scale_ + i)])
          return true;
    return false;
  }

  // Draws on a copy of the part that the text covers, and takes over what has ink, so that all else keeps its bits.
  void DrawPatch(const std::wstring& text, const TextBitmap& bitmap, CPoint pos, const CRect& rect) {
    CImgDrawText patch;
    CVynImage shape(-32, rect.Width(), rect.Height(), image_.GetPlanes(), 1.0, 0.0, 1);
    patch.Swap(&shape);
    for (int p = 0; p < image_.GetPlanes(); ++p) {
      const double black = image_.GetLevelMin(p);
      static_cast<CImage&>(patch).SetLevel(p, black, image_.GetLevelMax(p));
      for (int y = 0; y < rect.Height(); ++y) {
        const std::span<const float> from = ReadRow(image_, rect.top + y, p, rect.left, rect.right);
        const std::span<float> to = WriteRow(patch, y, p, 0, rect.Width());
        std::transform(from.begin(), from.end(), to.begin(),
                       [black](float v) { return std::isfinite(v) ? v : static_cast<float>(black); });
      }
    }
    const CPoint at(pos.x - rect.left, pos.y - rect.top);
    LOGFONTW font = font_;
    if (!patch.Do(&patch, at, CString(text), &font, colour_, scale_ == kSmoothScale))
      throw Failure(kExitIo, "the font can't be read any more");
    for (int p = 0; p < image_.GetPlanes(); ++p)
      for (int y = 0; y < rect.Height(); ++y) {
        const std::span<const float> from = ReadRow(patch, y, p, 0, rect.Width());
        const std::span<float> to = WriteRow(image_, rect.top + y, p, rect.left, rect.right);
        for (int x = 0; x < rect.Width(); ++x)
          if (HasInk(bitmap, x - at.x, y - at.y)) to[static_cast<std::size_t>(x)] = from[static_cast<std::size_t>(x)];
      }
  }

  CVynImage& image_;
  Steps& steps_;
  unsigned long colour_;
  int scale_;
  double size_ = 0.0;
  int lineWidth_ = 1;
  LOGFONTW font_ = {};
  TextBitmap chosen_;
};

// The first row becomes the last.
void TurnRows(CVynImage& image) {
  for (int p = 0; p < image.GetPlanes(); ++p)
    for (int y = 0; y < image.GetHeight() / 2; ++y) {
      const std::span<float> upper = WriteRow(image, y, p, 0, image.GetWidth());
      const std::span<float> lower = WriteRow(image, image.GetHeight() - 1 - y, p, 0, image.GetWidth());
      std::swap_ranges(upper.begin(), upper.end(), lower.begin());
    }
}

// A bar with ticks at the bottom right, and its length above it.
void DrawScaleBar(const CVynImage& image, const ScaleBar& bar, Pen& pen) {
  const double tick = std::max(pen.Size() / 4.0, 2.0);
  const double y = image.GetHeight() - 1 - pen.Size();
  const double right = image.GetWidth() - 1 - pen.Size();
  const double left = right - bar.pixels;
  if (left < 0.0 || y < tick)
    throw Failure(kExitUsage, "the picture is too small for a scale bar with a text of " + NumberText(pen.Size()) +
                                  " pixels; --size says a smaller one");
  pen.Line(left, y, right, y);
  pen.Line(left, y - tick, left, y + tick);
  pen.Line(right, y - tick, right, y + tick);
  pen.Text((left + right) / 2.0, y - tick, {"bottom", 0.5, 1.0}, bar.label);
}

ScaleBar BarFor(const AnnotateRequest& request, const LightFrame& frame) {
  const std::optional<double> scale = request.pixelScale ? request.pixelScale : ArcsecPerPixel(frame.keywords);
  if (!scale)
    throw Failure(kExitBadData, PrintablePath(frame.path) +
                                    ": does not tell how large its pixels are in the sky; --pixel-scale says it");
  constexpr double kShare = 0.25;
  if (const auto bar = RoundBar(*scale, frame.image->GetWidth() * kShare)) return *bar;
  throw Failure(kExitBadData, PrintablePath(frame.path) + ": no round length fits into the picture at " +
                                  NumberText(Rounded(*scale)) + " arc seconds a pixel");
}

std::string ColourText(unsigned long colour) {
  char text[16];
  std::snprintf(text, sizeof text, "%02lx%02lx%02lx", colour & 0xff, colour >> 8 & 0xff, colour >> 16 & 0xff);
  return text;
}

std::string CommandText(const AnnotateRequest& request, const CVynImage& image, const Pen& pen,
                        const std::string& family) {
  std::string command = "qmr annotate";
  for (const TextMark& mark : request.texts)
    command += " --text " + ShellWord(NumberText(mark.x) + "," + NumberText(mark.y) + "," + mark.text);
  for (const LineMark& mark : request.lines)
    command += " --line " + NumberText(mark.x1) + "," + NumberText(mark.y1) + "," + NumberText(mark.x2) + "," +
               NumberText(mark.y2);
  if (!request.caption.empty()) command += " --caption " + ShellWord(request.caption);
  if (request.scaleBar) command += " --scale-bar";
  if (request.pixelScale) command += " --pixel-scale " + NumberText(*request.pixelScale);
  if (!family.empty()) command += " --font " + ShellWord(family);
  command += " --size " + NumberText(pen.Size());
  if (request.bold) command += " --bold";
  if (request.italic) command += " --italic";
  if (!request.smooth) command += " --no-smooth";
  if (!request.texts.empty()) command += std::string(" --anchor ") + request.anchor.name;
  command += " --line-width " + std::to_string(pen.LineWidth()) + " --colour " + ColourText(request.colour) +
             " --levels " + LevelsText(image);
  if (request.bayer) command += " --bayer " + PrintablePath(*request.bayer);
  return command;
}

}  // namespace

const std::vector<Anchor>& Anchors() {
  static const std::vector<Anchor> anchors = {
      {"top-left", 0.0, 0.0},    {"top", 0.5, 0.0},    {"top-right", 1.0, 0.0},
      {"left", 0.0, 0.5},        {"centre", 0.5, 0.5}, {"right", 1.0, 0.5},
      {"bottom-left", 0.0, 1.0}, {"bottom", 0.5, 1.0}, {"bottom-right", 1.0, 1.0}};
  return anchors;
}

AnnotateReport Annotate(const AnnotateRequest& request, Steps& steps) {
  const bool writes = !request.texts.empty() || !request.caption.empty() || request.scaleBar;
  if (!writes && request.lines.empty())
    throw Failure(kExitUsage, "nothing to draw: give --text, --line, --caption or --scale-bar");
  CheckOutput(request.output, request.force);
  steps.Begin("Reading", 1);
  LightFrame frame = LoadPicture(request.input, request.bayer);
  steps.End("");
  RefuseMosaic(frame);
  CVynImage& image = *frame.image;
  GiveLevels(image, request.levels, frame.keywords, "--levels");
  for (int p = 0; p < image.GetPlanes(); ++p)
    if (!std::isfinite(image.GetLevelRange(p)))
      throw Failure(kExitBadData,
                    PrintablePath(request.input) + ": has no values to find black and white from; --levels says them");
  std::optional<ScaleBar> bar;
  if (request.scaleBar) bar = BarFor(request, frame);

  Pen pen(image, request, steps);
  AnnotateReport report;
  std::string family;
  if (writes) {
    const TextBitmap& chosen = pen.ChooseFont();
    family = NarrowUtf8(chosen.family);
    report.font = family + (chosen.familyFound ? "" : ", as " + PrintablePath(request.family) + " is not installed");
  }
  report.command = CommandText(request, image, pen, family);

  // Letters stand upright in the picture as it is looked at, whatever the order of its rows.
  const bool bottomUp = IsBottomUp(frame.keywords);
  const double last = image.GetHeight() - 1;
  const auto row = [&](double y) { return bottomUp ? last - y : y; };
  steps.Begin("Drawing", 1);
  if (bottomUp) TurnRows(image);
  for (const LineMark& mark : request.lines) pen.Line(mark.x1, row(mark.y1), mark.x2, row(mark.y2));
  for (const TextMark& mark : request.texts)
    pen.Text(mark.x, row(mark.y), request.anchor, Filled(mark.text, frame, steps));
  if (!request.caption.empty())
    pen.Text(pen.Size(), last - pen.Size() / 2.0, {"bottom-left", 0.0, 1.0}, Filled(request.caption, frame, steps));
  if (bar) DrawScaleBar(image, *bar, pen);
  if (bottomUp) TurnRows(image);
  steps.End("");

  std::vector<Keyword> keywords = frame.keywords;
  SetLevelKeywords(keywords, image);
  steps.Begin("Writing", 1);
  WritePicture(request.output, image, keywords, report.command);
  steps.End("");
  return report;
}

}  // namespace qmr
