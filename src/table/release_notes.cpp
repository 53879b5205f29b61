#include "table/release_notes.h"

#include <algorithm>
#include <cstddef>

#include "support/system_memory.h"

namespace qk::mem {
namespace {

std::uintptr_t number_of(const void* address) { return reinterpret_cast<std::uintptr_t>(address); }

/** Makes an array longer, with a place 0 that isn't used. False, and unchanged, without memory. */
template <class Element>
bool lengthen(Element*& array, std::uint32_t limit) {
  const std::size_t bytes = product(std::size_t{limit} + 1, sizeof(Element));
  auto* longer = static_cast<Element*>(own_memory::resize(array, bytes));
  if (longer != nullptr) array = longer;
  return longer != nullptr;
}

constexpr std::uint32_t kFewNotes = 64;

}  // namespace

ReleaseNotes::~ReleaseNotes() {
  own_memory::release(nodes_);
  own_memory::release(notes_);
}

bool ReleaseNotes::reserve(std::uint32_t limit) {
  if (limit <= limit_) return true;
  if (!lengthen(nodes_, limit) || !lengthen(notes_, limit)) return false;
  limit_ = limit;
  return true;
}

ReleaseNotes::Note* ReleaseNotes::add(const void* address, std::uint64_t bytes) {
  const std::uintptr_t begin = number_of(address);
  const std::uint32_t present = last_up_to(begin);
  if (present != 0 && notes_[present].begin == begin) {
    notes_[present].bytes = bytes;
    return &notes_[present];
  }
  if (count_ == limit_ && !reserve(std::max(kFewNotes, 2 * limit_))) return nullptr;
  notes_[++count_] = {begin, bytes, false, 0};
  qk::add_to_tree(nodes_, root_, count_,
                  [&](std::uint32_t number) { return notes_[number].begin < begin; });
  return &notes_[count_];
}

std::uint32_t ReleaseNotes::last_up_to(std::uintptr_t address) const {
  return qk::last_before(nodes_, root_,
                         [&](std::uint32_t number) { return notes_[number].begin <= address; });
}

ReleaseNotes::Note* ReleaseNotes::take_number(std::uint32_t number) {
  qk::remove_from_tree(nodes_, root_, number, [&](std::uint32_t other) {
    return notes_[other].begin < notes_[number].begin;
  });
  return &notes_[number];
}

ReleaseNotes::Note* ReleaseNotes::take(const void* address) {
  const std::uint32_t number = last_up_to(number_of(address));
  const bool is_noted = number != 0 && notes_[number].begin == number_of(address);
  return is_noted ? take_number(number) : nullptr;
}

ReleaseNotes::Note* ReleaseNotes::take_around(const void* address) {
  const std::uint32_t number = last_up_to(number_of(address));
  const bool is_noted =
      number != 0 && number_of(address) - notes_[number].begin < notes_[number].bytes;
  return is_noted ? take_number(number) : nullptr;
}

}  // namespace qk::mem
