#include "json.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <unordered_set>

namespace velto::host
{

namespace
{

// Builds a value from the parser's events, with limits and duplicate keys seen to.
class Builder : public nlohmann::json_sax<nlohmann::json>
{
public:
    Builder(Diagnostics& diagnostics, const JsonLimits& limits) : diagnostics_(diagnostics), limits_(limits) {}

    Json& Root() { return root_; }

    bool null() override { return Put(Json()); }
    bool boolean(bool value) override { return Put(Json(value)); }
    bool number_integer(number_integer_t value) override { return Put(Json(static_cast<Int>(value))); }
    bool number_unsigned(number_unsigned_t value) override { return Put(Json(static_cast<UInt>(value))); }
    bool number_float(number_float_t value, const string_t&) override { return Put(Json(value)); }
    bool string(string_t& value) override { return IsShort(value) && Put(Json(value)); }
    bool binary(binary_t&) override { return Fail("binary values are not JSON"); }

    bool start_object(std::size_t) override { return Open(Json::Object()); }
    bool end_object() override { return Close(); }
    bool start_array(std::size_t) override { return Open(Json::Array()); }
    bool end_array() override { return Close(); }

    bool key(string_t& name) override
    {
        if (!IsShort(name))
            return false;
        Level& level = levels_.back();
        level.key = name;
        if (!level.seen.insert(name).second)
            diagnostics_.Fault(Place(), "the key stands here twice");
        return true;
    }

    bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception& failure) override
    {
        std::string_view what = failure.what();
        // The library's own prefix tells users nothing.
        if (const auto end = what.find("] "); end != what.npos)
            what.remove_prefix(end + 2);
        return Fail(fmt::format("not JSON at byte {}: {}", position, Printable(what)));
    }

private:
    struct Level
    {
        Json value;
        std::string key;
        std::unordered_set<std::string> seen;
    };

    bool Fail(std::string_view text)
    {
        diagnostics_.Fault(Place(), text);
        return false;
    }

    bool IsShort(const std::string& text)
    {
        if (text.size() <= limits_.stringBytes)
            return true;
        return Fail(fmt::format("a string of {} bytes; at most {} are taken", text.size(), limits_.stringBytes));
    }

    std::string Place() const
    {
        std::string place;
        for (const Level& level : levels_)
        {
            if (place.size() > 300)
                return place + "...";
            if (level.value.IsArray())
                place += fmt::format("[{}]", level.value.Elements().size());
            else if (!level.key.empty())
                place.append(place.empty() ? "" : ".").append(Printable(level.key));
        }
        return place;
    }

    bool Put(Json value)
    {
        if (++count_ > limits_.values)
            return Fail(fmt::format("more than {} values", limits_.values));
        if (levels_.empty())
            root_ = std::move(value);
        else if (Level& level = levels_.back(); level.value.IsArray())
            level.value.Append(std::move(value));
        else
            level.value.Add(level.key, std::move(value));
        return true;
    }

    bool Open(Json value)
    {
        if (levels_.size() >= limits_.depth)
            return Fail(fmt::format("nested more than {} deep", limits_.depth));
        levels_.push_back({std::move(value), {}, {}});
        return true;
    }

    bool Close()
    {
        Json value = std::move(levels_.back().value);
        levels_.pop_back();
        return Put(std::move(value));
    }

    Diagnostics& diagnostics_;
    const JsonLimits& limits_;
    Json root_;
    std::vector<Level> levels_;
    std::size_t count_ = 0;
};

void WriteString(std::string_view text, std::string& out)
{
    out += '"';
    for (const char c : text)
    {
        switch (c)
        {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20)
                out += fmt::format("\\u{:04x}", static_cast<unsigned char>(c));
            else
                out += c;
        }
    }
    out += '"';
}

// The beginning of a text, for messages, not cut in the middle of a character.
std::string Shortened(std::string_view text)
{
    std::size_t end = std::min<std::size_t>(text.size(), 40);
    while (end > 0 && end < text.size() && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80)
        --end;
    return Printable(text.substr(0, end));
}

bool IsPlain(const Json& value)
{
    return !value.IsArray() && !value.IsObject();
}

void WriteValue(const Json& value, bool pretty, int level, std::string& out)
{
    const auto newLine = [&](int indent) {
        if (pretty)
            out.append("\n").append(static_cast<std::size_t>(indent) * 2, ' ');
    };
    switch (value.GetKind())
    {
    case Json::Kind::Null:
        out += "null";
        break;
    case Json::Kind::Bool:
        out += value.AsBool() ? "true" : "false";
        break;
    case Json::Kind::Integer:
        out += fmt::format("{}", value.AsInteger());
        break;
    case Json::Kind::Unsigned:
        out += fmt::format("{}", static_cast<UInt>(value.AsInteger()));
        break;
    case Json::Kind::Real:
        out += WriteNumber(value.AsNumber());
        break;
    case Json::Kind::String:
        WriteString(value.AsString(), out);
        break;
    case Json::Kind::Array:
    {
        // Colours and vectors stay on one line.
        const auto& elements = value.Elements();
        const bool isFlat = std::all_of(elements.begin(), elements.end(), IsPlain);
        out += '[';
        for (std::size_t i = 0; i < elements.size(); ++i)
        {
            if (i > 0)
                out += isFlat || !pretty ? ", " : ",";
            if (!isFlat)
                newLine(level + 1);
            WriteValue(elements[i], pretty, level + 1, out);
        }
        if (!isFlat)
            newLine(level);
        out += ']';
        break;
    }
    case Json::Kind::Object:
    {
        out += '{';
        bool isFirst = true;
        for (const auto& [name, member] : value.GetMembers())
        {
            if (!isFirst)
                out += pretty ? "," : ", ";
            isFirst = false;
            newLine(level + 1);
            WriteString(name, out);
            out += ": ";
            WriteValue(member, pretty, level + 1, out);
        }
        if (!isFirst)
            newLine(level);
        out += '}';
        break;
    }
    }
}

} // namespace

Float Json::AsNumber() const
{
    switch (kind_)
    {
    case Kind::Integer:
        return static_cast<Float>(integer_);
    case Kind::Unsigned:
        return static_cast<Float>(static_cast<UInt>(integer_));
    default:
        return real_;
    }
}

const Json* Json::Find(std::string_view name) const
{
    for (const auto& [key, value] : members_)
    {
        if (key == name)
            return &value;
    }
    return nullptr;
}

void Json::Set(std::string_view name, Json value)
{
    for (auto& [key, old] : members_)
    {
        if (key == name)
        {
            old = std::move(value);
            return;
        }
    }
    Add(name, std::move(value));
}

std::string Json::Description() const
{
    switch (kind_)
    {
    case Kind::Null:
        return "null";
    case Kind::Bool:
        return integer_ ? "true" : "false";
    case Kind::Integer:
    case Kind::Unsigned:
    case Kind::Real:
        return fmt::format("the number {}", Write());
    case Kind::String:
        return fmt::format("the string \"{}\"", Shortened(string_));
    case Kind::Array:
        return fmt::format("an array of {}", elements_.size());
    case Kind::Object:
        return "an object";
    }
    return "";
}

std::string Json::Write(bool pretty) const
{
    std::string out;
    WriteValue(*this, pretty, 0, out);
    return out;
}

std::string WriteNumber(Float number)
{
    if (std::isnan(number))
        return "\"nan\"";
    if (std::isinf(number))
        return number > 0 ? "\"inf\"" : "\"-inf\"";
    char text[32];
    if (number == 0.0 && std::signbit(number))
        return "-0.0"; // "-0" would be read as the whole number
    const auto end = std::to_chars(text, text + sizeof(text), number).ptr;
    return std::string(text, end);
}

bool ReadJson(std::string_view text, Json& value, Diagnostics& diagnostics, const JsonLimits& limits)
{
    if (text.size() > limits.bytes)
    {
        diagnostics.Fault("", fmt::format("{} bytes; at most {} are read", text.size(), limits.bytes));
        return false;
    }
    if (const auto end = text.find('\0'); end != text.npos)
    {
        diagnostics.Fault("", fmt::format("not JSON at byte {}: a NUL byte", end + 1)); // the parser would stop there
        return false;
    }
    Builder builder(diagnostics, limits);
    if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder))
        return false;
    value = std::move(builder.Root());
    return true;
}

bool ReadFile(const std::string& path, std::size_t limit, std::string& text, Diagnostics& diagnostics)
{
    std::ifstream file;
    if (path != "-")
    {
        file.open(path, std::ios::binary);
        if (!file)
        {
            diagnostics.Fault("", fmt::format("cannot be read: {}", std::strerror(errno)));
            return false;
        }
    }
    std::istream& in = path == "-" ? std::cin : file;
    text.clear();
    char block[1 << 16];
    while (in.read(block, sizeof(block)) || in.gcount() > 0)
    {
        text.append(block, static_cast<std::size_t>(in.gcount()));
        if (text.size() > limit)
        {
            diagnostics.Fault("", fmt::format("longer than {} bytes", limit));
            return false;
        }
    }
    if (in.bad())
    {
        diagnostics.Fault("", "cannot be read: is it a file?");
        return false;
    }
    return true;
}

} // namespace velto::host
