// A node for tests.
#pragma once

#include "bus/Bus.h"
#include "bus/FrameText.h"
#include <deque>
#include <string>

using namespace qxsim;
using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

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
        Frames.push_back({Ready, read_Frame(Text)});
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
        Received.push_back(std::to_string(Now / 1us) + " " + show_Frame(Sent));
    }
};
