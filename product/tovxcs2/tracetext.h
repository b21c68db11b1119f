// Texts of the trace and the failure records.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>

// "Class::Method", or "component C function N" for a function that the catalogue does not have.
std::string FunctionName(int32_t nComponent, int32_t nFunction);

// False for a function that always exits with 0 because it has no result.
bool HasResult(int32_t nComponent, int32_t nFunction);

// A result of the library's own operations: "0", or the code in hexadecimal with its meaning.
std::string ReturnCodeText(int32_t nReturnCode);

// Formats by the rules of a narrow printf with the conversions %d, %u, %p, %s (narrow text), %S (wide text)
// and %X, whose width is filled up with zeros. Every other directive is shown as it stands and takes no
// argument. Null texts become "(null)". The result is cut at 16,384 characters.
std::wstring FormatTrace(const char* pszFormat, va_list args);
