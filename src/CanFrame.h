// The frame record that the CAN driver and the program exchange. It is the driver's format: the
// offsets are fixed. This is the one header that the simulated machine shares with the loader.
#ifndef QX_CANFRAME_H
#define QX_CANFRAME_H

#include <cstddef>
#include <cstdint>

struct CAN_FRAME {
    uint8_t ControlA;     // offset 0: 0 in every sent frame
    uint8_t ControlB;     // offset 1: 1 in every sent frame (data frame, extended identifier)
    uint8_t Reserved1[6]; // offset 2: neither written nor read
    uint32_t
        Identifier;  // offset 8: 29-bit identifier (ISO 11898-1 extended format), bits 29..31 zero
    uint8_t Length;  // offset 12: valid data bytes, 1 to 8
    uint8_t Data[8]; // offset 13: data bytes 0..7
    uint8_t Reserved2[3]; // offset 21: padding
};

static_assert(sizeof(CAN_FRAME) == 24);
static_assert(offsetof(CAN_FRAME, Identifier) == 8);
static_assert(offsetof(CAN_FRAME, Length) == 12);
static_assert(offsetof(CAN_FRAME, Data) == 13);

#endif
