// Texts of any length, for models of whole files and descriptions.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "process/next.hpp"

namespace kxsim::process {

// The bytes of a text between two places in it. (substr would bring the C++ runtime's exceptions.)
[[nodiscard]] constexpr std::string_view part_of(
    std::string_view text, std::size_t from, std::size_t to = std::string_view::npos) {
    const std::size_t end = to < text.size() ? to : text.size();
    const std::size_t start = from < end ? from : end;
    return {text.data() + start, end - start};
}

// A growing text. When memory runs out, it does not change and reports this.
class TextBuffer {
public:
    TextBuffer() = default;
    explicit TextBuffer(std::string_view text) { append(text); }
    ~TextBuffer() { next<"free", decltype(::free)>()(text_); }
    TextBuffer(const TextBuffer&) = delete;
    TextBuffer& operator=(const TextBuffer&) = delete;

    TextBuffer& append(std::string_view text) {
        if (reserve(text.size())) {
            std::memcpy(text_ + length_, text.data(), text.size());
            length_ += text.size();
            text_[length_] = '\0';
        }
        return *this;
    }

    // Whether everything that was appended is in the text.
    [[nodiscard]] bool complete() const { return complete_; }
    [[nodiscard]] std::string_view view() const { return {text_, length_}; }
    [[nodiscard]] const char* c_str() const { return text_ == nullptr ? "" : text_; }

private:
    bool reserve(std::size_t more) {
        if (text_ != nullptr && length_ + more + 1 <= room_) {
            return true;
        }
        const std::size_t room = 2 * (length_ + more) + 64;
        void* const moved = next<"realloc", decltype(::realloc)>()(text_, room);
        if (moved == nullptr) {
            complete_ = false;
            return false;
        }
        text_ = static_cast<char*>(moved);
        room_ = room;
        return true;
    }

    char* text_ = nullptr;
    std::size_t length_ = 0;
    std::size_t room_ = 0;
    bool complete_ = true;
};

}  // namespace kxsim::process
