// The order in which the host's directories list their entries, as the builder sets it.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/shared_record.hpp"
#include "state/order.hpp"

namespace kxsim {

// Paths are absolute, with nothing to resolve in them; the top is empty.
class EntryOrder {
public:
    explicit EntryOrder(const std::string& file) : record_(file) {}

    void add(std::string_view path);
    void remove(std::string_view path);  // and what is below it
    void set(std::string_view directory, const std::vector<std::string>& names);

private:
    void keep_only(const std::function<bool(std::string_view path)>& wanted);

    SharedRecord<state::Order> record_;
};

}  // namespace kxsim
