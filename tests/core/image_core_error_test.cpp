#include "bic/core/image_core_error.hpp"
#include "bic/paths/path.hpp"

#include <gtest/gtest.h>

using namespace bic;

TEST(ImageCoreError, CodesAndDomain) {
    EXPECT_EQ(ImageCoreError::domain, "BrellinImageCore.ImageCoreError");
    EXPECT_EQ(ImageCoreError(ImageCoreError::unknownError).code(), 0);
    EXPECT_EQ(ImageCoreError(ImageCoreError::memoryError).code(), 3);
    EXPECT_EQ(ImageCoreError(ImageCoreError::fileReadCorruptedDataError).code(), 8);
    EXPECT_STREQ(ImageCoreError(ImageCoreError::parameterError).what(), "parameterError");
    EXPECT_EQ(ImageCoreError(ImageCoreError::colorConversionError),
              ImageCoreError(ImageCoreError::colorConversionError));
    EXPECT_FALSE(ImageCoreError(ImageCoreError::unknownError) ==
                 ImageCoreError(ImageCoreError::parameterError));
    try {
        throw ImageCoreError(ImageCoreError::fileReadUnsupportedBitDepthError);
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "fileReadUnsupportedBitDepthError");
    }
}

TEST(ImageCoreError, ReasonsTravelWithTheCodeWithoutChangingEquality) {
    const ImageCoreError plain(ImageCoreError::internalInconsistency);
    const ImageCoreError told(ImageCoreError::internalInconsistency, "the seed lies outside");
    EXPECT_EQ(plain.detail(), "");
    EXPECT_EQ(told.detail(), "the seed lies outside");
    EXPECT_STREQ(told.what(), "internalInconsistency: the seed lies outside");
    EXPECT_EQ(told.codeName(), "internalInconsistency");
    EXPECT_EQ(plain, told);
    EXPECT_STREQ(ImageCoreError(ImageCoreError::memoryError, "").what(), "memoryError");

    // Copies share the text: what() stays valid after the original is gone.
    std::optional<ImageCoreError> original(told);
    const ImageCoreError copy = *original;
    original.reset();
    EXPECT_STREQ(copy.what(), "internalInconsistency: the seed lies outside");

    // A reason from a real throw: drawing a line with no point to start from.
    Path path;
    try {
        path.lineTo({1, 1});
        FAIL() << "a line without a current point must throw";
    } catch (const ImageCoreError& e) {
        EXPECT_EQ(e.code(), ImageCoreError::internalInconsistency);
        EXPECT_NE(e.detail().find("current point"), std::string_view::npos) << e.what();
    }
}
