// A plain record in a file that all processes of a session have mapped.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>

#include "host/fail_with_errno.hpp"
#include "host/quiet.hpp"

namespace kxsim {

// Creates the file, zeroed and sparse, when it is missing.
template <class Record>
class SharedRecord {
public:
    explicit SharedRecord(const std::filesystem::path& path) {
        const Quiet quiet;
        const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (file < 0 || ::ftruncate(file, sizeof(Record)) != 0) {
            fail_with_errno(path);
        }
        void* const address =
            ::mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        ::close(file);
        if (address == MAP_FAILED) {
            fail_with_errno(path);
        }
        record_ = static_cast<Record*>(address);
    }
    ~SharedRecord() { ::munmap(record_, sizeof(Record)); }
    SharedRecord(const SharedRecord&) = delete;
    SharedRecord& operator=(const SharedRecord&) = delete;

    Record* operator->() const { return record_; }
    Record& operator*() const { return *record_; }

private:
    Record* record_;
};

}  // namespace kxsim
