#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/files/file_error.h"

namespace qmr {

/// A file that appears under its name only when it is complete: written to a temporary file in the same folder, brought
/// to the disk, then renamed. Until Commit() succeeds an older file of that name stays as it was; when the object goes
/// away before, the temporary file is removed.
///
/// The first failure is kept: later writes do nothing and Commit() reports it, so callers need not test each write.
/// A symbolic link is followed, and the mode of an existing file kept. A device or pipe is written to directly.
/// The first AtomicFile makes the process ignore SIGXFSZ where nobody handles it, so that a file size limit is an error
/// like a full disk.
class AtomicFile {
 public:
  explicit AtomicFile(std::string path);
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  ~AtomicFile();

  bool Good() const { return !error_.has_value(); }
  /// The first failure; meaningful when Good() is false.
  const FileStatus& Error() const { return error_; }

  bool Write(const void* data, std::size_t bytes);
  bool Write(std::string_view text) { return Write(text.data(), text.size()); }
  /// Overwrites bytes that were written before.
  bool WriteAt(std::uint64_t offset, const void* data, std::size_t bytes);

  /// Makes the file visible under its name. After it the object takes no more data.
  FileStatus Commit();

 private:
  bool Fail(FileErrorKind kind, std::string_view what, int errnoValue);
  bool Flush();
  bool WriteAll(const void* data, std::size_t bytes);
  void Discard();

  std::string path_;       // as the caller gave it, for messages
  std::string target_;     // what the rename replaces
  std::string temporary_;  // empty: written directly
  int fd_ = -1;
  int slot_ = -1;  // entry in the registry of pending temporaries
  std::vector<std::byte> buffer_;
  std::size_t buffered_ = 0;
  FileStatus error_;
};

/// Writes a whole text file in that manner.
FileStatus WriteTextFile(const std::string& path, std::string_view text);

/// Removes the temporary files that are being written at this moment. Async-signal-safe: for the handler of Ctrl-C,
/// which ends the process afterwards.
void RemovePendingFiles() noexcept;

}  // namespace qmr
