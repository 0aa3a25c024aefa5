#include "bic/geometry/integral_geometry.hpp"

#include "bic/platform/core/checked.hpp"

#include <cmath>

namespace bic {

namespace {

// 2^63 as a double; every double below it (and at or above −2^63) converts exactly.
constexpr double kTwo63 = 9223372036854775808.0;

std::int64_t exactInteger(double v) {
    precondition(std::isfinite(v),
                 "Cannot convert a non-finite floating-point value to an integer.");
    precondition(v >= -kTwo63 && v < kTwo63,
                 "Floating-point value out of the 64-bit integer range.");
    return static_cast<std::int64_t>(v);
}

std::int64_t roundedHalfAway(double v) { return exactInteger(std::round(v)); }

void encodePair(coding::Encoder& e, std::int64_t a, std::int64_t b) {
    auto u = e.unkeyed();
    u.encode(a);
    u.encode(b);
}

std::pair<std::int64_t, std::int64_t> decodePair(const coding::Decoder& d) {
    auto u = d.unkeyed();
    const auto a = u.decode<std::int64_t>();
    const auto b = u.decode<std::int64_t>();
    return {a, b};
}

} // namespace

IntegralPoint::IntegralPoint(const cg::Point& p)
    : x(exactInteger(std::trunc(p.x))), y(exactInteger(std::trunc(p.y))) {}

IntegralPoint& IntegralPoint::operator+=(const IntegralVector& v) {
    x = checked::add(x, v.dx);
    y = checked::add(y, v.dy);
    return *this;
}

IntegralPoint& IntegralPoint::operator-=(const IntegralVector& v) {
    x = checked::sub(x, v.dx);
    y = checked::sub(y, v.dy);
    return *this;
}

void IntegralPoint::encode(coding::Encoder& e) const { encodePair(e, x, y); }
IntegralPoint IntegralPoint::decode(const coding::Decoder& d) {
    const auto [a, b] = decodePair(d);
    return {a, b};
}

IntegralSize::IntegralSize(const cg::Size& s)
    : width(exactInteger(std::ceil(s.width))), height(exactInteger(std::ceil(s.height))) {}

void IntegralSize::encode(coding::Encoder& e) const { encodePair(e, width, height); }
IntegralSize IntegralSize::decode(const coding::Decoder& d) {
    const auto [a, b] = decodePair(d);
    return {a, b};
}

IntegralVector::IntegralVector(const cg::Vector& v)
    : dx(roundedHalfAway(v.dx)), dy(roundedHalfAway(v.dy)) {}

IntegralVector IntegralVector::truncating(double dx, double dy) {
    return {exactInteger(std::trunc(dx)), exactInteger(std::trunc(dy))};
}

std::int64_t IntegralVector::squaredLength() const {
    return checked::add(checked::mul(dx, dx), checked::mul(dy, dy));
}

IntegralVector& IntegralVector::operator+=(const IntegralVector& v) {
    dx = checked::add(dx, v.dx);
    dy = checked::add(dy, v.dy);
    return *this;
}

IntegralVector& IntegralVector::operator-=(const IntegralVector& v) {
    dx = checked::sub(dx, v.dx);
    dy = checked::sub(dy, v.dy);
    return *this;
}

void IntegralVector::encode(coding::Encoder& e) const { encodePair(e, dx, dy); }
IntegralVector IntegralVector::decode(const coding::Decoder& d) {
    const auto [a, b] = decodePair(d);
    return {a, b};
}

IntegralVector operator-(const IntegralPoint& a, const IntegralPoint& b) {
    return {checked::sub(a.x, b.x), checked::sub(a.y, b.y)};
}
IntegralVector operator+(const IntegralVector& a, const IntegralVector& b) {
    return {checked::add(a.dx, b.dx), checked::add(a.dy, b.dy)};
}
IntegralVector operator-(const IntegralVector& a, const IntegralVector& b) {
    return {checked::sub(a.dx, b.dx), checked::sub(a.dy, b.dy)};
}
IntegralVector operator-(const IntegralVector& v) {
    return {checked::neg(v.dx), checked::neg(v.dy)};
}
IntegralPoint operator+(const IntegralPoint& p, const IntegralVector& v) {
    return {checked::add(p.x, v.dx), checked::add(p.y, v.dy)};
}
IntegralPoint operator-(const IntegralPoint& p, const IntegralVector& v) {
    return {checked::sub(p.x, v.dx), checked::sub(p.y, v.dy)};
}

IntegralRect::IntegralRect(const cg::Rect& r) {
    const cg::Rect i = r.integral();
    origin = IntegralPoint(i.origin);
    size = IntegralSize(i.size);
}

std::int64_t IntegralRect::minX() const {
    return size.width > 0 ? origin.x : checked::add(origin.x, size.width);
}
std::int64_t IntegralRect::maxX() const {
    return size.width >= 1 ? checked::add(origin.x, size.width) : origin.x;
}
std::int64_t IntegralRect::minY() const {
    return size.height > 0 ? origin.y : checked::add(origin.y, size.height);
}
std::int64_t IntegralRect::maxY() const {
    return size.height >= 1 ? checked::add(origin.y, size.height) : origin.y;
}
std::int64_t IntegralRect::width() const { return checked::abs(size.width); }
std::int64_t IntegralRect::height() const { return checked::abs(size.height); }

IntegralRect IntegralRect::standardized() const {
    return {IntegralPoint(minX(), minY()), IntegralSize(width(), height())};
}

bool IntegralRect::contains(const IntegralPoint& p) const {
    if (isEmpty()) return false;
    return minX() <= p.x && p.x < maxX() && minY() <= p.y && p.y < maxY();
}

void IntegralRect::encode(coding::Encoder& e) const {
    auto u = e.unkeyed();
    u.encode(origin);
    u.encode(size);
}

IntegralRect IntegralRect::decode(const coding::Decoder& d) {
    auto u = d.unkeyed();
    const auto o = u.decode<IntegralPoint>();
    const auto s = u.decode<IntegralSize>();
    return {o, s};
}

cg::Rect offset(const cg::Rect& rect, const IntegralVector& by) {
    return rect.offsetBy(double(by.dx), double(by.dy));
}

cg::AffineTransform translation(const IntegralVector& v) {
    return cg::AffineTransform::translation(double(v.dx), double(v.dy));
}

} // namespace bic
