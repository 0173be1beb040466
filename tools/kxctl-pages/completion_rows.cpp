// The rows of the completions: one branch for each place, which sets what may follow. The templates
// contain the code that reads them.
#include <fmt/core.h>

#include <string_view>

#include "parts.hpp"
#include "places.hpp"

namespace kx::pages {
namespace {

// A text in single quotes, for a shell that changes nothing between them.
std::string quoted(std::string_view text) {
    std::string out = "'";
    for (const char letter : text) {
        out += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    }
    return out + "'";
}

// fish knows escapes between single quotes.
std::string fish_quoted(std::string_view text) {
    std::string out = "'";
    for (const char letter : text) {
        out += letter == '\'' || letter == '\\' ? "\\" : "";
        out += letter;
    }
    return out + "'";
}

// The concatenated texts that a function makes of the items.
template <class Item>
std::string joined(const std::vector<Item>& items, std::string (*text)(const Item&)) {
    std::string out;
    for (const Item& item : items) {
        out += (out.empty() ? "" : " ") + text(item);
    }
    return out;
}

std::string word_of(const Offer& offer) { return offer.word; }

std::string option_and_kind(const OptionOffer& option) {
    return option.kind.empty() ? option.name : option.name + "=" + option.kind;
}

std::string kind_of_slot(const Slot& slot) { return slot.kind; }

// zsh's "word:description".
std::string described(std::string_view word, std::string_view meaning) {
    std::string out;
    for (const char letter : word) {
        out += letter == ':' ? "\\" : "";
        out += letter;
    }
    return quoted(fmt::format("{}:{}", out, meaning));
}

std::string zsh_offer(const Offer& offer) { return described(offer.word, offer.meaning); }
std::string zsh_option(const OptionOffer& option) { return described(option.name, option.meaning); }
std::string zsh_kind(const OptionOffer& option) {
    return quoted(option.name) + " " + quoted(option.kind);
}
std::string zsh_slot(const Slot& slot) { return quoted(slot.kind); }

// fish's word, tab, description.
std::string fish_offer(const Offer& offer) {
    return fish_quoted(offer.word) + "\\t" + fish_quoted(offer.meaning);
}
std::string fish_option(const OptionOffer& option) {
    return fish_quoted(option.name) + "\\t" + fish_quoted(option.meaning);
}
std::string fish_kind(const OptionOffer& option) { return fish_quoted(option_and_kind(option)); }
std::string fish_slot(const Slot& slot) { return fish_quoted(slot.kind); }

}  // namespace

std::string bash_rows() {
    std::string out;
    for (const Place& place : places()) {
        out += fmt::format("    {})\n", quoted(place.words));
        out += fmt::format("        next={}\n", quoted(joined(place.next, word_of)));
        out += fmt::format("        slots={}\n", quoted(joined(place.slots, kind_of_slot)));
        out += fmt::format("        repeats={}\n", place.repeats ? 1 : 0);
        out += fmt::format("        settings={}\n", quoted(joined(place.settings, word_of)));
        out += fmt::format("        options={}\n", quoted(joined(place.options, option_and_kind)));
        out += "        ;;\n";
    }
    return out;
}

std::string zsh_rows() {
    std::string out;
    for (const Place& place : places()) {
        out += fmt::format("    {})\n", quoted(place.words));
        out += fmt::format("        next=({})\n", joined(place.next, zsh_offer));
        out += fmt::format("        slots=({})\n", joined(place.slots, zsh_slot));
        out += fmt::format("        repeats={}\n", place.repeats ? 1 : 0);
        out += fmt::format("        settings=({})\n", joined(place.settings, zsh_offer));
        out += fmt::format("        options=({})\n", joined(place.options, zsh_option));
        out += fmt::format("        kinds=({})\n", joined(place.options, zsh_kind));
        out += "        ;;\n";
    }
    return out;
}

std::string fish_rows() {
    std::string out;
    for (const Place& place : places()) {
        out += fmt::format("        case {}\n", fish_quoted(place.words));
        out += fmt::format("            set next {}\n", joined(place.next, fish_offer));
        out += fmt::format("            set slots {}\n", joined(place.slots, fish_slot));
        out += fmt::format("            set repeats {}\n", place.repeats ? 1 : 0);
        out += fmt::format("            set settings {}\n", joined(place.settings, fish_offer));
        out += fmt::format("            set options {}\n", joined(place.options, fish_option));
        out += fmt::format("            set kinds {}\n", joined(place.options, fish_kind));
    }
    return out;
}

}  // namespace kx::pages
