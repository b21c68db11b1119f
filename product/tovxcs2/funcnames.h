// Message catalogue of component 42: the names of its functions, for the trace and the failure records.
#pragma once

#include <cstdint>
#include <string>

constexpr int32_t CLUSTER_COMPONENT = 42;

// "Class::Method", or "component C function N" for what the catalogue does not hold.
std::string FunctionName(int32_t nComponent, int32_t nFunction);
