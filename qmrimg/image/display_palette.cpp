// Bitmap blocks for files and the clipboard.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

#include "qmrimg/image/adaptive_palette.h"
#include "qmrimg/image/kernels/display_rows.h"
#include "qmrimg/image/row_access.h"
#include "qmrimg/image/row_frame.h"
#include "qmrimg/image/vyn_image.h"
#include "qmrimg/platform/bitmap_header.h"
#include "qmrimg/platform/device.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/store/parallel.h"

namespace {

// A block under construction: header, colour table, bits.
struct DibBlock {
  HDIB handle = nullptr;
  RGBQUAD* table = nullptr;
  BYTE* bits = nullptr;
  std::size_t lineBytes = 0;
  int height = 0;

  // Rows stand bottom-up.
  BYTE* Line(int y) const { return bits + static_cast<std::size_t>(height - 1 - y) * lineBytes; }
};

// Null handle when memory lacks or the size does not fit a header. The bits are not cleared, but for the padding.
DibBlock MakeBlock(BITMAPINFOHEADER* header, int colours) {
  DibBlock block;
  block.lineBytes = static_cast<std::size_t>(DibLineBytes(header->biWidth, header->biBitCount));
  block.height = header->biHeight;
  const std::uint64_t bytes = static_cast<std::uint64_t>(block.lineBytes) * static_cast<std::uint64_t>(block.height);
  if (bytes > std::numeric_limits<DWORD>::max()) return block;
  header->biSizeImage = static_cast<DWORD>(bytes);
  const std::size_t table = static_cast<std::size_t>(colours) * sizeof(RGBQUAD);
  block.handle = GlobalAlloc(GMEM_MOVEABLE, sizeof *header + table + bytes);
  if (!block.handle) return block;
  auto* const data = static_cast<BYTE*>(GlobalLock(block.handle));
  std::memcpy(data, header, sizeof *header);
  block.table = reinterpret_cast<RGBQUAD*>(data + sizeof *header);
  block.bits = data + sizeof *header + table;
  return block;
}

// Writes all rows of a block in parallel: `words(y, x, count, out)` gives the pixels of a stretch, `store` takes them
// to the bitmap; the rest of a row is zero.
template <class Words, class Store>
HDIB FillBlock(const DibBlock& block, int width, int bytesPixel, Words&& words, Store&& store) {
  if (!block.handle) return nullptr;
  const std::size_t count = static_cast<std::size_t>(width);
  qmr::ForRows(0, block.height, [&](int y) {
    BYTE* const line = block.Line(y);
    std::uint32_t chunk[qmr::kDisplayChunk];
    for (std::size_t x = 0; x < count; x += qmr::kDisplayChunk) {
      const std::size_t n = std::min(qmr::kDisplayChunk, count - x);
      words(y, x, n, chunk);
      store(chunk, n, line + x * static_cast<std::size_t>(bytesPixel));
    }
    const std::size_t used = count * static_cast<std::size_t>(bytesPixel);
    std::memset(line + used, 0, block.lineBytes - used);
  });
  GlobalUnlock(block.handle);
  return block.handle;
}

const float* Pixels(const CImage& image, int y, int plane) {
  return static_cast<const float*>(image.GetImageAdr(0, y, plane, 1, 0, nullptr));
}

void GrayStretch(const CImage& image, int y, std::size_t x, std::size_t count, const qmr::BlockLevels& levels,
                 std::uint32_t* words) {
  qmr::GrayWords(Pixels(image, y, 0) + x, count, levels, words);
}

void RgbStretch(const CImage& image, int y, std::size_t x, std::size_t count, const qmr::BlockLevels (&levels)[3],
                std::uint32_t* words) {
  qmr::RgbWords(Pixels(image, y, 0) + x, Pixels(image, y, 1) + x, Pixels(image, y, 2) + x, count, levels, words);
}

}  // namespace

HDIB CVynImage::GetDib(int bits) const {
  // The size must be that of the pixels, not only of the fields.
  if (BitsPixel != -32 || Width <= 0 || Height <= 0 || !Pixels(*this, 0, 0) || (bits != 8 && bits != 24))
    return nullptr;
  BITMAPINFOHEADER header{};
  header.biSize = sizeof header;
  header.biWidth = Width;
  header.biHeight = Height;
  header.biPlanes = 1;
  header.biBitCount = static_cast<WORD>(bits);
  // Two planes lack the blue and show as gray.
  const bool mono = !qmr::HasRgb(*this);
  if (bits == 8) return mono ? GetDib8Mono(&header) : GetDib8Color(&header);
  return mono ? GetDib24Mono(&header) : GetDib24Color(&header);
}

HDIB CVynImage::GetDib8Mono(BITMAPINFOHEADER* header) const {
  const DibBlock block = MakeBlock(header, 256);
  if (!block.handle) return nullptr;
  for (int i = 0; i < 256; ++i) {
    const auto v = static_cast<BYTE>(i);
    block.table[i] = {v, v, v, 0};
  }
  const qmr::BlockLevels levels = qmr::BlockLevelsOf(*this, 0);
  return FillBlock(
      block, Width, 1,
      [&](int y, std::size_t x, std::size_t n, std::uint32_t* out) { GrayStretch(*this, y, x, n, levels, out); },
      qmr::StoreGray8);
}

HDIB CVynImage::GetDib24Mono(BITMAPINFOHEADER* header) const {
  const qmr::BlockLevels levels = qmr::BlockLevelsOf(*this, 0);
  return FillBlock(
      MakeBlock(header, 0), Width, 3,
      [&](int y, std::size_t x, std::size_t n, std::uint32_t* out) { GrayStretch(*this, y, x, n, levels, out); },
      qmr::Store24);
}

HDIB CVynImage::GetDib24Color(BITMAPINFOHEADER* header) const {
  const qmr::BlockLevels levels[3] = {qmr::BlockLevelsOf(*this, 0), qmr::BlockLevelsOf(*this, 1),
                                      qmr::BlockLevelsOf(*this, 2)};
  return FillBlock(
      MakeBlock(header, 0), Width, 3,
      [&](int y, std::size_t x, std::size_t n, std::uint32_t* out) { RgbStretch(*this, y, x, n, levels, out); },
      qmr::Store24);
}

// All three planes go through the levels of plane 0 here, unlike in 24 bits: on purpose, hosts compare with it.
HDIB CVynImage::GetDib8Color(BITMAPINFOHEADER* header) const {
  const qmr::BlockLevels first = qmr::BlockLevelsOf(*this, 0);
  const qmr::BlockLevels levels[3] = {first, first, first};
  qmr::AdaptivePalette palette;
  try {
    // Counts are integers: threads may count apart.
    const auto threads = static_cast<std::size_t>(CParallel::GetMaxThreads());
    std::vector<std::vector<std::uint32_t>> counts(threads, std::vector<std::uint32_t>(qmr::kColourCells));
    qmr::ForRows(0, Height, [&](int y) {
      std::uint32_t* const mine = counts[static_cast<std::size_t>(CParallel::GetThreadNum())].data();
      std::uint32_t words[qmr::kDisplayChunk];
      const auto width = static_cast<std::size_t>(Width);
      for (std::size_t x = 0; x < width; x += qmr::kDisplayChunk) {
        const std::size_t n = std::min(qmr::kDisplayChunk, width - x);
        RgbStretch(*this, y, x, n, levels, words);
        for (std::size_t i = 0; i < n; ++i) ++mine[qmr::CellOfWord(words[i])];
      }
    });
    for (std::size_t t = 1; t < threads; ++t)
      for (std::size_t i = 0; i < qmr::kColourCells; ++i) counts[0][i] += counts[t][i];
    palette = qmr::MakeAdaptivePalette(counts[0]);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  const DibBlock block = MakeBlock(header, 256);
  if (!block.handle) return nullptr;
  std::copy_n(palette.colours, 256, block.table);
  const std::uint8_t* const entries = palette.entryOfCell.data();
  return FillBlock(
      block, Width, 1,
      [&](int y, std::size_t x, std::size_t n, std::uint32_t* out) { RgbStretch(*this, y, x, n, levels, out); },
      [entries](const std::uint32_t* words, std::size_t n, BYTE* out) {
        for (std::size_t i = 0; i < n; ++i) out[i] = entries[qmr::CellOfWord(words[i])];
      });
}
