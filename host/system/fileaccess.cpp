#include "fileaccess.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>

namespace velto::host
{

namespace
{

std::mutex directoriesMutex;
std::shared_ptr<const std::vector<std::filesystem::path>> directories; // null: any

} // namespace

void ReadOnlyBelow(const std::vector<std::filesystem::path>& given)
{
    std::vector<std::filesystem::path> resolved;
    for (const std::filesystem::path& directory : given)
    {
        std::error_code failure;
        std::filesystem::path path = std::filesystem::canonical(directory.empty() ? "." : directory, failure);
        if (!failure)
            resolved.push_back(std::move(path));
    }
    const std::lock_guard lock(directoriesMutex);
    directories = std::make_shared<const std::vector<std::filesystem::path>>(std::move(resolved));
}

void ReadAnywhere()
{
    const std::lock_guard lock(directoriesMutex);
    directories = nullptr;
}

bool MayRead(const std::filesystem::path& file)
{
    std::shared_ptr<const std::vector<std::filesystem::path>> allowed;
    {
        const std::lock_guard lock(directoriesMutex);
        allowed = directories;
    }
    if (!allowed)
        return true;
    std::error_code failure;
    const std::filesystem::path path = std::filesystem::weakly_canonical(file, failure);
    return !failure && std::any_of(allowed->begin(), allowed->end(), [&](const std::filesystem::path& directory) {
        return std::mismatch(directory.begin(), directory.end(), path.begin(), path.end()).first == directory.end();
    });
}

} // namespace velto::host
