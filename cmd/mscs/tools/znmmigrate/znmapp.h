// The application object: the parsed command line, the migration procedure and its directory operations.
//
// The directory operations talk to nobody but the trace. All paths are absolute Windows paths with
// backslashes, of any length; nothing adds a long-path prefix to them.
#pragma once

#include <cstdint>
#include <functional>

#include "afxwin.h"
#include "znmpair.h"

// Which word the command-line parser expects next.
enum ZN_EXPECTED : uint16_t
{
    EXPECT_QM_NAME = 1,
    EXPECT_DATA_DEST = 2,
    EXPECT_LOG_DEST = 3,
    EXPECT_FLAG = 4,
};

class CZNMSCSApp : public CWinApp
{
  public:
    CZNMSCSApp();
    ~CZNMSCSApp() override;

    BOOL InitInstance() override;
    int ExitInstance() override;

    // Moves the queue manager that the command line names: 1 when all of it succeeded, 0 after any failure,
    // which has then been shown to the user where it has a message of its own. Nothing is rolled back; what a
    // failure leaves behind stands beside each step.
    virtual int MigrateQueueManager();

    // Store a destination with backslashes for slashes and without trailing backslashes.
    void SetDataDest(const wchar_t* strDataDest);
    void SetLogDest(const wchar_t* strLogDest);

    // Makes strDir a directory that can be read and written, creating what is missing of its path. 1, or 0 if
    // that failed; directories created on the way stay.
    int CheckAndCreateZNDirectory(const CString& strDir);

    // Creates what is missing of strDir below strLastDir, an existing directory or empty, and gives each new
    // directory the product's access rights. 0, or the code that the last component left: a system error, or
    // the attributes of a last component that exists already.
    uint32_t CreateZNDirectory(const CString& strDir, const CString& strLastDir);

    // Copies the content of strSrc into strDest, over what is there, lets prove compare both, and replaces
    // the access rights of the copy. 1, or 0 if any of it failed; what was copied stays, the source is never
    // changed.
    using Proof = std::function<void(CZNFindings& findings)>;
    int CopyZNFiles(const CString& strDest, const CString& strSrc, const Proof& prove);

    // Deletes strDir, a directory of the pair's old tree, with all its content, stopping at the first thing
    // that cannot be deleted or is not as it was proved. 1, also for a directory that cannot be listed, or 0;
    // what was deleted before a failure stays deleted.
    int DeleteZNFiles(const CString& strDir, const CZNPair& proved);

    // The command line, as CZNCmdLineInfo finds it.
    uint16_t m_nParameters = 0;         // words seen, valid or not
    uint16_t m_nExpected = EXPECT_FLAG; // ZN_EXPECTED
    BOOL m_fParametersValid = TRUE;     // cleared for good by the first error
    CString m_strQueueManager;          // value of /m
    CString m_strDataDest;              // value of /dd
    CString m_strLogDest;               // value of /ld

    DECLARE_MESSAGE_MAP()
};

// The one application object.
extern CZNMSCSApp theApp;
