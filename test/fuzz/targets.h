// What a target of fuzzing offers, to libFuzzer or to `campaign.cpp`, and what it may call.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C"
{
    int LLVMFuzzerInitialize(int* count, char*** arguments);
    int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
    std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t most, unsigned int seed);
    std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);
}
