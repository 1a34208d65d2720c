// A page from a file as the source of a chain's first step.
#ifndef RAST_TOOL_FILE_PAGE_H
#define RAST_TOOL_FILE_PAGE_H

#include <cstdint>

#include "formats/input.h"
#include "formats/page.h"
#include "progress/meter.h"
#include "steps/planes.h"
#include "steps/step.h"

class FilePage final : public PageSource {
 public:
  FilePage(const Input& in, PageReader& reader, Meter& meter, std::uint32_t wantedLines = 0);

  const PageHead& head() const override { return reader_.head(); }
  // How many lines it reads at a time.
  std::uint32_t bandLines() const { return most_; }

 private:
  std::uint32_t drawSome(const Planes& planes, std::uint32_t lines) override;

  PageReader& reader_;
  Meter& meter_;
  std::uint32_t most_;
  Bytes pixels_;  // colour only
};

#endif
