#include "flash/recovery.hpp"

#include <fmt/core.h>

#include <algorithm>

#include "files/digest.hpp"
#include "files/signals_held.hpp"
#include "output/printable.hpp"

namespace kx::ctl {
namespace {

constexpr std::uint8_t kBlank = 0xFF;

using FlashBytes = std::span<const std::uint8_t>;

[[noreturn]] void refuse_adapter(const FlashCard& card, const std::string& why) {
    throw Failure(
        ExitCode::kNotFound,
        fmt::format("{}: the unfinished change is of another adapter: {}", card.location(), why));
}

[[noreturn]] void refuse_damaged(
    const FlashCard& card, const FlashEntry& entry, const std::string& damage) {
    throw Failure(
        ExitCode::kFailed,
        fmt::format(
            "{}: the journal of the unfinished change is damaged ({}); nothing was changed. Look "
            "at "
            "{} and at the flash, write what is missing after moving that directory away",
            card.location(), damage, entry.directory));
}

std::string or_unknown(const std::string& text) { return text.empty() ? "unknown" : text; }

// The change must be of this adapter, whatever slot it is in now.
void check_adapter(const FlashCard& card, const FlashRecord& record) {
    const std::string serial = printable(card.serial());
    if (record.serial != serial) {
        refuse_adapter(
            card, fmt::format(
                      "its serial number is {}, the number of this adapter is {}",
                      or_unknown(record.serial), or_unknown(serial)));
    }
    if (record.location != card.full_location() &&
        printable(card.serial_at(record.location)) == serial) {
        refuse_adapter(
            card, fmt::format("the adapter at {} has the same serial number", record.location));
    }
    if (record.chip != card.chip() || record.device_id != card.device_id()) {
        refuse_adapter(
            card,
            fmt::format(
                "it is a {} with device id {:04x}, this adapter is a {} with device id {:04x}",
                record.chip, record.device_id, card.chip(), card.device_id()));
    }
    if (record.sector_size != card.layout().sector_size() ||
        record.range.end > card.layout().size) {
        refuse_adapter(card, "the sectors of its flash differ");
    }
}

}  // namespace

const char* state_name(SectorState state) {
    static constexpr const char* kNames[] = {"both", "old", "new", "erased", "mixed"};
    return kNames[static_cast<std::size_t>(state)];
}

Recovery::Recovery(const FlashCard& card, const FlashEntry& entry) : card_(card) {
    if (!entry.record) {
        refuse_damaged(card, entry, entry.damage);
    }
    record_ = *entry.record;
    check_adapter(card, record_);
    try {
        contents_ = contents_of_change(entry);
    } catch (const Failure& failure) {
        refuse_damaged(card, entry, failure.what());
    }
    const std::vector<std::uint8_t> now = card.read(record_.range, "Reading " + record_.region);
    for (const Range& sector : content(true).sectors()) {
        sectors_.push_back(look_at(sector, now));
    }
}

SectorContent Recovery::content(bool with_new_content) const {
    return {
        record_.range, record_.sector_size, record_.first_page,
        with_new_content ? contents_.new_bytes : contents_.old_bytes};
}

SectorNow Recovery::look_at(const Range& sector, const std::vector<std::uint8_t>& now) const {
    const FlashBytes bytes =
        FlashBytes(now).subspan(sector.begin - record_.range.begin, sector.size());
    const bool is_old = std::ranges::equal(bytes, content(false).part(sector));
    const bool is_new = std::ranges::equal(bytes, content(true).part(sector));
    const bool is_blank = std::ranges::all_of(bytes, [](auto byte) { return byte == kBlank; });
    const SectorState state = is_old && is_new ? SectorState::kBoth
                              : is_old         ? SectorState::kOld
                              : is_new         ? SectorState::kNew
                              : is_blank       ? SectorState::kErased
                                               : SectorState::kMixed;
    return {sector, state, sha256(bytes)};
}

bool Recovery::is_complete(bool with_new_content) const {
    const SectorState wanted = with_new_content ? SectorState::kNew : SectorState::kOld;
    return std::ranges::all_of(sectors_, [&](const SectorNow& sector) {
        return sector.state == SectorState::kBoth || sector.state == wanted;
    });
}

void Recovery::finish(bool with_new_content, std::size_t keep) {
    const SectorState wanted = with_new_content ? SectorState::kNew : SectorState::kOld;
    std::vector<Range> different;
    for (const SectorNow& sector : sectors_) {
        if (sector.state != SectorState::kBoth && sector.state != wanted) {
            different.push_back(sector.range);
        }
    }
    Journal journal = journal_of(card_);
    journal.lock();
    card_.check_unmoved();
    const SignalsHeld held;
    try {
        rewrite(
            card_, content(with_new_content), different, record_.region,
            card_.location() +
                (with_new_content ? ": continuing the change" : ": taking the change back"));
        journal.close(record_.number, with_new_content ? kWritten : kRolledBack, keep);
    } catch (const Failure& failure) {
        throw left_unfinished(failure, card_.location());
    }
}

}  // namespace kx::ctl
