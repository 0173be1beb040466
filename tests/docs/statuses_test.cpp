// Compares docs/statuses.md with the headers, the library and kxctl: every status has a row, and
// its name, number, text and exit code are right.
#include <gtest/gtest.h>
#include <kxlinhw/kxlinhw.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <sstream>

#include "failure/exit_code.hpp"
#include "support/file_text.hpp"

namespace {

struct Row {
    long status;
    std::string name;
    std::string text;
    std::string meaning;
    std::string remedy;
    std::string exit_code;
};

std::string trimmed(const std::string& cell) {
    const std::size_t begin = cell.find_first_not_of(" `");
    return begin == cell.npos ? "" : cell.substr(begin, cell.find_last_not_of(" `") + 1 - begin);
}

std::optional<Row> row_of(const std::string& line) {
    static const std::regex kRow(R"(\| -?\d+ \|.*)");
    if (!std::regex_match(line, kRow)) {
        return std::nullopt;
    }
    std::vector<std::string> cells;
    std::istringstream stream(line);
    for (std::string cell; std::getline(stream, cell, '|');) {
        cells.push_back(trimmed(cell));
    }
    if (cells.size() != 7) {
        ADD_FAILURE() << "not six columns: " << line;
        return std::nullopt;
    }
    return Row{std::stol(cells[1]), cells[2], cells[3], cells[4], cells[5], cells[6]};
}

std::vector<Row> rows() {
    std::vector<Row> all;
    std::ifstream page(KX_DOCS "/statuses.md");
    for (std::string line; std::getline(page, line);) {
        if (const auto row = row_of(line)) {
            all.push_back(*row);
        }
    }
    return all;
}

// The enumerators of the headers' enumerations whose name ends in "Status", and the two statuses
// that stand alone, with their values.
std::map<std::string, long> statuses_of_headers() {
    static const std::regex kEnumeration(R"(enum Kx\w*Status \{([^}]*)\})");
    static const std::regex kEnumerator(R"((KX_\w+) = (-?\d+))");
    std::map<std::string, long> all = {
        {"KX_ADAPTER_INVALID", KX_ADAPTER_INVALID}, {"KX_Q3_BAD_IMAGE", KX_Q3_BAD_IMAGE}};
    for (const auto& header : std::filesystem::directory_iterator(KX_HEADERS)) {
        const std::string text = test::file_text(header.path());
        for (std::sregex_iterator found(text.begin(), text.end(), kEnumeration), end; found != end;
             ++found) {
            const std::string body = (*found)[1];
            for (std::sregex_iterator one(body.begin(), body.end(), kEnumerator); one != end;
                 ++one) {
                all.emplace((*one)[1], std::stol((*one)[2]));
            }
        }
    }
    return all;
}

TEST(StatusPage, HasTheStatusesOfTheHeadersAndNoOthers) {
    std::map<std::string, long> described;
    for (const Row& row : rows()) {
        EXPECT_TRUE(described.emplace(row.name, row.status).second) << row.name;
    }
    EXPECT_EQ(described, statuses_of_headers());
}

TEST(StatusPage, HasTheLibrarysTexts) {
    std::map<long, std::string> texts;
    for (const Row& row : rows()) {
        texts[row.status] += row.text;
    }
    for (long status = -300; status < 1000; ++status) {
        const char* const text = GetErrStr(static_cast<int32_t>(status));
        EXPECT_EQ(texts[status], text == nullptr ? "" : text) << status;
    }
}

TEST(StatusPage, SaysOfEveryFailureWhatItMeansAndWhatToDo) {
    for (const Row& row : rows()) {
        if (row.status != KX_SUCCESS) {
            EXPECT_NE(row.meaning, "") << row.name;
            EXPECT_NE(row.remedy, "") << row.name;
        }
    }
}

TEST(StatusPage, HasTheExitCodesOfKxctl) {
    std::size_t told = 0;
    for (const Row& row : rows()) {
        if (!row.exit_code.empty()) {
            const auto code = kx::ctl::exit_code_of_status(static_cast<std::uint32_t>(row.status));
            EXPECT_EQ(row.exit_code, std::to_string(static_cast<int>(code))) << row.name;
            ++told;
        }
    }
    EXPECT_EQ(told, 20U);
}

}  // namespace
