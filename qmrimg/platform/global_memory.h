// Global memory blocks, in which bitmaps travel between programs.
#pragma once

#include <cstddef>

#include "qmrimg/platform/object.h"

namespace qmr {
struct GlobalBlock;
}

using HGLOBAL = qmr::GlobalBlock*;
// A global block that holds a BITMAPINFOHEADER, a colour table and bits.
using HDIB = HGLOBAL;

inline constexpr UINT GMEM_MOVEABLE = 0x2;
inline constexpr UINT GMEM_ZEROINIT = 0x40;

// A new block that the caller frees with GlobalFree; null when memory lacks. GMEM_ZEROINIT clears it.
QMR_API HGLOBAL GlobalAlloc(UINT flags, std::size_t bytes);
// The block's memory, valid until it is freed; null for a null handle.
QMR_API void* GlobalLock(HGLOBAL block);
// Ends a lock; 0 when no lock is left.
QMR_API int GlobalUnlock(HGLOBAL block);
QMR_API std::size_t GlobalSize(HGLOBAL block);
// Frees the block and gives null.
QMR_API HGLOBAL GlobalFree(HGLOBAL block);
