#include "settings/open_change.hpp"

#include <unistd.h>

#include <string>

#include "failure/failure.hpp"

namespace kx::ctl {

Journal change_journal() { return {"changes", "host"}; }

void refuse_open_change() {
    const Journal journal = change_journal();
    if (!journal.has_open()) {
        return;
    }
    const std::string result = journal.open_directory() + "/" + kChangeResult;
    throw Failure(
        ExitCode::kBusy,
        access(result.c_str(), F_OK) == 0
            ? "An earlier change waits: first run \"kxctl confirm\" to keep it or \"kxctl revert\" "
              "to take it back"
            : "An earlier change is not finished: first run \"kxctl revert\" to take it back");
}

}  // namespace kx::ctl
