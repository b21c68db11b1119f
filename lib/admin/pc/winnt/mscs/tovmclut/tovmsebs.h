// CZNMSecurityID: the security identifiers that access lists are built from, and taking ownership.
#pragma once

#include <windows.h>
#include <aclapi.h>

#include "tovmhndl.h"

// Makes each SID on first use and keeps it to the end of the object. A SID that could not be made stays null,
// with a failure record written, and is tried again by the next call.
class CZNMSecurityID
{
  public:
    CZNMSecurityID();
    virtual ~CZNMSecurityID();
    CZNMSecurityID(const CZNMSecurityID&) = delete;
    CZNMSecurityID& operator=(const CZNMSecurityID&) = delete;

    // Each takes a SID to adopt, usually the present member; null makes one. What is adopted belongs to the
    // object from then on and must have come from the allocator that the member releases with.
    void CreateAdminSid(PSID pSidIn);  // BUILTIN\Administrators
    void CreateZnmSid(PSID pSidIn);    // the account "znm" of the local machine
    void CreateSystemSid(PSID pSidIn); // Local System
    void CreateWorldSid(PSID pSidIn);  // Everyone

    // As above, for the account pszUser. Null or empty leaves the member as it is, without a failure record.
    void CreateUserSid(PSID pSidIn, const wchar_t* pszUser);

    // Makes Administrators the owner of the object (SE_FILE_OBJECT: a path; SE_REGISTRY_KEY: a key, below
    // MACHINE unless it begins so), with the take-ownership privilege enabled for the process if that can be
    // had. Always TRUE: a failure leaves the owner as it was and a failure record, except for an object that
    // does not exist.
    BOOL SetOwner(const wchar_t* pszObjectName, SE_OBJECT_TYPE ObjectType);

  protected:
    CZNMAllocatedSid m_pAdminSid;
    CZNMHeapSid m_pZnmSid;
    CZNMAllocatedSid m_pWorldSid;
    CZNMAllocatedSid m_pSystemSid;
    CZNMHeapSid m_pUserSid;

    // Root of the volume that was tested last; maintained by CZNMFileSecurity.
    static constexpr size_t ROOT_PATH_SIZE = 1024;
    wchar_t m_szRootPath[ROOT_PATH_SIZE];
};
