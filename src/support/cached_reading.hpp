// Cached reading of host data within one call of an exported function.
//
// During one call, exported functions that read the same data (for example the loaded modules) are
// called many times. While a CachedReadingScope exists they share the first reading. A function
// that an agent calls alone reads the data itself.
#pragma once

#include <optional>
#include <utility>

namespace kx {

class CachedReadingScope {
public:
    CachedReadingScope() {
        if (depth_++ == 0) {
            ++generation_;
        }
    }
    ~CachedReadingScope() { --depth_; }
    CachedReadingScope(const CachedReadingScope&) = delete;
    CachedReadingScope& operator=(const CachedReadingScope&) = delete;

    static bool open() { return depth_ > 0; }
    // Incremented when an outermost scope begins; data with an older generation are out of date.
    static unsigned long generation() { return generation_; }

private:
    static inline int depth_ = 0;
    static inline unsigned long generation_ = 0;
};

// One cached reading.
template <class T>
class CachedReading {
public:
    // The shared reading of the open scope, or a new reading without a scope.
    template <class Read>
    const T& get(Read read) {
        const bool shared =
            CachedReadingScope::open() && generation_ == CachedReadingScope::generation();
        if (!shared || !value_) {
            value_.emplace(read());
            generation_ = CachedReadingScope::generation();
        }
        return *value_;
    }

private:
    std::optional<T> value_;
    unsigned long generation_ = 0;
};

}  // namespace kx
