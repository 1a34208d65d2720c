// Pages in memory, for targets without files.
#include <cstdlib>
#include <cstring>

#include "steps/pageStore.h"

namespace rast::chain {

std::string temporaryFolder(const char*) { return {}; }

PageStore::~PageStore() { std::free(data_); }

bool PageStore::open(std::uint64_t size, Context& context) { return grow(size, context); }

bool PageStore::grow(std::uint64_t size, Context& context) {
  void* const data =
      size <= PTRDIFF_MAX ? std::realloc(data_, static_cast<std::size_t>(size)) : nullptr;
  if (data == nullptr) {
    context.refuse(RAST_CHAIN_ERR_MEMORY, "not enough memory for a page of ", size, " bytes");
    return false;
  }
  data_ = static_cast<std::uint8_t*>(data);
  std::memset(data_ + size_, 0, static_cast<std::size_t>(size - size_));
  size_ = size;
  return true;
}

bool PageStore::reserve(std::uint64_t, std::uint64_t, Context&) { return true; }

bool PageStore::write(std::uint64_t offset, const std::uint8_t* samples, std::size_t size,
                      Context&) {
  std::memcpy(data_ + offset, samples, size);
  return true;
}

}  // namespace rast::chain
