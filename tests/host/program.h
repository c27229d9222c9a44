// Runs the program `qmr` as a user would.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/host/folder.h"

namespace qmr::test {

struct Outcome {
  int code = -1;  // exit code, or 128 + signal
  std::string out;
  std::string err;
};

// Starts `qmr` with the arguments and waits for its end. `interruptAfterMs` sends SIGINT after that time; 0 never.
// `loader` are words put before the program, such as the dynamic loader with its options.
Outcome RunQmr(const std::vector<std::string>& arguments, int interruptAfterMs = 0,
               const std::vector<std::string>& loader = {});

// Runs `qmr` with the words and each of these more words, then with each processor level of the loader; fails where
// what `result` reads afterwards is not always the same.
void ExpectSameBits(const std::vector<std::string>& words, const std::vector<std::vector<std::string>>& more,
                    const std::function<std::string()>& result);

}  // namespace qmr::test
