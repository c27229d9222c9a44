#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <mutex>
#include <string>

#include "host/files/handover.h"
#include "host/files/image_file.h"
#include "host/files/sockets.h"

namespace qmr {

/// The program's side of the decoders: one small server process that forks a decoder for each file.
///
/// A server that is gone (killed from outside) is started anew with the next file. When the program ends in whatever
/// way, the server sees its socket close, kills its decoders and ends.
class DecoderPool {
 public:
  /// At most `atOnce` files are decoded at the same time; more wait for their turn.
  explicit DecoderPool(int atOnce);
  DecoderPool(const DecoderPool&) = delete;
  DecoderPool& operator=(const DecoderPool&) = delete;
  ~DecoderPool();

  bool Start();
  FileResult<DecodedImage> Decode(const std::string& path, const ReadOptions& options);

  /// The server's process, -1 when there is none; for tests.
  pid_t ServerPid() const;

  /// The pool of ReadImageFile, with as many decoders as the machine has processors, at least two.
  static DecoderPool& Shared();

 private:
  bool StartLocked();
  void StopLocked();
  /// The server that took the request, -1 when none could be had.
  pid_t Send(const DecodeRequest& request, std::span<const int> passed);
  /// Gives up a server that did not answer, unless another one stands in its place already.
  void Replace(pid_t lost);

  mutable std::mutex mutex_;
  std::condition_variable turn_;
  int free_;
  Descriptor control_;
  pid_t server_ = -1;
  pid_t owner_ = -1;  // the process that started the server; a forked copy of it must not stop it
};

}  // namespace qmr
