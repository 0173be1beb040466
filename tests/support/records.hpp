// Query answers as records, which an agent makes from the flat buffers.
#pragma once

#include <kxlinhw/kxlinhw.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace test {

template <class Record>
struct Answer {
    uint32_t status;
    uint32_t length;              // bytes, as the query reported them
    std::vector<Record> records;  // without their next pointers
};

// Call a query with a buffer of `room` bytes, filled so that a wrong length is visible.
template <class Record>
Answer<Record> ask(
    std::size_t copy_size, const std::function<uint32_t(void*, uint32_t*)>& query,
    std::size_t room = std::size_t{4} << 20) {
    std::vector<char> buffer(room, '\xEE');
    Answer<Record> answer{0, 0xEEEEEEEE, {}};
    answer.status = query(buffer.data(), &answer.length);
    if (answer.status == KX_SUCCESS) {
        answer.records.resize(answer.length / copy_size);
        for (std::size_t k = 0; k < answer.records.size(); ++k) {
            std::memcpy(
                static_cast<void*>(&answer.records[k]), buffer.data() + k * copy_size, copy_size);
        }
    }
    return answer;
}

inline Answer<CardInfo> card_info() { return ask<CardInfo>(KX_CARD_COPY, GetCardInfo); }

inline Answer<PortInfo> port_info(const std::string& location) {
    return ask<PortInfo>(KX_PORT_COPY, [&](void* buffer, uint32_t* length) {
        return GetPortInfo(location.c_str(), buffer, length);
    });
}

inline Answer<StatEntry> card_stats(const std::string& location) {
    return ask<StatEntry>(KX_STAT_COPY, [&](void* buffer, uint32_t* length) {
        return GetCardStats(location.c_str(), buffer, length);
    });
}

inline Answer<StatEntry> port_stat(const std::string& location, uint32_t instance) {
    return ask<StatEntry>(KX_STAT_COPY, [&](void* buffer, uint32_t* length) {
        return GetPortStat(location.c_str(), instance, buffer, length);
    });
}

inline Answer<DriverEntry> driver_details() {
    return ask<DriverEntry>(KX_DRIVER_COPY, GetDriverDetails);
}

// The text of a field that may fill it without a NUL.
template <std::size_t N>
std::string text(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}

// The names of one field over all records, for comparisons that read well.
template <class Record, class Field>
auto each(const std::vector<Record>& records, Field field) {
    std::vector<std::decay_t<decltype(field(records[0]))>> values;
    for (const Record& record : records) {
        values.push_back(field(record));
    }
    return values;
}

}  // namespace test
