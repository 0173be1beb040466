#include "cli/plural.hpp"

#include <algorithm>
#include <string_view>

namespace kx::ctl {
namespace {

// The place of the first word that is neither an option nor its value.
std::size_t place_of_noun(const std::vector<std::string>& words) {
    const auto takes_word = [](const std::string& word) {
        return std::ranges::any_of(global_options(), [&](const Argument& option) {
            return word == option.name && *option.value != '\0' && option.count == Count::kOne;
        });
    };
    std::size_t place = 0;
    while (place < words.size() && words[place].starts_with('-')) {
        place += takes_word(words[place]) ? 2 : 1;
    }
    return std::min(place, words.size());
}

}  // namespace

std::string plural_of(const Command& command) {
    return std::string_view(command.verb) == "list" ? std::string(command.noun) + "s" : "";
}

std::vector<std::string> without_plural(std::vector<std::string> words) {
    const std::size_t place = place_of_noun(words);
    const std::string word = place < words.size() ? words[place] : "";
    const auto list = std::ranges::find_if(commands(), [&](const Command& command) {
        return !word.empty() && word == plural_of(command);
    });
    if (list == commands().end()) {
        return words;
    }
    words[place] = list->noun;
    const bool has_verb = std::ranges::any_of(commands(), [&](const Command& command) {
        return place + 1 < words.size() && std::string_view(command.noun) == list->noun &&
               words[place + 1] == command.verb;
    });
    if (!has_verb) {
        words.insert(words.begin() + static_cast<std::ptrdiff_t>(place) + 1, list->verb);
    }
    return words;
}

}  // namespace kx::ctl
