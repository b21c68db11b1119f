// Conversions between the texts of the product: narrow (the thread's ANSI code page), wide, UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Nothing when a character cannot be converted: a path that lost a character names something else.
std::optional<std::wstring> Widen(std::string_view text);
std::optional<std::wstring> Widen(std::string_view text, unsigned nCodePage);
std::optional<std::string> Narrow(std::wstring_view text);

// From one code page to another, by the same rule.
std::optional<std::string> Recode(std::string_view text, unsigned nFrom, unsigned nTo);

// As Widen, for text that is only shown: what cannot be converted becomes a replacement character.
std::wstring WidenForDisplay(std::string_view text);

// UTF-8 on one line, nothing lost: control characters become \n, \r, \t or \xNN, half a surrogate pair
// \uNNNN.
std::string ToUtf8Line(std::wstring_view text);

// Printf into a string, for numbers and short names: at most 511 characters.
#ifdef __clang__ // has the rules of gnu_printf under the other name
#define ZN_PRINTF_RULES printf
#else
#define ZN_PRINTF_RULES gnu_printf
#endif
[[gnu::format(ZN_PRINTF_RULES, 1, 2)]] std::string Format(const char* pszFormat, ...);
#undef ZN_PRINTF_RULES

// printf of the system's words for an error code, "error 5: Access is denied.", in UTF-16.
std::wstring ErrorText(unsigned long nError);
