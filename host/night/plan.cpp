#include "host/night/plan.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <system_error>
#include <utility>

#include "host/night/failure.h"
#include "qmrimg/image/row_frame.h"

namespace qmr {
namespace {

namespace fs = std::filesystem;

// Pixels of files that had to be opened early are kept up to this total.
constexpr std::size_t kKeptBytes = std::size_t{4} << 30;

std::string LowerLetters(std::string_view text) {
  std::string letters;
  for (const char c : text)
    if (std::isalpha(static_cast<unsigned char>(c)))
      letters.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  return letters;
}

// The name without its ending, where it has one of these, in any case; empty otherwise.
std::string_view Without(std::string_view name, std::span<const std::string_view> endings) {
  std::string lower(name);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
  for (const std::string_view ending : endings)
    if (lower.ends_with(ending)) return name.substr(0, name.size() - ending.size());
  return {};
}

constexpr std::string_view kFitsEndings[] = {".fit",    ".fits",    ".fts",    ".fz",
                                             ".fit.gz", ".fits.gz", ".fts.gz", ".fz.gz"};
constexpr std::string_view kRawEndings[] = {".3fr", ".arw", ".cr2", ".cr3", ".crw", ".dcr", ".dng", ".erf",
                                            ".fff", ".iiq", ".kdc", ".mef", ".mos", ".mrw", ".nef", ".nrw",
                                            ".orf", ".pef", ".raf", ".rw2", ".rwl", ".sr2", ".srf", ".srw"};

std::string FileName(const std::string& path) {
  return fs::path(path).filename().string();
}

struct Name {
  std::string_view word;
  FrameRole role;
};

// Longer words stand before those that they begin with.
constexpr std::array<Name, 9> kNames = {{{"flatdark", FrameRole::kFlatDark},
                                         {"darkflat", FrameRole::kFlatDark},
                                         {"light", FrameRole::kLight},
                                         {"dark", FrameRole::kDark},
                                         {"flat", FrameRole::kFlat},
                                         {"bias", FrameRole::kBias},
                                         {"offset", FrameRole::kBias},
                                         {"zero", FrameRole::kBias},
                                         {"object", FrameRole::kLight}}};

struct Listing {
  std::vector<std::string> files;
  std::vector<std::string> folders;
};

Listing List(const std::string& folder) {
  std::error_code error;
  Listing listing;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    const std::string path = at->path().string();
    if (FileName(path).starts_with('.')) continue;
    std::error_code kind;
    if (at->is_directory(kind))
      listing.folders.push_back(path);
    else if (at->is_regular_file(kind) && HasFrameName(path))
      listing.files.push_back(path);
  }
  if (error) throw Failure(kExitNoInput, PrintablePath(folder) + ": " + error.message());
  std::set<std::string, std::less<>> converted;
  for (const std::string& path : listing.files) converted.emplace(Without(path, kFitsEndings));
  std::erase_if(listing.files, [&](const std::string& path) {
    const std::string_view name = Without(path, kRawEndings);
    return !name.empty() && converted.contains(name);
  });
  std::sort(listing.files.begin(), listing.files.end());
  std::sort(listing.folders.begin(), listing.folders.end());
  return listing;
}

std::vector<FrameSource>& FramesOf(NightPlan& plan, FrameRole role) {
  switch (role) {
    case FrameRole::kDark:
      return plan.darks;
    case FrameRole::kFlat:
      return plan.flats;
    case FrameRole::kBias:
      return plan.biases;
    case FrameRole::kFlatDark:
      return plan.flatDarks;
    default:
      return plan.lights;
  }
}

// Opens the files and sorts them by what they say they are.
void PlanByContent(const std::vector<std::string>& files, NightPlan& plan) {
  std::vector<std::optional<FileResult<DecodedImage>>> read(files.size());
  ForRows(0, static_cast<int>(files.size()),
          [&](int i) { read[static_cast<std::size_t>(i)].emplace(ReadImageFile(files[static_cast<std::size_t>(i)])); });
  std::size_t kept = 0;
  for (std::size_t i = 0; i < files.size(); ++i) {
    FileResult<DecodedImage>& result = *read[i];
    if (!result) {
      plan.leftOut.push_back({files[i], result.Error().reason});
      continue;
    }
    FrameRole role = RoleOfImageType(ReadFrameFacts(result->keywords).imageType);
    if (role == FrameRole::kUnknown) role = RoleOfName(FileName(files[i]));
    FrameSource source{files[i], nullptr};
    kept += result->pixels.Bytes();
    if (kept <= kKeptBytes) source.decoded = std::make_shared<DecodedImage>(std::move(*result));
    read[i].reset();
    FramesOf(plan, role).push_back(std::move(source));
  }
}

}  // namespace

const char* RoleName(FrameRole role) {
  constexpr const char* kRoleNames[] = {"frame", "light", "dark", "flat", "bias", "flat dark"};
  return kRoleNames[static_cast<int>(role)];
}

FrameRole RoleOfName(std::string_view name) {
  const std::string letters = LowerLetters(name);
  for (const Name& known : kNames)
    if (letters.starts_with(known.word)) return known.role;
  return FrameRole::kUnknown;
}

FrameRole RoleOfImageType(std::string_view imageType) {
  std::string letters = LowerLetters(imageType);
  if (letters.starts_with("master")) letters.erase(0, 6);
  if (letters.starts_with("science")) return FrameRole::kLight;
  return RoleOfName(letters);
}

bool HasFrameName(std::string_view path) {
  return !Without(path, kFitsEndings).empty() || !Without(path, kRawEndings).empty();
}

NightPlan PlanNight(const std::string& folder) {
  std::error_code error;
  if (!fs::is_directory(folder, error))
    throw Failure(kExitNoInput, PrintablePath(folder) + ": " + (error ? error.message() : "not a folder"));
  const Listing root = List(folder);
  NightPlan plan;
  for (const std::string& sub : root.folders) {
    const FrameRole role = RoleOfName(FileName(sub));
    if (role == FrameRole::kUnknown) continue;
    for (const std::string& path : List(sub).files) FramesOf(plan, role).push_back({path, nullptr});
  }
  if (plan.lights.empty()) PlanByContent(root.files, plan);
  return plan;
}

std::vector<FrameSource> ListFrames(const std::string& path) {
  std::error_code error;
  if (!fs::exists(path, error)) throw Failure(kExitNoInput, PrintablePath(path) + ": no such file or folder");
  if (!fs::is_directory(path, error)) return {{path, nullptr}};
  std::vector<FrameSource> frames;
  for (const std::string& file : List(path).files) frames.push_back({file, nullptr});
  if (frames.empty()) throw Failure(kExitNoInput, PrintablePath(path) + ": holds no FITS or camera raw files");
  return frames;
}

}  // namespace qmr
