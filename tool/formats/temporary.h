// Temporary files that have no name, in the folder that TMPDIR names, or /tmp.
#ifndef RAST_TOOL_TEMPORARY_H
#define RAST_TOOL_TEMPORARY_H

#include "formats/descriptor.h"

// For reading and writing. What fails is a run-time failure.
Descriptor openUnlinked();

[[noreturn]] void failTemporary(const char* what, int error);

#endif
