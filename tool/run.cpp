#include "run.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "page_filter.h"
#include "page_list.h"
#include "page_store.h"
#include "planes.h"
#include "progress.h"

namespace {

// What the pages of a job have in common.
struct Pass {
  const Job& job;
  const Input& in;
  PageWriter& writer;
  Progress& progress;
};

// The page as the operation takes it.
PageHead takenHead(const Pass& pass, const PageHead& from) {
  const Operation& operation = *pass.job.operation;
  const PageHead taken{from.width, from.height, from.colour && !pass.job.toGray};
  if (!takesPage(operation, taken.colour)) {
    pass.in.fail(ExitCode::unsupported, 0, operation.name, " works on ", takenPages(operation),
                 " only and this page is ", taken.colour ? "colour" : "gray",
                 taken.colour ? "; --gray converts it first" : "");
  }
  return taken;
}

void checkResult(const Pass& pass, std::uint64_t line, std::uint32_t result) {
  if (result == RAST_OK) return;
  pass.in.fail(ExitCode::runTime, line, pass.job.operation->name, " failed with result 0x",
               std::hex, result);
}

// Whole units of the filter, unless the page has fewer lines.
std::uint32_t bandLines(const Pass& pass, const Filter& filter, const PageHead& from) {
  const std::uint32_t unit = filter.unitLines();
  const std::uint32_t wanted = (pass.job.bandLines + unit - 1) / unit * unit;
  const std::uint32_t lines = from.bandLines(wanted);
  if (lines == from.height) return lines;
  if (lines < unit) {
    pass.in.fail(ExitCode::memory, 0, "bands of ", unit, " lines, which these ratios need, take ",
                 unit * from.workBytes(), " bytes; the cap is ", memoryCap);
  }
  return lines / unit * unit;
}

// The planes that the library reads and those that it writes lie apart, since not every operation
// works in place.
void runPage(const Pass& pass, PageReader& reader, const Filter& filter) {
  const PageHead& from = reader.head();
  const PageHead taken = takenHead(pass, from);
  const PageHead to =
      checkedHead(pass.in, reduced(taken.width, filter.ratioX),
                  reduced(taken.height, filter.ratioY), taken.colour, "output page");
  const std::uint32_t most = bandLines(pass, filter, from);
  const Layout layout = taken.colour ? Layout::planar : Layout::gray;
  const std::size_t inSize = std::size_t{most} * taken.width;
  const std::size_t outSize = std::size_t{reduced(most, filter.ratioY)} * to.width;
  const Bytes in = makeBytes(planeCount(layout) * inSize);
  const Bytes out = makeBytes(planeCount(layout) * outSize);
  const Planes inPlanes(layout, in.get(), inSize);
  const Planes outPlanes(layout, out.get(), outSize);
  const RastPlaneSet planes = planeSet(inPlanes, outPlanes, 3);
  Transfer transfer(from, most);
  pass.writer.beginPage(to);
  for (std::uint32_t done = 0; done < taken.height;) {
    const std::uint32_t lines = std::min(most, taken.height - done);
    transfer.read(reader, inPlanes, lines);
    checkResult(pass, std::uint64_t{done} + 1, filter.apply(wholeArea(taken.width, lines), planes));
    transfer.write(pass.writer, to, outPlanes, reduced(lines, filter.ratioY));
    done += lines;
    pass.progress.show(pass.in.page(), done, taken.height);
  }
}

void runPage(const Pass& pass, PageReader& reader, PageFilter& filter) {
  const PageHead taken = takenHead(pass, reader.head());
  const PageHead to = filter.outputHead(pass.in, taken);
  pass.progress.announce(pass.in.page(), to.width, to.height);
  const auto showFrom = [&](std::uint64_t before) {
    return [&pass, before, all = std::uint64_t{taken.height} + to.height](std::uint32_t done) {
      pass.progress.show(pass.in.page(), before + done, all);
    };
  };
  StoredPage page(pass.in, taken, filter.interleaved());
  StoredPage output(pass.in, to, filter.interleaved());
  page.read(reader, pass.job.bandLines, showFrom(0));
  output.clear();
  checkResult(pass, 0, filter.apply(page, output, pass.job.bandLines));
  pass.writer.beginPage(to);
  output.write(pass.writer, pass.job.bandLines, showFrom(taken.height));
}

}  // namespace

ExitCode run(const Job& job) {
  Input in(job.inPath);
  Output out(job.outPath);
  // The library prints diagnostics on standard output, where the pixels may be going.
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    fail(ExitCode::runTime, "standard output cannot be set aside");
  }
  const std::unique_ptr<PageWriter> writer = makeWriter(job.format, out);
  Progress progress(job.progress);
  const Pass pass{job, in, *writer, progress};
  if (job.operation->makeFilter != nullptr) {
    const Filter filter = job.operation->makeFilter(job.values);
    everyPage(in, job.pages, [&](PageReader& page) { runPage(pass, page, filter); });
  } else {
    const std::unique_ptr<PageFilter> filter = job.operation->makePageFilter(job.values);
    everyPage(in, job.pages, [&](PageReader& page) { runPage(pass, page, *filter); });
  }
  out.commit();
  return ExitCode::done;
}
