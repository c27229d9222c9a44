// The library's adjustments of levels, tone and colour behind one form of call each; their table says which settings
// they take.
#pragma once

#include "host/operations/destination.h"

namespace qmr::calls {

Result Brightness(const OperationJob& job);
Result Calculate(const OperationJob& job);
Result CutOff(const OperationJob& job);
Result Normalise(const OperationJob& job);
Result Invert(const OperationJob& job);

Result ToneCurve(const OperationJob& job);
Result HAlpha(const OperationJob& job);
Result Equalise(const OperationJob& job);
Result Posterise(const OperationJob& job);

Result Balance(const OperationJob& job);
Result WhiteBalance(const OperationJob& job);
Result CorrectColour(const OperationJob& job);
Result Saturation(const OperationJob& job);
Result PseudoColour(const OperationJob& job);
Result Grey(const OperationJob& job);

Result PlanetMap(const OperationJob& job);

void CheckCalculate(const Settings& settings);
void CheckNormalise(const Settings& settings);
void CheckToneCurve(const Settings& settings);
void CheckCorrectColour(const Settings& settings);
void CheckPseudoColour(const Settings& settings);

// From the least to the greatest value, for the disc of a planet.
void PlanetLevels(CVynImage& image, const Settings& settings);

// What is found in the picture where the user does not say it.
void FindAverage(CVynImage& image, Settings& settings);
void FindMeans(CVynImage& image, Settings& settings);
void FindCurve(CVynImage& image, Settings& settings);
void FindGreySky(CVynImage& image, Settings& settings);
void FindWhite(CVynImage& image, Settings& settings);
void FindDisc(CVynImage& image, Settings& settings);

}  // namespace qmr::calls
