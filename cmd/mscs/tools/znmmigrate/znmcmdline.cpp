// Takes the command line word by word. Must not judge the values: whether a name or a path makes sense is the
// migration procedure's to say.
#include "znmcmdline.h"

#include <memory>

#include "tovmdbgn.h"
#include "tovmexpn.h"
#include "tovmsrid.h"
#include "tovmtrce.h"
#include "znmapp.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmcmdline"));

namespace
{
[[noreturn]] void Raise(const wchar_t* pszText)
{
    throw new CZNMException(FN_PARSE_PARAM, 0, ZNM_SEVERITY_ERROR, pszText);
}

template <class... Args>
void Report(uint32_t nSeverity, const wchar_t* pszFormat, Args... args)
{
    CZNMDebug::GetInstance()->DebugOutput(FN_PARSE_PARAM, 0, nSeverity, pszFormat, args...);
}

void TakeArgument(const wchar_t* pszParam)
{
    switch (theApp.m_nExpected)
    {
    case EXPECT_QM_NAME:
        Report(ZNM_SEVERITY_INFORMATION, L"QueueManager argument specified: '%s'", pszParam);
        theApp.m_strQueueManager = pszParam;
        break;
    case EXPECT_DATA_DEST:
        Report(ZNM_SEVERITY_INFORMATION, L"Destination argument specified: '%s'", pszParam);
        theApp.SetDataDest(pszParam);
        break;
    case EXPECT_LOG_DEST:
        Report(ZNM_SEVERITY_INFORMATION, L"Log argument specified: '%s'", pszParam);
        theApp.SetLogDest(pszParam);
        break;
    default:
        Report(ZNM_SEVERITY_ERROR, L"No flag associated with argument");
        theApp.m_fParametersValid = FALSE;
        return;
    }
    theApp.m_nExpected = EXPECT_FLAG;
}

// Raises for every flag, the accepted ones too: the exception is how the trace learns which one was seen.
[[noreturn]] void TakeFlag(const wchar_t* pszParam)
{
    CString strFlag(pszParam);
    strFlag.MakeLower();
    if (strFlag == L"m")
    {
        theApp.m_nExpected = EXPECT_QM_NAME;
        Raise(L"(QueueManager flag caught)");
    }
    if (strFlag == L"dd")
    {
        theApp.m_nExpected = EXPECT_DATA_DEST;
        Raise(L"(Destination flag caught)");
    }
    if (strFlag == L"ld")
    {
        theApp.m_nExpected = EXPECT_LOG_DEST;
        Raise(L"(Log flag caught)");
    }
    theApp.m_fParametersValid = FALSE;
    Raise(CString(L"Invalid flag caught: '") + pszParam + L"'");
}
} // namespace

CZNCmdLineInfo::CZNCmdLineInfo()
{
    const CZNMTrace trace(FN_CMD_LINE_INFO_CTOR);
}

void CZNCmdLineInfo::ParseParam(const wchar_t* pszParam, BOOL fFlag, BOOL fLast)
{
    const CZNMTrace trace(FN_PARSE_PARAM);
    ++theApp.m_nParameters; // before any test: invalid words count too
    try
    {
        if (theApp.m_fParametersValid != TRUE)
            Raise(L"Parameters already invalid");
        if (!fFlag)
            TakeArgument(pszParam);
        else if (theApp.m_nExpected == EXPECT_FLAG)
            TakeFlag(pszParam);
        else
        {
            theApp.m_fParametersValid = FALSE;
            Raise(L"Invalid flag/argument pair specified");
        }
    }
    catch (CZNMException* pException)
    {
        const std::unique_ptr<CZNMException> owner(pException);
        owner->Report();
    }
    catch (...)
    {
        CZNMDebug::RecordFailure(FN_PARSE_PARAM, 1, L"*** Unknown exception caught! ***");
    }
    CCommandLineInfo::ParseParam(pszParam, fFlag, fLast);
}
