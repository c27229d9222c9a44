#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "host/files/keyword.h"

namespace qmr {

/// Reads the cards of one header up to END. Long texts in CONTINUE cards are put together; bytes below a blank count as
/// blanks; cards that follow no rule become an entry without a value. Never fails: what cannot be read is left out.
/// At most `limit` entries.
std::vector<Keyword> ParseFitsHeader(std::string_view cards, std::size_t limit = 65536);

}  // namespace qmr
