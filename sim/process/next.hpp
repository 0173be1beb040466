// The functions that the wrappers replace: the next definition of each name in the process, looked
// up at the first use.
#pragma once

#include <atomic>
#include <cstddef>

namespace kxsim::process {

// Ends the process when there is none, because a wrapper cannot work without its function.
[[nodiscard]] void* find_next(const char* name);

// Prints a line on standard error before the process ends.
void complain(const char* text);

// A function's name as a template argument.
template <std::size_t kSize>
struct FunctionName {
    consteval FunctionName(const char (&name)[kSize]) {
        for (std::size_t i = 0; i < kSize; ++i) {
            text[i] = name[i];
        }
    }
    char text[kSize];
};

// The function with a name, looked up at its first use. Safe before constructors run: it needs no
// initialisation and takes no lock.
template <FunctionName kName, class Function, void* (*kFind)(const char* name)>
[[nodiscard]] Function* looked_up() {
    static constinit std::atomic<void*> found = nullptr;
    void* function = found.load(std::memory_order_relaxed);
    if (function == nullptr) {
        function = kFind(kName.text);
        found.store(function, std::memory_order_relaxed);
    }
    return reinterpret_cast<Function*>(function);
}

// next<"open", decltype(::open)>() is open without this library.
template <FunctionName kName, class Function>
[[nodiscard]] Function* next() {
    return looked_up<kName, Function, find_next>();
}

}  // namespace kxsim::process
