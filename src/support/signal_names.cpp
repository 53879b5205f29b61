#include "support/signal_names.h"

#include <csignal>
#include <cstring>

extern "C" {

const char* qk_signal_desc(int signal_number) {
  const char* text = sigdescr_np(signal_number);
  return text != nullptr ? text : "Unknown signal";
}

int qk_signal_safe(int signal_number) {
  switch (signal_number) {
    case SIGHUP:
    case SIGINT:
    case SIGQUIT:
    case SIGTERM:
      return 1;
    default:
      return signal_number <= 0 ? 1 : 0;
  }
}

}  // extern "C"
