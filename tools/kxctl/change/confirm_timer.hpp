// Takes a change back by itself when nobody confirms it in time, also when the session that made
// it is gone.
#pragma once

namespace kx::ctl {

// After this many seconds, "kxctl revert --unconfirmed NUMBER" runs: by a transient timer of
// systemd where systemd runs, else by a process of its own. Throws Failure.
void start_confirm_timer(unsigned number, double seconds);

// The timer of a change that was confirmed. (A process of its own finds that at its end.)
void stop_confirm_timer(unsigned number);

}  // namespace kx::ctl
