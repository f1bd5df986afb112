// The wire: one frame at a time, arbitration by identifier, exact frame lengths.
//
// A frame is received when its last bit is on the wire; the next one starts 3 bits later at the
// earliest. Whatever is pending at that time contends, and the lowest identifier wins. Nothing is
// ever lost or damaged on the wire: faults are the boards'.
#pragma once

#include "Frame.h"
#include <functional>
#include <optional>
#include <vector>

namespace qxsim
{

// Bits between two frames, which are part of the length of the first.
constexpr unsigned NB_INTERFRAME_BITS = 3;

// Bits that a frame takes on the wire, from start of frame to the end of the interframe space
// (3 bits), stuff bits counted from the frame's own bits, CRC-15 included (ISO 11898-1).
unsigned count_FrameBits(const Frame &Sent);

// The same without stuff bits: 67 + 8 bits a data byte.
unsigned count_UnstuffedFrameBits(const Frame &Sent);

// The acceptance filter of a node's CAN controller: frames whose identifier AND Mask is Code are
// received, the others never reach the node.
struct Filter {
    std::uint32_t Mask{};
    std::uint32_t Code{};
};

// What hangs on the wire: a board, the master's driver.
class Node
{
  public:
    virtual ~Node() = default;

    // The next time at which the node does something by itself (a frame becomes ready to be sent,
    // a restart is over); nullopt: never. While a frame is pending, this is a time in the past: the
    // node then waits for the wire. Any other time in the past means "now".
    virtual std::optional<Time> get_NextTime() const = 0;

    // Lets the node do what is due at Now; afterwards nothing is due by then but a pending frame.
    virtual void advance_To(Time Now) = 0;

    // The frame with which the node contends for the wire at Now, or null.
    virtual const Frame *get_PendingFrame(Time Now) const = 0;

    // The pending frame has been sent; its last bit was on the wire at Now.
    virtual void remove_PendingFrame(Time Now) = 0;

    // Asked once, when the node is attached; by default everything is received.
    virtual Filter get_Filter() const
    {
        return {};
    }

    // A frame of another node has been received at Now.
    virtual void receive_Frame(const Frame &Received, Time Now) = 0;
};

struct BusLoad {
    std::uint64_t Frames{};
    std::uint64_t Bits{}; // on the wire, stuff bits and interframe space included
    Time Busy{};
};

class Bus
{
  public:
    // BitRate in bits a second, not 0.
    explicit Bus(std::uint32_t BitRate);

    // The node must live as long as the bus. Of two nodes that contend with one identifier, the
    // one attached first wins.
    void attach_Node(Node &Attached);

    // Called for each frame when its last bit is on the wire.
    void set_Trace(std::function<void(const Frame &, Time)> Trace);

    // The next time at which anything happens on the wire or in a node; nullopt: never.
    std::optional<Time> get_NextTime() const;

    // Runs everything that happens up to Until, that time included, in the order of time.
    void advance_To(Time Until);

    const BusLoad &get_Load() const;

  private:
    struct Transfer {
        std::size_t Sender{};
        Frame Sent;
        Time End{};      // of the frame's last bit
        unsigned Bits{}; // interframe space included
    };

    Time get_Duration(unsigned Bits) const;
    void advance_Node(std::size_t Index);
    void start_Transfer();
    void finish_Transfer();
    Time find_NextTime() const;

    std::uint32_t BitRate;
    std::vector<Node *> Nodes;
    std::vector<Filter> Filters; // of the nodes
    std::vector<Time> NextTimes; // of the nodes, kept while the bus runs; Time::max(): never
    std::function<void(const Frame &, Time)> Trace;
    std::optional<Transfer> OnWire;
    Time Now{};
    Time Free{}; // the interframe space after the last frame ends here
    BusLoad Load;
};

} // namespace qxsim
