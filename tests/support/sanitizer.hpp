// What tests cannot do under AddressSanitizer.
#pragma once

namespace test {

// The sanitizer's allocator stands in front of the simulated host's: no allocation can be made to
// fail there. The same tests run in the build without sanitizers.
#ifdef __SANITIZE_ADDRESS__
inline constexpr bool kAllocationsCanFail = false;
#else
inline constexpr bool kAllocationsCanFail = true;
#endif
inline constexpr char kAllocationsAreTheSanitizers[] =
    "allocations belong to AddressSanitizer here and cannot be made to fail";

}  // namespace test
