// kxctl-pages: fills a template of a manual page or a completion with data of kxctl's command
// table. Every line "@NAME@" of the template is replaced by the part with that name. Used while
// building; not installed.
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "parts.hpp"

namespace kx::pages {
namespace {

struct Row {
    std::string_view name;
    std::string (*make)();
};

constexpr Row kParts[] = {
    {"man_commands", man_commands},
    {"man_options", man_options},
    {"man_exit_codes", man_exit_codes},
    {"man_saved_settings", man_saved_settings},
    {"man_state_settings", man_state_settings},
    {"port_setting_keys", port_setting_keys},
    {"port_setting_schemas", port_setting_schemas},
    {"bash_rows", bash_rows},
    {"zsh_rows", zsh_rows},
    {"fish_rows", fish_rows},
};

bool is_mark(std::string_view line) {
    return line.size() > 2 && line.front() == '@' && line.back() == '@';
}

std::string filled(std::istream& page) {
    std::string out;
    for (std::string line; std::getline(page, line);) {
        out +=
            is_mark(line) ? part(std::string_view(line).substr(1, line.size() - 2)) : line + "\n";
    }
    return out;
}

int run(const char* path) {
    std::ifstream page(path);
    if (!page) {
        throw std::runtime_error(std::string(path) + " cannot be read");
    }
    std::cout << filled(page) << std::flush;
    return page.bad() || !std::cout ? 1 : 0;
}

}  // namespace

std::string part(std::string_view name) {
    for (const Row& row : kParts) {
        if (row.name == name) {
            return row.make();
        }
    }
    throw std::runtime_error("There is no part " + std::string(name));
}

}  // namespace kx::pages

int main(int count, char** arguments) try {
    if (count != 2) {
        throw std::runtime_error("Usage: kxctl-pages TEMPLATE");
    }
    return kx::pages::run(arguments[1]);
} catch (const std::exception& mistake) {
    std::fprintf(stderr, "kxctl-pages: %s\n", mistake.what());
    return 1;
}
