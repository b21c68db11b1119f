// What the trace costs a traced function, against the same done by hand. Must be run with ZN_TRACE unset.
//
// Prints one line for each pair: what it is, the nanoseconds that the function by hand and the traced one
// take, and their ratio, each the median of many short turns that take place by turns; then the number of
// thread-slot reads.
#include "tovmtrce.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "../tests/support/hook.h"
#include "tovxcs2.h"

namespace
{
constexpr int CALLS = 100'000; // a turn
constexpr int TURNS = 151;

constexpr ZNM_FUNCTION FUNCTION = FN_SET_DATA_DEST;
constexpr uint32_t IDENTIFIER = (42u << XTR_COMPONENT_SHIFT) | FUNCTION;

XTR_THREAD_AREA* Area()
{
    return static_cast<XTR_THREAD_AREA*>(TlsGetValue(xihTLSIndex));
}

// The bookkeeping as it would be written into a function by hand.
inline void Enter(XTR_THREAD_AREA* pArea)
{
    if (pArea == nullptr)
        return;
    const uint32_t nEntry = IDENTIFIER | XTR_ENTRY_MARK;
    pArea->aCallStack[pArea->nDepth++] = nEntry;
    pArea->aHistory[pArea->nHistory++ & (XTR_HISTORY_SIZE - 1)] = nEntry;
    if (pArea->fTraceActive)
        xtr_FNC_entry(pArea, ZNM_COMPONENT, FUNCTION);
}

inline void Leave(XTR_THREAD_AREA* pArea, int nCode)
{
    if (pArea == nullptr)
        return;
    --pArea->nDepth;
    pArea->aHistory[pArea->nHistory++ & (XTR_HISTORY_SIZE - 1)] =
        (static_cast<uint32_t>(nCode) << 16) + IDENTIFIER;
    if (pArea->fTraceActive)
        xtr_FNC_retcode(pArea, ZNM_COMPONENT, FUNCTION, nCode);
}

using Function = int (*)(int);

[[gnu::noinline]] int OneRead(int n)
{
    XTR_THREAD_AREA* const pArea = Area();
    Enter(pArea);
    Leave(pArea, n);
    return n;
}

[[gnu::noinline]] int TwoReads(int n)
{
    Enter(Area());
    asm volatile("" : "+r"(n));
    Leave(Area(), n);
    return n;
}

[[gnu::noinline]] int TwoReadsAndParms(int n)
{
    Enter(Area());
    if (xihProcess.fTraceEnabled && (xihProcess.nConsumers > 0 || xihProcess.fTraceEverything))
        if (XTR_THREAD_AREA* const pArea = Area();
            pArea &&
            ((pArea->fDetailed && (pArea->nOptions & XTR_OPTIONS_PARMS)) || xihProcess.fTraceEverything))
            xtr_parms("%d", n);
    Leave(Area(), n);
    return n;
}

[[gnu::noinline]] int Traced(int n)
{
    CZNMTrace trace(FUNCTION);
    asm volatile("" : "+r"(n));
    return trace.Return(n);
}

[[gnu::noinline]] int TracedWithParms(int n)
{
    CZNMTrace trace(FUNCTION);
    trace.Parms("%d", n);
    return trace.Return(n);
}

// Nanoseconds a call.
double Turn(Function function)
{
    LARGE_INTEGER nStart, nEnd, nFrequency;
    QueryPerformanceFrequency(&nFrequency);
    QueryPerformanceCounter(&nStart);
    for (int i = 0; i < CALLS; ++i)
        function(i);
    QueryPerformanceCounter(&nEnd);
    return static_cast<double>(nEnd.QuadPart - nStart.QuadPart) * 1e9 /
           static_cast<double>(nFrequency.QuadPart) / CALLS;
}

double Median(std::vector<double>& values)
{
    std::nth_element(values.begin(), values.begin() + TURNS / 2, values.end());
    return values[TURNS / 2];
}

void Compare(const char* pszName, Function byHand, Function traced)
{
    std::vector<double> anByHand, anTraced, anRatio;
    for (int i = 0; i < TURNS; ++i)
    {
        anByHand.push_back(Turn(byHand));
        anTraced.push_back(Turn(traced));
        anRatio.push_back(anTraced.back() / anByHand.back());
    }
    std::printf("%s\t%.2f\t%.2f\t%.2f\n", pszName, Median(anByHand), Median(anTraced), Median(anRatio));
}

void CountReads(const char* pszName, Function function)
{
    int nReads = 0;
    const auto hook = Hook(TlsGetValue, [&](DWORD nSlot) {
        nReads += nSlot == xihTLSIndex;
        return TlsGetValue(nSlot);
    });
    function(0);
    std::printf("%s\t%d\n", pszName, nReads);
}

void CompareAll(const char* pszState)
{
    std::printf("# %s\n", pszState);
    Compare("entry and exit, one slot read by hand", OneRead, Traced);
    Compare("entry and exit, two slot reads by hand", TwoReads, Traced);
    Compare("entry, parameters and exit", TwoReadsAndParms, TracedWithParms);
}
} // namespace

int main()
{
    CompareAll("no trace area");
    XCS_CONNECTION connection = {};
    if (xcsInitializeEx(0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, &connection) != 0)
        return 1;
    CompareAll("trace area, tracing off");
    xtrEstablishTraceStatus();
    CompareAll("trace established, nothing active");
    std::printf("# slot reads\n");
    CountReads("entry and exit", Traced);
    CountReads("entry, parameters and exit", TracedWithParms);
    return xcsTerminate(&connection, 0);
}
