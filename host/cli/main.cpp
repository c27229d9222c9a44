// The program `qmr`.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <new>
#include <string>

#include "host/cli/commands.h"
#include "host/cli/interrupt.h"
#include "host/cli/unknown_word.h"
#include "host/files/image_file.h"
#include "host/night/failure.h"
#include "host/version.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/store/parallel.h"

namespace {

int RunProgram(int argc, char** argv) {
  CLI::App program{"Stacks a night of astronomical frames, and the steps of it one by one."};
  program.name("qmr");
  program.set_version_flag("--version", std::string("qmr ") + qmr::kVersion);
  program.require_subcommand(1);
  // --threads may stand behind the command as well.
  program.fallthrough();
  program.footer(
      "Exit codes: 0 done, 64 usage, 65 bad data, 66 no input, 73 cannot create, 74 input or output error,\n"
      "130 interrupted. `qmr COMMAND --help` explains a command.");
  int threads = 0;
  program.add_option("--threads", threads, "Threads to use; all processors by default")
      ->check(CLI::Range(1, 1024))
      ->option_text("N");
  qmr::Run run;
  qmr::AddStack(program, run);
  qmr::AddSimulate(program, run);
  qmr::AddFilter(program, run);
  qmr::AddAdjust(program, run);
  qmr::AddCompose(program, run);
  qmr::AddSplit(program, run);
  qmr::AddLevels(program, run);
  qmr::AddRun(program, run);
  qmr::AddGeometry(program, run);
  qmr::AddMeasure(program, run);
  qmr::AddComposite(program, run);
  qmr::AddMosaic(program, run);
  qmr::AddAnnotate(program, run);
  qmr::AddRestore(program, run);
  qmr::AddDevelop(program, run);
  qmr::AddInfo(program, run);
  try {
    program.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return program.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return program.exit(e);
  } catch (const CLI::ParseError& e) {
    // A word that is not understood is often the reason for what seems to be missing.
    const std::string unknown = qmr::UnknownWord(program);
    std::fprintf(stderr, "qmr: %s\n", unknown.empty() ? e.what() : unknown.c_str());
    return qmr::kExitUsage;
  }
  qmr::SetMaxThreads(threads);
  return run ? run() : qmr::kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
  // Decoders start from a process that is still small and has one thread.
  qmr::StartDecoders();
  qmr::InstallInterruptHandler();
  try {
    return RunProgram(argc, argv);
  } catch (const qmr::Failure& failure) {
    std::fprintf(stderr, "qmr: %s\n", failure.what());
    return failure.code;
  } catch (CException* e) {
    e->Delete();
    std::fputs("qmr: not enough memory\n", stderr);
  } catch (const std::bad_alloc&) {
    std::fputs("qmr: not enough memory\n", stderr);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qmr: %s\n", e.what());
  }
  return qmr::kExitIo;
}
