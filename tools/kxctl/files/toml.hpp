// The parser of TOML with two of its assumptions taken away, which files with mistakes break: some
// assertions fail on a mistake that is reported a step later, and its table of Unicode blanks
// has no row for characters that are none.
#pragma once

#define TOML_ASSERT(condition) static_cast<void>(0)
#include <toml++/impl/forward_declarations.h>
#undef TOML_UNREACHABLE
#define TOML_UNREACHABLE return false
#include <toml++/impl/unicode.h>
#undef TOML_UNREACHABLE
#define TOML_UNREACHABLE __builtin_unreachable()
#include <toml++/toml.h>
