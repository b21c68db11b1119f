// Whatever text the stanza engine is given: nothing faults, and a change changes what it was asked to, which
// then reads back, and neither another byte nor what any other attribute of any stanza reads as. An input is
// a stanza's name, name and value of its key, name and value of an attribute, each ended by a byte 0xFF, and
// then the text.
#include <algorithm>
#include <cassert>
#include <fstream>

#include "inifile.h"

using Text = std::string_view;

// What stands in front of the sign in every line that has one, whatever the engine makes of the line.
static std::vector<Text> Names(Text text)
{
    std::vector<Text> names = {"none"};
    for (size_t nSign = text.find('='); nSign != text.npos; nSign = text.find('=', nSign + 1))
    {
        Text name = text.substr(0, nSign);
        name.remove_prefix(name.find_last_of('\n') + 1);
        name.remove_prefix(std::min(name.find_first_not_of(" \t\r"), name.size()));
        names.push_back(name.substr(0, name.find_last_not_of(" \t\r") + 1));
    }
    return names;
}

static void CheckUnchanged(const IniFile& before, const IniFile& after, const IniFile::Stanza* pChanged,
                           Text attribute)
{
    const std::vector<Text> names = Names(before.Text());
    for (size_t n = 0; n < before.Stanzas().size(); ++n)
    {
        assert(before.Stanzas()[n].strName == after.Stanzas().at(n).strName);
        for (const Text name : names)
            if (&before.Stanzas()[n] != pChanged || name != attribute)
                assert(before.Value(before.Stanzas()[n], name) == after.Value(after.Stanzas()[n], name));
    }
}

static void CheckWrite(const IniFile& ini, const IniSelector& selector, Text attribute, Text value)
{
    const IniFile::Stanza* const pStanza = ini.Find(selector);
    const auto result = ini.Write(selector, attribute, value);
    const std::string plain = std::string(selector.strKeyName) + "x";
    assert(pStanza ? ini.Write(selector, plain, "y").has_value() : !result); // what can be kept is
    if (!result)
        return;
    const IniFile changed(*result);
    assert(changed.Stanzas().size() == ini.Stanzas().size());
    assert(changed.Value(changed.Stanzas()[pStanza - ini.Stanzas().data()], attribute) == value);
    CheckUnchanged(ini, changed, pStanza, attribute);

    const Text text = ini.Text();
    const auto old = ini.Value(*pStanza, attribute);
    const auto added = std::mismatch(text.begin(), text.end(), result->begin(), result->end()).first;
    const size_t nAt = (old ? old->begin() : added) - text.begin();
    const Text rest = text.substr(nAt + old.value_or("").size());
    assert(result->starts_with(text.substr(0, nAt)) && result->ends_with(rest));
    assert(old ? result->size() == nAt + value.size() + rest.size() : result->size() > text.size());
}

extern "C" int LLVMFuzzerTestOneInput(const char* pData, size_t nSize)
{
    Text fields[5], text(pData, nSize);
    for (Text& field : fields)
    {
        field = text.substr(0, text.find('\xFF'));
        text.remove_prefix(std::min(field.size() + 1, text.size()));
    }
    const auto& [stanza, keyName, keyValue, attribute, value] = fields;
    const IniFile ini{std::string(text)};
    CheckWrite(ini, {stanza, keyName, keyValue}, attribute, value);
    if (!ini.Stanzas().empty()) // and at a place that is there
        CheckWrite(ini, {ini.Stanzas()[nSize % ini.Stanzas().size()].strName}, Names(text).back(), value);
    if (const auto result = ini.AddStanza(stanza, {{keyName, keyValue}, {attribute, value}}))
    {
        const IniFile added(*result);
        assert(result->starts_with(text) && added.Stanzas().at(ini.Stanzas().size()).strName == stanza);
        assert(added.Value(added.Stanzas().back(), keyName) == keyValue);
        assert(added.Value(added.Stanzas().back(), attribute) == value);
        CheckUnchanged(ini, added, nullptr, "");
    }
    return 0;
}

#ifdef REPLAY
int main(int argc, char** argv)
{
    for (int n = 1; n < argc; ++n)
    {
        std::ifstream file(argv[n], std::ios::binary);
        const std::string strInput{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(strInput.data(), strInput.size());
    }
    return argc > 1 ? 0 : 1; // with nothing to replay nothing was checked
}
#endif
