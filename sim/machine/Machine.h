// The description of a machine: what a machine folder's machine.toml says, as records. Boards, bus,
// clock and driver are made from it.
#pragma once

#include "Frame.h"
#include <cerrno>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qxsim
{

// A typed information item of a board (service 24).
struct Item {
    std::uint8_t Type{};             // number of the type; bit 7 set: unsigned
    std::vector<std::uint8_t> Value; // as on the wire, at most 255 bytes

    bool operator==(const Item &) const = default;
};

struct ItemKey {
    std::uint8_t Group{}; // 0 hardware (function 64), 1 software (65), 3 loader (67)
    std::uint8_t Tag{};

    // The comparison with 0 that the compiler writes for a map is taken for a null pointer.
    auto operator<=>(const ItemKey &) const = default; // NOLINT(modernize-use-nullptr)
};

using ItemTable = std::map<ItemKey, Item>;
using FileTable = std::map<std::string, std::vector<std::uint8_t>>;

// What a fault does to the answers. Faults that strike one command act one after the other, in the
// order of the table: Error with Duplicate is an error answer that comes twice. A fault that does
// not fit the answer (WrongCounter on a single frame, WrongType on a board state) leaves it alone.
enum class FaultKind {
    Silence,          // no answer; the command has been carried out
    Error,            // error answer with Code; the command is not carried out
    Late,             // the answer comes Delay later
    Duplicate,        // the answer comes twice
    WrongType,        // the type byte of the item answered is Code
    WrongLength,      // the length byte of the item answered is Code
    WrongValue,       // the value bytes of the answer are Bytes; an item's length byte follows
    WrongCounter,     // second frame of a multi-frame answer has a wrong frame counter
    LoneContinuation, // a continuation frame without a start comes before the answer
    Truncated,        // the last frame of a multi-frame answer, or the last data byte of a single
                      // one, is missing
    OtherBoard,       // the answer bears the address of board Other: its physical one, or the board
                      // type and number of Bytes, for a board that has been moved
    Unsolicited,      // an answer that nobody asked for (function 63) comes before the answer
    ShortWrite,       // a file write stores Code bytes fewer than sent, and answers success
    NegativeLength,   // an open answers the file length -1
    NoData,           // a read answers success without data
    AlreadyOpen,      // an open finds a forgotten open file (130 until it is closed)
};

// One fault of one board. It strikes the commands that match every given field.
struct Fault {
    FaultKind Kind{};
    std::optional<std::uint8_t> Service;  // MT of the command
    std::optional<std::uint8_t> Function; // Fn AND 0x3F of the command
    std::optional<std::uint8_t> Tag;      // first parameter byte of the command
    unsigned Nth{};                       // 1: the first such command ...; 0: every one
    std::uint8_t Code{};
    Time Delay{};
    std::vector<std::uint8_t> Bytes;
    std::string Other;
};

struct BoardSpec {
    std::string Name;
    std::uint8_t BoardType{};   // physical address, 1..31
    std::uint8_t BoardNumber{}; // physical address, 1..31
    bool Present{true};
    Time ResponseTime{std::chrono::microseconds{500}}; // end of the command to start of the answer
    Time RestartTime{std::chrono::milliseconds{600}};  // silence after a restart
    std::optional<std::uint8_t> Flood; // it sends frames of this service without end
    std::uint8_t HardwareFault{};      // byte 2 of the board state answer
    std::uint8_t SoftwareFault{};      // byte 3; a complete download clears it
    ItemTable Items;
    FileTable Files; // by name relative to the distribution's root
    std::vector<Fault> Faults;
};

enum class DriverRequest { Open, Reset, Send, Receive, Timer };

struct DriverFault {
    DriverRequest Request{};
    unsigned Nth{}; // 0: every one
    int Result{-1};
};

struct DriverSpec {
    std::size_t ReceiveQueue{512};               // frames; more are lost and counted
    std::size_t TransmitQueue{16};               // frames; a send blocks while it is full
    Time Tick{std::chrono::milliseconds{1}};     // of the system timer
    Time CallCost{std::chrono::microseconds{5}}; // virtual time that a request takes
    bool ModuleLoaded{true};                     // /proc/modules names the driver
    std::vector<DriverFault> Faults;
};

// Kinds of the loader's own calls to the outside; sim/preload/Outside.cpp lists the functions.
enum class OutsideCall {
    Open,
    Read,
    Write,
    Close,
    Rename,
    Remove,
    Mkdir,
    Chdir,
    Allocation,
    Shell,
    Driver,
    Thread,
};

struct OutsideCallName {
    const char *Name;
    OutsideCall Call;
    int Errno; // of a fault that does not say one
};

// In the order of OutsideCall.
inline constexpr OutsideCallName OutsideCallNames[] = {
    {"open", OutsideCall::Open, EIO},
    {"read", OutsideCall::Read, EIO},
    {"write", OutsideCall::Write, ENOSPC},
    {"close", OutsideCall::Close, EIO},
    {"rename", OutsideCall::Rename, EIO},
    {"remove", OutsideCall::Remove, EIO},
    {"mkdir", OutsideCall::Mkdir, ENOSPC},
    {"chdir", OutsideCall::Chdir, EIO},
    {"allocation", OutsideCall::Allocation, ENOMEM},
    {"shell", OutsideCall::Shell, 0},
    {"driver", OutsideCall::Driver, EIO},
    {"thread", OutsideCall::Thread, EAGAIN},
};

// Whether a command of the shell makes a file, of which half may be made.
inline bool is_MakingFile(std::string_view Command)
{
    const std::string_view Program = Command.substr(0, Command.find(' '));
    return Program == "cp" || Program == "tar" || Program == "gzip" || Program == "gunzip";
}

struct OutsideFault {
    OutsideCall Call{};
    unsigned Nth{};    // 1: the first call of its kind ...; 0: every one
    int Errno{};       // that the failing call leaves
    int ExitStatus{1}; // shell: of the command
    bool Run{};        // shell: the command is run all the same
    bool Half{};       // shell: it is run, and half of what it makes is there: the disk is full
};

enum class CutMoment { Before, Middle, After };

// The power goes at a call of the loader.
struct PowerCut {
    OutsideCall Call{};
    unsigned Nth{1}; // 1: the first call of its kind
    CutMoment When{};
};

struct ClockSpec {
    Time Quantum{std::chrono::microseconds{100}}; // what a wait of less than that takes
    std::int64_t Date{};                          // wall clock at power-on, seconds since 1970
};

// How a script of the platform behaves.
struct ScriptSpec {
    int ExitStatus{}; // what a failing call ends with
    unsigned From{};  // the first failing call, from 1; 0: none fails
};

struct CardSpec {
    bool Mounted{true};                // when the loader starts
    std::optional<std::uint64_t> Size; // bytes it holds; nullopt: as many as the host's disk
    std::optional<Time> Gone;          // when it disappears
};

struct Machine {
    std::string Name;
    std::uint32_t BitRate{250000};
    std::string Interface{"cana"}; // name in the trace
    ClockSpec Clock;
    DriverSpec Driver;
    CardSpec Card;
    std::vector<OutsideFault> OutsideFaults;
    std::optional<PowerCut> Cut;
    std::map<std::string, ScriptSpec>
        Scripts; // by name: ins_cf, rm_cf, usbmount, mount_net, umount_net
    std::vector<BoardSpec> Boards;
};

} // namespace qxsim
