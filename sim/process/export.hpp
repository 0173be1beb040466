// The attribute of the names that libkxsim.so exports; all other names are hidden.
#pragma once

#define KXSIM_EXPORT __attribute__((visibility("default")))
