// The same layout as a C++ program sees it.
#include "layout.c"  // NOLINT(bugprone-suspicious-include)
