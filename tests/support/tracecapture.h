// Gives the running thread a trace area with everything switched on, and keeps what the code under test hands
// to the trace and to the failure records, a line each:
//
//     "> 31"              entry            "# 31 text"     parameter record, formatted
//     "< 31 rc"           exit             "- 31 text"     text record
//     "! 31/1 text"       failure record of function 31 at probe 1
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "hook.h"
#include "tovxcs2.h"

class Capture
{
  public:
    Capture()
    {
        s_pThis = this;
        WriteImportSlot(m_ppParms, reinterpret_cast<void*>(&Parms));
        xihProcess = {1, 1, 0};
        area.fTraceActive = 1;
        area.fDetailed = 1;
        area.nOptions = XTR_OPTIONS_PARMS | XTR_OPTIONS_TEXT;
        TlsSetValue(xihTLSIndex, &area);
    }
    ~Capture()
    {
        TlsSetValue(xihTLSIndex, nullptr);
        xihProcess = {};
        WriteImportSlot(m_ppParms, m_pRealParms);
    }

    // The lines of one kind, or of all kinds but entries and exits.
    std::vector<std::string> Only(const std::string& strKinds = "#-!") const
    {
        std::vector<std::string> result;
        std::copy_if(lines.begin(), lines.end(), std::back_inserter(result),
                     [&](const std::string& str) { return strKinds.find(str[0]) != std::string::npos; });
        return result;
    }
    bool Has(const std::string& strLine) const { return Count(strLine) > 0; }
    ptrdiff_t Count(const std::string& strLine) const
    {
        return std::count(lines.begin(), lines.end(), strLine);
    }

    std::vector<std::string> lines;
    XTR_THREAD_AREA area = {};

  private:
    void Add(const std::string& strLine) { lines.push_back(strLine); }

    static void Parms(const char* pszFormat, ...)
    {
        static char szText[1 << 18];
        va_list args;
        va_start(args, pszFormat);
        _vsnprintf(szText, sizeof szText, pszFormat, args);
        va_end(args);
        s_pThis->Add("# " + std::to_string(s_pThis->area.nCurrentFunction >> 16) + " " + szText);
    }

    static inline Capture* s_pThis = nullptr;
    ImportHook<decltype(xtr_FNC_entry), Capture> m_entry{
        "xtr_FNC_entry", [this](auto*, int, int f) { Add("> " + std::to_string(f)); }};
    ImportHook<decltype(xtr_FNC_retcode), Capture> m_retcode{
        "xtr_FNC_retcode",
        [this](auto*, int, int f, int rc) { Add("< " + std::to_string(f) + " " + std::to_string(rc)); }};
    ImportHook<decltype(xtr_FNC_text), Capture> m_text{
        "xtr_FNC_text",
        [this](int, int f, auto*, int, const char* psz) { Add("- " + std::to_string(f) + " " + psz); }};
    ImportHook<decltype(xcsVORTFn), Capture> m_record{
        "xcsVORTFn", [this](int, int f, int probe, int, const XCS_INSERTS* p, auto...) {
            const char* const psz = p->apszText[0] != nullptr ? p->apszText[0] : "(null)";
            Add("! " + std::to_string(f) + "/" + std::to_string(probe) + " " + psz);
        }};
    // The library keeps more about a thread than the area, which here is the test's.
    ImportHook<decltype(xcsSaveFileContextSccsId), Capture> m_context{"xcsSaveFileContextSccsId",
                                                                      [](auto...) {}};
    // A hook cannot take any number of arguments.
    void** const m_ppParms = FindImportSlot("xtr_parms");
    void* const m_pRealParms = *m_ppParms;
};
