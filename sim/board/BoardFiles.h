// The file service of a board (service 25). All numbers most significant byte first.
//
//   function  command                                      answer
//   0 open    mode (0 read, 1 write, 2 append), name, NUL  0, length of the file (4)
//   1 write   data                                         0
//   2 read    count (2)                                    0, up to count bytes of data
//   3 seek    origin (0 start, 1 here, 2 end), offset (4)  0
//   4 close   nothing                                      0
//
// One file is open at a time. Errors: 128 no such file (or function), 129 no file is open, 130
// another file is open, 131 the file cannot be used so (a refused name, mode or seek; a file that
// is not open for writing, or for reading), 133 end of the file. 132, a wrong checksum, comes by
// faults only: the boards' files have none.
#pragma once

#include "board/Faults.h"
#include "board/SoftwareHeader.h"

namespace qxsim
{

class FileService
{
  public:
    Answer serve_Command(const Command &Received, FileTable &Files, const Strikes &Struck);

    // The open file is forgotten, and so is a distribution that is not complete.
    void restart();

    // The header of a distribution when its last file has been closed after writing; once.
    std::optional<SoftwareHeader> take_Distribution();

  private:
    enum class Mode : std::uint8_t { Read, Write, Append };
    struct OpenFile {
        std::string Name;
        Mode Use{};
        std::size_t Position{};
    };

    Answer open_File(const Command &Received, FileTable &Files, const Strikes &Struck);
    Answer write_File(const Command &Received, FileTable &Files, const Strikes &Struck);
    Answer read_File(const Command &Received, const FileTable &Files, const Strikes &Struck);
    Answer seek_File(const Command &Received, const FileTable &Files);
    Answer close_File(const FileTable &Files);
    const std::vector<std::uint8_t> &get_Content(const FileTable &Files) const;
    void note_Written(const std::string &Name, const FileTable &Files);

    std::optional<OpenFile> Open;
    std::optional<SoftwareHeader> Expected; // of the distribution that is being received
    std::set<std::string> Missing;          // its files that have not been received yet
};

} // namespace qxsim
