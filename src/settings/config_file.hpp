// Keeping one setting in a line of a configuration file: appended when no line of the file is the
// setting's own, otherwise put in the place of every such line by a rewrite of the file.
//
// Both hold the lock of the file's directory, so agents that save at the same time take turns. A
// file that is a symbolic link stays one; FILE below is then the file at its end.
//
// A rewrite never works on the file itself. It writes the new text to "FILE.tmp" with the file's
// mode and owner (as far as the agent may give it away), flushes it to the disk, renames the file
// to "FILE.bk", the new text to FILE, and removes the backup. Whatever interrupts it, the old or
// the new text stands whole under one of the three names.
//
// Files are read as fgets would with a buffer of 256 bytes: a longer line comes as several pieces,
// each of which is looked at, stripped and written by itself.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kx::settings {

// Is a piece of the file, without leading blanks and tabs, the setting's own line?
using LineTest = std::function<bool(std::string_view)>;

enum class Saving {
    kUnopened,  // the file cannot be opened for reading and appending, or is kept locked
    kFailed,    // it cannot be read or written; its text is as it was
    kAppended,  // no line was the setting's; the new one stands at the end
    kPresent    // a line is the setting's; nothing was written
};

// Append a line (with its newline) to a file unless a line of it is the setting's own. The file is
// created when it is missing, for its owner to write and at most for all to read; its directory is
// not. A last line without newline gets one first.
[[nodiscard]] Saving append_unless_present(
    const char* path, std::string_view line, const LineTest& is_own);

// Rewrite a file with the new line (with its newline) in the place of every line that is the
// setting's own. Every other line loses its leading blanks and tabs. Only a regular file is
// rewritten. True on success. On failure
// the file is as it was; only when renaming fails may the new text stay behind as "FILE.tmp", and
// when the way back fails as well the old text as "FILE.bk".
[[nodiscard]] bool replace_lines(const char* path, std::string_view line, const LineTest& is_own);

}  // namespace kx::settings
