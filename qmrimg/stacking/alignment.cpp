#include "qmrimg/stacking/alignment.h"

#include <iterator>

namespace {

struct MethodNames {
  const wchar_t* english;
  const wchar_t* shown;
};
constexpr MethodNames kMethods[] = {
    {L"RefPoint", L"基準点"},
    {L"Auto", L"自動"},
    {L"Centroid", L"重心(並進のみ)"},
    {L"Matching", L"画像マッチング(並進のみ)"},
};

bool IsMethod(int method) {
  return method >= 0 && method < static_cast<int>(std::size(kMethods));
}

}  // namespace

CString CAlignment::GetString(int method) {
  return IsMethod(method) ? CString(kMethods[method].shown) : CString();
}

CString CAlignment::GetEngString(int method) {
  return IsMethod(method) ? CString(kMethods[method].english) : CString();
}
