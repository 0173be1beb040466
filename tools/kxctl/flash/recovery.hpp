// What an unfinished change left in a flash, sector by sector, and finishing it or taking it back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "flash/card.hpp"
#include "flash/rewrite.hpp"
#include "flash/transaction.hpp"

namespace kx::ctl {

enum class SectorState : std::uint8_t { kBoth, kOld, kNew, kErased, kMixed };

struct SectorNow {
    Range range;
    SectorState state;
    std::string digest;  // SHA-256 of what is there now
};

[[nodiscard]] const char* state_name(SectorState state);  // "both", "old", ...

class Recovery {
public:
    // Reads the change and the sectors of the flash. Throws Failure when the change is damaged, or
    // when it is of another adapter.
    Recovery(const FlashCard& card, const FlashEntry& entry);

    // Without a serial number the adapter is known by its location and by what is in its flash
    // beside the sectors of the change.
    [[nodiscard]] bool is_by_content() const { return by_content_; }
    // It had a serial number when the change began, or has one only now.
    [[nodiscard]] bool is_doubtful() const { return doubtful_; }

    [[nodiscard]] const FlashRecord& record() const { return record_; }
    [[nodiscard]] const std::vector<SectorNow>& sectors() const { return sectors_; }

    // Whether the sectors have that content already.
    [[nodiscard]] bool is_complete(bool with_new_content) const;

    // Give the sectors the new content, or the old content; the change is done then. Only the
    // sectors that differ are written. Throws Failure; the change stays unfinished then.
    void finish(bool with_new_content, std::size_t keep);

private:
    [[nodiscard]] SectorContent content(bool with_new_content) const;
    [[nodiscard]] SectorNow look_at(
        const Range& sector, const std::vector<std::uint8_t>& now) const;

    void check_adapter();
    void check_content() const;

    const FlashCard& card_;
    const FlashEntry& entry_;
    FlashRecord record_;
    bool by_content_ = false;
    bool doubtful_ = false;
    BothContents contents_;
    std::vector<SectorNow> sectors_;
};

}  // namespace kx::ctl
