#include "AllocationWatch.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> watching{false};
std::atomic<std::size_t> largest{0};

void* allocate(std::size_t size) {
  if (watching.load(std::memory_order_relaxed)) {
    std::size_t seen = largest.load(std::memory_order_relaxed);
    while (size > seen && !largest.compare_exchange_weak(seen, size)) {
    }
  }
  if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace vestrel_test {

LargestAllocation::LargestAllocation() {
  largest = 0;
  watching = true;
}

LargestAllocation::~LargestAllocation() { watching = false; }

std::size_t LargestAllocation::bytes() const { return largest; }

}  // namespace vestrel_test
