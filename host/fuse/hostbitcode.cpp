// The host's own bitcode, as the build has made it.
#include "bitcode.h"

__asm__(".section .rodata\n"
        ".balign 16\n"
        "veltoHostBitcode: .incbin \"" VELTO_HOST_BITCODE "\"\n"
        "veltoHostBitcodeEnd: .byte 0\n"
        ".previous\n");

extern "C" __attribute__((visibility("hidden"))) const char veltoHostBitcode[];
extern "C" __attribute__((visibility("hidden"))) const char veltoHostBitcodeEnd[];

namespace velto::host::fuse
{

llvm::StringRef HostBitcode()
{
    return {veltoHostBitcode, static_cast<std::size_t>(veltoHostBitcodeEnd - veltoHostBitcode)};
}

} // namespace velto::host::fuse
