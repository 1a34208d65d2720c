// Temporary files.
#pragma once

#include <string>
#include <string_view>

#include "files/descriptor.h"

namespace rast::tool {

// All are for reading and writing. Folders end with a slash, or are empty for the current one.

// A file without a name, which nothing that ends the process leaves behind. None where the file
// system knows no such file, or could not name it later.
Descriptor createUnnamed(std::string_view folder);
// Gives it a name that is not taken; false, with errno, if that fails.
bool giveName(const Descriptor& unnamed, const std::string& path);

// These store a path that was free. Errors are in errno.
Descriptor createTemporary(std::string_view folder, std::string& path);
bool linkTemporary(const Descriptor& unnamed, std::string_view folder, std::string& path);

// One without a name, in the folder that TMPDIR names, or /tmp. Failures are run-time errors.
Descriptor openUnlinked();

[[noreturn]] void failTemporary(const char* what, int error);

}  // namespace rast::tool
