// The master's CAN controller and its driver, as a node of the bus: a receive queue that loses what
// does not fit, a transmit queue that makes its sender wait, a tick counter.
#pragma once

#include "bus/Bus.h"
#include "machine/Machine.h"
#include <deque>

namespace qxsim
{

struct DriverCounters {
    std::uint64_t Sent{};      // frames that went out
    std::uint64_t Received{};  // frames that went into the receive queue
    std::uint64_t Overflows{}; // frames lost because the receive queue was full
};

class DriverPort : public Node
{
  public:
    explicit DriverPort(const DriverSpec &Spec);

    std::optional<Time> get_NextTime() const override;
    void advance_To(Time Now) override;
    const Frame *get_PendingFrame(Time Now) const override;
    void remove_PendingFrame(Time Now) override;
    void receive_Frame(const Frame &Received, Time Now) override;

    // Counts a request; the result with which the machine wants it to fail, nullopt: it is served.
    std::optional<int> count_Request(DriverRequest Request);

    // Frames are received from an open to the close. Both empty the queues, as a reset does; the
    // frame that may be on the wire already goes out all the same.
    void open();
    void close();
    void reset();

    bool is_TransmitFull() const;

    // Puts a frame into the transmit queue, which must not be full.
    void send(const Frame &Sent, Time Now);

    bool is_FrameWaiting() const;

    // The oldest received frame; nullopt: none waits.
    std::optional<Frame> take_Frame();

    // The system timer at Now.
    std::uint32_t get_Ticks(Time Now) const;

    const DriverCounters &get_Counters() const;

  private:
    struct Queued {
        Frame Sent;
        Time Since{};
    };
    DriverSpec Spec;
    bool Open{};
    std::deque<Queued> Transmit;
    std::deque<Frame> Receive;
    std::map<DriverRequest, unsigned> Requests;
    DriverCounters Counters;
};

} // namespace qxsim
