// What could not be read of the host while a command ran. Functions of the library return no
// failure for most of it: their answer then lacks the data.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::ctl {

// May be called where nothing may be thrown. object: a path, or an interface with what was asked of
// its driver. The same reason counts once.
void note_unread(std::string_view object, int reason) noexcept;
void note_no_memory() noexcept;
// What is missing when no call failed that has a reason of its own.
void note_missing(std::string_view what) noexcept;

// Whether an object with this ending could not be read.
[[nodiscard]] bool is_unread(std::string_view ending);

// What the answer does not need after all.
void forget_unread(const std::function<bool(std::string_view object)>& is_of_others);

// "OBJECT: REASON" of each, in the order in which they were noted.
[[nodiscard]] const std::vector<std::string>& unread_reasons();
[[nodiscard]] std::vector<std::string> take_unread_reasons();

}  // namespace kx::ctl
