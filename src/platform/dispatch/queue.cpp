#include "bic/platform/dispatch/queue.hpp"

#include "bic/platform/core/fatal.hpp"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace bic::dispatch {

struct SerialQueue::State {
    std::string label;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<Block> blocks;
    bool stopping = false;
    std::thread thread;
};

namespace {

thread_local const void* runningQueue = nullptr;

// Waits for one block handed to another thread.
struct Completion {
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;

    void finish() {
        std::lock_guard lock(mutex);
        finished = true;
        done.notify_all();
    }
    void wait() {
        std::unique_lock lock(mutex);
        done.wait(lock, [&] { return finished; });
    }
};

} // namespace

SerialQueue::SerialQueue(std::string label) : state_(std::make_shared<State>()) {
    state_->label = std::move(label);
    // The thread keeps the state alive, so a queue destroyed by one of its own blocks can let
    // its thread finish on its own.
    state_->thread = std::thread([state = state_] {
        runningQueue = state.get();
        for (;;) {
            Block block;
            {
                std::unique_lock lock(state->mutex);
                state->wake.wait(lock, [&] { return state->stopping || !state->blocks.empty(); });
                if (state->blocks.empty()) break;
                block = std::move(state->blocks.front());
                state->blocks.pop_front();
            }
            block();
        }
        runningQueue = nullptr;
    });
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
    }
    state_->wake.notify_all();
    if (std::this_thread::get_id() == state_->thread.get_id())
        state_->thread.detach();
    else
        state_->thread.join();
}

const std::string& SerialQueue::label() const { return state_->label; }

void SerialQueue::async(Block block) {
    {
        std::lock_guard lock(state_->mutex);
        state_->blocks.push_back(std::move(block));
    }
    state_->wake.notify_one();
}

void SerialQueue::sync(const Block& block) {
    if (isCurrent()) fatalError("A serial queue cannot wait for a block of its own.");
    auto completion = std::make_shared<Completion>();
    async([&block, completion] {
        block();
        completion->finish();
    });
    completion->wait();
}

bool SerialQueue::isCurrent() const { return runningQueue == state_.get(); }

struct MainQueue::State {
    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<Block> blocks;
    std::optional<std::thread::id> boundThread;
    std::function<void()> wakeUp;
};

namespace {
// The thread the process started on: its thread ID is the process ID.
bool isProcessMainThread() { return ::syscall(SYS_gettid) == ::getpid(); }
} // namespace

MainQueue::MainQueue() : state_(std::make_unique<State>()) {}

MainQueue& MainQueue::shared() {
    static MainQueue* queue = new MainQueue(); // lives as long as the process
    return *queue;
}

void MainQueue::bindToCurrentThread() {
    std::lock_guard lock(state_->mutex);
    state_->boundThread = std::this_thread::get_id();
}

bool MainQueue::isMainThread() const {
    std::lock_guard lock(state_->mutex);
    return state_->boundThread ? *state_->boundThread == std::this_thread::get_id()
                               : isProcessMainThread();
}

void MainQueue::async(Block block) {
    std::function<void()> wakeUp;
    {
        std::lock_guard lock(state_->mutex);
        state_->blocks.push_back(std::move(block));
        wakeUp = state_->wakeUp;
    }
    state_->arrived.notify_all();
    if (wakeUp) wakeUp();
}

void MainQueue::sync(const Block& block) {
    if (isMainThread()) {
        block();
        return;
    }
    auto completion = std::make_shared<Completion>();
    async([&block, completion] {
        block();
        completion->finish();
    });
    completion->wait();
}

std::size_t MainQueue::drain() {
    if (!isMainThread()) fatalError("The main queue can only be drained on the main thread.");
    std::size_t count = 0;
    for (;;) {
        Block block;
        {
            std::lock_guard lock(state_->mutex);
            if (state_->blocks.empty()) return count;
            block = std::move(state_->blocks.front());
            state_->blocks.pop_front();
        }
        block();
        ++count;
    }
}

bool MainQueue::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        drain();
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        // Short naps: `done` may turn true from another thread without a block arriving.
        std::unique_lock lock(state_->mutex);
        state_->arrived.wait_until(
            lock,
            std::min(deadline, std::chrono::steady_clock::now() + std::chrono::milliseconds(2)),
            [&] { return !state_->blocks.empty(); });
    }
}

void MainQueue::setWakeUpHandler(std::function<void()> handler) {
    std::lock_guard lock(state_->mutex);
    state_->wakeUp = std::move(handler);
}

} // namespace bic::dispatch
