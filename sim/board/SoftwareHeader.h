// sheader.bin as a board reads it: what its software is, and which files it consists of.
//
//   offset size
//   0      2    signature 0x0601
//   2      4    size of the file
//   6      4    offset of the software records    10  2  their number
//   12     4    offset of the file list           16  2  number of files
//   18     12   not used by a board
//
// A software record: tag, length, type, value of that length. A file: 11 bytes that a board does
// not use, then the name with its NUL. All numbers most significant byte first.
#pragma once

#include "machine/Machine.h"
#include <set>

namespace qxsim
{

constexpr char NAME_SHEADER[] = "sheader.bin";

struct SoftwareHeader {
    ItemTable Items; // group 1; of two records of one tag, the first counts
    std::set<std::string> Files;
};

// Nullopt: not a header, or one that says what the file does not hold.
std::optional<SoftwareHeader> parse_SoftwareHeader(const std::vector<std::uint8_t> &Content);

} // namespace qxsim
