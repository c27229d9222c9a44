// Base class and small integer types that the exported classes are written in.
#pragma once

#include <cstdint>

#include "qmrimg/platform/export.h"

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using UINT = unsigned int;
using BOOL = int;

// Root of all classes with run-time type. Copying is up to the derived class.
class QMR_API CObject {
 public:
  CObject() = default;
  CObject(const CObject&) = default;
  CObject& operator=(const CObject&) = default;
  virtual ~CObject();
};
