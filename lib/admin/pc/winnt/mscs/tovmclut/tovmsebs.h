// CZNMSecurityID: the security identifiers that access lists are built from, and taking ownership.
#pragma once

#include "afxwin.h"

#include <aclapi.h>

#include "owner.h"

// Each SID is made on first use and kept until the object is destroyed. If a SID cannot be made, its member
// stays null, a failure record is written, and the next call tries again.
class CZNMSecurityID
{
  public:
    CZNMSecurityID();
    virtual ~CZNMSecurityID();
    CZNMSecurityID(const CZNMSecurityID&) = delete;
    CZNMSecurityID& operator=(const CZNMSecurityID&) = delete;

    // pSidIn null: the SID is made. Otherwise pSidIn becomes the member (callers pass the member itself). It
    // then belongs to the object and must come from the allocator that the member's owner releases it with.
    void CreateAdminSid(PSID pSidIn);  // BUILTIN\Administrators
    void CreateZnmSid(PSID pSidIn);    // the account "znm" of the local machine
    void CreateSystemSid(PSID pSidIn); // Local System
    void CreateWorldSid(PSID pSidIn);  // Everyone

    // The same for the account pszUser. Null or empty: the member stays as it is, and nothing is recorded.
    void CreateUserSid(PSID pSidIn, const wchar_t* pszUser);

    // Makes Administrators the owner of an object, after enabling the take-ownership privilege for the
    // process if it is not enabled yet. SE_FILE_OBJECT: a path. SE_REGISTRY_KEY: a key; "MACHINE\" is put
    // before a name that does not begin with "MACHINE". Returns TRUE in every case. A failure leaves the
    // owner as it was and writes a failure record, unless the object does not exist.
    BOOL SetOwner(const wchar_t* pszObjectName, SE_OBJECT_TYPE ObjectType);

  protected:
    AllocatedSid m_pAdminSid;
    HeapSid m_pZnmSid;
    AllocatedSid m_pWorldSid;
    AllocatedSid m_pSystemSid;
    HeapSid m_pUserSid;

    // Root of the volume that this object tested last; set by CZNMFileSecurity.
    static constexpr size_t ROOT_PATH_SIZE = 1024;
    wchar_t m_szRootPath[ROOT_PATH_SIZE];
};
