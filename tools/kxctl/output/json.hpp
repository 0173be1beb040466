// The JSON value that commands print. Its keys stay in the order in which they were added.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

namespace kx::ctl {

using Json = nlohmann::ordered_json;

// The results of a function for each record, in order.
template <class Record>
[[nodiscard]] Json json_array(
    const std::vector<Record>& records, Json (*json_of)(const Record& record)) {
    Json all = Json::array();
    for (const Record& record : records) {
        all.push_back(json_of(record));
    }
    return all;
}

}  // namespace kx::ctl
