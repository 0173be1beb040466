#include "output/incomplete.hpp"

#include <algorithm>

#include "output/standard_streams.hpp"

namespace kx::ctl {

void Incomplete::put_into(Json& answer) const {
    if (!reasons_.empty()) {
        answer["incomplete"] = reasons_;
    }
}

ExitCode Incomplete::report() const {
    std::ranges::for_each(reasons_, complain);
    return reasons_.empty() ? ExitCode::kDone : ExitCode::kPartly;
}

}  // namespace kx::ctl
