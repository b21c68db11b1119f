// Conversions between the texts of the product: narrow (the thread's ANSI code page), wide, UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Nothing when a character cannot be converted: a path that lost a character names something else.
std::optional<std::wstring> Widen(std::string_view text);
std::optional<std::string> Narrow(std::wstring_view text);

// As Widen, for text that is only shown: what cannot be converted becomes a replacement character.
std::wstring WidenForDisplay(std::string_view text);

// The text in the console's OEM code page. What that lacks becomes a replacement character.
std::string ForConsole(std::wstring_view text);

// The text in UTF-8 on one line: control characters become \xNN.
std::string ToUtf8Line(std::wstring_view text);

// Printf into a string, for numbers and short names: at most 511 characters.
#ifdef __clang__ // has the rules of gnu_printf under the other name
#define ZN_PRINTF_RULES printf
#else
#define ZN_PRINTF_RULES gnu_printf
#endif
[[gnu::format(ZN_PRINTF_RULES, 1, 2)]] std::string Format(const char* pszFormat, ...);
#undef ZN_PRINTF_RULES

// An error code with the system's text for it: "error 5: Access is denied."
std::wstring ErrorText(unsigned long nError);

// The time of day: "2026-01-31 23:59:59.123Z"
std::string UtcNow();
