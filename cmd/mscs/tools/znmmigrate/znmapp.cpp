// The application object's fields and life. It is made before the common services are up and destroyed after
// they are gone, so nothing here may rely on them.
#include "znmapp.h"

#include "tovmsrid.h"
#include "tovmtrce.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmapp"));

CZNMSCSApp theApp;

namespace
{
CString Normalized(CString strDest)
{
    strDest.Replace(L'/', L'\\');
    while (strDest.Right(1) == L"\\")
        strDest = strDest.Left(strDest.GetLength() - 1);
    return strDest;
}
} // namespace

CZNMSCSApp::CZNMSCSApp()
{
    const CZNMTrace trace(FN_APP_CTOR);
}

CZNMSCSApp::~CZNMSCSApp()
{
    const CZNMTrace trace(FN_APP_DTOR);
}

BEGIN_MESSAGE_MAP(CZNMSCSApp, CWinApp)
END_MESSAGE_MAP()

BOOL CZNMSCSApp::InitInstance()
{
    CZNMTrace trace(FN_INIT_INSTANCE);
    return trace.Return(CWinApp::InitInstance());
}

int CZNMSCSApp::ExitInstance()
{
    CZNMTrace trace(FN_EXIT_INSTANCE);
    return trace.Return(CWinApp::ExitInstance());
}

void CZNMSCSApp::SetDataDest(const wchar_t* strDataDest)
{
    const CZNMTrace trace(FN_SET_DATA_DEST);
    trace.Parms("CZNMSCSApp::SetDataDest() (strDataDest = %S)", strDataDest);
    m_strDataDest = Normalized(strDataDest);
}

void CZNMSCSApp::SetLogDest(const wchar_t* strLogDest)
{
    const CZNMTrace trace(FN_SET_LOG_DEST);
    trace.Parms("CZNMSCSApp::SetLogDest() (strLogDest = %S)", strLogDest);
    m_strLogDest = Normalized(strLogDest);
}
