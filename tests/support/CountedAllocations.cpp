// The program's own operator new, in a file apart: where the compiler sees both it and a use of it,
// it takes the pair of malloc and free in them for a mistake.

#include "tests/support/CountedAllocations.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::size_t allocations = 0;
}  // namespace

std::size_t kv::test::allocationsOfThisThread() {
  return allocations;
}

void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
