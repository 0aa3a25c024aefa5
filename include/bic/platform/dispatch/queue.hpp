#pragma once
// Work queues: serial queues that run blocks one at a time on a thread of their own, and the
// main queue, whose blocks run on the host's main thread when the host pumps it.
//
// The image graph belongs to the main thread; background work hops to the main queue to touch
// it. An editor connects the main queue to its event loop with `setWakeUpHandler` (called, from
// any thread, whenever a block arrives, so the loop can schedule a `drain`); tests call `drain`
// or `runUntil` themselves.

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace bic::dispatch {

using Block = std::function<void()>;

/// Blocks run in the order they were added, one at a time, on the queue's own thread.
///
/// Destroying a queue runs the blocks still waiting, then ends its thread; destroying it from
/// one of its own blocks is allowed (the thread finishes on its own).
class SerialQueue {
public:
    explicit SerialQueue(std::string label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& label() const;
    /// Adds a block and returns at once.
    void async(Block block);
    /// Adds a block and waits until it has run. Called from a block of this queue it would
    /// wait for itself: that stops the process.
    void sync(const Block& block);
    /// Whether the calling thread is running a block of this queue.
    bool isCurrent() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

/// The queue of the host's main thread: blocks run only inside `drain`/`runUntil`, on the thread
/// that calls them, which must be the main thread.
class MainQueue {
public:
    /// The process's main queue. Its thread is the one the process started on, unless the host
    /// names another with `bindToCurrentThread`.
    static MainQueue& shared();

    void bindToCurrentThread();
    bool isMainThread() const;

    void async(Block block);
    /// Runs the block on the main thread and waits for it: at once when called there,
    /// otherwise when the host next pumps the queue.
    void sync(const Block& block);

    /// Runs the blocks waiting now and those they add, until none is left; returns how many
    /// ran. Only on the main thread.
    std::size_t drain();
    /// Pumps the queue, sleeping while it is empty, until `done()` holds or `timeout` passes;
    /// returns whether `done()` held.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

    /// Called from any thread each time a block is added; may be empty.
    void setWakeUpHandler(std::function<void()> handler);

private:
    MainQueue();
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace bic::dispatch
