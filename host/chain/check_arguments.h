// What is wrong with the arguments of one command.
#pragma once

#include "host/chain/remark_list.h"
#include "qmrimg/command/command_text.h"

namespace qmr {

// Says what is wrong; true where the command gets a value for one of its keys at least.
bool CheckArguments(const StatementParts& parts, const Command& command, RemarkList& remarks);

}  // namespace qmr
