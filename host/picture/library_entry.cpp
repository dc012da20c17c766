// The library's side.
#include "library.h"

extern "C" __attribute__((visibility("default"))) const velto::host::PictureLibrary* velto_picture_library(
    const velto::SystemInterface& system, const velto::ErrorInterface& errors)
{
    using namespace velto;
    slots<SystemInterface> = system;
    slots<ErrorInterface> = errors;
    static constexpr host::PictureLibrary library{&host::ReadClip, &host::ReadPicture, &host::MakeLibraryEncoder};
    return &library;
}
