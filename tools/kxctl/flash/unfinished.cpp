#include "flash/unfinished.hpp"

#include <fmt/core.h>

namespace kx::ctl {
namespace {

std::string line_of(const FlashEntry& entry) {
    if (!entry.record) {
        return fmt::format(
            "a change of a flash is not finished, and its record is damaged: {}: {}",
            entry.directory, entry.damage);
    }
    const FlashRecord& record = *entry.record;
    return fmt::format(
        "{}: \"{}\" of {} is not finished: \"{}\" continues it or takes it back", record.location,
        record.command, record.started, recover_command(record.location));
}

}  // namespace

UnfinishedChanges::UnfinishedChanges() {
    try {
        entries_ = unfinished_entries();
    } catch (const Failure& failure) {
        unread_ = failure.what();
    }
}

std::vector<std::string> UnfinishedChanges::lines() const {
    std::vector<std::string> all;
    for (const FlashEntry& entry : entries_) {
        all.push_back(line_of(entry));
    }
    if (unread_) {
        all.push_back("whether a change of a flash is not finished is not known: " + *unread_);
    }
    return all;
}

Json UnfinishedChanges::json() const { return unread_ ? Json() : json_array(entries_, entry_json); }

}  // namespace kx::ctl
