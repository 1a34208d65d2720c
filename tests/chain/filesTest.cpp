// The temporary files of pages: none is left, wherever a page is abandoned, and folders that take
// none are reported.
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "pages.h"
#include "reference.h"

/// Calls that a signal interrupts, of those that take room on the device.
static int interruptions = 0;

/// In place of the C library's, which chains call with wide offsets.
extern "C" int posix_fallocate64(int file, off64_t offset, off64_t size) {
  if (interruptions > 0) {
    --interruptions;
    return EINTR;
  }
  return posix_fallocate(file, static_cast<off_t>(offset), static_cast<off_t>(size));
}

namespace rast::test {
namespace {

using testing::HasSubstr;

/// A folder of the test's own.
class Folder {
 public:
  Folder() {
    std::string path = std::string(quickFolder() != nullptr ? quickFolder() : "/tmp");
    path += "/chain-test-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) ADD_FAILURE() << path;
    path_ = path;
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { std::filesystem::remove_all(path_); }
  const std::string& path() const { return path_; }

  struct Use {
    int names = 0;
    int open = 0;
    int mapped = 0;
    friend bool operator==(const Use&, const Use&) = default;
  };
  /// Files with a name, and those that the process has open and mapped.
  Use use() const {
    Use use;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      (void)entry;
      ++use.names;
    }
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code error;
      const auto target = std::filesystem::read_symlink(entry.path(), error);
      if (target.string().starts_with(path_)) ++use.open;
    }
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
      if (line.find(path_) != std::string::npos) ++use.mapped;
    }
    return use;
  }

 private:
  std::string path_;
};

std::ostream& operator<<(std::ostream& stream, const Folder::Use& use) {
  return stream << use.names << " names, " << use.open << " open, " << use.mapped << " mapped";
}

int descriptors() {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++count;
  }
  return count;
}

class Abandoned : public testing::TestWithParam<const char*> {};

TEST_P(Abandoned, PagesLeaveNothingBehind) {
  const Folder folder;
  const int before = descriptors();
  ImageSource image;
  image.picture = overlayImage(3);
  const RastChainSettings settings = settingsFor(image, folder.path().c_str());
  Random random(1);
  const Picture in = randomPicture(13, 11, 3, random);
  const RastChainPage page = in.page();
  const Sheet sheet = sheetOf(in, Layout());
  ChainPointer chain = openChain(GetParam(), &settings);
  const Outcome expected = runPage(chain.get(), in, Feed(), random);
  ASSERT_EQ(expected.code, RAST_CHAIN_DONE) << expected.error.sMessage;
  // The images are kept, the page is not.
  const Folder::Use images = folder.use();
  EXPECT_EQ(images.names, 0);
  EXPECT_EQ(images.open, image.calls);
  Sheet result(expected.page.nWidth, expected.page.nHeight, 3, Layout());
  for (uint32_t fed = 0; fed <= in.height; ++fed) {
    // Nothing comes out before the last line is in, but for what shift puts above the page.
    const uint32_t most = fed == in.height ? expected.page.nHeight - 1 : 0;
    for (uint32_t taken = 0; taken <= most; ++taken) {
      for (int way = 0; way < 4; ++way) {
        ASSERT_EQ(rastChainBegin(chain.get(), &page, nullptr, nullptr), RAST_CHAIN_OK);
        RastChainLines linesIn = sheet.lines(0, fed);
        RastChainLines linesOut = result.lines(0, fed == in.height ? taken : 1);
        EXPECT_EQ(rastChainRun(chain.get(), &linesIn, &linesOut, nullptr), RAST_CHAIN_OK);
        EXPECT_EQ(folder.use().names, 0) << "inside the page";
        EXPECT_GT(folder.use().open, images.open) << "inside the page";
        switch (way) {
          case 0:
            rastChainAbandon(chain.get());
            EXPECT_EQ(folder.use(), images);
            break;
          case 1: {
            const Outcome next = runPage(chain.get(), in, Feed(), random);
            EXPECT_EQ(next.picture, expected.picture);
            EXPECT_EQ(folder.use(), images);
            break;
          }
          case 2: {
            linesIn = sheet.lines(0, in.height);
            linesIn.nCount = in.height + 1;
            EXPECT_EQ(rastChainRun(chain.get(), &linesIn, nullptr, nullptr),
                      uint32_t{RAST_CHAIN_ERR_USE});
            EXPECT_EQ(folder.use(), images);
            break;
          }
          default:
            chain.reset();
            EXPECT_EQ(folder.use(), Folder::Use());
            EXPECT_EQ(descriptors(), before);
            chain = openChain(GetParam(), &settings);
            const RastChainPage other = Picture(2, 2, 3).page();
            RastChainPage out = {};
            // Has the images read again.
            EXPECT_EQ(rastChainPlan(chain.get(), &other, &out, nullptr), RAST_CHAIN_OK);
        }
        if (HasFailure()) return;
      }
    }
  }
  rastChainClose(chain.release());
  EXPECT_EQ(folder.use(), Folder::Use());
  EXPECT_EQ(descriptors(), before);
}

INSTANTIATE_TEST_SUITE_P(All, Abandoned,
                         testing::Values("rotate cw", "overlay logo.ppm",
                                         "overlayrgb logo.ppm white",
                                         "shift y=1 : overlay logo.ppm : zoom y=700 : rotate ccw : "
                                         "overlayrgb logo.ppm size=17x9 : satadjust raise"));

TEST(Folders, ThatTakeNoFilesAreReported) {
  const Folder folder;
  const std::string missing = folder.path() + "/missing";
  const std::string file = folder.path() + "/file";
  std::ofstream(file) << "text";
  const std::string untaken[] = {missing, file, "/proc", "/proc/self/fdinfo"};
  for (const std::string& path : untaken) {
    for (const char* text : {"rotate cw", "gray : gray : rotate cw", "gray : overlay logo.ppm"}) {
      SCOPED_TRACE(path + ", " + text);
      const int before = descriptors();
      ImageSource image;
      image.picture = overlayImage(1);
      const RastChainSettings settings = settingsFor(image, path.c_str());
      RastChainError error = {};
      const ChainPointer chain = openChain(text, &settings, &error);
      ASSERT_NE(chain, nullptr) << error.sMessage;
      const RastChainPage page = Picture(5, 5, 1).page();
      EXPECT_EQ(rastChainBegin(chain.get(), &page, nullptr, &error), uint32_t{RAST_CHAIN_ERR_FILE});
      EXPECT_EQ(error.nCode, uint32_t{RAST_CHAIN_ERR_FILE});
      EXPECT_EQ(error.nStep, 1U + std::count(text, text + strlen(text), ':'));
      EXPECT_THAT(error.sMessage, HasSubstr(path));
      EXPECT_EQ(rastChainRun(chain.get(), nullptr, nullptr, nullptr), uint32_t{RAST_CHAIN_ERR_USE});
      EXPECT_EQ(descriptors(), before);
    }
  }
  std::filesystem::remove(file);
  EXPECT_EQ(folder.use(), Folder::Use());
}

TEST(Folders, AreThoseOfTheEnvironmentWhereNoneIsGiven) {
  const Folder folder;
  const char* const before = getenv("TMPDIR");
  const std::string kept = before != nullptr ? before : "";
  const RastChainPage page = Picture(5, 5, 1).page();
  setenv("TMPDIR", folder.path().c_str(), 1);
  const ChainPointer there = openChain("rotate cw");
  EXPECT_EQ(rastChainBegin(there.get(), &page, nullptr, nullptr), RAST_CHAIN_OK);
  EXPECT_EQ(folder.use().open, 1);
  setenv("TMPDIR", (folder.path() + "/missing").c_str(), 1);
  const ChainPointer nowhere = openChain("rotate cw");
  EXPECT_EQ(rastChainBegin(nowhere.get(), &page, nullptr, nullptr), uint32_t{RAST_CHAIN_ERR_FILE});
  EXPECT_EQ(rastChainBegin(there.get(), &page, nullptr, nullptr), RAST_CHAIN_OK);
  for (const bool isEmpty : {true, false}) {
    isEmpty ? setenv("TMPDIR", "", 1) : unsetenv("TMPDIR");
    const ChainPointer common = openChain("rotate cw");
    EXPECT_EQ(rastChainBegin(common.get(), &page, nullptr, nullptr), RAST_CHAIN_OK);
  }
  if (before != nullptr) setenv("TMPDIR", kept.c_str(), 1);
}

/// Chains whose files grow in every way.
constexpr const char* kGrowing[] = {
    "rotate cw",
    "overlay logo.ppm size=200x200",
    "overlayrgb logo.ppm white size=200x200 base=60,0",
    "overlayrgb logo.ppm white size=300x200 base=0,0 at=100,100 : rotate ccw",
};

/// With files up to `limit` bytes, or in a folder of so many, pages either come out as they should
/// or are reported; afterwards the same chain makes what it should.
struct Tight {
  RastChain* chain;
  Picture large;
  Picture small;
  Outcome expectedLarge;
  Outcome expectedSmall;

  /// False where an outcome is neither. Sets `failed` where one was reported.
  bool holds(bool& failed, bool isTight) const {
    Random random(1);
    for (const bool isLarge : {true, false}) {
      const Outcome outcome = runPage(chain, isLarge ? large : small, Feed(), random);
      const Outcome& expected = isLarge ? expectedLarge : expectedSmall;
      const bool isReported = outcome.code == RAST_CHAIN_ERR_FILE &&
                              outcome.error.nCode == outcome.code && outcome.error.nStep >= 1 &&
                              outcome.error.sOperation[0] != '\0';
      failed |= isReported;
      if (isReported && isTight) continue;
      if (outcome.code != RAST_CHAIN_DONE || outcome.picture != expected.picture) return false;
    }
    return true;
  }
};

Tight tight(const char* text, ImageSource& image, const std::string& folder) {
  Random random(2);
  Tight tight = {};
  tight.large = randomPicture(150, 150, 3, random);
  tight.small = randomPicture(90, 90, 3, random);
  image.picture = overlayImage(3);
  const RastChainSettings settings = settingsFor(image, folder.c_str());
  const ChainPointer free = openChain(text, &settings);
  tight.expectedLarge = runPage(free.get(), tight.large, Feed(), random);
  tight.expectedSmall = runPage(free.get(), tight.small, Feed(), random);
  EXPECT_EQ(tight.expectedLarge.code, RAST_CHAIN_DONE) << tight.expectedLarge.error.sMessage;
  EXPECT_EQ(tight.expectedSmall.code, RAST_CHAIN_DONE) << tight.expectedSmall.error.sMessage;
  return tight;
}

TEST(Folders, WhoseFilesMayNotGrowAreReported) {
  const Folder folder;
  struct sigaction ignored = {};
  struct sigaction before = {};
  ignored.sa_handler = SIG_IGN;
  sigaction(SIGXFSZ, &ignored, &before);
  rlimit kept = {};
  getrlimit(RLIMIT_FSIZE, &kept);
  for (const char* text : kGrowing) {
    ImageSource image;
    Tight page = tight(text, image, folder.path());
    int failures = 0;
    for (rlim_t limit = 0; limit < 400000; limit += 4096) {
      SCOPED_TRACE(testing::Message() << text << ", files of " << limit << " bytes");
      const RastChainSettings settings = settingsFor(image, folder.path().c_str());
      const ChainPointer chain = openChain(text, &settings);
      page.chain = chain.get();
      bool failed = false;
      rlimit less = kept;
      less.rlim_cur = limit;
      setrlimit(RLIMIT_FSIZE, &less);
      const bool whileTight = page.holds(failed, true);
      setrlimit(RLIMIT_FSIZE, &kept);
      EXPECT_TRUE(whileTight);
      failures += failed;
      EXPECT_TRUE(page.holds(failed, false)) << "afterwards";
      if (HasFailure()) break;
    }
    EXPECT_GT(failures, 3) << text;
    EXPECT_EQ(folder.use(), Folder::Use());
  }
  sigaction(SIGXFSZ, &before, nullptr);
}

TEST(Folders, WhoseFilesGrowInSpiteOfSignals) {
  const Folder folder;
  for (const char* text : {kGrowing[1], kGrowing[2]}) {
    ImageSource image;
    Tight page = tight(text, image, folder.path());
    const RastChainSettings settings = settingsFor(image, folder.path().c_str());
    const ChainPointer chain = openChain(text, &settings);
    page.chain = chain.get();
    interruptions = 3;
    bool failed = false;
    EXPECT_TRUE(page.holds(failed, false)) << text;
    EXPECT_EQ(interruptions, 0) << text;
  }
}

/// Runs `work` in a process of its own with a small file system at the folder. Nothing where that
/// cannot be had.
std::optional<int> inSmallFolder(const std::string& folder, int kilobytes,
                                 const std::function<int()>& work) {
  constexpr int kNoFolder = 77;
  const pid_t child = fork();
  if (child == 0) {
    const std::string size = "size=" + std::to_string(kilobytes) + "k";
    const bool own = unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
    const bool mounted = own && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                         mount("tmpfs", folder.c_str(), "tmpfs", 0, size.c_str()) == 0;
    _exit(mounted ? work() : kNoFolder);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNoFolder) return {};
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

TEST(Folders, ThatAreFullAreReported) {
  const Folder folder;
  for (const char* text : kGrowing) {
    ImageSource image;
    Tight page = tight(text, image, folder.path());
    int failures = 0;
    for (int kilobytes = 4; kilobytes < 700; kilobytes += 12) {
      const std::optional<int> status = inSmallFolder(folder.path(), kilobytes, [&] {
        const RastChainSettings settings = settingsFor(image, folder.path().c_str());
        const ChainPointer chain = openChain(text, &settings);
        page.chain = chain.get();
        bool failed = false;
        return page.holds(failed, true) ? failed : 2;
      });
      if (!status) GTEST_SKIP() << "no file system can be mounted";
      EXPECT_LE(*status, 1) << text << ", " << kilobytes << " KiB";
      failures += *status == 1;
      if (HasFailure()) break;
    }
    EXPECT_GT(failures, 3) << text;
  }
}

}  // namespace
}  // namespace rast::test
