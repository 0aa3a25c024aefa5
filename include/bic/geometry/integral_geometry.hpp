#pragma once
// Pixel-exact geometry: points, sizes, vectors and rectangles of signed 64-bit integers.
//
// Arithmetic is checked: a result outside signed 64 bits stops the process instead of
// wrapping. Conversions from floating point each have their own rounding rule (documented per
// constructor); a NaN, infinite or out-of-range component stops the process.

#include "bic/platform/cg/affine_transform.hpp"
#include "bic/platform/cg/rect.hpp"
#include "bic/platform/coding/coder.hpp"
#include "bic/platform/core/checked.hpp"

#include <concepts>
#include <cstdint>

namespace bic {

struct IntegralVector;

struct IntegralPoint {
    std::int64_t x = 0;
    std::int64_t y = 0;

    constexpr IntegralPoint() = default;
    /// Any integers; an unsigned value above 2^63 − 1 stops the process.
    template <std::integral A, std::integral B>
    constexpr IntegralPoint(A x_, B y_) : x(checked::exact(x_)), y(checked::exact(y_)) {}
    /// Truncates toward zero (1.7 → 1, −1.7 → −1).
    template <std::floating_point A, std::floating_point B>
    IntegralPoint(A x_, B y_) : IntegralPoint(cg::Point{double(x_), double(y_)}) {}
    /// Truncates toward zero.
    explicit IntegralPoint(const cg::Point& p);

    static constexpr IntegralPoint zero() { return {}; }
    cg::Point cgPoint() const { return {double(x), double(y)}; }

    IntegralPoint& operator+=(const IntegralVector& v);
    IntegralPoint& operator-=(const IntegralVector& v);
    friend bool operator==(const IntegralPoint&, const IntegralPoint&) = default;

    void encode(coding::Encoder& e) const;
    static IntegralPoint decode(const coding::Decoder& d);
};

struct IntegralSize {
    std::int64_t width = 0;
    std::int64_t height = 0;

    constexpr IntegralSize() = default;
    /// Any integers; an unsigned value above 2^63 − 1 stops the process.
    template <std::integral A, std::integral B>
    constexpr IntegralSize(A w, B h) : width(checked::exact(w)), height(checked::exact(h)) {}
    /// Rounds upward, toward +infinity (2.01 → 3, −2.5 → −2).
    explicit IntegralSize(const cg::Size& s);

    static constexpr IntegralSize zero() { return {}; }
    cg::Size cgSize() const { return {double(width), double(height)}; }
    friend bool operator==(const IntegralSize&, const IntegralSize&) = default;

    void encode(coding::Encoder& e) const;
    static IntegralSize decode(const coding::Decoder& d);
};

struct IntegralVector {
    std::int64_t dx = 0;
    std::int64_t dy = 0;

    constexpr IntegralVector() = default;
    /// Any integers; an unsigned value above 2^63 − 1 stops the process.
    template <std::integral A, std::integral B>
    constexpr IntegralVector(A dx_, B dy_) : dx(checked::exact(dx_)), dy(checked::exact(dy_)) {}
    /// Truncates toward zero (2.5 → 2, −2.5 → −2).
    template <std::floating_point A, std::floating_point B>
    IntegralVector(A dx_, B dy_) : IntegralVector(truncating(double(dx_), double(dy_))) {}
    /// Rounds to nearest, halves away from zero (2.5 → 3, −2.5 → −3).
    explicit IntegralVector(const cg::Vector& v);

    static constexpr IntegralVector zero() { return {}; }
    cg::Vector cgVector() const { return {double(dx), double(dy)}; }
    /// dx² + dy², checked.
    std::int64_t squaredLength() const;

    IntegralVector& operator+=(const IntegralVector& v);
    IntegralVector& operator-=(const IntegralVector& v);
    friend bool operator==(const IntegralVector&, const IntegralVector&) = default;

    void encode(coding::Encoder& e) const;
    static IntegralVector decode(const coding::Decoder& d);

private:
    static IntegralVector truncating(double dx, double dy);
};

IntegralVector operator-(const IntegralPoint& a, const IntegralPoint& b);
IntegralVector operator+(const IntegralVector& a, const IntegralVector& b);
IntegralVector operator-(const IntegralVector& a, const IntegralVector& b);
IntegralVector operator-(const IntegralVector& v);
IntegralPoint operator+(const IntegralPoint& p, const IntegralVector& v);
IntegralPoint operator-(const IntegralPoint& p, const IntegralVector& v);

/// A rectangle that keeps a negative width or height as given; every accessor treats it as
/// its standardized form.
struct IntegralRect {
    IntegralPoint origin;
    IntegralSize size;

    constexpr IntegralRect() = default;
    constexpr IntegralRect(IntegralPoint o, IntegralSize s) : origin(o), size(s) {}
    constexpr IntegralRect(std::int64_t x, std::int64_t y, std::int64_t width, std::int64_t height)
        : origin(x, y), size(width, height) {}
    /// The platform's integral rectangle of `r` (origin down, far edges up), converted exactly.
    explicit IntegralRect(const cg::Rect& r);

    static constexpr IntegralRect zero() { return {}; }

    std::int64_t minX() const;
    std::int64_t maxX() const;
    std::int64_t minY() const;
    std::int64_t maxY() const;
    std::int64_t width() const;
    std::int64_t height() const;
    /// Zero width or height; a negative size is not empty.
    bool isEmpty() const { return size.width == 0 || size.height == 0; }
    IntegralRect standardized() const;
    /// Half-open on both axes; x is tested before y.
    bool contains(const IntegralPoint& p) const;

    cg::Rect cgRect() const {
        return {double(origin.x), double(origin.y), double(size.width), double(size.height)};
    }
    friend bool operator==(const IntegralRect&, const IntegralRect&) = default;

    void encode(coding::Encoder& e) const;
    static IntegralRect decode(const coding::Decoder& d);
};

/// `rect` moved by the vector.
cg::Rect offset(const cg::Rect& rect, const IntegralVector& by);
/// The pure translation by the vector.
cg::AffineTransform translation(const IntegralVector& v);

} // namespace bic
