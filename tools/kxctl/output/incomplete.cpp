#include "output/incomplete.hpp"

#include <algorithm>

#include "output/standard_streams.hpp"

namespace kx::ctl {

void Incomplete::add(const std::string& reason) {
    if (std::ranges::find(reasons_, reason) == reasons_.end()) {
        reasons_.push_back(reason);
    }
}

void Incomplete::add(const std::vector<std::string>& reasons) {
    for (const std::string& reason : reasons) {
        add(reason);
    }
}

void Incomplete::put_into(Json& answer) const {
    if (!reasons_.empty()) {
        answer["incomplete"] = reasons_;
    }
}

void Incomplete::complain_once() {
    std::ranges::for_each(reasons_, complain);
    told_ += reasons_.size();
    reasons_.clear();
}

ExitCode Incomplete::code(ExitCode code) const {
    return code == ExitCode::kDone && told_ + reasons_.size() > 0 ? ExitCode::kPartly : code;
}

}  // namespace kx::ctl
