#include "texture.h"

#include "host/picture/reader.h"
#include "host/picture/sampling.h"
#include "host/system/fileaccess.h"
#include "host/system/guard.h"
#include "host/system/memory.h"
#include "host/system/output.h"
#include "host/text/string.h"
#include "host/text/url.h"

#include "velto/imagesequence_cache.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <map>
#include <tuple>

namespace velto::host
{

namespace
{

struct HostTexture : Texture
{
    std::shared_ptr<const Picture> picture;
};

struct HostFront : ThreadedTexture
{
    Ref<Texture> texture;
    const Picture* picture = nullptr; // the texture's
};

std::atomic<UInt> textureMemory = UInt(2) << 30;

// A file as it was when it was read.
struct PictureKey
{
    std::string file;
    std::filesystem::file_time_type changed;
    std::uintmax_t size = 0;
    std::string layer;
    Int frame = 0;
    bool asFloat = false;
    UInt memory = 0;

    auto operator<=>(const PictureKey&) const = default; // NOLINT(modernize-use-nullptr)
};

// What came of reading a file: a picture, or why there is none.
struct Reading
{
    std::once_flag done;
    std::atomic<bool> isRead = false; // what follows stays as it is
    std::shared_ptr<const Picture> picture;
    std::string failure;
    UInt lastUse = 0;
};

class PictureCache
{
public:
    static PictureCache& Get()
    {
        static PictureCache cache;
        return cache;
    }

    // Files are read outside of the lock, each once. A failure is kept as long as the file is what it was.
    std::shared_ptr<const Reading> Read(const TextureFileRequest& request)
    {
        const std::shared_ptr<Reading> reading = Find(request);
        std::call_once(reading->done, [&] {
            std::string note;
            try
            {
                reading->picture = ReadWithin(request, note);
            }
            catch (const TextureFileError& failure)
            {
                reading->failure = failure.what();
            }
            reading->isRead.store(true, std::memory_order_release);
            // As a render message: the first reader reports it once, even in a sample whose output is dropped.
            if (!note.empty())
                WriteOutput(OutputChannel::Message, LogTarget::Warning, note);
        });
        return reading;
    }

    // Where memory is short, what nobody shows makes room.
    std::shared_ptr<const Picture> ReadWithin(const TextureFileRequest& request, std::string& note)
    {
        try
        {
            const MemoryTrial trial;
            return ReadPicture(request, note);
        }
        catch (const std::bad_alloc&)
        {
            Trim(0);
        }
        return ReadPicture(request, note);
    }

    // Drops the readings that nobody shows, those used last being kept up to `bytes`.
    void Trim(UInt bytes)
    {
        const std::lock_guard lock(mutex_);
        std::vector<std::map<PictureKey, std::shared_ptr<Reading>>::iterator> idle;
        for (auto i = readings_.begin(); i != readings_.end(); ++i)
        {
            const Reading& reading = *i->second;
            const bool isShown = reading.isRead.load(std::memory_order_acquire) && reading.picture.use_count() > 1;
            if (i->second.use_count() == 1 && !isShown)
                idle.push_back(i);
        }
        std::sort(idle.begin(), idle.end(), [](auto a, auto b) { return a->second->lastUse > b->second->lastUse; });
        UInt kept = 0;
        for (const auto& i : idle)
        {
            const Reading& reading = *i->second;
            kept += reading.isRead.load(std::memory_order_acquire) && reading.picture ? reading.picture->Bytes() : 1024;
            if (kept > bytes)
                readings_.erase(i);
        }
    }

private:
    std::shared_ptr<Reading> Find(const TextureFileRequest& request)
    {
        std::error_code ignored;
        const PictureKey key{request.file.string(), std::filesystem::last_write_time(request.file, ignored),
            std::filesystem::file_size(request.file, ignored), request.layer, request.frame, request.asFloat,
            request.memory};
        const std::lock_guard lock(mutex_);
        std::shared_ptr<Reading>& reading = readings_[key];
        if (!reading)
            reading = std::make_shared<Reading>();
        reading->lastUse = ++uses_;
        return reading;
    }

    std::mutex mutex_;
    std::map<PictureKey, std::shared_ptr<Reading>> readings_;
    UInt uses_ = 0;
};

bool IsFile(const std::filesystem::path& path)
{
    std::error_code ignored;
    return MayRead(path) && std::filesystem::exists(path, ignored);
}

// The place of a relative name: here, or in the first directory that has it.
Result Resolve(const Url& url, const SearchPathsType* searchPaths, Url& resolved)
{
    resolved = url;
    const std::filesystem::path name(Path(url));
    if (!searchPaths || name.is_absolute() || IsFile(name))
        return {};
    for (const Url& directory : *searchPaths)
    {
        const std::filesystem::path place = std::filesystem::path(Path(directory)) / name;
        if (IsFile(place))
            return MakeUrl(place.string(), resolved);
    }
    return {};
}

// Asks the callback what to show of `url`. A file that is nowhere may belong to a sequence whose other files are
// in one of the directories: it is asked about each.
Result SelectFrame(
    const FrameCallback& callback, const SearchPathsType* searchPaths, const Clip& clip, Url& url, TimeValue& time)
{
    const TimeValue length{clip.seconds};
    const TimeValue givenTime = time;
    const Url given = url;
    VELTO_TRY(callback.function(callback.user, length, &url, &time));
    const std::filesystem::path name(Path(given));
    if (!searchPaths || name.is_absolute() || IsFile(Path(url)))
        return {};
    for (const Url& directory : *searchPaths)
    {
        Url place;
        TimeValue placeTime = givenTime;
        VELTO_TRY(MakeUrl((std::filesystem::path(Path(directory)) / name).string(), place));
        VELTO_TRY(callback.function(callback.user, length, &place, &placeTime));
        if (!IsFile(Path(place)))
            continue;
        url = std::move(place);
        time = placeTime;
        return {};
    }
    return Resolve(Url(url), searchPaths, url);
}

Result UnreadableFile(std::string_view text)
{
    return MakeError("net.velto.error.unreadablefile", text);
}

// The text begins with the input of the document that names the file.
std::string WithPlace(const Url& given, std::string_view text)
{
    const std::string_view place = PlaceOf(given.Get());
    return place.empty() ? std::string(text) : std::string(place) + ": " + std::string(text);
}

// What is shown of a place that is given.
struct Selection
{
    Url url;
    Clip clip; // of the file that is given
    TimeValue time;
};

Result Select(const Url& given, const SearchPathsType* searchPaths, const TimeValue& time,
    const FrameCallback* callback, Selection& selection)
{
    VELTO_TRY(Resolve(given, searchPaths, selection.url));
    if (Path(selection.url).empty())
        return UnreadableFile("There is no file given.");
    // A missing file may belong to a sequence of which other files are there.
    if (const std::filesystem::path file(Path(selection.url)); IsFile(file))
    {
        try
        {
            selection.clip = ReadClip(file);
        }
        catch (const TextureFileError&)
        {
            // The file that is shown in the end may be another one.
        }
    }
    selection.time = time;
    return callback ? SelectFrame(*callback, searchPaths, selection.clip, selection.url, selection.time) : Result();
}

// The name of a file that is not there, its number written as wide as in the name that is given.
std::string NameAsGiven(std::string_view given, std::string name)
{
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    std::size_t begin = static_cast<std::size_t>(
        std::mismatch(name.begin(), name.end(), given.begin(), given.end()).first - name.begin());
    while (begin > 0 && isDigit(name[begin - 1]))
        --begin;
    const auto digits = [&](std::string_view text) {
        return static_cast<std::size_t>(
                   std::find_if_not(text.begin() + static_cast<std::ptrdiff_t>(begin), text.end(), isDigit) -
                   text.begin()) -
               begin;
    };
    const std::size_t wanted = begin < given.size() && given[begin] == '0' ? digits(given) : 0;
    if (const std::size_t has = digits(name); has > 0 && has < wanted)
        name.insert(begin, wanted - has, '0');
    return name;
}

// Names the input, and says where a relative name was looked for.
Result MissingFile(const Url& given, const Url& shown, const SearchPathsType* searchPaths)
{
    std::string text = WithPlace(given, NameAsGiven(Path(given), std::string(Path(shown)))) + ": no such file";
    if (!std::filesystem::path(Path(given)).is_absolute())
    {
        text += " in the working directory";
        for (Int i = 0; searchPaths && i < searchPaths->Count(); ++i)
            text += (i + 1 < searchPaths->Count() ? ", " : " and ") + std::string(Path((*searchPaths)[i]));
    }
    return UnreadableFile(text + ".");
}

Result LoadTexture(const UrlObject* url, const SearchPathsType* searchPaths, Bool force32Bit,
    const LayerSetObject* layers, const TimeValue& givenTime, const FrameCallback* callback, Texture** texture)
{
    return Guarded([&]() -> Result {
        const Url given = Url::Share(const_cast<UrlObject*>(url));
        Selection selection;
        VELTO_TRY(Select(given, searchPaths, givenTime, callback, selection));
        TextureFileRequest request;
        request.file = Path(selection.url);
        if (!MayRead(request.file))
            return UnreadableFile(fmt::format("{}: only files below the document may be read.", Path(selection.url)));
        if (!IsFile(request.file))
            return MissingFile(given, selection.url, searchPaths);
        if (layers)
            request.layer = Bytes(layers->name);
        request.frame = selection.clip.FrameAt(selection.time.seconds);
        request.asFloat = force32Bit;
        request.memory = textureMemory;
        PictureCache::Get().Trim(textureMemory);
        const std::shared_ptr<const Reading> reading = PictureCache::Get().Read(request);
        if (!reading->picture)
            return UnreadableFile(WithPlace(given, reading->failure));
        HostTexture* const made = NewObject<HostTexture>();
        if (!made)
            return OutOfMemory();
        made->picture = reading->picture;
        *texture = made;
        return {};
    });
}

// Shows that frame of a sequence, whenever it is; without one the file that is given.
FrameCallback FrameOf(const std::optional<Int>& frame)
{
    const auto show = [](const void* user, TimeValue, Url* url, TimeValue*) {
        const auto& asked = *static_cast<const std::optional<Int>*>(user);
        Bool found = false;
        return asked ? SetSequenceFrame(*url, *asked, &found) : Result();
    };
    return {show, &frame};
}

template <class T, class Base>
Result Make(Base** object)
{
    T* const made = NewObject<T>();
    if (!made)
        return OutOfMemory();
    *object = made;
    return {};
}

const HostFront& AsHost(const ThreadedTexture* front)
{
    return *static_cast<const HostFront*>(front);
}

Result Init(ThreadedTexture* self, Texture* texture)
{
    VELTO_CHECK_ARGUMENT(self && texture);
    auto& front = *static_cast<HostFront*>(self);
    front.texture = Ref<Texture>::Share(texture);
    front.picture = static_cast<HostTexture*>(texture)->picture.get();
    return {};
}

ColorA Sample(const ThreadedTexture* front, Float u, Float v, Float width, Float height, std::uint8_t tileModeU,
    std::uint8_t tileModeV, Int32 interpolation, Bool toLinear, Int32 alpha, Bool acrossTiles)
{
    const Picture* const picture = AsHost(front).picture;
    if (!picture)
        return kTransparentBlack;
    return SamplePicture(
        *picture, {u, v, width, height, tileModeU, tileModeV, interpolation, toLinear, alpha, acrossTiles});
}

Result GetDetails(const ThreadedTexture* front, Int32* width, Int32* height, Float* framesPerSecond, TimeValue* length)
{
    const Picture* const picture = AsHost(front).picture;
    VELTO_CHECK_STATE(picture);
    *width = picture->width;
    *height = picture->height;
    *framesPerSecond = picture->framesPerSecond;
    length->seconds = picture->seconds;
    return {};
}

} // namespace

void SetTextureMemory(UInt bytes)
{
    textureMemory = bytes;
}

void DropIdleTextures()
{
    PictureCache::Get().Trim(0);
}

Result LookIntoHeader(const Url& url, const SearchPathsType* searchPaths, Int frame, bool& isThere)
{
    return Guarded([&]() -> Result {
        Selection selection;
        const std::optional<Int> asked = frame;
        const FrameCallback callback = FrameOf(asked);
        VELTO_TRY(Select(url, searchPaths, {}, &callback, selection));
        isThere = IsFile(Path(selection.url));
        if (!isThere)
            return MissingFile(url, selection.url, searchPaths);
        try
        {
            ReadClip(Path(selection.url));
        }
        catch (const TextureFileError& failure)
        {
            return UnreadableFile(WithPlace(url, failure.what()));
        }
        return {};
    });
}

Result LookIntoPicture(
    const Url& url, const SearchPathsType* searchPaths, std::optional<Int> frame, PictureFacts& facts)
{
    return Guarded([&]() -> Result {
        Selection selection;
        const FrameCallback callback = FrameOf(frame);
        VELTO_TRY(Select(url, searchPaths, {}, &callback, selection));
        facts.file = Path(selection.url);
        facts.isMovie = selection.clip.frames > 0;
        if (!IsFile(facts.file))
            return MissingFile(url, selection.url, searchPaths);
        try
        {
            constexpr UInt kGlance = 1 << 20; // bytes that are kept of it
            std::string ignored;
            TextureFileRequest request;
            request.file = facts.file;
            request.memory = kGlance;
            const auto picture = ReadPicture(request, ignored);
            facts.width = picture->width;
            facts.height = picture->height;
            facts.bytes = std::min(picture->WholeBytes(), textureMemory.load());
        }
        catch (const TextureFileError& failure)
        {
            return UnreadableFile(WithPlace(url, failure.what()));
        }
        return {};
    });
}

Result FindPictureFile(const Url& url, const SearchPathsType* searchPaths, std::optional<Int> frame, std::string& file)
{
    return Guarded([&]() -> Result {
        Selection selection;
        const FrameCallback callback = FrameOf(frame);
        VELTO_TRY(Select(url, searchPaths, {}, &callback, selection));
        file = Path(selection.url);
        return {};
    });
}

Result MakeLayerSet(std::string_view name, LayerSet& layers)
{
    layers = {};
    if (name.empty())
        return {};
    LayerSet made = LayerSet::Adopt(NewObject<LayerSetObject>());
    if (!made)
        return OutOfMemory();
    VELTO_TRY(MakeString(name, made->name));
    layers = std::move(made);
    return {};
}

const TextureManagementInterface& TextureManagementService()
{
    static constexpr TextureManagementInterface service{.LoadTexture = {&LoadTexture}};
    return service;
}

const TextureInterface& TextureService()
{
    static constexpr TextureInterface service{.Alloc = {&Make<HostTexture, Texture>}};
    return service;
}

const ThreadedTextureInterface& ThreadedTextureService()
{
    static constexpr ThreadedTextureInterface service{
        .Alloc = {&Make<HostFront, ThreadedTexture>},
        .Init = {&Init},
        .GetImage = {+[](const ThreadedTexture* front) { return AsHost(front).picture; }},
        .Sample = {&Sample},
        .GetDetails = {&GetDetails},
    };
    return service;
}

} // namespace velto::host
