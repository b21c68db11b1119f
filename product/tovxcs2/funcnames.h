// Message catalogue of the trace and the failure records: the functions of component 42, the library's return
// codes.
#pragma once

#include <cstdint>
#include <string>

constexpr int32_t CLUSTER_COMPONENT = 42;

// "Class::Method", or "component C function N" for what the catalogue does not hold.
std::string FunctionName(int32_t nComponent, int32_t nFunction);

// False for a function that always exits with 0 because it has no result.
bool HasResult(int32_t nComponent, int32_t nFunction);

// A result of the library's own operations: "0", or the code in hexadecimal with its meaning.
std::string ReturnCodeText(int32_t nReturnCode);
