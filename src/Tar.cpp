#include "Tar.h"
#include "FileTools.h"
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

// A header and every piece of a file fill blocks of this size.
constexpr int BLOCK_SIZE = 512;

// Fields of a header (POSIX.1-1988, ustar).
constexpr int NAME_SIZE = 100; // at 0
constexpr int SIZE_OFFSET = 124;
constexpr int SIZE_SIZE = 12; // octal digits, then NUL or blank
constexpr int TYPE_OFFSET = 156;

static bool is_EndMarker(const char (&Header)[BLOCK_SIZE])
{
    return std::all_of(Header, Header + BLOCK_SIZE, [](char Byte) { return Byte == 0; });
}

// Bytes of the file behind the header; -1: no number.
static int64_t get_Size(const char (&Header)[BLOCK_SIZE])
{
    int64_t Size = -1;

    for (int i = SIZE_OFFSET; i < SIZE_OFFSET + SIZE_SIZE; i++) {
        const char Digit = Header[i];
        if (Digit < '0' || Digit > '7')
            return Digit == 0 || Digit == ' ' ? Size : -1;
        Size = (Size < 0 ? 0 : Size * 8) + (Digit - '0');
    }
    return Size;
}

// Whether the file of the header lies in the current directory with another size than Size.
static bool is_Cut(const char (&Header)[BLOCK_SIZE], int64_t Size)
{
    const char Type = Header[TYPE_OFFSET];
    char Name[NAME_SIZE + 1] = {};
    struct stat Found {
    };

    memcpy(Name, Header, NAME_SIZE);
    return (Type == '0' || Type == 0) && ctrl_SafeName(Name) && stat(Name, &Found) == 0 &&
           Found.st_size != Size;
}

// From header to header. 1: an end marker follows the last file; 0: the archive breaks off, or a
// file is cut (Unpacked); -1: the archive ends with a file.
static int ctrl_Entries(FILE *pTar, bool Unpacked)
{
    char Header[BLOCK_SIZE];
    struct stat Whole {
    };
    int64_t Position = 0;

    if (fstat(fileno(pTar), &Whole) != 0)
        return 0;
    while (Position < Whole.st_size) {
        if (fseeko(pTar, static_cast<off_t>(Position), SEEK_SET) != 0 ||
            fread(Header, 1, BLOCK_SIZE, pTar) < BLOCK_SIZE)
            return 0;
        if (is_EndMarker(Header))
            return 1;
        const int64_t Size = get_Size(Header);
        if (Size < 0 || (Unpacked && is_Cut(Header, Size)))
            return 0;
        Position += BLOCK_SIZE + (Size + BLOCK_SIZE - 1) / BLOCK_SIZE * BLOCK_SIZE;
    }
    return Position == Whole.st_size ? -1 : 0;
}

int ctrl_Tar(const char *FileName)
{
    FILE *const pTar = fopen(FileName, "r");
    if (pTar == nullptr)
        return 0;
    const int Entries = ctrl_Entries(pTar, false);
    fclose(pTar);
    return Entries == 1 ? 1 : 0;
}

int ctrl_Gzip(const char *FileName, int64_t Size)
{
    uint8_t Trailer[4] = {};

    FILE *const pGzip = fopen(FileName, "r");
    if (pGzip == nullptr)
        return 0;
    const bool Read = fseeko(pGzip, -4, SEEK_END) == 0 && fread(Trailer, 1, 4, pGzip) == 4;
    fclose(pGzip);
    const uint32_t Held = Trailer[0] | uint32_t{Trailer[1]} << 8 | uint32_t{Trailer[2]} << 16 |
                          uint32_t{Trailer[3]} << 24;
    return Read && Held == static_cast<uint32_t>(Size) ? 1 : 0;
}

int ctrl_Unpacked(const char *FileName)
{
    FILE *const pTar = fopen(FileName, "r");
    if (pTar == nullptr)
        return 1;
    const int Entries = ctrl_Entries(pTar, true);
    fclose(pTar);
    return Entries != 0 ? 1 : 0;
}
