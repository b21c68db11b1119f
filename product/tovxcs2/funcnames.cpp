// Gives numbers their words. A number, once given, keeps its meaning: old traces are read with it.
#include "funcnames.h"

#include <algorithm>
#include <iterator>

#include "returncodes.h"
#include "text.h"
#include "tovxcs2.h"

namespace
{
struct Entry
{
    int32_t nFunction;
    bool fResult;
    const char* pszName;
};
constexpr bool RESULT = true;
constexpr bool NO_RESULT = false;

constexpr Entry CATALOGUE[] = {
#define ZNM_TRACED_FUNCTION(constant, number, result, name) {number, result, name},
#include "znmfunctions.def"
#undef ZNM_TRACED_FUNCTION
};
static_assert(std::ranges::adjacent_find(CATALOGUE, std::ranges::greater_equal(), &Entry::nFunction) ==
              std::end(CATALOGUE)); // in order, no number twice

struct ReturnCode
{
    int32_t nCode;
    const char* pszMeaning;
};

constexpr ReturnCode RETURN_CODES[] = {
    {XCS_RC_DIFFERENT, "different"},
    {XCS_RC_PARAMETER, "argument not allowed"},
    {XCS_RC_NOT_FOUND, "not found"},
    {XCS_RC_BAD_CONFIGURATION, "configuration cannot be used"},
    {XCS_RC_UNKNOWN_INSTALLATION, "no such installation"},
    {XCS_RC_TRUNCATED, "does not fit"},
    {XCS_RC_BAD_VALUE, "value cannot be kept in the file"},
    {XCS_RC_NOT_ACTIVE, "does not run"},
    {XCS_RC_SYSTEM, "the system refused"},
    {XCS_RC_NO_MEMORY, "out of memory"},
    {XCS_RC_NO_VOLUME_SECURITY, "volume keeps no access lists"},
};

const Entry* Find(int32_t nComponent, int32_t nFunction)
{
    const auto* const pEntry = std::ranges::lower_bound(CATALOGUE, nFunction, {}, &Entry::nFunction);
    const bool fFound =
        nComponent == CLUSTER_COMPONENT && pEntry != std::end(CATALOGUE) && pEntry->nFunction == nFunction;
    return fFound ? pEntry : nullptr;
}
} // namespace

std::string FunctionName(int32_t nComponent, int32_t nFunction)
{
    const Entry* const pEntry = Find(nComponent, nFunction);
    return pEntry != nullptr ? pEntry->pszName : Format("component %d function %d", nComponent, nFunction);
}

bool HasResult(int32_t nComponent, int32_t nFunction)
{
    const Entry* const pEntry = Find(nComponent, nFunction);
    return pEntry == nullptr || pEntry->fResult;
}

std::string ReturnCodeText(int32_t nReturnCode)
{
    if (nReturnCode == XCS_RC_OK)
        return "0";
    const auto* const pCode = std::ranges::find(RETURN_CODES, nReturnCode, &ReturnCode::nCode);
    const std::string strCode = Format("0x%08X", static_cast<unsigned>(nReturnCode));
    return pCode != std::end(RETURN_CODES) ? strCode + " (" + pCode->pszMeaning + ")" : strCode;
}
