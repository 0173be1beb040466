// The two families of calls that take a path: path first, and directory descriptor then path.
// A wrapper is one line that names its function and its kind.
#pragma once

#include <fcntl.h>

#include <type_traits>

#include "preload/interception.hpp"
#include "preload/target.hpp"
#include "process/next.hpp"

namespace kxsim::preload {

struct Kind {
    state::Call call;
    Intent intent = Intent::kUse;
};

// The errno with which a call on a path fails before it reaches the C library, or 0.
[[nodiscard]] inline int stopped(Kind kind, const Target& target) {
    if (const int error = intercept(kind.call, target.name()); error != 0) {
        return error;
    }
    const int error = target.refusal();
    if (error != 0) {
        note_refusal(error);
    }
    return error;
}

template <FunctionName kName, class Function, class... Rest>
auto on_path(Kind kind, const char* path, Rest... rest) {
    using Result = std::invoke_result_t<Function*, const char*, Rest...>;
    const Target target(AT_FDCWD, path, kind.intent);
    if (const int error = stopped(kind, target); error != 0) {
        return refuse<Result>(error);
    }
    return next<kName, Function>()(target.path(), rest...);
}

template <FunctionName kName, class Function, class... Rest>
auto on_path_at(Kind kind, int directory, const char* path, Rest... rest) {
    using Result = std::invoke_result_t<Function*, int, const char*, Rest...>;
    const Target target(directory, path, kind.intent);
    if (const int error = stopped(kind, target); error != 0) {
        return refuse<Result>(error);
    }
    return next<kName, Function>()(directory, target.path(), rest...);
}

}  // namespace kxsim::preload
