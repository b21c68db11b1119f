// Reads the text of the product's configuration files: stanzas with attributes. Knows nothing of what they
// mean, and writes nothing: that is the product's library's to do.
//
// A line "Name:" opens a stanza, lines "Attribute=Value" follow, with or without blanks around each part;
// lines that begin with '#' or ';' are comments. Names are compared byte by byte, and of several that match
// the first one counts. A byte-order mark is passed over.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// A line of a stanza, or one before the first. Views of the text.
struct ZNStanzaLine
{
    std::string_view text;             // whole, with its line end
    size_t nStanza = 0;                // number of the stanza that it is in; 0 before the first
    std::string_view stanza;           // its name
    std::string_view attribute, value; // empty on a line that is no attribute
};

// The text must live as long as the lines.
std::vector<ZNStanzaLine> ZNReadStanzas(std::string_view text);

// The value of the attribute in the first stanza of that name; empty if there is none.
std::string_view ZNFindValue(std::string_view text, std::string_view stanza, std::string_view attribute);

// The text without the lines of that attribute in stanzas of that name.
std::string ZNWithoutAttribute(std::string_view text, std::string_view stanza, std::string_view attribute);
