#include "core/registry.h"

namespace {

/** Holds a value that is constructed with the program and never destroyed. */
template <class T>
union Immortal {
  T value;
  constexpr Immortal() : value() {}
  ~Immortal() {}
};

constinit Immortal<qk::TLS<int>> error_of_threads;

}  // namespace

constinit qk_mem_handle** Qk_mem_handles = nullptr;
constinit std::int32_t Qk_mem_avail_handles = 0;
constinit std::int32_t Qk_mem_num_handles = 0;
constinit qk_mem_ptr Qk_mem_handles_ptr = {};
constinit std::uint32_t Qk_mem_seq = 0;
constinit qk_mem_tag Qk_mem_tags[32] = {};
constinit std::int32_t Qk_mem_num_tags = 0;
constinit qk_mem_tag* Qk_mem_tags_hash[32] = {};
constinit qk_mem_tag Qk_mem_global_tag = {};
constinit qk::TLS<int>& Qk_mem_error = error_of_threads.value;
constinit qk::Mtx Qk_mem_mtx;
constinit std::int32_t Qk_mem_initialized = 0;
constinit std::int64_t Qk_mem_init_heap = 0;
constinit std::int64_t Qk_mem_base_heap = 0;
constinit std::uint64_t Qk_mem_blocksize = 0;
constinit std::int32_t Qk_mem_ptr_display_size = 16;
