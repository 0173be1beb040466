// The parser of TOML without its assertions: some of them fail on a file with a mistake that the
// parser reports a step later.
#pragma once

#define TOML_ASSERT(condition) static_cast<void>(0)
#include <toml++/toml.h>
