// The mark of the names that libkxsim.so offers; all else in it is hidden.
#pragma once

#define KXSIM_EXPORT __attribute__((visibility("default")))
