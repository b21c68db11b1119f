// CZNMFileSecurity: sets the product's access rights on files and directories, one by one or over a tree.
#pragma once

#include "afxwin.h"

#include <aclapi.h>

#include <cstdint>

#include "tovmsebs.h"

// Longest path that the walk accepts, in wide characters, with its terminator.
constexpr size_t ZNM_SECURITY_PATH_SIZE = 1024;

class CZNMFileSecurity : public CZNMSecurityID
{
  public:
    // pszUser: an account that gets full control besides the fixed ones, or null for none.
    explicit CZNMFileSecurity(const wchar_t* pszUser);
    ~CZNMFileSecurity() override;

    // Applies the rights to a tree.
    //
    // fFiles not 0: pszPath is a directory and a file-name pattern; the matching files are changed and no
    // directory is. fFiles 0: pszPath is a directory; that directory is changed and no file is.
    // fSubdirs not 0: the same in every subdirectory. A directory is changed after its subdirectories.
    // fDiscard: see ChangeFileSecurity. World: access mode, permissions and (for directories only)
    // inheritance of the entry for Everyone.
    //
    // Returns TRUE if every object was changed, and also if the volume keeps no access lists and nothing was
    // changed. A failure on one object, for example a path that is too long, does not stop the walk.
    BOOL SetSecurityOnFiles(const wchar_t* pszPath, const uint32_t& fFiles, const uint32_t& fSubdirs,
                            const uint32_t& fDiscard, const uint32_t& nWorldAccessMode,
                            const uint32_t& nWorldPermissions, const uint32_t& nWorldInheritance);

    // Returns TRUE if the volume of pszPath keeps access lists. The last answer is used again for a path that
    // begins with the same character as the root of the volume that this object tested last.
    BOOL DiskSupportsSecurity(const wchar_t* pszPath);

    // Give Administrators, the group znm, Local System and the user of the constructor full control of one
    // object. An existing entry for Everyone is set to the World values unless nWorldAccessMode is 0.
    // fDiscard not 0: the access list is replaced. fDiscard 0: the entries are merged into it, and an object
    // that has an entry for each account already is left alone.
    //
    // If the access list cannot be written, Administrators take ownership and it is written once more. FALSE
    // after a failure: a failure record is written and the object is unchanged, except perhaps its owner.
    BOOL ChangeFileSecurity(const wchar_t* pszPath, uint32_t fDiscard, uint32_t nWorldAccessMode,
                            uint32_t nWorldPermissions);
    BOOL ChangeDirSecurity(const wchar_t* pszPath, uint32_t fDiscard, uint32_t nWorldAccessMode,
                           uint32_t nWorldPermissions, uint32_t nWorldInheritance);

    // Call GetNamedSecurityInfoW and SetNamedSecurityInfoW, with trace, and return their results.
    DWORD GetFileSecurityInfo(const wchar_t* lpszObjectName, SE_OBJECT_TYPE ObjectType,
                              SECURITY_INFORMATION SecurityInfo, PSID* ppOwner, PSID* ppGroup, PACL* ppDacl,
                              PACL* ppSacl, PSECURITY_DESCRIPTOR* ppSecurityDescriptor);
    DWORD SetFileSecurityInfo(const wchar_t* lpszObjectName, SE_OBJECT_TYPE ObjectType,
                              SECURITY_INFORMATION SecurityInfo, PSID pOwner, PSID pGroup, PACL pDacl,
                              PACL pSacl);

  private:
    struct Variant;
    struct World;
    struct AccessList;

    bool IsVolumeTested(const wchar_t* pszPath) const;
    bool CanBeTested(const wchar_t* pszPath) const;
    bool CreateSids();
    bool HasAccess(uint32_t fSids) const;
    BOOL ChangeSecurity(const class CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath,
                        bool fDiscard, const World& world);
    BOOL ReadAccessList(const class CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath,
                        AccessList& list);
    uint32_t ScanAccessList(const class CZNMTrace& trace, const Variant& variant, PACL pDacl) const;
    uint32_t KindOf(PSID pSid) const;
    LocalAcl BuildAccessList(const class CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath,
                             const World& world, const AccessList& old) const;
    BOOL WriteAccessList(const class CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath,
                         PACL pDacl);

    CString m_strUser;
};
