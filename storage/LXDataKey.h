// The fixed key of the data cipher. User keys, the compiled configuration
// and every container block are enciphered with it, and the replication
// pool bears the same text as its name.
#pragma once

#include "foundation/NSString.h"

constexpr const char* kLXDataKey = "Rk2pWn";

// The key as a constant string (never released).
NSString* LXDataKey();
