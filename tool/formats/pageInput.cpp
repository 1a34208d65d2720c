#include "formats/pageInput.h"

#include <cstring>

namespace rast::tool {

std::string PageInput::place(std::uint64_t line) const {
  std::string place = name();
  if (page_ != 0) place += join(": page ", page_);
  if (line != 0) place += join(", line ", line);
  return place;
}

void PageInput::failShort(std::uint64_t line, const std::string& expected) const {
  if (error() != 0) fail(ExitCode::runTime, line, "cannot be read: ", std::strerror(error()));
  fail(ExitCode::damaged, line, "ends early; expected ", expected);
}

void PageInput::failMemory(std::uint64_t line, const std::string& what, std::uint64_t bytes) const {
  fail(ExitCode::memory, line, what, " needs ", bytes, " bytes and ", memory_.forLines(),
       " are allowed; --memory ", MemoryCap::megabytesFor(bytes), "M or more is needed");
}

}  // namespace rast::tool
