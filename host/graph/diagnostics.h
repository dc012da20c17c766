// What is wrong with a document, and where.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velto::host
{

struct Diagnostic
{
    std::string place; // `nodes.wood.inputs.scale`
    std::string text;
    bool isWarning = false;
};

// Collects everything that is wrong, up to a limit of faults and one of warnings.
class Diagnostics
{
public:
    static constexpr std::size_t kLimit = 200;

    void Fault(std::string_view place, std::string_view text) { Add(place, text, false); }
    void Warning(std::string_view place, std::string_view text) { Add(place, text, true); }

    bool HasFaults() const { return faults_ > 0; }
    // Whether further faults are not listed, and need not be looked for.
    bool IsFull() const { return faults_ > kLimit; }
    const std::vector<Diagnostic>& All() const { return all_; }

private:
    void Add(std::string_view place, std::string_view text, bool isWarning)
    {
        std::size_t& count = isWarning ? warnings_ : faults_;
        if (count < kLimit)
            all_.push_back({std::string(place), std::string(text), isWarning});
        else if (count == kLimit)
            all_.push_back({"", "there is more; only the first are listed", isWarning});
        ++count;
    }

    std::vector<Diagnostic> all_;
    std::size_t faults_ = 0;
    std::size_t warnings_ = 0;
};

// The candidate nearest to a word that is none of them, in edits; empty when none is near.
std::string_view NearestName(std::string_view word, const std::vector<std::string>& candidates);

// `; did you mean "x"?`, or nothing.
std::string Suggestion(std::string_view word, const std::vector<std::string>& candidates);

// The text with what would break a line or a terminal escaped, and cut when it is very long.
std::string Printable(std::string_view text);

} // namespace velto::host
