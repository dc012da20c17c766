// The library's readers of PNG leave libpng's own error functions in place, which print. This library comes first where
// they look for the function that takes them, so they get ones that do not.
#include <dlfcn.h>

namespace
{

using Error = void (*)(void* png, const char* text);
using Create = void* (*)(const char* version, void* pointer, Error error, Error warning);
using LongJump = void (*)(void* png, int value);

template <class T>
T Next(const char* name)
{
    return reinterpret_cast<T>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" __attribute__((visibility("default"))) void* png_create_read_struct(
    const char* version, void* pointer, Error error, Error warning)
{
    static const Create create = Next<Create>("png_create_read_struct");
    if (!create)
        return nullptr;
    static const auto leave = [](void* png, const char*) {
        static const LongJump jump = Next<LongJump>("png_longjmp");
        jump(png, 1);
    };
    return create(
        version, pointer, error ? error : +leave, warning ? warning : +[](void*, const char*) {});
}
