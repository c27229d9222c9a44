#include "qmrimg/store/vm_image.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

#include "qmrimg/platform/exception.h"

namespace {

constexpr std::size_t kAlignment = 64;
constexpr std::size_t kGuard = 64;
constexpr int kMostBytesPixel = 8;

}  // namespace

CVmImage::CVmImage(int bits, int width, int height, int planes, HWND window, const wchar_t* message)
    : CVmImage(bits, width, height, planes, Fill::kZero) {
  // Allocation is quick, so neither window nor message is needed.
  (void)window;
  (void)message;
}

CVmImage::CVmImage(CVmImage& other, HWND window, const wchar_t* message)
    : bytesPixel_(other.bytesPixel_), width_(other.width_), height_(other.height_), planes_(other.planes_) {
  (void)window;
  (void)message;
  Allocate(Fill::kGuardsOnly);
  Parallel = other.Parallel;
  for (std::size_t p = 0; p < blocks_.size(); ++p)
    std::memcpy(blocks_[p].Get(), other.blocks_[p].Get(), static_cast<std::size_t>(rowBytes_) * height_);
}

CVmImage::CVmImage(int bits, int width, int height, int planes, Fill fill)
    : bytesPixel_(std::abs(bits / 8)), width_(width), height_(height), planes_(planes) {
  Allocate(fill);
}

CVmImage::~CVmImage() = default;

void CVmImage::Renumber() {
  static std::atomic<std::uint64_t> last{0};
  number_ = last.fetch_add(1, std::memory_order_relaxed) + 1;
}

void CVmImage::Allocate(Fill fill) {
  Renumber();
  if (bytesPixel_ <= 0 || bytesPixel_ > kMostBytesPixel || width_ <= 0 || height_ <= 0 || planes_ <= 0)
    AfxThrowMemoryException();
  const std::size_t pixels = static_cast<std::size_t>(width_) * static_cast<std::size_t>(bytesPixel_);
  const std::size_t stride = (pixels + kAlignment - 1) / kAlignment * kAlignment + kGuard;
  rowBytes_ = static_cast<std::ptrdiff_t>(stride);
  // One guard row behind the last one: a read just below the image meets zeros as well.
  const std::size_t rows = static_cast<std::size_t>(height_) + 1;
  if (stride > std::numeric_limits<std::size_t>::max() / rows) AfxThrowMemoryException();
  const std::size_t bytes = stride * rows;
  const auto content = fill == Fill::kZero ? qmr::Block::Content::kZero : qmr::Block::Content::kUndefined;
  try {
    blocks_.reserve(static_cast<std::size_t>(planes_));
    for (int p = 0; p < planes_; ++p) {
      blocks_.emplace_back(bytes, content);
      std::byte* data = blocks_.back().Get();
      if (!data) AfxThrowMemoryException();
      if (fill == Fill::kGuardsOnly) {
        for (int y = 0; y < height_; ++y)
          std::memset(data + static_cast<std::size_t>(y) * stride + pixels, 0, stride - pixels);
        std::memset(data + static_cast<std::size_t>(height_) * stride, 0, stride);
      }
    }
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  }
}

void* CVmImage::GetImageAdr(int x, int y, int plane, int readOnly, int pin, void** lock) const {
  (void)readOnly;
  if (lock) *lock = nullptr;
  if (y < 0 || y >= height_ || plane < 0 || plane >= planes_ || x < 0 || x > width_) return nullptr;
  std::byte* row = blocks_[static_cast<std::size_t>(plane)].Get() + static_cast<std::ptrdiff_t>(y) * rowBytes_;
  if (pin) {
    pins_.fetch_add(1, std::memory_order_relaxed);
    if (lock) *lock = row;
  }
  return row + static_cast<std::ptrdiff_t>(x) * bytesPixel_;
}

int CVmImage::Unlock(void* lock) const {
  if (!lock) return 0;
  pins_.fetch_sub(1, std::memory_order_relaxed);
  return 1;
}

void CVmImage::UnlockAll() const {
  pins_.store(0, std::memory_order_relaxed);
}
int CVmImage::GetPinCount() const {
  return pins_.load(std::memory_order_relaxed);
}

std::vector<unsigned char> CVmImage::CreatePlaneBuffer() const {
  try {
    return std::vector<unsigned char>(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) *
                                      static_cast<std::size_t>(bytesPixel_));
  } catch (const std::bad_alloc&) {
    AfxThrowMemoryException();
  } catch (const std::length_error&) {
    AfxThrowMemoryException();
  }
}

std::vector<unsigned char> CVmImage::GetPlaneImage(int plane) const {
  if (plane < 0 || plane >= planes_) return {};
  std::vector<unsigned char> data = CreatePlaneBuffer();
  const std::size_t row = static_cast<std::size_t>(width_) * static_cast<std::size_t>(bytesPixel_);
  for (int y = 0; y < height_; ++y)
    std::memcpy(data.data() + static_cast<std::size_t>(y) * row, GetImageAdr(0, y, plane, 1, 0, nullptr), row);
  return data;
}

int CVmImage::SetPlaneImage(int plane, const std::vector<unsigned char>& data) {
  const std::size_t row = static_cast<std::size_t>(width_) * static_cast<std::size_t>(bytesPixel_);
  if (plane < 0 || plane >= planes_ || data.size() < row * static_cast<std::size_t>(height_)) return 0;
  for (int y = 0; y < height_; ++y)
    std::memcpy(GetImageAdr(0, y, plane, 0, 0, nullptr), data.data() + static_cast<std::size_t>(y) * row, row);
  return 1;
}

void CVmImage::SetParallel(int parallel) {
  Parallel = parallel != 0;
}

CVmHandle::CVmHandle(int count) : Count(std::max(count, 0)), Blocks(nullptr) {
  Blocks = new (std::nothrow) CVmBlock[static_cast<std::size_t>(Count)];
  if (!Blocks) AfxThrowMemoryException();
}

CVmHandle::~CVmHandle() {
  delete[] Blocks;
}
int CVmHandle::GetType(int i) const {
  return i >= 0 && i < Count ? Blocks[i].Type : 0;
}
int CVmHandle::GetSlotIndex(int i) const {
  return i >= 0 && i < Count ? Blocks[i].SlotIndex : -1;
}

void CVmHandle::Set(int i, int type, int slot) {
  if (i < 0 || i >= Count) return;
  Blocks[i].Type = type;
  Blocks[i].SlotIndex = slot;
}
