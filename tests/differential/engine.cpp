#include "engine.h"

#include <setjmp.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "support/heap.h"
#include "support/levels.h"

namespace rast::test {

namespace {

/// What is written to standard output while this lives, run by run.
class Printed {
 public:
  Printed() : file_(tmpfile()), before_(dup(STDOUT_FILENO)) {
    if (!file_ || before_ < 0) throw std::runtime_error("standard output cannot be redirected");
  }
  Printed(const Printed&) = delete;
  Printed& operator=(const Printed&) = delete;

  void begin() const {
    fflush(stdout);
    dup2(fileno(file_), STDOUT_FILENO);
  }
  void end() const {
    fflush(stdout);
    dup2(before_, STDOUT_FILENO);
  }

  std::string take() const {
    fflush(stdout);
    std::string text(static_cast<size_t>(lseek(STDOUT_FILENO, 0, SEEK_CUR)), ' ');
    if (text.empty()) return text;
    if (pread(STDOUT_FILENO, text.data(), text.size(), 0) < 0) text = "unreadable";
    lseek(STDOUT_FILENO, 0, SEEK_SET);
    return text;
  }

 private:
  FILE* file_;
  int before_;
};

// A run that touches a protected page is left from the signal handler: no frame in between has
// anything to clean up but the working lines of a reduction, which the heap keeps.
sigjmp_buf leaving;
volatile sig_atomic_t running = 0;
const uint8_t* volatile touched = nullptr;

void leave(int signal, siginfo_t* info, void*) {
  if (!running) {
    ::signal(signal, SIG_DFL);
    return;
  }
  touched = static_cast<const uint8_t*>(info->si_addr);
  siglongjmp(leaving, 1);
}

void catchFaults() {
  struct sigaction action {};
  action.sa_sigaction = leave;
  action.sa_flags = SA_SIGINFO | SA_NODEFER;
  for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE}) sigaction(signal, &action, nullptr);
}

struct Outcome {
  bool faulted = false;
  const uint8_t* touched = nullptr;
  Answers answers;
  std::string printed;
};

std::vector<Way> allWays() {
  std::vector<Way> ways = {{"definition", nullptr, false}};
  for (const Level& level : levels()) ways.push_back({level.name, level.rows, false});
  ways.push_back({"exported function", nullptr, true});
  return ways;
}

class Engine {
 public:
  Engine() { catchFaults(); }

  std::optional<Deviation> deviation(std::span<const uint8_t> bytes) {
    const Operation& operation = operationOf(bytes);
    Draft draft(bytes.subspan(bytes.empty() ? 0 : 1), arena_);
    const Run run = operation.draw(draft);
    const std::string difference = compare(run, draft.refused());
    if (difference.empty()) return {};
    return Deviation{difference, operation.name + draft.text()};
  }

 private:
  /// What is wrong with the first run that is not as it should be; nothing where all are.
  std::string compare(const Run& run, bool refused) {
    const Arena::Image before = arena_.image();
    Arena::Image expected = before;
    Outcome defined;
    printed_.begin();
    std::string difference;
    for (const Way& way : ways_) {
      arena_.restore(before);
      const Outcome outcome = runOne(run, way);
      if (&way == &ways_[0]) {
        defined = outcome;
        if (refused && !(outcome.answers == Answers{} || outcome.answers[0] & 0x8000))
          difference = "accepts a broken argument";
        if (!refused) expected = arena_.image();
      }
      uint8_t wanted = 0;
      const uint8_t* const at = arena_.difference(expected, wanted);
      if (outcome.faulted) {
        difference = "touches " + arena_.placeOf(outcome.touched);
      } else if (outcome.answers != defined.answers) {
        difference = "answers" + text(outcome.answers) + ", not" + text(defined.answers);
      } else if (outcome.printed != defined.printed) {
        difference = "prints \"" + outcome.printed + "\", not \"" + defined.printed + '"';
      } else if (at) {
        difference =
            arena_.placeOf(at) + " is " + std::to_string(*at) + ", not " + std::to_string(wanted);
      }
      if (difference.empty()) continue;
      difference = way.name + ": " + difference;
      break;
    }
    printed_.end();
    arena_.restore(before);  // for what is told of it
    return difference;
  }

  /// Not inlined: a jump may clobber the local variables of the function that it returns to.
  [[gnu::noinline]] static bool completes(const Run& run, const Way& way, Answers& answers) {
    const bool entered = sigsetjmp(leaving, 0) == 0;
    running = entered;
    if (entered) answers = run(way);
    running = 0;
    return entered;
  }

  Outcome runOne(const Run& run, const Way& way) const {
    Outcome outcome;
    outcome.faulted = !completes(run, way, outcome.answers);
    if (outcome.faulted) outcome.touched = touched;
    heap.release();
    outcome.printed = printed_.take();
    return outcome;
  }

  static std::string text(const Answers& answers) {
    std::ostringstream stream;
    for (const uint32_t answer : answers) stream << std::hex << " 0x" << answer;
    return stream.str();
  }

  Arena arena_;
  Printed printed_;
  std::vector<Way> ways_ = allWays();
};

}  // namespace

std::optional<Deviation> deviation(std::span<const uint8_t> bytes) {
  static Engine engine;
  return engine.deviation(bytes);
}

std::string levelNames() {
  std::string names;
  for (const Level& level : levels()) names += (names.empty() ? "" : ", ") + level.name;
  return names;
}

const Operation& operationOf(std::span<const uint8_t> bytes) {
  return kOperations[(bytes.empty() ? 0U : bytes[0]) % kOperations.size()];
}

Bytes shrunk(Bytes bytes, const std::function<bool(const Bytes&)>& fails) {
  bool smaller = true;
  const auto attempt = [&](Bytes candidate) {
    if (candidate == bytes || !fails(candidate)) return false;
    bytes = std::move(candidate);
    return smaller = true;
  };
  while (smaller) {
    smaller = false;
    for (size_t n = bytes.size() / 2; n > 0; n /= 2) {
      while (n < bytes.size() &&
             attempt(Bytes(bytes.begin(), bytes.end() - static_cast<ptrdiff_t>(n)))) {
      }
    }
    // The first byte names the operation.
    for (size_t i = 1; i < bytes.size(); ++i) {
      for (const int value : {0, bytes[i] / 2, bytes[i] - 1}) {
        Bytes candidate = bytes;
        candidate[i] = static_cast<uint8_t>(std::max(0, value));
        if (attempt(candidate)) break;
      }
      Bytes shorter = bytes;
      shorter.erase(shorter.begin() + static_cast<ptrdiff_t>(i));
      attempt(shorter);
    }
  }
  return bytes;
}

std::string report(Bytes bytes) {
  if (!bytes.empty()) bytes[0] = static_cast<uint8_t>(&operationOf(bytes) - kOperations.data());
  const Bytes least = shrunk(bytes, [](const Bytes& b) { return deviation(b).has_value(); });
  const auto found = deviation(least);
  if (!found) return "a deviation that does not recur: " + hexOf(bytes) + '\n';
  std::ostringstream stream;
  std::istringstream lines(found->difference + '\n' + found->call);
  stream << "To be pasted into tests/differential/casesTest.cpp:\n\n";
  for (std::string line; std::getline(lines, line);) stream << "// " << line << '\n';
  stream << "TEST(Differential, NameMe) { expectSame(\"" << hexOf(least) << "\"); }\n";
  return stream.str();
}

std::string hexOf(std::span<const uint8_t> bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string hex;
  for (const uint8_t byte : bytes) hex += {digits[byte >> 4], digits[byte & 15]};
  return hex;
}

Bytes bytesOf(const std::string& hex) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  return bytes;
}

}  // namespace rast::test
