// The settings of a port in the schemas of kxctl's answers.
#include <fmt/core.h>

#include "output/json.hpp"
#include "parts.hpp"
#include "settings/port_settings.hpp"

namespace kx::pages {
namespace {

using ctl::Json;
using ctl::Setting;

std::string limit_key(const Setting& setting) { return std::string(setting.key) + "_maximum"; }

std::string line(const std::string& text) { return fmt::format("        {},\n", text); }

std::string property(const std::string& key, const Json& schema) {
    return line(Json(key).dump() + ": " + schema.dump());
}

// A switch is true or false, a setting with other words is a word.
Json setting_schema(const Setting& setting) {
    Json schema = {
        {"type", Json::array({"integer", "null"})},
        {"title", setting.title},
        {"description", setting.description()}};
    if (setting.words.zero != nullptr) {
        const Json zero = setting.json_of(0);
        schema["type"][0] = zero.is_boolean() ? "boolean" : "string";
        if (zero.is_string()) {
            schema["enum"] = {zero, setting.json_of(1), nullptr};
        }
    }
    return schema;
}

bool has_limit(const Setting& setting) { return setting.limit != ctl::kNoLimit; }

}  // namespace

std::string port_setting_keys() {
    std::string out;
    for (const Setting& setting : ctl::port_settings()) {
        if (setting.is_shown()) {
            out += line(Json(setting.key).dump());
        }
        if (has_limit(setting)) {
            out += line(Json(limit_key(setting)).dump());
        }
    }
    return out;
}

std::string port_setting_schemas() {
    std::string out;
    for (const Setting& setting : ctl::port_settings()) {
        if (setting.is_shown()) {
            out += property(setting.key, setting_schema(setting));
        }
        if (has_limit(setting)) {
            out += property(
                limit_key(setting),
                {{"type", {"integer", "null"}}, {"description", "the driver's own limit"}});
        }
    }
    return out;
}

}  // namespace kx::pages
