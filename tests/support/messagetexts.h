// What the command prints, in the language of the run, as the bytes of the console.
#pragma once

#include "installation.h"

// From the program itself, which finds its texts in the same way; nothing for 0.
inline std::string Message(unsigned nID, UINT nCodePage = CP_OEMCP)
{
    static const HMODULE s_hProgram =
        LoadLibraryExW((ProgramFolder() / "tarvel.exe").c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    wchar_t szText[1000] = {};
    char szBytes[2000] = {};
    LoadStringW(s_hProgram, nID, szText, 1000);
    WideCharToMultiByte(nCodePage, 0, szText, -1, szBytes, sizeof szBytes, nullptr, nullptr);
    std::string strResult;
    for (const char* psz = szBytes; *psz != '\0'; ++psz)
        strResult += *psz == '\n' ? "\r\n" : std::string(1, *psz);
    return nID != 0 ? strResult + "\r\n" : "";
}

const std::string USAGE = Message(20);
constexpr DWORD FAILED = 0xFFFFFFFF;
