#pragma once

#include <cstddef>

namespace kv::test {

/// How often the calling thread has asked for memory with `new`, in a program that is linked with
/// CountedAllocations.cpp.
std::size_t allocationsOfThisThread();

}  // namespace kv::test
