#include "host/chain/check_chain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::string Shown(const std::vector<qmr::ChainRemark>& remarks) {
  std::string shown;
  for (const auto& r : remarks)
    shown += std::to_string(r.line) + ":" + std::to_string(r.column) +
             (r.ends    ? " end: "
              : r.error ? " error: "
                        : " ") +
             r.text + "\n";
  return shown;
}

TEST(CheckChain, HasNothingToSayOnGoodChains) {
  for (const char* text :
       {"", "LEVEL ", "LEVEL MIN=1 MAX_G=2.5e3;\n\nsharp METHOD=edgeonly RADIUS=3 RADIUS_R =2\tWEIGHT=-1",
        "SHARP METHOD=UNSHARPMASK THRESHOLD_MIN_R=3 THRESHOLD_MIN_BUF_R=1 THRESHOLD_MAX_B=9 THRESHOLD_MAX_BUF=2 "
        "BRIGHTER=0",
        // An even number of steps brings the levels back, LEVEL gives them to both images, or others to both.
        "HALPHAAUTOLEVEL MAG=2\r\nHALPHA THRESHOLD=1 BRIGHTNESS=0\rBRIGHTNESSCONTRAST AVERAGE=1 CONTRAST=2\n",
        "HALPHAAUTOLEVEL MAG=2;LEVEL ;HALPHA THRESHOLD=1", "HALPHAAUTOLEVEL MAG=2;HALPHA THRESHOLD=1;LEVEL MAX=9"})
    EXPECT_EQ(Shown(qmr::CheckChain(text)), "") << text;
}

// A text gets the remarks of its rows, in their order, and no others.
struct Row {
  std::string_view text;
  const char* place;
  const char* words;
};
const Row kRows[] = {
    // The run ends.
    {"LEVEL", "1:1 end:", "also where it has no arguments"},
    {"LEVEL \n  LEVE", "2:3 end:", "did you mean LEVEL?"},
    {"LEVEL ;MIN=2", "1:8 end:", "no separator before them"},
    {"\nLEVEL ", "1:1 end:", "begin with a separator"},
    {"LEVEL \r\n\r\n  ", "3:1 end:", "blanks alone"},
    // The step does nothing useful.
    {"SHRAP METHOD=STANDARD", "1:1 error:", "did you mean SHARP?"},
    {"# sharpen\n", "1:1 error:", "no comments"},
    {"\xEF\xBB\xBFLEVEL MIN=1", "1:1 error:", "byte order mark"},
    {"SHARP RADIUS=2", "1:1 error:", "without METHOD"},
    {"SHARP METHOD=UNSHARP", "1:14 error:", "did you mean UNSHARPMASK?"},
    {"DIGITALDEVELOPMENT MASK_R=G", "1:1 error:", "develops nothing"},
    {"LEVEL MIN=1 \xE9=2", "1:13 error:", "no UTF-8"},
    {"LEVEL MIN=1 \xE9=2", "1:13 ", "no such key"},
    {"HALPHA THRESHOLD=1\n\nUNDO \nUNDO ; HALPHA THRESHOLD=1\nDIGITALDEVELOPMENT ",
     "3:1 error:", "takes back the step of line 1"},
    {"HALPHA THRESHOLD=1\n\nUNDO \nUNDO ; HALPHA THRESHOLD=1\nDIGITALDEVELOPMENT ",
     "4:1 error:", "brings back the step of line 1"},
    {"HALPHA THRESHOLD=1\n\nUNDO \nUNDO ; HALPHA THRESHOLD=1\nDIGITALDEVELOPMENT ",
     "5:1 error:", "takes back the step of line 4"},
    // What a step does is lost, or something is ignored.
    {"HALPHA THRESHOLD=1\nHALPHAAUTOLEVEL MAG=1", "2:1 ", "takes back the step of line 1"},
    {"HALPHAAUTOLEVEL ", "1:1 ", "becomes 0"},
    {"HALPHAAUTOLEVEL MAG=1\nHALPHA THRESHOLD=1", "1:1 ", "does not get these levels"},
    {"LEVEL MINIMUM=2", "1:7 ", "no such key"},
    {"SHARP METHOD=STANDARD RADUIS=2", "1:23 ", "did you mean RADIUS?"},
    {"SHARP METHOD=STANDARD radius=2", "1:23 ", "upper case: RADIUS"},
    {"LEVEL MAX_B=2", "1:7 ", "levels of MAX_G"},
    {"BRIGHTNESSCONTRAST CONTRAST_R=2", "1:20 ", "no form for a single plane"},
    {"SHARP METHOD=STANDARD WEIGHT = 2", "1:31 ", "'2' is ignored, and 'WEIGHT' counts as not given"},
    {"SHARP METHOD=STANDARD BRIGHTER= 2", "1:32 ", "'2' is ignored, and 'BRIGHTER' switches its limit on"},
    {"LEVEL MIN= MAX=3", "1:11 ", "counts as not given"},
    {"SHARP METHOD=STANDARD RADIUS_R=2 RADIUS=3", "1:34 ", "met within 'RADIUS_R=2': it counts as not given"},
    {"SHARP METHOD=STANDARD THRESHOLD_MAX_BUF=2 THRESHOLD_MAX_B=9", "1:43 ",
     "met within 'THRESHOLD_MAX_BUF=2': it switches its limit on"},
    {"SHARP METHOD=STANDARD XRADIUS=3,WEIGHT=4", "1:23 ", "no such key: 'XRADIUS'"},
    {"SHARP METHOD=STANDARD XRADIUS=3,WEIGHT=4", "1:31 ", "this counts as the value of RADIUS"},
    {"SHARP METHOD=STANDARD XRADIUS=3,WEIGHT=4", "1:40 ", "this counts as the value of WEIGHT"},
    {"LEVEL MIN=1 MAX=2 MIN=3", "1:19 ", "the first counts"},
    {"LEVEL MIN=1 strong", "1:13 ", "'strong' has no '='"},
    {"LEVEL MIN=1 =2", "1:13 ", "no key"},
    {"LEVEL MIN=1 # wide range, of old", "1:13 ", "no comments"},
    {"LEVEL MIN=high", "1:11 ", "no number"},
    {"LEVEL MIN=1,5", "1:11 ", "decimals stand behind a point"},
    {"LEVEL MIN=1e999", "1:11 ", "beyond the range"},
    {"SHARP METHOD=STANDARD RADIUS=200", "1:30 ", "50 is used"},
    {"SHARP METHOD=STANDARD RADIUS_G=-1", "1:32 ", "0.1 is used"},
    {"SHARP METHOD=STANDARD THRESHOLD_MIN_BUF=2", "1:23 ", "without THRESHOLD_MIN"},
    {"SHARP METHOD=STANDARD THRESHOLD_MAX_B=1 THRESHOLD_MAX_BUF_G=2", "1:41 ", "no effect"},
    {"SHARP METHOD=STANDARD BRIGHTER  = 5", "1:23 ", "stays off"},
    {"SHARP METHOD=STANDARD BRIGHTER  = 5", "1:34 ", "'BRIGHTER' counts as not given"},
    {"LEVEL MIN=1\xE3\x80\x80", "1:11 ", "only '1' counts"},
    {"LEVEL MIN=1\xE3\x80\x80", "1:12 ", "U+3000"},
    // Nothing that could do things to a terminal.
    {{"LEVEL\0 \x1B[31mMIN=2", 17}, "1:1 error:", "no such command: 'LEVEL?'"},
    {{"LEVEL\0 \x1B[31mMIN=2", 17}, "1:6 error:", "NUL"},
};

TEST(CheckChain, TellsPlaceAndKindOfFaults) {
  for (const Row* row = kRows; row != std::end(kRows); ++row) {
    const auto same = [&](const Row& other) { return other.text == row->text; };
    const auto remarks = qmr::CheckChain(row->text);
    ASSERT_EQ(std::count_if(kRows, std::end(kRows), same), std::ssize(remarks)) << row->text << "\n" << Shown(remarks);
    const std::string shown = Shown({remarks[static_cast<std::size_t>(std::count_if(kRows, row, same))]});
    EXPECT_TRUE(shown.starts_with(row->place) && shown.find(row->words) != std::string::npos) << row->text << "\n"
                                                                                              << shown;
    EXPECT_EQ(qmr::ChainRuns(remarks), shown.find(" end:") == std::string::npos) << row->text;
  }
}

}  // namespace
