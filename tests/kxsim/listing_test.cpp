// The order in which directories of the simulated host list their entries.
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <kxsim/host.hpp>
#include <map>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

template <class Entry>
std::vector<std::string> list(DIR* directory, Entry* (*read)(DIR*)) {
    std::vector<std::string> names;
    while (const Entry* entry = read(directory)) {
        names.emplace_back(entry->d_name);
    }
    return names;
}

std::vector<std::string> list(const char* path) {
    DIR* const directory = opendir(path);
    if (directory == nullptr) {
        return {"cannot be opened"};
    }
    const std::vector<std::string> names = list(directory, &readdir);
    closedir(directory);
    return names;
}

class Listing : public testing::Test {
protected:
    Listing() : attached_(host_.attach()) {
        for (const char* name : {"eth10", "eth2", "lo", "ens1f4"}) {
            host_.interface({.name = name});
        }
    }

    kxsim::Host host_;
    kxsim::Attached attached_;
};

TEST_F(Listing, GivesEntriesInTheOrderOfMaking) {
    EXPECT_THAT(list("/sys/class/net"), ElementsAre(".", "..", "eth10", "eth2", "lo", "ens1f4"));
}

TEST_F(Listing, CanBeGivenAnotherOrderWhoseRestFollowsByName) {
    host_.order("/sys/class/net", {"lo", "eth2", "nosuch"});
    EXPECT_THAT(list("/sys/class/net"), ElementsAre(".", "..", "lo", "eth2", "ens1f4", "eth10"));
}

TEST_F(Listing, PutsWhatIsMadeAgainLast) {
    host_.remove_interface("eth10");
    host_.interface({.name = "eth10"});
    EXPECT_THAT(list("/sys/class/net"), ElementsAre(".", "..", "eth2", "lo", "ens1f4", "eth10"));
}

TEST_F(Listing, KeepsThePlaceOfWhatIsReplaced) {
    for (const char* name : {"b", "a", "c"}) {
        host_.file(std::string("/lib/modules/x/") + name, "old");
    }
    host_.file("/lib/modules/x/a", "new");
    EXPECT_THAT(list("/lib/modules/x"), ElementsAre(".", "..", "b", "a", "c"));
}

TEST_F(Listing, GivesTheNewestPciDeviceFirst) {
    host_.pci_device({.location = "01:00.0"});
    host_.pci_device({.location = "00:00.0"});
    EXPECT_THAT(
        list("/sys/bus/pci/devices"), ElementsAre(".", "..", "0000:00:00.0", "0000:01:00.0"));
}

TEST_F(Listing, GivesANewPciDeviceBeforeThoseThatWerePutInOrder) {
    for (const char* location : {"01:00.0", "02:00.0", "03:00.0"}) {
        host_.pci_device({.location = location});
    }
    host_.order("/sys/bus/pci/devices", {"0000:02:00.0", "0000:03:00.0", "0000:01:00.0"});
    host_.pci_device({.location = "04:00.0"});
    EXPECT_THAT(
        list("/sys/bus/pci/devices"),
        ElementsAre(".", "..", "0000:04:00.0", "0000:02:00.0", "0000:03:00.0", "0000:01:00.0"));
}

TEST_F(Listing, ForgetsTheOrderOfWhatIsRemoved) {
    for (const char* name : {"b", "a"}) {
        host_.file(std::string("/lib/modules/x/") + name, "");
        host_.file(std::string("/lib/modules/xy/") + name, "");
    }
    host_.remove("/lib/modules/x");
    for (const char* name : {"a", "b"}) {
        host_.file(std::string("/lib/modules/x/") + name, "");
    }
    EXPECT_THAT(list("/lib/modules/x"), ElementsAre(".", "..", "a", "b"));
    EXPECT_THAT(list("/lib/modules/xy"), ElementsAre(".", "..", "b", "a"));
}

TEST_F(Listing, IsTheSameForReaddir64AndAfterRewinding) {
    DIR* const directory = opendir("/sys/class/net");
    ASSERT_NE(directory, nullptr);
    const std::vector<std::string> first = list(directory, &readdir64);
    rewinddir(directory);
    EXPECT_THAT(list(directory, &readdir), ElementsAreArray(first));
    closedir(directory);
    const int descriptor = open("/sys/class/net", O_RDONLY | O_DIRECTORY);
    DIR* const again = fdopendir(descriptor);
    EXPECT_THAT(list(again, &readdir64), ElementsAreArray(first));
    closedir(again);
}

TEST_F(Listing, CanBeLeftAndFoundAgain) {
    DIR* const directory = opendir("/sys/class/net");
    readdir(directory);
    readdir(directory);
    const long place = telldir(directory);
    const std::string name = readdir(directory)->d_name;
    readdir(directory);
    seekdir(directory, place);
    EXPECT_EQ(readdir(directory)->d_name, name);
    closedir(directory);
}

TEST_F(Listing, SeveralMayBeReadAtATime) {
    host_.file("/lib/modules/x/only", "");
    DIR* const one = opendir("/sys/class/net");
    DIR* const other = opendir("/lib/modules/x");
    readdir(one);
    readdir(other);
    EXPECT_THAT(list(other, &readdir), ElementsAre("..", "only"));
    EXPECT_THAT(list(one, &readdir), ElementsAre("..", "eth10", "eth2", "lo", "ens1f4"));
    closedir(one);
    closedir(other);
}

std::map<std::string, unsigned> types_in(const char* path) {
    std::map<std::string, unsigned> types;
    DIR* const directory = opendir(path);
    while (const dirent* entry = readdir(directory)) {
        types[entry->d_name] = entry->d_type;
    }
    closedir(directory);
    return types;
}

TEST_F(Listing, TellsOrHidesTheTypesOfEntries) {
    host_.file("/lib/modules/x/file", "");
    host_.directory("/lib/modules/x/directory");
    host_.link("/lib/modules/x/link", "file");
    auto types = types_in("/lib/modules/x");
    EXPECT_EQ(types["file"], DT_REG);
    EXPECT_EQ(types["directory"], DT_DIR);
    EXPECT_EQ(types["link"], DT_LNK);
    host_.hide_entry_types();
    for (const auto& [name, type] : types_in("/lib/modules/x")) {
        EXPECT_EQ(type, DT_UNKNOWN) << name;
    }
}

TEST_F(Listing, LeavesDirectoriesOfTheRealMachineAlone) {
    EXPECT_THAT(list("/proc/self/task"), testing::SizeIs(testing::Ge(3U)));
    EXPECT_THAT(list("/proc/self/nosuch"), ElementsAre("cannot be opened"));
}

TEST_F(Listing, OfManyEntriesIsComplete) {
    std::vector<std::string> expected{".", ".."};
    for (int i = 500; i > 0; --i) {
        expected.push_back("f" + std::to_string(i));
        host_.file("/lib/modules/many/" + expected.back(), "");
    }
    EXPECT_THAT(list("/lib/modules/many"), ElementsAreArray(expected));
}

}  // namespace
