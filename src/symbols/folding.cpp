#include "symbols/folding.h"

#include <algorithm>
#include <cstddef>

namespace qk {
namespace {

template <std::size_t kCount>
bool begins_with_one_of(std::string_view text, const std::string_view (&beginnings)[kCount]) {
  return std::any_of(std::begin(beginnings), std::end(beginnings),
                     [text](std::string_view beginning) { return text.starts_with(beginning); });
}

/** Of this library and of the C++ library, demangled and mangled. */
constexpr std::string_view kLibraries[] = {
    "qk_mem_",       "qk::",           "std::",   "__gnu_cxx::", "operator new", "operator delete",
    "__cxa_",        "_ZN2qk",         "_ZNK2qk", "_ZSt",        "_ZNSt",        "_ZNKSt",
    "_ZN9__gnu_cxx", "_ZNK9__gnu_cxx", "_Znw",    "_Zna",        "_ZdlPv",       "_ZdaPv"};

/** What calls the functions that programs consist of. */
constexpr std::string_view kStarters[] = {
    "_start",  "start_thread", "clone",          "clone3",
    "__clone", "__clone3",     "_dl_start_user", "execute_native_thread_routine"};

/** Modules whose functions are only of interest, if at all, when they have a name. */
constexpr std::string_view kSystemModules[] = {"libc.so.", "libpthread.so.", "ld-linux", "ld-musl",
                                               "libgcc_s.so."};

constexpr std::string_view kLibraryModules[] = {"libstdc++.so.", "libc++.so.", "libqkmem.so"};

/** Headers of the C++ library and of this one. With little debug information names lack scopes. */
bool is_in_header_of_library(std::string_view file) {
  return file.find("/include/c++/") != std::string_view::npos ||
         file.find("/include/qkmem/") != std::string_view::npos;
}

bool is_starter(std::string_view function) {
  return function.starts_with("__libc_start_") ||
         std::find(std::begin(kStarters), std::end(kStarters), function) != std::end(kStarters);
}

/** The folders whose functions lead from an allocation to its stack. */
constexpr std::string_view kOwnFolders[] = {"accounting/", "alloc/", "profile/", "support/",
                                            "table/"};

/** Whether a file is one of the library's, which lies where this one does. */
bool is_own_file(std::string_view file) {
  constexpr std::string_view kThis = __FILE__;
  constexpr std::string_view kRoot = kThis.substr(0, kThis.rfind("symbols/"));
  const std::size_t at = file.rfind(kRoot);
  return at != std::string_view::npos &&
         begins_with_one_of(file.substr(at + kRoot.size()), kOwnFolders);
}

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

bool matches_one_of(std::string_view text, std::string_view patterns) {
  while (!patterns.empty()) {
    const std::size_t comma = std::min(patterns.find(','), patterns.size());
    const std::string_view pattern = trimmed(patterns.substr(0, comma));
    if (!pattern.empty() && matches(text, pattern)) return true;
    patterns.remove_prefix(std::min(comma + 1, patterns.size()));
  }
  return false;
}

bool is_part_of_name(char c) {
  return c == '_' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/** Whether the word "operator" is at a place. What follows it can be blanks and brackets. */
bool has_operator_at(std::string_view function, std::size_t at) {
  constexpr std::string_view kOperator = "operator";
  if (function.substr(at, kOperator.size()) != kOperator) return false;
  const std::size_t behind = at + kOperator.size();
  return (at == 0 || !is_part_of_name(function[at - 1])) &&
         (behind == function.size() || !is_part_of_name(function[behind]));
}

bool opens(char c) { return c == '<' || c == '(' || c == '[' || c == '{'; }
bool closes(char c) { return c == '>' || c == ')' || c == ']' || c == '}'; }

/** Whether the parenthesis at a place is part of the name or of the type before it. */
bool is_in_name(std::string_view function, std::size_t at) {
  return function.substr(at).starts_with("(anonymous namespace)") ||
         function.substr(0, at).ends_with("decltype ") ||
         function.substr(0, at).ends_with("decltype");
}

}  // namespace

bool matches(std::string_view text, std::string_view pattern) noexcept {
  if (pattern.find_first_of("*?") == std::string_view::npos) {
    return text.find(pattern) != std::string_view::npos;
  }
  std::size_t at = 0;
  std::size_t in_pattern = 0;
  std::size_t star = std::string_view::npos;
  std::size_t after_star = 0;  // where in the text the rest of the pattern is tried next
  while (at < text.size()) {
    if (in_pattern < pattern.size() && pattern[in_pattern] == '*') {
      star = in_pattern++;
      after_star = at;
    } else if (in_pattern < pattern.size() &&
               (pattern[in_pattern] == '?' || pattern[in_pattern] == text[at])) {
      ++in_pattern;
      ++at;
    } else if (star != std::string_view::npos) {
      in_pattern = star + 1;
      at = ++after_star;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', in_pattern) == std::string_view::npos;
}

// A function that returns a pointer to one is "void (*name(int))(char)".
std::string_view without_return_type(std::string_view function) noexcept {
  std::size_t begin = 0;
  int depth = 0;
  for (std::size_t i = 0; i < function.size(); ++i) {
    const char c = function[i];
    if (depth == 0 && has_operator_at(function, i)) break;
    if (depth == 0 && function.substr(i, 2) == "(*") return function.substr(i + 2);
    if (depth == 0 && c == '(' && !is_in_name(function, i)) break;  // the parameters
    if (opens(c)) ++depth;
    if (closes(c)) --depth;
    if (depth == 0 && c == ' ') begin = i + 1;
  }
  return function.substr(begin);
}

std::string_view without_types(std::string_view function) noexcept {
  function = without_return_type(function);
  int depth = 0;
  for (std::size_t i = 0; i < function.size(); ++i) {
    const char c = function[i];
    if (depth == 0 && c == '(' && !is_in_name(function, i) &&
        !function.substr(0, i).ends_with("operator")) {
      return function.substr(0, i);
    }
    if (opens(c)) ++depth;
    if (closes(c)) --depth;
  }
  return function;
}

bool is_folded(const Frame& frame, std::string_view skip) noexcept {
  const std::string_view function = without_return_type(frame.function);
  const std::string_view module = frame.module == nullptr ? "" : frame.module->name();
  if (begins_with_one_of(function, kLibraries) || is_starter(function)) return true;
  if (begins_with_one_of(module, kLibraryModules)) return true;
  if (is_in_header_of_library(frame.file)) return true;
  if (function.empty() && begins_with_one_of(module, kSystemModules)) return true;
  return (!function.empty() && matches_one_of(function, skip)) ||
         (!module.empty() && matches_one_of(module, skip));
}

// With little debug information the names lack their scopes, but then there are files.
bool is_inside_library(const Frame& frame) noexcept {
  const std::string_view function = without_return_type(frame.function);
  return function.starts_with("qk_mem_") || function.starts_with("qk::mem::") ||
         function.starts_with("qk::capture_stack") || is_own_file(frame.file);
}

int leave_library(Frame* frames, int count) noexcept {
  Frame* const caller = std::find_if_not(frames, frames + count, is_inside_library);
  return static_cast<int>(std::copy(caller, frames + count, frames) - frames);
}

int visible_frames(Frame* frames, int count, std::string_view skip) noexcept {
  if (count == 0) return 0;
  const Frame innermost = frames[0];
  Frame* const end = std::remove_if(frames, frames + count,
                                    [skip](const Frame& frame) { return is_folded(frame, skip); });
  if (end != frames) return static_cast<int>(end - frames);
  frames[0] = innermost;
  return 1;
}

}  // namespace qk
