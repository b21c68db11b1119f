// Finds the product's group. Must not take another kind of account of the same name for it.
#include "znmgroup.h"

std::vector<unsigned char> ZnmGroupSid()
{
    std::vector<unsigned char> sid(SECURITY_MAX_SID_SIZE);
    DWORD nSidSize = static_cast<DWORD>(sid.size());
    wchar_t szDomain[256];
    DWORD nDomainSize = ARRAYSIZE(szDomain);
    SID_NAME_USE eUse = SidTypeUnknown;
    if (!LookupAccountNameW(nullptr, L"znm", sid.data(), &nSidSize, szDomain, &nDomainSize, &eUse) ||
        (eUse != SidTypeAlias && eUse != SidTypeGroup))
        return {};
    sid.resize(nSidSize);
    return sid;
}
