#include "sha256.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace velto::host
{

namespace
{

constexpr std::uint32_t kRound[] = {0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4,
    0xab1c5ed5, 0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da, 0x983e5152,
    0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967, 0x27b70a85, 0x2e1b2138,
    0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85, 0xa2bfe8a1, 0xa81a664b, 0xc24b8b70,
    0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070, 0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5,
    0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3, 0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa,
    0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

} // namespace

void Sha256::AddBlock(const unsigned char* block)
{
    std::uint32_t w[64];
    for (int i = 0; i < 16; ++i)
        w[i] = static_cast<std::uint32_t>(block[4 * i]) << 24 | static_cast<std::uint32_t>(block[4 * i + 1]) << 16 |
               static_cast<std::uint32_t>(block[4 * i + 2]) << 8 | block[4 * i + 3];
    for (int i = 16; i < 64; ++i)
    {
        const std::uint32_t a = std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
        const std::uint32_t b = std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
        w[i] = w[i - 16] + a + w[i - 7] + b;
    }
    auto [a, b, c, d, e, f, g, h] = state_;
    for (int i = 0; i < 64; ++i)
    {
        const std::uint32_t sum1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
        const std::uint32_t first = h + sum1 + ((e & f) ^ (~e & g)) + kRound[i] + w[i];
        const std::uint32_t sum0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
        const std::uint32_t second = sum0 + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + first;
        d = c;
        c = b;
        b = a;
        a = first + second;
    }
    const std::uint32_t added[] = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state_.size(); ++i)
        state_[i] += added[i];
}

void Sha256::Add(const void* bytes, std::size_t count)
{
    const auto* from = static_cast<const unsigned char*>(bytes);
    bytes_ += count;
    while (count > 0)
    {
        if (waitingCount_ == 0 && count >= waiting_.size())
        {
            AddBlock(from);
            from += waiting_.size();
            count -= waiting_.size();
            continue;
        }
        const std::size_t taken = std::min(count, waiting_.size() - waitingCount_);
        std::memcpy(waiting_.data() + waitingCount_, from, taken);
        waitingCount_ = (waitingCount_ + taken) % waiting_.size();
        from += taken;
        count -= taken;
        if (waitingCount_ == 0)
            AddBlock(waiting_.data());
    }
}

void Sha256::AddText(std::string_view text)
{
    const std::uint64_t size = text.size();
    Add(&size, sizeof size);
    Add(text.data(), text.size());
}

std::string Sha256::Finish()
{
    const std::uint64_t bits = bytes_ * 8;
    static constexpr unsigned char kEnd[64] = {0x80};
    Add(kEnd, 1 + (119 - waitingCount_) % 64);
    unsigned char size[8];
    for (int i = 0; i < 8; ++i)
        size[i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
    Add(size, sizeof size);
    std::string text;
    for (const std::uint32_t word : state_)
    {
        for (int shift = 28; shift >= 0; shift -= 4)
            text += "0123456789abcdef"[(word >> shift) & 15];
    }
    return text;
}

} // namespace velto::host
