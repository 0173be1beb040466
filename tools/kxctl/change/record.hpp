// The journal of changes: the record of a change is on the disk before its first step, its result
// before it counts as done.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "change/saved_file.hpp"
#include "change/step.hpp"
#include "files/journal.hpp"
#include "output/json.hpp"

namespace kx::ctl {

inline constexpr char kUnfinishedChange[] = "unfinished";  // its process was killed
inline constexpr char kWaiting[] = "unconfirmed";          // it waits for "kxctl confirm"
inline constexpr char kApplied[] = "applied";
inline constexpr char kPartly[] = "partly";      // some steps failed, the others stayed
inline constexpr char kReverted[] = "reverted";  // everything is as before

struct ChangeRecord {
    unsigned number = 0;
    std::string command = {};  // the whole command line
    std::string started = {};  // "2026-01-31T12:00:00Z"
    std::string user = {};
    unsigned user_id = 0;
    std::string boot_id = {};
    std::string kxctl_version = {};
    std::string library_version = {};
    double confirm_within = 0;  // seconds; 0 when nobody has to confirm
    unsigned reverts = 0;       // the number of the change that this one takes back; 0 for none
    std::vector<StepTarget> targets = {};
    std::vector<Step> steps = {};
    std::vector<SavedFile> files = {};  // before the change
};

// What a change ended with; the values and refusals of the steps are in the steps of the record.
struct ChangeResult {
    std::string finished = {};
    std::string remark = {};            // such as why it was reverted
    std::vector<SavedFile> files = {};  // after the change
};

// A change in the journal.
struct ChangeEntry {
    unsigned number = 0;  // 0 when an open change is damaged
    std::string state;
    std::string directory;
    std::optional<ChangeRecord> record;  // nothing when it is damaged
    std::optional<ChangeResult> result;  // nothing when it never came that far
    std::string damage;                  // what is wrong with it

    [[nodiscard]] bool is_open() const { return state == kUnfinishedChange || state == kWaiting; }
};

// The open change of the host.
[[nodiscard]] std::optional<ChangeEntry> open_entry();

// Every change: the open one, then the newest first.
[[nodiscard]] std::vector<ChangeEntry> change_entries();

// Fill in who, when and the versions, and open the change. Throws Failure; nothing is open then.
void open_record(const Journal& journal, ChangeRecord& record);

// Write the result of the open change; steps are those of its record. Throws Failure.
void write_result(
    const Journal& journal, const std::vector<Step>& steps, const ChangeResult& result);

// The open change is done. Throws Failure; it stays open then.
void close_record(const Journal& journal, unsigned number, std::string_view outcome);

}  // namespace kx::ctl
