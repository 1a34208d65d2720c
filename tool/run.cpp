#include "run.h"

#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "file_page.h"
#include "meter.h"
#include "page_list.h"
#include "step.h"

namespace {

class Pipeline {
 public:
  Pipeline(const Job& job, Input& in, PageWriter& writer, Meter& meter)
      : job_(job), in_(in), writer_(writer), meter_(meter) {
    for (const Link& link : job.chain) steps_.push_back(link.operation->makeStep(link.values));
  }

  void runPage(PageReader& reader) {
    meter_.beginPage(reader.head().height);
    const std::unique_ptr<PageSource> page =
        throughSteps(std::make_unique<FilePage>(in_, reader, meter_, job_.bandLines, bands()));
    meter_.beginOutput(page->head().height);
    write(*page, reader.rasterHeader());
    meter_.endPage(reader.copies());
  }

 private:
  // Those that the steps draw into, and the one that is written.
  std::size_t bands() const { return steps_.size() + 1; }

  std::unique_ptr<PageSource> throughSteps(std::unique_ptr<PageSource> page) const {
    for (std::size_t i = 0; i < steps_.size(); ++i) {
      const Operation& operation = *job_.chain[i].operation;
      if (steps_.size() > 1) in_.setStep(join("step ", i + 1, " (", operation.name, ")"));
      checkKind(operation, page->head());
      const Place place{in_, operation.name, job_.bandLines, bands(), meter_};
      page = steps_[i]->on(std::move(page), place);
    }
    in_.setStep("");
    return page;
  }

  void checkKind(const Operation& operation, const PageHead& head) const {
    if (takesPage(operation, head.colour)) return;
    in_.fail(ExitCode::unsupported, 0, operation.name, " works on ", takenPages(operation),
             " only and this page is ", head.colour ? "colour" : "gray",
             head.colour ? "; --gray converts it first" : "");
  }

  void write(PageSource& page, const RasterHeader* header) const {
    const PageHead& head = page.head();
    const std::uint32_t most = bandLines(in_, head, job_.bandLines, bands());
    const Lines lines(head.width, head.colour, most);
    const Bytes pixels = head.colour ? makeBytes(most * head.lineBytes()) : nullptr;
    meter_.inFiles([&] { writer_.beginPage(head, header); });
    for (std::uint32_t done = 0; done < head.height;) {
      const std::uint32_t count = std::min(most, head.height - done);
      page.draw(lines.planes(), count);
      if (pixels) interleave(lines.planes(), pixels.get(), std::size_t{count} * head.width);
      const std::uint8_t* const stored = pixels ? pixels.get() : lines.planes().at[0];
      meter_.inFiles([&] { writer_.writeLines(stored, count); });
      meter_.linesWritten(count, count * head.lineBytes());
      done += count;
    }
  }

  const Job& job_;
  Input& in_;
  PageWriter& writer_;
  Meter& meter_;
  std::vector<std::unique_ptr<Step>> steps_;
};

}  // namespace

ExitCode run(const Job& job) {
  Input in(job.inPath, job.memory);
  Output out(job.outPath);
  // The library prints diagnostics on standard output, where the pixels may be going.
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    fail(ExitCode::runTime, "standard output cannot be set aside");
  }
  const std::unique_ptr<PageWriter> writer = job.format->makeWriter(out);
  Meter meter(job.progress, in, job.pages.count());
  Pipeline pipeline(job, in, *writer, meter);
  everyPage(in, job.pages, [&](PageReader& page) { pipeline.runPage(page); });
  meter.inFiles([&] {
    writer->finish();
    out.commit();
  });
  meter.end();
  if (job.stats) meter.printFigures();
  return ExitCode::done;
}
