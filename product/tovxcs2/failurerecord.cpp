// Writes failure records, one small text file each. Must not fail its caller, and must not fill the disk: one
// cause can meet every file, and the first records tell most of it. So a process writes only the first few of
// each kind. Nothing deletes records: they are the administrator's.
#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include "funcnames.h"
#include "text.h"
#include "tovxcs2.h"
#include "trace.h"
#include "workfile.h"

namespace
{
constexpr size_t MAX_RECORDS_OF_PROCESS = 50;
constexpr size_t MAX_RECORDS_OF_KIND = 5;
constexpr uint32_t SHOWN_HISTORY = 32;
constexpr size_t MAX_INSERT = 16'384;

// Records of one function and probe tell of the same kind of failure.
struct Kind
{
    int32_t nComponent;
    int32_t nFunction;
    int32_t nProbe;
    bool operator==(const Kind&) const = default;
};

// What this process has written.
struct Written
{
    SRWLOCK lock = SRWLOCK_INIT;
    std::vector<Kind> kinds; // one of each record
};
Written s_written;

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

std::wstring InsertText(const char* pszText)
{
    return WidenForDisplay({pszText, strnlen(pszText, MAX_INSERT)});
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
        const std::wstring strText = InsertText(pszText);
        AppendField(strRecord, "Text", ToUtf8Line(strText));
        if (const auto nError = SystemErrorIn(strText))
            AppendField(strRecord, "System", ToUtf8Line(ErrorText(*nError)));
    }
}

constexpr uint32_t IDENTIFIER_MASK = 0xFFFF;

int32_t ComponentOf(uint32_t nEntry)
{
    return static_cast<int32_t>((nEntry & IDENTIFIER_MASK) >> XTR_COMPONENT_SHIFT);
}

int32_t FunctionOf(uint32_t nEntry)
{
    return static_cast<int32_t>(nEntry & ((1u << XTR_COMPONENT_SHIFT) - 1));
}

std::string NameOf(uint32_t nEntry)
{
    return FunctionName(ComponentOf(nEntry), FunctionOf(nEntry));
}

// An area that was damaged can only give wrong names: indices are bounded by the arrays' sizes. A function
// that calls itself for each directory level is one line.
void AppendCallStack(std::string& strRecord, const XTR_THREAD_AREA& area)
{
    strRecord += "\r\nFunctions entered and not left, the outermost first:\r\n";
    const uint32_t nShown = std::min(area.nDepth, XTR_CALL_STACK_SIZE);
    for (uint32_t n = 0; n < nShown;)
    {
        const uint32_t nFirst = n;
        while (n < nShown && area.aCallStack[n] == area.aCallStack[nFirst])
            ++n;
        strRecord += "  " + NameOf(area.aCallStack[nFirst]);
        strRecord += n - nFirst > 1 ? Format(", %u times\r\n", n - nFirst) : "\r\n";
    }
    if (area.nDepth > nShown)
        strRecord += Format("  and %u within these\r\n", area.nDepth - nShown);
}

// The newest comes last.
void AppendHistory(std::string& strRecord, const XTR_THREAD_AREA& area)
{
    strRecord += "\r\nLast functions entered (>) and left (<), with return codes:\r\n";
    const uint32_t nShown = std::min(area.nHistory, SHOWN_HISTORY);
    for (uint32_t n = area.nHistory - nShown; n != area.nHistory; ++n)
    {
        const uint32_t nEntry = area.aHistory[n & (XTR_HISTORY_SIZE - 1)];
        const bool fEntered = (nEntry & ~IDENTIFIER_MASK) == XTR_ENTRY_MARK;
        const auto nCode = static_cast<int16_t>(nEntry >> 16); // only the code's lower half is kept
        strRecord += std::string(fEntered ? "  > " : "  < ") + NameOf(nEntry);
        if (!fEntered && (nCode != 0 || HasResult(ComponentOf(nEntry), FunctionOf(nEntry))))
            strRecord += Format(" = %d", nCode);
        strRecord += "\r\n";
    }
}

// What the record says of records that will not follow.
std::string LastNote(size_t nOfKind, size_t nOfProcess)
{
    if (nOfKind == MAX_RECORDS_OF_KIND)
        return Format("not kept: %zu of this function and probe are enough; a trace tells of each", nOfKind);
    return nOfProcess == MAX_RECORDS_OF_PROCESS
               ? Format("not kept: %zu of this process are enough; a trace tells of each", nOfProcess)
               : "";
}

std::string Compose(const Kind& kind, int32_t nErrorCode, const XCS_INSERTS* pInserts,
                    const std::string& strSource, const std::string& strNote)
{
    std::string strRecord = "Vantor ZN failure record\r\n\r\n";
    AppendField(strRecord, "Time", UtcNow());
    AppendField(strRecord, "Process", Format("%lu", GetCurrentProcessId()));
    AppendField(strRecord, "Command", ToUtf8Line(GetCommandLineW()));
    AppendField(strRecord, "Component", Format("%d", kind.nComponent));
    AppendField(strRecord, "Function",
                FunctionName(kind.nComponent, kind.nFunction) + Format(" (%d)", kind.nFunction));
    AppendField(strRecord, "Probe", Format("%d", kind.nProbe));
    AppendField(
        strRecord, "Error code",
        Format("0x%08X", static_cast<unsigned>(nErrorCode)) +
            (nErrorCode == XCS_RC_PROGRAM_FAILURE ? " (the program reports a failure of its own)" : ""));
    if (pInserts != nullptr)
        AppendInserts(strRecord, *pInserts);
    if (!strSource.empty())
        AppendField(strRecord, "Source", strSource);
    if (!strNote.empty())
        AppendField(strRecord, "More", strNote);
    if (const ThreadState* const pState = CurrentThreadState())
    {
        AppendCallStack(strRecord, pState->area);
        AppendHistory(strRecord, pState->area);
    }
    return strRecord;
}

// What was saved for this record; the next one has its own.
std::string TakeSource()
{
    ThreadState* const pState = CurrentThreadState();
    const char* const psz = pState != nullptr ? std::exchange(pState->pszSourceId, nullptr) : nullptr;
    return psz != nullptr ? ToUtf8Line(WidenForDisplay(psz)) + Format(", line %d", pState->nSourceLine) : "";
}

// Writes the record unless there are enough, and says what became of it. A file that was created counts
// whatever became of its content: on a full disk each failure would make another one.
std::string Record(const Kind& kind, int32_t nErrorCode, const XCS_INSERTS* pInserts)
{
    const std::string strSource = TakeSource();
    const Lock lock(s_written.lock);
    const auto nOfKind = static_cast<size_t>(std::ranges::count(s_written.kinds, kind));
    if (nOfKind == MAX_RECORDS_OF_KIND)
        return Format("no failure record, %zu of this function and probe are kept", nOfKind);
    if (s_written.kinds.size() == MAX_RECORDS_OF_PROCESS)
        return Format("no failure record, %zu of this process are kept", s_written.kinds.size());
    const std::string strRecord =
        Compose(kind, nErrorCode, pInserts, strSource, LastNote(nOfKind + 1, s_written.kinds.size() + 1));
    s_written.kinds.reserve(MAX_RECORDS_OF_PROCESS); // nothing may be short between here and the counting
    const WorkFile created = CreateWorkFile(L"errors", L".txt");
    if (!created.file)
        return "no failure record, its file could not be created";
    s_written.kinds.push_back(kind);
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
    const bool fDone = WithoutFailing([&] {
        std::string strLine = "! " + Record({nComponent, nFunction, nProbe}, nErrorCode, pInserts);
        if (!IsTraced())
            return;
        if (pInserts != nullptr && pInserts->apszText[0] != nullptr)
            strLine += ": " + ToUtf8Line(InsertText(pInserts->apszText[0]));
        WriteTraceLine(TraceDepth(), strLine);
    });
    if (!fDone)
        WithoutFailing([] { WriteTraceLine(TraceDepth(), "! no failure record, out of memory"); });
}
