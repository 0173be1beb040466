#include "vm/description_edit.hpp"

#include "vm/domain_file.hpp"

namespace kx::vm {

std::optional<std::string> without_block(
    std::string_view description, std::string_view element, const BlockTest& matches) {
    const std::string open_tag = "<" + std::string(element);
    const std::string close_tag = "</" + std::string(element) + ">";
    std::size_t start = description.find(open_tag);
    std::size_t end = description.find(close_tag);
    while (start != description.npos && end != description.npos && start < end) {
        const std::size_t behind = end + close_tag.size();
        if (matches(description.substr(start, behind - start))) {
            std::string text(kDeclaration);
            text.append(description.substr(0, start)).append(description.substr(behind));
            return text;
        }
        start = description.find(open_tag, behind);
        end = start == description.npos ? start
                                        : description.find(close_tag, start + open_tag.size());
    }
    return std::nullopt;
}

}  // namespace kx::vm
