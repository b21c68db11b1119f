// Whatever text the stanza engine is given: nothing faults, and a change changes what it was asked to, which
// then reads back, and not another byte. An input is a stanza's name, name and value of its key, name and
// value of an attribute, each ended by a byte 0xFF, and then the text.
#include <algorithm>
#include <cassert>
#include <fstream>

#include "inifile.h"

using Text = std::string_view;

static void CheckWrite(const IniFile& ini, const IniSelector& selector, Text attribute, Text value)
{
    const IniFile::Stanza* const pStanza = ini.Find(selector);
    const auto result = ini.Write(selector, attribute, value);
    assert(pStanza != nullptr || !result);
    if (!result)
        return;
    const IniFile changed(*result);
    assert(changed.Stanzas().size() == ini.Stanzas().size());
    assert(changed.Value(changed.Stanzas()[pStanza - ini.Stanzas().data()], attribute) == value);

    const Text text = ini.Text();
    const auto old = ini.Value(*pStanza, attribute);
    const auto added = std::mismatch(text.begin(), text.end(), result->begin(), result->end()).first;
    const size_t nAt = (old ? old->begin() : added) - text.begin();
    const Text rest = text.substr(nAt + old.value_or("").size());
    assert(result->starts_with(text.substr(0, nAt)) && result->ends_with(rest));
    assert(!old || result->size() == nAt + value.size() + rest.size());
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
    if (!ini.Stanzas().empty()) // and in a stanza that is there
        CheckWrite(ini, {ini.Stanzas()[nSize % ini.Stanzas().size()].strName}, attribute, value);
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
