// Gives the running thread a trace area with everything switched on, and keeps what the code under test hands
// to the trace and to the failure records, a line each:
//     "> 31"              entry            "# 31 text"     parameter record, formatted
//     "< 31 rc"           exit             "- 31 text"     text record
//     "! 31/1 text"       failure record of function 31 at probe 1
#pragma once

#include <gmock/gmock.h>

#include <cstdarg>
#include <sstream>
#include <string>
#include <vector>

#include "hook.h"
#include "tovxcs2.h"

struct Capture
{
    Capture()
    {
        s_pThis = this;
        WriteImportSlot(m_ppParms, reinterpret_cast<void*>(&Parms));
        xihProcess = {1, 1, 0};
        area.fTraceActive = area.fDetailed = 1;
        area.nOptions = XTR_OPTIONS_PARMS | XTR_OPTIONS_TEXT;
        TlsSetValue(xihTLSIndex, &area);
    }
    ~Capture()
    {
        TlsSetValue(xihTLSIndex, nullptr);
        xihProcess = {};
        WriteImportSlot(m_ppParms, m_pRealParms);
    }

    // The lines that begin so.
    std::vector<std::string> Only(const std::string& strBegin) const
    {
        std::vector<std::string> result = lines;
        std::erase_if(result, [&](const std::string& str) { return !str.starts_with(strBegin); });
        return result;
    }

    std::vector<std::string> lines;
    XTR_THREAD_AREA area = {};
    uint32_t nBehind = 0; // the area: stays 0

  private:
    template <class... Words>
    void Add(const Words&... words)
    {
        std::ostringstream line;
        (line << ... << words);
        lines.push_back(line.str());
    }
    // A hook cannot take any number of arguments.
    [[gnu::format(printf, 1, 2)]] static void Parms(const char* pszFormat, ...)
    {
        static char szText[1 << 18];
        va_list args;
        va_start(args, pszFormat);
        _vsnprintf(szText, sizeof szText, pszFormat, args);
        va_end(args);
        s_pThis->Add("# ", s_pThis->area.nCurrentFunction >> 16, " ", szText);
    }

    static inline Capture* s_pThis = nullptr;
    const Hooks m_hooks = {
        Hook(xtr_FNC_entry, [this](auto*, int, int f) { Add("> ", f); }),
        Hook(xtr_FNC_retcode, [this](auto*, int, int f, int rc) { Add("< ", f, " ", rc); }),
        Hook(xtr_FNC_text, [this](int, int f, auto*, int, const char* psz) { Add("- ", f, " ", psz); }),
        Hook(xcsVORTFn,
             [this](int, int f, int nProbe, int, const XCS_INSERTS* p, auto...) {
                 Add("! ", f, "/", nProbe, " ", p->apszText[0] != nullptr ? p->apszText[0] : "(null)");
             }),
        // The library keeps more about a thread than the area, which here is the test's.
        Hook(xcsSaveFileContextSccsId, [](auto...) {})};
    void** const m_ppParms = FindImportSlot("xtr_parms");
    void* const m_pRealParms = *m_ppParms;
};
