#include "bus/FrameText.h"
#include <cstdio>
#include <sstream>

namespace qxsim
{

std::string show_Frame(const Frame &Shown)
{
    char Text[32];
    int Length = std::snprintf(Text, sizeof Text, "%08X#", Shown.Identifier);
    for (std::size_t i = 0; i < Shown.Length; ++i) {
        Length += std::snprintf(Text + Length, 3, "%02X", Shown.Data.at(i));
    }
    return Text;
}

Frame read_Frame(const std::string &Text)
{
    Frame Read;
    Read.Identifier = static_cast<std::uint32_t>(std::stoul(Text.substr(0, 8), nullptr, 16));
    for (std::size_t i = 9; i + 1 < Text.size() && Read.Length < Read.Data.size(); i += 2) {
        Read.Data[Read.Length++] =
            static_cast<std::uint8_t>(std::stoul(Text.substr(i, 2), nullptr, 16));
    }
    return Read;
}

std::vector<TracedFrame> read_Trace(const std::string &Trace)
{
    std::vector<TracedFrame> Frames;
    std::istringstream Text{Trace};
    for (std::string Stamp, Interface, Words; Text >> Stamp >> Interface >> Words;) {
        const std::chrono::seconds Seconds{std::stoll(Stamp.substr(1, 10))};
        const std::chrono::microseconds Micros{std::stoll(Stamp.substr(12, 6))};
        Frames.push_back({Seconds + Micros, read_Frame(Words)});
    }
    return Frames;
}

} // namespace qxsim
