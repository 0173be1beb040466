// The library records every setting that it applies. While a setting is applied from the record
// itself, nothing is recorded: lines are matched by substring, so that writing back one line of the
// record may replace others (eth1.mtu is found in veth1.mtu).
#pragma once

namespace kx::ctl {

// How many settings were applied and could not be recorded since this was asked last. The library
// counts them as applied; who asked for them learns that they are lost with the next reboot.
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
