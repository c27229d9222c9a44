#include "qmrimg/raw/information.h"

#include <cmath>
#include <limits>
#include <span>
#include <string_view>

#include "qmrimg/platform/messages.h"

namespace {

constexpr int kMessageSeconds = 6184;
constexpr int kMessageDegrees = 6185;

enum class Match { kPart, kWhole };

// A row of a maker's list: the lower-case model contains `text`, or is `text`, and does not contain `except`.
struct Camera {
  std::wstring_view text;
  int pattern;
  Match match = Match::kPart;
  std::wstring_view except = {};

  constexpr bool Fits(std::wstring_view model) const {
    if (match == Match::kWhole) return model == text;
    return model.find(text) != model.npos && (except.empty() || model.find(except) == model.npos);
  }
};

// The first row that fits decides, so the order within a list counts.
constexpr Camera kCanon[] = {{L"eos kiss x7", 1},
                             {L"eos rebel sl1", 1},
                             {L"eos 100d", 1},
                             {L"eos kiss x7i", 1},
                             {L"eos rebel t5i", 1},
                             {L"eos 700d", 1},
                             {L"eos kiss x6i", 1},
                             {L"eos rebel t4i", 1},
                             {L"eos 650d", 1},
                             {L"eos kiss x3", 1},
                             {L"eos rebel t1i", 1},
                             {L"eos 500d", 1},
                             {L"eos kiss f", 1},
                             {L"eos rebel xs", 1},
                             {L"eos 1000d", 1},
                             {L"eos kiss x2", 1},
                             {L"eos rebel xsi", 1},
                             {L"eos 450d", 1},
                             {L"eos kiss digital x", 1},
                             {L"eos digital rebel xti", 1},
                             {L"eos 400d digital", 1},
                             {L"eos kiss digital n", 1},
                             {L"eos digital rebel xt", 1},
                             {L"eos 350d digital", 1},
                             {L"eos kiss digital", 1},
                             {L"eos digital rebel", 1},
                             {L"eos 300d digital", 1},
                             {L"eos d30", 1},
                             {L"eos d60", 1},
                             {L"eos 10d", 1},
                             {L"eos 20d", 1},
                             {L"eos 20da", 1},
                             {L"eos 30d", 1},
                             {L"eos 40d", 1},
                             {L"eos-1ds mark iii", 1},
                             {L"eos-1d mark iii", 1},
                             {L"eos-1d mark ii n", 1},
                             {L"eos-1d mark ii", 1},
                             {L"eos-1d x", 1},
                             {L"eos 5d", 1, Match::kWhole},
                             {L"eos 5d mark iii", 1, Match::kWhole},
                             {L"eos 6d", 1, Match::kWhole},
                             {L"eos m", 1, Match::kWhole},
                             {L"eos kiss x50", 1},
                             {L"eos 1100d", 1},
                             {L"eos rebel t3", 1, Match::kPart, L"eos rebel t3i"},
                             {L"eos-1d mark iv", 4},
                             {L"eos-1ds mark ii", 4},
                             {L"eos 5d mark ii", 4},
                             {L"eos 7d", 4},
                             {L"eos 50d", 4},
                             {L"eos 60d", 4},
                             {L"eos kiss x4", 4},
                             {L"eos rebel t2i", 4},
                             {L"eos 550d", 4},
                             {L"eos kiss x5", 4},
                             {L"eos rebel t3i", 4},
                             {L"eos 600d", 4},
                             {L"eos-1d", 2},
                             {L"eos-1ds", 2},
                             {L"powershot g2", 1},
                             {L"powershot g3", 1},
                             {L"powershot g5", 1},
                             {L"powershot g6", 1},
                             {L"powershot pro1", 1},
                             {L"powershot s40", 1},
                             {L"powershot s30", 1},
                             {L"powershot s50", 1},
                             {L"powershot s60", 1}};

constexpr Camera kNikon[] = {{L"d100", 2},
                             {L"d200", 2},
                             {L"d1x", 3},
                             {L"d1h", 3},
                             {L"nikon d1", 3, Match::kWhole},
                             {L"d70s", 3},
                             {L"nikon d70", 3, Match::kWhole},
                             {L"nikon d50", 3, Match::kWhole},
                             {L"e8800", 3},
                             {L"e8400", 3},
                             {L"e8700", 3},
                             {L"e5400", 3},
                             {L"nikon d40", 3, Match::kWhole},
                             {L"d2hs", 4},
                             {L"d2h", 4},
                             {L"nikon d80", 4, Match::kWhole},
                             {L"d40x", 4},
                             {L"nikon d60", 4, Match::kWhole},
                             {L"d90", 4},
                             {L"nikon d5000", 4, Match::kWhole},
                             {L"nikon d3000", 4, Match::kWhole},
                             {L"nikon d3100", 4, Match::kWhole},
                             {L"d3s", 1},
                             {L"d3x", 1},
                             {L"d2x", 1},
                             {L"d2xs", 1},
                             {L"d3", 1},
                             {L"d4", 1},
                             {L"d300", 1},
                             {L"d700", 1},
                             {L"nikon d7000", 1, Match::kWhole},
                             {L"nikon d5100", 1, Match::kWhole},
                             {L"nikon d800", 1, Match::kWhole},
                             {L"nikon d800e", 1, Match::kWhole},
                             {L"nikon d600", 1, Match::kWhole},
                             {L"nikon d5200", 1, Match::kWhole},
                             {L"nikon d3200", 1, Match::kWhole},
                             {L"nikon d7100", 1, Match::kWhole},
                             {L"nikon 1 j1", 1, Match::kWhole},
                             {L"nikon 1 v1", 1, Match::kWhole},
                             {L"nikon 1 j2", 1, Match::kWhole},
                             {L"nikon 1 v2", 1, Match::kWhole},
                             {L"nikon 1 s1", 1, Match::kWhole},
                             {L"nikon 1 j3", 1, Match::kWhole},
                             {L"e5000", 5},
                             {L"e5700", 5}};

constexpr Camera kPentax[] = {{L"*ist dl2", 1}, {L"*ist ds2", 1},   {L"*ist ds", 1}, {L"*ist dl", 1}, {L"*ist d", 1},
                              {L"k100d", 1},    {L"k10d super", 1}, {L"k10d", 1},    {L"k-m", 1},     {L"k200d", 1},
                              {L"k20d", 3},     {L"k-7", 3},        {L"k-x", 3},     {L"k-r", 3},     {L"k-5", 3}};

constexpr Camera kFujifilm[] = {{L"finepixs2pro", 11}};

constexpr Camera kOlympus[] = {{L"e-m5", 1},
                               {L"e-p3", 1},
                               {L"e-pm2", 1},
                               {L"e-pm1", 1},
                               {L"e-pl5", 1},
                               {L"e-pl3", 1},
                               {L"e-pl2", 1},
                               {L"e-pl1s", 1},
                               {L"e-pl1", 1},
                               {L"e-p2", 1},
                               {L"e-p1", 1},
                               {L"e-520", 1},
                               {L"e-420", 1},
                               {L"e-510", 1},
                               {L"e-500", 1},
                               {L"e-410", 1},
                               {L"e-330", 1},
                               {L"e-300", 1},
                               {L"e-3", 1, Match::kWhole},
                               {L"e-20", 1},
                               {L"e-10", 1},
                               {L"c5060wz", 1},
                               {L"c70z", 1},
                               {L"e-1", 2, Match::kWhole},
                               {L"e-5", 3, Match::kWhole},
                               {L"e-30", 3},
                               {L"e-620", 3},
                               {L"c5050z", 3},
                               {L"c8080wz", 3}};

constexpr Camera kKonicaMinolta[] = {{L"alpha-7 digital", 1}, {L"maxxum 7d", 1}, {L"dynax 7d", 1}};

constexpr Camera kSony[] = {
    {L"nex-3n", 1},    {L"nex-6", 1},     {L"nex-5r", 1},    {L"nex-f3", 1},    {L"nex-7", 1},     {L"nex-c5n", 1},
    {L"nex-c3", 1},    {L"nex-5", 1},     {L"nex-3", 1},     {L"slt-a99v", 1},  {L"slt-a37", 1},   {L"slt-a57", 1},
    {L"slt-a65v", 1},  {L"slt-a77v", 1},  {L"slt-a55v", 1},  {L"slt-a33", 1},   {L"dslr-a550", 1}, {L"dslr-a380", 1},
    {L"dslr-a330", 1}, {L"dslr-a230", 1}, {L"dslr-a900", 1}, {L"dslr-a300", 1}, {L"dslr-a350", 1}, {L"dslr-a200", 1},
    {L"dslr-a700", 1}, {L"dslr-a100", 1}};

struct Maker {
  std::wstring_view name;
  std::span<const Camera> cameras;
};

// The first name that the maker's text contains selects its list; there is no way back to another one.
constexpr Maker kMakers[] = {{L"canon", kCanon},       {L"nikon", kNikon},     {L"pentax", kPentax},
                             {L"fujifilm", kFujifilm}, {L"olympus", kOlympus}, {L"konica minolta", kKonicaMinolta},
                             {L"sony", kSony}};

// 0 for a camera that is not listed.
int PatternOf(std::wstring_view maker, std::wstring_view model) {
  if (maker.empty() || model.empty()) return 0;
  for (const Maker& m : kMakers) {
    if (maker.find(m.name) == maker.npos) continue;
    for (const Camera& camera : m.cameras)
      if (camera.Fits(model)) return camera.pattern;
    return 0;
  }
  return 0;
}

bool IsKnown(double value) {
  return std::fabs(value - kUnknownHeaderValue) > std::numeric_limits<double>::epsilon();
}

void FormatExposure(const CHeader& header, CString& exposure) {
  double seconds = kUnknownHeaderValue;
  header.GetExposureTime(&seconds);
  if (IsKnown(seconds)) exposure.Format(qmr::MessageText(kMessageSeconds), seconds);
}

}  // namespace

CImgInformation::CImgInformation() = default;
CImgInformation::CImgInformation(const CImgInformation& src) : CVynImage(src) {}
CImgInformation::~CImgInformation() = default;

CImgInformation& CImgInformation::operator=(const CImgInformation& src) {
  CVynImage::operator=(src);
  return *this;
}

int CImgInformation::GetAutoCFA(int* pattern) {
  CString maker = Header->GetCameraMaker();
  CString model = Header->GetCameraModel();
  const int found = PatternOf(maker.MakeLower().GetString(), model.MakeLower().GetString());
  if (!found || !pattern) return 0;
  *pattern = found;
  return 1;
}

void CImgInformation::GetInfoString(CString& detector, CString& exposure, CString& temperature) {
  if (IsCcd()) {
    Header->GetDetector(detector);
    FormatExposure(*Header, exposure);
    double degrees = kUnknownHeaderValue;
    Header->GetCoolingTemperature(&degrees);
    if (IsKnown(degrees)) temperature.Format(qmr::MessageText(kMessageDegrees), degrees);
    return;
  }
  detector = Header->GetCameraModel();
  CString speed;
  Header->GetExposureShutterSpeed(speed);
  exposure = speed;
  if (speed.IsEmpty()) FormatExposure(*Header, exposure);
  temperature.Empty();
}
