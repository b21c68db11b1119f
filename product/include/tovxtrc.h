// Function trace of the product's common-services library: the per-thread area and the process block that a
// program keeps up to date by itself, and the operations that it hands records to.
//
// A program reads and writes the area directly, without a call, so that tracing costs next to nothing while
// it is off. What an area holds belongs to one thread; the process block is only ever read by programs.
#pragma once

#include <cstddef>
#include <cstdint>

#ifndef XCS_API
#define XCS_API __declspec(dllimport)
#endif

// Entries of the history; a power of two, so that the ever-growing write counter wraps by a mask.
constexpr uint32_t XTR_HISTORY_SIZE = 256;

// Entries of the call stack. The depth may grow beyond it; what lies deeper is counted and not stored.
constexpr uint32_t XTR_CALL_STACK_SIZE = 128;

// A function identifier is (component << 10) | function. On entry it is recorded with this mark, on exit
// without it but with the return code in the upper 16 bits.
constexpr uint32_t XTR_ENTRY_MARK = 0xF0000000;
constexpr uint32_t XTR_COMPONENT_SHIFT = 10;

// Bits of the thread's options mask.
constexpr uint32_t XTR_OPTIONS_PARMS = 0x000C0000; // parameter records; any one bit is enough
constexpr uint32_t XTR_OPTIONS_TEXT = 0x00008000;  // text records

// A thread's trace area. Reached through the thread-local slot xihTLSIndex; null there means that the thread
// has none and that nothing may be recorded.
struct XTR_THREAD_AREA
{
    uint32_t nHistory;         // write counter of aHistory, only ever incremented
    uint32_t nDepth;           // functions entered and not left
    uint32_t fTraceActive;     // entries and exits are to be handed over
    uint32_t fDetailed;        // with nOptions: parameters and texts are to be handed over
    uint32_t nOptions;         // XTR_OPTIONS_...
    uint32_t nCurrentFunction; // (function << 16) | component of the parameter record being written
    uint32_t aHistory[XTR_HISTORY_SIZE];
    uint32_t aCallStack[XTR_CALL_STACK_SIZE];
};
static_assert(offsetof(XTR_THREAD_AREA, nCurrentFunction) == 20);
static_assert(offsetof(XTR_THREAD_AREA, aHistory) == 24);
static_assert((XTR_HISTORY_SIZE & (XTR_HISTORY_SIZE - 1)) == 0);

// The process trace block.
struct XIH_PROCESS
{
    uint32_t fTraceEnabled;    // tracing is on for this process
    int32_t nConsumers;        // active consumers of trace records
    uint32_t fTraceEverything; // every record is wanted, whatever the thread's options say
};
static_assert(sizeof(XIH_PROCESS) == 12);

extern "C"
{
    // Thread-local slot of the trace area, for TlsGetValue.
    extern XCS_API uint32_t xihTLSIndex;

    // The block itself, not a pointer to it.
    extern XCS_API XIH_PROCESS xihProcess;

    // Decides from the environment whether this process is traced, and sets the flags of the process block
    // and of the calling thread's area. Returns 0, or a code when the trace could not be set up; the process
    // then runs untraced.
    XCS_API int32_t xtrEstablishTraceStatus();

    // Records that a function was entered.
    XCS_API void xtr_FNC_entry(XTR_THREAD_AREA* pArea, int32_t nComponent, int32_t nFunction);

    // Records that a function was left with nReturnCode (0 for functions without a result).
    XCS_API void xtr_FNC_retcode(XTR_THREAD_AREA* pArea, int32_t nComponent, int32_t nFunction,
                                 int32_t nReturnCode);

    // Records a line made from a narrow printf format: %s takes narrow text (code page CP_THREAD_ACP), %S
    // wide text. The function it belongs to is the area's nCurrentFunction.
    XCS_API void xtr_parms(const char* pszFormat, ...);

    // Records a fixed narrow text. nReserved is 0.
    XCS_API void xtr_FNC_text(int32_t nComponent, int32_t nFunction, XTR_THREAD_AREA* pArea,
                              int32_t nReserved, const char* pszText);
}
