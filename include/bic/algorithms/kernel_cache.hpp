#pragma once
// Remembering which input surface states a processor kernel has already worked on in place, so
// that one application of the kernel computes once however many tiles it is asked for.

#include "bic/platform/ci/filter.hpp"
#include "bic/platform/ci/processor_kernel.hpp"

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <unordered_map>

namespace bic {

/// One state of one input: its digest (0 where there is none), its surface's system-wide ID and
/// the surface's modification seed.
struct ImageProcessingKernelCacheKey {
    std::uint64_t inputDigest = 0;
    std::uint32_t inputSurfaceID = 0;
    std::uint32_t inputSurfaceSeed = 0;

    friend bool operator==(const ImageProcessingKernelCacheKey&,
                           const ImageProcessingKernelCacheKey&) = default;
};

struct ImageProcessingKernelCacheKeyHash {
    std::size_t operator()(const ImageProcessingKernelCacheKey& k) const {
        std::size_t h = std::hash<std::uint64_t>()(k.inputDigest);
        h = h * 1000003u ^ std::hash<std::uint32_t>()(k.inputSurfaceID);
        return h * 1000003u ^ std::hash<std::uint32_t>()(k.inputSurfaceSeed);
    }
};

/// Values by input state, shared by all tile calls of one kernel application (it travels among
/// the kernel's arguments under "cache"). Lookups and stores are made under one lock.
template <class Value>
class ImageProcessingKernelCache final : public ci::ArgumentObject {
public:
    std::optional<Value> value(const ImageProcessingKernelCacheKey& key) const {
        std::lock_guard lock(mutex_);
        const auto it = values_.find(key);
        return it == values_.end() ? std::nullopt : std::optional<Value>(it->second);
    }
    void setValue(const ImageProcessingKernelCacheKey& key, Value value) {
        std::lock_guard lock(mutex_);
        values_.insert_or_assign(key, std::move(value));
    }
    /// The value under `key`, made by `make()` when there is none. Other callers wait while it
    /// is made, rather than make it again.
    template <class Make>
    Value valueOrMake(const ImageProcessingKernelCacheKey& key, Make&& make) {
        std::lock_guard lock(mutex_);
        const auto it = values_.find(key);
        if (it != values_.end()) return it->second;
        return values_.emplace(key, make()).first->second;
    }

    /// Held by the in-place step while it looks up, works and records, so one application
    /// works once.
    std::mutex& workMutex() { return work_; }

private:
    mutable std::mutex mutex_;
    std::mutex work_;
    std::unordered_map<ImageProcessingKernelCacheKey, Value, ImageProcessingKernelCacheKeyHash>
        values_;
};

/// The shared step of the in-place kernels: lock the first input's surface for writing and,
/// unless `cache` says it already holds the kernel's result, run `compute(surface)` and record
/// its new state; then copy the input into the output (the output region's part of it). The
/// check is made under the lock, so tiles that arrive together compute once.
void processInPlaceThenCopy(const std::vector<ci::ProcessorInput>& inputs,
                            const ci::ProcessorOutput& output,
                            ImageProcessingKernelCache<bool>& cache,
                            const std::function<void(io::Surface&)>& compute);

} // namespace bic
