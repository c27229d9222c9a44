// The library's adjustments of levels, tone and colour behind one form of call each; their table says which settings
// they take.
#pragma once

#include "host/operations/destination.h"

namespace qmr::calls {

Result Brightness(OperationJob& job);
Result Calculate(OperationJob& job);
Result CutOff(OperationJob& job);
Result Normalise(OperationJob& job);
Result Invert(OperationJob& job);

Result ToneCurve(OperationJob& job);
Result HAlpha(OperationJob& job);
Result Equalise(OperationJob& job);
Result Posterise(OperationJob& job);

Result Balance(OperationJob& job);
Result WhiteBalance(OperationJob& job);
Result CorrectColour(OperationJob& job);
Result Saturation(OperationJob& job);
Result PseudoColour(OperationJob& job);
Result Grey(OperationJob& job);

Result PlanetMap(OperationJob& job);

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
