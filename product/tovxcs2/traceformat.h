// The formatter of parameter records.
#pragma once

#include <cstdarg>
#include <string>

// Formats by the rules of a narrow printf whose %s takes narrow text (the thread's ANSI code page) and whose
// %S takes wide text. The result is wide, so that no character is lost; null texts become "(null)". %n writes
// nothing, and the result is cut at 16,384 characters.
std::wstring FormatTrace(const char* pszFormat, va_list args);
