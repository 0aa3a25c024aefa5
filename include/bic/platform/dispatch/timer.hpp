#pragma once
// A repeating timer whose handler runs on a serial queue.
//
// A timer fires at its start time and then every interval; a fire whose handler has not yet run
// is not repeated (fires never pile up on the queue). Stopping suspends firing; starting again
// fires at once if a deadline passed while it was stopped, else at the next deadline. Stopping a
// stopped timer and starting a running one change nothing.

#include "bic/platform/dispatch/queue.hpp"

#include <chrono>
#include <memory>

namespace bic::dispatch {

namespace detail {
struct TimerState;
}

class Timer {
public:
    using Clock = std::chrono::steady_clock;

    /// A stopped, unscheduled timer whose handler runs on `queue`, which must outlive it.
    explicit Timer(SerialQueue& queue);
    /// Cancels the timer: no handler starts after this returns.
    ~Timer();
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void setEventHandler(Block handler);
    /// First deadline `start`, then one every `interval` (at least 1 ms). The leeway is accepted
    /// for completeness; deadlines are kept as closely as the system allows.
    void schedule(Clock::time_point start, std::chrono::milliseconds interval,
                  std::chrono::milliseconds leeway = std::chrono::milliseconds(0));
    void start();
    void stop();
    bool isRunning() const;

private:
    std::shared_ptr<detail::TimerState> state_;
};

} // namespace bic::dispatch
