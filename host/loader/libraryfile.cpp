#include "libraryfile.h"

#include "velto/system.h"

#include <elf.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace velto::host
{

namespace
{

using Header = ElfW(Ehdr);
using ProgramHeader = ElfW(Phdr);

#if defined(__x86_64__)
constexpr int kMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr int kMachine = EM_AARCH64;
#else
#error "say which machine's libraries are modules here"
#endif

class File
{
public:
    // Opening a pipe would wait for its writer.
    explicit File(const std::filesystem::path& path)
        : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
    }
    ~File()
    {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return descriptor_ >= 0; }

    // Nothing but a regular file has a size.
    bool Size(UInt& size) const
    {
        struct stat status = {};
        if (fstat(descriptor_, &status) != 0 || !S_ISREG(status.st_mode))
            return false;
        size = static_cast<UInt>(status.st_size);
        return true;
    }

    bool Read(UInt at, void* to, std::size_t bytes) const
    {
        return pread(descriptor_, to, bytes, static_cast<off_t>(at)) == static_cast<ssize_t>(bytes);
    }

private:
    int descriptor_;
};

bool IsLibraryOfThisMachine(const Header& header)
{
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == ELFCLASS64 &&
           header.e_ident[EI_DATA] == ELFDATA2LSB && header.e_type == ET_DYN && header.e_machine == kMachine &&
           header.e_phentsize == sizeof(ProgramHeader);
}

bool LiesWithin(UInt size, UInt at, UInt bytes)
{
    return at <= size && bytes <= size - at;
}

// Why the file is no library, or nothing.
std::string_view Fault(const File& file)
{
    constexpr std::string_view kShort = "the file is cut short";
    UInt size = 0;
    if (!file.Size(size))
        return "it is not a regular file";
    Header header{};
    if (!file.Read(0, &header, sizeof(header)) || !IsLibraryOfThisMachine(header))
        return "it is not a shared library of this machine";
    if (!LiesWithin(size, header.e_phoff, header.e_phnum * sizeof(ProgramHeader)))
        return kShort;
    std::vector<ProgramHeader> parts(header.e_phnum);
    if (!file.Read(header.e_phoff, parts.data(), parts.size() * sizeof(ProgramHeader)))
        return "it cannot be read";
    for (const ProgramHeader& part : parts)
    {
        // Touching memory that is mapped from beyond the end of a file would end the process.
        if (!LiesWithin(size, part.p_offset, part.p_filesz))
            return kShort;
    }
    return {};
}

} // namespace

Result CheckLibraryFile(const std::filesystem::path& path)
{
    const File file(path);
    const std::string_view fault = file.IsOpen() ? Fault(file) : std::string_view(std::strerror(errno));
    if (fault.empty())
        return {};
    return MakeError(error::kIllegalArgument, fmt::format("{} is not a module: {}.", path.string(), fault));
}

} // namespace velto::host
