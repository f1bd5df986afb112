#include "Tar.h"
#include "FileTools.h"
#include "SHeader.h"
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <sys/stat.h>

// A header and every piece of a file fill blocks of this size.
constexpr int BLOCK_SIZE = 512;

// Fields of a header (POSIX.1-1988, ustar).
constexpr int NAME_SIZE = 100; // at 0
constexpr int SIZE_OFFSET = 124;
constexpr int SIZE_SIZE = 12; // blanks, octal digits, then NUL or blank
constexpr int TYPE_OFFSET = 156;
constexpr int PREFIX_OFFSET = 345; // of the name, before a slash

// What an archive ends with.
enum TAR_END { END_MARKER, END_FILE, END_CUT, END_UNKNOWN };

// Size of each file by its name; of two of a name the later counts, as it is unpacked last.
using FILE_SIZES = std::map<std::string, int64_t>;

static bool is_EndMarker(const char (&Header)[BLOCK_SIZE])
{
    return std::all_of(Header, Header + BLOCK_SIZE, [](char Byte) { return Byte == 0; });
}

// Bytes of data behind the header; -1: this header does not say it in the usual way.
static int64_t get_DataSize(const char (&Header)[BLOCK_SIZE])
{
    const char Type = Header[TYPE_OFFSET];
    const char *pDigit = Header + SIZE_OFFSET;
    const char *const pEnd = pDigit + SIZE_SIZE;
    int64_t Size = -1;

    if (Type >= '1' && Type <= '6') // links, devices, folders
        return 0;
    pDigit = std::find_if(pDigit, pEnd, [](char Byte) { return Byte != ' '; });
    for (; pDigit < pEnd && *pDigit >= '0' && *pDigit <= '7'; pDigit++)
        Size = (Size < 0 ? 0 : Size * 8) + (*pDigit - '0');
    const bool Ended = pDigit == pEnd || *pDigit == 0 || *pDigit == ' ';
    return Ended && Type != 'S' ? Size : -1; // a sparse file has further headers
}

// Notes a file that the current directory may hold under its name.
static void note_File(const char (&Header)[BLOCK_SIZE], int64_t Size, FILE_SIZES *pSizes)
{
    const char Type = Header[TYPE_OFFSET];
    std::string Name(Header, strnlen(Header, NAME_SIZE));

    while (Name.starts_with("./"))
        Name.erase(0, 2);
    if ((Type == '0' || Type == 0) && Header[PREFIX_OFFSET] == 0 && ctrl_SafeName(Name.c_str()))
        (*pSizes)[Name] = Size;
}

// From header to header.
static TAR_END read_Entries(FILE *pTar, FILE_SIZES *pSizes)
{
    char Header[BLOCK_SIZE];
    struct stat Whole {
    };
    int64_t Position = 0;

    if (fstat(fileno(pTar), &Whole) != 0)
        return END_UNKNOWN;
    while (Position < Whole.st_size) {
        if (fseeko(pTar, static_cast<off_t>(Position), SEEK_SET) != 0 ||
            fread(Header, 1, BLOCK_SIZE, pTar) < BLOCK_SIZE)
            return END_CUT;
        if (is_EndMarker(Header))
            return END_MARKER;
        const int64_t Size = get_DataSize(Header);
        if (Size < 0)
            return END_UNKNOWN;
        note_File(Header, Size, pSizes);
        Position += BLOCK_SIZE + (Size + BLOCK_SIZE - 1) / BLOCK_SIZE * BLOCK_SIZE;
    }
    return Position == Whole.st_size ? END_FILE : END_CUT;
}

static TAR_END read_Tar(const char *FileName, FILE_SIZES *pSizes)
{
    FILE *const pTar = fopen(FileName, "r");
    if (pTar == nullptr)
        return END_UNKNOWN;
    const TAR_END End = read_Entries(pTar, pSizes);
    fclose(pTar);
    return End;
}

int ctrl_Tar(const char *FileName)
{
    FILE_SIZES Ignored;
    return read_Tar(FileName, &Ignored) == END_MARKER ? 1 : 0;
}

int64_t get_GzipSize(const char *FileName)
{
    uint8_t Trailer[4] = {};

    FILE *const pGzip = fopen(FileName, "r");
    if (pGzip == nullptr)
        return -1;
    const bool Read = fseeko(pGzip, -4, SEEK_END) == 0 && fread(Trailer, 1, 4, pGzip) == 4;
    fclose(pGzip);
    const uint32_t Size = Trailer[0] | uint32_t{Trailer[1]} << 8 | uint32_t{Trailer[2]} << 16 |
                          uint32_t{Trailer[3]} << 24;
    return Read ? int64_t{Size} : -1;
}

int ctrl_Unpacked(const char *FileName)
{
    FILE_SIZES Sizes;
    struct stat Found {
    };

    const bool Cut = read_Tar(FileName, &Sizes) == END_CUT;
    if (Cut)
        Sizes.erase(SHEADER_NAME);
    const bool Whole = std::all_of(Sizes.begin(), Sizes.end(), [&Found](const auto &File) {
        return stat(File.first.c_str(), &Found) != 0 || Found.st_size == File.second;
    });
    return Whole ? 1 : Cut ? -1 : 0;
}
