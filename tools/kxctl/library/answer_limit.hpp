// A limit for calls that wait for another program and have no limit of their own, such as those of
// libvirt.
#pragma once

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "cli/time_limit.hpp"
#include "failure/failure.hpp"

namespace kx::ctl {

// Reports a failure to the user and returns the exit code.
using FailureReporter = std::function<ExitCode(const Failure&)>;

// Until this is called, a call that is late ends the process without a report.
void report_late_answers_to(FailureReporter reporter);

// When this object exists for longer than the limit, the process reports the failure and ends. The
// children of the call are killed, and the scratch directory is removed.
class AnswerLimit {
public:
    explicit AnswerLimit(Failure failure, std::chrono::milliseconds limit = time_limit());
    ~AnswerLimit();
    AnswerLimit(const AnswerLimit&) = delete;
    AnswerLimit& operator=(const AnswerLimit&) = delete;

private:
    void watch(std::chrono::milliseconds limit);

    Failure failure_;
    pthread_t caller_;  // the main thread
    std::mutex mutex_;
    std::condition_variable changed_;
    bool answered_ = false;
    std::thread watchdog_;
};

}  // namespace kx::ctl
