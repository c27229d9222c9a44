// The operations' objects on the way from a job to its result.
#pragma once

#include <memory>
#include <new>

#include "host/operations/operation.h"

namespace qmr::calls {

using Result = std::unique_ptr<CVynImage>;

// For the arguments that ask for progress.
constexpr int kReport = 1;

// The operation's object with the source's pixels and levels in it.
template <class Operation>
std::unique_ptr<Operation> Destination(const OperationJob& job) {
  auto operation = std::make_unique<Operation>();
  if (!operation->CopyImage(job.source)) throw std::bad_alloc();
  operation->SetProgressHandle(job.progress);
  return operation;
}

}  // namespace qmr::calls
