#include "driver/DriverPort.h"
#include <algorithm>

namespace qxsim
{

DriverPort::DriverPort(const DriverSpec &Described) : Spec{Described} {}

std::optional<Time> DriverPort::get_NextTime() const
{
    return Transmit.empty() ? std::nullopt : std::optional{Transmit.front().Since};
}

void DriverPort::advance_To(Time) {}

const Frame *DriverPort::get_PendingFrame(Time) const
{
    return Transmit.empty() ? nullptr : &Transmit.front().Sent;
}

void DriverPort::remove_PendingFrame(Time)
{
    ++Counters.Sent;
    Transmit.pop_front();
}

void DriverPort::receive_Frame(const Frame &Received, Time)
{
    if (!Open) {
        return;
    }
    if (Receive.size() >= Spec.ReceiveQueue) {
        ++Counters.Overflows;
        return;
    }
    Receive.push_back(Received);
    ++Counters.Received;
}

std::optional<int> DriverPort::count_Request(DriverRequest Request)
{
    const unsigned Count = ++Requests[Request];
    for (const DriverFault &Planned : Spec.Faults) {
        if (Planned.Request == Request && (Planned.Nth == 0 || Planned.Nth == Count)) {
            return Planned.Result;
        }
    }
    return std::nullopt;
}

void DriverPort::open()
{
    reset();
    Open = true;
}

void DriverPort::close()
{
    reset();
    Open = false;
}

void DriverPort::reset()
{
    Transmit.resize(std::min<std::size_t>(Transmit.size(), 1));
    Receive.clear();
}

bool DriverPort::is_TransmitFull() const
{
    return Transmit.size() >= Spec.TransmitQueue;
}

void DriverPort::send(const Frame &Sent, Time Now)
{
    Transmit.push_back({Sent, Now});
}

bool DriverPort::is_FrameWaiting() const
{
    return !Receive.empty();
}

std::optional<Frame> DriverPort::take_Frame()
{
    if (Receive.empty()) {
        return std::nullopt;
    }
    const Frame Taken = Receive.front();
    Receive.pop_front();
    return Taken;
}

std::uint32_t DriverPort::get_Ticks(Time Now) const
{
    return static_cast<std::uint32_t>(Now / Spec.Tick);
}

const DriverCounters &DriverPort::get_Counters() const
{
    return Counters;
}

} // namespace qxsim
