// sheader.bin, the header of a software distribution: its information records and its file list.
// Written and read here without any code of the loader, so that each checks the other.
//
//     offset  size   (all numbers big-endian)
//          0     2   signature, 0x0601
//          2     4   size of the file
//          6     4   offset of the records      10  2  their number
//         12     4   offset of the file list    16  2  number of files
//         18    12   zero
//
// Record: tag, length L, type, L value bytes (at most 125), packed. Entry of the file list: 11
// bytes, then the name with its NUL. The loader skips the 11 bytes; in headers made here they are
// the size of the file (4 bytes) and "qxdist" with a NUL, by which a reader knows that it is one.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace qxdist
{

using Bytes = std::vector<std::uint8_t>;

// Says in words for a person what is wrong with an input.
class Error : public std::runtime_error
{
  public:
    using std::runtime_error::runtime_error;
};

constexpr char NAME_HEADER[] = "sheader.bin";
constexpr std::size_t NB_VALUE_MAX = 125;     // bytes of a record's value that the loader takes
constexpr std::size_t NB_FILE_NAME_MAX = 128; // characters of a file name that the loader takes

// Tags that the loader knows.
constexpr std::uint8_t TAG_TYPES = 1; // bit map of the types that the software serves
constexpr std::uint8_t TAG_NAME = 2;
constexpr std::uint8_t TAG_VERSION = 3; // 4 sub-version, 5 compilation
constexpr std::uint8_t TAG_INDEX_LOW = 9;
constexpr std::uint8_t TAG_INDEX_HIGH = 10;
constexpr std::uint8_t TAG_ASKED_MAX = 5; // the loader stops at a header of not more records

// Types of a value; bit 7 set: unsigned.
constexpr std::uint8_t TYPE_SHORT = 2;
constexpr std::uint8_t TYPE_TEXT = 5;
constexpr std::uint8_t TYPE_BYTES = 6;

struct Record {
    std::uint8_t Tag{};
    std::uint8_t Type{};
    Bytes Value;
};

struct ListedFile {
    std::string Name;                  // path relative to the distribution's root
    std::optional<std::uint32_t> Size; // bytes; nullopt: the header does not tell
};

struct Header {
    std::vector<Record> Records;
    std::vector<ListedFile> Files;
};

// A record from text: a number (types 1, 2, 3, 9, also with bit 7), a character (4), a text (5),
// pairs of hexadecimal digits (6, 8), a decimal fraction (7). Throws Error when it does not fit.
Record make_Record(std::uint8_t Tag, std::uint8_t Type, const std::string &Text);
Record make_ShortRecord(std::uint8_t Tag, unsigned Value); // 0..65535

// Type map: bit (t mod 8) of byte (t div 8) for every type t.
Record make_TypesRecord(const std::vector<std::uint8_t> &Types);

// The value for a person, in the notation of make_Record where it fits its type.
std::string show_Value(const Record &Shown);
std::string show_Type(std::uint8_t Type);

Bytes make_Header(const Header &Written);

// Throws Error for a file that is not a header or whose tables do not lie in it.
Header parse_Header(const Bytes &Content);

// "NAME.1.2.3" as the loader makes it. Throws Error when a record is missing or of no use.
std::string get_DistributionName(const Header &Named);

// What the loader would not take of a name of a file, "" when it takes it.
std::string check_FileName(const std::string &Name);

// Everything that the loader would not take of a header that could be parsed, a sentence each.
std::vector<std::string> check_Header(const Header &Checked);

} // namespace qxdist
