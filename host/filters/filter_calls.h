// The library's filters behind one form of call each; the table says which settings they take.
#pragma once

#include "host/filters/filter_table.h"

namespace qmr::calls {

using Result = std::unique_ptr<CVynImage>;

Result MedianPattern(const FilterJob& job);
Result RankPattern(const FilterJob& job);
Result Laplacian(const FilterJob& job);
Result UnsharpPattern(const FilterJob& job);

Result Gaussian(const FilterJob& job);
Result Mean(const FilterJob& job);
Result MeanKeepEdges(const FilterJob& job);
Result Median(const FilterJob& job);

Result Sharpen(const FilterJob& job);
Result SharpenEdges(const FilterJob& job);
Result Unsharp(const FilterJob& job);
Result MultibandSharpen(const FilterJob& job);
Result Wavelet(const FilterJob& job);

Result DigitalDevelopment(const FilterJob& job);

Result StarSharpen(const FilterJob& job);
Result StarEnhance(const FilterJob& job);
Result StarMask(const FilterJob& job);
Result NebulaSmooth(const FilterJob& job);

Result HotPixels(const FilterJob& job);
Result HotPixelsMosaic(const FilterJob& job);
Result BackgroundSmooth(const FilterJob& job);
Result FalseColour(const FilterJob& job);
Result GuideError(const FilterJob& job);
Result Rank(const FilterJob& job);
Result Convolve(const FilterJob& job);
Result Contour(const FilterJob& job);

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
