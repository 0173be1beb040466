#include "change/transaction.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "change/confirm_timer.hpp"
#include "change/port_steps.hpp"
#include "change/put_back.hpp"
#include "change/record.hpp"
#include "failure/failure.hpp"
#include "files/signals_held.hpp"
#include "library/caller.hpp"
#include "library/recording.hpp"
#include "settings/open_change.hpp"

namespace kx::ctl {
namespace {

std::vector<SavedFile> copies_of(const std::vector<std::string>& paths) {
    std::vector<SavedFile> files;
    std::ranges::transform(paths, std::back_inserter(files), copy_file);
    return files;
}

Failure with_remark(const Failure& failure, const std::string& remark) {
    return {failure.code(), fmt::format("{}; {}", failure.what(), remark)};
}

class Run {
public:
    Run(std::vector<StepTarget> targets, std::vector<Step> steps, const ChangeOptions& options)
        : options_(options), journal_(change_journal()) {
        record_.targets = std::move(targets);
        record_.steps = std::move(steps);
        record_.confirm_within = options.confirm_within;
        try {
            journal_.lock();
            refuse_open_change();
            if (options.confirm_within > 0) {
                check_confirmable();
            }
            record_.files = copies_of(port_setting_files());
            open_record(journal_, record_);
            if (options.confirm_within > 0) {
                start_timer();
            }
        } catch (const Failure& failure) {
            throw with_remark(failure, "nothing was changed");
        }
    }

    ChangeOutcome run() {
        try {
            for (const StepTarget& target : record_.targets) {
                ports_.emplace_back(target);
            }
            do_steps();
            save();
        } catch (const Failure& failure) {
            options_.keep_going ? close_after(failure) : take_back(failure);
        }
        finish();
        return {record_.number, waits(), record_.steps, unsaved_};
    }

private:
    // A change that was refused as a whole has nothing to confirm.
    [[nodiscard]] bool waits() const {
        return options_.confirm_within > 0 &&
               std::ranges::any_of(record_.steps, [](const Step& step) {
                   return step.is_wanted() && !step.refused;
               });
    }

    // Nobody may have to confirm what cannot be taken back.
    void check_confirmable() const {
        for (const Step& step : record_.steps) {
            if (step.is_wanted() && step.before.is_null() && is_lasting(step)) {
                throw Failure(
                    ExitCode::kNotSupported,
                    fmt::format("{} cannot be taken back: its value is not known", step.key));
            }
        }
    }

    void start_timer() {
        try {
            start_confirm_timer(record_.number, options_.confirm_within);
        } catch (const Failure& failure) {
            write_end(failure.what());
            close_record(journal_, record_.number, kReverted);
            throw;
        }
    }

    // The steps of one target, all or the wanted ones.
    std::vector<Step*> steps_of(std::size_t target) {
        std::vector<Step*> steps;
        for (Step& step : record_.steps) {
            if (step.target == target) {
                steps.push_back(&step);
            }
        }
        return steps;
    }

    void do_steps() {
        auto& steps = record_.steps;
        for (auto begin = steps.begin(); begin != steps.end();) {
            const auto end = std::find_if(begin, steps.end(), [&](const Step& step) {
                return step.target != begin->target || step.is_wanted() != begin->is_wanted() ||
                       !PortSteps::are_together(*begin, step);
            });
            if (begin->is_wanted()) {
                std::vector<Step*> group;
                std::transform(
                    begin, end, std::back_inserter(group), [](Step& step) { return &step; });
                do_group(group);
            }
            begin = end;
        }
    }

    void do_group(const std::vector<Step*>& group) {
        const PortSteps& port = ports_[group.front()->target];
        try {
            port.apply(group);
        } catch (const Failure& failure) {
            for (Step* const step : group) {
                step->refused = Refusal{failure.code(), failure.what()};
            }
        }
        port.read_back(group);
        if (options_.keep_going) {
            return;
        }
        for (const Step* const step : group) {
            if (step->refused) {
                throw Failure(step->refused->code, step->refused->reason);
            }
            if (differs(*step, options_.exact)) {
                throw Failure(
                    ExitCode::kVerification, fmt::format(
                                                 "{} of {} reads back as {}, not {}", step->key,
                                                 record_.targets[step->target].interface,
                                                 step->now.dump(), step->wanted.dump()));
            }
        }
    }

    void save() {
        if (!options_.keep_going && take_unrecorded() != 0) {
            throw Failure(ExitCode::kFailed, "Not every setting could be saved");
        }
        for (std::size_t target = 0; target < ports_.size(); ++target) {
            try {
                ports_[target].record_saved(steps_of(target));
            } catch (const Failure& failure) {
                if (!options_.keep_going) {
                    throw;
                }
                unsaved_.emplace_back(failure.what());
            }
        }
    }

    void write_end(const std::string& remark) {
        for (std::size_t target = 0; target < ports_.size(); ++target) {
            ports_[target].read_back(steps_of(target));
        }
        const std::vector<std::string> files = port_setting_files();
        std::ranges::for_each(files, flush_file);
        write_result(journal_, record_.steps, {time_text(), remark, copies_of(files)});
    }

    void finish() {
        const bool whole =
            unsaved_.empty() && std::ranges::none_of(record_.steps, [&](const Step& step) {
                return step.refused.has_value() || differs(step, options_.exact);
            });
        try {
            write_end("");
            if (!waits()) {
                close_record(journal_, record_.number, whole ? kApplied : kPartly);
            }
        } catch (const Failure& failure) {
            throw Failure(
                ExitCode::kPartly,
                fmt::format(
                    "The settings are changed, but the journal cannot be written: {}; \"kxctl "
                    "revert\" takes the change back",
                    failure.what()));
        }
    }

    // In the handler of the failure.
    [[noreturn]] void close_after(const Failure& failure) {
        write_end(failure.what());
        close_record(journal_, record_.number, kPartly);
        throw;
    }

    [[noreturn]] void take_back(const Failure& failure) {
        const std::vector<std::string> left = put_back(record_, Beside::kAll);
        if (!left.empty()) {
            throw Failure(
                ExitCode::kPartly,
                fmt::format(
                    "{}; not everything could be taken back: {}; \"kxctl revert\" tries again",
                    failure.what(), fmt::join(left, "; ")));
        }
        write_end(failure.what());
        close_record(journal_, record_.number, kReverted);
        throw with_remark(failure, "everything is as it was before");
    }

    ChangeOptions options_;
    Journal journal_;
    ChangeRecord record_;
    std::vector<PortSteps> ports_;
    std::vector<std::string> unsaved_;
};

}  // namespace

ChangeOutcome run_change(
    std::vector<StepTarget> targets, std::vector<Step> steps, const ChangeOptions& options) {
    const SignalsHeld held;
    return Run(std::move(targets), std::move(steps), options).run();
}

}  // namespace kx::ctl
