#include "allocations.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

// The leak checker has these, where there is one.
extern "C" [[gnu::weak]] void __lsan_disable();
extern "C" [[gnu::weak]] void __lsan_enable();

extern "C" void* __real_malloc(size_t size);
extern "C" void __real_free(void* block);

namespace rast::test {

namespace {

struct State {
  bool watched;
  long failing;
  long count;
  long live;
  long peak;
};
thread_local State state = {};

void* allocate(size_t size) {
  if (state.watched && state.count++ == state.failing) return nullptr;
  void* const block = __real_malloc(size);
  if (state.watched && block != nullptr) {
    state.live += static_cast<long>(malloc_usable_size(block));
    state.peak = std::max(state.peak, state.live);
  }
  return block;
}

void release(void* block) {
  if (state.watched && block != nullptr) {
    state.live -= static_cast<long>(malloc_usable_size(block));
  }
  __real_free(block);
}

void* allocateOrThrow(size_t size) {
  if (void* const block = allocate(size)) return block;
  throw std::bad_alloc();
}

}  // namespace

// The live bytes are counted here. A reduction whose sums cannot be allocated keeps its lines, which
// is part of the library's interface and no leak to be reported.
Allocations::Allocations(long failing) {
  if (__lsan_disable != nullptr) __lsan_disable();
  state = {true, failing, 0, 0, 0};
}
Allocations::~Allocations() {
  state.watched = false;
  if (__lsan_enable != nullptr) __lsan_enable();
}
long Allocations::count() const { return state.count; }
long Allocations::live() const { return state.live; }
long Allocations::peak() const { return state.peak; }

}  // namespace rast::test

extern "C" void* __wrap_malloc(size_t size) { return rast::test::allocate(size); }
extern "C" void __wrap_free(void* block) { rast::test::release(block); }

void* operator new(size_t size) { return rast::test::allocateOrThrow(size); }
void* operator new[](size_t size) { return rast::test::allocateOrThrow(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return rast::test::allocate(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
  return rast::test::allocate(size);
}
void operator delete(void* block) noexcept { rast::test::release(block); }
void operator delete[](void* block) noexcept { rast::test::release(block); }
void operator delete(void* block, size_t) noexcept { rast::test::release(block); }
void operator delete[](void* block, size_t) noexcept { rast::test::release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { rast::test::release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { rast::test::release(block); }
