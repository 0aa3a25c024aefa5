#pragma once
// Checks that a call throws ImageCoreError with a given case.

#include "bic/core/image_core_error.hpp"

#include <functional>
#include <gtest/gtest.h>

namespace bic::test_support {

inline void expectCode(const std::function<void()>& call, ImageCoreError::Code code) {
    try {
        call();
        ADD_FAILURE() << "no error";
    } catch (const ImageCoreError& e) {
        EXPECT_EQ(e.code(), code);
    }
}

} // namespace bic::test_support
