// Everything that a host program needs.
#pragma once

// Platform
#include "qmrimg/platform/array.h"
#include "qmrimg/platform/bitmap_header.h"
#include "qmrimg/platform/critical_section.h"
#include "qmrimg/platform/debug_output.h"
#include "qmrimg/platform/device.h"
#include "qmrimg/platform/exception.h"
#include "qmrimg/platform/geometry.h"
#include "qmrimg/platform/global_memory.h"
#include "qmrimg/platform/message_box.h"
#include "qmrimg/platform/messages.h"
#include "qmrimg/platform/object.h"
#include "qmrimg/platform/text.h"
#include "qmrimg/platform/window.h"

// Image store
#include "qmrimg/store/block.h"
#include "qmrimg/store/header.h"
#include "qmrimg/store/image.h"
#include "qmrimg/store/parallel.h"
#include "qmrimg/store/registry.h"
#include "qmrimg/store/vm_image.h"

// Image core
#include "qmrimg/image/dib.h"
#include "qmrimg/image/invert.h"
#include "qmrimg/image/vm_dib.h"
#include "qmrimg/image/vyn_image.h"

// Operations
#include "qmrimg/colour/color.h"
#include "qmrimg/filters/filter.h"
#include "qmrimg/filters/filter_block.h"
#include "qmrimg/filters/filter_blur.h"
#include "qmrimg/filters/filter_matrix.h"
#include "qmrimg/filters/filter_misc.h"
#include "qmrimg/filters/filter_proc.h"
#include "qmrimg/filters/filter_sharp.h"
#include "qmrimg/filters/filter_special.h"
#include "qmrimg/filters/wavelet.h"
#include "qmrimg/geometry/interp.h"
#include "qmrimg/levels/auto_level.h"
#include "qmrimg/levels/auto_stretch.h"
#include "qmrimg/raw/bayer_to_rgb.h"
#include "qmrimg/raw/dark.h"
#include "qmrimg/raw/flat.h"
#include "qmrimg/raw/information.h"
#include "qmrimg/stacking/fft.h"
#include "qmrimg/stacking/fftd.h"
#include "qmrimg/stacking/fourier.h"
#include "qmrimg/stacking/median_composit.h"
