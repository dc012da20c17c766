// What the host asks of the library that compiles programs, which is loaded on demand.
#pragma once

#include "host/runtime/kernel.h"
#include "host/system/shipped.h"

#include <atomic>
#include <span>
#include <string>

namespace velto::host
{

// An interface that nodes may call.
struct FuseInterface
{
    std::string_view type; // `velto::NoiseInterface`
    const void* slots = nullptr;
    std::size_t size = 0; // in bytes
};

// Functions of the host, and the table of the host's bitcode that has the same ones.
struct FuseTable
{
    std::string_view name;
    std::span<const void* const> functions;
};

// A function of an object, its first argument, and the same for many samples.
struct FuseBlockForm
{
    const void* single = nullptr;
    BlockFunction block = nullptr;
};

struct FuseRequest
{
    const Program* program = nullptr;
    const std::byte* setup = nullptr; // values, after a run
    const std::byte* frame = nullptr; // values, with what nodes keep
    SampleShape shape;
    std::vector<FuseInterface> interfaces;
    std::vector<FuseTable> tables;
    std::vector<FuseBlockForm> blockForms;
    const void* makeError = nullptr; // what nodes make errors by
    InternedId (*intern)(std::string_view text) = nullptr;
    std::string processor;                   // as LLVM names it; empty: this one
    const std::atomic<bool>* stop = nullptr; // true: give up
};

struct FuseAnswer
{
    SampleKernel kernel; // without an entry where it failed
    std::string reason;  // why it did
    double seconds = 0.0;
    UInt instructions = 0; // before machine code is made of them
    UInt directCalls = 0;  // of nodes whose bitcode is known
    UInt foreignCalls = 0; // through pointers
};

// [any thread] What the request points to is read before the function returns; the frame, by the code as well.
using FuseFunction = void (*)(const FuseRequest& request, FuseAnswer& answer);

inline constexpr const char* kFuseLibraryFile = "libvelto_fuse.so";
inline constexpr const char* kFuseFunction = "VeltoFuse";

} // namespace velto::host
