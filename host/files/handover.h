#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/files/decode.h"
#include "host/files/image_file.h"
#include "host/files/sockets.h"

namespace qmr {

/// What goes from the program to the server: one message with three or four descriptors: the file, the answer
/// socket of the decoder, the notice socket of the server, and perhaps a memory file that may be used again.
struct DecodeRequest {
  std::uint32_t magic = 0;
  DecoderFault fault = DecoderFault::None;
  std::uint64_t fileBytes = 0;
  std::uint64_t memoryBytes = 0;
  std::uint32_t timeoutMilliseconds = 0;
  std::uint32_t plainLibraryPath = 0;
  std::uint64_t bufferBytes = 0;  ///< pixels that fit into the memory file to be used again; 0 without one
};

/// What the server says when the decoder has ended.
struct ExitNotice {
  std::uint32_t magic = 0;
  std::int32_t waitStatus = 0;
  std::uint32_t timedOut = 0;
  std::int32_t forkError = 0;
};

/// What the decoder says, with a sealed memory file when it is an image: pixels from offset 0, then keywords. The file
/// is the one that came with the request (reusedBuffer) or a new one that comes with the message. All this is told by
/// a process that hostile content may have taken over: every field is a claim.
struct Handover {
  static constexpr std::size_t kTextBytes = 484;
  std::uint32_t magic = 0;
  std::uint32_t failed = 0;
  std::uint32_t errorKind = 0;
  std::uint32_t reusedBuffer = 0;
  std::int32_t width = 0, height = 0, planes = 0;
  std::int32_t fileBits = 0;
  std::int32_t hdu = 0;
  double bscale = 0.0, bzero = 0.0;
  std::int64_t blankPixels = 0;
  std::uint64_t keywordBytes = 0;
  char text[kTextBytes]{};  ///< format, or the reason of the failure; ends with a zero
};

inline constexpr std::uint32_t kRequestMagic = 0x51524551;
inline constexpr std::uint32_t kNoticeMagic = 0x51455849;
inline constexpr std::uint32_t kHandoverMagic = 0x51494D47;
inline constexpr std::uint64_t kMaxKeywordBytes = std::uint64_t{64} << 20;

std::string PackKeywords(std::span<const Keyword> keywords);
/// Nothing when the bytes are not exactly what PackKeywords writes.
std::optional<std::vector<Keyword>> UnpackKeywords(std::span<const std::byte> bytes);

void SetText(Handover& handover, std::string_view text);
/// The text without control characters, whatever stands there.
std::string TextOf(const Handover& handover);

/// Takes an image over: checks the claims against the memory file, maps it and copies the keywords. `fresh` is the file
/// that came with the message, `given` the buffer that went out with the request; the one in use is taken. Without a
/// value the claims do not hold.
std::optional<DecodedImage> AcceptImage(const Handover& handover, Descriptor& fresh, PixelMapping& given);

}  // namespace qmr
