#pragma once

namespace qmr {

/// From here on this process can't start others, run programs, reach into other processes or talk to the network: such
/// calls fail with EPERM. Threads stay possible. Does nothing where the system has no call filters. Needs
/// PR_SET_NO_NEW_PRIVS.
void FilterSystemCalls();

}  // namespace qmr
