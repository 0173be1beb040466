// What one entry-point call reads of the host, read once and dropped when the call ends.
//
// Exported functions that read the same thing (the loaded modules, say) are called by their names
// many times during one call; each reads for itself when an agent calls it alone. While a
// SnapshotScope lives they share the first reading instead.
#pragma once

#include <optional>
#include <utility>

namespace kx {

class SnapshotScope {
public:
    SnapshotScope() {
        if (depth_++ == 0) {
            ++generation_;
        }
    }
    ~SnapshotScope() { --depth_; }
    SnapshotScope(const SnapshotScope&) = delete;
    SnapshotScope& operator=(const SnapshotScope&) = delete;

    static bool open() { return depth_ > 0; }
    // Grows when an outermost scope begins; what was read before is stale.
    static unsigned long generation() { return generation_; }

private:
    static inline int depth_ = 0;
    static inline unsigned long generation_ = 0;
};

// One thing that is read of the host.
template <class T>
class Snapshot {
public:
    // The shared reading of the open scope, or a fresh one when there is no scope.
    template <class Read>
    const T& get(Read read) {
        const bool shared = SnapshotScope::open() && generation_ == SnapshotScope::generation();
        if (!shared || !value_) {
            value_.emplace(read());
            generation_ = SnapshotScope::generation();
        }
        return *value_;
    }

private:
    std::optional<T> value_;
    unsigned long generation_ = 0;
};

}  // namespace kx
