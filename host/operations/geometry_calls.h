// The library's geometric operations behind one form of call each; their table says which settings they take.
#pragma once

#include "host/operations/destination.h"

namespace qmr::calls {

// Pixels of a side of a result.
inline constexpr double kLongestSide = 1e5;

Result Crop(OperationJob& job);
Result Canvas(OperationJob& job);
Result Resize(OperationJob& job);
Result Rotate(OperationJob& job);
Result Flip(OperationJob& job);
Result Scroll(OperationJob& job);
Result Bin(OperationJob& job);

void CheckCrop(const Settings& settings);
void CheckCanvas(const Settings& settings);
void CheckResize(const Settings& settings);
void CheckFlip(const Settings& settings);
void CheckBin(const Settings& settings);

// Whether every pixel of the result is one of the source.
bool MovesWholePixels(const Settings& settings);
bool IsRightAngle(const Settings& settings);

}  // namespace qmr::calls
