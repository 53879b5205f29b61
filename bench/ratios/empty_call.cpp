#include "bench/ratios/allocators.h"

namespace ratios {

void* EmptyCall::allocate(std::size_t size) { return std::malloc(size); }

void EmptyCall::release(void* memory) { std::free(memory); }

}  // namespace ratios
