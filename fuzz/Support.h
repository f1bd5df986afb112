// What the fuzz programs share.
//
// A fuzz program (fuzz_NAME.cpp) gives arbitrary bytes to one reader of the loader, the way they
// reach it on a machine: as a file at its fixed path, in private folders, or as frames from the
// boards. Built with clang's -fsanitize=fuzzer (preset fuzz) it looks for inputs by itself; in
// every other build it plays the inputs of fuzz/corpus/NAME once, as the test fuzz.NAME.
//
// The loader ends its process on purpose on much of what it reads. In a fuzz program exit_Process
// and stop_Assertion throw an END instead; each program lists the ends that its input may have.
// Any other one is a finding, like a crash. The linker puts these two and system() in place
// (--wrap), so the loader's code is that of the machine.
#ifndef QX_FUZZ_SUPPORT_H
#define QX_FUZZ_SUPPORT_H

#include "FakeCan.h"
#include "PrivateFolders.h"
#include "Tables.h"
#include <cstdint>
#include <initializer_list>
#include <string>

// "exit -499", or the text of an assertion.
using END = std::string;

// Stops the program: Text is what was found.
void require(bool Condition, const std::string &Text);

// Runs the loader's code until it comes back (true) or ends in one of Ends (false).
template <typename CALL>
bool run_Loader(std::initializer_list<END> Ends, CALL Call)
{
    try {
        Call();
        return true;
    } catch (const END &Reached) {
        bool Documented = false;
        for (const END &End : Ends)
            Documented = Documented || End == Reached;
        require(Documented, "the loader ended: " + Reached);
        return false;
    }
}

// Answer tables, and Count boards (65 at most, the last without a bit) on CAN A: board i has type
// and first functional address 1 + i / 8, number and second functional address 1 + i % 8. No
// thread.
void start_Machine(int Count);

// Frees all that the loader has allocated and forgets what it found.
void stop_Machine();

// The answer Fn, Parameters... (769 bytes at most) of a board or group arrives, in frames.
void receive_Answer(uint8_t MT, BM_SLAVE_CAST Sender, const std::string &Message);

#endif
