#include "run.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "progress.h"

namespace {

using Bytes = std::unique_ptr<std::uint8_t[]>;

// Left uninitialised, so that a header that promises much costs nothing until samples arrive.
Bytes makeBytes(std::size_t size) { return std::make_unique_for_overwrite<std::uint8_t[]>(size); }

// ITU-R BT.601 luma: 0.299 R + 0.587 G + 0.114 B, rounded to nearest.
std::uint8_t luma(const std::uint8_t* rgb) {
  return static_cast<std::uint8_t>((299 * rgb[0] + 587 * rgb[1] + 114 * rgb[2] + 500) / 1000);
}

// Some lines of a page, interleaved for files and as planes for the library: those it reads and
// those it writes lie apart, since not every operation works in place.
class Band {
 public:
  Band(const PageHead& from, const PageHead& to, std::uint32_t lines)
      : from_(from), to_(to), planeBytes_(std::size_t{lines} * from.width) {
    if (from.colour) stored_ = makeBytes(3 * planeBytes_);
    in_ = makeBytes((to.colour ? 3 : 1) * planeBytes_);
    out_ = makeBytes((to.colour ? 3 : 1) * planeBytes_);
  }

  void read(PageReader& reader, std::uint32_t lines) {
    lines_ = lines;
    reader.readLines(from_.colour ? stored_.get() : in_.get(), lines);
    if (!from_.colour) return;
    const std::uint8_t* rgb = stored_.get();
    for (std::size_t i = 0; i < samples(); ++i, rgb += 3) {
      if (to_.colour) {
        for (std::size_t c = 0; c < 3; ++c) plane(in_, c)[i] = rgb[c];
      } else {
        in_[i] = luma(rgb);
      }
    }
  }

  std::uint32_t apply(const Filter& filter) {
    const auto width = static_cast<std::int32_t>(to_.width);
    const RastArea area{width, 0, width, 0, static_cast<std::int32_t>(lines_)};
    RastPlaneSet set = {};
    set.nSize = static_cast<std::int32_t>(samples());
    if (to_.colour) {
      for (std::size_t c = 0; c < 3; ++c) {
        set.pIn[c] = plane(in_, c);
        set.pOut[c] = plane(out_, c);
      }
    } else {
      set.pIn[3] = in_.get();
      set.pOut[3] = out_.get();
    }
    return filter(area, set);
  }

  void write(PageWriter& writer) {
    if (!to_.colour) return writer.writeLines(out_.get(), lines_);
    std::uint8_t* rgb = stored_.get();
    for (std::size_t i = 0; i < samples(); ++i, rgb += 3) {
      for (std::size_t c = 0; c < 3; ++c) rgb[c] = plane(out_, c)[i];
    }
    writer.writeLines(stored_.get(), lines_);
  }

 private:
  std::size_t samples() const { return std::size_t{lines_} * to_.width; }
  std::uint8_t* plane(const Bytes& planes, std::size_t component) const {
    return planes.get() + component * planeBytes_;
  }

  PageHead from_;
  PageHead to_;
  std::size_t planeBytes_;
  std::uint32_t lines_ = 0;
  Bytes stored_;  // colour only
  Bytes in_;
  Bytes out_;
};

void runPage(const Job& job, const Filter& filter, const Input& in, PageReader& reader,
             PageWriter& writer, Progress& progress) {
  const PageHead& from = reader.head();
  const PageHead to{from.width, from.height, from.colour && !job.toGray};
  if (!takesPage(*job.operation, to.colour)) {
    in.fail(ExitCode::unsupported, 0, job.operation->name, " works on ", takenPages(*job.operation),
            " only and this page is ", to.colour ? "colour" : "gray",
            to.colour ? "; --gray converts it first" : "");
  }
  const std::uint64_t most = std::min<std::uint64_t>(from.height, memoryCap / from.workBytes());
  const auto lines = static_cast<std::uint32_t>(std::min<std::uint64_t>(job.bandLines, most));
  Band band(from, to, lines);
  writer.beginPage(to);
  for (std::uint32_t done = 0; done < from.height;) {
    const std::uint32_t count = std::min(lines, from.height - done);
    band.read(reader, count);
    if (const std::uint32_t result = band.apply(filter); result != RAST_OK) {
      in.fail(ExitCode::runTime, std::uint64_t{done} + 1, job.operation->name,
              " failed with result 0x", std::hex, result);
    }
    band.write(writer);
    done += count;
    progress.show(in.page(), done, from.height);
  }
}

}  // namespace

void run(const Job& job) {
  Input in(job.inPath);
  Output out(job.outPath);
  // The library prints diagnostics on standard output, where the pixels may be going.
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    fail(ExitCode::runTime, "standard output cannot be set aside");
  }
  const std::unique_ptr<PageWriter> writer = makeWriter(job.format, out);
  const Filter filter = job.operation->makeFilter(job.values);
  Progress progress(job.progress);
  while (const std::unique_ptr<PageReader> reader = nextPage(in)) {
    runPage(job, filter, in, *reader, *writer, progress);
  }
  out.commit();
}
