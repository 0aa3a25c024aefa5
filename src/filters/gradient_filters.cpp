#include "bic/filters/gradient_filters.hpp"

#include "library_kernels.hpp"

namespace bic {

BICAngleGradientFilter::BICAngleGradientFilter() : ci::Filter("BICAngleGradientFilter", {}) {}

std::optional<ci::Image> BICAngleGradientFilter::outputImage() const {
    return libraryKernels().colorKernel("angleGradient").apply(cg::Rect::infinite(), {});
}

TwoPointGradientFilter::TwoPointGradientFilter(std::string name, std::string kernel)
    : ci::Filter(std::move(name), {{"inputPoint0", {}}, {"inputPoint1", {}}}),
      kernel_(std::move(kernel)) {}

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
    return libraryKernels().colorKernel(kernel_).apply(
        cg::Rect::infinite(),
        {std::vector<double>{p0->x, p0->y}, std::vector<double>{p1->x, p1->y}});
}

BICReflectedGradientFilter::BICReflectedGradientFilter()
    : TwoPointGradientFilter("BICReflectedGradientFilter", "reflectedGradient") {}

BICDiamondGradientFilter::BICDiamondGradientFilter()
    : TwoPointGradientFilter("BICDiamondGradientFilter", "diamondGradient") {}

void registerGradientFilters() {
    ci::registerFilterClass<BICAngleGradientFilter>();
    ci::registerFilterClass<BICReflectedGradientFilter>();
    ci::registerFilterClass<BICDiamondGradientFilter>();
}

} // namespace bic
