// `qmr run`: a chain of commands on one image.
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/chain/check_chain.h"
#include "host/cli/commands.h"
#include "host/cli/terminal_steps.h"
#include "host/compose/given_levels.h"
#include "host/night/failure.h"
#include "host/operations/blank_pixels.h"
#include "host/operations/picture_file.h"
#include "host/operations/progress_window.h"
#include "qmrimg/command/command_text.h"
#include "qmrimg/command/vyn_image_proc.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {
namespace {

constexpr std::size_t kLongestFile = 1 << 20;
constexpr int kReport = 1;

struct Arguments {
  std::string words[3];  // CHAIN IN OUT, or IN OUT
  std::string file, levels, bayer;
  CLI::Option *given[3] = {}, *fromFile = nullptr;
  bool check = false, lenient = false, force = false, verbose = false, quiet = false;
};

struct Chain {
  std::string name;  // in messages
  std::string text;

  std::string Place(const ChainRemark& remark) const {
    return name + ":" + std::to_string(remark.line) + ":" + std::to_string(remark.column);
  }
};

std::string ReadText(const std::string& path, const std::string& name) {
  struct Closer {
    void operator()(std::FILE* f) const { std::fclose(f); }
  };
  std::unique_ptr<std::FILE, Closer> opened;
  std::FILE* file = stdin;
  if (path != "-") {
    opened.reset(std::fopen(path.c_str(), "rb"));
    file = opened.get();
    if (!file) throw Failure(kExitNoInput, name + ": " + std::strerror(errno));
  }
  std::string text(kLongestFile + 1, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file));
  if (std::ferror(file)) throw Failure(kExitNoInput, name + ": " + std::strerror(errno));
  if (text.size() > kLongestFile) throw Failure(kExitBadData, name + ": longer than 1 MB, which no chain is");
  return text;
}

Chain ReadChain(const Arguments& arguments) {
  if (arguments.fromFile->count() == 0) return {"chain", arguments.words[0]};
  Chain chain{arguments.file == "-" ? "standard input" : PrintablePath(arguments.file), {}};
  chain.text = ReadText(arguments.file, chain.name);
  // Some editors begin a file with this mark.
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (chain.text.starts_with(kByteOrderMark)) chain.text.erase(0, kByteOrderMark.size());
  return chain;
}

int TellRemarks(const Chain& chain, const std::vector<ChainRemark>& remarks, bool quiet) {
  bool failed = false;
  for (const ChainRemark& remark : remarks) {
    std::printf("%s: %s: %s\n", chain.Place(remark).c_str(), remark.error ? "error" : "warning", remark.text.c_str());
    failed |= remark.error;
  }
  if (remarks.empty() && !quiet) std::printf("%s: nothing to remark\n", chain.name.c_str());
  if (std::fflush(stdout) != 0) throw Failure(kExitIo, "cannot write to standard output");
  return failed ? kExitBadData : kExitDone;
}

const ChainRemark* EndOf(const std::vector<ChainRemark>& remarks) {
  for (const ChainRemark& remark : remarks)
    if (remark.ends) return &remark;
  return nullptr;
}

// What must be right before anything is read. The library would take more than that.
void CheckBeforeRun(const Chain& chain, const std::vector<ChainRemark>& remarks, const Arguments& arguments) {
  if (NarrowUtf8(WidenUtf8(chain.text)) != chain.text || chain.text.find('\0') != std::string::npos)
    throw Failure(kExitBadData, chain.name + ": no UTF-8 text");
  for (const ChainRemark& remark : remarks)
    std::fprintf(stderr, "qmr: warning: %s: %s\n", chain.Place(remark).c_str(), remark.text.c_str());
  const ChainRemark* end = EndOf(remarks);
  if (!end || arguments.lenient) return;
  std::error_code error;
  const bool isFile = arguments.fromFile->count() == 0 && std::filesystem::exists(chain.text, error);
  throw Failure(kExitBadData, chain.Place(*end) + ": the chain would end here, so nothing was done; " +
                                  (isFile ? "-f reads a chain from a file" : "--lenient runs it as far as it goes"));
}

// The chain on one line. Tabs and blanks are the same to it, and all separators; blanks before a name don't count.
std::string OneLine(const Chain& chain) {
  const std::wstring text = WidenUtf8(chain.text);
  StatementReader statements(text);
  std::string line;
  bool first = true;
  while (const auto statement = statements.Next()) {
    if (!first) line += "; ";
    first = false;
    const std::size_t name = statement->find_first_not_of(kBlanks);
    for (const char c : NarrowUtf8(statement->substr(name == std::wstring_view::npos ? 0 : name)))
      line += c == '\t' ? ' ' : c;
  }
  return line;
}

std::string ShellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

// The one thing that only the picture can tell: on colour LEVEL reads other keys.
void WarnOfPlainLevels(const Chain& chain, const CVynImage& image, Steps& steps) {
  if (image.GetPlanes() < 3) return;
  const std::wstring text = WidenUtf8(chain.text);
  StatementReader statements(text);
  while (const auto statement = statements.Next()) {
    const auto parts = SplitStatement(*statement);
    const Command* command = parts ? FindCommand(parts->name) : nullptr;
    if (!command || command->kind != CommandKind::kLevel) continue;
    bool own = false, plain = false;
    for (const CommandKey& key : command->keys) {
      plain |= !ReadValue(parts->arguments, key.name).empty();
      for (std::size_t p = 0; p < key.planes.size(); ++p)
        own |= !ReadValue(parts->arguments, KeyOfPlane(key, p)).empty();
    }
    if (!plain || own) continue;
    steps.Warn("warning: " + chain.name +
               ": on a colour picture LEVEL reads MIN_R, MAX_R, MIN_G and MAX_G; MIN and MAX alone set no plane");
    return;
  }
}

std::string LevelsText(const CVynImage& image) {
  std::string text;
  for (int p = 0; p < image.GetPlanes(); ++p)
    text.append(p == 0 ? "" : ",")
        .append(NumberText(image.GetLevelMin(p)))
        .append(",")
        .append(NumberText(image.GetLevelMax(p)));
  return text;
}

std::vector<double> LevelsOf(const CVynImage& image) {
  std::vector<double> levels;
  for (int p = 0; p < image.GetPlanes(); ++p) {
    levels.push_back(image.GetLevelMin(p));
    levels.push_back(image.GetLevelMax(p));
  }
  return levels;
}

bool ShowPicture(const std::vector<double>& levels) {
  for (std::size_t i = 0; i < levels.size(); i += 2)
    if (!std::isfinite(levels[i]) || !std::isfinite(levels[i + 1]) || !(levels[i] < levels[i + 1])) return false;
  return true;
}

// Runs the chain as the library does, statement by statement so that each shows its own progress. False when one
// ends the run.
bool RunStatements(CVynImage& image, const Chain& chain, Steps& steps) {
  const std::wstring text = WidenUtf8(chain.text);
  int count = 0;
  for (StatementReader statements(text); statements.Next();) ++count;
  CVynImage temp(image);
  CVynImageProc proc;
  proc.SetImagePtr(&image, &temp);
  StatementReader statements(text);
  bool runs = true;
  for (int i = 1; runs; ++i) {
    const auto statement = statements.Next();
    if (!statement) break;
    const auto parts = SplitStatement(*statement);
    const Command* command = parts ? FindCommand(parts->name) : nullptr;
    ProgressWindow window(steps, std::to_string(i) + "/" + std::to_string(count) + " " +
                                     (command ? NarrowUtf8(command->name) : std::string()));
    image.SetProgressHandle(&window);
    temp.SetProgressHandle(&window);
    // An empty statement is no text without statements.
    runs = parts && proc.Do(CString(std::wstring(*statement)), kReport);
    image.SetProgressHandle(nullptr);
    temp.SetProgressHandle(nullptr);
  }
  // The engines read the temporary image.
  image.ClearFilterProc();
  return runs;
}

std::int64_t CountBroken(const CVynImage& image) {
  return FoldRows(
      0, image.GetHeight(), std::int64_t{0},
      [&](int y) {
        std::int64_t broken = 0;
        for (int p = 0; p < image.GetPlanes(); ++p)
          for (const float v : ReadRow(image, y, p, 0, image.GetWidth())) broken += !std::isfinite(v);
        return broken;
      },
      [](std::int64_t a, std::int64_t b) { return a + b; });
}

bool IsPicture(const std::string& path) {
  return UpperCase(path).ends_with(".PNG");
}

// Levels that a chain has set go into the file.
void KeepLevels(LightFrame& frame, const std::vector<double>& before, const std::string& output, Steps& steps) {
  const std::vector<double> levels = LevelsOf(*frame.image);
  if (ShowPicture(levels)) {
    if (levels != before) SetLevelKeywords(frame.keywords, *frame.image);
    return;
  }
  const std::string found = "the chain leaves levels that show no picture: " + LevelsText(*frame.image);
  if (IsPicture(output)) throw Failure(kExitBadData, found);
  steps.Warn("warning: " + found + "; they are not kept");
}

int RunChain(const Arguments& arguments) {
  const bool fromFile = arguments.fromFile->count() > 0;
  const std::size_t wanted = arguments.check ? (fromFile ? 0 : 1) : (fromFile ? 2 : 3);
  std::size_t words = 0;
  for (const CLI::Option* option : arguments.given) words += option->count();
  if (words != wanted)
    throw Failure(kExitUsage, arguments.check ? "qmr run --check CHAIN, or qmr run --check -f FILE"
                                              : "qmr run CHAIN IN OUT, or qmr run -f FILE IN OUT");
  const Chain chain = ReadChain(arguments);
  const std::vector<ChainRemark> remarks = CheckChain(chain.text);
  if (arguments.check) return TellRemarks(chain, remarks, arguments.quiet);
  const std::string& input = arguments.words[fromFile ? 0 : 1];
  const std::string& output = arguments.words[fromFile ? 1 : 2];
  const std::vector<double> given =
      arguments.levels.empty() ? std::vector<double>() : ParseLevels("--levels", arguments.levels);
  const auto bayer = arguments.bayer.empty() ? std::nullopt : std::optional(arguments.bayer);
  CheckBeforeRun(chain, remarks, arguments);
  CheckOutput(output, arguments.force);

  TerminalSteps steps(arguments.quiet);
  steps.Begin("Reading", 1);
  LightFrame frame = LoadPicture(input, bayer);
  steps.End("");
  RefuseMosaic(frame);
  CVynImage& image = *frame.image;
  WarnOfPlainLevels(chain, image, steps);
  std::optional<BlankPixels> blank;
  if (frame.blankPixels > 0) blank.emplace(image, 1);
  GiveLevels(image, given, frame.keywords, "--levels");
  std::string command = "qmr run " + ShellQuoted(OneLine(chain)) + " --levels " + LevelsText(image);
  if (bayer) command += " --bayer " + PrintablePath(*bayer);
  if (arguments.lenient) command += " --lenient";
  const std::vector<double> levels = LevelsOf(image);

  const bool ran = RunStatements(image, chain, steps);
  if (const std::int64_t broken = CountBroken(image))
    steps.Warn("warning: " + std::to_string(broken) + " pixels have no value any more, or an infinite one");
  if (blank) blank->Restore(image);
  KeepLevels(frame, levels, output, steps);
  steps.Begin("Writing", 1);
  WritePicture(output, image, frame.keywords, command);
  steps.End("");

  if (arguments.verbose) {
    std::printf("%s\n", command.c_str());
    if (blank) std::printf("%zu pixels without a value stay so\n", blank->Count());
  }
  if (!arguments.quiet) std::printf("wrote %s\n", PrintablePath(output).c_str());
  if (ran) return kExitDone;
  const ChainRemark* end = EndOf(remarks);
  throw Failure(kExitBadData, (end ? chain.Place(*end) : chain.name) +
                                  ": the chain ended here; what was written is the result of the steps before");
}

}  // namespace

void AddRun(CLI::App& program, Run& run) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command = program.add_subcommand("run", "Runs a chain of commands, a text, on one image");
  command->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  const char* const kWords[][2] = {
      {"CHAIN", "Commands with KEY=value behind them, parted by semicolons; left out with -f"},
      {"IN", "FITS file, one or three planes; left out with --check"},
      {"OUT",
       "32-bit FITS (.fit, .fits, .fts) with the keywords of IN, or 16-bit PNG from black to white; left out with "
       "--check"}};
  for (std::size_t i = 0; i < 3; ++i)
    arguments->given[i] = command->add_option(kWords[i][0], arguments->words[i], kWords[i][1])->option_text(" ");
  arguments->fromFile =
      command->add_option("-f,--file", arguments->file, "Read the chain from a file, - for standard input")
          ->option_text("FILE");
  command->add_flag("--check", arguments->check, "Tell what is wrong with the chain, and run nothing");
  command->add_flag("--lenient", arguments->lenient, "Run a chain that ends early as far as it goes; the exit is 65");
  command
      ->add_option("--levels", arguments->levels,
                   "Values of the file that are black and white, for all planes or each; by default CBLACK and CWHITE "
                   "of the file, else from the sky's brightness and noise")
      ->option_text("MIN,MAX[,...]");
  command->add_option("--bayer", arguments->bayer, "The sensor's mosaic: none takes an undeveloped frame as it lies")
      ->option_text("PATTERN");
  command->add_flag("--force", arguments->force, "Replace OUT if it exists");
  command->add_flag("--verbose,-v", arguments->verbose, "Print the whole command with the levels that were found");
  command->add_flag("--quiet,-q", arguments->quiet, "Say nothing but warnings and errors");
  command->footer(
      "Commands: LEVEL, SHARP (METHOD=STANDARD, EDGEONLY or UNSHARPMASK), BRIGHTNESSCONTRAST, HALPHA, "
      "HALPHAAUTOLEVEL,\n"
      "DIGITALDEVELOPMENT. A blank has to follow the name, none may follow the '='. docs/commands.md tells their "
      "keys.\n"
      "  qmr run 'SHARP METHOD=UNSHARPMASK RADIUS=2 WEIGHT=1.5 BRIGHTER=0; BRIGHTNESSCONTRAST CONTRAST=20' stack.fit "
      "crisp.fit\n"
      "Exit codes: 65 also for a chain that ends early, or with --check one that has an error.");
  command->callback([arguments, &run] { run = [arguments] { return RunChain(*arguments); }; });
}

}  // namespace qmr
