#include "places.hpp"

#include <algorithm>
#include <string_view>

#include "cli/command.hpp"

namespace kx::pages {
namespace {

using ctl::Argument;
using ctl::Command;
using ctl::Count;
using ctl::Term;

std::string kind_of(const Argument& argument) {
    std::string kind;
    for (const std::string& choice : argument.choices) {
        kind += "|" + choice;
    }
    return !kind.empty() ? kind : argument.is_option() ? argument.value : argument.name;
}

void add_option(Place& place, const Argument& option) {
    std::string_view names = option.name;
    while (!names.empty()) {
        const std::size_t end = std::min(names.find(','), names.size());
        place.options.push_back({std::string(names.substr(0, end)), kind_of(option), option.help});
        names.remove_prefix(std::min(end + 1, names.size()));
    }
}

void add_global_options(Place& place) {
    for (const Argument& option : ctl::global_options()) {
        add_option(place, option);
    }
}

void add_setting(Place& place, const Term& setting) {
    if (setting.values.empty()) {
        place.settings.push_back({setting.word + "=", setting.meaning});
    }
    for (const std::string& value : setting.values) {
        place.settings.push_back({setting.word + "=" + value, setting.meaning});
    }
}

Place place_of(const Command& command) {
    Place place{.words = command.name()};
    for (const Argument& argument : command.arguments) {
        if (argument.is_option()) {
            add_option(place, argument);
        } else {
            place.slots.push_back({kind_of(argument), argument.help});
            place.repeats = argument.count == Count::kSeveral;
        }
    }
    for (const Term& setting : command.settings()) {
        add_setting(place, setting);
    }
    add_global_options(place);
    return place;
}

Place& noun_place(std::vector<Place>& all, const std::string& noun) {
    const auto found = std::ranges::find(all, noun, &Place::words);
    if (found != all.end()) {
        return *found;
    }
    Place& place = all.emplace_back(Place{.words = noun});
    add_global_options(place);
    return place;
}

// A noun has no help of its own; its verbs have.
void add_meanings(std::vector<Place>& all) {
    for (Offer& noun : all.front().next) {
        const Place& place = *std::ranges::find(all, noun.word, &Place::words);
        for (const Offer& verb : place.next) {
            noun.meaning += (noun.meaning.empty() ? "" : ", ") + verb.word;
        }
    }
}

// "help" takes the words of the other commands.
void add_help(std::vector<Place>& all) {
    const std::vector<Place> others = all;
    Place& help = *std::ranges::find(all, "help", &Place::words);
    help.slots.clear();
    help.next = all.front().next;
    for (const Offer& noun : others.front().next) {
        Place place = *std::ranges::find(others, noun.word, &Place::words);
        place = {.words = "help " + noun.word, .next = place.next};
        add_global_options(place);
        all.push_back(place);
    }
}

}  // namespace

std::vector<Place> places() {
    std::vector<Place> all = {{.words = ""}};
    add_global_options(all.front());
    for (const Command& command : ctl::commands()) {
        if (*command.verb == '\0') {
            all.front().next.push_back({command.noun, command.help});
        } else {
            if (all.front().next.empty() || all.front().next.back().word != command.noun) {
                all.front().next.push_back({command.noun, ""});
            }
            noun_place(all, command.noun).next.push_back({command.verb, command.help});
        }
        all.push_back(place_of(command));
    }
    add_meanings(all);
    add_help(all);
    return all;
}

}  // namespace kx::pages
