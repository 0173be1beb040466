// Texts of Xerces in the local encoding.
#pragma once

#include <xercesc/util/XMLString.hpp>

namespace kx::machines {

// A transcoded text; empty when there is no memory for it.
class LocalText {
public:
    explicit LocalText(const XMLCh* text) : text_(xercesc::XMLString::transcode(text)) {}
    ~LocalText() {
        if (text_ != nullptr) {
            xercesc::XMLString::release(&text_);
        }
    }
    LocalText(const LocalText&) = delete;
    LocalText& operator=(const LocalText&) = delete;

    [[nodiscard]] const char* c_str() const { return text_ == nullptr ? "" : text_; }

    // Do not free the text.
    void abandon() { text_ = nullptr; }

private:
    char* text_;
};

}  // namespace kx::machines
