// Function trace: one object on the stack of each traced function.
//
//     CZNMTrace trace(FN_SET_DATA_DEST);
//     trace.Parms("CZNMSCSApp::SetDataDest() (strDataDest = %S)", strDataDest);
//     ...
//     return trace.Return(1);
//
// The entry is recorded when the object is made, the exit when it is destroyed. With no trace area on the
// thread nothing is touched: the application object, say, is made before the area exists and destroyed after
// it is gone.
#pragma once

#include <windows.h>

#include <utility>

#include "afxstr.h"
#include "tovxtrc.h"

// The component that this program is in every record.
constexpr int ZNM_COMPONENT = 42;

// The traced functions. The numbers stand in trace and failure records too; none is ever given anew.
enum ZNM_FUNCTION : int
{
    FN_EXCEPTION_CTOR = 26,
    FN_EXCEPTION_DTOR = 27,
    FN_EXCEPTION_REPORT = 28,
    FN_FILE_SECURITY_CTOR = 29,
    FN_FILE_SECURITY_DTOR = 30,
    FN_SET_SECURITY_ON_FILES = 31,
    FN_DISK_SUPPORTS_SECURITY = 32,
    FN_CHANGE_FILE_SECURITY = 33,
    FN_CHANGE_DIR_SECURITY = 34,
    FN_GET_FILE_SECURITY_INFO = 35,
    FN_SET_FILE_SECURITY_INFO = 36,
    FN_SECURITY_ID_CTOR = 43,
    FN_SECURITY_ID_DTOR = 44,
    FN_CREATE_ADMIN_SID = 45,
    FN_CREATE_ZNM_SID = 46,
    FN_CREATE_WORLD_SID = 47,
    FN_CREATE_SYSTEM_SID = 48,
    FN_SET_OWNER = 50,
    FN_CREATE_USER_SID = 51,
    FN_QUEUE_MGR_CTOR = 53,
    FN_QUEUE_MGR_DTOR = 54,
    FN_QUEUE_MGR_IS_RUNNING = 55,
    FN_QUEUE_MGR_STOP = 57,
    FN_QUEUE_MGR_GET_STATE = 58,
    FN_QUEUE_MGR_GET_DATA_DIRECTORY = 59,
    FN_QUEUE_MGR_IS_MULTI_INSTANCE = 60,
    FN_QUEUE_MGR_GET_DIRECTORY_NAME = 61,
    FN_QUEUE_MGR_REFRESH = 62,
    FN_MESSAGE_CONSOLE_BY_ID = 80,
    FN_MESSAGE_CONSOLE_BY_TEXT = 82,
    FN_APP_CTOR = 166,
    FN_APP_DTOR = 167,
    FN_MIGRATE_QUEUE_MANAGER = 168,
    FN_INIT_INSTANCE = 169,
    FN_EXIT_INSTANCE = 170,
    FN_CREATE_ZN_DIRECTORY = 171,
    FN_CHECK_AND_CREATE_ZN_DIRECTORY = 173,
    FN_COPY_ZN_FILES = 174,
    FN_DELETE_ZN_FILES = 176,
    FN_SET_DATA_DEST = 177,
    FN_SET_LOG_DEST = 178,
    FN_TMAIN = 179,
    FN_CMD_LINE_INFO_CTOR = 180,
    FN_PARSE_PARAM = 181,
};

class CZNMTrace
{
  public:
    // Records the entry of nFunction.
    explicit CZNMTrace(ZNM_FUNCTION nFunction) noexcept;

    // Records the exit, with the code that Return or Leave set, or 0.
    ~CZNMTrace();

    CZNMTrace(const CZNMTrace&) = delete;
    CZNMTrace& operator=(const CZNMTrace&) = delete;

    // Makes nReturnCode the code of the exit and hands it back.
    template <class Code>
    Code Return(Code nReturnCode) noexcept
    {
        m_nReturnCode = static_cast<int>(nReturnCode);
        return nReturnCode;
    }

    // Records the exit now; the destructor then records none.
    void Leave(int nReturnCode) noexcept;

    // Hands over a line made from a narrow printf format, if such lines are wanted: %s narrow text, %S wide
    // text, a CString among it.
    template <class... Args>
    void Parms(const char* pszFormat, const Args&... args) const
    {
        Record(m_nFunction, pszFormat, args...);
    }

    // Hands over a fixed text, if texts are wanted.
    void Text(const char* pszText) const;

    // As Parms, for a line that is recorded in another function's name.
    template <class... Args>
    static void Record(int nFunction, const char* pszFormat, const Args&... args)
    {
        if (XTR_THREAD_AREA* const pArea = AreaIfWanted(XTR_OPTIONS_PARMS))
        {
            pArea->nCurrentFunction =
                (static_cast<uint32_t>(nFunction) << 16) | static_cast<uint32_t>(ZNM_COMPONENT);
            xtr_parms(pszFormat, Raw(args)...);
        }
    }

    // True if a line of Parms or Record would be handed over: for arguments that cost something to make.
    static bool WantsParms() noexcept { return AreaIfWanted(XTR_OPTIONS_PARMS) != nullptr; }

    // Records an exit of a function whose entry was not recorded.
    static void RecordExit(ZNM_FUNCTION nFunction, int nReturnCode) noexcept;

  private:
    static XTR_THREAD_AREA* AreaIfWanted(uint32_t nOptions) noexcept;

    // What a variable argument list can carry.
    template <class Arg>
    static const Arg& Raw(const Arg& arg)
    {
        return arg;
    }
    static const wchar_t* Raw(const CString& str) { return str; }
    static const char* Raw(const CW2A& narrow) { return narrow; }

    ZNM_FUNCTION m_nFunction;
    int m_nReturnCode = 0;
    bool m_fLeft = false;
};
