// Exceptions that travel by pointer; whoever catches one deletes it with Delete().
#pragma once

#include "qmrimg/platform/object.h"

class QMR_API CException : public CObject {
 public:
  CException() = default;
  CException(const CException&) = delete;
  CException& operator=(const CException&) = delete;
  // Frees the object; the pointer is dead afterwards.
  void Delete();

 protected:
  ~CException() override;
};

// Lack of memory.
class QMR_API CMemoryException : public CException {
 protected:
  ~CMemoryException() override;
};

// An argument or an index that the callee can't accept.
class QMR_API CInvalidArgException : public CException {
 protected:
  ~CInvalidArgException() override;
};

// Each throws a new object of its class by pointer.
[[noreturn]] QMR_API void AfxThrowMemoryException();
[[noreturn]] QMR_API void AfxThrowInvalidArgException();
