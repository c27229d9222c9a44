#include "qmrimg/platform/exception.h"

CException::~CException() = default;
CMemoryException::~CMemoryException() = default;
CInvalidArgException::~CInvalidArgException() = default;

void CException::Delete() {
  delete this;
}

void AfxThrowMemoryException() {
  throw new CMemoryException;
}
void AfxThrowInvalidArgException() {
  throw new CInvalidArgException;
}
