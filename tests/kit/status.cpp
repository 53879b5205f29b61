#include "tests/kit/status.h"

#include <unistd.h>

#include <cstring>

#include "tests/kit/text.h"

namespace kit {
namespace {

std::string host_name() {
  char name[64] = {};
  gethostname(name, sizeof name - 1);
  return name;
}

std::string bracketed(const char* text) { return "[" + std::string(text) + "]"; }

std::string pair(const char* label, int first, int second) {
  return std::string(label) + " " + std::to_string(first) + " " + std::to_string(second) + " ";
}

}  // namespace

qk::Status used_status() {
  qk::Status status;
  status.code = 77;
  status.detail1 = 1;
  status.detail2 = 2;
  for (char* text : {status.subject, status.location, status.arg1, status.arg2, status.host}) {
    std::strcpy(text, "old");
  }
  return status;
}

std::string text_of(const qk::Status& status) {
  const std::string location = replaced(status.location, ":[1-9][0-9]*$", ":#");
  std::string text = std::to_string(status.code) + " ";
  text += pair("details", status.detail1, status.detail2);
  text += pair("numbers", status.num1, status.num2);
  text += "subject " + bracketed(status.subject);
  text += " arguments " + bracketed(status.arg1) + " " + bracketed(status.arg2);
  if (!location.empty()) text += " at " + location;
  if (status.host[0] != '\0') {
    text += host_name() == status.host ? " on this host" : " on " + std::string(status.host);
  }
  return text;
}

}  // namespace kit
