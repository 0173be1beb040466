// The functions of the command table, one namespace and one file a noun.
#pragma once

#include "command.hpp"

namespace kx::ctl {

namespace card {
ExitCode list(const Arguments& arguments, Output& output);
ExitCode stats(const Arguments& arguments, Output& output);
}  // namespace card

namespace module {
ExitCode list(const Arguments& arguments, Output& output);
}

namespace offload {
ExitCode show(const Arguments& arguments, Output& output);
}

namespace port {
ExitCode list(const Arguments& arguments, Output& output);
ExitCode show(const Arguments& arguments, Output& output);
ExitCode stats(const Arguments& arguments, Output& output);
}  // namespace port

namespace version {
ExitCode show(const Arguments& arguments, Output& output);
}

}  // namespace kx::ctl
