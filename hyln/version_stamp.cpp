#include "version_stamp.h"

#include <dlfcn.h>
#include <elf.h>

#include <cstring>
#include <fstream>
#include <vector>

#include "HYLNTool.h"

namespace hyln {
namespace {

const char kSectionName[] = "HyVersion";
const size_t kMaxStamp = 4096;

// Reads `size` bytes at `offset`; false when the file is shorter.
bool readAt(std::ifstream& file, uint64_t offset, void* out, size_t size)
{
    file.clear();
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(static_cast<char*>(out), static_cast<std::streamsize>(size));
    return file.gcount() == static_cast<std::streamsize>(size);
}

bool readHeader(std::ifstream& file, Elf64_Ehdr& header)
{
    if (!readAt(file, 0, &header, sizeof header))
        return false;
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && header.e_ident[EI_CLASS] == ELFCLASS64 &&
           header.e_shentsize == sizeof(Elf64_Shdr) && header.e_shstrndx < header.e_shnum;
}

std::string readText(std::ifstream& file, uint64_t offset, uint64_t size)
{
    if (size == 0)
        return {};
    std::vector<char> text(size < kMaxStamp ? size : kMaxStamp);
    if (!readAt(file, offset, text.data(), text.size()))
        return {};
    return std::string(text.data(), strnlen(text.data(), text.size()));
}

} // namespace

std::string readVersionStamp(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    Elf64_Ehdr header;
    if (!file || !readHeader(file, header))
        return {};
    std::vector<Elf64_Shdr> sections(header.e_shnum);
    if (!readAt(file, header.e_shoff, sections.data(), sections.size() * sizeof(Elf64_Shdr)))
        return {};
    const Elf64_Shdr& names = sections[header.e_shstrndx];
    for (const Elf64_Shdr& section : sections) {
        if (section.sh_name >= names.sh_size || section.sh_type == SHT_NOBITS)
            continue;
        if (readText(file, names.sh_offset + section.sh_name, sizeof kSectionName) == kSectionName)
            return readText(file, section.sh_offset, section.sh_size);
    }
    return {};
}

std::string libraryFile()
{
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&SetLogCallback), &info) == 0 || info.dli_fname == nullptr)
        return {};
    return info.dli_fname;
}

} // namespace hyln
