// Distributions on disk: the folder of their files, and the archive, a gzip-compressed tar of
// sheader.bin and the files that it lists. Archives are written and read by the system's tar and
// gzip.
#pragma once

#include "qxdist/Header.h"

#include <filesystem>
#include <map>

namespace qxdist
{

// Contents by name relative to the distribution's root; without or with sheader.bin.
using FileTable = std::map<std::string, Bytes>;

// Every regular file below Folder. Throws Error for anything else in it but folders.
FileTable read_Folder(const std::filesystem::path &Folder);

// Writes the files below Folder, which is made when it is missing. Other files stay there.
void write_Folder(const std::filesystem::path &Folder, const FileTable &Files);

// The same files give the same bytes, at any time, under any owner. The archive appears under its
// name when it is complete.
void write_Archive(const std::filesystem::path &Archive, const FileTable &Files);

// Throws Error when it is no archive or a damaged one.
FileTable read_Archive(const std::filesystem::path &Archive);

// The files with their sheader.bin in addition: the records given, and a list of the files in
// order of their names. A sheader.bin among the files is replaced. Throws Error when the loader
// would not take the outcome.
FileTable make_Distribution(const std::vector<Record> &Records, FileTable Files);

// Throws Error when there is none or it is damaged.
Header get_Header(const FileTable &Distribution);

// Everything that is wrong with an archive, a sentence each; none: it can go into the store.
std::vector<std::string> verify_Archive(const std::filesystem::path &Archive);

} // namespace qxdist
