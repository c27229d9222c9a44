// The library's filters behind one form of call each; their table says which settings they take.
#pragma once

#include "host/operations/destination.h"

namespace qmr::calls {

Result MedianPattern(const OperationJob& job);
Result RankPattern(const OperationJob& job);
Result Laplacian(const OperationJob& job);
Result UnsharpPattern(const OperationJob& job);

Result Gaussian(const OperationJob& job);
Result Mean(const OperationJob& job);
Result MeanKeepEdges(const OperationJob& job);
Result Median(const OperationJob& job);

Result Sharpen(const OperationJob& job);
Result SharpenEdges(const OperationJob& job);
Result Unsharp(const OperationJob& job);
Result MultibandSharpen(const OperationJob& job);
Result Wavelet(const OperationJob& job);

Result DigitalDevelopment(const OperationJob& job);

Result StarSharpen(const OperationJob& job);
Result StarEnhance(const OperationJob& job);
Result StarMask(const OperationJob& job);
Result NebulaSmooth(const OperationJob& job);

Result HotPixels(const OperationJob& job);
Result HotPixelsMosaic(const OperationJob& job);
Result BackgroundSmooth(const OperationJob& job);
Result FalseColour(const OperationJob& job);
Result GuideError(const OperationJob& job);
Result Rank(const OperationJob& job);
Result Convolve(const OperationJob& job);
Result Contour(const OperationJob& job);

// Black a little below the sky, white where the development takes wide bright regions.
void DevelopmentLevels(CVynImage& image, const Settings& settings);

// Pixels in the sorted window of each rank filter.
int PatternRanks(const Settings& settings, int plane);
int DiscRanks(const Settings& settings, int plane);
int StarRanks(const Settings& settings, int plane);

void CheckMean(const Settings& settings);
void CheckUnsharp(const Settings& settings);
void CheckStarEnhance(const Settings& settings);
void CheckConvolve(const Settings& settings);

}  // namespace qmr::calls
