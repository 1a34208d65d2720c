// The chain library as the command uses it: failures have the command's words and exit codes.
#pragma once

#include <rast_chain.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

#include "formats/memoryCap.h"
#include "formats/page.h"
#include "formats/pageInput.h"

namespace rast::tool {

struct EngineSettings {
  std::string text;     // of the chain
  bool isChain = true;  // and not an operation alone, whose failures name no step
  bool mayNameFiles = true;
  bool toGray = false;      // before the first step
  MemoryCap memory;         // for an image that is read for an overlay
  std::uint32_t lines = 0;  // worked on at a time; 0: as many as are quick
};

// Rejects a wrong chain with a usage error.
class Engine {
 public:
  explicit Engine(const EngineSettings& settings);
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  std::uint32_t steps() const { return rastChainSteps(chain_.get()); }

  // The page that comes out for a page of the input.
  struct Plan {
    PageHead page;
    std::uint64_t memory;      // that the lines in work need
    std::uint32_t quickLines;  // to take at a time
  };
  Plan plan(const PageInput& in, const PageHead& page);
  // Begins the page. The lines in work may take `memory` bytes, of which `taken` are in use.
  void begin(const PageInput& in, const PageHead& page, std::uint64_t memory, std::uint64_t taken);

  // Moves lines until one side is exhausted. True when the page is done.
  bool run(const PageInput& in, RastChainLines& entering, RastChainLines& leaving);

 private:
  struct Closes {
    void operator()(RastChain* chain) const { rastChainClose(chain); }
  };

  static int readImage(void* self, const char* name, int background, RastChainImage* image);
  void require(const PageInput& in, std::uint32_t result, const RastChainError& error);

  EngineSettings settings_;
  std::unique_ptr<RastChain, Closes> chain_;
  std::exception_ptr fault_;  // of an image that was read for the chain
};

// Packed lines of a page in memory.
RastChainLines linesAt(const PageHead& page, std::uint8_t* lines, std::uint32_t count);

}  // namespace rast::tool
