// What the whole simulated machine shares: virtual time and the CAN frame.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>

namespace qxsim
{

// Virtual time since the machine was switched on.
using Time = std::chrono::nanoseconds;

// A data frame with a 29-bit identifier (ISO 11898-1, extended format).
struct Frame {
    std::uint32_t Identifier{}; // bits 0..28
    std::uint8_t Length{};      // valid bytes of Data, 0 to 8
    std::array<std::uint8_t, 8> Data{};

    bool operator==(const Frame &) const = default;
};

} // namespace qxsim
