// Keeps one setting in a line of a configuration file. When no line of the file belongs to the
// setting, the line is appended; otherwise the file is rewritten with the new line in place of
// every such line.
//
// Both hold the lock of the file's directory, so that only one agent records at a time. When the
// file is a symbolic link, the link stays; FILE below is then the file that it leads to.
//
// A rewrite never changes the file itself. It writes the new text to "FILE.tmp" with the file's
// mode and owner (as far as the agent may set them), flushes it to the disk, renames the file to
// "FILE.bk" and the new text to FILE, and removes the backup. If it is interrupted, one of the
// three files contains the complete old or new text.
//
// Files are read as fgets would with a buffer of 256 bytes: a longer line gives several pieces,
// each of which is compared, stripped and written separately.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kx::settings {

// Does a piece of the file, without leading blanks and tabs, belong to the setting?
using LineTest = std::function<bool(std::string_view)>;

enum class Saving {
    kUnopened,  // the file cannot be opened for reading and appending, or stays locked
    kFailed,    // it cannot be read or written; its text did not change
    kAppended,  // no line belonged to the setting; the new line was appended
    kPresent    // a line belongs to the setting; nothing was written
};

// Append a line (with its newline) to a file unless one of its lines belongs to the setting.
// Creates a missing file, which its owner may write and all others may at most read; does not
// create its directory. When the last line has no newline, it gets one first.
[[nodiscard]] Saving append_unless_present(
    const char* path, std::string_view line, const LineTest& is_own);

// Rewrite a file with the new line (with its newline) in place of every line that belongs to the
// setting. All other lines lose their leading blanks and tabs. Only a regular file is rewritten.
// True on success. On failure the file does not change; but when a rename fails, the new text may
// stay as "FILE.tmp", and when undoing the first rename fails too, the old text as "FILE.bk".
[[nodiscard]] bool replace_lines(const char* path, std::string_view line, const LineTest& is_own);

}  // namespace kx::settings
