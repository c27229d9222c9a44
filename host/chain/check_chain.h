// What is wrong with a chain of commands, told before it runs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qmr {

struct ChainRemark {
  // From 1; columns count characters.
  int line = 1;
  int column = 1;
  // The run ends here, or the step does nothing useful; otherwise something is ignored or read in another way than it
  // looks.
  bool error = false;
  // The run ends here, and CVynImageProc::Do gives 0.
  bool ends = false;
  std::string text;
};

// Reads a chain as CVynImageProc would, without an image. Statements behind one that ends the run are looked at as
// well. The remarks stand in the order of the text.
std::vector<ChainRemark> CheckChain(std::string_view utf8);

// Whether the chain runs to its end.
bool ChainRuns(const std::vector<ChainRemark>& remarks);

}  // namespace qmr
