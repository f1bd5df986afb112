// A file that grows during the run. What it holds back is written without allocating, so that a
// crashing loader loses nothing.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace qxsim
{

class Journal
{
  public:
    // Creates the file; false when it cannot be.
    bool open(const char *Path);
    void append(std::string_view Text);
    void flush();

  private:
    int Fd{-1};
    std::size_t Held{};
    std::array<char, 65536> Buffer{};
};

// Writes all of Text to Fd, without going through the C library's functions.
void write_Whole(int Fd, std::string_view Text);

} // namespace qxsim
