// The same layout as a C++ program sees it.
#include "chain_layout.c"  // NOLINT(bugprone-suspicious-include)
