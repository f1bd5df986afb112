#include "qxdist/Archive.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qxdist
{

namespace
{

namespace fs = std::filesystem;

// A folder for the time of one operation.
class TemporaryFolder
{
  public:
    TemporaryFolder()
    {
        std::string Template = (fs::temp_directory_path() / "qxdist-XXXXXX").string();
        if (mkdtemp(Template.data()) == nullptr)
            throw Error("cannot make a folder in " + fs::temp_directory_path().string() + ": " +
                        std::strerror(errno));
        Path = Template;
    }

    ~TemporaryFolder()
    {
        std::error_code Ignored;
        fs::remove_all(Path, Ignored);
    }

    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    fs::path Path;
};

// Runs a program without a shell and without its messages. False: it could not be run or failed.
bool run_Program(const std::vector<std::string> &Words)
{
    std::vector<char *> Arguments;
    Arguments.reserve(Words.size() + 1);
    for (const std::string &Word : Words)
        Arguments.push_back(const_cast<char *>(Word.c_str()));
    Arguments.push_back(nullptr);

    posix_spawn_file_actions_t Actions;
    posix_spawn_file_actions_init(&Actions);
    posix_spawn_file_actions_addopen(&Actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t Child{};
    const int Failure =
        posix_spawnp(&Child, Arguments[0], &Actions, nullptr, Arguments.data(), environ);
    posix_spawn_file_actions_destroy(&Actions);
    int Status{};
    return Failure == 0 && waitpid(Child, &Status, 0) == Child && Status == 0;
}

Bytes read_File(const fs::path &Path)
{
    std::ifstream File(Path, std::ios::binary);
    Bytes Content{std::istreambuf_iterator<char>(File), {}};
    if (!File)
        throw Error("cannot read " + Path.string());
    return Content;
}

void write_File(const fs::path &Path, const Bytes &Content)
{
    std::ofstream File(Path, std::ios::binary | std::ios::trunc);
    File.write(reinterpret_cast<const char *>(Content.data()), std::ssize(Content));
    if (!File.flush())
        throw Error("cannot write " + Path.string());
}

void compare_Members(const Header &Listed, const FileTable &Members,
                     std::vector<std::string> &Problems)
{
    FileTable Rest = Members;
    Rest.erase(NAME_HEADER);
    for (const ListedFile &File : Listed.Files) {
        const auto Member = Members.find(File.Name);
        Rest.erase(File.Name);
        if (Member == Members.end())
            Problems.push_back("the file '" + File.Name + "' is listed but not there");
        else if (File.Size && *File.Size != Member->second.size())
            Problems.push_back("the file '" + File.Name + "' has " +
                               std::to_string(Member->second.size()) + " bytes, the header says " +
                               std::to_string(*File.Size));
    }
    for (const auto &[Name, Content] : Rest)
        Problems.push_back("the file '" + Name + "' is there but not listed");
}

} // namespace

FileTable read_Folder(const fs::path &Folder)
{
    std::error_code Failure;
    fs::recursive_directory_iterator Entries(Folder, Failure);
    if (Failure)
        throw Error("cannot read the folder " + Folder.string() + ": " + Failure.message());
    FileTable Files;
    for (const fs::directory_entry &Entry : Entries) {
        const fs::file_type Type = Entry.symlink_status().type();
        const std::string Name = Entry.path().lexically_relative(Folder).string();
        if (Type == fs::file_type::regular)
            Files[Name] = read_File(Entry.path());
        else if (Type != fs::file_type::directory)
            throw Error("'" + Name + "' is neither a file nor a folder");
    }
    return Files;
}

void write_Folder(const fs::path &Folder, const FileTable &Files)
{
    fs::create_directories(Folder);
    for (const auto &[Name, Content] : Files) {
        fs::create_directories((Folder / Name).parent_path());
        write_File(Folder / Name, Content);
    }
}

void write_Archive(const fs::path &Archive, const FileTable &Files)
{
    const TemporaryFolder Work;
    write_Folder(Work.Path / "files", Files);
    const std::string Tar = Work.Path / "archive.tar";
    std::vector<std::string> Command = {"tar",         "--create",          "--format=ustar",
                                        "--mode=644",  "--owner=0",         "--group=0",
                                        "--mtime=@0",  "--numeric-owner",   "--file=" + Tar,
                                        "--directory", Work.Path / "files", "--"};
    for (const auto &[Name, Content] : Files)
        Command.push_back(Name);
    if (!run_Program(Command))
        throw Error("tar failed");
    if (!run_Program({"gzip", "-9", "--no-name", Tar}))
        throw Error("gzip failed");
    if (!Archive.parent_path().empty())
        fs::create_directories(Archive.parent_path());
    const fs::path Part = Archive.string() + ".part";
    fs::copy_file(Tar + ".gz", Part, fs::copy_options::overwrite_existing);
    fs::rename(Part, Archive);
}

FileTable read_Archive(const fs::path &Archive)
{
    if (!fs::is_regular_file(Archive))
        throw Error("there is no such file");
    const TemporaryFolder Work;
    if (!run_Program({"tar", "--extract", "--gzip", "--no-same-owner", "--no-same-permissions",
                      "--force-local", "--file=" + Archive.string(),
                      "--directory=" + Work.Path.string()}))
        throw Error("it is not a complete gzip-compressed tar archive");
    return read_Folder(Work.Path);
}

FileTable make_Distribution(const std::vector<Record> &Records, FileTable Files)
{
    Files.erase(NAME_HEADER);
    Header Made{Records, {}};
    for (const auto &[Name, Content] : Files)
        Made.Files.push_back({Name, static_cast<std::uint32_t>(Content.size())});
    if (Made.Files.size() > UINT16_MAX)
        throw Error("there are more files than a header can list");
    if (const std::vector<std::string> Problems = check_Header(Made); !Problems.empty())
        throw Error(Problems.front());
    Files[NAME_HEADER] = make_Header(Made);
    return Files;
}

Header get_Header(const FileTable &Distribution)
{
    const auto Found = Distribution.find(NAME_HEADER);
    if (Found == Distribution.end())
        throw Error(std::string("it holds no ") + NAME_HEADER);
    return parse_Header(Found->second);
}

std::vector<std::string> verify_Archive(const fs::path &Archive)
{
    try {
        const FileTable Members = read_Archive(Archive);
        const Header Listed = get_Header(Members);
        std::vector<std::string> Problems = check_Header(Listed);
        compare_Members(Listed, Members, Problems);
        if (Problems.empty() && Archive.filename() != get_DistributionName(Listed) + ".tar.gz")
            Problems.push_back("the header names the distribution " + get_DistributionName(Listed) +
                               ", the archive's name says something else");
        return Problems;
    } catch (const Error &Fault) {
        return {Fault.what()};
    }
}

} // namespace qxdist
