#include "commands/compare.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <optional>

#include "commands/pageList.h"
#include "files/output.h"
#include "formats/format.h"
#include "progress/meter.h"

namespace rast::tool {

namespace {

// The samples in which two pages of the same kind and size differ.
class Difference {
 public:
  explicit Difference(const PageHead& head) : head_(head) {}

  // The next samples of both; the absolute differences take the place of the first page's.
  void add(std::uint8_t* a, const std::uint8_t* b, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i, ++samples_) {
      const int distance = std::abs(a[i] - b[i]);
      if (distance != 0) {
        if (count_++ == 0) first_ = {samples_, a[i], b[i]};
        largest_ = std::max(largest_, distance);
        squares_ += static_cast<std::uint64_t>(distance * distance);
      }
      a[i] = static_cast<std::uint8_t>(distance);
    }
  }

  bool isNone() const { return count_ == 0; }

  std::string describe() const {
    if (isNone()) return "equal";
    constexpr const char* components[] = {"red", "green", "blue"};
    constexpr double peak = 255;
    const std::uint64_t place = first_.index % head_.lineBytes();
    const double meanSquare = static_cast<double>(squares_) / static_cast<double>(samples_);
    return join("differs first at line ", first_.index / head_.lineBytes() + 1, ", column ",
                place / (head_.color ? 3 : 1) + 1, ", ",
                head_.color ? components[place % 3] : "gray", ": ", first_.a, " and ", first_.b,
                "; ", count_, " of ", samples_, " samples differ by up to ", largest_, ", PSNR ",
                fixed(10 * std::log10(peak * peak / meanSquare), 2), " dB");
  }

 private:
  struct Place {
    std::uint64_t index;
    int a;
    int b;
  };

  PageHead head_;
  std::uint64_t samples_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t squares_ = 0;
  int largest_ = 0;
  Place first_ = {};
};

// The picture of differences, if one is wanted.
class Picture {
 public:
  explicit Picture(const Job& job) : pages_(job.pages) {
    if (job.outPath.empty()) return;
    out_.emplace(job.outPath);
    writer_ = job.format->makeWriter(*out_);
  }

  void beginPage(const PageReader& page) {
    if (!writer_) return;
    if (!drawn_) writer_->expectPages(pages_.count(page));
    PageHead head = page.head();
    head.details = nullptr;  // they describe page A, not the differences
    writer_->beginPage(head);
    drawn_ = true;
  }
  void writeLines(const std::uint8_t* lines, std::uint32_t count) {
    if (writer_) writer_->writeLines(lines, count);
  }
  // No format knows a file without pages.
  void commit() {
    if (!drawn_) return;
    writer_->finish();
    out_->commit();
  }

 private:
  const PageList& pages_;
  std::optional<Output> out_;
  std::unique_ptr<PageWriter> writer_;
  bool drawn_ = false;
};

Difference compareSamples(const PageInput& in, PageReader& a, PageReader& b,
                          std::uint32_t wantedLines, Picture& picture, Meter& meter) {
  const PageHead& head = a.head();
  const std::uint32_t most = bandLines(in, head, wantedLines);
  const auto linesOfA = std::make_unique_for_overwrite<std::uint8_t[]>(most * head.lineBytes());
  const auto linesOfB = std::make_unique_for_overwrite<std::uint8_t[]>(most * head.lineBytes());
  Difference found(head);
  picture.beginPage(a);
  for (std::uint32_t done = 0; done < head.height;) {
    const std::uint32_t count = std::min(most, head.height - done);
    a.readLines(linesOfA.get(), count);
    b.readLines(linesOfB.get(), count);
    found.add(linesOfA.get(), linesOfB.get(), count * head.lineBytes());
    picture.writeLines(linesOfA.get(), count);
    meter.linesRead(count, 2 * count * head.lineBytes());
    done += count;
  }
  return found;
}

std::string sizeAndKind(const PageHead& head) {
  return join(head.width, " x ", head.height, ' ', head.kind());
}

}  // namespace

ExitCode compare(const Job& job) {
  if (job.inPath == "-" && job.otherPath == "-") {
    fail(ExitCode::usage, "A and B are both standard input; expected a file for one of them");
  }
  if (job.outPath == "-") {
    fail(ExitCode::usage, "standard output is for the report; expected a file for DIFFERENCE");
  }
  PageInput a(job.inPath, job.memory);
  PageInput b(job.otherPath, job.memory);
  Output report("-");
  Picture picture(job);
  Meter meter(besideReport(job.progress), a, job.pages.count());
  std::uint64_t count = 0;
  std::uint64_t different = 0;
  const auto tell = [&](std::uint64_t page, bool equal, const auto&... parts) {
    report.write(join("page ", page, ": ", parts..., '\n'));
    ++count;
    different += equal ? 0 : 1;
  };
  const std::unique_ptr<PageStream> pagesOfA = openPages(a);
  const std::unique_ptr<PageStream> pagesOfB = openPages(b);
  for (;;) {
    const std::unique_ptr<PageReader> pageA = pagesOfA->next();
    const std::unique_ptr<PageReader> pageB = pagesOfB->next();
    if (!pageA && !pageB) break;
    const std::uint64_t page = std::max(a.page(), b.page());
    const bool isChosen = job.pages.holds(page);
    if (isChosen && pageA && pageB && pageA->head().hasShapeOf(pageB->head())) {
      meter.beginPage(pageA->head().height);
      meter.beginOutput(0);
      const Difference found = compareSamples(a, *pageA, *pageB, job.bandLines, picture, meter);
      meter.endPage(1);
      tell(page, found.isNone(), found.describe());
      continue;
    }
    if (pageA) readPast(a, *pageA);
    if (pageB) readPast(b, *pageB);
    if (!isChosen) continue;
    if (pageA && pageB) {
      tell(page, false, sizeAndKind(pageA->head()), " in A and ", sizeAndKind(pageB->head()),
           " in B");
    } else {
      tell(page, false, "only in ", pageA ? 'A' : 'B');
    }
  }
  job.pages.checkEnd(a.page() > b.page() ? a : b);
  picture.commit();
  report.write(join(count, count == 1 ? " page, " : " pages, ", different, " different\n"));
  report.commit();
  meter.end();
  return different == 0 ? ExitCode::done : ExitCode::different;
}

}  // namespace rast::tool
