// A bitmap in the paged store.
#pragma once

#include "qmrimg/image/dib.h"
#include "qmrimg/store/vm_image.h"

// For pictures too large for one section: the bits stand in a store of 8, 16 or 24 bits a pixel, rows from the top,
// and are drawn in strips. Only the drawing needs a section.
class QMR_API CVmDIB : public CBaseDIB {
 public:
  CVmDIB() = default;
  ~CVmDIB() override;

  // Raises the memory exception when the store can't be made. `bProgress` non-zero takes the main window of the
  // thread for the store's progress.
  int Create(CWnd* wnd, int width, int height, PALETTEENTRY* const palette, int bProgress) override;
  int Create(CWnd* wnd, int width, int height, int bProgress) override;
  void Empty() override;

  // The address of a pixel in the store; null outside.
  void* GetImageAdr(int x, int y, int plane, int readOnly) const;
  // Selected and realised when drawing on a device of palettes; stays the caller's.
  void SetColorPalette(CPalette* palette) { Palette = palette; }

  // Draw in strips of at most 50 rows. What lies outside the picture is left out of the target. 0 when it fails.
  int BitBlt(CWnd* wnd, CPaintDC* dc, int dstX, int dstY, int width, int height, int srcX, int srcY, DWORD rop);
  int StretchBlt(CWnd* wnd, CDC* dc, int dstX, int dstY, int dstW, int dstH, int srcX, int srcY, int srcW, int srcH,
                 DWORD rop);

 private:
  int CreateFor(CWnd* wnd, int width, int height, const PALETTEENTRY* palette, int bProgress);
  // Copies `rows` rows of the store from (srcX, srcY) into the top rows of a section.
  void CopyStrip(CMemoryDIB& section, int srcX, int srcY, int width, int rows) const;

  CVmImage* Store = nullptr;
  int StoreBits = 0;
  int StorePlanes = 1;
  CPalette* Palette = nullptr;
};
