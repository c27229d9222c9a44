// `qmr restore`: the blur taken out of a picture.
#include "host/restore/restore.h"

#include "host/cli/commands.h"
#include "host/cli/operation_family.h"

namespace qmr {

void AddRestore(CLI::App& program, Run& run) {
  static constexpr OperationFamily family = {
      "restore", "a method", "Takes the blur out of one image: qmr restore METHOD ... IN OUT", Restorations,
      "`qmr restore METHOD --help` explains a method. For stars and nebulae: lucy, or mem where noise must not grow; "
      "for\n"
      "planets and the Moon: wiener or lucy with --sigma. A list gives each plane its own value: --noise 12,9,14.\n"
      "Restore linear pictures, before any stretch."};
  AddFamily(program, family, run);
}

}  // namespace qmr
