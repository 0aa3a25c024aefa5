#pragma once
// The pasteboard: typed data shared between parts of an application.
//
// The library only talks to the interface. The in-process default serves tools and tests; an
// editor installs its own adapter to the desktop's pasteboard with `setGeneral`.

#include "bic/platform/cg/color.hpp"

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bic::ns {

using PasteboardData = std::vector<std::uint8_t>;

class Pasteboard {
public:
    virtual ~Pasteboard() = default;
    /// Removes every item and type.
    virtual void clearContents() = 0;
    /// Stores `data` under `type`, replacing what the type held.
    virtual void setData(std::string_view type, PasteboardData data) = 0;
    virtual std::optional<PasteboardData> data(std::string_view type) const = 0;
    virtual std::vector<std::string> types() const = 0;

    /// The process-wide pasteboard: an in-process one unless the host installed another.
    static std::shared_ptr<Pasteboard> general();
    static void setGeneral(std::shared_ptr<Pasteboard> pasteboard);
};

/// A pasteboard held in memory, safe to use from several threads.
class MemoryPasteboard final : public Pasteboard {
public:
    void clearContents() override;
    void setData(std::string_view type, PasteboardData data) override;
    std::optional<PasteboardData> data(std::string_view type) const override;
    std::vector<std::string> types() const override;

private:
    mutable std::mutex mutex_;
    std::vector<std::pair<std::string, PasteboardData>> items_;
};

namespace pasteboard_type {
/// A colour: a binary property list {"Color Space": name or ICC profile, "Components": reals}.
inline constexpr std::string_view color = "org.brellin.color";
inline constexpr std::string_view tiff = "public.tiff";
} // namespace pasteboard_type

/// Writes a colour under the colour type (other types are kept).
void writeColor(Pasteboard& pasteboard, const cg::Color& color);
/// The colour under the colour type; nothing when absent or unreadable.
std::optional<cg::Color> readColor(const Pasteboard& pasteboard);

} // namespace bic::ns
