#include "qmrimg/command/command_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cwchar>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using qmr::ParseInteger;
using qmr::ParseNumber;
using Texts = std::vector<std::wstring_view>;

std::string Shown(std::wstring_view text) {
  return testing::PrintToString(std::wstring(text));
}

TEST(StatementReader, CountsRunsOfSeparatorsAsOne) {
  const auto statements = [](std::wstring_view text) {
    Texts all;
    qmr::StatementReader reader(text);
    while (const auto statement = reader.Next()) all.push_back(*statement);
    return all;
  };
  EXPECT_EQ(statements(L""), Texts{});
  EXPECT_EQ(statements(L"A \r\n;;\nB ;"), (Texts{L"A ", L"B "}));
  // But before the first statement.
  EXPECT_EQ(statements(L";\nA \n \t"), (Texts{L"", L"A ", L" \t"}));
}

TEST(SplitStatement, WantsABlankBehindTheName) {
  for (const wchar_t* invalid : {L"", L" \t ", L"LEVEL", L"  LEVEL"})
    EXPECT_FALSE(qmr::SplitStatement(invalid)) << Shown(invalid);
  const auto parts = qmr::SplitStatement(L" \tLEVEL\tMIN=1 ");
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->name, L"LEVEL");
  EXPECT_EQ(parts->arguments, L"\tMIN=1 ");
}

TEST(ReadValue, TakesTheFirstPlaceOfTheKeyOrNothing) {
  const auto value = [](std::wstring_view args) { return qmr::ReadValue(args, L"RADIUS"); };
  EXPECT_EQ(value(L" RADIUS \t =2\tX"), L"2");
  EXPECT_EQ(value(L" RADIUS=a=b RADIUS=3"), L"a=b");
  EXPECT_EQ(value(L" XRADIUS=2"), L"2");
  for (const wchar_t* empty : {L" RADIUS= 2", L" RADIUS="}) {
    EXPECT_TRUE(value(empty).data()) << Shown(empty);
    EXPECT_TRUE(value(empty).empty()) << Shown(empty);
  }
  for (const wchar_t* absent :
       {L"", L" RADIUS", L" radius=2", L" RADIUS_R=2 RADIUS=3", L" RADIUS RADIUS=3", L" METHOD=RADIUS RADIUS=3"})
    EXPECT_FALSE(value(absent).data()) << Shown(absent);
}

TEST(HasKey, LooksAtEveryPlaceAndOneBlank) {
  for (const wchar_t* args : {L" BRIGHTER=1", L" BRIGHTER =1", L" BRIGHTER\t=", L" BRIGHTER_R=1 BRIGHTER=1"})
    EXPECT_TRUE(qmr::HasKey(args, L"BRIGHTER")) << Shown(args);
  for (const wchar_t* args : {L"", L" BRIGHTER", L" BRIGHTER ", L" BRIGHTER  =1", L" BRIGHTER_R=1", L" brighter=1"})
    EXPECT_FALSE(qmr::HasKey(args, L"BRIGHTER")) << Shown(args);
}

TEST(SameText, FoldsCase) {
  EXPECT_FALSE(qmr::SameText(L"LEVEL", L"LEVELS"));
  EXPECT_FALSE(qmr::SameText(std::wstring_view(L"LEVEL\0X", 7), L"LEVEL"));
  EXPECT_TRUE(qmr::SameText(L"brightnessContrast", L"BRIGHTNESSCONTRAST"));
}

TEST(ParseNumber, ReadsDecimalNumbersAsTheStandardLibraryDoes) {
  const auto check = [](const std::wstring& text) {
    wchar_t* end = nullptr;
    EXPECT_EQ(ParseNumber(text).value, std::wcstod(text.c_str(), &end)) << Shown(text);
    EXPECT_EQ(ParseNumber(text).length, static_cast<std::size_t>(end - text.c_str())) << Shown(text);
  };
  std::wstringstream texts(
      L"2.5| \t\n-2.5e1x|+.5|5.|1.2.3|1,5|1e|1e+|1E+2|1d2|007||.|-|--3|+-3|.e3|\uFF15|1e999|-1e99999999999999999999|"
      L"1e-999|0e999|0.0000001e314|4e-320|1.7976931348623157e308");
  for (std::wstring text; std::getline(texts, text, L'|');) check(text);
  check(std::wstring(400, L'9'));
  check(L"-0." + std::wstring(400, L'0') + L"1");
  check(L"0." + std::wstring(400, L'0') + L"1e401");
  // But for these.
  for (const wchar_t* word : {L"0x10", L"inf", L"nan"}) EXPECT_EQ(ParseNumber(word).value, 0.0);
}

TEST(ParseInteger, StopsAtTheEndsOfInt) {
  EXPECT_EQ(ParseInteger(L" +42.9"), 42);
  EXPECT_EQ(ParseInteger(L"x7"), 0);
  EXPECT_EQ(ParseInteger(L"2147483648"), INT_MAX);
  EXPECT_EQ(ParseInteger(L"-99999999999999999999999"), INT_MIN);
}

}  // namespace
