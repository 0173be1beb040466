// The journal of flash changes: before the first erase, a change has its record and the content of
// its sectors before and after it on the disk. After an interruption, each sector can then get the
// old content or the new one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "failure/failure.hpp"
#include "files/journal.hpp"
#include "flash/card.hpp"
#include "flash/record.hpp"
#include "output/json.hpp"

namespace kx::ctl {

inline constexpr char kFlashArea[] = "flash";
inline constexpr char kOldContent[] = "old.bin";
inline constexpr char kNewContent[] = "new.bin";
inline constexpr char kUnfinished[] = "unfinished";
inline constexpr char kWritten[] = "written";         // a change that ended with its new content
inline constexpr char kRolledBack[] = "rolled-back";  // and one that ended with the old content

// A change in a directory of the journal.
struct FlashEntry {
    std::string directory;
    std::string state;                  // kUnfinished, kWritten, kRolledBack
    std::optional<FlashRecord> record;  // nothing when it is damaged
    std::string damage;                 // what is wrong with it
};

[[nodiscard]] Json entry_json(const FlashEntry& entry);

// Every change of every adapter: unfinished ones first for each adapter, then the newest first.
[[nodiscard]] std::vector<FlashEntry> flash_entries();

// The unfinished change of each adapter that has one.
[[nodiscard]] std::vector<FlashEntry> unfinished_entries();

// Whether a change belongs to an adapter, as far as the record says: by its serial number, or by
// its location when one of the two serial numbers is unknown.
[[nodiscard]] bool is_of(const FlashEntry& entry, const FlashCard& card);

// The unfinished change that concerns an adapter.
[[nodiscard]] std::optional<FlashEntry> unfinished_change(const FlashCard& card);

// "kxctl flash recover 03:00.4"
[[nodiscard]] std::string recover_command(const std::string& location);

// Throws Failure (kBusy) when the adapter has an unfinished change.
void refuse_unfinished(const FlashCard& card);

// The journal of an adapter, and the one that an unfinished change is in.
[[nodiscard]] Journal journal_of(const FlashCard& card);
[[nodiscard]] Journal journal_of(const FlashEntry& entry);

// The digest of what is beside the sectors of a change.
[[nodiscard]] std::string digest_beside(const FlashCard& card, const Range& sectors);

// The old and the new content of an unfinished change, compared with the digests of its record.
// Throws Failure when they are damaged.
struct BothContents {
    std::vector<std::uint8_t> old_bytes;
    std::vector<std::uint8_t> new_bytes;
};
[[nodiscard]] BothContents contents_of_change(const FlashEntry& entry);

// Fill in the number, the time, the user and the versions, and open the change in the journal.
void open_change(
    const Journal& journal, FlashRecord& record, std::span<const std::uint8_t> old_bytes,
    std::span<const std::uint8_t> new_bytes);

// The failure of a change that has begun: kVerification stays, any other code becomes kPartly. The
// text names the command that finishes the change or takes it back.
[[nodiscard]] Failure left_unfinished(const Failure& failure, const std::string& location);

}  // namespace kx::ctl
