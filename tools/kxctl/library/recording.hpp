// The library records every setting that it applies. While a setting is applied from the record
// itself, nothing is recorded: lines are matched by substring, so that writing back one line of the
// record may replace others (eth1.mtu is found in veth1.mtu).
#pragma once

namespace kx::ctl {

// The number of settings that were applied but not recorded since the last call. The library counts
// them as applied; kxctl reports that the next reboot will lose them.
[[nodiscard]] unsigned take_unrecorded();

class RecordingPause {
public:
    RecordingPause() { paused_ = true; }
    ~RecordingPause() { paused_ = false; }
    RecordingPause(const RecordingPause&) = delete;
    RecordingPause& operator=(const RecordingPause&) = delete;

    static bool paused() { return paused_; }

private:
    static inline bool paused_ = false;
};

}  // namespace kx::ctl
