// Owner of a file descriptor, and writing to one.
#pragma once

#include <unistd.h>

#include <string_view>
#include <utility>

namespace kx::ctl {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() { reset(); }

    [[nodiscard]] int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

    void reset() {
        if (number_ >= 0) {
            close(std::exchange(number_, -1));
        }
    }

private:
    int number_ = -1;
};

// Write all of a text. Returns 0, or the errno of the write that failed.
[[nodiscard]] int write_text(int descriptor, std::string_view text);

}  // namespace kx::ctl
