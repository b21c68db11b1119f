// Interface of the product's common-services library tovxcs2.dll.
//
// Narrow texts are zero-terminated, in the thread's ANSI code page (CP_THREAD_ACP). Every operation that
// returns int32_t returns 0 for success and a return code (XCS_RC_..., or another non-zero value) for
// failure. What constant arguments mean is the library's own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tovxtrc.h"

// Level of the library that this header describes; xcsCheckConsistency compares it with the installed one.
#define XCS_VERSION_LEVEL "9.3.1.0"

// The volume keeps no access lists.
constexpr int32_t XCS_RC_NO_VOLUME_SECURITY = 0x40806178;
// No installation of that name is known.
constexpr int32_t XCS_RC_UNKNOWN_INSTALLATION = 0x10006164;
// The code of a failure record that a program writes about itself.
constexpr int32_t XCS_RC_PROGRAM_FAILURE = 0x40006119;

// Selectors of xcsGetInstallationDetails.
constexpr int32_t XCS_INSTALLATION_BY_NAME = 16;
constexpr int32_t XCS_INSTALLATION_PRIMARY = 64;

// Longest path that a configuration file or a details record holds, with its terminator.
constexpr size_t XCS_PATH_SIZE = 261;

// Output of xcsInitializeEx, kept by the program for xcsTerminate. Opaque to it.
struct XCS_CONNECTION
{
    uint64_t nHandle;
    uint32_t nProcess;
};
static_assert(offsetof(XCS_CONNECTION, nProcess) == 8);

// Storage that a program lends to some operations for the length of one call. It reads nothing in it.
struct alignas(16) XCS_SCRATCH
{
    unsigned char abData[4096];
};

#pragma pack(push, 1)

// A queue manager. Allocated by xcsGetQMDetails; released with xcsFreeMemFn.
struct XCS_QM_DETAILS
{
    char szName[49];             // queue manager name
    char szDirectory[67];        // name of its directories below the data and log roots
    uint8_t fFlags;              // XCS_QM_...
    uint8_t abReserved[264];     //
    char szDataDirectory[261];   // prefix\qmgrs\directory name
    char szInstallationName[17]; // owning installation
    char szSubpool[49];          // subpool identity for xcsIsSubpoolActive
};

// An installation. Allocated by xcsGetInstallationDetails; released with xcsFreeMemFn.
struct XCS_INSTALLATION_DETAILS
{
    char szName[17];        // installation name
    uint8_t abReserved[71]; //
    char szPath[261];       // root directory of the installation
    uint8_t abReserved2[20];
    char szIdentity[49]; // installation identity for xcsIsSubpoolActive
};

// Inserts of a failure record.
struct XCS_INSERTS
{
    char achEyeCatcher[4]; // "XMSA"
    uint8_t abReserved[28];
    const char* apszText[3]; // text inserts; null where there is none
};

#pragma pack(pop)

constexpr uint8_t XCS_QM_MULTI_INSTANCE = 0x02;

static_assert(offsetof(XCS_QM_DETAILS, szName) == 0);
static_assert(offsetof(XCS_QM_DETAILS, szDirectory) == 49);
static_assert(offsetof(XCS_QM_DETAILS, fFlags) == 116);
static_assert(offsetof(XCS_QM_DETAILS, szDataDirectory) == 381);
static_assert(offsetof(XCS_QM_DETAILS, szInstallationName) == 642);
static_assert(offsetof(XCS_QM_DETAILS, szSubpool) == 659);
static_assert(offsetof(XCS_INSTALLATION_DETAILS, szName) == 0);
static_assert(offsetof(XCS_INSTALLATION_DETAILS, szPath) == 88);
static_assert(offsetof(XCS_INSTALLATION_DETAILS, szIdentity) == 369);
static_assert(offsetof(XCS_INSERTS, apszText) == 32);
static_assert(sizeof(XCS_INSERTS) == 56);

extern "C"
{
    // Compares the level that the caller was built for with the installed library's. Needs no initialisation.
    XCS_API int32_t xcsCheckConsistency(const char* pszVersionLevel);

    // Brings the common services up for this process and gives the calling thread its trace area. On success
    // *pConnection is for xcsTerminate; after a failure nothing is to be terminated.
    XCS_API int32_t xcsInitializeEx(int32_t nComponent, int32_t nOptions, void* pReserved1, void* pReserved2,
                                    void* pReserved3, void* pReserved4, void* pReserved5,
                                    XCS_CONNECTION* pConnection);

    // Tells whether the invoking user may administer the product: 0, XCS_RC_NO_VOLUME_SECURITY or another
    // code.
    XCS_API int32_t xcsCheckAuthorization(int32_t nOptions);

    // Takes the common services down: the trace is closed, the thread's trace area is gone afterwards.
    XCS_API int32_t xcsTerminate(XCS_CONNECTION* pConnection, int32_t nOptions);

    // Path of the product's configuration file zns.ini (pszQMName null) or of a queue manager's qm.ini.
    // pszFileName has room for XCS_PATH_SIZE bytes. *pnFileType goes back to the two operations below as it
    // is.
    XCS_API int32_t xcsGetIniFilename(const char* pszQMName, char* pszFileName, uint32_t* pnFileType);

    // Reads an attribute of the first stanza pszStanza whose attribute pszKeyName equals pszKeyValue (both
    // null: of the first stanza of that name). *pnLength is the buffer's size before and the value's length
    // after the call; the value is terminated only if there is room. A value that does not fit is a failure.
    XCS_API int32_t xcsIniUtilRead(const char* pszStanza, const char* pszKeyName, const char* pszKeyValue,
                                   const char* pszAttribute, char* pszBuffer, uint32_t* pnLength,
                                   const char* pszFileName, uint32_t nFileType);

    // Replaces the value that xcsIniUtilRead would read. Every other byte of the file stays; the file is
    // replaced in one step, so that a failure at any point leaves the old file whole.
    XCS_API int32_t xcsIniUtilWrite(const char* pszStanza, const char* pszKeyName, const char* pszKeyValue,
                                    const char* pszAttribute, const char* pszValue, const char* pszFileName,
                                    uint32_t nFileType);

    // Looks a queue manager up by its name (case-sensitive). On success *ppDetails is a new record.
    XCS_API int32_t xcsGetQMDetails(const char* pszQMName, XCS_SCRATCH* pScratch, XCS_QM_DETAILS** ppDetails);

    // Looks an installation up: XCS_INSTALLATION_BY_NAME by pszName, XCS_INSTALLATION_PRIMARY the primary one
    // (pszName null). XCS_RC_UNKNOWN_INSTALLATION when there is none. On success *ppInstallation is a new
    // record.
    XCS_API int32_t xcsGetInstallationDetails(const char* pszName, void* pReserved1, void* pReserved2,
                                              int32_t nSelector, void* pReserved3, XCS_SCRATCH* pScratch,
                                              XCS_INSTALLATION_DETAILS** ppInstallation);

    // 0 if both name the same installation. pInstallation is a name or an installation details record, which
    // begins with its name.
    XCS_API int32_t xcsCompareInstallations(const void* pInstallation, const char* pszName);

    // 0 if the queue manager's subpool is active, that is, the queue manager runs.
    XCS_API int32_t xcsIsSubpoolActive(const char* pszSubpool, const char* pszDirectory, void* pReserved,
                                       int32_t nOptions, const char* pszInstallationIdentity);

    // Releases a record that the library allocated. Null is allowed.
    XCS_API void xcsFreeMemFn(void* pReserved1, int32_t nComponent, void* pReserved2, void* pRecord);

    // Runs a program to its end. pszArguments is a list of zero-terminated words that ends in an empty word;
    // the first word is the program again. 0 when it ran, with *pnResult its exit code; otherwise a code.
    XCS_API int32_t xcsExecProgramHandle(int32_t nComponent, const char* pszProgram, int32_t nOption1,
                                         const char* pszArguments, void* pReserved1, int32_t nOption2,
                                         int32_t nOption3, void* pReserved2, void* pReserved3,
                                         void* pReserved4, int32_t* pnResult, void* pReserved5);

    // Creates one directory; its parent exists. *pnReason is 0 or the system's error code.
    XCS_API int32_t xcsCreateDirectory(const char* pszPath, int32_t nOption1, void* pReserved1,
                                       void* pReserved2, int32_t nOption2, uint32_t* pnReason);

    // 0 when the path's volume keeps access lists, XCS_RC_NO_VOLUME_SECURITY when not, another code when that
    // could not be found out. *pnRootLength is the length of the volume's root within the path, in UTF-16
    // units of the path's wide form, or stays.
    XCS_API int32_t xcsVolumeSupportsSecurity(const char* pszPath, uint32_t* pnRootLength);

    // Names the source module and line for the failure record that the thread writes next. The text is kept
    // by reference.
    XCS_API void xcsSaveFileContextSccsId(const char* pszSourceId, int32_t nLine);

    // Writes a failure record. The record never fails the caller.
    XCS_API void xcsVORTFn(int32_t nComponent, int32_t nFunction, int32_t nProbe, int32_t nErrorCode,
                           const XCS_INSERTS* pInserts, void* pReserved1, void* pReserved2, void* pReserved3);
}
