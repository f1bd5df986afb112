// The one model of a slave board: services 22 (board state), 24 (information) and 25 (files),
// written from the protocol's side. It shares no code with the loader.
#pragma once

#include "bus/Bus.h"
#include "machine/Machine.h"
#include <deque>

namespace qxsim
{

// What a board is doing.
enum class BoardState { Restarting, Ready, Stopped, Running, Started };

const char *get_BoardStateName(BoardState State);

class Board : public Node
{
  public:
    // All boards of the machine are handed over, so that a fault can answer in another's name; they
    // must outlive the board.
    Board(const BoardSpec &Spec, const std::vector<BoardSpec> &Others);

    std::optional<Time> get_NextTime() const override;
    void advance_To(Time Now) override;
    const Frame *get_PendingFrame(Time Now) const override;
    void remove_PendingFrame(Time Now) override;
    void receive_Frame(const Frame &Received, Time Now) override;

    // For the report after a run and for the state that is kept.
    const BoardSpec &get_Spec() const; // items and files as they are now
    BoardState get_State() const;
    std::uint8_t get_BoardType() const; // bus address as it is now
    std::uint8_t get_BoardNumber() const;
    unsigned get_NbCommands() const;  // commands addressed to the board
    unsigned get_NbDownloads() const; // distributions received completely

  private:
    BoardSpec Spec;
};

} // namespace qxsim
