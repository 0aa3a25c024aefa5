#pragma once
// Postal addresses written the way the post of the address's country wants them.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bic::metadata_values {

struct PostalAddress {
    std::optional<std::string> street, city, state, postalCode, country;
};

/// The ISO 3166 region of a country named by its code (two or three letters) or by its name
/// in one of the common languages ("Deutschland", "Allemagne", "Germany" → "DE"); nothing when
/// the text names none of the countries that have a mailing style of their own.
std::optional<std::string> styledRegion(std::string_view country);

/// The lines of `address` in the mailing style of its country:
///   US, Canada, Australia: street; city, state and postal code on one line; country
///   UK: street; town; county; postcode; country
///   Germany, France: street; postal code and city; country (no state)
///   Japan: 〒postal code; prefecture and city; street; country
///   elsewhere and without a country: street; postal code and city; state; country
/// Empty parts add nothing.
std::vector<std::string> mailingLines(const PostalAddress& address);

} // namespace bic::metadata_values
