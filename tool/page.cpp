#include "page.h"

#include "png_page.h"
#include "pnm_page.h"

PageHead checkedHead(const Input& in, std::uint64_t width, std::uint64_t height, bool colour,
                     const char* page) {
  if (width < 1 || width > INT32_MAX || height < 1 || height > INT32_MAX) {
    in.fail(ExitCode::damaged, 0, "the ", page, " size is out of range; expected 1 to ", INT32_MAX,
            " columns and lines");
  }
  const PageHead head{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height),
                      colour};
  if (head.workBytes() > memoryCap) {
    in.fail(ExitCode::memory, 0, "one line of the ", page, ", ", width, " columns, needs ",
            head.workBytes(), " bytes; the cap is ", memoryCap);
  }
  return head;
}

std::unique_ptr<PageReader> nextPage(Input& in, const Transparency& transparency) {
  const bool first = in.page() == 0;
  while (!first && isPnmSpace(in.peek())) in.get();
  switch (in.peek()) {
    case pnmFirstByte:
      in.startPage();
      return makePnmReader(in);
    case pngFirstByte:
      in.startPage();
      return makePngReader(in, transparency);
    case EOF:
      if (!first) return nullptr;
      in.fail(ExitCode::damaged, 0, "empty; expected a PGM, PPM or PNG image");
    default:
      if (first) in.fail(ExitCode::unsupported, 0, "neither binary PGM or PPM nor PNG");
      in.fail(ExitCode::damaged, 0, "followed by data that is not an image; expected the end");
  }
}

void readPast(PageReader& page) {
  constexpr std::uint32_t linesAtATime = 64;
  const PageHead& head = page.head();
  const std::uint32_t most = head.bandLines(linesAtATime);
  const auto lines = std::make_unique_for_overwrite<std::uint8_t[]>(most * head.lineBytes());
  for (std::uint32_t done = 0; done < head.height;) {
    const std::uint32_t count = std::min(most, head.height - done);
    page.readLines(lines.get(), count);
    done += count;
  }
}

std::unique_ptr<PageWriter> makeWriter(Format format, Output& out) {
  return format == Format::png ? makePngWriter(out) : makePnmWriter(out);
}
