// A node for tests, and frames as text, "IIIIIIII#DDDD": identifier of 8 hexadecimal digits, data.
#pragma once

#include "bus/Bus.h"
#include <cstdio>
#include <deque>
#include <string>

using namespace qxsim;
using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

inline Frame make_Frame(const std::string &Text)
{
    Frame Made;
    Made.Identifier = static_cast<std::uint32_t>(std::stoul(Text, nullptr, 16));
    for (std::size_t i = 9; i < Text.size(); i += 2) {
        Made.Data.at(Made.Length++) =
            static_cast<std::uint8_t>(std::stoul(Text.substr(i, 2), nullptr, 16));
    }
    return Made;
}

inline std::string make_Text(const Frame &Shown)
{
    char Text[32];
    int Length = std::snprintf(Text, sizeof Text, "%08X#", Shown.Identifier);
    for (std::size_t i = 0; i < Shown.Length; ++i) {
        Length += std::snprintf(Text + Length, 3, "%02X", Shown.Data.at(i));
    }
    return Text;
}

// Sends frames at given times and keeps what it receives, with the times.
struct Station : Node {
    struct Planned {
        Time Ready;
        Frame Sent;
    };
    std::deque<Planned> Frames;
    std::vector<std::string> Received;
    Filter Accepted;

    void plan(Time Ready, const char *Text)
    {
        Frames.push_back({Ready, make_Frame(Text)});
    }
    std::optional<Time> get_NextTime() const override
    {
        return Frames.empty() ? std::nullopt : std::optional{Frames.front().Ready};
    }
    void advance_To(Time) override {}
    const Frame *get_PendingFrame(Time Now) const override
    {
        return Frames.empty() || Frames.front().Ready > Now ? nullptr : &Frames.front().Sent;
    }
    void remove_PendingFrame(Time) override
    {
        Frames.pop_front();
    }
    Filter get_Filter() const override
    {
        return Accepted;
    }
    void receive_Frame(const Frame &Sent, Time Now) override
    {
        Received.push_back(std::to_string(Now / 1us) + " " + make_Text(Sent));
    }
};
