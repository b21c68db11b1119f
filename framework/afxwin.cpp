// The application object and the command-line walk of the class-library subset.
#include "afxwin.h"

#include <cstdlib>

namespace
{
CWinApp* s_pApp = nullptr;
} // namespace

const CRuntimeClass* CObject::GetRuntimeClass() const
{
    static const CRuntimeClass s_class{"CObject"};
    return &s_class;
}

const AFX_MSGMAP* CCmdTarget::GetThisMessageMap()
{
    static const AFX_MSGMAP s_map{nullptr};
    return &s_map;
}

const AFX_MSGMAP* CCmdTarget::GetMessageMap() const
{
    return GetThisMessageMap();
}

BOOL CWinThread::InitInstance()
{
    return FALSE; // a thread without an override has nothing to run
}

int CWinThread::ExitInstance()
{
    return 0;
}

void CCommandLineInfo::ParseParam(const wchar_t*, BOOL, BOOL) {}

CWinApp::CWinApp(const wchar_t* lpszAppName) : m_strAppName(lpszAppName)
{
    s_pApp = this;
}

CWinApp::~CWinApp()
{
    s_pApp = nullptr;
}

BOOL CWinApp::InitInstance()
{
    return TRUE;
}

int CWinApp::ExitInstance()
{
    return 0;
}

void CWinApp::ParseCommandLine(CCommandLineInfo& cmdInfo)
{
    for (int i = 1; i < __argc; ++i)
    {
        const wchar_t* pszParam = __wargv[i];
        const BOOL fFlag = *pszParam == L'-' || *pszParam == L'/';
        cmdInfo.ParseParam(fFlag ? pszParam + 1 : pszParam, fFlag, i + 1 == __argc);
    }
}

BOOL AfxWinInit(HINSTANCE hInstance, HINSTANCE hPrevInstance, wchar_t* lpCmdLine, int)
{
    if (s_pApp == nullptr || hInstance == nullptr || hPrevInstance != nullptr || lpCmdLine == nullptr)
        return FALSE;
    s_pApp->m_hInstance = hInstance;
    s_pApp->m_lpCmdLine = lpCmdLine;
    return TRUE;
}

CWinApp* AfxGetApp()
{
    return s_pApp;
}

HINSTANCE AfxFindStringResourceHandle(UINT)
{
    return GetModuleHandleW(nullptr);
}
