#include "support/heap.h"

extern "C" void* __real_malloc(size_t size);
extern "C" void __real_free(void* block);

namespace rast::test {

Heap heap;

void Heap::watch(int failingOne) {
  release();
  requested.clear();
  requested.reserve(64);
  blocks.reserve(64);
  failing = failingOne;
  watched = true;
}

std::vector<size_t> Heap::release() {
  watched = false;
  std::vector<size_t> sizes;
  for (const auto& [block, size] : blocks) {
    sizes.push_back(size);
    __real_free(block);
  }
  blocks.clear();
  return sizes;
}

}  // namespace rast::test

using rast::test::heap;

extern "C" void* __wrap_malloc(size_t size) {
  if (heap.fenced) {
    auto memory = std::make_unique<rast::test::Memory>(1, size);
    void* const block = memory->slot(0) + memory->slotSize() - size;
    heap.fencedBlocks[block] = std::move(memory);
    return block;
  }
  if (!heap.watched) return __real_malloc(size);
  heap.requested.push_back(size);
  if (heap.requested.size() == static_cast<size_t>(heap.failing) + 1) return nullptr;
  heap.blocks.emplace_back(__real_malloc(size), size);
  return heap.blocks.back().first;
}

extern "C" void __wrap_free(void* block) {
  if (heap.fencedBlocks.erase(block) != 0) return;
  std::erase_if(heap.blocks, [block](const auto& b) { return b.first == block; });
  __real_free(block);
}
