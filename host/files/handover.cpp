#include "host/files/handover.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace qmr {
namespace {

enum ValueTag : std::uint8_t { kNoValue, kText, kInteger, kReal, kLogical };

template <class T>
void Put(std::string& bytes, const T& value) {
  bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
}

void PutText(std::string& bytes, const std::string& text) {
  Put(bytes, static_cast<std::uint32_t>(text.size()));
  bytes += text;
}

// Reads from bytes that may lie about everything; once something is missing, all that follows fails.
class Reader {
 public:
  explicit Reader(std::span<const std::byte> bytes) : bytes_(bytes) {}
  bool AtEnd() const { return good_ && bytes_.empty(); }
  bool Good() const { return good_; }

  template <class T>
  T Get() {
    T value{};
    if (!Need(sizeof(T))) return value;
    std::memcpy(&value, bytes_.data(), sizeof(T));
    bytes_ = bytes_.subspan(sizeof(T));
    return value;
  }

  std::string GetText() {
    const auto length = Get<std::uint32_t>();
    if (!Need(length)) return {};
    std::string text(reinterpret_cast<const char*>(bytes_.data()), length);
    bytes_ = bytes_.subspan(length);
    return text;
  }

  void Fail() { good_ = false; }

 private:
  bool Need(std::size_t count) {
    good_ = good_ && count <= bytes_.size();
    return good_;
  }

  std::span<const std::byte> bytes_;
  bool good_ = true;
};

}  // namespace

std::string PackKeywords(std::span<const Keyword> keywords) {
  std::string bytes;
  for (const Keyword& keyword : keywords) {
    PutText(bytes, keyword.name);
    PutText(bytes, keyword.comment);
    Put(bytes, static_cast<std::uint8_t>(keyword.value.index()));
    if (const auto* text = std::get_if<std::string>(&keyword.value)) PutText(bytes, *text);
    if (const auto* number = std::get_if<std::int64_t>(&keyword.value)) Put(bytes, *number);
    if (const auto* number = std::get_if<double>(&keyword.value)) Put(bytes, *number);
    if (const auto* flag = std::get_if<bool>(&keyword.value)) Put(bytes, static_cast<std::uint8_t>(*flag));
  }
  return bytes;
}

std::optional<std::vector<Keyword>> UnpackKeywords(std::span<const std::byte> bytes) {
  Reader reader(bytes);
  std::vector<Keyword> keywords;
  while (reader.Good() && !reader.AtEnd()) {
    Keyword keyword;
    keyword.name = reader.GetText();
    keyword.comment = reader.GetText();
    switch (reader.Get<std::uint8_t>()) {
      case kNoValue:
        break;
      case kText:
        keyword.value = reader.GetText();
        break;
      case kInteger:
        keyword.value = reader.Get<std::int64_t>();
        break;
      case kReal:
        keyword.value = reader.Get<double>();
        break;
      case kLogical:
        keyword.value = reader.Get<std::uint8_t>() != 0;
        break;
      default:
        reader.Fail();
    }
    if (reader.Good()) keywords.push_back(std::move(keyword));
  }
  if (!reader.Good()) return std::nullopt;
  return keywords;
}

void SetText(Handover& handover, std::string_view text) {
  const std::size_t length = std::min(text.size(), Handover::kTextBytes - 1);
  std::memcpy(handover.text, text.data(), length);
  handover.text[length] = '\0';
}

std::string TextOf(const Handover& handover) {
  std::string text(handover.text, strnlen(handover.text, Handover::kTextBytes));
  for (char& c : text) {
    if (c < 0x20 || c > 0x7E) c = '?';
  }
  return text;
}

std::optional<DecodedImage> AcceptImage(const Handover& handover, Descriptor& fresh, PixelMapping& given) {
  std::size_t pixelBytes = 0;
  try {
    pixelBytes = PixelBytes(handover.width, handover.height, handover.planes);
  } catch (const DecodeFailure&) {
    return std::nullopt;
  }
  static constexpr int kBits[] = {8, 16, 32, 64, -32, -64};
  const bool knownBits = std::find(std::begin(kBits), std::end(kBits), handover.fileBits) != std::end(kBits);
  const bool countFits =
      handover.blankPixels >= 0 && static_cast<std::uint64_t>(handover.blankPixels) <= pixelBytes / sizeof(float);
  if (!knownBits || !countFits || handover.hdu < 1 || handover.keywordBytes > kMaxKeywordBytes) return std::nullopt;

  // Without the seal the decoder, or what it left behind, could shorten the file under our feet.
  const int memory = handover.reusedBuffer ? given.Memory() : fresh.Get();
  const int seals = fcntl(memory, F_GET_SEALS);
  struct stat status {};
  if (seals < 0 || !(seals & F_SEAL_SHRINK) || fstat(memory, &status) != 0 || status.st_size < 0) return std::nullopt;
  const std::size_t bytes = pixelBytes + static_cast<std::size_t>(handover.keywordBytes);
  if (bytes > static_cast<std::uint64_t>(status.st_size)) return std::nullopt;
  if (handover.reusedBuffer && pixelBytes > given.Bytes()) return std::nullopt;

  // Copied before they are looked at, so that they can't change between a look and the next.
  std::vector<std::byte> keywordBytes(static_cast<std::size_t>(handover.keywordBytes));
  if (pread(memory, keywordBytes.data(), keywordBytes.size(), static_cast<off_t>(pixelBytes)) !=
      static_cast<ssize_t>(keywordBytes.size())) {
    return std::nullopt;
  }
  auto keywords = UnpackKeywords(keywordBytes);
  if (!keywords) return std::nullopt;

  DecodedImage image;
  if (handover.reusedBuffer) {
    image.pixels = std::move(given);
  } else {
    image.pixels = PixelMapping::OfMemory(memory, pixelBytes);
    if (image.pixels.Bytes() == 0) return std::nullopt;
    fresh.Release();
  }
  image.keywords = std::move(*keywords);
  image.format = TextOf(handover);
  image.width = handover.width;
  image.height = handover.height;
  image.planes = handover.planes;
  image.fileBits = handover.fileBits;
  image.hdu = handover.hdu;
  image.bscale = handover.bscale;
  image.bzero = handover.bzero;
  image.blankPixels = handover.blankPixels;
  return image;
}

}  // namespace qmr
