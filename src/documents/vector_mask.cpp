#include "bic/documents/vector_mask.hpp"

#include <vector>

namespace bic {

namespace {

constexpr std::size_t kRecordBytes = 26;

std::uint32_t big32(const std::uint8_t* p) {
    return std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3];
}

std::uint16_t big16(const std::uint8_t* p) { return std::uint16_t(p[0] << 8 | p[1]); }

struct Knot {
    cg::Point before, anchor, after;
};

} // namespace

std::optional<VectorMask> readVectorMask(std::span<const std::uint8_t> bytes, std::int64_t width,
                                         std::int64_t height) {
    if (bytes.size() < 8 || big32(bytes.data()) != 3) return std::nullopt;
    VectorMask mask;
    const std::uint32_t flags = big32(bytes.data() + 4);
    mask.inverted = flags & 1;
    mask.disabled = flags & 4;

    // Points are signed 8.24 fixed-point fractions of the document's height and width.
    auto point = [&](const std::uint8_t* p) {
        const double y = double(std::int32_t(big32(p))) / double(1 << 24);
        const double x = double(std::int32_t(big32(p + 4))) / double(1 << 24);
        return cg::Point{x * double(width), y * double(height)};
    };
    std::vector<Knot> knots;
    std::size_t expected = 0;
    bool closed = false;
    auto finish = [&] {
        if (knots.empty()) return;
        mask.outline.moveTo(knots[0].anchor);
        for (std::size_t i = 1; i < knots.size(); ++i)
            mask.outline.curveTo(knots[i].anchor, knots[i - 1].after, knots[i].before);
        if (closed) {
            mask.outline.curveTo(knots[0].anchor, knots.back().after, knots[0].before);
            mask.outline.closeSubPath();
        }
        knots.clear();
    };
    for (std::size_t at = 8; at + kRecordBytes <= bytes.size(); at += kRecordBytes) {
        const std::uint8_t* record = bytes.data() + at;
        switch (big16(record)) {
        case 0: // closed subpath: its knot count
        case 3: // open subpath
            if (knots.size() != expected) return std::nullopt;
            finish();
            closed = big16(record) == 0;
            expected = big16(record + 2);
            break;
        case 1: // knots of a closed subpath (linked or not)
        case 2:
        case 4: // of an open one
        case 5:
            if (knots.size() >= expected) return std::nullopt;
            knots.push_back({point(record + 2), point(record + 10), point(record + 18)});
            break;
        case 8: // initial fill rule
            mask.startsFilled = big16(record + 2) == 1;
            break;
        default: // fill rule (always even-odd), clipboard
            break;
        }
    }
    if (knots.size() != expected) return std::nullopt;
    finish();
    return mask;
}

} // namespace bic
