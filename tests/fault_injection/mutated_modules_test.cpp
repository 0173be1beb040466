// Ten thousand damaged module files: none ends the process, and each still counts as a module.
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>
#include <sys/utsname.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <kxsim/host.hpp>
#include <random>
#include <string>

#include "support/scratch_directory.hpp"

namespace {

constexpr int kFiles = 10000;

std::string whole_module(unsigned elf_class, bool big_endian) {
    kxsim::Host host;
    host.module(
        {.name = "zfab4",
         .version = "3.19.0.1",
         .description = "Ethernet driver",
         .elf_class = elf_class,
         .big_endian = big_endian});
    utsname kernel{};
    uname(&kernel);
    return host.read(std::string("/lib/modules/") + kernel.release + "/updates/zfab4.ko");
}

// A few bytes changed, most of them in the headers; now and then the end cut off.
std::string damaged(std::string file, std::mt19937& random) {
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    for (std::size_t count = 1 + below(8); count > 0; --count) {
        const std::size_t reach =
            below(2) == 0 ? std::min<std::size_t>(file.size(), 64) : file.size();
        file[below(reach)] = static_cast<char>(below(3) == 0 ? 0xFF : below(256));
    }
    if (below(8) == 0) {
        file.resize(1 + below(file.size()));
    }
    return file;
}

TEST(DamagedModuleFiles, EndNoProcess) {
    std::mt19937 random(20111);  // the same files each time
    const test::ScratchDirectory directory;
    const std::string file = directory / "module.ko";
    const std::array<std::string, 4> whole = {
        whole_module(64, false), whole_module(64, true), whole_module(32, false),
        whole_module(32, true)};
    std::string text = file;
    for (int k = 0; k < kFiles; ++k) {
        std::ofstream(file, std::ios::binary)
            << damaged(whole.at(static_cast<std::size_t>(k) % whole.size()), random);
        std::array<char, 256> version{};
        std::array<char, 256> description{};
        ASSERT_EQ(getModinfo(text.data(), version.data(), description.data()), KX_SUCCESS) << k;
        ASSERT_EQ(version.back(), '\0') << "255 bytes are the caller's";
        ASSERT_EQ(description.back(), '\0') << "255 bytes are the caller's";
    }
}

}  // namespace
