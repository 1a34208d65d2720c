#include "formats/sharedLibrary.h"

#include <dlfcn.h>

#include "text/error.h"

namespace rast::tool {

void* SharedLibrary::find(const char* name) const {
  // A second dlopen only counts, and no library is unloaded.
  void* const handle = dlopen(soname_, RTLD_NOW | RTLD_LOCAL);
  void* const found = handle != nullptr ? dlsym(handle, name) : nullptr;
  if (found == nullptr) {
    fail(ExitCode::unsupported, purpose_,
         " needs a shared library that cannot be loaded: ", dlerror());
  }
  return found;
}

}  // namespace rast::tool
