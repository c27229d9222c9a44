#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace qmr {

enum class FileErrorKind {
  CannotOpen,     ///< missing, no permission, a folder, not a regular file, empty
  NotRecognised,  ///< the content is of no known image format
  NoImage,        ///< a known format without an image inside
  Damaged,        ///< truncated, or contradicts itself
  Unsupported,    ///< sound, but of a shape or kind that is not read
  TooLarge,       ///< needs more memory than its decoder may use
  TimedOut,       ///< the decoder did not end in its time and was killed
  Crashed,        ///< the decoder died
  CannotWrite,    ///< full disk, missing folder, no permission
  BadArgument,    ///< the caller asked for something that cannot be written
  Internal        ///< the decoder process could not be started or reached
};

/// What went wrong with one file. Paths are bytes; Message() is always one printable line.
struct FileError {
  std::string path;
  std::string reason;
  FileErrorKind kind = FileErrorKind::Internal;

  /// "path: reason", with the path as PrintablePath() gives it.
  std::string Message() const;
};

/// The path as valid UTF-8 without control characters: other bytes become \n, \t or \xNN, a backslash \\.
std::string PrintablePath(std::string_view path);

/// "<what>: <text of errnoValue>" as an error of that file.
FileError SystemError(std::string path, FileErrorKind kind, std::string_view what, int errnoValue);

/// Either a value or the error of one file.
template <class T>
class FileResult {
 public:
  FileResult(T value) : held_(std::in_place_index<0>, std::move(value)) {}
  FileResult(FileError error) : held_(std::in_place_index<1>, std::move(error)) {}

  bool HasValue() const { return held_.index() == 0; }
  explicit operator bool() const { return HasValue(); }
  T& operator*() { return std::get<0>(held_); }
  const T& operator*() const { return std::get<0>(held_); }
  T* operator->() { return &std::get<0>(held_); }
  const T* operator->() const { return &std::get<0>(held_); }
  const FileError& Error() const { return std::get<1>(held_); }

 private:
  std::variant<T, FileError> held_;
};

/// Nothing on success.
using FileStatus = std::optional<FileError>;

}  // namespace qmr
