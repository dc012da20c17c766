#include "exr_reader.h"

#include "exr.h"

#include "host/system/guard.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace velto::host
{

namespace
{

constexpr std::size_t kMostHeadBytes = 1 << 16;
constexpr int kMostSide = 1 << 16;

class Reader : public ExrReader
{
public:
    ~Reader() override
    {
        if (descriptor_ >= 0)
            close(descriptor_);
    }

    Result Open(const std::string& file)
    {
        file_ = file;
        descriptor_ = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        struct stat status = {};
        if (descriptor_ < 0 || fstat(descriptor_, &status) != 0)
            return Fault(errno == ENOENT ? "is missing" : std::strerror(errno));
        if (!S_ISREG(status.st_mode))
            return Fault("is not a regular file");
        head_.resize(std::min(static_cast<std::size_t>(status.st_size), kMostHeadBytes));
        if (!ReadAt(0, head_.data(), head_.size()) || !ReadHead())
            return Fault("is not a part of a picture, or is cut off");
        // Rows lie one after the other, so the file's size shows whether all are there.
        const UInt rows = static_cast<UInt>(layout_.height);
        rowsAt_ = at_ + rows * sizeof(UInt);
        line_.resize(kLineHead + RowFloats() * sizeof(float));
        if (static_cast<UInt>(status.st_size) != rowsAt_ + rows * line_.size())
            return Fault("is cut off or damaged");
        return {};
    }

    Result ReadRows(float* rows, int rowCount) override
    {
        const ExrChannels names = ExrChannelsOf(layout_.channels);
        for (int y = 0; y < rowCount; ++y, ++rowsDone_, rows += RowFloats())
        {
            std::int32_t head[2] = {};
            if (!ReadAt(rowsAt_ + static_cast<UInt>(rowsDone_) * line_.size(), line_.data(), line_.size()))
                return Fault("cannot be read");
            std::memcpy(head, line_.data(), sizeof head);
            if (head[0] != layout_.y + rowsDone_ || static_cast<std::size_t>(head[1]) != line_.size() - kLineHead)
                return Fault("is damaged");
            const std::byte* from = line_.data() + kLineHead;
            for (int c = 0; c < layout_.channels; ++c)
            {
                for (int x = 0; x < layout_.width; ++x, from += sizeof(float))
                    std::memcpy(&rows[x * layout_.channels + names.order[c]], from, sizeof(float));
            }
        }
        return {};
    }

private:
    static constexpr std::size_t kLineHead = 2 * sizeof(std::int32_t);

    Result Fault(const char* what) const { return MakeError(error::kIllegalState, file_ + " " + what); }

    std::size_t RowFloats() const
    {
        return static_cast<std::size_t>(layout_.width) * static_cast<std::size_t>(layout_.channels);
    }

    bool ReadAt(UInt offset, void* bytes, std::size_t count) const
    {
        return pread(descriptor_, bytes, count, static_cast<off_t>(offset)) == static_cast<ssize_t>(count);
    }

    template <class T>
    bool Take(T& value)
    {
        if (head_.size() - at_ < sizeof value)
            return false;
        std::memcpy(&value, head_.data() + at_, sizeof value);
        at_ += sizeof value;
        return true;
    }

    bool TakeText(std::string& text)
    {
        const auto end = std::find(head_.begin() + static_cast<std::ptrdiff_t>(at_), head_.end(), std::byte{0});
        if (end == head_.end())
            return false;
        text.assign(
            reinterpret_cast<const char*>(head_.data() + at_), static_cast<std::size_t>(end - head_.begin()) - at_);
        at_ += text.size() + 1;
        return true;
    }

    bool ReadHead()
    {
        std::uint32_t magic = 0;
        std::uint32_t version = 0;
        if (!Take(magic) || !Take(version) || magic != kExrMagic || version != kExrVersion)
            return false;
        std::string name = "?";
        while (!name.empty())
        {
            std::string type;
            std::int32_t size = 0;
            if (!TakeText(name))
                return false;
            if (name.empty())
                break;
            if (!TakeText(type) || !Take(size) || size < 0 || static_cast<std::size_t>(size) > head_.size() - at_)
                return false;
            const std::size_t next = at_ + static_cast<std::size_t>(size);
            if (!ReadAttribute(name, type, static_cast<std::size_t>(size)))
                return false;
            at_ = next;
        }
        return isPlain_ && layout_.channels > 0 && layout_.width > 0 && layout_.height > 0;
    }

    bool ReadAttribute(const std::string& name, const std::string& type, std::size_t size)
    {
        if (type == "string")
            layout_.attributes.emplace_back(name, std::string(reinterpret_cast<const char*>(head_.data() + at_), size));
        else if (name == "compression")
            isPlain_ = size == 1 && head_[at_] == kExrPlain;
        else if (name == "channels")
        {
            for (int channels = 1; channels <= 4; ++channels)
            {
                const std::vector<std::byte> list = ExrChannelList(channels, PixelDepth::Float);
                if (list.size() == size &&
                    std::equal(list.begin(), list.end(), head_.begin() + static_cast<std::ptrdiff_t>(at_)))
                    layout_.channels = channels;
            }
        }
        else if (name == "dataWindow" || name == "displayWindow")
        {
            std::int32_t box[4] = {};
            for (std::int32_t& side : box)
            {
                if (!Take(side) || side < 0 || side >= kMostSide)
                    return false;
            }
            if (name == "displayWindow")
            {
                layout_.wholeWidth = box[2] + 1;
                layout_.wholeHeight = box[3] + 1;
                return true;
            }
            layout_.x = box[0];
            layout_.y = box[1];
            layout_.width = box[2] - box[0] + 1;
            layout_.height = box[3] - box[1] + 1;
        }
        return true;
    }

    std::string file_;
    int descriptor_ = -1;
    std::vector<std::byte> head_;
    std::size_t at_ = 0; // in the head
    bool isPlain_ = false;
    UInt rowsAt_ = 0;
    std::vector<std::byte> line_;
    int rowsDone_ = 0;
};

} // namespace

std::string ExrReader::Attribute(const std::string& name) const
{
    for (const auto& [key, text] : layout_.attributes)
    {
        if (key == name)
            return text;
    }
    return {};
}

Result ExrReader::Open(const std::string& file, std::unique_ptr<ExrReader>& reader)
{
    return Guarded([&]() -> Result {
        auto made = std::make_unique<Reader>();
        VELTO_TRY(made->Open(file));
        reader = std::move(made);
        return {};
    });
}

} // namespace velto::host
