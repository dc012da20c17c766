#include "values.h"

#include "host/graph/values.h"
#include "host/runtime/sampler.h"

#include <fmt/format.h>

#include <cmath>

namespace velto::python
{

namespace
{

using host::Json;

class Reader
{
public:
    Json Read(py::handle value, const std::string& place, std::size_t depth)
    {
        const host::JsonLimits limits;
        if (depth > limits.depth)
            throw py::value_error(fmt::format("{}: nested more than {} deep", place, limits.depth));
        if (++values_ > limits.values)
            throw py::value_error(fmt::format("{}: more than {} values", place, limits.values));
        if (value.is_none())
            return {};
        if (PyBool_Check(value.ptr()))
            return {value.ptr() == Py_True};
        if (PyLong_Check(value.ptr()))
            return ReadInteger(value, place);
        if (PyFloat_Check(value.ptr()))
            return ReadReal(PyFloat_AS_DOUBLE(value.ptr()));
        if (PyUnicode_Check(value.ptr()))
            return {Utf8(value)};
        if (PyDict_Check(value.ptr()))
            return ReadObject(value, place, depth);
        if (PyList_Check(value.ptr()) || PyTuple_Check(value.ptr()))
            return ReadArray(value, place, depth);
        if (py::hasattr(value, "tolist")) // of numpy
            return Read(value.attr("tolist")(), place, depth + 1);
        if (py::hasattr(value, "__fspath__"))
            return {py::cast<std::string>(py::str(value.attr("__fspath__")()))};
        throw py::type_error(
            fmt::format("{}: a value of type {} cannot stand in a document", place, Py_TYPE(value.ptr())->tp_name));
    }

private:
    // Throws a UnicodeEncodeError for what is half a character.
    static std::string Utf8(py::handle text)
    {
        Py_ssize_t size = 0;
        const char* const bytes = PyUnicode_AsUTF8AndSize(text.ptr(), &size);
        if (!bytes)
            throw py::error_already_set();
        return {bytes, static_cast<std::size_t>(size)};
    }

    static Json ReadInteger(py::handle value, const std::string& place)
    {
        int overflow = 0;
        const long long number = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
        if (overflow == 0)
            return {static_cast<Int>(number)};
        const unsigned long long large = PyLong_AsUnsignedLongLong(value.ptr());
        if (!PyErr_Occurred())
            return {static_cast<UInt>(large)};
        PyErr_Clear();
        throw py::value_error(fmt::format("{}: an integer of more than 64 bits", place));
    }

    // As documents write what JSON cannot.
    static Json ReadReal(double number)
    {
        if (std::isfinite(number))
            return {number};
        return {std::isnan(number) ? "nan" : number > 0.0 ? "inf" : "-inf"};
    }

    Json ReadObject(py::handle value, const std::string& place, std::size_t depth)
    {
        Json object = Json::Object();
        for (const auto& [key, member] : py::reinterpret_borrow<py::dict>(value))
        {
            if (!PyUnicode_Check(key.ptr()))
                throw py::type_error(fmt::format("{}: a key is no text but a {}", place, Py_TYPE(key.ptr())->tp_name));
            const std::string name = Utf8(key);
            object.Add(name, Read(member, place + "." + host::Printable(name), depth + 1));
        }
        return object;
    }

    Json ReadArray(py::handle value, const std::string& place, std::size_t depth)
    {
        Json array = Json::Array();
        std::size_t i = 0;
        for (const py::handle element : value)
            array.Append(Read(element, fmt::format("{}[{}]", place, i++), depth + 1));
        return array;
    }

    std::size_t values_ = 0;
};

py::object FromNumber(const Json& json)
{
    if (!json.IsString())
        return FromJson(json);
    const std::string& text = json.AsString();
    return py::float_(text == "nan" ? std::nan("") : text == "inf" ? HUGE_VAL : -HUGE_VAL);
}

} // namespace

Json ToJson(py::handle value, const std::string& what)
{
    return Reader().Read(value, what, 0);
}

py::object FromJson(const Json& json)
{
    switch (json.GetKind())
    {
    case Json::Kind::Null:
        return py::none();
    case Json::Kind::Bool:
        return py::bool_(json.AsBool());
    case Json::Kind::Integer:
        return py::int_(json.AsInteger());
    case Json::Kind::Unsigned:
        return py::int_(static_cast<UInt>(json.AsInteger()));
    case Json::Kind::Real:
        return py::float_(json.AsNumber());
    case Json::Kind::String:
        return py::str(json.AsString());
    case Json::Kind::Array:
    {
        py::list list;
        for (const Json& element : json.Elements())
            list.append(FromJson(element));
        return list;
    }
    case Json::Kind::Object:
        break;
    }
    py::dict object;
    for (const auto& [name, member] : json.GetMembers())
        object[py::str(name)] = FromJson(member);
    return object;
}

py::object FromValue(const DataType* type, const void* value)
{
    const Json json = host::WriteValue(type, value);
    if (host::NumbersOf(type) == 0)
        return FromJson(json);
    if (!json.IsArray())
        return FromNumber(json);
    py::tuple numbers(json.Elements().size());
    for (std::size_t i = 0; i < numbers.size(); ++i)
        numbers[i] = FromNumber(json.Elements()[i]);
    return numbers;
}

} // namespace velto::python
