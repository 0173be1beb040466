// The functions of the command table, one namespace and one file a noun.
#pragma once

#include "command.hpp"

namespace kx::ctl {

namespace card {
ExitCode list(const Arguments& arguments, Output& output);
}

namespace module {
ExitCode list(const Arguments& arguments, Output& output);
}

namespace port {
ExitCode list(const Arguments& arguments, Output& output);
}

namespace version {
ExitCode show(const Arguments& arguments, Output& output);
}

}  // namespace kx::ctl
