// The parser of TOML, compiled once: the programs load no library for it.
#define TOML_IMPLEMENTATION
#include "scenario/toml.hpp"
