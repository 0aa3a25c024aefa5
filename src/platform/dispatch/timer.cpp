#include "bic/platform/dispatch/timer.hpp"

#include <algorithm>
#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>

namespace bic::dispatch {

using Clock = Timer::Clock;

struct detail::TimerState {
    SerialQueue* queue = nullptr;
    std::shared_ptr<Block> handler;
    bool scheduled = false;
    bool running = false;
    bool pending = false; // a fire waits on the queue
    bool cancelled = false;
    Clock::time_point deadline;
    Clock::duration interval{};
};

namespace {

// All timers share one thread that sleeps until the earliest deadline and then hands the
// handler to the timer's queue. Its mutex guards every timer's state.
class TimerService {
public:
    static TimerService& shared() {
        static TimerService* service = new TimerService(); // lives as long as the process
        return *service;
    }

    std::mutex mutex;

    void add(const std::shared_ptr<detail::TimerState>& timer) {
        std::lock_guard lock(mutex);
        timers_.push_back(timer);
    }
    void remove(const detail::TimerState* timer) {
        std::lock_guard lock(mutex);
        timers_.remove_if([&](const auto& t) { return t.get() == timer; });
    }
    void changed() { wake_.notify_all(); }

private:
    TimerService() {
        std::thread([this] { run(); }).detach();
    }

    bool due(const detail::TimerState& t) const { return t.scheduled && t.running && !t.pending; }

    void run() {
        std::unique_lock lock(mutex);
        for (;;) {
            const auto now = Clock::now();
            auto next = Clock::time_point::max();
            for (const auto& t : timers_) {
                if (!due(*t)) continue;
                if (t->deadline <= now)
                    fire(t, now);
                else
                    next = std::min(next, t->deadline);
            }
            if (next == Clock::time_point::max())
                wake_.wait(lock);
            else
                wake_.wait_until(lock, next);
        }
    }

    void fire(const std::shared_ptr<detail::TimerState>& t, Clock::time_point now) {
        t->pending = true;
        t->deadline += t->interval;
        if (t->deadline <= now) t->deadline = now + t->interval; // missed fires are not made up
        std::weak_ptr<detail::TimerState> weak = t;
        t->queue->async([weak, this] {
            std::shared_ptr<Block> handler;
            if (auto state = weak.lock()) {
                std::lock_guard lock(mutex);
                state->pending = false;
                if (!state->cancelled) handler = state->handler;
            }
            changed();
            if (handler && *handler) (*handler)();
        });
    }

    std::condition_variable wake_;
    std::list<std::shared_ptr<detail::TimerState>> timers_;
};

} // namespace

Timer::Timer(SerialQueue& queue) : state_(std::make_shared<detail::TimerState>()) {
    state_->queue = &queue;
    TimerService::shared().add(state_);
}

Timer::~Timer() {
    auto& service = TimerService::shared();
    {
        std::lock_guard lock(service.mutex);
        state_->cancelled = true;
    }
    service.remove(state_.get());
}

void Timer::setEventHandler(Block handler) {
    std::lock_guard lock(TimerService::shared().mutex);
    state_->handler = std::make_shared<Block>(std::move(handler));
}

void Timer::schedule(Clock::time_point start, std::chrono::milliseconds interval,
                     std::chrono::milliseconds) {
    auto& service = TimerService::shared();
    {
        std::lock_guard lock(service.mutex);
        state_->scheduled = true;
        state_->deadline = start;
        state_->interval = std::max(interval, std::chrono::milliseconds(1));
    }
    service.changed();
}

void Timer::start() {
    auto& service = TimerService::shared();
    {
        std::lock_guard lock(service.mutex);
        if (state_->running) return;
        state_->running = true;
    }
    service.changed();
}

void Timer::stop() {
    std::lock_guard lock(TimerService::shared().mutex);
    state_->running = false;
}

bool Timer::isRunning() const {
    std::lock_guard lock(TimerService::shared().mutex);
    return state_->running;
}

} // namespace bic::dispatch
