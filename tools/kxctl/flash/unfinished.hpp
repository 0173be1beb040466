// The unfinished changes of all flashes, for commands that do not work on a flash themselves.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "flash/transaction.hpp"
#include "output/json.hpp"

namespace kx::ctl {

class UnfinishedChanges {
public:
    // Reads the journal; no adapter is touched.
    UnfinishedChanges();

    // Nothing is unfinished, and that is certain.
    [[nodiscard]] bool none() const { return entries_.empty() && !unread_; }
    // One for each change: what is not finished, and the command that ends it.
    [[nodiscard]] std::vector<std::string> lines() const;
    // The changes; null when the journal could not be read.
    [[nodiscard]] Json json() const;

private:
    std::vector<FlashEntry> entries_;
    std::optional<std::string> unread_;  // why the journal could not be read
};

}  // namespace kx::ctl
