#include "commands/run.h"

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "commands/bandQueue.h"
#include "commands/engine.h"
#include "commands/pageList.h"
#include "formats/format.h"
#include "progress/meter.h"
#include "steps/planes.h"

namespace rast::tool {

namespace {

// The lines of a page, read as the engine takes them.
class EnteringLines {
 public:
  EnteringLines(PageReader& reader, Meter& meter, std::uint32_t most)
      : reader_(reader),
        meter_(meter),
        most_(most),
        bytes_(std::make_unique_for_overwrite<std::uint8_t[]>(most * reader.head().lineBytes())) {}

  // Some lines, until the page has no more.
  RastChainLines& refilled() {
    const PageHead& head = reader_.head();
    const std::uint32_t count = std::min(most_, head.height - read_);
    if (lines_.nCount > 0 || count == 0) return lines_;
    meter_.inFiles([&] { reader_.readLines(bytes_.get(), count); });
    meter_.linesRead(count, count * head.lineBytes());
    read_ += count;
    return lines_ = linesAt(head, bytes_.get(), count);
  }

 private:
  PageReader& reader_;
  Meter& meter_;
  std::uint32_t most_;
  std::unique_ptr<std::uint8_t[]> bytes_;
  RastChainLines lines_ = {};
  std::uint32_t read_ = 0;
};

class Pipeline {
 public:
  Pipeline(const Job& job, PageInput& in, PageWriter& writer, Meter& meter)
      : job_(job), engine_(*job.engine), in_(in), writer_(writer), meter_(meter) {}

  void runPage(PageReader& reader) {
    if (isFirst_) writer_.expectPages(job_.pages.count(reader));
    isFirst_ = false;
    if (job_.resolution.isKnown()) reader.setResolution(job_.resolution);
    const PageHead& head = reader.head();
    meter_.beginPage(head.height);
    const Engine::Plan plan = engine_.plan(in_, head);
    // A line on each side of the engine; what memory is left is for more of them.
    const std::uint64_t taken = head.lineBytes() + plan.page.lineBytes();
    const std::uint64_t cap = in_.memory().forLines();
    const std::uint64_t spare = cap - std::min(cap, plan.memory + taken);
    engine_.begin(in_, head, cap - spare / 2, taken);
    meter_.beginOutput(plan.page.height);
    EnteringLines entering(reader, meter_,
                           lines(head, chain::quickLines(head.lineBytes()), spare / 4));
    write(entering, plan, spare / 4);
    meter_.endPage(reader.copies());
  }

 private:
  std::uint32_t lines(const PageHead& head, std::uint32_t quick, std::uint64_t memory) const {
    const std::uint64_t wanted = job_.bandLines != 0 ? job_.bandLines : quick;
    const std::uint64_t room = 1 + std::min(memory, chain::kLongestBand) / head.lineBytes();
    return static_cast<std::uint32_t>(std::min<std::uint64_t>({wanted, room, head.height}));
  }

  // Lines that are made before a failure are written. Of two failures, the one nearer to the top of
  // the page is thrown. A page without lines leaves no header.
  void write(EnteringLines& entering, const Engine::Plan& plan, std::uint64_t memory) {
    const PageHead& head = plan.page;
    const std::uint32_t most = lines(head, plan.quickLines, memory);
    BandQueue queue(head.height, most, head.lineBytes(), memory + head.lineBytes(),
                    [this](const std::uint8_t* band, std::uint32_t count) {
                      meter_.inOutput([&] { writer_.writeLines(band, count); });
                    });
    try {
      bool isDone = false;
      for (std::uint32_t made = 0; made < head.height;) {
        const std::uint32_t count = std::min(most, head.height - made);
        RastChainLines leaving = linesAt(head, queue.next(), count);
        while (leaving.nCount > 0) isDone = run(entering.refilled(), leaving);
        if (made == 0) beginPage(head);
        queue.pass();
        meter_.linesWritten(count, count * head.lineBytes());
        made += count;
      }
      RastChainLines none = {};
      while (!isDone) isDone = run(entering.refilled(), none);
    } catch (...) {
      queue.finish();
      throw;
    }
    queue.finish();
  }

  void beginPage(const PageHead& head) {
    meter_.inFiles([&] { writer_.beginPage(head); });
    if (const unsigned assumed = writer_.assumedResolution(); assumed != 0 && !hasNoted_) {
      hasNoted_ = true;
      meter_.note(
          join("page ", in_.page(), " names no resolution and is written with ", assumed, " dpi"),
          "; --resolution names another");
    }
  }

  bool run(RastChainLines& entering, RastChainLines& leaving) {
    return meter_.inLibrary([&] { return engine_.run(in_, entering, leaving); });
  }

  const Job& job_;
  Engine& engine_;
  PageInput& in_;
  PageWriter& writer_;
  Meter& meter_;
  bool isFirst_ = true;
  bool hasNoted_ = false;
};

}  // namespace

ExitCode run(const Job& job) {
  PageInput in(job.inPath, job.memory);
  const std::unique_ptr<PageStream> pages = openPages(in, {}, job.mayBeEmpty);
  Output out(job.outPath);
  const std::unique_ptr<PageWriter> writer = job.format->makeWriter(out);
  // No library may print where the pixels go.
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    fail(ExitCode::runTime, "standard output cannot be set aside");
  }
  Meter meter(job.progress, in, job.pages.count());
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

}  // namespace rast::tool
