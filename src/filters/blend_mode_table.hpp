#pragma once
// Everything the library knows about a blend mode, one row each: its names, the filter that
// performs it and the library's kernel behind that filter. The lookups, the filter classes, their
// registration and the typed blends all read these rows, so a new mode is its row, its formula
// and its translations.

#include "bic/filters/blend_mode.hpp"
#include "bic/platform/ci/kernel.hpp"

#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace bic::detail {

/// How a mode's filter is made, how it blends and how its class is registered by name. Any
/// function may be null: the group modes have none, built-in filters register nothing.
struct BlendFilter {
    using Make = std::shared_ptr<ci::Filter> (*)();
    using Apply = ci::Image (*)(const ci::Image& foreground, const ci::Image& background);

    constexpr BlendFilter(Make make = nullptr, Apply apply = nullptr,
                          void (*registerClass)() = nullptr,
                          std::optional<BlendMode::Case> classMode = std::nullopt)
        : make(make), apply(apply), registerClass(registerClass), classMode(classMode) {}

    Make make;
    Apply apply;
    void (*registerClass)();
    /// The mode the library's filter class performs, to check rows against their classes.
    std::optional<BlendMode::Case> classMode;
};

struct BlendModeRow {
    constexpr BlendModeRow(BlendMode::Case mode, std::string_view name, std::string_view key,
                           BlendFilter filter, std::string_view runtimeClassName = {})
        : mode(mode), name(name), key(key), filter(filter), runtimeClassName(runtimeClassName),
          kernel(nullptr), eightBitKernel(nullptr) {}
    // A kernel name always comes with its kernel: the sanitizer builds cannot compare function
    // addresses in a constant expression, so the pairing is made by the signature instead.
    constexpr BlendModeRow(BlendMode::Case mode, std::string_view name, std::string_view key,
                           BlendFilter filter, std::string_view runtimeClassName,
                           std::string_view kernelName, ci::RowFunction kernel,
                           ci::RowFunction eightBitKernel = nullptr)
        : mode(mode), name(name), key(key), filter(filter), runtimeClassName(runtimeClassName),
          kernelName(kernelName), kernel(kernel), eightBitKernel(eightBitKernel) {}

    BlendMode::Case mode;
    std::string_view name, key;
    BlendFilter filter;
    /// The library's filter class as the registry knows it ("" for built-in filters).
    std::string_view runtimeClassName;
    /// The library's kernel for the mode, and the 8-bit documents' variant where one differs
    /// (named with an "8" after the kernel name).
    std::string_view kernelName;
    ci::RowFunction kernel;
    ci::RowFunction eightBitKernel;
};

/// The row of `mode`.
const BlendModeRow& blendModeRow(BlendMode mode);
/// Every row, in declaration order.
std::span<const BlendModeRow> blendModeRows();

} // namespace bic::detail
