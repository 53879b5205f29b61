#include "tests/lives/things.h"

#include <cstdlib>
#include <map>

#include "tests/lives/arena.h"
#include "tests/lives/journal.h"

namespace lives {
namespace {

struct Thing {
  unsigned number;
  Owned owned;
};

/** Never destroyed: the library destroys objects after the last destructor. */
std::map<void*, Thing>& things() {
  static auto& all = *new std::map<void*, Thing>;
  return all;
}

}  // namespace

void* make_thing(std::size_t size, const Owned& owned) {
  static unsigned number = 0;
  void* thing = arena::allocate(size, "thing");
  things()[thing] = {++number, owned};
  return thing;
}

void destroy_thing(void* thing) {
  const auto found = things().find(thing);
  if (found == things().end()) return note("  no object at %p", thing);
  const Thing old = found->second;
  things().erase(found);
  note("  object %u at %p is destroyed", old.number, thing);
  if (old.owned.memory != nullptr) qk_mem_ifree(old.owned.hid, old.owned.memory, "things.cpp", 7);
  arena::release(thing);
}

ThingTracker::ThingTracker(void* thing, const std::type_info& type) : type_(type) {
  address = thing;
}

ThingTracker::~ThingTracker() {
  note("  tracker %p of %p is deleted", static_cast<void*>(this), address);
  if (address != nullptr) destroy_thing(address);
}

void* ThingTracker::operator new(std::size_t size) {
  void* memory = arena::allocate(size, "tracker");
  if (memory == nullptr) std::abort();
  return memory;
}

void ThingTracker::operator delete(void* memory) { arena::release(memory); }

}  // namespace lives
