// Methods for levels: the words of the user turned into calls.
#pragma once

#include "host/levels/level_method.h"

namespace qmr {

bool SetPercentileLevels(const LevelJob& job);
bool SetMeanLevels(const LevelJob& job);
bool SetMedianLevels(const LevelJob& job);
bool SetModeLevels(const LevelJob& job);
bool SetSpanLevels(const LevelJob& job);
bool SetNoiseLevels(const LevelJob& job);
bool SetSkyLevels(const LevelJob& job);
bool SetFileLevels(const LevelJob& job);
bool SetManualLevels(const LevelJob& job);

// The places of the words of --balance, and of --about.
enum BalanceWord { kBalanceModes, kBalanceNone, kBalanceFirst };
enum AboutWord { kAboutMedian, kAboutMode };

bool KeepsFirstLevels(const Settings& settings);

}  // namespace qmr
