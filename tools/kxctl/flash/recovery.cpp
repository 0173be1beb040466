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

}  // namespace

const char* state_name(SectorState state) {
    static constexpr const char* kNames[] = {"both", "old", "new", "erased", "mixed"};
    return kNames[static_cast<std::size_t>(state)];
}

// The change must be of this adapter, whatever slot it is in now.
void Recovery::check_adapter() {
    const std::string serial = printable(card_.serial());
    if (record_.chip != card_.chip() || record_.device_id != card_.device_id()) {
        refuse_adapter(
            card_,
            fmt::format(
                "it is a {} with device id {:04x}, this adapter is a {} with device id {:04x}",
                record_.chip, record_.device_id, card_.chip(), card_.device_id()));
    }
    if (record_.sector_size != card_.layout().sector_size() ||
        record_.range.end > card_.layout().size) {
        refuse_adapter(card_, "the sectors of its flash differ");
    }
    if (record_.serial.empty() || serial.empty()) {
        check_content();
        by_content_ = true;
        doubtful_ = record_.serial != serial;
    } else if (record_.serial != serial) {
        refuse_adapter(
            card_, fmt::format(
                       "its serial number is {}, the number of this adapter is {}", record_.serial,
                       serial));
    } else if (
        record_.location != card_.full_location() &&
        printable(card_.serial_at(record_.location)) == serial) {
        refuse_adapter(
            card_, fmt::format("the adapter at {} has the same serial number", record_.location));
    }
}

// Nobody changed what is beside the sectors since the change began.
void Recovery::check_content() const {
    const auto refuse = [this](const std::string& why) {
        refuse_adapter(
            card_, fmt::format(
                       "its serial number is {}, the number of this adapter is {}, {}",
                       or_unknown(record_.serial), or_unknown(printable(card_.serial())), why));
    };
    if (record_.location != card_.full_location()) {
        refuse("and it was at " + record_.location);
    }
    if (record_.rest_digest.empty()) {
        refuse("and the record does not say what is beside the sectors of the change");
    }
    if (digest_beside(card_, record_.range) != record_.rest_digest) {
        refuse("and what is in the flash beside the sectors of the change differs");
    }
}

Recovery::Recovery(const FlashCard& card, const FlashEntry& entry) : card_(card), entry_(entry) {
    if (!entry.record) {
        refuse_damaged(card, entry, entry.damage);
    }
    record_ = *entry.record;
    check_adapter();
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
    Journal journal = journal_of(entry_);
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
