#pragma once
// The process locale for tests that check that nothing depends on it. GUI toolkits set it from
// the user's settings at start-up (setlocale(LC_ALL, "")), so a library cannot assume "C".

#include <clocale>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace bic::testing_support {

/// Puts the process into `name` (its files looked up in BIC_TEST_LOCALES, the build's compiled
/// locales, unless LOCPATH says otherwise); false when the locale cannot be had.
inline bool useLocale(const char* name) {
#ifdef BIC_TEST_LOCALES
    if (!std::getenv("LOCPATH")) setenv("LOCPATH", BIC_TEST_LOCALES, 1);
#endif
    return std::setlocale(LC_ALL, name) != nullptr;
}

/// Runs the whole binary in the locale BIC_TEST_LOCALE names, when it is set.
class LocaleFromEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        const char* name = std::getenv("BIC_TEST_LOCALE");
        if (!name) return;
        ASSERT_TRUE(useLocale(name)) << "cannot switch to the locale " << name;
        std::printf("Running in the locale %s (decimal point \"%s\").\n", name,
                    std::localeconv()->decimal_point);
    }
};

inline const bool kLocaleFromEnvironment =
    (::testing::AddGlobalTestEnvironment(new LocaleFromEnvironment), true);

} // namespace bic::testing_support
