// The main() of the test programs. Several sources may share a program: under the name KIND_NOUN it
// runs the tests of NOUN_test.cpp. A program whose tests were all skipped ends with 77.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>

namespace {

// Of /path/NOUN_test.cpp: NOUN.
std::string noun_of(const char* source) {
    const std::string stem = std::filesystem::path(source).stem().string();
    return stem.substr(0, stem.rfind("_test"));
}

// Filters of the suites in one source, and of all others.
struct Suites {
    std::string own;
    std::string other;
};

Suites suites_of(std::string_view program) {
    Suites found;
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (int index = 0; index < all.total_test_suite_count(); ++index) {
        const testing::TestSuite& suite = *all.GetTestSuite(index);
        const std::string noun = noun_of(suite.GetTestInfo(0)->file());
        const bool is_own = program.ends_with("_" + noun) || program == noun;
        (is_own ? found.own : found.other) += std::string(suite.name()) + ".*:";
    }
    return found;
}

}  // namespace

int main(int count, char** arguments) {
    testing::InitGoogleMock(&count, arguments);
    const Suites suites = suites_of(std::filesystem::path(arguments[0]).filename().string());
    std::string& filter = testing::GTEST_FLAG(filter);
    if (!suites.own.empty() && !suites.other.empty()) {
        if (filter == "*") {
            filter = suites.own;
        } else {
            filter += (filter.find('-') == std::string::npos ? "-" : ":") + suites.other;
        }
    }
    const int result = RUN_ALL_TESTS();
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    constexpr int kSkipped = 77;
    const bool nothing_ran = all.skipped_test_count() > 0 && all.successful_test_count() == 0;
    return result == 0 && nothing_ran ? kSkipped : result;
}
