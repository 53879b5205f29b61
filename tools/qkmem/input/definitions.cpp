#include "input/definitions.h"

#include <algorithm>

#include "formats/recording_frame.h"

namespace qk::command {

using mem::recording::EventBlock;
using mem::recording::FieldReader;
using mem::recording::Record;
using mem::recording::RecordType;

namespace {

/** Numbers of things have 32 bits. One with more is that of no thing. */
std::uint32_t number_in(FieldReader& fields) {
  const std::uint64_t number = fields.number();
  if (number <= UINT32_MAX) return static_cast<std::uint32_t>(number);
  fields.fail();
  return 0;
}

}  // namespace

bool Definitions::take(Record record) {
  FieldReader& fields = record.fields;
  switch (record.type) {
    case RecordType::kProcess:
      take_process(fields);
      break;
    case RecordType::kText: {
      const std::uint32_t number = number_in(fields);
      texts_[number] = fields.text();
      break;
    }
    case RecordType::kPool:
      take_pool(fields);
      break;
    case RecordType::kSite:
      take_site(fields);
      break;
    case RecordType::kStack:
      take_stack(fields);
      break;
    case RecordType::kModule:
      take_module(fields);
      break;
    case RecordType::kThread:
      take_thread(fields);
      break;
    case RecordType::kFrame:
      take_frame(fields);
      break;
    case RecordType::kSnapshot:
      take_snapshot(fields);
      break;
    case RecordType::kLevel:
    case RecordType::kPoolSums:
    case RecordType::kProcessSums:
      break;
  }
  return !fields.has_failed();
}

void Definitions::take_process(FieldReader& fields) {
  Program& program = ledger_.program();
  program.process = fields.number();
  program.started = fields.number();
  program.path = fields.text();
  program.command = fields.text();
}

void Definitions::take_pool(FieldReader& fields) {
  const std::uint32_t number = number_in(fields);
  const auto handle = static_cast<int>(std::min<std::uint64_t>(fields.number(), INT32_MAX));
  const std::string tag = text(number_in(fields));
  if (!fields.has_failed() && !pools_.contains(number)) {
    pools_[number] = ledger_.add_handle({handle, tag, {}, 0});
  }
}

void Definitions::take_site(FieldReader& fields) {
  const std::uint32_t number = number_in(fields);
  Site site;
  site.pool = number_in(fields);
  site.path = number_in(fields);
  site.line = static_cast<int>(std::min<std::uint64_t>(fields.number(), INT32_MAX));
  const auto stack = stacks_.find(fields.number());
  if (stack != stacks_.end()) site.stack = stack->second;
  site.label = number_in(fields);
  if (!fields.has_failed()) sites_.try_emplace(number, site);
}

void Definitions::take_stack(FieldReader& fields) {
  const std::uint64_t number = fields.number();
  std::uint64_t count = fields.number();
  std::vector<std::uint64_t> addresses;
  std::uint64_t address = 0;
  for (; count != 0 && !fields.is_at_end(); --count) {
    address += static_cast<std::uint64_t>(fields.signed_number());
    addresses.push_back(address);
  }
  if (count != 0) fields.fail();
  auto& stacks = ledger_.program().stacks;
  const auto [place, is_new] = stacks_.try_emplace(number, static_cast<StackIndex>(stacks.size()));
  if (is_new) stacks.push_back(std::move(addresses));
}

void Definitions::take_module(FieldReader& fields) {
  Module module;
  module.begin = fields.number();
  module.end = fields.number();
  module.bias = fields.number();
  module.path = fields.text();
  module.build_id = fields.text();
  if (!fields.has_failed()) ledger_.program().modules.push_back(std::move(module));
}

/** Threads are numbered from 1. One whose number is far off is not named. */
void Definitions::take_thread(FieldReader& fields) {
  constexpr std::uint64_t kMostAhead = 1024;  // of the count of threads so far
  auto& threads = ledger_.program().threads;
  const std::uint64_t number = fields.number();
  Thread thread;
  thread.number = fields.number();
  thread.name = fields.text();
  if (number == 0 || number > ++threads_taken_ + kMostAhead) return fields.fail();
  if (number > threads.size()) threads.resize(number);
  threads[number - 1] = std::move(thread);
}

void Definitions::take_snapshot(FieldReader& fields) {
  NamedMoment snapshot;
  snapshot.when.event = fields.number();
  snapshot.when.nanoseconds = fields.number();
  snapshot.name = fields.text();
  if (!fields.has_failed()) ledger_.program().snapshots.push_back(std::move(snapshot));
}

/** Frames of an address come in order. One that came before is the same again. */
void Definitions::take_frame(FieldReader& fields) {
  const auto frame = mem::recording::FrameRecord::read(fields);
  if (fields.has_failed()) return;
  auto& names = ledger_.program().names;
  const auto known = names.find(frame.address);
  const std::uint64_t count = known == names.end() ? 0 : known->second.size();
  if (frame.depth > count) return fields.fail();
  if (frame.depth < count) return;
  const auto line = static_cast<int>(std::min<std::uint64_t>(frame.line, INT32_MAX));
  names[frame.address].push_back({std::string(frame.function), std::string(frame.file), line});
}

const std::string& Definitions::text(std::uint32_t number) const {
  static const std::string none;
  const auto found = texts_.find(number);
  return found == texts_.end() ? none : found->second;
}

HandleIndex Definitions::handle_of(std::uint32_t pool) {
  const auto found = pools_.find(pool);
  if (found != pools_.end()) return found->second;
  return pools_[pool] = ledger_.add_handle({});
}

std::uint32_t Definitions::pool_of(const EventBlock& block) const {
  if (block.site == 0) return block.pool;
  const auto found = sites_.find(block.site);
  return found == sites_.end() ? 0 : found->second.pool;
}

SiteIndex Definitions::find_site(const EventBlock& block, std::uint32_t thread) {
  const std::uint32_t number = block.site == 0 ? block.pool : block.site;
  const std::uint64_t key = std::uint64_t{thread} << 33 | std::uint64_t{number} << 1 |
                            static_cast<std::uint64_t>(block.site == 0);
  if (const auto found = sites_of_threads_.find(key); found != sites_of_threads_.end()) {
    return found->second;
  }
  SiteKey site;
  site.handle = handle_of(pool_of(block));
  if (splits_threads_) site.thread = thread;
  if (const auto found = sites_.find(block.site); block.site != 0 && found != sites_.end()) {
    site.file = text(found->second.path);
    site.line = found->second.line;
    site.label = text(found->second.label);
    site.stack = found->second.stack;
  }
  const SiteIndex index = ledger_.site_of(site);
  if (splits_threads_ || block.site == 0) {
    sites_of_threads_[key] = index;
  } else if (block.site <= 2 * sites_.size() + 1024) {
    if (block.site >= known_.size()) known_.resize(block.site + 1, kUnknown);
    known_[block.site] = index;
  }
  return index;
}

}  // namespace qk::command
