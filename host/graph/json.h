// JSON as the host reads and writes it: with limits, without surprises.
#pragma once

#include "diagnostics.h"

#include "velto/types.h"

#include <memory>
#include <utility>

namespace velto::host
{

// A JSON value. Objects keep their order and never hold a key twice.
class Json
{
public:
    enum class Kind : std::uint8_t
    {
        Null,
        Bool,
        Integer,  // fits 64 bits, signed
        Unsigned, // fits 64 bits, unsigned only
        Real,
        String,
        Array,
        Object,
    };
    using Members = std::vector<std::pair<std::string, Json>>;

    Json() = default;
    Json(bool value) : kind_(Kind::Bool), integer_(value) {}
    Json(int value) : kind_(Kind::Integer), integer_(value) {}
    Json(Int value) : kind_(Kind::Integer), integer_(value) {}
    Json(UInt value)
        : kind_(value <= static_cast<UInt>(INT64_MAX) ? Kind::Integer : Kind::Unsigned),
          integer_(static_cast<Int>(value))
    {
    }
    Json(Float value) : kind_(Kind::Real), real_(value) {}
    Json(std::string_view value) : kind_(Kind::String), string_(value) {}
    Json(const char* value) : Json(std::string_view(value)) {}
    Json(const std::string& value) : Json(std::string_view(value)) {}
    static Json Array() { return Json(Kind::Array); }
    static Json Object() { return Json(Kind::Object); }

    Kind GetKind() const { return kind_; }
    bool IsNull() const { return kind_ == Kind::Null; }
    bool IsBool() const { return kind_ == Kind::Bool; }
    bool IsString() const { return kind_ == Kind::String; }
    bool IsArray() const { return kind_ == Kind::Array; }
    bool IsObject() const { return kind_ == Kind::Object; }
    bool IsInteger() const { return kind_ == Kind::Integer; }
    bool IsNumber() const { return kind_ == Kind::Integer || kind_ == Kind::Unsigned || kind_ == Kind::Real; }

    bool AsBool() const { return integer_ != 0; }
    Int AsInteger() const { return integer_; }
    Float AsNumber() const;
    const std::string& AsString() const { return string_; }
    const std::vector<Json>& Elements() const { return elements_; }
    const Members& GetMembers() const { return members_; }

    // The member of that name, or null.
    const Json* Find(std::string_view name) const;

    void Append(Json element) { elements_.push_back(std::move(element)); }
    // Adds a member; the caller sees to it that the name is new.
    void Add(std::string_view name, Json value) { members_.emplace_back(std::string(name), std::move(value)); }
    // Adds or replaces a member.
    void Set(std::string_view name, Json value);

    // What it is, for messages: "a string", "an array of 3".
    std::string Description() const;

    // One line, or indented by two spaces a level where `pretty`. Numbers read back exactly; one that JSON cannot write
    // is the string "nan", "inf" or "-inf".
    std::string Write(bool pretty = false) const;

private:
    explicit Json(Kind kind) : kind_(kind) {}

    Kind kind_ = Kind::Null;
    Int integer_ = 0;
    Float real_ = 0.0;
    std::string string_;
    std::vector<Json> elements_;
    Members members_;
};

struct JsonLimits
{
    std::size_t bytes = std::size_t(64) << 20;
    std::size_t depth = 256;
    std::size_t stringBytes = std::size_t(1) << 20;
    std::size_t values = 6'000'000;
};

// Reads UTF-8 JSON. False when it cannot be read to its end. A key that stands twice is a fault, and the first one
// counts.
bool ReadJson(std::string_view text, Json& value, Diagnostics& diagnostics, const JsonLimits& limits = {});

// Reads a whole file, up to a limit; false and a fault when that cannot be done. `-` is standard input.
bool ReadFile(const std::string& path, std::size_t limit, std::string& text, Diagnostics& diagnostics);

// How JSON texts write a number: the shortest text that reads back as the same number.
std::string WriteNumber(Float number);

} // namespace velto::host
