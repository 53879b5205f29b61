#include "support/format.h"

#include <cstdio>

extern "C" {

int qk_sprintf(char* buffer, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int length = qk_vsprintf(buffer, format, arguments);
  va_end(arguments);
  return length;
}

int qk_vsprintf(char* buffer, const char* format, std::va_list arguments) {
  return std::vsprintf(buffer, format, arguments);
}

int qk_vsnprintf(char* buffer, std::size_t size, const char* format, std::va_list arguments) {
  return std::vsnprintf(buffer, size, format, arguments);
}

}  // extern "C"
