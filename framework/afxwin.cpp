// The application object and the walk over the command line.
#include "afxwin.h"

#include <cstdlib>

#include "sourceid.h"

ZNM_SOURCE_ID("framework/afxwin");

namespace
{
bool s_fAppExists = false;
} // namespace

IMPLEMENT_DYNAMIC(CObject, )

const AFX_MSGMAP* CCmdTarget::GetThisMessageMap()
{
    static const AFX_MSGMAP s_map{nullptr};
    return &s_map;
}

const AFX_MSGMAP* CCmdTarget::GetMessageMap() const
{
    return GetThisMessageMap();
}

void CCommandLineInfo::ParseParam(const wchar_t*, BOOL, BOOL) {}

CWinApp::CWinApp()
{
    s_fAppExists = true;
}

CWinApp::~CWinApp()
{
    s_fAppExists = false;
}

BOOL CWinApp::InitInstance()
{
    return TRUE;
}

int CWinApp::ExitInstance()
{
    return 0;
}

void CWinApp::ParseCommandLine(CCommandLineInfo& rCmdInfo)
{
    for (int i = 1; i < __argc; ++i)
    {
        const wchar_t* pszParam = __wargv[i];
        const BOOL bFlag = *pszParam == L'-' || *pszParam == L'/';
        rCmdInfo.ParseParam(bFlag ? pszParam + 1 : pszParam, bFlag, i + 1 == __argc);
    }
}

BOOL AfxWinInit(HINSTANCE hInstance, HINSTANCE hPrevInstance, wchar_t* lpCmdLine, int)
{
    return s_fAppExists && hInstance != nullptr && hPrevInstance == nullptr && lpCmdLine != nullptr;
}
