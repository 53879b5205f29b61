#include "profile/report/misuse.h"

#include "core/kinds.h"
#include "formats/figures.h"
#include "profile/events.h"
#include "profile/misuses.h"
#include "profile/report/destination.h"
#include "profile/report/forgotten.h"
#include "profile/report/known_blocks.h"
#include "profile/report/misuse_report.h"
#include "profile/report/report.h"
#include "profile/report/text_parts.h"
#include "support/text.h"

namespace qk::mem::profile {
namespace {

const char* verb_of(Routine routine) {
  switch (routine) {
    case Routine::kRealloc:
      return "realloc";
    case Routine::kRegister:
      return "register";
    case Routine::kDeregister:
      return "deregister";
    default:
      return "free";
  }
}

/** Begins the words with what happened and where. Their length is that of the summary. */
std::size_t put_summary(qk::Line& words, std::string_view what, const CallContext& context) {
  words.put(what).put(" at ").put(context.file()).put(':');
  words.number(static_cast<std::uint64_t>(context.line));
  const std::size_t length = words.length();
  words.put(": ");
  return length;
}

std::size_t put_summary(qk::Line& words, Routine routine, std::string_view of,
                        const CallContext& context) {
  qk::Line what;
  what.put(verb_of(routine)).put(of);
  return put_summary(words, what.finish(), context);
}

void put_release(qk::Line& words, const history::FreedBlock& block) {
  switch (block.release.ending) {
    case history::Ending::kFreed:
      words.put("already freed");
      break;
    case history::Ending::kResized:
      words.put("already resized");
      break;
    case history::Ending::kDeregistered:
      words.put("already deregistered");
      break;
    case history::Ending::kWithHandle: {
      const Pool& pool = pools.at(block.writer);
      put_handle(words.put("already gone with "), pool.hid, tag_levels.at(pool.tag).name);
    }
  }
  if (block.release.path == nullptr) return;
  words.put(" at ").put(qk::file_name_only(block.release.path)).put(':');
  words.number(static_cast<std::uint64_t>(block.release.line));
}

std::size_t describe_freed(qk::Line& words, const history::FreedBlock& block, const void* address,
                           Routine routine, const CallContext& context) {
  const std::uint64_t offset = offset_in(block.address, address);
  const bool is_repeated = routine == Routine::kFree && offset == 0;
  const std::size_t summary = is_repeated
                                  ? put_summary(words, "double free", context)
                                  : put_summary(words, routine, " of freed memory", context);
  if (offset != 0) put_offset(words, offset, block.bytes).put(", ");
  put_release(words, block);
  put_allocation(words, "was allocated",
                 place_of(pools.at(block.writer), Mark::of_word(block.allocation)));
  return summary;
}

std::size_t describe_live(qk::Line& words, const LiveBlock& block, Routine routine,
                          const CallContext& context) {
  if (block.offset == 0) {
    const std::size_t summary = put_summary(words, routine, " on the wrong handle", context);
    put_handle(words.put("belongs to "), block.handle);
    put_allocation(words, "allocated", block.place);
    return summary;
  }
  const std::size_t summary = put_summary(words, routine, " of an inner pointer", context);
  put_handle(put_offset(words, block.offset, block.bytes).put(" on "), block.handle);
  put_allocation(words, "allocated", block.place);
  return summary;
}

/**
 * A block that was freed can be in use again, and an address that was never freed can be inside
 * one: so what has become of it comes first, unless the address is another block's by now.
 */
std::size_t describe_unknown(qk::Line& words, const qk_mem_handle& handle, const void* address,
                             Routine routine, const CallContext& context) {
  const auto live = find_live_blocks(address).around;
  const auto freed = freed_blocks.find(address);
  const bool is_freed_here = freed && pools.at(freed->writer).hid == handle.id;
  if (live && live->offset == 0 && !is_freed_here) {
    return describe_live(words, *live, routine, context);
  }
  // An address that is only near a freed block can be inside a live one.
  if (freed && (freed->address == address || !live)) {
    const std::size_t summary = describe_freed(words, *freed, address, routine, context);
    if (live && live->offset == 0) {
      put_handle(words.put("; now a block of "), live->handle);
      put_allocation(words, "allocated", live->place);
    }
    return summary;
  }
  if (live) return describe_live(words, *live, routine, context);
  const std::size_t summary = put_summary(words, routine, " of an unknown pointer", context);
  words.put("on no handle: memory of the C library or an address that never was one");
  return summary;
}

/** What a call was made with, after its verb. */
std::string_view name_of_kind(AddressKind kind) {
  switch (kind) {
    case AddressKind::kOwnStack:
    case AddressKind::kOtherStack:
      return " of a stack address";
    case AddressKind::kCode:
    case AddressKind::kStatic:
    case AddressKind::kMappedFile:
      return " of a static address";
    case AddressKind::kLibrary:
    case AddressKind::kBlockHeader:
      return " of the library's own memory";
    case AddressKind::kBlockFree:
    case AddressKind::kBlockHole:
    case AddressKind::kBlockPieces:
      return " of memory of a handle's blocks";
    default:
      return " of an address that is no memory";
  }
}

std::size_t describe_refused(qk::Line& words, const Knowledge& knowledge, Routine routine,
                             const CallContext& context) {
  const std::size_t summary = put_summary(words, routine, name_of_kind(knowledge.kind), context);
  put_knowledge(words, knowledge);
  return summary;
}

std::size_t describe_wrong(qk::Line& words, const qk_mem_ptr& record, WrongCall what,
                           Routine routine, const CallContext& context) {
  const AllocationPlace place = {record.file, record.line};
  std::size_t summary = 0;
  switch (what) {
    case WrongCall::kFreeOfObject:
      summary = put_summary(words, "free of an object", context);
      words.put("made by new and not by malloc");
      break;
    case WrongCall::kReallocOfForeign:
      summary = put_summary(words, "realloc of registered memory", context);
      words.put("only what the library has allocated can be resized");
      break;
    case WrongCall::kSecondRecord:
      summary = put_summary(words, "second registration", context);
      words.put("the handle has a record of it already");
      break;
    case WrongCall::kOtherType:
      summary = put_summary(words, routine, " as another type", context);
      words.put("an object, an array and external memory are three types");
  }
  put_allocation(words, "recorded", place);
  return summary;
}

std::size_t describe_forgotten(qk::Line& words, const Pool& pool, const CallContext& creation) {
  qk::Line what;
  put_handle(what.put("memory forgotten on "), pool.hid, tag_levels.at(pool.tag).name);
  const std::size_t summary = put_summary(words, what.put(", made").finish(), creation);
  put_forgotten(words, pool);
  return summary;
}

/** Shows it at once: the program may crash next. A file has room for whole reports only. */
void show(std::string_view words, std::size_t summary, std::uint64_t event) {
  qk::Line line;
  put_heading(line);
  line.put(words.substr(0, summary));
  put_event(line, event);
  line.put(words.substr(summary)).put('\n');
  say_beside_reports(options_now(), line.finish());
}

MisusePlace place_of_call(const qk_mem_handle& handle, Routine routine,
                          const CallContext& context) {
  return {routine, handle.id, context.path, context.line};
}

/** Calls `describe` with a line for the words if the place is a new one. */
template <class Describe>
void tell(const MisusePlace& place, Describe describe) {
  if (!gives_marks() || count_again(place)) return;
  const std::uint64_t event = events_so_far();
  qk::Line line;
  const std::size_t summary = describe(line);
  const std::string_view words = line.finish();
  if (add_misuse(place, event, words, summary)) {
    show(words, summary, event);
    react_to_misuse();
  }
}

}  // namespace

void tell_of_unknown_address(const qk_mem_handle& handle, const void* address, Routine routine,
                             const CallContext& context) {
  if (!is_watched(handle) || has_lost_records()) return;
  tell(place_of_call(handle, routine, context),
       [&](qk::Line& words) { return describe_unknown(words, handle, address, routine, context); });
}

void tell_of_refused_address(const qk_mem_handle& handle, const Knowledge& knowledge,
                             Routine routine, const CallContext& context) {
  tell(place_of_call(handle, routine, context),
       [&](qk::Line& words) { return describe_refused(words, knowledge, routine, context); });
}

void tell_of_wrong_call(const qk_mem_handle& handle, const qk_mem_ptr& record, WrongCall what,
                        Routine routine, const CallContext& context) {
  if (!is_watched(handle)) return;
  tell(place_of_call(handle, routine, context),
       [&](qk::Line& words) { return describe_wrong(words, record, what, routine, context); });
}

void tell_of_forgotten_memory(const qk_mem_handle& handle, const CallContext& creation) {
  if (!is_watched(handle) || handle.autofree != 0 || is_blockmgmt(handle)) return;
  const Pool& pool = pool_of(handle);
  if (!holds_memory(pool)) return;
  tell(place_of_call(handle, Routine::kDelHandle, creation),
       [&](qk::Line& words) { return describe_forgotten(words, pool, creation); });
}

void tell_of_damage(const MisusePlace& place, std::uint32_t site, std::string_view words,
                    std::size_t summary) {
  if (count_again(place)) return;
  if (!add_misuse(place, events_so_far(), words, summary, site)) return;
  qk::Line line;
  put_heading(line);
  say_beside_reports(options_now(), line.put(words).put('\n').finish());
  react_to_misuse();
}

void count_null_free(const qk_mem_handle& handle) {
  if (is_watched(handle)) qk::add(null_frees, 1);
}

}  // namespace qk::mem::profile
