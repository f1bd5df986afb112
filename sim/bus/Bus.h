// The wire: one frame at a time, arbitration by identifier, exact frame lengths.
#pragma once

#include "Frame.h"
#include <functional>
#include <optional>
#include <vector>

namespace qxsim
{

// Bits that a frame takes on the wire, from start of frame to the end of the interframe space
// (3 bits), stuff bits counted from the frame's own bits, CRC-15 included (ISO 11898-1).
unsigned count_FrameBits(const Frame &Sent);

// The same without stuff bits: 67 + 8 bits a data byte.
unsigned count_UnstuffedFrameBits(const Frame &Sent);

// What hangs on the wire: a board, the master's driver.
class Node
{
  public:
    virtual ~Node() = default;

    // The next time at which the node does something by itself (a frame becomes ready to be sent,
    // a restart is over); nullopt: never. Times in the past mean "now".
    virtual std::optional<Time> get_NextTime() const = 0;

    // Lets the node do what is due at Now.
    virtual void advance_To(Time Now) = 0;

    // The frame with which the node contends for the wire at Now, or null.
    virtual const Frame *get_PendingFrame(Time Now) const = 0;

    // The pending frame has been sent; its last bit was on the wire at Now.
    virtual void remove_PendingFrame(Time Now) = 0;

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
    // BitRate in bits a second.
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
    // owned by the implementation
    struct Transfer {
        std::size_t Sender{};
        Frame Sent;
        Time End{};
    };
    std::uint32_t BitRate;
    std::vector<Node *> Nodes;
    std::function<void(const Frame &, Time)> Trace;
    std::optional<Transfer> OnWire;
    Time Now{};
    BusLoad Load;
};

} // namespace qxsim
