// Words that stand for one of a few values.
#pragma once

#include <map>
#include <string>

#include "host/files/file_error.h"
#include "host/night/failure.h"
#include "qmrimg/geometry/interp.h"

namespace qmr {

// The value of a word in any case; a Failure names the option and its words.
template <class Value>
Value Choose(const std::map<std::string, Value>& choices, const std::string& name, const char* option) {
  std::string lower;
  for (const char c : name) lower.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
  if (const auto found = choices.find(lower); found != choices.end()) return found->second;
  std::string all;
  for (const auto& [choice, value] : choices) all += (all.empty() ? "" : ", ") + choice;
  throw Failure(kExitUsage, std::string(option) + ": one of " + all + ", not '" + PrintablePath(name) + "'");
}

// The method number of --interpolation.
inline int ChooseInterpolation(const std::string& name) {
  CString interpolation(WidenUtf8(name));
  const int method = CInterp::GetMethod(interpolation);
  if (method < 0)
    throw Failure(kExitUsage, "--interpolation: Bilinear, Bicubic, Lanczos2, Lanczos3 or NearestNeighbor, not '" +
                                  PrintablePath(name) + "'");
  return method;
}

}  // namespace qmr
