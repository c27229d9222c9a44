// The library's filters behind one form of call each; their table says which settings they take.
#pragma once

#include "host/operations/destination.h"

namespace qmr::calls {

Result MedianPattern(OperationJob& job);
Result RankPattern(OperationJob& job);
Result Laplacian(OperationJob& job);
Result UnsharpPattern(OperationJob& job);

Result Gaussian(OperationJob& job);
Result Mean(OperationJob& job);
Result MeanKeepEdges(OperationJob& job);
Result Median(OperationJob& job);

Result Sharpen(OperationJob& job);
Result SharpenEdges(OperationJob& job);
Result Unsharp(OperationJob& job);
Result MultibandSharpen(OperationJob& job);
Result Wavelet(OperationJob& job);
Result RotationalGradient(OperationJob& job);

Result DigitalDevelopment(OperationJob& job);

Result StarSharpen(OperationJob& job);
Result StarEnhance(OperationJob& job);
Result StarMask(OperationJob& job);
Result NebulaSmooth(OperationJob& job);

Result HotPixels(OperationJob& job);
Result HotPixelsMosaic(OperationJob& job);
Result BackgroundSmooth(OperationJob& job);
Result FalseColour(OperationJob& job);
Result GuideError(OperationJob& job);
Result Rank(OperationJob& job);
Result Convolve(OperationJob& job);
Result Contour(OperationJob& job);
Result Window(OperationJob& job);

// Black a little below the sky, white where the development takes wide bright regions.
void DevelopmentLevels(CVynImage& image, const Settings& settings);

// The middle of the picture where no centre is given.
void FindMiddle(CVynImage& image, Settings& settings);
// Half of the shorter side of what is windowed.
void FindWindow(CVynImage& image, Settings& settings);

// Pixels in the sorted window of each rank filter.
int PatternRanks(const Settings& settings, int plane);
int DiscRanks(const Settings& settings, int plane);
int StarRanks(const Settings& settings, int plane);

void CheckMean(const Settings& settings);
void CheckUnsharp(const Settings& settings);
void CheckRotationalGradient(const Settings& settings);
void CheckStarEnhance(const Settings& settings);
void CheckConvolve(const Settings& settings);

}  // namespace qmr::calls
