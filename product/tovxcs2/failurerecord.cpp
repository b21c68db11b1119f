// Writes failure records, one small text file each. Must not fail its caller, and must not fill the disk: one
// cause can concern every file, and the first records tell most of it. So a process writes only the first
// few. Nothing deletes records: they are the administrator's.
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "text.h"
#include "tovxcs2.h"
#include "trace.h"
#include "tracetext.h"
#include "workpath.h"

namespace
{
constexpr int MAX_RECORDS_OF_PROCESS = 50;
constexpr uint32_t SHOWN_HISTORY = 32;
constexpr size_t MAX_INSERT = 16'384;
constexpr uint32_t IDENTIFIER_MASK = 0xFFFF;

std::string Line(std::string_view text)
{
    return ToUtf8Line(WidenForDisplay(text));
}

std::string InsertText(const char* pszText)
{
    return Line({pszText, strnlen(pszText, MAX_INSERT)});
}

void AppendField(std::string& strRecord, const char* pszName, const std::string& strValue)
{
    strRecord += Format("%-13s", pszName) + strValue + "\r\n";
}

// The newest comes last. An area that was damaged can only give wrong names: the index is bounded by the
// array's size.
void AppendHistory(std::string& strRecord, const XTR_THREAD_AREA& area)
{
    strRecord += "\r\nLast functions entered (>) and left (<), with return codes:\r\n";
    const uint32_t nShown = std::min(area.nHistory, SHOWN_HISTORY);
    for (uint32_t n = area.nHistory - nShown; n != area.nHistory; ++n)
    {
        const uint32_t nEntry = area.aHistory[n & (XTR_HISTORY_SIZE - 1)];
        const auto nComponent = static_cast<int32_t>((nEntry & IDENTIFIER_MASK) >> XTR_COMPONENT_SHIFT);
        const auto nFunction = static_cast<int32_t>(nEntry & ((1u << XTR_COMPONENT_SHIFT) - 1));
        const bool fEntered = (nEntry & ~IDENTIFIER_MASK) == XTR_ENTRY_MARK;
        const auto nCode = static_cast<int16_t>(nEntry >> 16); // only the code's lower half is kept
        strRecord += std::string(fEntered ? "  > " : "  < ") + FunctionName(nComponent, nFunction);
        if (!fEntered && (nCode != 0 || HasResult(nComponent, nFunction)))
            strRecord += Format(" = %d", nCode);
        strRecord += "\r\n";
    }
}

std::string Compose(int32_t nComponent, int32_t nFunction, int32_t nProbe, int32_t nErrorCode,
                    const XCS_INSERTS* pInserts)
{
    std::string strRecord = "Vantor ZN failure record\r\n\r\n";
    AppendField(strRecord, "Time", UtcNow());
    AppendField(strRecord, "Process", Format("%lu", GetCurrentProcessId()));
    AppendField(strRecord, "Command", ToUtf8Line(GetCommandLineW()));
    AppendField(strRecord, "Component", Format("%d", nComponent));
    AppendField(strRecord, "Function", FunctionName(nComponent, nFunction) + Format(" (%d)", nFunction));
    AppendField(strRecord, "Probe", Format("%d", nProbe));
    AppendField(strRecord, "Error code", Format("0x%08X", static_cast<unsigned>(nErrorCode)));
    if (pInserts != nullptr)
    {
        const char* const pMark = pInserts->achEyeCatcher;
        AppendField(strRecord, "Reported by", Line({pMark, strnlen(pMark, sizeof pInserts->achEyeCatcher)}));
        for (const char* const pszText : pInserts->apszText)
            if (pszText != nullptr)
                AppendField(strRecord, "Text", InsertText(pszText));
    }
    ThreadState* const pState = CurrentThreadState();
    if (pState == nullptr)
        return strRecord;
    // The next record has a source of its own.
    if (const char* const pszSource = std::exchange(pState->pszSourceId, nullptr))
        AppendField(strRecord, "Source", Line(pszSource) + Format(", line %d", pState->nSourceLine));
    AppendHistory(strRecord, pState->area);
    return strRecord;
}

// Writes the record unless there are enough, and says what became of it. A file that was created counts
// whatever became of its content: on a full disk each failure would make another one.
std::string Write(const std::string& strRecord)
{
    static int s_nRecords = 0;
    if (s_nRecords == MAX_RECORDS_OF_PROCESS)
        return Format("no failure record, %d of this process are kept", s_nRecords);
    const WorkFile created = CreateWorkFile(L"errors", L".txt");
    if (!created.file)
        return "no failure record, its file could not be created";
    ++s_nRecords;
    const bool fWhole = WriteWorkFile(created.file, strRecord);
    return "failure record errors\\" + ToUtf8Line(created.strName) +
           (fWhole ? "" : ", which could not be written");
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
    WithoutFailing([&] {
        std::string strLine = "! " + Write(Compose(nComponent, nFunction, nProbe, nErrorCode, pInserts));
        if (pInserts != nullptr && pInserts->apszText[0] != nullptr)
            strLine += ": " + InsertText(pInserts->apszText[0]);
        WriteTraceLine(strLine);
    });
}
