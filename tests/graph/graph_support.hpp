#pragma once
// A consumer that records what it is told, for the graph tests.

#include "bic/graph/image_provider.hpp"

#include <functional>
#include <mutex>
#include <vector>

namespace bic::test_support {

class RecordingConsumer : public ImageConsumer {
public:
    struct Call {
        const ImageProvider* sender;
        cg::Rect rect;
    };
    std::vector<Call> calls;
    std::function<void()> onCall;

    void invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) override {
        calls.push_back({&sender, rect});
        if (onCall) onCall();
    }
    std::vector<cg::Rect> rects() const {
        std::vector<cg::Rect> out;
        for (const auto& c : calls)
            out.push_back(c.rect);
        return out;
    }
};

} // namespace bic::test_support
