#include "host/files/fits_writer.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "host/files/atomic_file.h"
#include "host/files/fits_checksum.h"

namespace qmr {
namespace {

constexpr std::size_t kBlock = 2880;
constexpr std::size_t kCard = 80;
constexpr std::size_t kTextRoom = 68;  // of a quoted string on one card

std::string Printable(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xC0) == 0x80) continue;  // the rest of a UTF-8 character that already became a question mark
    clean += byte < 0x20 || byte > 0x7E ? '?' : c;
  }
  return clean;
}

bool IsStandardName(std::string_view name) {
  return !name.empty() && name.size() <= 8 && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  });
}

// "name    = ", or the long form of names that the standard does not allow.
std::string NamePart(std::string_view name) {
  if (IsStandardName(name)) {
    std::string part(name);
    part.resize(8, ' ');
    return part + "= ";
  }
  return "HIERARCH " + std::string(name) + " = ";
}

std::string NumberText(double value) {
  std::array<char, 40> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  std::string text(digits.data(), end);
  std::replace(text.begin(), text.end(), 'e', 'E');
  if (const auto exponent = text.find('E'); text.find('.') == std::string::npos) {
    text.insert(exponent == std::string::npos ? text.size() : exponent, exponent == std::string::npos ? "." : ".0");
  }
  return text;
}

class HeaderText {
 public:
  void Add(const Keyword& keyword) {
    if (keyword.IsCommentary()) {
      AddCommentary(keyword);
    } else if (const auto* text = std::get_if<std::string>(&keyword.value)) {
      AddText(keyword.name, *text, keyword.comment);
    } else {
      AddFixed(keyword);
    }
  }

  void AddText(std::string_view name, std::string_view value, std::string_view comment) {
    std::string quoted;  // with quotes inside doubled
    for (const char c : Printable(value)) quoted += c == '\'' ? "''" : std::string(1, c);
    const std::string lead = NamePart(UpperCase(Printable(name)));
    const std::size_t firstRoom = lead.size() < kCard - 12 ? kCard - lead.size() - 2 : 0;
    if (firstRoom == 0) return;  // a name that leaves no room for a value says nothing
    if (quoted.size() <= firstRoom) {
      while (quoted.size() < 8 && lead.size() == 10) quoted += ' ';
      Card(lead + "'" + quoted + "'" + CommentPart(comment));
      return;
    }
    usesContinue_ = true;
    std::size_t room = firstRoom;
    std::string opening = lead;
    while (!quoted.empty()) {
      const bool last = quoted.size() <= room;
      std::size_t taken = last ? quoted.size() : room - 1;
      // A doubled quote must not be torn in two.
      if (!last && std::count(quoted.begin(), quoted.begin() + static_cast<std::ptrdiff_t>(taken), '\'') % 2 == 1) {
        --taken;
      }
      std::string card = opening;
      card += '\'';
      card.append(quoted, 0, taken);
      card += last ? "'" : "&'";
      if (last) card += CommentPart(comment);
      Card(std::move(card));
      quoted.erase(0, taken);
      opening = "CONTINUE  ";
      room = kTextRoom;
    }
  }

  bool UsesContinue() const { return usesContinue_; }
  std::string& Text() { return text_; }

 private:
  void Card(std::string card) {
    card.resize(kCard, ' ');
    text_ += card;
  }

  static std::string CommentPart(std::string_view comment) {
    std::string part;
    if (!comment.empty()) part.append(" / ").append(Printable(comment));
    return part;
  }

  void AddFixed(const Keyword& keyword) {
    std::string value;
    if (const auto* number = std::get_if<std::int64_t>(&keyword.value)) value = std::to_string(*number);
    if (const auto* flag = std::get_if<bool>(&keyword.value)) value.assign(1, *flag ? 'T' : 'F');
    // FITS headers know neither infinity nor not-a-number, and verifiers object to keywords without a value.
    if (const auto* number = std::get_if<double>(&keyword.value); number && std::isfinite(*number)) {
      value = NumberText(*number);
    }
    const std::string lead = NamePart(UpperCase(Printable(keyword.name)));
    if (value.empty() || lead.size() + value.size() > kCard) return;
    if (lead.size() == 10 && value.size() < 20) value.insert(0, 20 - value.size(), ' ');
    Card(lead + value + CommentPart(keyword.comment));
  }

  void AddCommentary(const Keyword& keyword) {
    const auto* value = std::get_if<std::string>(&keyword.value);
    std::string name = keyword.name;
    name.resize(8, ' ');
    std::string text = value ? Printable(*value) : std::string();
    do {
      Card(name + text.substr(0, kCard - 8));
      text.erase(0, kCard - 8);
    } while (!text.empty());
  }

  std::string text_;
  bool usesContinue_ = false;
};

std::string CardOf(const Keyword& keyword) {
  HeaderText one;
  one.Add(keyword);
  return one.Text();
}

struct Shape {
  int width, height, planes, bitpix;
};

// The header, padded to whole blocks, with DATASUM and CHECKSUM as its last two entries before END.
std::string MakeHeader(const Shape& shape, std::span<const Keyword> keywords, std::size_t* sumsAt) {
  HeaderText header;
  header.Add(Keyword::Logical("SIMPLE", true, "file conforms to the FITS standard"));
  header.Add(Keyword::Integer("BITPIX", shape.bitpix, shape.bitpix < 0 ? "32-bit floating point" : "16-bit integers"));
  header.Add(Keyword::Integer("NAXIS", shape.planes > 1 ? 3 : 2));
  header.Add(Keyword::Integer("NAXIS1", shape.width, "columns"));
  header.Add(Keyword::Integer("NAXIS2", shape.height, "rows"));
  if (shape.planes > 1) header.Add(Keyword::Integer("NAXIS3", shape.planes, "planes"));
  header.Add(Keyword::Logical("EXTEND", true));
  if (shape.bitpix == 16) {
    header.Add(Keyword::Integer("BSCALE", 1));
    header.Add(Keyword::Integer("BZERO", 32768, "samples are unsigned"));
  }
  HeaderText rest;
  for (const Keyword& keyword : keywords) {
    if (!IsStructuralKeyword(keyword.name)) rest.Add(keyword);
  }
  if (rest.UsesContinue()) header.AddText("LONGSTRN", "OGIP 1.0", "long texts may be continued");
  std::string text = header.Text() + rest.Text();
  *sumsAt = text.size();
  text.append(2 * kCard, ' ');
  text += "END";
  text.resize((text.size() + kBlock - 1) / kBlock * kBlock, ' ');
  return text;
}

void SetSums(std::string& header, std::size_t at, std::uint32_t dataSum) {
  const auto put = [&](std::size_t place, const Keyword& keyword) { header.replace(place, kCard, CardOf(keyword)); };
  put(at, Keyword::Text("DATASUM", std::to_string(dataSum), "sum of the data unit"));
  put(at + kCard, Keyword::Text("CHECKSUM", std::string(16, '0'), "sum of the whole file is -0"));
  const std::uint32_t total = AddFitsSum(dataSum, header.data(), header.size());
  put(at + kCard, Keyword::Text("CHECKSUM", EncodeFitsSum(total), "sum of the whole file is -0"));
}

// Shared road of both sample types: Encode(source row, big-endian bytes) is all that differs.
template <class Source, class Encode>
FileStatus WriteFits(const std::string& path, const Shape& shape, const Source& rows, std::span<const Keyword> keywords,
                     const Encode& encode) {
  if (shape.width < 1 || shape.height < 1 || shape.planes < 1) {
    return FileError{path, "an image of no pixels cannot be written", FileErrorKind::BadArgument};
  }
  AtomicFile file(path);
  std::size_t sumsAt = 0;
  std::string header = MakeHeader(shape, keywords, &sumsAt);
  file.Write(header);

  const std::size_t rowBytes =
      static_cast<std::size_t>(shape.width) * static_cast<std::size_t>(std::abs(shape.bitpix) / 8);
  std::vector<char> row(rowBytes);
  FitsSum sum;
  for (int plane = 0; plane < shape.planes; ++plane) {
    for (int y = 0; y < shape.height; ++y) {
      if (!file.Good()) return file.Error();
      const auto* samples = rows(plane, y);
      if (!samples) return FileError{path, "a row of the image could not be had", FileErrorKind::BadArgument};
      encode(samples, row.data(), static_cast<std::size_t>(shape.width));
      sum.Add(row.data(), rowBytes);
      file.Write(row.data(), rowBytes);
    }
  }
  const std::uint64_t bytes =
      std::uint64_t{rowBytes} * static_cast<std::uint64_t>(shape.height) * static_cast<std::uint64_t>(shape.planes);
  const std::vector<char> padding((kBlock - bytes % kBlock) % kBlock, '\0');
  file.Write(padding.data(), padding.size());
  SetSums(header, sumsAt, sum.Value());
  file.WriteAt(0, header.data(), header.size());
  return file.Commit();
}

void EncodeFloats(const float* samples, char* bytes, std::size_t count) {
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    std::uint32_t word;
    std::memcpy(&word, samples + i, 4);
    word = word >> 24 | (word >> 8 & 0xFF00U) | (word << 8 & 0xFF0000U) | word << 24;
    std::memcpy(bytes + 4 * i, &word, 4);
  }
}

void EncodeSamples16(const std::uint16_t* samples, char* bytes, std::size_t count) {
#pragma omp simd
  for (std::size_t i = 0; i < count; ++i) {
    // BZERO is 32768: storing sample - 32768 as a signed word turns the top bit round.
    const auto stored = static_cast<std::uint16_t>(samples[i] ^ 0x8000U);
    const auto swapped = static_cast<std::uint16_t>(stored << 8 | stored >> 8);
    std::memcpy(bytes + 2 * i, &swapped, 2);
  }
}

static_assert(std::endian::native == std::endian::little);

}  // namespace

FileStatus WriteFitsFloat(const std::string& path, int width, int height, int planes, const FloatRowSource& rows,
                          std::span<const Keyword> keywords) {
  return WriteFits(path, Shape{width, height, planes, -32}, rows, keywords, EncodeFloats);
}

FileStatus WriteFits16(const std::string& path, int width, int height, int planes, const Sample16RowSource& rows,
                       std::span<const Keyword> keywords) {
  return WriteFits(path, Shape{width, height, planes, 16}, rows, keywords, EncodeSamples16);
}

FileStatus WriteFits16(const std::string& path, int width, int height, int planes,
                       std::span<const std::uint16_t> samples, std::span<const Keyword> keywords) {
  const auto extent = [](int n) { return static_cast<std::size_t>(std::max(n, 0)); };
  if (samples.size() != extent(width) * extent(height) * extent(planes)) {
    return FileError{path, "the number of samples does not fit the image's size", FileErrorKind::BadArgument};
  }
  const auto rows = [&](int plane, int y) {
    return samples.data() + (extent(plane) * extent(height) + extent(y)) * extent(width);
  };
  return WriteFits16(path, width, height, planes, rows, keywords);
}

}  // namespace qmr
