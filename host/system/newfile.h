// A file that takes its name when it is complete: until then whatever bears that name stays as it is.
#pragma once

#include "velto/result.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace velto::host
{

class NewFile
{
public:
    NewFile() = default;
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    // Begins a file without a name in the folder of `path`, or one with a random name where the file system knows
    // none without. With an empty path it is copied to standard output in the end. Fails now if the path names
    // something that cannot be replaced: a folder, a device, a pipe, a file that may not be written.
    Result Open(const std::string& path);

    // Fails unless every byte is written. A gap beyond the end is filled with zeros.
    Result Write(UInt offset, const void* bytes, std::size_t count);
    Result Read(UInt offset, void* bytes, std::size_t count, std::size_t& read);
    UInt Size() const { return size_; }

    // Returns when everything written is on the disk.
    Result Complete();

    // Gives complete files their names: to all of them or, with an error, to none.
    static Result PutInPlace(std::span<NewFile* const> files);

    const std::string& Path() const { return path_; }

private:
    Result Fault(int code) const;
    Result Flush();
    Result CopyToOutput();
    Result GiveTemporaryName();
    Result TakeName(bool isOneOfSeveral);
    void GiveBackName();
    void ForgetReplaced();

    std::string path_; // empty: standard output
    std::string folder_;
    std::string temporary_; // what bears it is to be removed
    int file_ = -1;
    int slot_ = -1; // of the list of temporary names
    bool isReplacing_ = false;
    bool isExchanged_ = false;
    bool isNew_ = false;
    std::vector<std::byte> buffer_;
    UInt bufferStart_ = 0;
    UInt size_ = 0;
};

// [a signal handler that ends the process] Removes what has a temporary name. False while files take their names, all
// or none: the signal is raised again after that.
bool RemoveUnfinishedFiles(int signal);

} // namespace velto::host
