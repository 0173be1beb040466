// Machines without an adapter.
#pragma once

#include "failure/failure.hpp"

namespace kx::ctl {

// Whether a failure says only that this machine has no adapter: then a list is empty, which is no
// failure. The library fails in the same way when an adapter has no driver. Throws Failure when the
// PCI bus cannot be read.
[[nodiscard]] bool says_no_adapter(const Failure& failure);

// The sentence for an empty list.
[[nodiscard]] std::string no_adapter_text();

// The records of a query; none when the machine has no adapter.
template <class Query>
[[nodiscard]] auto none_without_adapter(Query query) {
    try {
        return query();
    } catch (const Failure& failure) {
        if (!says_no_adapter(failure)) {
            throw;
        }
        return decltype(query()){};
    }
}

}  // namespace kx::ctl
