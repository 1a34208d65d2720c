#include "commands/run.h"

#include <unistd.h>

#include <utility>
#include <vector>

#include "commands/page_list.h"
#include "progress/meter.h"
#include "steps/bands.h"
#include "steps/file_page.h"
#include "steps/step.h"

namespace {

class Pipeline {
 public:
  Pipeline(const Job& job, Input& in, PageWriter& writer, Meter& meter)
      : job_(job), in_(in), writer_(writer), meter_(meter) {
    if (job.toGray) stations_.push_back({requireOperation("gray"), grayStep(), ""});
    for (const Link& link : job.chain) {
      std::string label;
      if (job.chain.size() > 1) {
        label = join("step ", &link - job.chain.data() + 1, ", ", link.operation->name, ": ");
      }
      stations_.push_back({*link.operation, link.operation->makeStep(link.values), label});
    }
    // Those that the steps draw into, and the one that is written.
    in.setBands(stations_.size() + 1);
  }

  void runPage(PageReader& reader) {
    if (isFirst_) writer_.expectPages(job_.pages.count(reader));
    isFirst_ = false;
    if (job_.resolution.isKnown()) reader.setResolution(job_.resolution);
    meter_.beginPage(reader.head().height);
    std::unique_ptr<PageSource> page =
        std::make_unique<FilePage>(in_, reader, meter_, job_.bandLines);
    for (const Station& station : stations_) {
      const StepContext context{in_, station.operation.name, station.label, job_.bandLines, meter_};
      checkKind(station.operation, context, page->head());
      page = station.step->on(std::move(page), context);
    }
    meter_.beginOutput(page->head().height);
    write(*page, reader.rasterHeader());
    meter_.endPage(reader.copies());
  }

 private:
  struct Station {
    const Operation& operation;
    std::unique_ptr<Step> step;
    std::string label;
  };

  void checkKind(const Operation& operation, const StepContext& context,
                 const PageHead& head) const {
    if (takesPage(operation, head.colour)) return;
    const char* const hint =
        job_.chainText.empty() ? "; --gray converts it first" : "; the step 'gray' converts it";
    context.refuse(ExitCode::unsupported, operation.name, " works on ", takenPages(operation),
                   " only and this page is ", head.colour ? "colour" : "gray",
                   head.colour ? hint : "");
  }

  void write(PageSource& page, const RasterHeader* header) {
    const PageHead& head = page.head();
    const std::uint32_t wanted = job_.bandLines != 0 ? job_.bandLines : page.quickLines();
    const std::uint32_t most = bandLines(in_, head, wanted);
    meter_.inFiles([&] { writer_.beginPage(head, header); });
    if (const unsigned assumed = writer_.assumedResolution(); assumed != 0 && !hasNoted_) {
      hasNoted_ = true;
      meter_.note(
          join("page ", in_.page(), " names no resolution and is written with ", assumed, " dpi"),
          "; --resolution names another");
    }
    drawInBands(
        in_, page, head.colour ? Layout::interleaved : Layout::gray, most,
        [this](const Planes& band, std::uint32_t count) {
          meter_.inOutput([&] { writer_.writeLines(band.at[0], count); });
        },
        [&](std::uint32_t count) { meter_.linesWritten(count, count * head.lineBytes()); });
  }

  const Job& job_;
  Input& in_;
  PageWriter& writer_;
  Meter& meter_;
  std::vector<Station> stations_;
  bool isFirst_ = true;
  bool hasNoted_ = false;
};

}  // namespace

ExitCode run(const Job& job) {
  Input in(job.inPath, job.memory);
  const std::unique_ptr<PageStream> pages = openPages(in);
  Output out(job.outPath);
  // The library prints diagnostics on standard output, where the pixels may be going.
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    fail(ExitCode::runTime, "standard output cannot be set aside");
  }
  const std::unique_ptr<PageWriter> writer = job.format->makeWriter(out);
  Meter meter(job.progress, in, job.pages.count(), job.stats);
  Pipeline pipeline(job, in, *writer, meter);
  everyPage(in, *pages, job.pages, [&](PageReader& page) { pipeline.runPage(page); });
  meter.inFiles([&] {
    writer->finish();
    out.commit();
  });
  meter.end();
  if (job.stats) meter.printFigures();
  return ExitCode::done;
}
