// Shared libraries that are loaded when one of their functions is first called. Loaded at the
// start, those for page files would double the time of a small job and the memory of every job.
#pragma once

#include <atomic>

namespace rast::tool {

class SharedLibrary {
 public:
  // Messages name the purpose where the library is missing.
  constexpr SharedLibrary(const char* soname, const char* purpose)
      : soname_(soname), purpose_(purpose) {}

  // The address of a function.
  void* find(const char* name) const;

 private:
  const char* soname_;
  const char* purpose_;
};

// Called like the function itself.
template <class Function>
class LibraryFunction {
 public:
  constexpr LibraryFunction(const SharedLibrary& library, const char* name)
      : library_(library), name_(name) {}

  // From any thread: each finds the same.
  operator Function*() {
    Function* function = function_;
    if (function == nullptr) {
      function_ = function = reinterpret_cast<Function*>(library_.find(name_));
    }
    return function;
  }

 private:
  const SharedLibrary& library_;
  const char* name_;
  std::atomic<Function*> function_ = nullptr;
};

// Declares a wrapper in this namespace for a function of the global namespace. A macro, so that type
// and name agree.
#define RAST_LIBRARY_FUNCTION(library, function) \
  constinit LibraryFunction<decltype(::function)> function(library, #function)

}  // namespace rast::tool
