#include "qmrimg/platform/message_box.h"

#include <cstdio>

#include "qmrimg/platform/messages.h"
#include "qmrimg/platform/text.h"

namespace qmr {
namespace {

MessageBoxHook messageBoxHook = nullptr;
void* messageBoxContext = nullptr;

}  // namespace

void SetMessageBoxHook(MessageBoxHook hook, void* context) {
  messageBoxHook = hook;
  messageBoxContext = context;
}

}  // namespace qmr

int AfxMessageBox(const wchar_t* text, unsigned flags, unsigned help) {
  (void)help;
  if (qmr::messageBoxHook) return qmr::messageBoxHook(text, flags, qmr::messageBoxContext);
  std::fprintf(stderr, "%s\n", qmr::NarrowUtf8(text ? text : L"").c_str());
  return 1;
}

int AfxMessageBox(int id, unsigned flags, unsigned help) {
  return AfxMessageBox(qmr::MessageText(id), flags, help);
}
