// What is wrong with a document, and where.
#pragma once

#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace velto::host
{

struct Diagnostic
{
    std::string place; // `nodes.wood.inputs.scale`
    std::string text;
    bool isWarning = false;
    std::string file;   // that it stands in; empty: the one that was asked for
    std::string usedBy; // of another file: where that one is used, `main.json: nodes.wood.type`
};

// Collects everything that is wrong, up to a limit of faults and one of warnings.
class Diagnostics
{
public:
    static constexpr std::size_t kLimit = 200;

    void Fault(std::string_view place, std::string_view text) { Add(place, text, false); }
    void Warning(std::string_view place, std::string_view text) { Add(place, text, true); }

    bool HasFaults() const { return faults_ > 0; }
    std::size_t FaultCount() const { return faults_; }
    bool HasWarnings() const { return warnings_ > 0; }
    // Whether further faults are not listed, and need not be looked for.
    bool IsFull() const { return faults_ > kLimit; }
    const std::vector<Diagnostic>& All() const { return all_; }

    // Until it is left, what is added is of this file.
    void EnterFile(std::string file, std::string usedBy) { files_.emplace_back(std::move(file), std::move(usedBy)); }
    void LeaveFile() { files_.pop_back(); }

private:
    void Add(std::string_view place, std::string_view text, bool isWarning)
    {
        std::size_t& count = isWarning ? warnings_ : faults_;
        if (count <= kLimit)
            all_.push_back({std::string(place), std::string(text), isWarning, {}, {}});
        if (count < kLimit && !files_.empty())
            std::tie(all_.back().file, all_.back().usedBy) = files_.back();
        if (count == kLimit)
            all_.back() = {"", "there is more; only the first are listed", isWarning, {}, {}};
        ++count;
    }

    std::vector<Diagnostic> all_;
    std::vector<std::pair<std::string, std::string>> files_; // from the one that was asked for inward, and their users
    std::size_t faults_ = 0;
    std::size_t warnings_ = 0;
};

// The candidate nearest to a word that is none of them, in edits; empty when none is near.
std::string_view NearestName(std::string_view word, const std::vector<std::string>& candidates);

// `; did you mean "x"?`, or nothing.
std::string Suggestion(std::string_view word, const std::vector<std::string>& candidates);

// The text with what would break a line or a terminal escaped: control characters, those that turn the direction of
// writing, and bytes that are no UTF-8.
std::string Escaped(std::string_view text);

// The same, cut when it is very long.
std::string Printable(std::string_view text);

} // namespace velto::host
