#include "Bus.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace qxsim
{

Bus::Bus(std::uint32_t Rate) : BitRate{Rate}
{
    if (Rate == 0) {
        throw std::invalid_argument{"a bus needs a bit rate"};
    }
}

void Bus::attach_Node(Node &Attached)
{
    Nodes.push_back(&Attached);
    Filters.push_back(Attached.get_Filter());
    NextTimes.push_back(Time::max());
}

void Bus::set_Trace(std::function<void(const Frame &, Time)> Called)
{
    Trace = std::move(Called);
}

const BusLoad &Bus::get_Load() const
{
    return Load;
}

Time Bus::get_Duration(unsigned Bits) const
{
    return Time{std::int64_t{Bits} * 1'000'000'000 / BitRate};
}

std::optional<Time> Bus::get_NextTime() const
{
    std::optional<Time> Next;
    if (OnWire) {
        Next = OnWire->End;
    }
    for (const Node *Asked : Nodes) {
        std::optional<Time> Due = Asked->get_NextTime();
        if (Due && *Due <= Now) {
            Due = Asked->get_PendingFrame(Now) != nullptr ? std::max(Now, Free) : Now;
        }
        if (Due && (!Next || *Due < *Next)) {
            Next = Due;
        }
    }
    return Next;
}

void Bus::advance_Node(std::size_t Index)
{
    Nodes[Index]->advance_To(Now);
    NextTimes[Index] = Nodes[Index]->get_NextTime().value_or(Time::max());
}

// The same as get_NextTime, from the times that were kept: asking every node at every event would
// cost most of the time of a run. Time::max(): never.
Time Bus::find_NextTime() const
{
    Time Next = Time::max();
    bool Waiting = false;
    for (const Time Due : NextTimes) {
        Waiting = Waiting || Due <= Now;
        Next = std::min(Next, Due <= Now ? Time::max() : Due);
    }
    if (OnWire) {
        return std::min(Next, OnWire->End);
    }
    return Waiting && Free > Now ? std::min(Next, Free) : Next;
}

// Arbitration: the lowest identifier among the frames that are pending now.
void Bus::start_Transfer()
{
    const Frame *Winner = nullptr;
    std::size_t Sender = 0;
    for (std::size_t i = 0; i < Nodes.size(); ++i) {
        const Frame *Pending = NextTimes[i] <= Now ? Nodes[i]->get_PendingFrame(Now) : nullptr;
        if (Pending != nullptr && (Winner == nullptr || Pending->Identifier < Winner->Identifier)) {
            Winner = Pending;
            Sender = i;
        }
    }
    if (Winner != nullptr) {
        const unsigned Bits = count_FrameBits(*Winner);
        OnWire = Transfer{Sender, *Winner, Now + get_Duration(Bits - NB_INTERFRAME_BITS), Bits};
        Free = Now + get_Duration(Bits);
    }
}

void Bus::finish_Transfer()
{
    const Transfer Done = *OnWire;
    OnWire.reset();
    ++Load.Frames;
    Load.Bits += Done.Bits;
    Load.Busy += get_Duration(Done.Bits);
    if (Trace) {
        Trace(Done.Sent, Now);
    }
    Nodes[Done.Sender]->remove_PendingFrame(Now);
    advance_Node(Done.Sender);
    for (std::size_t i = 0; i < Nodes.size(); ++i) {
        if (i != Done.Sender && (Done.Sent.Identifier & Filters[i].Mask) == Filters[i].Code) {
            Nodes[i]->receive_Frame(Done.Sent, Now);
            advance_Node(i);
        }
    }
}

void Bus::advance_To(Time Until)
{
    // Between two runs, the nodes may have been given something to do.
    for (std::size_t i = 0; i < Nodes.size(); ++i) {
        advance_Node(i);
    }
    while (true) {
        if (!OnWire && Now >= Free) {
            start_Transfer();
        }
        const Time Next = find_NextTime();
        if (Next > Until || Next == Time::max()) {
            break;
        }
        Now = Next;
        for (std::size_t i = 0; i < Nodes.size(); ++i) {
            if (NextTimes[i] <= Now) {
                advance_Node(i);
            }
        }
        if (OnWire && OnWire->End <= Now) {
            finish_Transfer();
        }
    }
    Now = std::max(Now, Until);
}

} // namespace qxsim
