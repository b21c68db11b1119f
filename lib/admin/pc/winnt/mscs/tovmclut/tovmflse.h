// CZNMFileSecurity: gives files and directories the product's access rights, one by one or over a tree.
#pragma once

#include <windows.h>
#include <aclapi.h>

#include <cstdint>

#include "afxstr.h"
#include "tovmsebs.h"

// Longest path, with its terminator, that the walk takes.
constexpr size_t ZNM_SECURITY_PATH_SIZE = 1024;

class CZNMFileSecurity : public CZNMSecurityID
{
  public:
    // pszUser: an account that gets full control besides the fixed ones, or null for none.
    explicit CZNMFileSecurity(const wchar_t* pszUser);
    ~CZNMFileSecurity() override;

    // Applies the rights to what pszPath names: with fFiles, a directory and a file-name pattern, the files
    // that match; without, a directory, that directory. With fSubdirs, in every subdirectory too: those are
    // walked before their parent directory is changed.
    //
    // fDiscard: as below. World: access mode, permissions and (directories only) inheritance of the entry for
    // Everyone.
    //
    // TRUE if all went well, also where the volume keeps no access lists and nothing was done. A failure on
    // one object, such as a path that is too long, does not stop the walk.
    BOOL SetSecurityOnFiles(const wchar_t* pszPath, const uint32_t& fFiles, const uint32_t& fSubdirs,
                            const uint32_t& fDiscard, const uint32_t& nWorldAccessMode,
                            const uint32_t& nWorldPermissions, const uint32_t& nWorldInheritance);

    // Whether the volume of pszPath keeps access lists. The answer for the volume tested last is used again
    // for every path that begins with the same character.
    BOOL DiskSupportsSecurity(const wchar_t* pszPath);

    // Give Administrators, the group znm and Local System full control of one object, the user of the
    // constructor too, and restate the entry for Everyone if there was one and nWorldAccessMode is not 0.
    // fDiscard: replace the access list; otherwise merge into it, and leave an object alone that has an entry
    // for each already.
    //
    // An access list that cannot be written is tried once more after taking ownership. FALSE after a failure:
    // the object is as it was, except perhaps for its owner, and a failure record is written.
    BOOL ChangeFileSecurity(const wchar_t* pszPath, uint32_t fDiscard, uint32_t nWorldAccessMode,
                            uint32_t nWorldPermissions);
    BOOL ChangeDirSecurity(const wchar_t* pszPath, uint32_t fDiscard, uint32_t nWorldAccessMode,
                           uint32_t nWorldPermissions, uint32_t nWorldInheritance);

    // GetNamedSecurityInfoW and SetNamedSecurityInfoW, traced. Return what those return.
    DWORD GetFileSecurityInfo(const wchar_t* lpszObjectName, SE_OBJECT_TYPE ObjectType,
                              SECURITY_INFORMATION SecurityInfo, PSID* ppOwner, PSID* ppGroup, PACL* ppDacl,
                              PACL* ppSacl, PSECURITY_DESCRIPTOR* ppSecurityDescriptor);
    DWORD SetFileSecurityInfo(const wchar_t* lpszObjectName, SE_OBJECT_TYPE ObjectType,
                              SECURITY_INFORMATION SecurityInfo, PSID pOwner, PSID pGroup, PACL pDacl,
                              PACL pSacl);

  private:
    struct Variant;
    struct World;

    bool CanBeTested(const wchar_t* pszPath) const;
    bool IsVolumeTested(const wchar_t* pszPath) const;
    bool CreateSids();
    BOOL ChangeSecurity(class CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath, bool fDiscard,
                        const World& world);
    BOOL ReadAccessList(const class CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath,
                        PACL& pDacl, CZNMLocalBlock& pDescriptor, uint32_t& fSids);
    uint32_t ScanAccessList(const class CZNMTrace& trace, const Variant& variant, PACL pDacl) const;
    DWORD BuildEntries(const class CZNMTrace& trace, const Variant& variant, const World& world,
                       uint32_t fSids, EXPLICIT_ACCESS_W* pEntries) const;

    CString m_strUser;
};
