// Writes a string in upper case, in lower case, or in lower case with its first character raised.
#include "text.h"
#include "velto/node.h"

namespace velto::pattern
{

VELTO_INTERNED_ID(kLowercase, "lowercase");
VELTO_INTERNED_ID(kUppercase, "uppercase");
VELTO_INTERNED_ID(kCapitalize, "capitalize");

static String Upper(const String& string)
{
    const String held = OrEmpty(string);
    return held ? String::Adopt(Bound<StringInterface>().ToUpper(held.Get())) : String();
}

static String Lower(const String& string)
{
    const String held = OrEmpty(string);
    return held ? String::Adopt(Bound<StringInterface>().ToLower(held.Get())) : String();
}

static String LetterCase(In<"string", String> string, In<"mode", InternedId> mode)
{
    if (*mode == kLowercase)
        return Lower(*string);
    if (*mode == kUppercase)
        return Upper(*string);
    if (*mode == kCapitalize)
    {
        String capitalized = Upper(Part(*string, 0, PartEnd::End(1)));
        AppendOrDrop(capitalized, Lower(Part(*string, 1, PartEnd::End(-1))));
        return capitalized;
    }
    return *string;
}

VELTO_CORE_NODE("net.velto.pattern.corenode.string.case", LetterCase);

} // namespace velto::pattern
