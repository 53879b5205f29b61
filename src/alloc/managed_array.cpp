// Managed arrays, which grow by themselves.
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>

#include "alloc/shared_steps.h"
#include "core/handle_array.h"
#include "diag/log.h"
#include "support/system.h"
#include "support/system_memory.h"

namespace qk::mem {
namespace {

/** Precedes the first element, which the caller's pointer points to. */
struct ArrayHeader {
  std::uint64_t last_index;  // of the element that was handed out most recently
  std::uint64_t capacity;    // elements
};
static_assert(sizeof(ArrayHeader) == QK_MEM_ALIGNMENT);

/** What is returned instead of an index. kNoElement also means that memory ran out. */
enum ArrayFailure : int64_t { kNullAddress = -1, kNoElement = -2, kNoBlock = -3 };

ArrayHeader* header_of(void* elements) { return static_cast<ArrayHeader*>(elements) - 1; }

/** Bytes of header and elements. */
std::size_t array_bytes(std::size_t element_size, std::size_t elements) {
  return sum(product(element_size, elements), sizeof(ArrayHeader));
}

int64_t refuse(int system_error, ArrayFailure failure) {
  Qk_mem_error.set(qk_error_no(system_error));
  return failure;
}

int64_t refuse_null_address(const CallContext& context) {
  if (logs_errors(context)) {
    qk_mem_write_log("   %s: WARNING: marralloc of NULL address at %s:%d\n", context.routine,
                     context.file(), context.line);
  }
  return refuse(EFAULT, kNullAddress);
}

int64_t refuse_element_size(std::size_t element_size, const CallContext& context) {
  if (logs_errors(context)) {
    qk_mem_write_log("   %s: WARNING: marralloc of element_size %zu at %s:%d\n", context.routine,
                     element_size, context.file(), context.line);
  }
  return refuse(EINVAL, kNoElement);
}

int64_t refuse_block_factor(std::size_t block_factor, const CallContext& context) {
  if (logs_errors(context)) {
    qk_mem_write_log("   %s: WARNING: marralloc of block_factor %zu at %s:%d\n", context.routine,
                     block_factor, context.file(), context.line);
  }
  return refuse(EINVAL, kNoBlock);
}

int64_t create_managed_array(int hid, void** address, std::size_t element_size,
                             std::size_t block_factor, const CallContext& context) {
  auto* header =
      static_cast<ArrayHeader*>(qk_mem_icalloc(hid, 1, array_bytes(element_size, block_factor),
                                               QK_MEM_ALIGNMENT, context.path, context.line));
  if (header == nullptr) return kNoElement;
  header->capacity = block_factor;
  *address = header + 1;
  return 0;
}

/** Whether realloc on a handle can lose the contents. */
bool loses_contents(int hid) {
  const qk_mem_handle* handle = handle_slots().numbered(hid);
  return handle != nullptr && is_blockmgmt(*handle);
}

void* obtain_copy(const void* contents, std::size_t size, const CallContext& context) {
  void* copy = own_memory::allocate(size);
  if (copy != nullptr) return std::memcpy(copy, contents, size);
  report_failed_malloc(size, context);
  return nullptr;
}

/**
 * Resizes an array of `used` bytes and keeps its contents. On failure returns null and changes
 * nothing.
 */
ArrayHeader* resize_managed_array(int hid, ArrayHeader* header, std::size_t used, std::size_t size,
                                  const CallContext& context) {
  std::unique_ptr<void, own_memory::Release> contents;
  if (loses_contents(hid)) {
    contents.reset(obtain_copy(header, used, context));
    if (contents == nullptr) return nullptr;
  }
  auto* resized = static_cast<ArrayHeader*>(
      qk_mem_irealloc(hid, header, size, QK_MEM_ALIGNMENT, context.path, context.line));
  if (resized != nullptr && contents != nullptr) std::memcpy(resized, contents.get(), used);
  return resized;
}

/** Makes room for `block_factor` more elements. On failure returns false and changes nothing. */
bool grow_managed_array(int hid, void** address, std::size_t element_size, std::size_t block_factor,
                        const CallContext& context) {
  ArrayHeader* header = header_of(*address);
  const std::size_t elements = sum(block_factor, header->capacity);
  const std::size_t used = array_bytes(element_size, header->capacity);
  const std::size_t size = array_bytes(element_size, elements);
  header = resize_managed_array(hid, header, used, size, context);
  if (header == nullptr) return false;
  std::memset(reinterpret_cast<char*>(header) + used, 0, size - used);
  header->capacity = elements;
  *address = header + 1;
  return true;
}

}  // namespace
}  // namespace qk::mem

extern "C" int64_t qk_mem_imarralloc(int hid, void** address, size_t element_size,
                                     size_t block_factor, const char* file, int line) {
  using namespace qk::mem;
  ensure_started();
  const CallContext context(Routine::kMarralloc, file, line);
  if (address == nullptr) return refuse_null_address(context);
  if (element_size == 0) return refuse_element_size(element_size, context);
  if (block_factor == 0) return refuse_block_factor(block_factor, context);
  if (*address == nullptr)
    return create_managed_array(hid, address, element_size, block_factor, context);
  const ArrayHeader* header = header_of(*address);
  if (header->last_index >= header->capacity - 1 &&
      !grow_managed_array(hid, address, element_size, block_factor, context)) {
    return kNoElement;
  }
  return static_cast<int64_t>(++header_of(*address)->last_index);
}

extern "C" void qk_mem_iarrfree(int hid, void** address, const char* file, int line) {
  using namespace qk::mem;
  ensure_started();
  const CallContext context(Routine::kArrfree, file, line);
  if (address == nullptr) {
    if (logs_errors(context)) {
      qk_mem_write_log("   %s: WARNING: arrfree of NULL address at %s:%d\n", context.routine,
                       context.file(), context.line);
    }
    Qk_mem_error.set(qk_error_no(EFAULT));
    return;
  }
  if (*address == nullptr) return;
  qk_mem_ifree(hid, header_of(*address), file, line);
  *address = nullptr;
}
