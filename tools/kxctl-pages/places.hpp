// The command table as completions need it: for each place on a command line, the words that may
// follow.
#pragma once

#include <string>
#include <vector>

namespace kx::pages {

// A fixed word that may follow.
struct Offer {
    std::string word;
    std::string meaning;
};

// The kind of a word: its name ("LOCATION"), or its possible values, each after a "|"
// ("|boot|config").
struct Slot {
    std::string kind;
    std::string meaning;
};

struct OptionOffer {
    std::string name;  // one of the option's names
    std::string kind;  // of its value, as a Slot's; empty for a flag
    std::string meaning;
};

struct Place {
    std::string words;                      // "card", "card list"; empty for the line's beginning
    std::vector<Offer> next = {};           // nouns or verbs
    std::vector<OptionOffer> options = {};  // of this command, then those of all commands
    std::vector<Slot> slots = {};           // positional words
    std::vector<Offer> settings = {};       // what KEY=VALUE knows: "mtu=", "tso=on", "tso=off"
    bool repeats = false;                   // the last positional word may be repeated
};

// Every place; the beginning of the line comes first.
[[nodiscard]] std::vector<Place> places();

}  // namespace kx::pages
