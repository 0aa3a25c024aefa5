#include "bic/filters/gradient_filters.hpp"

#include "../kernels/generator_kernels.hpp"

namespace bic {

BICAngleGradientFilter::BICAngleGradientFilter() : ci::Filter("BICAngleGradientFilter", {}) {}

std::optional<ci::Image> BICAngleGradientFilter::outputImage() const {
    return kernels::angleGradient();
}

TwoPointGradientFilter::TwoPointGradientFilter(std::string name, Ramp ramp)
    : ci::Filter(std::move(name), {{"inputPoint0", {}}, {"inputPoint1", {}}}), ramp_(ramp) {}

namespace {

std::optional<cg::Point> pointOf(const ci::Filter& filter, std::string_view key) {
    const auto v = filter.vector(key);
    if (!v || v->size() != 2) return std::nullopt;
    return cg::Point{(*v)[0], (*v)[1]};
}

ci::FilterValue pointValue(const std::optional<cg::Point>& p) {
    return p ? ci::FilterValue(std::vector<double>{p->x, p->y}) : ci::FilterValue();
}

} // namespace

std::optional<cg::Point> TwoPointGradientFilter::inputPoint0() const {
    return pointOf(*this, "inputPoint0");
}
void TwoPointGradientFilter::setInputPoint0(std::optional<cg::Point> p) {
    setValue("inputPoint0", pointValue(p));
}
std::optional<cg::Point> TwoPointGradientFilter::inputPoint1() const {
    return pointOf(*this, "inputPoint1");
}
void TwoPointGradientFilter::setInputPoint1(std::optional<cg::Point> p) {
    setValue("inputPoint1", pointValue(p));
}

std::optional<ci::Image> TwoPointGradientFilter::outputImage() const {
    const auto p0 = inputPoint0(), p1 = inputPoint1();
    if (!p0 || !p1) return std::nullopt;
    return ramp_(*p0, *p1);
}

BICReflectedGradientFilter::BICReflectedGradientFilter()
    : TwoPointGradientFilter("BICReflectedGradientFilter", kernels::reflectedGradient) {}

BICDiamondGradientFilter::BICDiamondGradientFilter()
    : TwoPointGradientFilter("BICDiamondGradientFilter", kernels::diamondGradient) {}

void registerGradientFilters() {
    ci::registerFilterClass<BICAngleGradientFilter>();
    ci::registerFilterClass<BICReflectedGradientFilter>();
    ci::registerFilterClass<BICDiamondGradientFilter>();
}

} // namespace bic
