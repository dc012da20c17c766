#include "buildid.h"

#include <elf.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>

namespace velto::host
{

namespace
{

std::string IdInNotes(const std::vector<char>& notes)
{
    const auto aligned = [](std::size_t size) { return (size + 3) / 4 * 4; };
    for (std::size_t at = 0; at + sizeof(Elf64_Nhdr) <= notes.size();)
    {
        Elf64_Nhdr head;
        std::memcpy(&head, &notes[at], sizeof(head));
        const std::size_t text = at + sizeof(head) + aligned(head.n_namesz);
        const std::size_t end = text + aligned(head.n_descsz);
        if (end > notes.size())
            break;
        if (head.n_type == NT_GNU_BUILD_ID && head.n_namesz == 4 &&
            std::memcmp(&notes[at + sizeof(head)], "GNU", 4) == 0)
        {
            std::string id;
            for (std::size_t i = 0; i < head.n_descsz; ++i)
            {
                constexpr const char* kDigits = "0123456789abcdef";
                const auto byte = static_cast<unsigned char>(notes[text + i]);
                id += {kDigits[byte >> 4], kDigits[byte & 15]};
            }
            return id;
        }
        at = end;
    }
    return {};
}

} // namespace

std::string BuildIdOfFile(const char* file)
{
    std::ifstream in(file, std::ios::binary);
    Elf64_Ehdr head{};
    in.read(reinterpret_cast<char*>(&head), sizeof(head));
    if (!in || std::memcmp(head.e_ident, ELFMAG, SELFMAG) != 0 || head.e_ident[EI_CLASS] != ELFCLASS64)
        return {};
    for (int i = 0; i < head.e_phnum; ++i)
    {
        Elf64_Phdr segment{};
        in.seekg(static_cast<std::streamoff>(head.e_phoff + static_cast<std::size_t>(i) * head.e_phentsize));
        in.read(reinterpret_cast<char*>(&segment), sizeof(segment));
        constexpr std::size_t kMost = 1 << 16;
        if (!in || segment.p_type != PT_NOTE || segment.p_filesz > kMost)
            continue;
        std::vector<char> notes(segment.p_filesz);
        in.seekg(static_cast<std::streamoff>(segment.p_offset));
        in.read(notes.data(), static_cast<std::streamsize>(notes.size()));
        if (std::string id = in ? IdInNotes(notes) : std::string(); !id.empty())
            return id;
    }
    return {};
}

std::string BitcodeHead(std::string_view buildId, std::size_t size)
{
    std::string line = "velto bitcode 1 " + std::string(buildId) + " " + std::to_string(size);
    line.resize(kBitcodeHead - 1, ' ');
    return line + "\n";
}

} // namespace velto::host
