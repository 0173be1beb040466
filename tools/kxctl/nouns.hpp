// The functions of the command table, one namespace and one file a noun.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "command.hpp"

namespace kx::ctl {

struct Setting;

namespace card {
ExitCode list(const Arguments& arguments, Output& output);
ExitCode stats(const Arguments& arguments, Output& output);
}  // namespace card

namespace flash {
ExitCode info(const Arguments& arguments, Output& output);
ExitCode dump(const Arguments& arguments, Output& output);
ExitCode write_boot(const Arguments& arguments, Output& output);
ExitCode erase_boot(const Arguments& arguments, Output& output);
ExitCode config_show(const Arguments& arguments, Output& output);
ExitCode config_default(const Arguments& arguments, Output& output);
ExitCode config_erase(const Arguments& arguments, Output& output);
ExitCode config_write(const Arguments& arguments, Output& output);
}  // namespace flash

namespace module {
ExitCode list(const Arguments& arguments, Output& output);
}

namespace port {
ExitCode list(const Arguments& arguments, Output& output);
ExitCode show(const Arguments& arguments, Output& output);
ExitCode stats(const Arguments& arguments, Output& output);
ExitCode set(const Arguments& arguments, Output& output);
// The messages of a failed set, one a setting. The one about the MTU lacks the others' ending.
[[nodiscard]] std::vector<std::string> split_set_messages(std::string_view text);
}  // namespace port

namespace offload {
ExitCode show(const Arguments& arguments, Output& output);
ExitCode set(const Arguments& arguments, Output& output);
[[nodiscard]] std::span<const Setting> settings();
}  // namespace offload

namespace iwarp {
ExitCode show(const Arguments& arguments, Output& output);
ExitCode set(const Arguments& arguments, Output& output);
[[nodiscard]] std::span<const Setting> settings();
}  // namespace iwarp

namespace adapter {
ExitCode list(const Arguments& arguments, Output& output);
ExitCode show(const Arguments& arguments, Output& output);
}  // namespace adapter

namespace vpd {
ExitCode show(const Arguments& arguments, Output& output);
}  // namespace vpd

namespace vm {
ExitCode list(const Arguments& arguments, Output& output);
ExitCode start(const Arguments& arguments, Output& output);
ExitCode suspend(const Arguments& arguments, Output& output);
ExitCode resume(const Arguments& arguments, Output& output);
ExitCode reboot(const Arguments& arguments, Output& output);
ExitCode shutdown(const Arguments& arguments, Output& output);
}  // namespace vm

namespace vf {
ExitCode list(const Arguments& arguments, Output& output);
ExitCode attach(const Arguments& arguments, Output& output);
ExitCode detach(const Arguments& arguments, Output& output);
}  // namespace vf

namespace bridge {
ExitCode list(const Arguments& arguments, Output& output);
ExitCode attach(const Arguments& arguments, Output& output);
ExitCode detach(const Arguments& arguments, Output& output);
}  // namespace bridge

namespace metrics {
ExitCode run(const Arguments& arguments, Output& output);
}

namespace host_report {
ExitCode run(const Arguments& arguments, Output& output);
}

namespace restore {
ExitCode run(const Arguments& arguments, Output& output);
}

namespace repair {
ExitCode run(const Arguments& arguments, Output& output);
}

namespace version {
ExitCode show(const Arguments& arguments, Output& output);
}

}  // namespace kx::ctl
