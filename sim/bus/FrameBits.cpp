// Exact frame lengths. Both the CRC and the stuffing run over a byte at a time, through tables that
// the compiler fills: a start of the machine sends some 100,000 frames, and each one is measured.
#include "Bus.h"

#include <algorithm>

namespace qxsim
{

namespace
{

constexpr unsigned NB_HEADER_BITS = 39; // start of frame to the length code
constexpr unsigned NB_CRC_BITS = 15;
constexpr unsigned NB_TAIL_BITS = 10 + NB_INTERFRAME_BITS; // CRC delimiter, ACK, its delimiter, end
constexpr unsigned CRC_POLYNOMIAL = 0x4599; // x^15+x^14+x^10+x^8+x^7+x^4+x^3+1, ISO 11898-1

unsigned get_NbDataBytes(const Frame &Sent)
{
    return std::min<unsigned>(Sent.Length, 8);
}

constexpr std::array<std::uint16_t, 256> CRC_TABLE = [] {
    std::array<std::uint16_t, 256> Table{};
    for (unsigned Byte = 0; Byte < 256; ++Byte) {
        unsigned Crc = Byte << 7;
        for (int Bit = 0; Bit < 8; ++Bit) {
            Crc = (Crc << 1) ^ ((Crc & 0x4000) != 0 ? CRC_POLYNOMIAL : 0);
        }
        Table[Byte] = static_cast<std::uint16_t>(Crc & 0x7FFF);
    }
    return Table;
}();

// What the stuffing must remember between two bits: the last bit and how many like it precede, 1 to
// 4 (a fifth is followed at once by the stuff bit, which starts a new run). 8 states: the bit * 4 +
// run - 1.
struct StuffStep {
    std::uint8_t State;
    std::uint8_t NbStuffBits;
};

constexpr std::uint8_t STATE_ONE_BIT_1 = 4;

constexpr std::array<std::array<StuffStep, 256>, 8> STUFF_TABLE = [] {
    std::array<std::array<StuffStep, 256>, 8> Table{};
    for (unsigned State = 0; State < 8; ++State) {
        for (unsigned Byte = 0; Byte < 256; ++Byte) {
            unsigned Last = State / 4;
            unsigned Run = State % 4 + 1;
            unsigned NbStuffBits = 0;
            for (int Bit = 7; Bit >= 0; --Bit) {
                const unsigned Value = (Byte >> Bit) & 1;
                Run = Value == Last ? Run + 1 : 1;
                Last = Value;
                if (Run == 5) {
                    ++NbStuffBits;
                    Last = 1 - Last;
                    Run = 1;
                }
            }
            Table[State][Byte] = {static_cast<std::uint8_t>(Last * 4 + Run - 1),
                                  static_cast<std::uint8_t>(NbStuffBits)};
        }
    }
    return Table;
}();

// The stuffed part of a frame: 39 bits of header, the data, the CRC of both. One bit in front and
// one behind make it whole bytes.
using Bytes = std::array<std::uint8_t, 5 + 8 + 2>;

// Start of frame 0, bits 28..18 of the identifier, SRR 1, IDE 1, bits 17..0, RTR 0, r1 0, r0 0, 4
// bits of length. The bit in front is 0, which leaves the CRC as it is.
std::uint64_t make_Header(const Frame &Sent)
{
    const std::uint64_t Base = (Sent.Identifier >> 18) & 0x7FF;
    const std::uint64_t Extension = Sent.Identifier & 0x3FFFF;
    return Base << 27 | std::uint64_t{3} << 25 | Extension << 7 | get_NbDataBytes(Sent);
}

unsigned compute_Crc(const Bytes &Part, std::size_t NbBytes)
{
    unsigned Crc = 0;
    for (std::size_t i = 0; i < NbBytes; ++i) {
        Crc = ((Crc << 8) & 0x7FFF) ^ CRC_TABLE[(Crc >> 7) ^ Part[i]];
    }
    return Crc;
}

unsigned count_StuffBits(const Bytes &Part, std::size_t NbBytes)
{
    unsigned State = STATE_ONE_BIT_1; // the wire is recessive before a frame
    unsigned NbStuffBits = 0;
    for (std::size_t i = 0; i < NbBytes; ++i) {
        const StuffStep Step = STUFF_TABLE[State][Part[i]];
        State = Step.State;
        NbStuffBits += Step.NbStuffBits;
    }
    return NbStuffBits;
}

} // namespace

unsigned count_UnstuffedFrameBits(const Frame &Sent)
{
    return NB_HEADER_BITS + 8 * get_NbDataBytes(Sent) + NB_CRC_BITS + NB_TAIL_BITS;
}

unsigned count_FrameBits(const Frame &Sent)
{
    Bytes Part{};
    std::size_t NbBytes = 0;
    const std::uint64_t Header = make_Header(Sent);
    for (int Shift = 32; Shift >= 0; Shift -= 8) {
        Part[NbBytes++] = static_cast<std::uint8_t>(Header >> Shift);
    }
    std::copy_n(Sent.Data.begin(), get_NbDataBytes(Sent), Part.begin() + NbBytes);
    NbBytes += get_NbDataBytes(Sent);

    const unsigned Crc = compute_Crc(Part, NbBytes);
    Part[0] |= 0x80; // to the stuffing, the bit in front belongs to the recessive wire
    Part[NbBytes++] = static_cast<std::uint8_t>(Crc >> 7);
    // The bit behind differs from the last bit of the CRC, so that it never calls for a stuff bit.
    Part[NbBytes++] = static_cast<std::uint8_t>(Crc << 1 | (~Crc & 1));
    return count_UnstuffedFrameBits(Sent) + count_StuffBits(Part, NbBytes);
}

} // namespace qxsim
