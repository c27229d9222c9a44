// The pixel store behind an image.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qmrimg/platform/critical_section.h"
#include "qmrimg/platform/window.h"
#include "qmrimg/store/block.h"

// Pixels of one image: samples of one size, planes of equal width and height. Every plane is one allocation; rows
// start on 64-byte boundaries, and each row and each plane is followed by a guard of zeros that may be read but
// never written. All pixels are always resident, so a pin is only a count.
//
// Readers and pins are safe from many threads; two threads must not write the same row.
class QMR_API CVmImage {
 public:
  // A store of that shape; its pixels are 0. `bits` is a sample code: its magnitude divided by 8 is the size of a
  // sample, 1 to 8 bytes. Raises the memory exception when the memory can't be had or the shape is not positive.
  CVmImage(int bits, int width, int height, int planes, HWND window, const wchar_t* message);
  // A deep copy.
  CVmImage(CVmImage& other, HWND window, const wchar_t* message);
  CVmImage(const CVmImage&) = delete;
  CVmImage& operator=(const CVmImage&) = delete;
  virtual ~CVmImage();

  // The address of pixel `x` of row `y` of the plane; null when row or plane lie outside the store or `x` outside
  // 0..width. `pin` non-zero holds a pin until Unlock with the token that `*lock` receives, or until UnlockAll.
  void* GetImageAdr(int x, int y, int plane, int readOnly, int pin, void** lock) const;
  // Ends one pin; 0 when the token is null.
  int Unlock(void* lock) const;
  // Ends all pins.
  void UnlockAll() const;
  // Pins now in force.
  int GetPinCount() const;

  // Bytes for one plane, row after row without gaps. These two raise the memory exception.
  std::vector<unsigned char> CreatePlaneBuffer() const;
  // The plane's pixels in that form; empty for a plane outside the store.
  std::vector<unsigned char> GetPlaneImage(int plane) const;
  // The reverse; 0 when the plane lies outside the store or `data` is too short.
  int SetPlaneImage(int plane, const std::vector<unsigned char>& data);
  // Stores whether several threads will use the store at once, as 0 or 1.
  void SetParallel(int parallel);
  int IsParallel() const { return Parallel; }
  CCriticalSection* GetCriticalSection() { return &Section; }

  int GetWidth() const { return width_; }
  int GetHeight() const { return height_; }
  int GetPlanes() const { return planes_; }
  int GetBytesPixel() const { return bytesPixel_; }
  // A number that no other store of this process has or had; it changes when planes come or go.
  std::uint64_t GetNumber() const { return number_; }
  // Bytes from one row to the next; the same for all rows and planes of this store.
  std::ptrdiff_t GetRowBytes() const { return rowBytes_; }

 private:
  friend class CImage;
  enum class Fill { kZero, kGuardsOnly };
  CVmImage(int bits, int width, int height, int planes, Fill fill);
  void Allocate(Fill fill);
  void Renumber();

  int Parallel = 0;
  CCriticalSection Section;
  int bytesPixel_;
  int width_;
  int height_;
  int planes_;
  std::ptrdiff_t rowBytes_ = 0;
  std::uint64_t number_ = 0;
  std::vector<qmr::Block> blocks_;
  mutable std::atomic<int> pins_{0};
};

// The paging scheme of the store: there is none, a block is a whole plane.
class QMR_API CVmManager {
 public:
  int GetBlockSize() const { return BlockSize; }

 private:
  int BlockSize = 0;
};

class QMR_API CVmBlock : public CObject {
 public:
  int Type = 0;
  int SlotIndex = -1;
};

class QMR_API CVmHandle : public CObject {
 public:
  // Raises the memory exception when the array can't be had.
  explicit CVmHandle(int count);
  CVmHandle(const CVmHandle&) = delete;
  CVmHandle& operator=(const CVmHandle&) = delete;
  ~CVmHandle() override;
  // Type and slot index of block `i`; 0 and -1 for an index outside the array.
  int GetType(int i) const;
  int GetSlotIndex(int i) const;
  // Ignores an index outside the array.
  void Set(int i, int type, int slot);

 private:
  int Count;
  CVmBlock* Blocks;
};

class QMR_API CVmMemory : public CObject {
 public:
  int Values[8] = {0, -1, -1, 0, -1, -1, 0, 0};
};
