// An absolute path under construction: bounded, no allocation, "." and ".." resolved as it grows.
#pragma once

#include <climits>
#include <cstring>
#include <string_view>

namespace kxsim::process {

class PathText {
public:
    PathText() { text_[0] = '\0'; }

    [[nodiscard]] const char* c_str() const { return text_; }
    [[nodiscard]] std::string_view view() const { return {text_, length_}; }
    [[nodiscard]] bool too_long() const { return too_long_; }

    void clear() {
        length_ = 0;
        text_[0] = '\0';
        too_long_ = false;
    }

    // The unchanged bytes.
    void append(std::string_view bytes) {
        if (length_ + bytes.size() >= sizeof text_) {
            too_long_ = true;
            return;
        }
        std::memcpy(text_ + length_, bytes.data(), bytes.size());
        length_ += bytes.size();
        text_[length_] = '\0';
    }

    // Continue along a path; "/" itself is an empty text until the path is finished.
    void walk(std::string_view path) {
        while (!path.empty()) {
            std::size_t length = 0;
            while (length < path.size() && path[length] != '/') {
                ++length;
            }
            step({path.data(), length});
            path.remove_prefix(length == path.size() ? length : length + 1);
        }
    }

    void finish() {
        if (length_ == 0) {
            append("/");
        }
    }

    // The directory part of a finished path.
    [[nodiscard]] std::string_view parent() const {
        std::size_t length = length_;
        while (length > 1 && text_[length - 1] != '/') {
            --length;
        }
        return {text_, length > 1 ? length - 1 : length};
    }

private:
    void step(std::string_view name) {
        if (name.empty() || name == ".") {
            return;
        }
        if (name == "..") {
            while (length_ > 0 && text_[--length_] != '/') {
            }
            text_[length_] = '\0';
            return;
        }
        append("/");
        append(name);
    }

    std::size_t length_ = 0;
    bool too_long_ = false;
    char text_[PATH_MAX];  // the first length_ characters are the path
};

}  // namespace kxsim::process
