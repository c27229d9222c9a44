// How one picture lies on another, and the finding of it, for the commands that lay pictures over one another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/night/frame.h"
#include "host/night/registration/registration.h"
#include "host/night/steps.h"
#include "host/operations/blank_pixels.h"
#include "qmrimg/image/vyn_image.h"

namespace qmr {

// A picture from a file. Its StdCtr is the middle of its pixels, and each pixel without a value has that of its
// neighbours.
struct LaidPicture {
  std::string path;
  LightFrame file;
  // The pixels without a value, if there are any.
  std::optional<BlankPixels> blank;
  // One plane, 1 where the file has a value in all planes, 0 where not; null where it has one everywhere.
  std::unique_ptr<CVynImage> valid;

  CVynImage& Image() const { return *file.image; }
};
// A Failure names the file. Undeveloped mosaics are refused.
LaidPicture LoadLaidPicture(const std::string& path);
// Gives pixels that are not-a-number, those from now on, the values of their neighbours, and notes them.
void FillBlanks(LaidPicture& laid);
// Frames whose rows run against each other would lie upside down on each other: a Failure names the second.
void CheckRowOrder(const LaidPicture& first, const LaidPicture& second);

// Positions of a picture and of a frame that lies on it: the picture at (x, y) shows the frame at (x - shiftX,
// y - shiftY), turned about the frame's middle.
class FrameMap {
 public:
  FrameMap(const LibraryGeometry& place, int width, int height);
  Point Source(Point picture) const;
  Point Target(Point frame) const;
  // Whether the frame has pixels on all sides of what the picture shows there.
  bool Covers(int x, int y) const;
  // All pixels of the picture that may be covered.
  CRect Box() const;

 private:
  LibraryGeometry place_;
  double width_, height_;
  Point middle_;
  double sine_, cosine_;
  double inset_;
};

// Which pixels of a part of a picture are known: 1 or 0, row after row.
struct CoverMap {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;

  CoverMap(int w, int h)
      : width(w), height(h), pixels(static_cast<std::size_t>(w) * static_cast<std::size_t>(h), std::uint8_t{0}) {}
  std::uint8_t* Row(int y) { return pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width); }
  const std::uint8_t* Row(int y) const {
    return pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
  }
};

// What the frame covers of the picture's pixels in `box`; pixels without a value cover nothing.
CoverMap CoverOf(const LaidPicture& frame, const LibraryGeometry& place, const CRect& box);
// The largest rectangle of known pixels, empty when there are none.
CRect LargestRectangle(const CoverMap& cover);

// The picture's pixels in `box`, taken from the frame by a method of CInterp; 0 beyond the frame. A monochrome frame
// gives its values to all planes, a colour frame its brightness to one.
std::unique_ptr<CVynImage> LayOut(CVynImage& frame, const LibraryGeometry& place, const CRect& box, int planes,
                                  int interpolation);
CRect Intersection(const CRect& a, const CRect& b);
bool IsEmpty(const CRect& r);
// A part of an image, which must lie inside.
std::unique_ptr<CVynImage> Cut(const CVynImage& image, const CRect& part);
std::unique_ptr<CVynImage> EmptyImage(int width, int height, int planes);

// How a place is measured: not at all, by the registration of a night, or by comparing a part of the two.
enum class PlaceBy { kWord, kShift, kRotation, kMatching };
const std::map<std::string, PlaceBy>& PlaceWays();

struct PlaceSearch {
  PlaceBy by = PlaceBy::kWord;
  int range = 20;               // pixels either way, for kMatching
  std::optional<CRect> sample;  // the part of the picture to compare, for kMatching; else the middle of what is shared
};

// Where the frame lies on `picture`, of which `known` tells the pixels, starting from an estimate. A Failure says why
// there is no answer; a doubtful one gives a warning.
LibraryGeometry MeasurePlace(const CVynImage& picture, const CoverMap& known, const LaidPicture& frame,
                             const LibraryGeometry& estimate, const PlaceSearch& search, Steps& steps);

// "shift   +12.300    -4.000 px  rotation  +0.1200 deg"
std::string PlaceText(const LibraryGeometry& place);

}  // namespace qmr
