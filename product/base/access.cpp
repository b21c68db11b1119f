// Finds the product's group and secures objects for it. Must not take another kind of account of that name
// for the group.
#include "access.h"

#include <sddl.h>

#include <string>

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

SharedObjectSecurity::SharedObjectSecurity()
{
    std::wstring strText = L"D:(A;;GA;;;SY)(A;;GA;;;BA)";
    LocalText sidText;
    if (auto sid = ZnmGroupSid(); !sid.empty() && ConvertSidToStringSidW(sid.data(), sidText.Out()))
        strText.append(L"(A;;GA;;;").append(sidText.Get()).append(L")");
    // Without a descriptor the default of the creator's token applies, which is narrower, not wider.
    ConvertStringSecurityDescriptorToSecurityDescriptorW(strText.c_str(), SDDL_REVISION_1, m_descriptor.Out(),
                                                         nullptr);
    m_attributes = {sizeof m_attributes, m_descriptor.Get(), FALSE};
}
