// Temporary files.
#ifndef RAST_TOOL_TEMPORARY_H
#define RAST_TOOL_TEMPORARY_H

#include <string>
#include <string_view>

#include "formats/descriptor.h"

// For reading and writing, in a folder that ends with a slash, or is empty for the current one.
// Stores the path; nothing, with errno, if there can be none.
Descriptor createTemporary(std::string_view folder, std::string& path);

// One without a name, in the folder that TMPDIR names, or /tmp. What fails is a run-time failure.
Descriptor openUnlinked();

[[noreturn]] void failTemporary(const char* what, int error);

#endif
