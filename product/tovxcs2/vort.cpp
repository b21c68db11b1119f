// Writes failure records, one small text file each. Must not fail its caller, and must not fill the disk: at
// most 100 are kept, the oldest makes room.
#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "funcnames.h"
#include "recordfile.h"
#include "text.h"
#include "tovxcs2.h"
#include "trace.h"

namespace
{
constexpr unsigned MAX_RECORDS = 100;
constexpr uint32_t SHOWN_HISTORY = 32;
constexpr size_t MAX_INSERT = 16'384;

// The number behind "error " or "Error " in a text that tells of a refused system call.
std::optional<unsigned long> SystemErrorIn(const std::wstring& strText)
{
    constexpr std::wstring_view WORD = L"rror";
    for (size_t n = strText.find(WORD); n != std::wstring::npos; n = strText.find(WORD, n + 1))
    {
        size_t nDigit = n + WORD.size();
        while (nDigit < strText.size() && (strText[nDigit] == L' ' || strText[nDigit] == L':'))
            ++nDigit;
        if (nDigit < strText.size() && strText[nDigit] >= L'0' && strText[nDigit] <= L'9')
            return wcstoul(strText.c_str() + nDigit, nullptr, 10);
    }
    return std::nullopt;
}

void AppendField(std::string& strRecord, const char* pszName, const std::string& strValue)
{
    strRecord += Format("%-13s", pszName) + strValue + "\r\n";
}

void AppendInserts(std::string& strRecord, const XCS_INSERTS& inserts)
{
    const char* const pEnd =
        std::find(std::begin(inserts.achEyeCatcher), std::end(inserts.achEyeCatcher), '\0');
    AppendField(strRecord, "Reported by", ToUtf8Line(WidenForDisplay({inserts.achEyeCatcher, pEnd})));
    for (const char* const pszText : inserts.apszText)
    {
        if (pszText == nullptr)
            continue;
        const std::wstring strText = WidenForDisplay({pszText, strnlen(pszText, MAX_INSERT)});
        AppendField(strRecord, "Text", ToUtf8Line(strText));
        if (const auto nError = SystemErrorIn(strText))
            AppendField(strRecord, "System", ToUtf8Line(ErrorText(*nError)));
    }
}

// The newest comes last. An area that was damaged can only give wrong names: indices are bounded by masks.
void AppendHistory(std::string& strRecord, const XTR_THREAD_AREA& area)
{
    strRecord += "\r\nLast functions entered (>) and left (<), with return codes:\r\n";
    constexpr uint32_t EXIT_MASK = 0xFFFF;
    const uint32_t nShown = std::min(area.nHistory, SHOWN_HISTORY);
    for (uint32_t n = area.nHistory - nShown; n != area.nHistory; ++n)
    {
        const uint32_t nEntry = area.aHistory[n & (XTR_HISTORY_SIZE - 1)];
        const auto nComponent = static_cast<int32_t>((nEntry & EXIT_MASK) >> XTR_COMPONENT_SHIFT);
        const auto nFunction = static_cast<int32_t>(nEntry & ((1u << XTR_COMPONENT_SHIFT) - 1));
        const bool fEntered = (nEntry & ~EXIT_MASK) == XTR_ENTRY_MARK;
        strRecord += std::string(fEntered ? "  > " : "  < ") + FunctionName(nComponent, nFunction);
        if (!fEntered) // only the code's lower half is kept
            strRecord += Format(" = %d", static_cast<int16_t>(nEntry >> 16));
        strRecord += "\r\n";
    }
}

void WriteFailureRecord(int32_t nComponent, int32_t nFunction, int32_t nProbe, int32_t nErrorCode,
                        const XCS_INSERTS* pInserts)
{
    std::string strRecord = "Vantor ZN failure record\r\n\r\n";
    AppendField(strRecord, "Time", UtcNow());
    AppendField(strRecord, "Process", Format("%lu", GetCurrentProcessId()));
    AppendField(strRecord, "Command", ToUtf8Line(GetCommandLineW()));
    AppendField(strRecord, "Component", Format("%d", nComponent));
    AppendField(strRecord, "Function", FunctionName(nComponent, nFunction) + Format(" (%d)", nFunction));
    AppendField(strRecord, "Probe", Format("%d", nProbe));
    AppendField(
        strRecord, "Error code",
        Format("0x%08X", static_cast<unsigned>(nErrorCode)) +
            (nErrorCode == XCS_RC_PROGRAM_FAILURE ? " (the program reports a failure of its own)" : ""));
    if (pInserts != nullptr)
        AppendInserts(strRecord, *pInserts);
    if (ThreadState* const pState = CurrentThreadState())
    {
        if (pState->pszSourceId != nullptr)
            AppendField(strRecord, "Source",
                        ToUtf8Line(WidenForDisplay(std::exchange(pState->pszSourceId, nullptr))) +
                            Format(", line %d", pState->nSourceLine));
        AppendHistory(strRecord, pState->area);
    }
    RemoveOldestRecord(L"errors", L".txt", MAX_RECORDS);
    WriteRecord(CreateRecordFile(L"errors", L".txt"), strRecord);
}
} // namespace

void xcsSaveFileContextSccsId(const char* pszSourceId, int32_t nLine)
{
    if (ThreadState* const pState = CurrentThreadState())
    {
        pState->pszSourceId = pszSourceId;
        pState->nSourceLine = nLine;
    }
}

void xcsVORTFn(int32_t nComponent, int32_t nFunction, int32_t nProbe, int32_t nErrorCode,
               const XCS_INSERTS* pInserts, void*, void*, void*)
{
    try
    {
        const DWORD nError = GetLastError();
        WriteFailureRecord(nComponent, nFunction, nProbe, nErrorCode, pInserts);
        SetLastError(nError);
    }
    catch (...)
    {
        // Out of memory: the failure that was to be recorded is the one that the caller goes on to report.
    }
}
