// A journal of changes that must survive a crash. Each subject of an area (for the area "flash":
// each adapter) has a directory that only root may read:
//
//     /var/lib/kxctl/AREA/SUBJECT/open/            the files of its unfinished change
//     /var/lib/kxctl/AREA/SUBJECT/done/17.NAME/    the files of change 17, which ended as NAME
//
// A change is open or done by the name of its directory, and a rename is one step: whenever the
// power fails, a subject has a complete open change or none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "files/descriptor.hpp"

namespace kx::ctl {

struct JournalFile {
    std::string_view name;
    std::span<const std::uint8_t> bytes;
};

// A change that is done.
struct DoneChange {
    unsigned number;
    std::string outcome;
    std::string directory;
};

class Journal {
public:
    // Creates nothing. subject: any text; the name of its directory has "%2F" for "/" and so on.
    Journal(std::string_view area, std::string_view subject);

    // The journals of all subjects of an area, in the order of their directories' names. Throws
    // Failure when they cannot be read.
    [[nodiscard]] static std::vector<Journal> all(std::string_view area);

    [[nodiscard]] const std::string& directory() const { return directory_; }
    [[nodiscard]] std::string open_directory() const { return directory_ + "/open"; }
    [[nodiscard]] bool has_open() const;
    // The changes that are done, the newest first.
    [[nodiscard]] std::vector<DoneChange> done() const;

    // Create the directory, and let no other process open or close a change of this subject while
    // this object exists. Throws Failure: kBusy when another process does.
    void lock();

    // The number of the next change.
    [[nodiscard]] unsigned next_number() const;

    // Open a change: all files and names are on the disk when this returns. Throws Failure, and no
    // change is open then. Needs lock().
    void open(std::span<const JournalFile> files) const;

    // The open change is done; keep the `keep` newest of those that are done. Throws Failure when
    // the change stays open. Needs lock().
    void close(unsigned number, std::string_view outcome, std::size_t keep) const;

private:
    explicit Journal(std::string directory) : directory_(std::move(directory)) {}

    std::string directory_;
    Descriptor lock_;
};

}  // namespace kx::ctl
