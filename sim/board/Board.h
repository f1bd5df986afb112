// The one model of a slave board: services 22 (board state), 24 (information) and 25 (files),
// written from the protocol's side. It shares no code with the loader.
//
// Service 22, board state:
//
//   function       command                      answer
//   0 probe        nothing                      0
//   1 state        nothing                      0, state, hardware fault, software fault
//   2 set state    state (0..2)                 0
//   3 restart      delay (2, not used)          0; then silence for RestartTime
//   4 new address  board number, board type     0, still from the old address
//   5 start        parameters of the start      0
//
// States: 0 ready, 1 stopped, 2 running, 3 started by function 5. An unknown function or state and
// an address outside 1..31 are answered with error 128.
//
// Service 24, information:
//
//   function       command                      answer
//   0, 1, 3 read   tag                          0, tag, length, type, value
//   32 write       tag, length, type, value     0; the hardware item (group 0) is there from now on
//
// Errors: 128 no such item or function, 129 a record that is shorter than it says.
//
// Service 25, files: BoardFiles.h. A distribution received completely (sheader.bin, then every file
// that it lists, each closed after writing) replaces the software items by the header's records,
// clears the software fault and leaves the board ready, at its address and without any silence.
//
// The frames of an answer are ready ResponseTime after the command's last bit. A restart drops the
// answers before its own, and while it lasts the board hears nothing; afterwards it is back at its
// physical address with no file open.
#pragma once

#include "board/BoardFiles.h"
#include "bus/Bus.h"
#include "machine/Machine.h"
#include <deque>

namespace qxsim
{

// What a board is doing.
enum class BoardState : std::uint8_t { Ready, Stopped, Running, Started, Restarting };

const char *get_BoardStateName(BoardState State);

class Board : public Node
{
  public:
    // All boards of the machine are handed over, so that a fault can answer in another's name; they
    // must outlive the board.
    Board(const BoardSpec &Described, const std::vector<BoardSpec> &Machine);

    std::optional<Time> get_NextTime() const override;
    void advance_To(Time Now) override;
    const Frame *get_PendingFrame(Time Now) const override;
    void remove_PendingFrame(Time Now) override;
    Filter get_Filter() const override; // what the master sends
    void receive_Frame(const Frame &Received, Time Now) override;

    // For the report after a run and for the state that is kept.
    const BoardSpec &get_Spec() const; // items, files and software fault as they are now
    BoardState get_State() const;
    std::uint8_t get_BoardType() const; // bus address as it is now
    std::uint8_t get_BoardNumber() const;
    unsigned get_NbCommands() const;  // commands addressed to the board
    unsigned get_NbDownloads() const; // distributions received completely
    const std::vector<std::uint8_t> &get_StartParameters() const; // of the last start, or none

  private:
    struct ReadyFrame {
        Time Ready{};
        Frame Sent;
    };

    void carry_Out(const Command &Received, Time Now);
    Answer serve_Command(const Command &Received, const Strikes &Struck, Time Now);
    Answer serve_State(const Command &Received, Time Now);
    Answer serve_Information(const Command &Received);
    Answer set_NewAddress(const Command &Received);
    Answer write_Item(const Command &Received);
    void restart(Time Now);
    void install_Distribution(const SoftwareHeader &Header);

    // What every frame on the bus makes each board look at comes first, close together.
    Address Own;
    BoardState State{BoardState::Ready};
    Time RestartEnd{};
    std::deque<ReadyFrame> Answers; // in the order in which they become ready
    CommandAssembly Assembly;
    FaultWatch Watch;
    FileService Files;
    BoardSpec Spec;
    const std::vector<BoardSpec> *pOthers;
    std::vector<std::uint8_t> StartParameters;
    unsigned NbCommands{};
    unsigned NbDownloads{};
};

} // namespace qxsim
