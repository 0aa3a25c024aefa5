#pragma once
// The drawing layer's bitmap layout flags.

#include <cstdint>

namespace bic::cg {

using BitmapInfo = std::uint32_t;

namespace bitmap {
inline constexpr BitmapInfo alphaNone = 0;
inline constexpr BitmapInfo alphaPremultipliedLast = 1;
inline constexpr BitmapInfo alphaPremultipliedFirst = 2;
inline constexpr BitmapInfo alphaLast = 3;
inline constexpr BitmapInfo alphaFirst = 4;
inline constexpr BitmapInfo alphaNoneSkipLast = 5;
inline constexpr BitmapInfo alphaNoneSkipFirst = 6;
inline constexpr BitmapInfo alphaOnly = 7;
inline constexpr BitmapInfo alphaInfoMask = 0x1F;
inline constexpr BitmapInfo floatComponents = 0x100;
inline constexpr BitmapInfo byteOrderDefault = 0;
inline constexpr BitmapInfo byteOrder16Little = 0x1000;
inline constexpr BitmapInfo byteOrder32Little = 0x2000;
inline constexpr BitmapInfo byteOrder16Big = 0x3000;
inline constexpr BitmapInfo byteOrder32Big = 0x4000;
inline constexpr BitmapInfo byteOrderMask = 0x7000;
} // namespace bitmap

} // namespace bic::cg
