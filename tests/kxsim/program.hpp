// Running kxsim.
#pragma once

#include <sys/wait.h>

#include <filesystem>
#include <string>

#include "support/scratch_directory.hpp"
#include "support/shell.hpp"

namespace test {

// The directory of this test program; kxsim lies one directory above.
inline std::filesystem::path test_directory() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

inline std::string kxsim() { return (test_directory().parent_path() / "kxsim").string(); }

// For the environment of a command: it loads the library. LD_PRELOAD holds no path with a blank.
inline std::string preloaded() {
    static const ScratchDirectory directory("/tmp");
    const std::string link = directory / "libkxsim.so";
    if (!std::filesystem::is_symlink(link)) {
        std::filesystem::create_symlink(test_directory().parent_path() / "libkxsim.so", link);
    }
    return "LD_PRELOAD=" + link + " ";
}

struct Outcome {
    int code;
    std::string output;  // standard output and standard error
};

inline Outcome kxsim(const std::string& arguments) {
    const auto [status, output] = shell(shell_word(kxsim()) + " " + arguments + " 2>&1");
    return {WEXITSTATUS(status), output};
}

inline Outcome on_lab(const std::string& script) {
    return kxsim("run -- sh -c " + shell_word(script));
}

// A statically linked program that prints "ran"; empty when none can be built here.
inline std::string static_program(const ScratchDirectory& directory) {
    const std::string source = directory.write(
        "static.c", "#include <stdio.h>\nint main(void) { return puts(\"ran\") < 0; }\n");
    const std::string program = directory / "static";
    return shell("cc -static -o " + shell_word(program) + " " + shell_word(source) + " 2>&1")
                       .status == 0
               ? program
               : "";
}

}  // namespace test
