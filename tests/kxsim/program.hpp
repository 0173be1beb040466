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

struct Outcome {
    int code;
    std::string output;  // standard output and standard error
};

inline Outcome kxsim(const std::string& arguments) {
    const auto [status, output] = shell(kxsim() + " " + arguments + " 2>&1");
    return {WEXITSTATUS(status), output};
}

inline Outcome on_lab(const std::string& script) { return kxsim("run -- sh -c '" + script + "'"); }

// A statically linked program that prints "ran"; empty when none can be built here.
inline std::string static_program(const ScratchDirectory& directory) {
    const std::string source = directory.write(
        "static.c", "#include <stdio.h>\nint main(void) { return puts(\"ran\") < 0; }\n");
    const std::string program = directory / "static";
    return shell("cc -static -o " + program + " " + source + " 2>&1").status == 0 ? program : "";
}

}  // namespace test
