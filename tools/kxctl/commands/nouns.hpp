// The functions of the command table: one namespace and one file for each noun.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/command.hpp"

struct CardInfo;

namespace kx::ctl {

struct Setting;

namespace card {
Verb list, stats;
}  // namespace card

namespace flash {
Verb info, dump, write_boot, erase_boot, config_show, config_default, config_erase, config_write;
}  // namespace flash

namespace module {
Verb list;
}

namespace port {
Verb list, show, stats, set;
// The messages of a failed set call, one for each setting. The message about the MTU has no ";" at
// its end.
[[nodiscard]] std::vector<std::string> split_set_messages(std::string_view text);
}  // namespace port

namespace offload {
Verb show, set;
[[nodiscard]] std::span<const Setting> settings();
// Throws the failure of a card that has no offload engine.
void must_have_engine(const CardInfo& card);
}  // namespace offload

namespace iwarp {
Verb show, set;
[[nodiscard]] std::span<const Setting> settings();
}  // namespace iwarp

namespace adapter {
Verb list, show;
}  // namespace adapter

namespace vpd {
Verb show;
}  // namespace vpd

namespace vm {
Verb list, start, suspend, resume, reboot, shutdown;
}  // namespace vm

namespace vf {
Verb list, attach, detach;
}  // namespace vf

namespace bridge {
Verb list, attach, detach;
}  // namespace bridge

namespace metrics {
Verb run;
}

namespace host_report {
Verb run;
}

namespace restore {
Verb run;
}

namespace repair {
Verb run;
}

namespace version {
Verb show;
}

}  // namespace kx::ctl
